/* Frames over pipes. Most cases talk to a far end made of steps, which the read and write below
   serve for one descriptor number: bytes in pieces, interruptions, errors and the end of file come
   as told, and every request is remembered. The rest uses real pipes, FIFOs, threads and signals.
   What depends on the first growth in a process (the granule), and what changes the environment or
   the clock, runs in a child. */
#include "core/ipcComm.h"

#include "clock/clock.h"
#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using std::string;

constexpr int FAKE = 4711; // the descriptor of the scripted far end

struct Step {
    string bytes;  // what a read finds; it takes at most what it asked for
    int error = 0; // the read fails with this instead
};

struct FarEnd {
    std::deque<Step> input;
    std::vector<size_t> reads; // bytes asked for by each read
    std::vector<string> writes;
    ssize_t writeResult = -2; // -2: all; else what a write returns
    int writeError = 0;
};
FarEnd farEnd;

ssize_t readStep(void *buffer, size_t count) {
    farEnd.reads.push_back(count);
    if (count == 0 || farEnd.input.empty())
        return 0;
    Step &step = farEnd.input.front();
    if (step.error != 0) {
        errno = step.error;
        farEnd.input.pop_front();
        return -1;
    }
    const size_t got = std::min(count, step.bytes.size());
    memcpy(buffer, step.bytes.data(), got);
    step.bytes.erase(0, got);
    if (step.bytes.empty())
        farEnd.input.pop_front();
    return static_cast<ssize_t>(got);
}

ssize_t writeStep(const void *buffer, size_t count) {
    farEnd.writes.emplace_back(static_cast<const char *>(buffer), count);
    if (farEnd.writeResult == -2)
        return static_cast<ssize_t>(count);
    if (farEnd.writeResult < 0)
        errno = farEnd.writeError;
    return farEnd.writeResult;
}

// What the next reallocation does, where a case asks for it.
bool failRealloc;
int reallocsGranted;  // so many are granted first
bool moveRealloc;     // the block moves, and the old one is spoiled
int reallocError;     // the errno a refused one leaves; 0: untouched
size_t reallocedSize; // the size last asked for while refusing
void *refusedBlock;   // the block of it

// What the open of ipcInit fails with, where a case asks for it; the clock's cancelling calls leave
// another errno then.
int openError;

} // namespace

extern "C" ssize_t read(int fd, void *buffer, size_t count) {
    return fd == FAKE ? readStep(buffer, count) : syscall(SYS_read, fd, buffer, count);
}

extern "C" ssize_t write(int fd, const void *buffer, size_t count) {
    return fd == FAKE ? writeStep(buffer, count) : syscall(SYS_write, fd, buffer, count);
}

// Called before the thread sanitizer knows the thread.
extern "C" __attribute__((no_sanitize("thread"))) void *realloc(void *block, size_t size) noexcept {
    static const auto next =
        reinterpret_cast<void *(*)(void *, size_t)>(dlsym(RTLD_NEXT, "realloc"));
    if (moveRealloc && block != nullptr) {
        const size_t old = malloc_usable_size(block);
        void *moved = malloc(size);
        memcpy(moved, block, std::min(old, size));
        memset(block, '?', old);
        free(block);
        return moved;
    }
    if (!failRealloc || reallocsGranted > 0) {
        reallocsGranted -= failRealloc ? 1 : 0;
        return next(block, size);
    }
    reallocedSize = size;
    refusedBlock = block;
    if (reallocError != 0)
        errno = reallocError;
    return nullptr;
}

// The library's open: it is built for large files, this program is not.
extern "C" int open64(const char *path, int flags, ...) {
    if (openError == 0)
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0));
    errno = openError;
    return -1;
}

extern "C" int32_t clkKillTimeout(ClkFunction function, intptr_t argument) {
    using Cancel = int32_t (*)(ClkFunction, intptr_t);
    static const auto next = reinterpret_cast<Cancel>(dlsym(RTLD_NEXT, "clkKillTimeout"));
    const int32_t result = next(function, argument);
    if (openError != 0)
        errno = EDOM;
    return result;
}

extern "C" int32_t clkUntimeout(uint32_t id) {
    using Cancel = int32_t (*)(uint32_t);
    static const auto next = reinterpret_cast<Cancel>(dlsym(RTLD_NEXT, "clkUntimeout"));
    const int32_t result = next(id);
    if (openError != 0)
        errno = EDOM;
    return result;
}

