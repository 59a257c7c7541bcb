/* A clipboard of 100 entries opened, loaded, changed and closed, against the same bytes read and
   rewritten under the same lock. */
#include "support/bench.h"

#include "clipboard/clipboard.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int ENTRIES = 100;

std::string nameOf(int number) {
    return "entry" + std::to_string(number);
}

// A clipboard's file, in memory where the machine has a place for that.
struct ClipFile {
    explicit ClipFile(int entries) {
        const int fd = mkstemp(path.data());
        close(fd);
        Clipboard *clipboard = newClipboard(path.c_str());
        getClipboard(clipboard);
        for (int i = 0; i < entries; ++i)
            addClipEntry(clipboard, i % 10 == 0 ? "# a group\n" : nullptr, nameOf(i).c_str(),
                         i % 4 == 0 ? "two words" : "/usr/local/value", nullptr);
        closeClipboard(clipboard);
    }
    ~ClipFile() { unlink(path.c_str()); }

    std::string path =
        access("/dev/shm", W_OK) == 0 ? "/dev/shm/qnclipXXXXXX" : "/tmp/qnclipXXXXXX";
};

void change(benchmark::State &state) {
    const ClipFile file(ENTRIES);
    int turn = 0;
    for (auto _ : state) {
        Clipboard *clipboard = modifyClipboard(file.path.c_str());
        getClipboard(clipboard);
        addClipEntry(clipboard, nullptr, "entry50", ++turn % 2 == 0 ? "left" : "rite", nullptr);
        if (closeClipboard(clipboard) != ENTRIES)
            abort();
    }
}
QN_BENCHMARK("clipboard/library", change);

void lockWhole(FILE *stream) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fileno(stream), F_SETLKW, &lock) == -1)
        abort();
}

// Emptied by a second stream, as a file is that another text replaces.
void rewriteByStdio(benchmark::State &state) {
    const ClipFile file(ENTRIES);
    static char text[1 << 16];
    for (auto _ : state) {
        FILE *old = fopen(file.path.c_str(), "r+");
        lockWhole(old);
        const size_t size = fread(text, 1, sizeof text, old);
        FILE *anew = fopen(file.path.c_str(), "w+");
        lockWhole(anew);
        if (size < ENTRIES || fwrite(text, 1, size, anew) != size)
            abort();
        fclose(anew);
        fclose(old);
    }
}
QN_BENCHMARK("clipboard/stdio", rewriteByStdio);

// The same, and each text of the entries has a block of its own meanwhile, as it has in a
// clipboard.
void rewriteWithCopies(benchmark::State &state) {
    const ClipFile file(ENTRIES);
    static char text[1 << 16];
    std::vector<char *> copies;
    for (auto _ : state) {
        FILE *old = fopen(file.path.c_str(), "r+");
        lockWhole(old);
        const size_t size = fread(text, 1, sizeof text - 1, old);
        text[size] = '\0';
        for (const char *at = text; *at != '\0'; ++at) {
            const size_t length = strcspn(at, "=\n");
            copies.push_back(strndup(at, length));
            at += length;
        }
        FILE *anew = fopen(file.path.c_str(), "w+");
        lockWhole(anew);
        if (copies.size() < ENTRIES || fwrite(text, 1, size, anew) != size)
            abort();
        for (char *copy : copies)
            free(copy);
        copies.clear();
        fclose(anew);
        fclose(old);
    }
}
QN_BENCHMARK("clipboard/copies", rewriteWithCopies);

} // namespace

BENCHMARK_MAIN();
