/* The loader of compressed formats against files written byte by byte, and the priority marks.
   Every format that a loaded table leads to is read to its end, so that the sanitized builds see
   whether foreign memory is touched. */
#include "log/log.h"

#include "support/childProcess.h"
#include "support/tempDir.h"
#include "support/threadSanitizer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::string_literals;

// A load with its blocks, released again.
struct Loaded {
    uint16_t *table = nullptr;
    char *strings = nullptr;
    int32_t result;

    explicit Loaded(const std::string &path)
        : result(getcmpLogFmt(path.c_str(), &table, &strings)) {}
    ~Loaded() {
        free(table);
        free(strings);
    }
    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;
    std::string format(int number) const { return strings + table[number]; }
};

int openDescriptors() {
    DIR *dir = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(dir) != nullptr)
        ++count;
    closedir(dir);
    return count;
}

TEST(GetcmpLogFmt, offsetsAndFormatsComeAsTheFileTells) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\2\0\0\0\3%d\0%s\0"s));
    ASSERT_EQ(loaded.result, 2);
    EXPECT_EQ(loaded.table[0], 0);
    EXPECT_EQ(loaded.table[1], 3);
    EXPECT_EQ(loaded.format(0), "%d");
    EXPECT_EQ(loaded.format(1), "%s");
}

TEST(GetcmpLogFmt, countOfZeroLoadsAsNothing) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\0"s));
    EXPECT_EQ(loaded.result, 0);
    ASSERT_NE(loaded.strings, nullptr);
    EXPECT_EQ(*loaded.strings, '\0');
}

TEST(GetcmpLogFmt, offsetsOfTheWrongByteOrderAreReadAsTheyStand) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\2\0\0\3\0%d\0%s\0"s));
    ASSERT_EQ(loaded.result, 2);
    EXPECT_EQ(loaded.table[1], 0x300);
    EXPECT_EQ(loaded.format(1), "") << "an offset past the formats leads to an empty text";
}

TEST(GetcmpLogFmt, largestOffsetStaysInTheBlock) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\1\xFF\xFF%d\0"s));
    ASSERT_EQ(loaded.result, 1);
    EXPECT_EQ(loaded.table[0], 65535);
    EXPECT_EQ(loaded.format(0), "");
}

TEST(GetcmpLogFmt, formatAtTheLargestOffsetIsFound) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\1\xFF\xFF"s + std::string(65535, 'x') + "%s\0"s));
    ASSERT_EQ(loaded.result, 1);
    EXPECT_EQ(loaded.format(0), "%s");
}

TEST(GetcmpLogFmt, lastFormatWithoutItsZeroIsTerminated) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\1\0\0%d"s));
    ASSERT_EQ(loaded.result, 1);
    EXPECT_EQ(loaded.format(0), "%d");
}

TEST(GetcmpLogFmt, offsetJustBehindTheFormatsIsAnEmptyText) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\2\0\0\0\2%d"s));
    ASSERT_EQ(loaded.result, 2);
    EXPECT_EQ(loaded.format(1), "");
}

TEST(GetcmpLogFmt, everyOffsetOfATableOfAnySizeIsItsTwoBytes) {
    TempDir dir;
    std::mt19937 random(1);
    for (unsigned count = 1; count < 40; ++count) {
        std::string file = {'\0', '\0', '\0', static_cast<char>(count)};
        std::vector<int> offsets(count);
        for (int &offset : offsets) {
            offset = static_cast<int>(random() % (random() % 2 == 0 ? 65536 : 300));
            file += {static_cast<char>(offset >> 8), static_cast<char>(offset & 0xFF)};
        }
        Loaded loaded(dir.write("f", file + "text"));
        ASSERT_EQ(loaded.result, static_cast<int>(count));
        for (unsigned number = 0; number < count; ++number) {
            EXPECT_EQ(loaded.table[number], offsets[number]);
            EXPECT_EQ(loaded.format(static_cast<int>(number)),
                      offsets[number] < 4 ? "text" + offsets[number] : "");
        }
    }
}

