/* An alarm that a thread without the lock passes on while the lock's owner takes the last callout
   away: it must not meet the application's handler, nor the default action, which would end the
   process. Real threads and signals; the thread is held up inside its kill. */
#include "clock/clock.h"

#include "support/childProcess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <ctime>
#include <functional>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<bool> holdsUp;  // the next kill is held up
std::atomic<bool> isHeldUp; // it has come that far
std::atomic<bool> goesOn;   // it may be sent

void pauseMilliseconds(long milliseconds) {
    const timespec pause = {0, milliseconds * 1000000};
    nanosleep(&pause, nullptr);
}

// While the sender is waited for, this time passes; it decides nothing where it is not.
void waitAWhile() {
    for (int step = 0; step < 30 && !goesOn; ++step)
        pauseMilliseconds(10);
}

bool passesOneOn; // the next sighold returns when another thread has passed an alarm on

void passOneOn() {
    std::thread([] {
        sigset_t alarmOnly;
        sigemptyset(&alarmOnly);
        sigaddset(&alarmOnly, SIGALRM);
        pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
        pthread_kill(pthread_self(), SIGALRM);
    }).detach(); // it waits for the lock of who starts it
    sigset_t pending;
    do
        sigpending(&pending);
    while (sigismember(&pending, SIGALRM) == 0);
}

} // namespace

extern "C" int sighold(int number) noexcept {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, number);
    const int result = sigprocmask(SIG_BLOCK, &mask, nullptr);
    if (passesOneOn) {
        passesOneOn = false;
        passOneOn();
    }
    return result;
}

extern "C" int kill(pid_t process, int number) noexcept {
    if (number == SIGALRM && holdsUp.exchange(false)) {
        isHeldUp = true;
        waitAWhile();
    }
    return static_cast<int>(syscall(SYS_kill, process, number));
}

namespace {

void *nothing(intptr_t, uint32_t) {
    return nullptr;
}

int foreignAlarms;

void endWhileAnAlarmIsPassedOn(const std::function<void(uint32_t id)> &end) {
    pthread_mutex_lock(&clkAccessLock);
    const uint32_t id = clkTimeout(nothing, 1, 1000);
    holdsUp = true;
    std::thread other([] { pthread_kill(pthread_self(), SIGALRM); });
    while (!isHeldUp)
        pauseMilliseconds(1);
    end(id);
    goesOn = true;
    pthread_mutex_unlock(&clkAccessLock);
    other.join();
    pauseMilliseconds(20);
}

void cancelWhileAnAlarmIsPassedOn() {
    endWhileAnAlarmIsPassedOn([](uint32_t id) { clkUntimeout(id); });
}

TEST(PassOn, aLateAlarmDoesNotMeetTheDefaultAction) {
    expectChildPasses([] {
        cancelWhileAnAlarmIsPassedOn();
        struct sigaction now = {};
        sigaction(SIGALRM, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL);
    });
}

TEST(PassOn, aLateAlarmDoesNotMeetTheApplicationsHandler) {
    expectChildPasses([] {
        signal(SIGALRM, [](int) { ++foreignAlarms; });
        cancelWhileAnAlarmIsPassedOn();
        EXPECT_EQ(foreignAlarms, 0);
        raise(SIGALRM);
        EXPECT_EQ(foreignAlarms, 1) << "the application's own still arrives";
    });
}

TEST(PassOn, aLateAlarmDoesNotMeetWhatASuspensionPutsBack) {
    expectChildPasses([] {
        clkinit(8); // else the suspension finds the signal the clock's already
        EXPECT_EQ(suspendTimeouts(), 0);
        endWhileAnAlarmIsPassedOn([](uint32_t) { unsuspendTimeouts(); });
        struct sigaction now = {};
        sigaction(SIGALRM, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL);
    });
}

// The last callout has run, and SIGALRM is blocked until it is given back: an alarm that is passed
// on just then is pending, and would be met by what it is given back to.
TEST(PassOn, anAlarmThatIsPendingIsDiscarded) {
    expectChildPasses([] {
        clkTimeout(
            [](intptr_t, uint32_t) -> void * {
                passesOneOn = true;
                return nullptr;
            },
            1, 1000);
        raise(SIGALRM);
        EXPECT_FALSE(passesOneOn) << "none was passed on";
        struct sigaction now = {};
        sigaction(SIGALRM, nullptr, &now);
        EXPECT_EQ(now.sa_handler, SIG_DFL);
    });
}

} // namespace
