/* A process with one alarm, in place of the system's: alarm, time, kill, sigset, sighold, sigrelse
   and sigpause of the whole test program, the library included, work on it once it has begun (and
   on the real system before). Time stands still but for advance, for waiting in sigpause and for
   what a case does in the callback. Only SIGALRM exists, and any other signal that ends a wait. */
#ifndef TESTS_CLOCK_SIMULATEDSYSTEM_H
#define TESTS_CLOCK_SIMULATEDSYSTEM_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using SignalHandler = void (*)(int);

struct SimulatedSystem {
    int64_t now = 0;         // milliseconds
    int64_t alarmAt = 0;     // when the alarm expires; 0: not armed
    int64_t interruptAt = 0; // when another signal ends a wait; 0: never
    bool blocked = false;    // SIGALRM is held back,
    bool pending = false;    // and one waits
    SignalHandler disposition = nullptr;
    int raised = 0;                                  // kill(own process, SIGALRM)
    int deaths = 0;                                  // SIGALRM met its default action
    int endlessWaits = 0;                            // nothing would have ended a wait
    std::vector<std::pair<int, int>> strayKills;     // any other kill
    std::function<void(const std::string &)> onCall; // after each call, with its name
    std::function<void()> onTime;                    // when the time is asked for
    std::function<void(bool)> onHandler; // before (true) and after (false) a handler runs

    // Lets the time pass, delivering the alarm when it expires.
    void advance(int64_t milliseconds);
    void advanceSeconds(int64_t seconds) { advance(seconds * 1000); }
    // What alarm(0) would return; rounds as the system does.
    uint32_t alarmSeconds() const;
    uint32_t seconds() const { return static_cast<uint32_t>(now / 1000); }
    // SIGALRM from outside.
    void signalArrives();
    void deliver();
};

extern SimulatedSystem *simulated; // null: the real system

constexpr int64_t SIMULATED_START_SECONDS = 1000000000;

// Begins with time() at SIMULATED_START_SECONDS and SIGALRM at its default.
SimulatedSystem &beginSimulation();

#endif
