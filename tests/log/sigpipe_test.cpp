/* What a broken pipe must not do to the process of the log client, on a kernel that writes without
   a SIGPIPE where it is asked to, and on one that refuses: the library's call is answered here. */
#include "clientFixture.h"

#include <csignal>
#include <cstring>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <thread>

namespace {

constexpr int TAKEN = -1;  // answered as a kernel that knows the flag does, whatever this one knows
constexpr int PARTLY = -2; // one byte is written
int refusal;               // errno of the answer, or one of these; 0: the kernel's own
int asked;

} // namespace

static ssize_t answer(int fd, const iovec *parts, int count, int flags) {
    ++asked;
    if (refusal == PARTLY)
        return write(fd, parts->iov_base, 1);
    if (refusal == 0 || refusal == TAKEN)
        return syscall(SYS_pwritev2, fd, parts, count, -1L, -1L, refusal == 0 ? flags : 0);
    errno = refusal;
    return -1;
}

// By both names, the second being that of large files on i386.
extern "C" ssize_t pwritev2(int fd, const iovec *parts, int count, off_t, int flags) {
    return answer(fd, parts, count, flags);
}
extern "C" ssize_t pwritev64v2(int fd, const iovec *parts, int count, off64_t, int flags) {
    return answer(fd, parts, count, flags);
}

namespace {

class Sigpipe : public testing::TestWithParam<int> {
  protected:
    void SetUp() override { refusal = GetParam(); }
};

void replacePipe(ClientRoot &root) {
    root.closeReader();
    ASSERT_EQ(unlink(root.pipe().c_str()), 0);
    ASSERT_EQ(mkfifo(root.pipe().c_str(), 0600), 0);
    root.openReader();
}

bool isPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

void block(int signal) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, signal);
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
}

// How often the signal is pending, one each for the thread and the process; takes them.
int takePending(int signal) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, signal);
    const timespec noWait = {0, 0};
    int count = 0;
    while (sigtimedwait(&mask, nullptr, &noWait) == signal)
        ++count;
    return count;
}

void expectBrokenPipe() {
    errno = 0;
    EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
    EXPECT_EQ(errno, ENXIO);
}

TEST_P(Sigpipe, defaultDispositionDoesNotEndTheProcess) {
    withClient([](ClientRoot &root) {
        signal(SIGPIPE, SIG_DFL);
        root.closeReader();
        expectBrokenPipe();
        EXPECT_FALSE(isBlocked(SIGPIPE));
        EXPECT_FALSE(isPending(SIGPIPE));
        EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL);
    });
}

volatile sig_atomic_t caught;

TEST_P(Sigpipe, handlerIsNotCalled) {
    withClient([](ClientRoot &root) {
        struct sigaction action = {}, after = {};
        action.sa_handler = [](int) { caught = caught + 1; };
        action.sa_flags = SA_RESTART;
        sigaction(SIGPIPE, &action, nullptr);
        root.closeReader();
        char body[] = "12";
        expectBrokenPipe();
        EXPECT_EQ(relogCmpMsg(body, 1), nullptr);
        root.openReader();
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        replacePipe(root);
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(caught, 0);
        sigaction(SIGPIPE, nullptr, &after);
        EXPECT_EQ(after.sa_handler, action.sa_handler);
        EXPECT_EQ(after.sa_flags & SA_RESTART, SA_RESTART);
        raise(SIGPIPE);
        EXPECT_EQ(caught, 1) << "the application's own still arrives";
    });
}

TEST_P(Sigpipe, ignoredStaysIgnored) {
    withClient([](ClientRoot &root) {
        signal(SIGPIPE, SIG_IGN);
        root.closeReader();
        expectBrokenPipe();
        EXPECT_FALSE(isPending(SIGPIPE));
        EXPECT_FALSE(isBlocked(SIGPIPE));
        EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_IGN);
    });
}

TEST_P(Sigpipe, blockedStaysBlockedWithNonePending) {
    withClient([](ClientRoot &root) {
        block(SIGPIPE);
        root.closeReader();
        expectBrokenPipe();
        EXPECT_TRUE(isBlocked(SIGPIPE));
        EXPECT_EQ(takePending(SIGPIPE), 0);
    });
}

