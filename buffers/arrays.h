/* Growable arrays, named by small positive integers.

   Every array of the process is described by one entry of a shared table, which arrDescPtr points
   at. An inline array keeps its elements one after another in its storage; an indirect array keeps
   a vector of pointers there, each to an element block of its own, with a null pointer after the
   last. To read an array, take its entry, arrDescPtr[index], and its storage and count; take the
   storage again after every put, since it moves when the array grows. The entry itself never moves.

   Entry 0 describes the table: storage is the table's own address, elemSize the size of an entry,
   count the entries in use (itself included), capacity the entries there are, increment the growth
   step, changes the arrays closed, nextFree the head of the free list. Valid indexes are 1 to
   capacity - 1. The table holds at most 1,048,576 entries and is never released.

   Any thread may call any operation. Operations on arrays take arrAccessLock, which is recursive
   and usable from the start; arrayOpen takes it only where it has to audit the table. Readers of
   arrDescPtr take no lock: whoever reads an array that another thread changes holds the access
   lock, or a lock of their own, meanwhile. An array that the reading thread alone changes needs
   none, whatever others do to theirs. Nothing here is safe in a signal handler.

   A failed operation leaves the array as it was, unless told otherwise; sizes that overflow count
   as exhausted memory. errno is whatever the allocation left. */
#ifndef QUARNEL_BUFFERS_ARRAYS_H
#define QUARNEL_BUFFERS_ARRAYS_H

#include <pthread.h>
#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ArrayDescriptor {
    uint32_t type;      /* 0: inline, 1: indirect */
    void *storage;      /* elements, or element pointers; null until the first put */
    uint32_t elemSize;  /* bytes of an element; 0 (indirect only): each has its own size */
    uint32_t count;     /* elements in use */
    uint32_t capacity;  /* slots allocated */
    uint32_t increment; /* growth step in slots; 0 alone marks a free descriptor */
    uint32_t changes;   /* successful puts and deletions */
    uint32_t nextFree;  /* next descriptor of the free list; 0 ends it */
} ArrayDescriptor;      /* 32 bytes on i386 */

/* Told of a damaged table, the access lock held, in the thread whose operation found it. */
typedef void (*ArrayFatalFunc)(const char *message);

/* The table; null until arrayInit or the first arrayOpen. A thread that has called an operation on
   an open array reads it plainly; one that waits for another to make the table loads it atomically
   (acquire): it is whole when it is seen. */
QN_API extern ArrayDescriptor *arrDescPtr;

/* Held around every change of an array; recursive. Who holds it keeps every other thread's
   operations waiting. */
QN_API extern pthread_mutex_t arrAccessLock;

/* Makes the table, with so many entries (its own included) and that growth step, and returns it.
   When there is a table already, returns that one, unchanged. Null for 0, for more than the table
   can hold, and when memory is exhausted. */
QN_API ArrayDescriptor *arrayInit(uint32_t count);

/* Opens an array of the type, with elements of so many bytes, and returns its index. Makes the
   table, with 10 entries, if there is none. 0 for an inline array of elemSize 0, for a type above
   1, and when memory is exhausted. The type is refused only after a descriptor was taken, which
   stays taken until the next audit. */
QN_API uint32_t arrayOpen(uint32_t type, uint32_t elemSize);

/* The open array's descriptor, the access lock held: the caller unlocks it. Null, the lock not
   held, when the index names no open array. */
QN_API ArrayDescriptor *arrayCkDescriptor(uint32_t index);

/* As arrayCkDescriptor, but the lock is not held on return. */
QN_API ArrayDescriptor *arrayValidDescriptor(uint32_t index);

/* Adds at least so many slots, rounded up to the increment, all zero, and returns the storage,
   which may have moved. Null, nothing changed, unless the pointer is the descriptor of an open
   array and slots is above 0, and when memory is exhausted. */
QN_API void *expandArray(ArrayDescriptor *descriptor, int32_t slots);

/* Appends an element: the bytes at the source (which may lie in the array's own storage), or zeros
   for a null source. Returns the element's address, valid until the next put of an inline array and
   until the element is deleted of an indirect one. Null for an index that names no open array, an
   array of elemSize 0, and when memory is exhausted (the storage may have grown). */
QN_API void *arrayPut(uint32_t index, const void *source);

/* As arrayPut, with a size in bytes for this element: for indirect arrays of elemSize 0 only. Null
   as well for size 0 and for other arrays. */
QN_API void *arrayVPut(uint32_t index, const void *source, uint32_t size);

/* Deletes the element at the address and closes the gap, in time linear in the elements. 0; or -1
   when the index names no open array or the address is not exactly that of an element. */
QN_API int32_t arrayDel(uint32_t index, void *element);

/* Releases the array with its storage and elements. 0, or -1 when the index names no open array. */
QN_API int32_t arrayClose(uint32_t index);

/* Releases the array but not its storage, which it returns: the caller's, with the element blocks
   of an indirect array, each to be released with free. Null when the index names no open array, and
   for an array nothing was ever put into. */
QN_API void *arrayDone(uint32_t index);

/* Installs the function told of a damaged table, the default for null; the default ends the process
   through panic. Returns the function replaced, null when that was the default. */
QN_API ArrayFatalFunc arraySetFatalFunc(ArrayFatalFunc function);

/* Checks the table, telling the fatal function of each damage found, and, where that returns,
   rebuilds the count and the free list from the descriptors in use, in time linear in the table.
   The table's changes start again at 0. Nothing happens while there is no table. */
QN_API void arrayAudit(void);

#ifdef __cplusplus
}
#endif

#endif
