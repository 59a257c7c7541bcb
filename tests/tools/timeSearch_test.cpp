/* The bisection in a log file: where it says to begin, and that it reads little. */
#include "tools/common/timeSearch.h"

#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

static std::string record(int64_t time, const std::string &argument) {
    char head[64];
    snprintf(head, sizeof head, "101 \x1C%d%08X", 3, static_cast<unsigned>(time));
    return head + ("ivr f.c:40\x1C" + argument + "\x1D\n");
}

class OpenFile {
  public:
    explicit OpenFile(const std::string &path) : fd(open(path.c_str(), O_RDONLY)) {}
    ~OpenFile() { close(fd); }
    const int fd;
    off_t size() const { return lseek(fd, 0, SEEK_END); }
};

// What the kernel says this process has read so far.
static long bytesRead() {
    std::ifstream stream("/proc/self/io");
    std::string name;
    long count = -1;
    stream >> name >> count;
    EXPECT_EQ("rchar:", name);
    return count;
}

// Every second from 1000 on has ten records of some 100 bytes.
class LargeLog : public testing::Test {
  protected:
    static constexpr int64_t FIRST = 1000;
    static constexpr int64_t SECONDS = 40000;
    void SetUp() override {
        std::ofstream stream(path, std::ios::binary);
        for (int64_t i = 0; i < SECONDS; i++) {
            offsets.push_back(stream.tellp());
            for (int k = 0; k < 10; k++)
                stream << record(FIRST + i, std::string(static_cast<size_t>(40 + i % 80), 'x'));
        }
        offsets.push_back(stream.tellp());
    }
    TempDir dir;
    std::string path = dir.file("log");
    std::vector<off_t> offsets; // of the first record of each second
};

TEST_F(LargeLog, nothingIsMissedAndLittleIsBefore) {
    const OpenFile log(path);
    for (int64_t i = 0; i <= SECONDS; i += 997) {
        const off_t found = findMoment(log.fd, 0, log.size(), FIRST + i);
        const off_t first = offsets[static_cast<size_t>(i)];
        EXPECT_LE(found, first) << i;
        EXPECT_GT(found, first - 140000) << i;
        char before = '\n';
        if (found > 0) {
            EXPECT_EQ(1, pread(log.fd, &before, 1, found - 1));
        }
        EXPECT_EQ('\n', before) << i;
    }
}

TEST_F(LargeLog, readsALittleOfIt) {
    const OpenFile log(path);
    ASSERT_GT(log.size(), 30'000'000);
    const long before = bytesRead();
    findMoment(log.fd, 0, log.size(), FIRST + SECONDS / 3);
    const long after = bytesRead();
    EXPECT_GT(after, before);
    EXPECT_LT(after - before, 400'000);
}

TEST_F(LargeLog, beginsWhereItIsTold) {
    const OpenFile log(path);
    const off_t from = offsets[30000];
    EXPECT_EQ(from, findMoment(log.fd, from, log.size(), FIRST));
    EXPECT_GE(findMoment(log.fd, from, log.size(), FIRST + 35000), from);
}

// Lines that are no records, and records longer than any block, between the others.
TEST(Search, longLinesAndForeignOnesAreNoHindrance) {
    const TempDir dir;
    std::string bytes;
    std::vector<size_t> offsets;
    for (int64_t i = 0; i < 40; i++) {
        offsets.push_back(bytes.size());
        bytes += record(5000 + i, std::string(i % 2 == 0 ? 50000 : 10, 'x'));
        bytes += std::string(20000, 'y') + "\n100 \x1C\x30"
                                           "6592\n# comment\n\n";
    }
    const OpenFile log(dir.write("log", bytes));
    for (size_t i = 0; i < offsets.size(); i++) {
        const off_t found = findMoment(log.fd, 0, log.size(), 5000 + static_cast<int64_t>(i));
        EXPECT_LE(found, static_cast<off_t>(offsets[i])) << i;
        EXPECT_GT(found, static_cast<off_t>(offsets[i]) - 300000) << i;
    }
}

TEST(Search, withoutARecordItBeginsAtTheBeginning) {
    const TempDir dir;
    for (const std::string &bytes : {std::string(), std::string(300000, 'x'),
                                     std::string(300000, '\n'), std::string(300000, '\0')}) {
        const OpenFile log(dir.write("log", bytes));
        EXPECT_EQ(0, findMoment(log.fd, 0, log.size(), 5000));
    }
}

TEST(Search, whatCannotBeReadBeginsAtTheBeginning) {
    EXPECT_EQ(7, findMoment(-1, 7, 10'000'000, 5000));
}