TEST_P(Sigpipe, pendingForTheThreadStaysPendingOnce) {
    withClient([](ClientRoot &root) {
        block(SIGPIPE);
        raise(SIGPIPE);
        root.closeReader();
        expectBrokenPipe();
        EXPECT_TRUE(isBlocked(SIGPIPE));
        EXPECT_EQ(takePending(SIGPIPE), 1);
    });
}

TEST_P(Sigpipe, pendingForTheProcessStaysPendingOnce) {
    withClient([](ClientRoot &root) {
        block(SIGPIPE);
        kill(getpid(), SIGPIPE);
        root.closeReader();
        expectBrokenPipe();
        EXPECT_EQ(takePending(SIGPIPE), 1);
    });
}

TEST_P(Sigpipe, pendingStaysSoWhenTheRecordIsSent) {
    withClient([](ClientRoot &) {
        block(SIGPIPE);
        raise(SIGPIPE);
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(takePending(SIGPIPE), 1);
    });
}

TEST_P(Sigpipe, otherSignalsStayAsTheyAre) {
    withClient([](ClientRoot &root) {
        block(SIGUSR1);
        raise(SIGUSR1);
        root.closeReader();
        expectBrokenPipe();
        EXPECT_TRUE(isBlocked(SIGUSR1));
        EXPECT_FALSE(isBlocked(SIGUSR2));
        EXPECT_EQ(takePending(SIGUSR1), 1);
    });
}

TEST_P(Sigpipe, maskOfTheLoggingThreadIsItsOwn) {
    withClient([](ClientRoot &root) {
        signal(SIGPIPE, SIG_DFL);
        root.closeReader();
        std::thread([] {
            expectBrokenPipe();
            EXPECT_FALSE(isBlocked(SIGPIPE));
            EXPECT_FALSE(isPending(SIGPIPE));
        }).join();
        EXPECT_FALSE(isBlocked(SIGPIPE));
    });
}

INSTANTIATE_TEST_SUITE_P(Kernel, Sigpipe, testing::Values(0, EOPNOTSUPP, ENOSYS, EPERM, EACCES),
                         [](const testing::TestParamInfo<int> &each) {
                             return each.param == 0 ? "own"s
                                                    : std::string(strerrorname_np(each.param));
                         });

TEST(QuietWrite, aRefusalIsAskedForOnce) {
    refusal = EINVAL;
    withClient([](ClientRoot &root) {
        for (int record = 0; record < 3; ++record)
            EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received().size(), 3U * 31);
        EXPECT_EQ(asked, 1);
    });
}

TEST(QuietWrite, aFullPipeIsNoRefusal) {
    refusal = EAGAIN;
    withClient([](ClientRoot &root) {
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(root.received(), "");
        refusal = TAKEN;
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(asked, 3) << "twice for the first record, the second after opening anew";
    });
}

TEST(QuietWrite, aFailureOfTheWriteIsNoRefusal) {
    withClient([](ClientRoot &root) {
        for (const int error : {ENOMEM, ENOSPC, EFBIG, EDQUOT, EIO}) {
            refusal = error;
            asked = 0;
            EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
            EXPECT_EQ(errno, error);
            EXPECT_EQ(asked, 2) << "one retry, after opening anew";
            EXPECT_EQ(root.received(), "");
        }
    });
}

TEST(QuietWrite, aPartIsSentAnewAndThenGivenUpWithoutAnErrno) {
    refusal = PARTLY;
    withClient([](ClientRoot &root) {
        errno = 77;
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(root.received(), "00");
        EXPECT_EQ(asked, 2);
    });
}

// As long as the kernel takes the flag, a record costs one call and leaves the mask alone.
TEST(QuietWrite, theFlagIsAskedForEachRecordWhereItIsKnown) {
    refusal = TAKEN;
    withClient([](ClientRoot &root) {
        for (int record = 0; record < 3; ++record)
            EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received().size(), 3U * 31);
        EXPECT_EQ(asked, 3);
    });
}

} // namespace