namespace {

/* ---- what a process does once: first, since children see what their parent did ---- */

void expectGranule(const char *setting, int32_t expected) {
    expectChildPasses([=] {
        setting == nullptr ? unsetenv("MAXMSGSIZE") : setenv("MAXMSGSIZE", setting, 1);
        IpcChannel channel = {FAKE, 0, 0, 0, nullptr};
        EXPECT_EQ(ipcSend(&channel, ""), 0);
        EXPECT_EQ(channel.capacity, expected) << (setting == nullptr ? "unset" : setting);
        free(channel.buffer);
    });
}

TEST(IpcFresh, granuleIsAWholeDecimalNumberFrom120) {
    const struct {
        const char *setting;
        int32_t granule;
    } cases[] = {
        {nullptr, 120},
        {"", 120},
        {"0", 120},
        {"100", 120},
        {"119", 120},
        {"120", 120},
        {"121", 121},
        {"256", 256},
        {"0256", 256},
        {"00000000000000000000000000000256", 256},
        {"200k", 120},
        {"0x200", 120},
        {"+256", 120},
        {"-256", 120},
        {" 256", 120},
        {"256 ", 120},
        {"256\n", 120},
        {"2147483648", 120},
        {"4294967552", 120},
        {"18446744073709551872", 120},
        {"99999999999999999999999999999999", 120},
    };
    for (const auto &one : cases)
        expectGranule(one.setting, one.granule);
}

TEST(IpcFresh, granuleOf256GrowsABufferOf300BytesTo512And13) {
    expectChildPasses([] {
        setenv("MAXMSGSIZE", "256", 1);
        IpcChannel channel = {FAKE, 0, 0, 0, nullptr};
        EXPECT_EQ(ipcSend(&channel, string(300, 'x').c_str()), 300);
        EXPECT_EQ(channel.capacity, 512);
        free(channel.buffer);
        channel = {FAKE, 0, 0, 0, nullptr};
        failRealloc = true;
        EXPECT_EQ(ipcSend(&channel, string(300, 'x').c_str()), -1);
        EXPECT_EQ(reallocedSize, 525U);
    });
}

TEST(IpcFresh, granuleIsReadAtTheFirstGrowthOnly) {
    expectChildPasses([] {
        IpcChannel channel = {FAKE, 0, 0, 0, nullptr}, other = channel;
        setenv("MAXMSGSIZE", "200", 1);
        ipcSend(&channel, "");
        setenv("MAXMSGSIZE", "300", 1);
        ipcSend(&other, "");
        EXPECT_EQ(channel.capacity, 200);
        EXPECT_EQ(other.capacity, 200);
        free(channel.buffer);
        free(other.buffer);
    });
}

TEST(IpcFresh, hugeGranuleIsExhaustedMemoryAndNoWrappedSize) {
    expectChildPasses([] {
        setenv("MAXMSGSIZE", "2147483647", 1);
        IpcChannel channel = {FAKE, 0, 0, 0, nullptr};
        failRealloc = true;
        reallocedSize = 2147483660U; // as asked for where such a block can exist
        EXPECT_EQ(ipcSend(&channel, "text"), -1);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(reallocedSize, 2147483660U);
        EXPECT_EQ(channel.capacity, 0);
    });
}

TEST(IpcFresh, threadWithoutRoomForDiscardedBytesGoesOnWithoutThem) {
    expectChildPasses([] {
        pthread_key_t key;
        while (pthread_key_create(&key, nullptr) == 0) {
        }
        IpcChannel channel = {FAKE, 0, 0, 0, nullptr};
        farEnd.input.push_back({"xyzuv\n003abc1", 0});
        EXPECT_EQ(ipcRecv(&channel), 3);
        EXPECT_STREQ(ipcBadData(43), "");
        EXPECT_EQ(ipcRecv(&channel), -1);
        EXPECT_EQ(errno, EIO);
        free(channel.buffer);
    });
}

class Ipc : public testing::Test {
  protected:
    void SetUp() override { farEnd = FarEnd{}; }
    void TearDown() override {
        failRealloc = moveRealloc = false;
        free(channel.buffer);
    }
    void feed(const string &bytes) { farEnd.input.push_back({bytes, 0}); }
    void feedError(int error) { farEnd.input.push_back({"", error}); }
    string body() const { return channel.buffer == nullptr ? "(null)" : channel.buffer; }
    int32_t sendText(const string &text) { return ipcSend(&channel, text.c_str()); }

