/* What the clock should hold, as a plain list: each pending callout with its seconds, counted from
   the moment the alarm was last armed. Due are those at 0. The model is told what happens, and what
   the alarm had left; it knows no records, links or increments. */
#ifndef TESTS_CLOCK_DEADLINEMODEL_H
#define TESTS_CLOCK_DEADLINEMODEL_H

#include "clock/clock.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

struct Pending {
    int64_t offset; // seconds to its expiry
    uint32_t id;
    ClkFunction function;
    intptr_t argument;
    int64_t exactly; // the simulated millisecond at which it must run; 0: something came between
};

using PendingList = std::vector<Pending>;

struct Foreign {
    void (*handler)(int) = nullptr;
    uint32_t left = 0;
    uint32_t captured = 0;
};

struct Hold {
    uint32_t left = 0;
    uint32_t start = 0; // 0: not held
};

struct SuspendedModel {
    PendingList list;
    uint32_t left;
    uint32_t start;
    Foreign foreign;
    Hold hold;
    bool installed;
    bool stalled;
    void (*disposition)(int);
};

struct DeadlineModel {
    PendingList list;
    std::vector<SuspendedModel> frames;
    size_t capacity = 0;
    uint32_t nextId = 0;
    Hold hold;
    Foreign foreign;
    bool installed = false; // SIGALRM is the clock's
    bool stalled = false;   // a pause's exchanged kill left callouts without an alarm

    bool held() const { return hold.start != 0; }

    size_t used() const {
        size_t count = list.size();
        for (const SuspendedModel &frame : frames)
            count += frame.list.size();
        return count;
    }

    PendingList::iterator firstTimed() {
        return std::find_if(list.begin(), list.end(),
                            [](const Pending &p) { return p.offset > 0; });
    }

    void disturb() {
        for (Pending &pending : list)
            pending.exactly = 0;
    }

    // Sets the first that is not due to those seconds; the later ones keep their distance to it.
    void retime(int64_t seconds) {
        const auto first = firstTimed();
        if (first == list.end())
            return;
        const int64_t shift = first->offset - seconds;
        for (auto it = first; it != list.end(); ++it)
            it->offset -= shift;
    }

    void retimeDown(int64_t seconds) {
        const auto first = firstTimed();
        if (first != list.end() && first->offset > seconds)
            retime(seconds);
    }

    void alarmCame(uint32_t now) {
        stalled = false;
        const bool someTimed = firstTimed() != list.end();
        retime(0);
        if (held() && someTimed && firstTimed() != list.end())
            hold = {static_cast<uint32_t>(firstTimed()->offset), now};
    }

    void charge(int64_t elapsed) {
        const auto first = firstTimed();
        if (first == list.end())
            return;
        const int64_t kept = first->offset;
        for (auto it = first; it != list.end(); ++it)
            if (kept > elapsed)
                it->offset -= elapsed;
            else
                it->offset = kept + std::max<int64_t>(0, it->offset - elapsed);
    }

    // The ID; none when the table is full.
    std::optional<uint32_t> queue(Pending pending, uint32_t remaining, uint32_t now) {
        if (used() == capacity) {
            disturb();
            if (held() && firstTimed() != list.end())
                hold = {static_cast<uint32_t>(firstTimed()->offset), now};
            if (!held() && firstTimed() != list.end())
                stalled = false;
            return std::nullopt;
        }
        const bool raised = firstTimed() != list.end() && remaining == 0;
        retimeDown(remaining);
        const auto place = std::find_if(list.begin(), list.end(), [&](const Pending &other) {
            return other.offset > pending.offset;
        });
        pending.id = nextId++;
        list.insert(place, pending);
        if (raised)
            disturb();
        else if (firstTimed() != list.end()) {
            stalled = false;
            if (held())
                hold = {static_cast<uint32_t>(firstTimed()->offset), now};
        }
        return pending.id;
    }

    // What a cancel gives; -1 when none matches.
    template<typename Match>
    int64_t cancel(Match matches, uint32_t alarmLeft, uint32_t now) {
        if (list.empty())
            return -1;
        const uint32_t left = held() ? hold.left : alarmLeft;
        const auto first = firstTimed();
        const auto firstIndex = first - list.begin();
        if (first != list.end()) {
            if (left == 0)
                disturb(); // it is due, and the signal raised for it takes the next along
            if (!held())
                stalled = false;
            retime(left);
        }
        const auto match = std::find_if(list.begin(), list.end(), matches);
        if (match == list.end())
            return -1;
        int64_t result = match->offset;
        if (held())
            result = std::max<int64_t>(0, result - static_cast<int32_t>(now - hold.start));
        if (held() && match - list.begin() == firstIndex && hold.left != 0 &&
            match + 1 != list.end())
            hold.left += static_cast<uint32_t>((match + 1)->offset - match->offset);
        list.erase(match);
        if (held() && list.empty())
            hold.left = 0;
        return result;
    }

    // Ends a hold; what the alarm is to be armed with.
    void release(uint32_t now) {
        const uint32_t elapsed = now - hold.start;
        if (elapsed != 0) {
            if (hold.left != 0)
                retimeDown(hold.left);
            charge(elapsed);
        }
        hold = {hold.left > elapsed ? hold.left - elapsed : 0, 0};
    }

    void suspend(uint32_t alarmLeft, uint32_t now, void (*disposition)(int)) {
        disturb();
        frames.push_back({list, alarmLeft, now, foreign, hold, installed, stalled, disposition});
        list.clear();
        foreign = {};
        installed = true;
        stalled = false;
    }

    void unsuspend(uint32_t now) {
        const SuspendedModel frame = frames.back();
        frames.pop_back();
        list = frame.list;
        const uint32_t elapsed = now - frame.start;
        if (elapsed != 0 && frame.hold.start == 0) {
            if (frame.left != 0)
                retimeDown(frame.left);
            charge(elapsed);
        }
        hold = frame.hold;
        foreign = frame.foreign;
        installed = frame.installed;
        stalled = frame.stalled;
    }

    void grow(size_t count) {
        capacity = count;
        for (Pending &pending : list)
            pending.id = 0;
    }
};

#endif
