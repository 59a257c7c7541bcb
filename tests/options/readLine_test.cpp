/* The line reader: tables of input and logical lines for the three readers, the counters, the
   modes, the growth of the shared buffer byte by byte, and the saved state. The state is the
   process's, so every case takes it away first and puts it back. */
#include "options/readInfo.h"

#include "clock/clock.h"
#include "support/childProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pthread.h>
#include <stdio_ext.h>
#include <string>
#include <thread>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

static bool failRealloc;

// Called before the thread sanitizer knows the thread.
extern "C" __attribute__((no_sanitize("thread"))) void *realloc(void *block, size_t size) noexcept {
    static const auto next =
        reinterpret_cast<void *(*)(void *, size_t)>(dlsym(RTLD_NEXT, "realloc"));
    if (failRealloc) {
        errno = EAGAIN;
        return nullptr;
    }
    void *fresh = next(block, size);
    if (block == nullptr && fresh != nullptr)
        memset(fresh, 'Z', size); // nobody may count on zeros
    return fresh;
}

namespace {

using std::string;
using Lines = std::vector<string>;
using Reader = char *(*)(FILE *);

FILE *streamOf(const string &text) {
    FILE *stream = tmpfile();
    fwrite(text.data(), 1, text.size(), stream);
    rewind(stream);
    return stream;
}

class ReadLine : public testing::Test {
  protected:
    void SetUp() override { resetReadLine(&outer); }
    void TearDown() override {
        failRealloc = false;
        setReadLine(&outer);
    }

    Lines readAll(Reader reader, uint32_t modes, const string &text) {
        resetReadLine(nullptr);
        setReadLineModes(modes);
        FILE *stream = streamOf(text);
        Lines lines;
        while (const char *line = reader(stream))
            lines.emplace_back(line);
        fclose(stream);
        return lines;
    }

    struct Case {
        const char *text;
        Lines lines;
        uint32_t physical;
    };
    template<size_t N>
    void expectLines(Reader reader, uint32_t modes, const Case (&cases)[N]) {
        for (const Case &one : cases) {
            EXPECT_EQ(readAll(reader, modes, one.text), one.lines) << one.text;
            EXPECT_EQ(inlineCnt, one.physical) << one.text;
            EXPECT_EQ(virtLineCnt, one.lines.size()) << one.text;
        }
    }