    IpcChannel channel = {FAKE, 0, 0, 0, nullptr};
};

/* ---- sending ---- */

TEST_F(Ipc, emptyTextOnAFreshChannelIsThreeBytes) {
    EXPECT_EQ(sendText(""), 0);
    EXPECT_EQ(farEnd.writes, std::vector<string>{"000"});
    EXPECT_NE(channel.buffer, nullptr);
    EXPECT_EQ(channel.capacity, 120);
}

TEST_F(Ipc, lengthPrefixTakesTheShortFormUpTo999) {
    const struct {
        size_t length;
        const char *header;
    } cases[] = {
        {1, "001"},
        {9, "009"},
        {10, "010"},
        {99, "099"},
        {100, "100"},
        {998, "998"},
        {999, "999"},
        {1000, "<4>1000"},
        {1234, "<4>1234"},
        {9999, "<4>9999"},
        {10000, "<5>10000"},
        {99999, "<5>99999"},
        {100000, "<6>100000"},
        {999999, "<6>999999"},
        {1000000, "<7>1000000"},
    };
    for (const auto &one : cases) {
        const string text(one.length, 'x');
        farEnd.writes.clear();
        EXPECT_EQ(sendText(text), static_cast<int32_t>(one.length));
        ASSERT_EQ(farEnd.writes.size(), 1U) << one.header;
        EXPECT_TRUE(farEnd.writes[0] == one.header + text) << one.header;
    }
}

TEST_F(Ipc, sentFrameIsTheDocumentedOne) {
    EXPECT_EQ(sendText("hello"), 5);
    EXPECT_EQ(sendText("\xFF%s\n"), 4);
    EXPECT_EQ(farEnd.writes, (std::vector<string>{"005hello", "004\xFF%s\n"}));
}

TEST_F(Ipc, bufferGrowsOnlyWhenTheTextIsLongerThanItsCapacity) {
    const struct {
        size_t length;
        int32_t capacity;
    } steps[] = {{119, 120}, {120, 120}, {121, 240}, {240, 240}, {5, 240}, {359, 240 + 120}};
    for (const auto &step : steps) {
        sendText(string(step.length, 'x'));
        EXPECT_EQ(channel.capacity, step.capacity) << step.length;
    }
}

TEST_F(Ipc, growthIsStrictlyAboveWhatMustFit) {
    sendText(string(120, 'x'));
    EXPECT_EQ(channel.capacity, 240);
}

TEST_F(Ipc, shortWriteIsAFailureWithoutASecondWrite) {
    for (const ssize_t written : {0, 3, 7}) {
        farEnd.writes.clear();
        farEnd.writeResult = written;
        errno = EDOM;
        EXPECT_EQ(sendText("hello"), -1) << written;
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(farEnd.writes.size(), 1U);
    }
}

TEST_F(Ipc, failedWriteKeepsItsErrno) {
    farEnd.writeResult = -1;
    for (const int error : {EINTR, EAGAIN, EPIPE}) {
        farEnd.writeError = error;
        EXPECT_EQ(sendText("hello"), -1);
        EXPECT_EQ(errno, error);
    }
    EXPECT_EQ(farEnd.writes.size(), 3U);
}

TEST_F(Ipc, closedChannelRefusesToSendAndReceive) {
    channel.fd = -1;
    EXPECT_EQ(sendText("hello"), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Ipc, nullArgumentsAreRefused) {
    EXPECT_EQ(ipcSend(&channel, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ipcSend(nullptr, "text"), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ipcRecv(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_TRUE(farEnd.writes.empty());
}

TEST_F(Ipc, receivedBodyCanBeSentOnFromItsOwnBuffer) {
    feed("005hello");
    ASSERT_EQ(ipcRecv(&channel), 5);
    EXPECT_EQ(ipcSend(&channel, channel.buffer), 5);
    EXPECT_EQ(farEnd.writes, std::vector<string>{"005hello"});
}

TEST_F(Ipc, longestBodyInItsOwnBufferCanBeSentOn) {
    const string text(1200, 'q');
    feed("<4>1200" + text);
    ASSERT_EQ(ipcRecv(&channel), 1200);
    channel.capacity = 1200; // as full as a channel can be
    EXPECT_EQ(ipcSend(&channel, channel.buffer), 1200);
    EXPECT_EQ(farEnd.writes, std::vector<string>{"<4>1200" + text});
}

// A frame is longer than its text, and may fill the buffer past its capacity.
TEST_F(Ipc, textInTheChannelsBufferIsFollowedThroughItsGrowth) {
    const string text(118, 'q');
    for (const ptrdiff_t offset : {0, 1}) {
        farEnd = FarEnd{};
        ASSERT_EQ(sendText("1" + text), 119);
        ASSERT_EQ(channel.capacity, 120);
        moveRealloc = true;
        EXPECT_EQ(ipcSend(&channel, channel.buffer + offset), 122 - offset);
        moveRealloc = false;
        EXPECT_EQ(channel.capacity, 240);
        const string frame = ("1191" + text).substr(static_cast<size_t>(offset));
        EXPECT_EQ(farEnd.writes.back(), (offset == 0 ? "122" : "121") + frame);
        free(channel.buffer);
        channel = {FAKE, 0, 0, 0, nullptr};
    }
}

TEST_F(Ipc, capacityWithoutABufferIsNotBelieved) {
    channel.capacity = 500;
    EXPECT_EQ(sendText("hello"), 5);
    EXPECT_EQ(channel.capacity, 120);
    for (const char *input : {"005hello", "   hell\n"}) {
        free(channel.buffer);
        channel = {FAKE, 0, 0, 500, nullptr};
        feed(input);
        EXPECT_EQ(ipcRecv(&channel), 5);
        EXPECT_EQ(channel.capacity, 120);
        EXPECT_EQ(body(), input + 3);
    }
}

TEST_F(Ipc, refusedGrowthLosesTheBufferButNotItsBytes) {
    feed("005hello");
    ASSERT_EQ(ipcRecv(&channel), 5);
    char *old = channel.buffer;
    failRealloc = true;
    reallocError = ENOMEM;
    EXPECT_EQ(sendText(string(500, 'x')), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(channel.capacity, 0);
    EXPECT_EQ(channel.buffer, nullptr);
    EXPECT_STREQ(old, "hello");
    reallocError = 0;
    EXPECT_EQ(sendText("x"), -1);
    EXPECT_EQ(errno, ENOSPC);
    failRealloc = false;
    EXPECT_EQ(sendText("x"), 1);
    EXPECT_EQ(farEnd.writes, std::vector<string>{"001x"});
    free(old);
}

// A text of almost any length that costs the memory of one block: the block mapped over and over.
class EndlessText {
  public:
    explicit EndlessText(size_t length) : size_((length / BLOCK + 1) * BLOCK) {
        const int fd = memfd_create("text", 0);
        EXPECT_EQ(ftruncate(fd, BLOCK), 0);
        void *block = mmap(nullptr, BLOCK, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        memset(block, 'x', BLOCK);
        munmap(block, BLOCK);
        void *area =
            mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        EXPECT_NE(area, MAP_FAILED);
        text_ = static_cast<char *>(area);
        for (size_t at = 0; at < size_; at += BLOCK)
            mmap(text_ + at, BLOCK, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, fd, 0);
        text_[length] = '\0';
        close(fd);
    }
    ~EndlessText() { munmap(text_, size_); }
    const char *text() const { return text_; }

  private:
    static constexpr size_t BLOCK = 4U << 20;
    size_t size_;
    char *text_ = nullptr;
};

TEST_F(Ipc, lengthOfTenDigitsIsRefusedBeforeAnythingIsAllocated) {
    const EndlessText text(1000000000);
    failRealloc = true;
    reallocedSize = 0;
    EXPECT_EQ(ipcSend(&channel, text.text()), -1);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(reallocedSize, 0U);
    EXPECT_TRUE(farEnd.writes.empty());
}

TEST_F(Ipc, longestLengthOfNineDigitsIsAllocatedFor) {
    const EndlessText text(999999999);
    failRealloc = true;
    EXPECT_EQ(ipcSend(&channel, text.text()), -1);
    EXPECT_NE(errno, EFBIG);
    EXPECT_EQ(reallocedSize, 1000000080U + 13U);
}

/* ---- headers ---- */

TEST_F(Ipc, everyFormOfHeaderIsUnderstood) {
    const struct {
        const char *input;
        const char *body;
    } cases[] = {
        {"005hello", "hello"},
        {"001x", "x"},
        {"<1>5hello", "hello"},
        {"<4>0005hello", "hello"},
        {"<9>000000005hello", "hello"},
        {"   abc\n", "abc\n"},
        {"   \n", "\n"},
        {"003\xFF\xB0\n", "\xFF\xB0\n"},
        {"   \xFF\n", "\xFF\n"},
    };
    for (const auto &one : cases) {
        farEnd = FarEnd{};
        feed(one.input);
        EXPECT_EQ(ipcRecv(&channel), static_cast<int32_t>(strlen(one.body))) << one.input;
        EXPECT_EQ(body(), one.body);
        EXPECT_EQ(channel.flags & IPC_HEADER_READ, 0U);
        EXPECT_EQ(ipcRecv(&channel), 0) << one.input;
    }
}

TEST_F(Ipc, frameTakesOneReadForEachPart) {
    feed("005hello<4>1000" + string(1000, 'x') + "<0>");
    EXPECT_EQ(ipcRecv(&channel), 5);
    EXPECT_EQ(ipcRecv(&channel), 1000);
    EXPECT_EQ(channel.capacity, 1080);
    EXPECT_EQ(ipcRecv(&channel), 0);
    EXPECT_EQ(farEnd.reads, (std::vector<size_t>{3, 5, 3, 4, 1000, 3, 0}));
}

TEST_F(Ipc, zeroLengthDigitsAreTheEndOfFile) {
    feed("<0>003abc");
    EXPECT_EQ(ipcRecv(&channel), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(ipcRecv(&channel), 3);
}

TEST_F(Ipc, emptyBodyIsAnEmptyTextOnAFreshChannel) {
    feed("000003abc");
    EXPECT_EQ(ipcRecv(&channel), 0);
    EXPECT_EQ(body(), "");
    EXPECT_EQ(channel.flags, 0U);
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "abc");
}

TEST_F(Ipc, zeroBytesInABodyAreCounted) {
    feed(string("005a\0b\0c", 8));
    EXPECT_EQ(ipcRecv(&channel), 5);
    EXPECT_EQ(string(channel.buffer, 6), string("a\0b\0c\0", 6));
}

TEST_F(Ipc, lineHeaderTakesEveryByteUpToTheNewline) {
    feed(string("   a\0b\n003abc", 13));
    EXPECT_EQ(ipcRecv(&channel), 4);
    EXPECT_EQ(string(channel.buffer, 5), string("a\0b\n\0", 5));
    EXPECT_EQ(channel.length, 4);
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(channel.flags, 0U);
}

TEST_F(Ipc, endOfFileBeforeAHeaderKeepsTheLastBody) {
    feed("005hello");
    EXPECT_EQ(ipcRecv(&channel), 5);
    errno = EDOM;
    EXPECT_EQ(ipcRecv(&channel), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(body(), "hello");
}

TEST_F(Ipc, frameCutAtEveryByte) {
    const string frame = "<2>10abcdefghij";
    const struct {
        int32_t result;
        int error;
        const char *discarded;
    } cases[] = {
        {0, 0, ""},       {-1, EIO, "<  "}, {-1, EIO, "<  2  "}, {0, 0, ""},
        {-1, EIO, "1  "}, {0, 0, ""},       {1, 0, ""},          {2, 0, ""},
        {3, 0, ""},       {4, 0, ""},       {5, 0, ""},          {6, 0, ""},
        {7, 0, ""},       {8, 0, ""},       {9, 0, ""},          {10, 0, ""},
    };
    for (size_t cut = 0; cut <= frame.size(); ++cut) {
        farEnd = FarEnd{};
        channel.flags = 0;
        if (cut > 0)
            feed(frame.substr(0, cut));
        EXPECT_EQ(ipcRecv(&channel), cases[cut].result) << cut;
        EXPECT_EQ(errno, cases[cut].error) << cut;
        EXPECT_STREQ(ipcBadData(43), cases[cut].discarded) << cut;
        const string arrived = cut < 5 ? "" : frame.substr(5, cut - 5);
        EXPECT_EQ(cut < 5 ? "" : body(), arrived);
    }
}

TEST_F(Ipc, failedReadOfAHeaderKeepsItsErrno) {
    feedError(EINTR);
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EINTR);
    feedError(EAGAIN);
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EAGAIN);
    feed("<4>");
    feedError(EBADF);
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(channel.flags, 0U);
}

TEST_F(Ipc, piecesOfAHeaderAreNotAwaited) {
    feed("0");
    feed("05hello\n003abc");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_STREQ(ipcBadData(43), "0  ");
    EXPECT_EQ(ipcRecv(&channel), 3) << "05h is no header: the line is lost with it";
    EXPECT_EQ(body(), "abc");
}

/* ---- resynchronisation ---- */

TEST_F(Ipc, unknownBytesAreThrownAwayUpToTheNewline) {
    const struct {
        const char *garbage;
        const char *discarded;
    } cases[] = {
        {"xyz\n", "\\n "},
        {"xyzuv\n", "u  v  \\n "},
        {"12x45\n", "4  5  \\n "},
        {"1x2\n", "\\n "},
        {"x12\n", "\\n "},
        {"<4x\n", "\\n "},
        {"<x>\n", "\\n "},
        {"<4>12a4uv\n", "u  v  \\n "},
        {"<4>123\nuv\n", "u  v  \\n "},
        {"  x\n", "\\n "},
        {" 12\n", "\\n "},
        {"\xB0\xB1\xB2u\n", "u  \\n "},
        {"<\xB4>u\n", "u  \\n "},
        {"xy\n", ""},
        {"1a\n", ""},
        {"12\n", ""},
        {"  \n", ""},
        {"<4\n", ""},
        {"\n\n\n", ""},
    };
    for (const auto &one : cases) {
        farEnd = FarEnd{};
        feed(string(one.garbage) + "003abc");
        errno = EDOM;
        EXPECT_EQ(ipcRecv(&channel), 3) << one.garbage;
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(body(), "abc");
        EXPECT_STREQ(ipcBadData(43), one.discarded) << one.garbage;
    }
}

TEST_F(Ipc, shortestLineOfGarbageTakesTheFrameBehindItAlong) {
    feed("x\n003abc\n004next");
    EXPECT_EQ(ipcRecv(&channel), 4) << "x, newline and 0 are one bad header";
    EXPECT_EQ(body(), "next");
    EXPECT_STREQ(ipcBadData(43), "0  3  a  b  c  \\n ");
}

TEST_F(Ipc, severalResynchronisationsKeepTheLastOnesBytes) {
    feed("abcde\nvwxyz\n003abc");
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_STREQ(ipcBadData(43), "y  z  \\n ");
}

TEST_F(Ipc, threeBytesEndingInANewlineClearWhatWasDiscardedBefore) {
    feed("xyzuv\nab\n003abc");
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_STREQ(ipcBadData(43), "");
}

TEST_F(Ipc, discardedBytesOutliveTheFrameAndGoWithTheNextCall) {
    feed("xyzuv\n003abc003def");
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_STREQ(ipcBadData(43), "u  v  \\n ");
    EXPECT_EQ(ipcSend(&channel, "text"), 4);
    EXPECT_STREQ(ipcBadData(43), "u  v  \\n ");
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_STREQ(ipcBadData(43), "");
}

TEST_F(Ipc, callThatFindsAHeaderPendingLeavesTheDiscardedBytes) {
    feed("xyz\n003");
    feedError(EINTR);
    feed("abc");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(channel.flags, 1U);
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_STREQ(ipcBadData(43), "\\n ");
}

TEST_F(Ipc, endOfFileWhileResynchronisingIsAnInputError) {
    feed("xyzuv");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_STREQ(ipcBadData(43), "u  v  ");
    EXPECT_EQ(ipcRecv(&channel), 0);
    EXPECT_STREQ(ipcBadData(43), "");
}

TEST_F(Ipc, failedReadWhileResynchronisingKeepsItsErrno) {
    feed("xyzuv");
    feedError(EAGAIN);
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_STREQ(ipcBadData(43), "u  v  ");
}

TEST_F(Ipc, longGarbageIsRememberedByItsBeginning) {
    for (const size_t length : {127U, 128U, 129U, 5000U}) {
        farEnd = FarEnd{};
        feed("xyz" + string(length - 1, 'g') + "\n003abc");
        EXPECT_EQ(ipcRecv(&channel), 3);
        string expected;
        for (int count = 0; count < 43; ++count)
            expected += "g  ";
        EXPECT_EQ(ipcBadData(43), expected);
        EXPECT_EQ(farEnd.reads.size(), length + 3);
    }
}

TEST_F(Ipc, endOfFileBehindGarbageLeavesTheGarbage) {
    feed("xyzuv\n");
    EXPECT_EQ(ipcRecv(&channel), 0);
    EXPECT_STREQ(ipcBadData(43), "u  v  \\n ");
}

/* ---- bodies ---- */

TEST_F(Ipc, shortBodyIsReturnedAsItCame) {
    feed("010abc");
    feed("003def");
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "abc");
    EXPECT_EQ(channel.flags, 0U);
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "def");
}

TEST_F(Ipc, failedReadOfABodyLeavesItsHeaderPending) {
    feed("003");
    feedError(EAGAIN);
    feed("abc");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(channel.flags, 1U);
    EXPECT_EQ(channel.length, 3);
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "abc");
    EXPECT_EQ(farEnd.reads, (std::vector<size_t>{3, 3, 3}));
}

TEST_F(Ipc, failedReadOfALinesFirstByteLeavesItsHeaderPending) {
    feed("   ");
    feedError(EINTR);
    feed("abc\n");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(channel.flags, 3U);
    EXPECT_EQ(ipcRecv(&channel), 4);
    EXPECT_EQ(body(), "abc\n");
}

TEST_F(Ipc, failedReadInsideALineLosesItsHeader) {
    feed("   a");
    feedError(EINTR);
    feed("003xyz");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(channel.flags & IPC_HEADER_READ, 0U);
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "xyz");
}

TEST_F(Ipc, endOfFileInsideALineIsAnInputErrorThatShowsNothing) {
    feed("xyzuv\n   abc");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_STREQ(ipcBadData(43), "");
    EXPECT_EQ(channel.flags & IPC_HEADER_READ, 0U);
}

TEST_F(Ipc, endOfFileBeforeALinesFirstByteLeavesItsHeaderPending) {
    feed("   ");
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_STREQ(ipcBadData(43), "");
    EXPECT_EQ(channel.flags, 3U);
    feed("abc\n");
    EXPECT_EQ(ipcRecv(&channel), 4);
    EXPECT_EQ(body(), "abc\n");
    EXPECT_EQ(channel.flags & IPC_HEADER_READ, 0U);
}

TEST_F(Ipc, refusedGrowthInsideALineLosesItsHeaderAndTheBuffer) {
    feed("   " + string(120, 'l'));
    feed("003abc");
    failRealloc = true;
    reallocsGranted = 1;
    reallocError = 0;
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(channel.flags & IPC_HEADER_READ, 0U);
    EXPECT_EQ(channel.capacity, 0);
    EXPECT_EQ(channel.buffer, nullptr);
    EXPECT_EQ(reallocedSize, 240U + 13U);
    EXPECT_EQ(string(static_cast<char *>(refusedBlock), 120), string(120, 'l'));
    free(refusedBlock);
    failRealloc = false;
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "abc");
}

TEST_F(Ipc, lineGrowsTheBufferWheneverItIsFull) {
    const struct {
        size_t length; // newline included
        int32_t capacity;
    } cases[] = {{1, 120}, {119, 120}, {120, 120}, {121, 240}, {240, 240}, {241, 360}};
    for (const auto &one : cases) {
        farEnd = FarEnd{};
        free(channel.buffer);
        channel = {FAKE, 0, 0, 0, nullptr};
        const string line = string(one.length - 1, 'l') + "\n";
        feed("   " + line);
        EXPECT_EQ(ipcRecv(&channel), static_cast<int32_t>(one.length));
        EXPECT_EQ(channel.capacity, one.capacity) << one.length;
        EXPECT_EQ(body(), line);
    }
}

TEST_F(Ipc, refusedGrowthForABodyLeavesItsHeaderPending) {
    feed("003abc");
    failRealloc = true;
    reallocError = 0;
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(channel.flags, 1U);
    failRealloc = false;
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_EQ(body(), "abc");
}

TEST_F(Ipc, bodyGrowthIsComputedFromTheAnnouncedLength) {
    feed("<9>999999999");
    failRealloc = true;
    reallocError = ENOMEM;
    EXPECT_EQ(ipcRecv(&channel), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(reallocedSize, 1000000080U + 13U);
}

#if !defined(__SANITIZE_ADDRESS__) // its allocator marks every byte of a block
TEST(IpcMemory, announcedLengthCostsNoMemoryBeyondWhatArrives) {
    expectChildPasses([] {
        IpcChannel channel = {FAKE, 0, 0, 0, nullptr};
        farEnd.input.push_back({"<9>999999999abc", 0});
        rusage before, after;
        getrusage(RUSAGE_SELF, &before);
        EXPECT_EQ(ipcRecv(&channel), 3);
        getrusage(RUSAGE_SELF, &after);
        EXPECT_EQ(channel.capacity, 1000000080);
        EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 1024) << "kilobytes";
        free(channel.buffer);
    });
}
#endif

/* ---- the rendering ---- */

TEST_F(Ipc, everyDiscardedByteTakesThreeCharacters) {
    const struct {
        string bytes;
        const char *shown;
    } cases[] = {
        {string(1, '\0'), "\\0 "},
        {"\b", "\\b "},
        {"\t", "\\t "},
        {"\f", "\\f "},
        {"\r", "\\r "},
        {" ", "sp "},
        {"A", "A  "},
        {"~", "~  "},
        {"!", "!  "},
        {"\\", "\\  "},
        {"\a", "07 "},
        {"\v", "0b "},
        {"\x1B", "1b "},
        {"\x7F", "7f "},
        {"\x80", "80 "},
        {"\xE9", "e9 "},
        {"\xFF", "ff "},
        {"%", "%  "},
    };
    for (const auto &one : cases) {
        farEnd = FarEnd{};
        feed("xyz" + one.bytes + "\n003abc");
        EXPECT_EQ(ipcRecv(&channel), 3);
        EXPECT_EQ(ipcBadData(43), string(one.shown) + "\\n ");
    }
}

TEST_F(Ipc, renderingIsBoundedByTheMaximumAndByItsArea) {
    feed("xyz" + string(60, 'q') + "\n003abc");
    EXPECT_EQ(ipcRecv(&channel), 3);
    EXPECT_STREQ(ipcBadData(0), "");
    EXPECT_STREQ(ipcBadData(-1), "");
    EXPECT_STREQ(ipcBadData(INT_MIN), "");
    EXPECT_STREQ(ipcBadData(1), "q  ");
    EXPECT_STREQ(ipcBadData(2), "q  q  ");
    for (const int32_t maximum : {43, 44, 60, 61, INT_MAX})
        EXPECT_EQ(strlen(ipcBadData(maximum)), 129U) << maximum;
}

TEST_F(Ipc, nothingDiscardedIsTheEmptyText) {
    std::thread([] { EXPECT_STREQ(ipcBadData(43), ""); }).join();
}

TEST_F(Ipc, discardedBytesBelongToTheThreadThatReadThem) {
    feed("xyzuv\n003abc");
    EXPECT_EQ(ipcRecv(&channel), 3);
    std::thread([] { EXPECT_STREQ(ipcBadData(43), ""); }).join();
    EXPECT_STREQ(ipcBadData(43), "u  v  \\n ");
}

/* ---- real pipes ---- */

class IpcPipe : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(pipe(ends), 0);
        in.fd = ends[0];
        out.fd = ends[1];
    }
    void TearDown() override {
        for (const int end : ends)
            close(end);
        free(in.buffer);
        free(out.buffer);
    }

    int ends[2] = {-1, -1};
    IpcChannel in = {-1, 0, 0, 0, nullptr}, out = {-1, 0, 0, 0, nullptr};
};

