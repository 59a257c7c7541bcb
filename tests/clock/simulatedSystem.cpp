#include "simulatedSystem.h"

#include <csignal>
#include <ctime>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

SimulatedSystem *simulated;

SimulatedSystem &beginSimulation() {
    static SimulatedSystem system;
    system = {};
    system.now = SIMULATED_START_SECONDS * 1000;
    simulated = &system;
    return system;
}

uint32_t SimulatedSystem::alarmSeconds() const {
    if (alarmAt == 0)
        return 0;
    return static_cast<uint32_t>(std::max<int64_t>(1, (alarmAt - now + 500) / 1000));
}

void SimulatedSystem::deliver() {
    while (pending && !blocked) {
        pending = false;
        if (disposition == SIG_DFL)
            ++deaths;
        else if (disposition != SIG_IGN) {
            blocked = true;
            const SignalHandler handler = disposition;
            if (onHandler)
                onHandler(true);
            handler(SIGALRM);
            if (onHandler)
                onHandler(false);
            blocked = false;
        }
    }
}

void SimulatedSystem::signalArrives() {
    pending = true;
    deliver();
}

void SimulatedSystem::advance(int64_t milliseconds) {
    const int64_t end = now + milliseconds;
    while (alarmAt != 0 && alarmAt <= end) {
        now = std::max(now, alarmAt);
        alarmAt = 0;
        signalArrives();
    }
    now = std::max(now, end);
}

static void called(const char *name) {
    if (simulated->onCall)
        simulated->onCall(name);
}

// Waits with SIGALRM let through; what the mask was comes back.
static void wait(SimulatedSystem &system) {
    const bool blocked = system.blocked;
    system.blocked = false;
    if (system.pending)
        system.deliver();
    else if (system.interruptAt != 0 &&
             (system.alarmAt == 0 || system.interruptAt < system.alarmAt)) {
        system.now = std::max(system.now, system.interruptAt);
        system.interruptAt = 0;
    } else if (system.alarmAt != 0)
        system.advance(std::max<int64_t>(0, system.alarmAt - system.now));
    else
        ++system.endlessWaits;
    system.blocked = blocked;
}

// The system's operations, by the names that the library calls.

extern "C" {

unsigned alarm(unsigned seconds) noexcept {
    if (simulated == nullptr) {
        itimerval wanted = {}, old = {};
        wanted.it_value.tv_sec = static_cast<time_t>(seconds);
        setitimer(ITIMER_REAL, &wanted, &old);
        return static_cast<unsigned>(old.it_value.tv_sec) + (old.it_value.tv_usec > 0 ? 1 : 0);
    }
    const uint32_t left = simulated->alarmSeconds();
    simulated->alarmAt = seconds == 0 ? 0 : simulated->now + static_cast<int64_t>(seconds) * 1000;
    called("alarm");
    return left;
}

time_t time(time_t *result) noexcept {
    timespec real = {};
    if (simulated != nullptr && simulated->onTime)
        simulated->onTime();
    if (simulated == nullptr)
        clock_gettime(CLOCK_REALTIME, &real);
    const time_t now =
        simulated == nullptr ? real.tv_sec : static_cast<time_t>(simulated->now / 1000);
    if (result != nullptr)
        *result = now;
    return now;
}

int kill(pid_t process, int number) noexcept {
    if (simulated == nullptr)
        return static_cast<int>(syscall(SYS_kill, process, number));
    if (process == getpid() && number == SIGALRM) {
        ++simulated->raised;
        simulated->signalArrives();
    } else {
        simulated->strayKills.emplace_back(process, number);
    }
    called("kill");
    return 0;
}

SignalHandler sigset(int, SignalHandler wanted) noexcept {
    const SignalHandler old = simulated->blocked ? SIG_HOLD : simulated->disposition;
    if (wanted == SIG_HOLD) {
        simulated->blocked = true;
    } else {
        simulated->disposition = wanted;
        if (wanted == SIG_IGN)
            simulated->pending = false;
        simulated->blocked = false;
        simulated->deliver();
    }
    called("sigset");
    return old;
}

int sighold(int) noexcept {
    simulated->blocked = true;
    called("sighold");
    return 0;
}

int sigrelse(int) noexcept {
    simulated->blocked = false;
    simulated->deliver();
    called("sigrelse");
    return 0;
}

int sigpause(int) {
    wait(*simulated);
    called("sigpause");
    return -1;
}
}
