/* Intrusive first-in-first-out queues, with a counted variant for free lists.

   An item is any record whose first field is its link. It is on a queue exactly when the link is
   not null; the last item of a queue holds LIST_END. The queue owns nothing. An empty header is all
   zeros, and so is the link of an item that is on no queue. Nothing here locks: a
   queue and its items are for one thread at a time, and for a signal handler only where its owner
   keeps that out meanwhile. Putting an item on a queue twice would corrupt both lists silently, so
   the two cheap cases of it end the process. */
#ifndef QUARNEL_CORE_LIST_H
#define QUARNEL_CORE_LIST_H

#include <stdint.h>

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ListItem {
    struct ListItem
        *i_next; /* null: on no queue; LIST_END: last of its queue; else the next item */
} ListItem;

#define LIST_END ((ListItem *)1)

typedef struct ListHeader {
    ListItem *head; /* first item, or null */
    ListItem *tail; /* last item; meaningful only while head is not null */
    int16_t count;  /* items on a free list: changed by getItem and freeItem only */
} ListHeader;

/* Appends the item. Ends the process through listerr if the item is the queue's tail or its link is
 * not null. */
QN_API void queue(ListHeader *header, ListItem *item);

/* Removes and returns the first item, its link cleared; null when the queue is empty. The count
 * stays. */
QN_API ListItem *dequeue(ListHeader *header);

/* As queue, and raises the count. */
QN_API void freeItem(ListHeader *header, ListItem *item);

/* As dequeue, and lowers the count if there was an item. */
QN_API ListItem *getItem(ListHeader *header);

/* Ends the process through panic with the text and the addresses of the queue and the item. */
QN_API void listerr(ListHeader *header, ListItem *item, const char *text) __attribute__((noreturn));

#ifdef __cplusplus
}
#endif

#endif
