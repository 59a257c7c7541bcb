#include "list.h"

#include "panic.h"

#include <stddef.h>
#include <stdio.h>

static_assert(offsetof(ListItem, i_next) == 0);
static_assert(sizeof(void *) != 4 ||
              (offsetof(ListHeader, count) == 8 && sizeof(ListHeader) == 12));

static unsigned long addressOf(const void *pointer) {
    return reinterpret_cast<unsigned long>(pointer);
}

void queue(ListHeader *header, ListItem *item) {
    // The tail is tested first: its link is not null either, and its message is the more exact one.
    if (header->tail == item)
        listerr(header, item, "queue: requeuing queued item.\n");
    if (item->i_next != nullptr)
        listerr(header, item, "queue: queuing apparently queued item.\n");
    item->i_next = LIST_END;
    if (header->head != nullptr)
        header->tail->i_next = item;
    else
        header->head = item;
    header->tail = item;
}

ListItem *dequeue(ListHeader *header) {
    ListItem *item = header->head;
    if (item == nullptr)
        return nullptr;
    if (item->i_next == LIST_END)
        header->head = header->tail = nullptr;
    else
        header->head = item->i_next;
    item->i_next = nullptr;
    return item;
}

void freeItem(ListHeader *header, ListItem *item) {
    queue(header, item);
    ++header->count;
}

ListItem *getItem(ListHeader *header) {
    ListItem *item = dequeue(header);
    if (item != nullptr)
        --header->count;
    return item;
}

void listerr(ListHeader *header, ListItem *item, const char *text) {
    char message[400];
    snprintf(message, sizeof message, "head: %#lx tail: %#lx item: %#lx item->i_next: %#lx %s",
             addressOf(header->head), addressOf(header->tail), addressOf(item),
             addressOf(item->i_next), text);
    panic(message);
}
