#include "support/failingAlloc.h"

#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>

static thread_local int successesLeft = -1; // below 0: nothing fails
static thread_local size_t lastSize;

FailingAlloc::FailingAlloc(int successes) {
    successesLeft = successes;
}

FailingAlloc::~FailingAlloc() {
    successesLeft = -1;
}

size_t lastAllocSize() {
    return lastSize;
}

static bool grants(size_t size) {
    lastSize = size;
    if (successesLeft == 0) {
        errno = ENOMEM;
        return false;
    }
    if (successesLeft > 0)
        --successesLeft;
    return true;
}

// The next definition may be a sanitizer's: the blocks stay under its eyes.
template<typename Function>
static Function next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

extern "C" {

void *malloc(size_t size) {
    static const auto nextMalloc = next<void *(*)(size_t)>("malloc");
    return grants(size) ? nextMalloc(size) : nullptr;
}

void *calloc(size_t count, size_t size) {
    static const auto nextCalloc = next<void *(*)(size_t, size_t)>("calloc");
    return grants(count * size) ? nextCalloc(count, size) : nullptr;
}

void *realloc(void *block, size_t size) {
    static const auto nextRealloc = next<void *(*)(void *, size_t)>("realloc");
    return grants(size) ? nextRealloc(block, size) : nullptr;
}
}
