// Pipes, copies and thread variables, with every call failing in turn.
#include "core/ipcComm.h"
#include "core/mkcopy.h"
#include "core/panic.h"
#include "core/staticObj.h"

#include "faults/sweep.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Pipe {
    int ends[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    std::string drained() const {
        char bytes[4096];
        const ssize_t count = read(ends[0], bytes, sizeof bytes);
        return std::string(bytes, count < 0 ? 0 : static_cast<size_t>(count));
    }
    void fill(const std::string &bytes) const {
        EXPECT_EQ(write(ends[1], bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
};

void copies(Attempt &attempt) {
    char *copy = attempt.under([] { return mkcopy("text"); });
    EXPECT_EQ(shown(copy), attempt.faulted() ? "(null)" : "text");
    freecopy(copy);
}

// ---- sending

void expectSends(const Pipe &pipe, IpcChannel &channel) {
    EXPECT_EQ(ipcSend(&channel, "hello"), 5);
    EXPECT_EQ(pipe.drained(), "005hello");
}

void sends(Attempt &attempt) {
    const Pipe pipe;
    IpcChannel channel = {pipe.ends[1], 0, 0, 0, nullptr};
    const int32_t sent = attempt.under([&] { return ipcSend(&channel, "hello"); });
    EXPECT_EQ(sent, attempt.faulted() ? -1 : 5);
    EXPECT_EQ(attempt.error(), attempt.effect());
    EXPECT_EQ(pipe.drained(), !attempt.faulted()                  ? "005hello"
                              : !attempt.isShort()                ? ""
                              : attempt.effectIs(FAULT_SHORT_ONE) ? "0"
                                                                  : "005h");
    if (attempt.isMemory() && attempt.faulted()) {
        EXPECT_EQ(channel.buffer, nullptr);
        EXPECT_EQ(channel.capacity, 0);
    }
    expectSends(pipe, channel);
    free(channel.buffer);
}

// A growth that fails leaves the old block to its readers.
void sendsMore(Attempt &attempt) {
    const Pipe pipe;
    IpcChannel channel = {pipe.ends[1], 0, 0, 0, nullptr};
    expectSends(pipe, channel);
    char *const old = channel.buffer;
    const std::string longer(500, 'x');
    const int32_t sent = attempt.under([&] { return ipcSend(&channel, longer.c_str()); });
    EXPECT_EQ(sent, attempt.faulted() ? -1 : 500);
    EXPECT_EQ(attempt.error(), attempt.effect());
    EXPECT_EQ(pipe.drained(), attempt.faulted() ? "" : "500" + longer);
    if (attempt.faulted()) {
        EXPECT_EQ(channel.buffer, nullptr);
        EXPECT_STREQ(old, "005hello");
        free(old);
    }
    expectSends(pipe, channel);
    free(channel.buffer);
}

// ---- receiving

// Whether the fault was met where only the memory of what was discarded is at stake.
bool isBesideFrame(const Attempt &attempt) {
    return attempt.isMemory() && !attempt.at("realloc");
}

void expectWhole(const IpcChannel &channel, int32_t received, const std::string &body) {
    EXPECT_EQ(received, static_cast<int32_t>(body.size()));
    EXPECT_EQ(shown(channel.buffer), body);
}

// Receives what stands in a fresh pipe, and again without a fault from another.
void receive(Attempt &attempt, const std::string &frame, const std::string &body,
             void (*check)(const Attempt &attempt, IpcChannel &channel, int32_t received)) {
    const Pipe pipe, another;
    pipe.fill(frame);
    IpcChannel channel = {pipe.ends[0], 0, 0, 0, nullptr};
    const int32_t received = attempt.under([&] { return ipcRecv(&channel); });
    // Where all memory is gone the buffer is refused too.
    const bool isWhole =
        !attempt.faulted() || (isBesideFrame(attempt) && (!attempt.isOnward() || received != -1));
    if (isWhole)
        expectWhole(channel, received, body);
    else
        check(attempt, channel, received);
    another.fill(frame);
    channel.fd = another.ends[0];
    channel.flags = 0;
    const int32_t again = ipcRecv(&channel);
    expectWhole(channel, again, body);
    free(channel.buffer);
}

// A short header is an end within it; of a short body comes what there was; what fails after the
// header leaves it read, and the next call goes on.
void checkCounted(const Attempt &attempt, IpcChannel &channel, int32_t received) {
    if (attempt.isShort()) {
        const bool inHeader = attempt.nth() == 1;
        EXPECT_EQ(received, inHeader ? -1 : attempt.effectIs(FAULT_SHORT_ONE) ? 1 : 2);
        EXPECT_EQ(attempt.error(), inHeader ? EIO : 0);
        EXPECT_STREQ(ipcBadData(43), inHeader ? "0  " : "");
        return;
    }
    EXPECT_EQ(received, -1);
    EXPECT_EQ(attempt.error(), attempt.effect());
    const bool headerStays = attempt.isMemory() || attempt.nth() > 1;
    EXPECT_EQ(channel.flags, headerStays ? 1U : 0U);
    EXPECT_EQ(ipcRecv(&channel), 5) << "nothing was lost";
    EXPECT_STREQ(channel.buffer, "hello");
}

void receives(Attempt &attempt) {
    receive(attempt, "005hello", "hello", checkCounted);
}

// A header of nine bytes in three reads.
void checkLong(const Attempt &attempt, IpcChannel &, int32_t received) {
    if (attempt.isShort() && attempt.nth() == 3) {
        EXPECT_EQ(received, attempt.effectIs(FAULT_SHORT_ONE) ? 1 : 500);
        return;
    }
    EXPECT_EQ(received, -1);
    EXPECT_EQ(attempt.error(), attempt.isShort() ? EIO : attempt.effect());
}

void receivesLong(Attempt &attempt) {
    const std::string body(1000, 'y');
    receive(attempt, "<4>1000" + body, body, checkLong);
}

void checkLine(const Attempt &attempt, IpcChannel &, int32_t received) {
    EXPECT_EQ(received, attempt.isShort() && attempt.nth() > 1 ? 5 : -1);
    if (received == -1) {
        EXPECT_EQ(attempt.error(), attempt.isShort() ? EIO : attempt.effect());
    }
}

void receivesLine(Attempt &attempt) {
    receive(attempt, "   line\n", "line\n", checkLine);
}

// What is discarded costs memory that the frame behind it does not need.
void checkResynchronised(const Attempt &attempt, IpcChannel &, int32_t received) {
    if (attempt.isShort()) {
        EXPECT_TRUE(received == -1 ? attempt.error() == EIO : received < 5) << received;
        return;
    }
    EXPECT_EQ(received, -1);
    EXPECT_EQ(attempt.error(), attempt.effect());
}

void resynchronises(Attempt &attempt) {
    receive(attempt, "junk!\n005hello", "hello", checkResynchronised);
}

void showsDiscarded(Attempt &attempt) {
    const Pipe pipe;
    pipe.fill("junk!\n005hello");
    IpcChannel channel = {pipe.ends[0], 0, 0, 0, nullptr};
    EXPECT_EQ(ipcRecv(&channel), 5);
    const std::string text = attempt.under([] { return ipcBadData(43); });
    // A key that could not be made is made by the store that follows.
    EXPECT_TRUE(text == "k  !  \\n " || (attempt.faulted() && text.empty())) << text;
    EXPECT_TRUE(text.empty() || !attempt.at("calloc"));
    EXPECT_STREQ(ipcBadData(43), "k  !  \\n ");
    free(channel.buffer);
}

// ---- the node

void makesFifo(Attempt &attempt) {
    const TempDir dir;
    const std::string path = dir.file("pipe");
    const int32_t result = attempt.under([&] { return ipcInit(path.c_str(), 0600); });
    EXPECT_EQ(result, attempt.faulted() ? -1 : 0);
    if (attempt.faulted()) {
        EXPECT_EQ(attempt.error(), attempt.effect());
        EXPECT_EQ(ipcInit(path.c_str(), 0600), 0);
    }
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFIFO | 0600));
}

// Without memory no timeout can be had: the answer comes without waiting. A signal ends the wait as
// the timeout would.
void findsReader(Attempt &attempt) {
    const TempDir dir;
    const std::string path = dir.file("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int32_t result = attempt.under([&] { return ipcInit(path.c_str(), 0600); });
    const bool isInterrupted = attempt.at("open") && attempt.effect() == EINTR;
    const bool isSeen = !attempt.faulted() || attempt.isMemory() || attempt.at("close");
    EXPECT_EQ(result, isInterrupted ? 0 : -1);
    EXPECT_EQ(attempt.error(), isSeen ? EBUSY : attempt.effect());
    EXPECT_EQ(ipcInit(path.c_str(), 0600), -1);
    EXPECT_EQ(errno, EBUSY);
    close(reader);
}

// ---- thread variables

StaticObj variable = {nullptr, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};
int value;

void fetches(Attempt &attempt) {
    variable = {nullptr, &value, PTHREAD_MUTEX_INITIALIZER, 0, 0};
    const void *fetched = attempt.under([] { return fetchStaticObj(&variable); });
    EXPECT_EQ(fetched, attempt.faulted() ? nullptr : &value);
    if (attempt.at("pthread_key_create")) {
        EXPECT_EQ(variable.created, 0);
        EXPECT_EQ(fetchStaticObj(&variable), &value) << "the next call tries again";
    }
    pthread_key_delete(variable.key);
}

void stores(Attempt &attempt) {
    variable = {nullptr, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};
    const int error = attempt.under([] { return storeStaticObj(&variable, &value); });
    EXPECT_EQ(error, attempt.effect());
    EXPECT_EQ(fetchStaticObj(&variable), attempt.faulted() ? nullptr : &value);
    EXPECT_EQ(storeStaticObj(&variable, &value), 0);
    EXPECT_EQ(fetchStaticObj(&variable), &value);
    pthread_key_delete(variable.key);
}

const std::vector<Rows> rows = {
    {"mkcopy", Fresh::IN_PLACE, copies, MEMORY},
    {"ipcSend", Fresh::IN_PLACE, sends, MEMORY + CALLS + TRANSFERS},
    {"ipcSend_growing", Fresh::IN_PLACE, sendsMore, MEMORY},
    {"ipcRecv", Fresh::IN_THREAD, receives, MEMORY + CALLS + TRANSFERS},
    {"ipcRecv_longForm", Fresh::IN_THREAD, receivesLong, MEMORY + CALLS + TRANSFERS},
    {"ipcRecv_line", Fresh::IN_THREAD, receivesLine, MEMORY + CALLS + TRANSFERS},
    {"ipcRecv_behindJunk", Fresh::IN_THREAD, resynchronises, MEMORY + CALLS + TRANSFERS},
    {"ipcBadData", Fresh::IN_THREAD, showsDiscarded, MEMORY},
    {"ipcInit_new", Fresh::IN_PLACE, makesFifo, {INTERRUPTED, NO_SPACE, IO_ERROR}},
    {"ipcInit_existing", Fresh::IN_CHILD, findsReader, Kinds{MEMORY_ONCE, INTERRUPTED, IO_ERROR}},
    {"fetchStaticObj", Fresh::IN_PLACE, fetches, MEMORY},
    {"storeStaticObj", Fresh::IN_PLACE, stores, MEMORY},
};

QN_SWEEPS(rows);

// The message may be lost, the abort may not.
TEST(Panic, abortsThoughNothingCanBeWritten) {
    for (int nth = 1; nth <= 2; ++nth) {
        const ChildResult result = runInChild([nth] {
            faultsArm("system", nth, EIO, 1);
            panic("broken");
        });
        EXPECT_EQ(result.signal, SIGABRT);
    }
}

} // namespace