TEST_F(IpcPipe, framesOfAllLengthsComeThroughARealPipe) {
    for (const size_t length :
         {1U, 5U, 119U, 120U, 121U, 998U, 999U, 1000U, 1001U, 4089U, 30000U}) {
        string text(length, 'x');
        text.back() = '$';
        ASSERT_EQ(ipcSend(&out, text.c_str()), static_cast<int32_t>(length));
        ASSERT_EQ(ipcRecv(&in), static_cast<int32_t>(length));
        EXPECT_EQ(in.buffer, text);
    }
}

TEST_F(IpcPipe, fullNonBlockingPipeRefusesAtOnce) {
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const string text(4000, 'x');
    int sent = 0;
    while (ipcSend(&out, text.c_str()) == 4000)
        ++sent;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_GT(sent, 0);
    for (; sent > 0; --sent)
        ASSERT_EQ(ipcRecv(&in), 4000);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    EXPECT_EQ(ipcRecv(&in), -1) << "the refused frame left nothing behind";
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(IpcPipe, lastWritersCloseIsTheEndOfFile) {
    ipcSend(&out, "last");
    close(ends[1]);
    ends[1] = -1;
    EXPECT_EQ(ipcRecv(&in), 4);
    EXPECT_EQ(ipcRecv(&in), 0);
}

TEST_F(IpcPipe, framesOfManyWritersArriveWhole) {
    constexpr int WRITERS = 4, FRAMES = 2000;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < WRITERS; ++writer)
        writers.emplace_back([this, writer] {
            IpcChannel channel = {ends[1], 0, 0, 0, nullptr};
            const string text(static_cast<size_t>(700 + 300 * writer),
                              static_cast<char>('a' + writer));
            for (int frame = 0; frame < FRAMES; ++frame)
                if (ipcSend(&channel, text.c_str()) < 0)
                    ADD_FAILURE() << "send failed";
            free(channel.buffer);
        });
    int received[WRITERS] = {};
    for (int frame = 0; frame < WRITERS * FRAMES; ++frame) {
        const int32_t length = ipcRecv(&in);
        ASSERT_GT(length, 0);
        const int writer = in.buffer[0] - 'a';
        ASSERT_EQ(length, 700 + 300 * writer);
        ASSERT_EQ(strspn(in.buffer, string(1, in.buffer[0]).c_str()), static_cast<size_t>(length));
        ++received[writer];
    }
    for (std::thread &writer : writers)
        writer.join();
    for (const int count : received)
        EXPECT_EQ(count, FRAMES);
}

