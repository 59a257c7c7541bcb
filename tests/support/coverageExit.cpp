/* Part of the library in coverage builds alone: a process that ends by abort or _exit, as panics
   and the children of the tests do, keeps its counts. The executable finds these before libc's. */
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

extern "C" void __gcov_dump();
extern "C" __attribute__((weak)) void endFailingAlloc(); // in tests that make allocations fail

static void keepCounts() {
    if (endFailingAlloc != nullptr)
        endFailingAlloc();
    __gcov_dump();
}

template<typename Function>
static Function next(Function, const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

extern "C" {

__attribute__((visibility("default"), noreturn)) void abort() noexcept {
    keepCounts();
    next(&abort, "abort")();
    __builtin_trap();
}

__attribute__((visibility("default"), noreturn)) void _exit(int status) {
    keepCounts();
    next(&_exit, "_exit")(status);
    __builtin_trap();
}
}
