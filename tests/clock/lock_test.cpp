/* An alarm that arrives while its thread is inside the mutex's own code, about to own it or to give
   it up, where the mutex would make the handler wait for that very thread. */
#include "clockCases.h"

#include "core/ipcComm.h"
#include "support/tempDir.h"

#include <cerrno>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

bool armed;           // the next call raises an alarm in its midst
bool underWay;        // it is there now
int entriesMeanwhile; // the handler asked for the mutex there: on the real one it would hang

int throughAlarm(const char *name, pthread_mutex_t *mutex) {
    using Operation = int (*)(pthread_mutex_t *);
    const auto real = reinterpret_cast<Operation>(dlsym(RTLD_NEXT, name));
    if (mutex == &clkAccessLock && underWay)
        ++entriesMeanwhile;
    if (mutex == &clkAccessLock && armed) {
        armed = false;
        underWay = true;
        simulated->advanceSeconds(5);
        underWay = false;
    }
    return real(mutex);
}

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept {
    return throughAlarm("pthread_mutex_lock", mutex);
}

extern "C" int pthread_mutex_trylock(pthread_mutex_t *mutex) noexcept {
    return throughAlarm("pthread_mutex_trylock", mutex);
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t *mutex) noexcept {
    return throughAlarm("pthread_mutex_unlock", mutex);
}

namespace {

SIMULATED(Lock, alarmWhileItIsTakenRunsRightAfter) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 9);
    armed = true;
    EXPECT_EQ(clkUntimeout(1), 4); // the first has run: the second is next
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(entriesMeanwhile, 0);
}

SIMULATED(Lock, alarmWhileItIsGivenUpRunsRightAfter) {
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 9);
    system.onCall = [](const std::string &name) {
        if (name != "sigrelse") // the last thing that a cancel does before it gives the lock up
            return;
        armed = true;
        simulated->onCall = nullptr;
    };
    clkUntimeout(77);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(entriesMeanwhile, 0);
    EXPECT_FALSE(armed);
}

// The timeout of the wait for a reader is queued under the same lock.
SIMULATED(Lock, alarmWhileAPipeIsProbedRunsRightAfter) {
    const TempDir folder;
    const std::string path = folder.file("pipe");
    EXPECT_EQ(ipcInit(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    clkTimeout(note, 1, 5);
    clkTimeout(note, 2, 90);
    armed = true;
    EXPECT_EQ(ipcInit(path.c_str(), 0600), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(entriesMeanwhile, 0);
    close(reader);
}

// Another thread may pass one on just when this one takes SIGALRM over for its first timeout.
SIMULATED(Lock, alarmPassedOnWhileSigalrmIsTakenOverLeavesItTheClocks) {
    system.onTime = [] {
        if (simulated->disposition == SIG_DFL)
            return;
        simulated->onTime = nullptr;
        simulated->signalArrives();
    };
    clkTimeout(note, 1, 5);
    EXPECT_FALSE(system.onTime) << "none was passed on";
    EXPECT_NE(system.disposition, SIG_DFL);
    system.advanceSeconds(5);
    EXPECT_EQ(calls, (Arguments{1}));
    EXPECT_EQ(system.deaths, 0);
}

} // namespace