/* ---- making and probing a FIFO: in children, since umask, clock and signals are the process's
 * ---- */

class IpcInit : public testing::Test {
  protected:
    string makeFifo() {
        EXPECT_EQ(mkfifo(dir.file("pipe").c_str(), 0600), 0);
        return dir.file("pipe");
    }

    TempDir dir;
};

double secondsNow() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void expectNothingPending() {
    EXPECT_EQ(activeCallouts.count, 0);
    EXPECT_EQ(alarm(0), 0U);
}

TEST_F(IpcInit, missingFifoIsMadeWithExactlyTheModesPermissions) {
    expectChildPasses([this] {
        const struct {
            uint32_t mode, permissions;
        } cases[] = {{0600, 0600}, {0666, 0666},           {0777, 0777}, {06644, 06644},
                     {01, 01},     {S_IFDIR | 0622, 0622}, {0200000, 0}};
        umask(027);
        for (const auto &one : cases) {
            struct stat status;
            EXPECT_EQ(ipcInit(dir.file("pipe").c_str(), one.mode), 0) << one.mode;
            EXPECT_EQ(stat(dir.file("pipe").c_str(), &status), 0);
            EXPECT_TRUE(S_ISFIFO(status.st_mode));
            EXPECT_EQ(status.st_mode & 07777U, one.permissions);
            unlink(dir.file("pipe").c_str());
            EXPECT_EQ(umask(027), 027U);
        }
    });
}