    ReadInfo outer;
};

TEST_F(ReadLine, plainReaderEndsALineAtEveryNewline) {
    const Case cases[] = {
        {"", {}, 0},
        {"\n", {"\n"}, 1},
        {"a\n", {"a\n"}, 1},
        {"a", {"a"}, 1},
        {"a\nb", {"a\n", "b"}, 2},
        {"\n\na\n", {"\n", "\n", "a\n"}, 3},
        {"a\\\n'b\n", {"a\\\n", "'b\n"}, 2},
        {"a\r\n", {"a\r\n"}, 1},
        {"\xFF\xFE\n\xFF", {"\xFF\xFE\n", "\xFF"}, 2},
    };
    expectLines(readLine, 0, cases);
}

TEST_F(ReadLine, droppedNewlineLeavesAnEmptyLineAsAText) {
    const Case cases[] = {
        {"\n", {""}, 1},
        {"a\n\nb", {"a", "", "b"}, 3},
        {"a\\\nb\n", {"a\\", "b"}, 2},
    };
    expectLines(readLine, 1, cases);
}

TEST_F(ReadLine, continuedLinesAreJoined) {
    const Case cases[] = {
        {"a\\\nb\n", {"ab\n"}, 2},
        {"a\\\n\\\n\\\nb\n", {"ab\n"}, 4},
        {"\\\nb\n", {"b\n"}, 2},
        {"\\\n\n", {"\n"}, 2},
        {"\\\n", {""}, 1},
        {"a\n\\\n", {"a\n", ""}, 2},
        {"a\\\n", {"a"}, 1},
        {"a\\", {"a\\"}, 1},
        {"a\\\\\nb\n", {"a\\\\\n", "b\n"}, 2},
        {"a\\\\\\\nb\n", {"a\\\\b\n"}, 2},
        {"a\\\\\\\\\nb\n", {"a\\\\\\\\\n", "b\n"}, 2},
        {"a\\ \nb\n", {"a\\ \n", "b\n"}, 2},
        {"a\\\r\nb\n", {"a\\\r\n", "b\n"}, 2},
        {"'a\nb'\n", {"'a\n", "b'\n"}, 2},
        {"\n\n", {"\n", "\n"}, 2},
    };
    expectLines(readContLine, 0, cases);
}

TEST_F(ReadLine, joinedLineStartsWithoutABackslashBehindIt) {
    // What follows a joint is not escaped by it: this newline ends the line, that quote opens.
    const Case cases[] = {
        {"a\\\n\nb\n", {"a\n", "b\n"}, 3},
        {"a\\\n'b\nc'\n", {"a'b\nc'\n"}, 3},
        {"a\\\n\\\\\nb\n", {"a\\\\\n", "b\n"}, 3},
    };
    expectLines(readQuotedLine, 0, cases);
}

TEST_F(ReadLine, keptJointStaysInTheText) {
    const Case cases[] = {
        {"a\\\nb\n", {"a\\\nb\n"}, 2},
        {"\\\n", {"\\\n"}, 1},
        {"a\\\n\nb\n", {"a\\\n\n", "b\n"}, 3},
    };
    expectLines(readContLine, 8, cases);
    const Case dropping[] = {
        {"a\\\nb\n", {"a\\\nb"}, 2},
        {"a\\\n", {"a\\\n"}, 1},
    };
    expectLines(readContLine, 9, dropping);
}

TEST_F(ReadLine, onlyTheFinalNewlineIsDropped) {
    const Case cases[] = {
        {"A=1 \\\nB=2\n", {"A=1 B=2"}, 2},
        {"\\\n\n", {""}, 2},
        {"a\\\n", {"a"}, 1},
    };
    expectLines(readContLine, 1, cases);
    const Case quoted[] = {
        {"'a\nb'\n", {"'a\nb'"}, 2},
        {"'a\n", {"'a\n"}, 1},
    };
    expectLines(readQuotedLine, 1, quoted);
}

TEST_F(ReadLine, openQuotesJoinLines) {
    const Case cases[] = {
        {"'a\nb'\nc\n", {"'a\nb'\n", "c\n"}, 3},
        {"\"a\nb\"\nc\n", {"\"a\nb\"\n", "c\n"}, 3},
        {"`a\nb`\nc\n", {"`a\nb`\n", "c\n"}, 3},
        {"'\n\n\n'\n", {"'\n\n\n'\n"}, 4},
        {"'a\"\nb'\nc\n", {"'a\"\nb'\n", "c\n"}, 3},
        {"\"it's\"\nc\n", {"\"it's\"\n", "c\n"}, 2},
        {"'a''b\nc'\n", {"'a''b\nc'\n"}, 2},
        {"it\\'s\nc\n", {"it\\'s\n", "c\n"}, 2},
        {"'a\\'b\nc'\n", {"'a\\'b\nc'\n"}, 2},
        {"a\\\\'b\nc'\n", {"a\\\\'b\nc'\n"}, 2},
        {"'a\nb", {"'a\nb"}, 2},
        {"'a\\\nb'\nc\n", {"'ab'\n", "c\n"}, 3},
        {"a\\\nb\n", {"ab\n"}, 2},
        {"'a\\\\\nb'\n", {"'a\\\\\nb'\n"}, 2},
    };
    expectLines(readQuotedLine, 0, cases);
    const Case keeping[] = {{"'a\\\nb'\nc\n", {"'a\\\nb'\n", "c\n"}, 3}};
    expectLines(readQuotedLine, 8, keeping);
}

TEST_F(ReadLine, zeroByteIsStoredAndCountsAsNothing) {
    FILE *stream = streamOf(string("a\0b\nc\n", 6));
    const char *line = readLine(stream);
    EXPECT_EQ(string(line, 5), string("a\0b\n\0", 5));
    EXPECT_STREQ(readLine(stream), "c\n");
    fclose(stream);
}

TEST_F(ReadLine, endOfInputLeavesTheLastLineReadable) {
    FILE *stream = streamOf("last\n");
    char *line = readLine(stream);
    EXPECT_EQ(readLine(stream), nullptr);
    EXPECT_EQ(readLine(nullptr), nullptr);
    EXPECT_STREQ(line, "last\n");
    EXPECT_EQ(virtLineCnt, 1U);
    fclose(stream);
}

TEST_F(ReadLine, bufferGrowsBy80AndKeepsOneByteForTheTerminator) {
    const struct {
        size_t length; // newline included
        uint32_t capacity;
    } cases[] = {{1, 80}, {79, 80}, {80, 80}, {81, 160}, {160, 160}, {161, 240}, {10000, 10000}};
    for (const auto &one : cases) {
        ReadInfo saved;
        resetReadLine(&saved);
        free(saved.buffer);
        FILE *stream = streamOf(string(one.length - 1, 'x') + "\n");
        EXPECT_EQ(strlen(readLine(stream)), one.length);
        fclose(stream);
        resetReadLine(&saved);
        EXPECT_EQ(saved.capacity, one.capacity) << one.length;
        EXPECT_EQ(saved.buffer[saved.capacity], '\0') << one.length;
        free(saved.buffer);
    }
}

TEST_F(ReadLine, shorterLineEndsWhereItEnds) {
    FILE *stream = streamOf("a long line\nb\n");
    readLine(stream);
    EXPECT_STREQ(readLine(stream), "b\n");
    fclose(stream);
}

TEST_F(ReadLine, exhaustedMemoryIsNoLine) {
    FILE *stream = streamOf(string(200, 'x') + "\nnext\n");
    failRealloc = true;
    EXPECT_EQ(readLine(stream), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    failRealloc = false;
    EXPECT_EQ(virtLineCnt, 0U);
    EXPECT_EQ(readLine(stream), string(199, 'x') + "\n");
    fclose(stream);
}

TEST_F(ReadLine, modesAreExchangedAndExported) {
    EXPECT_EQ(setReadLineModes(5), 0U);
    EXPECT_EQ(ri_modes, 5U);
    EXPECT_EQ(setReadLineModes(0xFFFFFFF0), 5U);
    EXPECT_EQ(setReadLineModes(0), 0xFFFFFFF0U);
}

TEST_F(ReadLine, savedStateComesBackWithItsText) {
    FILE *stream = streamOf("'one\ntwo'\nthree\n");
    setReadLineModes(1);
    const char *line = readQuotedLine(stream);
    ReadInfo saved;
    resetReadLine(&saved);
    EXPECT_EQ(saved.inlineCnt, 2U);
    EXPECT_EQ(saved.virtLineCnt, 1U);
    EXPECT_EQ(saved.modes, 1U);
    EXPECT_EQ(saved.buffer, line);
    EXPECT_EQ(saved.capacity, 80U);
    EXPECT_EQ(inlineCnt + virtLineCnt + ri_modes, 0U);
    EXPECT_EQ(readAll(readLine, 0, string(100, 'x') + "\n\n").size(), 2U);
    setReadLine(&saved);
    EXPECT_STREQ(line, "'one\ntwo'");
    EXPECT_EQ(inlineCnt, 2U);
    EXPECT_EQ(virtLineCnt, 1U);
    EXPECT_EQ(ri_modes, 1U);
    EXPECT_STREQ(readLine(stream), "three");
    EXPECT_EQ(inlineCnt, 3U);
    fclose(stream);
    resetReadLine(&saved);
    EXPECT_EQ(saved.capacity, 80U);
    free(saved.buffer);
}

TEST_F(ReadLine, resetWithoutARecordKeepsTheText) {
    FILE *stream = streamOf("one\ntwo\n");
    setReadLineModes(1);
    const char *line = readLine(stream);
    resetReadLine(nullptr);
    EXPECT_STREQ(line, "one");
    EXPECT_EQ(inlineCnt + virtLineCnt + ri_modes, 0U);
    EXPECT_EQ(readLine(stream), line) << "the same buffer goes on";
    EXPECT_STREQ(line, "two\n");
    fclose(stream);
}

TEST_F(ReadLine, restoringNothingChangesNothing) {
    FILE *stream = streamOf("one\n");
    const char *line = readLine(stream);
    setReadLine(nullptr);
    EXPECT_STREQ(line, "one\n");
    EXPECT_EQ(virtLineCnt, 1U);
    fclose(stream);
}

TEST_F(ReadLine, stateRestoredTwiceInARowIsStillUsable) {
    FILE *stream = streamOf("one\ntwo\n");
    readLine(stream);
    ReadInfo saved;
    resetReadLine(&saved);
    setReadLine(&saved);
    setReadLine(&saved);
    EXPECT_STREQ(saved.buffer, "one\n");
    EXPECT_STREQ(readLine(stream), "two\n");
    fclose(stream);
}

// A stream that, while it is being read, has another thread use the reader too.
struct Intruder {
    std::thread thread;
    std::atomic<bool> done{false};
    bool doneWithinTheRead = false;
};

ssize_t readWithIntruder(void *cookie, char *buffer, size_t) {
    Intruder *intruder = static_cast<Intruder *>(cookie);
    if (intruder->thread.joinable())
        return 0;
    intruder->thread = std::thread([intruder] {
        setReadLineModes(1);
        intruder->done = true;
    });
    for (int wait = 0; wait < 20 && !intruder->done; ++wait)
        usleep(1000);
    intruder->doneWithinTheRead = intruder->done;
    memcpy(buffer, "line\n", 5);
    return 5;
}

TEST_F(ReadLine, otherThreadsWaitUntilTheLineIsRead) {
    for (const Reader reader : {readLine, readContLine, readQuotedLine}) {
        Intruder intruder;
        cookie_io_functions_t functions = {};
        functions.read = readWithIntruder;
        FILE *stream = fopencookie(&intruder, "r", functions);
        setReadLineModes(0);
        EXPECT_STREQ(reader(stream), "line\n");
        intruder.thread.join();
        EXPECT_FALSE(intruder.doneWithinTheRead);
        EXPECT_EQ(ri_modes, 1U);
        fclose(stream);
    }
}

TEST_F(ReadLine, zeroByteBeforeANewlineIsNoBackslash) {
    for (const Reader reader : {readContLine, readQuotedLine}) {
        FILE *stream = streamOf(string("a\\\0\nb\0\\\nc\n", 10));
        resetReadLine(nullptr);
        EXPECT_EQ(string(reader(stream), 5), string("a\\\0\n\0", 5));
        EXPECT_EQ(string(reader(stream), 5), string("b\0c\n\0", 5));
        EXPECT_EQ(reader(stream), nullptr);
        EXPECT_EQ(inlineCnt, 3U);
        fclose(stream);
    }
}

volatile sig_atomic_t timeoutsRun;

void *countTimeout(intptr_t, uint32_t) {
    timeoutsRun = timeoutsRun + 1;
    return nullptr;
}

TEST_F(ReadLine, timeoutOfTheClockDoesNotEndTheInput) {
    expectChildPasses([] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            const bool first = write(ends[1], "fir", 3) == 3;
            sleep(2);
            _exit(first && write(ends[1], "st\nsecond\n", 10) == 10 ? 0 : 1);
        }
        close(ends[1]);
        FILE *stream = fdopen(ends[0], "r");
        clkTimeout(countTimeout, 0, 1);
        EXPECT_STREQ(readLine(stream), "first\n");
        EXPECT_EQ(timeoutsRun, 1);
        EXPECT_STREQ(readLine(stream), "second\n");
        EXPECT_EQ(readLine(stream), nullptr);
        EXPECT_EQ(ferror(stream), 0);
        fclose(stream);
        waitpid(child, nullptr, 0);
    });
}

