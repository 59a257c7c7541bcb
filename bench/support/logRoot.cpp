#include "support/logRoot.h"

#include "log/logDstPri.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr const char *COMPRESSED = "\x1C%d\x1C%s\x1C%u\x1D";
static constexpr const char *TEXT = "channel %s: %s (%s s)\n";

static void put(std::ostream &out, uint32_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out.put(static_cast<char>(value >> shift & 0xFF));
}

static void writeFormats(const std::string &path) {
    std::ofstream out(path, std::ios::binary);
    put(out, BenchRoot::NUMBER + 1, 4);
    for (int number = 0; number <= BenchRoot::NUMBER; ++number)
        put(out, number == BenchRoot::NUMBER ? 1 : 0, 2);
    out << '\0' << COMPRESSED << '\0';
}

static void writeTexts(const std::string &path) {
    std::ofstream out(path, std::ios::binary);
    const int end = 16 * (BenchRoot::NUMBER + 1);
    for (int number = 0; number <= BenchRoot::NUMBER; ++number) {
        char entry[32];
        snprintf(entry, sizeof entry, "%9d %5zu\n", end, std::string(TEXT).size());
        out << entry;
    }
    out << TEXT;
}

BenchRoot::BenchRoot() {
    if (mkdtemp(path_.data()) == nullptr)
        abort();
    pipe_ = file("logpipe");
    writeFormats(file("cmpLogFmt"));
    writeTexts(file("textLogFmt"));
    if (mkfifo(pipe_.c_str(), 0600) != 0)
        abort();
}

BenchRoot::~BenchRoot() {
    if (segment_ >= 0)
        shmctl(segment_, IPC_RMID, nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void BenchRoot::makeTable() const {
    const auto key = static_cast<uint32_t>(0x52000000 + getpid());
    setenv("LOGDSTPRISHMKEY", std::to_string(key).c_str(), 1);
    const size_t size = sizeof(LogDstPriTable) + (NUMBER + 1) * sizeof(LogDstPri);
    segment_ = shmget(static_cast<key_t>(key), size, IPC_CREAT | IPC_EXCL | 0600);
    void *const address = shmat(segment_, nullptr, 0);
    if (segment_ < 0 || reinterpret_cast<intptr_t>(address) == -1)
        abort();
    auto *const table = static_cast<LogDstPriTable *>(address);
    table->rowCount = NUMBER + 1;
    table->row[NUMBER] = {0, 1};
    shmdt(address);
}
