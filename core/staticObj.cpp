#include "staticObj.h"

// Creates the key unless it exists; sets isNew when this call did. Returns 0 or the thread
// library's error.
static int ensureKey(StaticObj *descriptor, bool *isNew) {
    int error = 0;
    *isNew = false;
    pthread_mutex_lock(&descriptor->guard);
    if (descriptor->created == 0) {
        error = pthread_key_create(&descriptor->key, descriptor->destructor);
        *isNew = error == 0;
        descriptor->created = error == 0 ? 1 : 0;
    }
    pthread_mutex_unlock(&descriptor->guard);
    return error;
}

void *fetchStaticObj(StaticObj *descriptor) {
    bool isNew;
    if (ensureKey(descriptor, &isNew) != 0)
        return nullptr;
    if (isNew)
        pthread_setspecific(descriptor->key, descriptor->initial);
    return pthread_getspecific(descriptor->key);
}

int storeStaticObj(StaticObj *descriptor, void *value) {
    bool isNew;
    const int error = ensureKey(descriptor, &isNew);
    return error != 0 ? error : pthread_setspecific(descriptor->key, value);
}
