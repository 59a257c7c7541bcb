/* Threads that begin at one moment, and what tells a lost update from a clean exchange. */
#ifndef TESTS_THREADS_TOGETHER_H
#define TESTS_THREADS_TOGETHER_H

#include <barrier>
#include <thread>
#include <vector>

constexpr int THREADS = 4;

// Runs body(0) to body(count - 1), each in a thread of its own; none begins before all are there.
template<typename Body>
void together(const Body &body, int count = THREADS) {
    std::barrier start(count);
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&, number] {
            start.arrive_and_wait();
            body(number);
        });
    for (std::thread &thread : threads)
        thread.join();
}

/* Every thread puts a value of its own into one place, so many times, and is told each time what
   it replaced. Whether each value came out as often as it went in, but for the one that is there in
   the end and the one that was there first. exchange(value) installs and returns the one before;
   value(number) is a thread's own, value(-1) what is there at first and at the end. */
template<typename Exchange, typename Value>
bool exchangesLoseNothing(const Exchange &exchange, const Value &value, int rounds) {
    std::vector<std::vector<int>> returned(THREADS, std::vector<int>(THREADS + 1));
    const auto numberOf = [&](auto found) {
        int number = THREADS - 1;
        while (number >= 0 && value(number) != found)
            --number;
        return number;
    };
    exchange(value(-1));
    together([&](int own) {
        for (int round = 0; round < rounds; ++round)
            ++returned[static_cast<size_t>(own)]
                      [static_cast<size_t>(numberOf(exchange(value(own))) + 1)];
    });
    const int last = numberOf(exchange(value(-1)));
    bool sound = last >= 0;
    for (int number = -1; number < THREADS; ++number) {
        int total = number == last ? 1 : 0;
        for (const std::vector<int> &counts : returned)
            total += counts[static_cast<size_t>(number + 1)];
        sound = sound && total == (number < 0 ? 1 : rounds);
    }
    return sound;
}

#endif
