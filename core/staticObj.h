/* Per-thread variables, created when first touched.

   A variable is a descriptor defined statically: its destructor and initial value,
   PTHREAD_MUTEX_INITIALIZER for the guard, zeros elsewhere. The key comes into being at the first
   fetch or store and is never deleted. The descriptor may be used from any thread, and from no
   signal handler. */
#ifndef QUARNEL_CORE_STATICOBJ_H
#define QUARNEL_CORE_STATICOBJ_H

#include <pthread.h>

#include "export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct StaticObj {
    void (*destructor)(
        void *value); /* called with a thread's non-null value when the thread ends; may be null */
    void *initial;    /* given to the one thread whose fetch creates the key */
    pthread_mutex_t guard; /* serialises the creation of the key */
    pthread_key_t key;     /* valid while created is 1 */
    int created;           /* 0 until the key exists, then 1 */
} StaticObj;

/* The calling thread's value, null if it never stored one. Only the thread whose fetch creates the
   key receives the initial value: every other thread starts with null and makes its own on first
   use. Null as well when the key cannot be created (the system's limit of keys); the next call
   tries again. */
QN_API void *fetchStaticObj(StaticObj *descriptor);

/* Makes the value the calling thread's. Returns 0, or the error number of the thread library; the
   value is then not stored and still the caller's. A store that creates the key does not apply the
   initial value. */
QN_API int storeStaticObj(StaticObj *descriptor, void *value);

#ifdef __cplusplus
}
#endif

#endif
