/* Whole files into dynamic arrays: the choice of the reader, the maximum, the elements' sizes, and
   the reader's state around it. */
#include "options/readInfo.h"

#include "buffers/arrays.h"
#include "support/failingAlloc.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <unistd.h>
#include <vector>

static int putsLeft = -1; // how many more elements there is memory for; -1: no limit

extern "C" void *arrayVPut(uint32_t index, const void *source, uint32_t size) {
    using Put = void *(*)(uint32_t, const void *, uint32_t);
    static const auto next = reinterpret_cast<Put>(dlsym(RTLD_NEXT, "arrayVPut"));
    if (putsLeft == 0)
        return nullptr;
    putsLeft -= putsLeft > 0 ? 1 : 0;
    return next(index, source, size);
}

namespace {

using std::string;
using Lines = std::vector<string>;

Lines linesOf(uint32_t array) {
    const ArrayDescriptor *descriptor = arrayValidDescriptor(array);
    EXPECT_NE(descriptor, nullptr);
    Lines lines;
    char **texts = static_cast<char **>(descriptor->storage);
    for (uint32_t index = 0; index < descriptor->count; ++index)
        lines.emplace_back(texts[index]);
    return lines;
}

class ReadFile : public testing::Test {
  protected:
    Lines readLines(const string &text, uint32_t maximum, uint32_t modes) {
        const uint32_t array = readFileIntoArray(dir.write("file", text).c_str(), maximum, modes);
        EXPECT_NE(array, 0U);
        const Lines lines = linesOf(array);
        EXPECT_EQ(arrayClose(array), 0);
        return lines;
    }

