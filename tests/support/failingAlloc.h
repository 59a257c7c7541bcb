/* A test that links failingAlloc.cpp can make malloc, calloc and realloc fail in its own thread,
   and see how much was last asked of them. */
#ifndef TESTS_SUPPORT_FAILINGALLOC_H
#define TESTS_SUPPORT_FAILINGALLOC_H

#include <cstddef>

// While it lives, the allocations of this thread fail with ENOMEM after the given number of
// successful ones.
class FailingAlloc {
  public:
    explicit FailingAlloc(int successes = 0);
    ~FailingAlloc();
    FailingAlloc(const FailingAlloc &) = delete;
    FailingAlloc &operator=(const FailingAlloc &) = delete;
};

// Bytes of this thread's last allocation, whether granted or not.
size_t lastAllocSize();

#endif
