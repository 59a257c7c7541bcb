/* The last resort: a broken invariant that nothing can go on from. Any thread may call it; not a
   signal handler, which might wait for ever for the lock of standard error. */
#ifndef QUARNEL_CORE_PANIC_H
#define QUARNEL_CORE_PANIC_H

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Writes carriage return, line feed, "PANIC: ", the message, carriage return and line feed to
   standard error, flushes it and aborts. A null message is an empty one. Does not return; no
   clean-up of the library runs. */
QN_API void panic(const char *message) __attribute__((noreturn));

#ifdef __cplusplus
}
#endif

#endif
