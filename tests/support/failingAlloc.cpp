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

// The next definition may be a sanitizer's: the blocks stay under its eyes. Looked up at the first
// call and not before, which comes ahead of every initialiser.
template<typename Function>
static Function lookUp(Function &cached, const char *name) {
    if (cached == nullptr)
        cached = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
    return cached;
}

static void *(*nextMalloc)(size_t size);
static void *(*nextCalloc)(size_t count, size_t size);
static void *(*nextRealloc)(void *block, size_t size);

extern "C" {

// A process that ends while its allocations fail still has to write what it counted.
void endFailingAlloc();
void endFailingAlloc() {
    successesLeft = -1;
}

void *malloc(size_t size) {
    return grants(size) ? lookUp(nextMalloc, "malloc")(size) : nullptr;
}

void *calloc(size_t count, size_t size) {
    return grants(count * size) ? lookUp(nextCalloc, "calloc")(count, size) : nullptr;
}

void *realloc(void *block, size_t size) {
    return grants(size) ? lookUp(nextRealloc, "realloc")(block, size) : nullptr;
}
}