TEST_F(IpcInit, refusedCreationRestoresTheUmaskAndKeepsErrno) {
    expectChildPasses([this] {
        umask(027);
        EXPECT_EQ(ipcInit(dir.file("missing/pipe").c_str(), 0600), -1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(umask(027), 027U);
        EXPECT_EQ(symlink("nowhere", dir.file("link").c_str()), 0);
        EXPECT_EQ(ipcInit(dir.file("link").c_str(), 0600), -1);
        EXPECT_EQ(errno, EEXIST);
        EXPECT_EQ(umask(027), 027U);
    });
}

TEST_F(IpcInit, modeZeroMakesNothing) {
    EXPECT_EQ(ipcInit(dir.file("pipe").c_str(), 0), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(access(dir.file("pipe").c_str(), F_OK), 0);
}

TEST_F(IpcInit, whatIsNoFifoIsRefused) {
    const string file = dir.write("file", "text");
    for (const uint32_t mode : {0U, 0600U}) {
        EXPECT_EQ(ipcInit(file.c_str(), mode), -1);
        EXPECT_EQ(errno, EEXIST);
        EXPECT_EQ(ipcInit(dir.path().c_str(), mode), -1);
        EXPECT_EQ(errno, EEXIST);
        EXPECT_EQ(ipcInit((file + "/pipe").c_str(), mode), -1);
        EXPECT_EQ(errno, ENOTDIR);
    }
    EXPECT_EQ(dir.read("file"), "text");
}

TEST_F(IpcInit, nullPathIsRefused) {
    for (const uint32_t mode : {0U, 0600U}) {
        errno = 0;
        EXPECT_EQ(ipcInit(nullptr, mode), -1);
        EXPECT_EQ(errno, EFAULT);
    }
}

TEST_F(IpcInit, fifoIsFoundThroughASymbolicLink) {
    expectChildPasses([this] {
        const string path = makeFifo();
        EXPECT_EQ(symlink("pipe", dir.file("link").c_str()), 0);
        const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        EXPECT_EQ(ipcInit(dir.file("link").c_str(), 0600), -1);
        EXPECT_EQ(errno, EBUSY);
        expectNothingPending();
        close(reader);
    });
}

TEST_F(IpcInit, busyFifoLeavesTheApplicationsOwnTimeout) {
    expectChildPasses([this] {
        const string path = makeFifo();
        const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        const uint32_t sooner = clkTimeout(CLK_NO_FUNCTION, 0, 3);
        EXPECT_EQ(ipcInit(path.c_str(), 0600), -1);
        EXPECT_EQ(errno, EBUSY);
        EXPECT_EQ(activeCallouts.count, 1);
        EXPECT_GE(clkUntimeout(sooner), 0);
        expectNothingPending();
        close(reader);
    });
}

// What the clock's growth does to identifiers must not leave the wait's timeout behind.
TEST_F(IpcInit, clockThatGrowsDuringTheWaitKeepsNoTimeout) {
    expectChildPasses([this] {
        const string path = makeFifo();
        EXPECT_GE(clkUntimeout(clkTimeout(CLK_NO_FUNCTION, 0, 100)), 0); // takes the identifier 0
        sigset_t alarmOnly;
        sigemptyset(&alarmOnly);
        sigaddset(&alarmOnly, SIGALRM);
        std::atomic<bool> done{false};
        std::thread reader([&] {
            for (int32_t pending = 0; pending == 0 && !done; usleep(1000)) {
                pthread_mutex_lock(&clkAccessLock);
                pending = activeCallouts.count;
                pthread_mutex_unlock(&clkAccessLock);
            }
            EXPECT_EQ(clkinit(40), 0);
            pthread_sigmask(SIG_BLOCK, &alarmOnly, nullptr);
            close(open(path.c_str(), O_RDONLY));
        });
        EXPECT_EQ(ipcInit(path.c_str(), 0), -1);
        EXPECT_EQ(errno, EBUSY);
        done = true;
        reader.join();
        EXPECT_EQ(maxcallouts, 40);
        expectNothingPending();
    });
}

TEST_F(IpcInit, readFifoIsBusyAndLeavesNoTimeout) {
    expectChildPasses([this] {
        const string path = makeFifo();
        const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        EXPECT_EQ(ipcInit(path.c_str(), 0600), -1);
        EXPECT_EQ(errno, EBUSY);
        expectNothingPending();
        char byte;
        EXPECT_EQ(read(reader, &byte, 1), 0) << "the probing end is closed again";
        close(reader);
    });
}

TEST_F(IpcInit, readerThatComesWithinTheWaitMakesItBusy) {
    expectChildPasses([this] {
        const string path = makeFifo();
        std::thread reader([&] { close(open(path.c_str(), O_RDONLY)); });
        EXPECT_EQ(ipcInit(path.c_str(), 0), -1);
        EXPECT_EQ(errno, EBUSY);
        reader.join();
        expectNothingPending();
    });
}

// The seconds that the first timeout was queued for, seen by a thread that takes no SIGALRM.
std::thread watchFirstTimeout(std::atomic<uint32_t> &seconds) {
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarmOnly, nullptr);
    std::thread watcher([&seconds] {
        for (int round = 0; round < 2000 && seconds == 0; ++round, usleep(1000)) {
            pthread_mutex_lock(&clkAccessLock);
            if (activeCallouts.head != nullptr)
                seconds = reinterpret_cast<const Callout *>(activeCallouts.head)->increment;
            pthread_mutex_unlock(&clkAccessLock);
        }
    });
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    return watcher;
}

TEST_F(IpcInit, unreadFifoIsFreeAfterFourSeconds) {
    expectChildPasses([this] {
        const string path = makeFifo();
        const double start = secondsNow();
        std::atomic<uint32_t> seconds{0};
        std::thread watcher = watchFirstTimeout(seconds);
        EXPECT_EQ(ipcInit(path.c_str(), 0600), 0);
        EXPECT_GT(secondsNow() - start, 2.9);
        watcher.join();
        EXPECT_EQ(seconds, 4U);
        expectNothingPending();
        EXPECT_EQ(signal(SIGALRM, SIG_DFL), SIG_DFL) << "the clock gave the signal back";
    });
}

// Calls ipcInit on an unread FIFO while another thread interrupts it over and over.
void probeInterrupted(const string &path) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    std::atomic<bool> done{false};
    const pthread_t caller = pthread_self();
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarmOnly, nullptr);
    std::thread interrupter([&] {
        for (; !done; usleep(1000))
            pthread_kill(caller, SIGUSR1);
    });
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    const double start = secondsNow();
    EXPECT_EQ(ipcInit(path.c_str(), 0), 0);
    EXPECT_LT(secondsNow() - start, 2.0);
    done = true;
    interrupter.join();
}