TEST(GetcmpLogFmt, missingFileIsToldAndChangesNothing) {
    const ChildResult result = runInChild([] {
        uint16_t offset = 0;
        char text = 0;
        uint16_t *table = &offset;
        char *strings = &text;
        errno = 0;
        EXPECT_EQ(getcmpLogFmt("/nowhere/cmpLogFmt", &table, &strings), -1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(table, &offset);
        EXPECT_EQ(strings, &text);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "getcmpLogFmt: can't open /nowhere/cmpLogFmt.\n");
}

TEST(GetcmpLogFmt, nullPathCannotBeOpened) {
    const ChildResult result = runInChild([] {
        uint16_t *table = nullptr;
        char *strings = nullptr;
        EXPECT_EQ(getcmpLogFmt(nullptr, &table, &strings), -1);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "getcmpLogFmt: can't open .\n");
}

TEST(GetcmpLogFmt, emptyFileIsRefusedInSilence) {
    TempDir dir;
    const std::string path = dir.write("f", "");
    const ChildResult result = runInChild([&] {
        Loaded loaded(path);
        EXPECT_EQ(loaded.result, -1);
        EXPECT_EQ(loaded.table, nullptr);
        EXPECT_EQ(loaded.strings, nullptr);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "");
}

TEST(GetcmpLogFmt, directoryHasUnreadableStrings) {
    TempDir dir;
    const ChildResult result = runInChild([&] { EXPECT_EQ(Loaded(dir.path()).result, -1); });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "Unable to read " + dir.path() + " strings!\n");
}

// A file cut short, by how many of its bytes are left, and the offsets that are handed over then.
struct Cut {
    size_t bytes;
    std::vector<uint16_t> offsets;
};

TEST(GetcmpLogFmt, fileCutInItsOffsetsHandsThemOverAndFails) {
    const std::string whole = "\0\0\0\3\1\2\3\4\5\6"s;
    const Cut cuts[] = {{1, {}},
                        {2, {}},
                        {3, {}},
                        {4, {0, 0, 0}},
                        {5, {0x100, 0, 0}},
                        {6, {0x102, 0, 0}},
                        {8, {0x102, 0x304, 0}},
                        {9, {0x102, 0x304, 0x500}}};
    TempDir dir;
    for (const Cut &cut : cuts) {
        const std::string path = dir.write("f", whole.substr(0, cut.bytes));
        const ChildResult result = runInChild([&] {
            Loaded loaded(path);
            EXPECT_EQ(loaded.result, -1);
            ASSERT_NE(loaded.table, nullptr);
            EXPECT_EQ(loaded.strings, nullptr);
            for (size_t index = 0; index < cut.offsets.size(); ++index)
                EXPECT_EQ(loaded.table[index], cut.offsets[index]) << index;
        });
        EXPECT_EQ(result.exitCode, 0) << cut.bytes << result.out;
        EXPECT_EQ(result.err, "Unable to read " + path + " strings!\n") << cut.bytes;
    }
}

TEST(GetcmpLogFmt, fileThatEndsWithItsOffsetsHasAnEmptyArea) {
    TempDir dir;
    Loaded loaded(dir.write("f", "\0\0\0\2\0\0\0\3"s));
    ASSERT_EQ(loaded.result, 2);
    EXPECT_EQ(loaded.format(0), "");
    EXPECT_EQ(loaded.format(1), "");
}

TEST(GetcmpLogFmt, countThatCannotBeHeldFails) {
    TempDir dir;
    for (const std::string &count : {"\x80\0\0\0"s, "\xFF\xFF\xFF\xFF"s}) {
        const std::string path = dir.write("f", count + "\0\0%d\0"s);
        const ChildResult result = runInChild([&] {
            Loaded loaded(path);
            EXPECT_EQ(loaded.result, -1);
            EXPECT_EQ(loaded.table, nullptr);
            EXPECT_EQ(loaded.strings, nullptr);
        });
        EXPECT_EQ(result.exitCode, 0) << result.out;
        EXPECT_EQ(result.err, "Unable to read " + path + " strings!\n");
    }
}

TEST(GetcmpLogFmt, areaBeyondOneReadFails) {
    TempDir dir;
    const std::string path = dir.write("f", "\0\0\0\1\0\0"s);
    ASSERT_EQ(truncate64(path.c_str(), (off64_t{1} << 32) + 6), 0);
    const ChildResult result = runInChild([&] { EXPECT_EQ(Loaded(path).result, -1); });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "Unable to read " + path + " strings!\n");
}

TEST(GetcmpLogFmt, onlyALoadThatSucceedsClosesTheFile) {
    TempDir dir;
    const std::string good = dir.write("good", "\0\0\0\1\0\0%d\0"s), empty = dir.write("empty", ""),
                      cut = dir.write("cut", "\0\0\0\1\0"s);
    expectChildPasses([&] {
        const int before = openDescriptors();
        EXPECT_EQ(Loaded(good).result, 1);
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(Loaded(empty).result, -1);
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_EQ(Loaded(cut).result, -1);
        EXPECT_EQ(openDescriptors(), before + 2);
        for (int fd = STDERR_FILENO + 1; fd < 20; ++fd) {
            char name[4096];
            const std::string link = "/proc/self/fd/" + std::to_string(fd);
            const ssize_t length = readlink(link.c_str(), name, sizeof name);
            if (length > 0 && std::string(name, static_cast<size_t>(length)) == cut) {
                EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
            }
        }
    });
}

TEST(MsgPri, marksAreTwoCharactersEachAndEndInNull) {
    EXPECT_STREQ(msgPri[0], "  ");
    EXPECT_STREQ(msgPri[1], "M ");
    EXPECT_STREQ(msgPri[2], "* ");
    EXPECT_STREQ(msgPri[3], "**");
    EXPECT_STREQ(msgPri[4], "*C");
    EXPECT_EQ(msgPri[5], nullptr);
}

TEST(GetcmpLogFmt, whatHasNoPlaceIsNotHandedOver) {
    TempDir dir;
    const std::string path = dir.write("f", "\0\0\0\2\0\0\0\3%d\0%s\0"s);
    uint16_t *table = nullptr;
    char *strings = nullptr;
    EXPECT_EQ(getcmpLogFmt(path.c_str(), nullptr, nullptr), 2); // the leak checker judges the rest
    EXPECT_EQ(getcmpLogFmt(path.c_str(), &table, nullptr), 2);
    EXPECT_EQ(getcmpLogFmt(path.c_str(), nullptr, &strings), 2);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table[1], 3);
    EXPECT_STREQ(strings, "%d");
    free(table);
    free(strings);
    expectChildPasses([&] {
        EXPECT_EQ(getcmpLogFmt(dir.write("cut", "\0\0\0\2\0\0"s).c_str(), nullptr, nullptr), -1);
    });
}

// The count of a file of the other byte order: 128 MiB of offsets, of which the file has four.
TEST(GetcmpLogFmt, damagedCountTouchesNoMoreThanTheFileHas) {
    SKIP_UNDER_THREAD_SANITIZER("it marks every byte of a block");
    TempDir dir;
    const std::string path = dir.write("f", "\x04\0\0\0\1\2\3\4%d\0\0"s);
    expectChildPasses([&] {
        struct rusage before, after;
        getrusage(RUSAGE_SELF, &before);
        Loaded loaded(path);
        getrusage(RUSAGE_SELF, &after);
        EXPECT_EQ(loaded.result, -1);
        if (loaded.table != nullptr) {
            EXPECT_EQ(loaded.table[1], 0x304);
            EXPECT_EQ(loaded.table[4], 0);
        }
        EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 * 1024); // KiB
    });
}

} // namespace