    TempDir dir;
};

TEST_F(ReadFile, modesChooseTheReader) {
    const string text = "a\\\n'b\nc'\n";
    const struct {
        uint32_t modes;
        Lines lines;
    } cases[] = {
        {0, {"a\\\n", "'b\n", "c'\n"}},
        {1, {"a\\", "'b", "c'"}},
        {2, {"a'b\n", "c'\n"}},
        {3, {"a'b", "c'"}},
        {4, {"a'b\nc'\n"}},
        {5, {"a'b\nc'"}},
        {6, {"a'b\n", "c'\n"}},
        {7, {"a'b", "c'"}},
        {8, {"a\\\n", "'b\n", "c'\n"}},
        {10, {"a\\\n'b\n", "c'\n"}},
        {12, {"a\\\n'b\nc'\n"}},
    };
    for (const auto &one : cases)
        EXPECT_EQ(readLines(text, 0, one.modes), one.lines) << one.modes;
}

TEST_F(ReadFile, maximumBoundsTheLines) {
    string ten;
    for (int line = 0; line < 10; ++line)
        ten += string(1, static_cast<char>('0' + line)) + "\n";
    EXPECT_EQ(readLines(ten, 3, 1), (Lines{"0", "1", "2"}));
    EXPECT_EQ(readLines(ten, 1, 1), Lines{"0"});
    EXPECT_EQ(readLines(ten, 0, 1).size(), 10U);
    EXPECT_EQ(readLines(ten, 10, 1).size(), 10U);
    EXPECT_EQ(readLines(ten, 11, 1).size(), 10U);
    EXPECT_EQ(readLines(ten, UINT32_MAX, 1).size(), 10U);
}

TEST_F(ReadFile, streamIsReadNoFurtherThanTheMaximum) {
    FILE *stream = fopen(dir.write("file", "a\nb\nc\n").c_str(), "r");
    const uint32_t array = readFpIntoArray(stream, 2, 0);
    EXPECT_EQ(linesOf(array), (Lines{"a\n", "b\n"}));
    EXPECT_EQ(getc(stream), 'c');
    arrayClose(array);
    fclose(stream);
}

TEST_F(ReadFile, lastLineWithoutANewlineIsALine) {
    EXPECT_EQ(readLines("a\nb", 0, 0), (Lines{"a\n", "b"}));
}

TEST_F(ReadFile, emptyLinesAreElements) {
    EXPECT_EQ(readLines("\n\n", 0, 1), (Lines{"", ""}));
}

TEST_F(ReadFile, manyLinesOutgrowTheArrayAndTheLineBuffer) {
    string text;
    Lines expected;
    for (size_t length = 0; length < 300; ++length) {
        expected.emplace_back(length, 'x');
        text += expected.back() + "\n";
    }
    EXPECT_EQ(readLines(text, 0, 5), expected);
}

TEST_F(ReadFile, emptyFileIsAnArrayWithoutElements) {
    EXPECT_EQ(readLines("", 0, 5), Lines{});
}

TEST_F(ReadFile, folderOpensAndHasNoLines) {
    const uint32_t array = readFileIntoArray(dir.path().c_str(), 0, 0);
    EXPECT_NE(array, 0U);
    EXPECT_EQ(linesOf(array), Lines{});
    arrayClose(array);
}

TEST_F(ReadFile, whatCannotBeOpenedIsNoArray) {
    EXPECT_EQ(readFileIntoArray(dir.file("missing").c_str(), 0, 0), 0U);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(readFileIntoArray(nullptr, 0, 0), 0U);
    EXPECT_EQ(readFpIntoArray(nullptr, 0, 0), 0U);
}

TEST_F(ReadFile, exhaustedMemoryLeavesNoHalfFile) {
    const string path = dir.write("file", "a\nb\nc\n");
    ReadInfo before;
    resetReadLine(&before);
    const uint32_t open = arrDescPtr == nullptr ? 1 : arrDescPtr->count;
    putsLeft = 2;
    EXPECT_EQ(readFileIntoArray(path.c_str(), 0, 5), 0U);
    putsLeft = -1;
    EXPECT_EQ(arrDescPtr->count, open) << "the array is closed again";
    EXPECT_EQ(ri_modes + inlineCnt, 0U) << "and the reader as before";
    setReadLine(&before);
}

TEST_F(ReadFile, fileIsClosedAgain) {
    const string path = dir.write("file", "a\n");
    const int before = dup(0);
    close(before);
    arrayClose(readFileIntoArray(path.c_str(), 0, 0));
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(ReadFile, elementIsABlockOfTheLineAndItsTerminator) {
    const uint32_t array = readFileIntoArray(dir.write("file", "ab\n\n").c_str(), 0, 1);
    const ArrayDescriptor *descriptor = arrayValidDescriptor(array);
    EXPECT_EQ(descriptor->type, 1U);
    EXPECT_EQ(descriptor->elemSize, 0U);
    EXPECT_EQ(descriptor->count, 2U);
    EXPECT_EQ(static_cast<char **>(descriptor->storage)[2], nullptr);
    arrayClose(array);
}

TEST_F(ReadFile, readingAFileInsideAnothersReadingLeavesItsStateAlone) {
    FILE *stream = fopen(dir.write("outer", "one\ntwo\n").c_str(), "r");
    ReadInfo before;
    resetReadLine(&before);
    setReadLineModes(1);
    const char *line = readLine(stream);
    EXPECT_EQ(readLines("x\\\ny\nz\n", 0, 2), (Lines{"xy\n", "z\n"}));
    EXPECT_STREQ(line, "one");
    EXPECT_EQ(inlineCnt, 1U);
    EXPECT_EQ(virtLineCnt, 1U);
    EXPECT_EQ(ri_modes, 1U);
    EXPECT_STREQ(readLine(stream), "two");
    fclose(stream);
    setReadLine(&before);
}

// A stream of "a\nb" whose next read fails with the error.
ssize_t readThenFail(void *cookie, char *buffer, size_t) {
    int *error = static_cast<int *>(cookie);
    if (*error < 0) {
        errno = -*error;
        return -1;
    }
    *error = -*error;
    memcpy(buffer, "a\nb", 3);
    return 3;
}

TEST_F(ReadFile, failedReadLeavesNoHalfFile) {
    for (const uint32_t maximum : {0U, 1U, 2U}) {
        int error = EIO;
        cookie_io_functions_t functions = {};
        functions.read = readThenFail;
        FILE *stream = fopencookie(&error, "r", functions);
        const uint32_t array = readFpIntoArray(stream, maximum, 0);
        // One line is read before it fails; the second is cut short.
        EXPECT_EQ(array != 0, maximum == 1) << maximum;
        arrayClose(array);
        fclose(stream);
    }
}

TEST_F(ReadFile, exhaustedMemoryReadsAllOrNothing) {
    const string path = dir.write("file", "a\n" + string(300, 'x') + "\nb\n");
    arrayClose(arrayOpen(1, 0));
    int failures = 0;
    for (int successes = 0; successes < 40; ++successes) {
        const uint32_t open = arrDescPtr->count;
        uint32_t array;
        {
            const FailingAlloc failing(successes);
            array = readFileIntoArray(path.c_str(), 0, 1);
        }
        if (array == 0) {
            ++failures;
            EXPECT_EQ(arrDescPtr->count, open);
        } else {
            EXPECT_EQ(linesOf(array), (Lines{"a", string(300, 'x'), "b"})) << successes;
            arrayClose(array);
        }
    }
    EXPECT_GT(failures, 5);
    EXPECT_LT(failures, 40);
}

TEST_F(ReadFile, readingAStreamInsideAnothersReadingLeavesItsStateAlone) {
    FILE *outer = fopen(dir.write("outer", "one\ntwo\n").c_str(), "r");
    FILE *inner = fopen(dir.write("inner", "'x\ny'\nz\n").c_str(), "r");
    ReadInfo before;
    resetReadLine(&before);
    setReadLineModes(1);
    const char *line = readLine(outer);
    const uint32_t array = readFpIntoArray(inner, 0, 5);
    EXPECT_EQ(linesOf(array), (Lines{"'x\ny'", "z"}));
    EXPECT_STREQ(line, "one");
    EXPECT_EQ(inlineCnt, 1U);
    EXPECT_EQ(virtLineCnt, 1U);
    EXPECT_EQ(ri_modes, 1U);
    EXPECT_STREQ(readLine(outer), "two");
    arrayClose(array);
    fclose(inner);
    fclose(outer);
    setReadLine(&before);
}

} // namespace