TEST_F(IpcInit, waitEndedByAnotherSignalLeavesNoTimeout) {
    expectChildPasses([this] {
        probeInterrupted(makeFifo());
        expectNothingPending();
    });
}

TEST_F(IpcInit, waitEndedByAnotherSignalLeavesTheApplicationsOwnTimeout) {
    expectChildPasses([this] {
        const uint32_t sooner = clkTimeout(CLK_NO_FUNCTION, 0, 3);
        const uint32_t later = clkTimeout(CLK_NO_FUNCTION, 0, 100);
        probeInterrupted(makeFifo());
        EXPECT_EQ(activeCallouts.count, 2);
        EXPECT_GE(clkUntimeout(sooner), 0);
        EXPECT_GT(clkUntimeout(later), 90);
    });
}

TEST_F(IpcInit, refusedOpenKeepsItsErrnoThroughTheClock) {
    expectChildPasses([this] {
        const string path = makeFifo();
        for (const int error : {EACCES, EMFILE, ENXIO}) {
            openError = error;
            EXPECT_EQ(ipcInit(path.c_str(), 0600), -1);
            EXPECT_EQ(errno, error);
        }
        expectNothingPending();
    });
}

// Where no timeout would come, the answer must not wait for one.
void expectAnswersAtOnce(const string &path) {
    const double start = secondsNow();
    EXPECT_EQ(ipcInit(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_EQ(ipcInit(path.c_str(), 0600), -1);
    EXPECT_EQ(errno, EBUSY);
    close(reader);
    EXPECT_LT(secondsNow() - start, 2.0);
}

TEST_F(IpcInit, fullCalloutTableAnswersAtOnce) {
    expectChildPasses([this] {
        const string path = makeFifo();
        EXPECT_EQ(clkinit(3), 0);
        for (uint32_t id = 0; id < 3; ++id)
            EXPECT_EQ(clkTimeout(CLK_NO_FUNCTION, 0, 1000), id);
        expectAnswersAtOnce(path);
        EXPECT_EQ(activeCallouts.count, 3) << "the application's own stay";
    });
}

TEST_F(IpcInit, heldClockAnswersAtOnce) {
    expectChildPasses([this] {
        const string path = makeFifo();
        EXPECT_EQ(clkHold(), 0);
        expectAnswersAtOnce(path);
        EXPECT_EQ(activeCallouts.count, 0);
        clkRelease();
    });
}

// A hold that another thread is about to begin: whoever asks first waits for its lock.
TEST_F(IpcInit, holdThatBeginsUnderTheClocksLockIsSeen) {
    expectChildPasses(
        [this] {
            const string path = makeFifo();
            std::atomic<bool> locked{false};
            std::thread holder([&] {
                pthread_mutex_lock(&clkAccessLock);
                locked = true;
                usleep(200000);
                EXPECT_EQ(clkHold(), 0);
                pthread_mutex_unlock(&clkAccessLock);
            });
            while (!locked) {
            }
            EXPECT_EQ(ipcInit(path.c_str(), 0600), 0);
            EXPECT_EQ(activeCallouts.count, 0);
            holder.join();
            clkRelease();
        },
        10);
}

} // namespace