// A pipe's end as a stream, and the other end.
struct PipedStream {
    PipedStream() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        stream = fdopen(ends[0], "r");
        writeEnd = ends[1];
    }
    ~PipedStream() {
        fclose(stream);
        close(writeEnd);
    }
    PipedStream(const PipedStream &) = delete;
    PipedStream &operator=(const PipedStream &) = delete;

    FILE *stream;
    int writeEnd;
};

void waitInto(std::atomic<bool> *started, FILE *stream) {
    *started = true;
    readFpIntoArray(stream, 0, 0);
}

TEST(ReadFpIntoArray, threadCancelledWhileItWaitsLeavesTheStreamUnlocked) {
    expectChildPasses([] {
        alarm(10); // a stream left locked is never closed
        const PipedStream piped;
        std::atomic<bool> started = false;
        std::thread reader(waitInto, &started, piped.stream);
        while (!started)
            usleep(1000);
        usleep(50000); // it waits for the first byte by then
        ASSERT_EQ(pthread_cancel(reader.native_handle()), 0);
        reader.join();
        ASSERT_EQ(ftrylockfile(piped.stream), 0);
        funlockfile(piped.stream);
    });
}

TEST_F(ReadLine, streamThatItsUserLocksIsNotLocked) {
    expectChildPasses([] {
        alarm(10); // the reader would wait for the lock for good
        const PipedStream piped;
        __fsetlocking(piped.stream, FSETLOCKING_BYCALLER);
        flockfile(piped.stream);
        ASSERT_EQ(write(piped.writeEnd, "x\n", 2), 2);
        string line;
        std::thread([&] { line = readLine(piped.stream); }).join();
        funlockfile(piped.stream);
        EXPECT_EQ(line, "x\n");
    });
}

} // namespace
