#include "support/memoryFile.h"

#include "support/scratch.h"

#include <sys/mman.h>
#include <unistd.h>

MemoryFile::MemoryFile()
    : fd(memfd_create("fuzz", MFD_CLOEXEC)), itsPath("/proc/self/fd/" + std::to_string(fd)) {
    FUZZ_CHECK(fd >= 0);
}

MemoryFile::~MemoryFile() {
    close(fd);
}

void MemoryFile::write(std::string_view contents) {
    const auto size = static_cast<ssize_t>(contents.size());
    FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, contents.data(), contents.size(), 0) == size);
}

QuietErrors::QuietErrors() : heard(stderr) {
    static FILE *const nowhere = fopen("/dev/null", "w");
    FUZZ_CHECK(nowhere != nullptr);
    stderr = nowhere;
}

QuietErrors::~QuietErrors() {
    stderr = heard;
}
