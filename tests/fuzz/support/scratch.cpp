#include "support/scratch.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

void fuzzFailed(const char *claim, const char *file, int line) {
    fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, claim);
    abort();
}

Pieces::Pieces(const uint8_t *data, size_t size)
    : left(reinterpret_cast<const char *>(data), data == nullptr ? 0 : size) {}

uint8_t Pieces::byte() {
    if (left.empty())
        return 0;
    const auto first = static_cast<uint8_t>(left.front());
    left.remove_prefix(1);
    return first;
}

uint32_t Pieces::number(uint32_t below) {
    const uint32_t high = byte();
    return (high << 8 | byte()) % below;
}

std::string Pieces::text() {
    const size_t end = left.find('\0');
    std::string piece(left.substr(0, end));
    left.remove_prefix(end == std::string_view::npos ? left.size() : end + 1);
    return piece;
}

std::string Pieces::rest() {
    std::string piece(left);
    left = {};
    return piece;
}

const std::string &scratchFolder() {
    struct Folder {
        // In memory where there is such a place: a search writes thousands of files a second.
        std::string path =
            access("/dev/shm", W_OK) == 0 ? "/dev/shm/qnfuzz.XXXXXX" : "/tmp/qnfuzz.XXXXXX";
        pid_t maker = getpid();
        Folder() {
            if (mkdtemp(path.data()) == nullptr)
                fuzzFailed("a scratch folder could be made", __FILE__, __LINE__);
        }
        ~Folder() {
            std::error_code ignored;
            if (getpid() == maker)
                std::filesystem::remove_all(path, ignored);
        }
    };
    static const Folder folder;
    return folder.path;
}

std::string scratchFile(const char *name, std::string_view contents) {
    std::string path = scratchFolder() + "/" + name;
    FILE *file = fopen(path.c_str(), "w");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(fwrite(contents.data(), 1, contents.size(), file) == contents.size());
    FUZZ_CHECK(fclose(file) == 0);
    return path;
}
