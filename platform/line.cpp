#include "line.h"

#include "lineScript.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static constexpr int32_t TIMER_EVENT = 7;
// Longest sleep at one go, for the system's sake; a waiter just looks again after it.
static constexpr LineClock::duration MAX_SLEEP = std::chrono::hours(1);

// Ready before any code runs and never destroyed: signal handlers may come at any time.
static constinit Inbox inbox;
static constinit Bell bell;

// The calling thread, as far as events are shared out among threads. Numbered by ourselves: the
// system gives the identity of an ended thread to a new one.
struct Caller {
    uint32_t number = 0;                // from 1; 0: it never started an action
    const chan_info *channel = nullptr; // where it last did
};
static thread_local Caller caller;

Line &theLine() {
    static Line *const line = new Line;
    return *line;
}

bool postToLine(const chan_info *channel, int32_t code, int32_t subcode) {
    const bool put = inbox.put({LineClock::now(), channel, code, subcode});
    bell.ring();
    return put;
}

Line::Channel &Line::channelOf(const chan_info *channel) {
    Channel &found = channels[channel];
    if (found.number == 0)
        found.number = ++lastNumber;
    return found;
}

void Line::insert(const Pending &event) {
    const auto place =
        std::upper_bound(events.begin(), events.end(), event,
                         [](const Pending &a, const Pending &b) { return a.due < b.due; });
    events.insert(place, event);
}

void Line::schedule(const chan_info *channel, const ScriptBlock &block) {
    const LineClock::time_point now = LineClock::now();
    for (const ScriptedEvent &event : block.events)
        insert({now + std::chrono::milliseconds(event.delay), channel, event.code, event.subcode,
                false});
}

void Line::install(LineScript fresh, bool good) {
    scriptRead = true;
    scriptUsable = good;
    script = std::move(fresh);
    events.clear();
    for (const ScriptBlock &block : script[TRIGGER_OPEN])
        schedule(nullptr, block);
}

void Line::readFirstScript() {
    if (scriptRead)
        return;
    const char *path = getenv(VX_LINE_SCRIPT_VARIABLE);
    LineScript first;
    std::string fault;
    const bool good = path == nullptr || *path == '\0' || readLineScript(path, first, fault);
    if (!good)
        fprintf(stderr, "libvxAPI: %s\n", fault.c_str());
    install(std::move(first), good);
}

void Line::reset(LineScript fresh, bool good) {
    {
        const std::lock_guard lock(guard);
        emptyInbox();
        install(std::move(fresh), good);
    }
    bell.ring();
}

int Line::take(const chan_info *channel, ScriptTrigger trigger, const std::string &action) {
    readFirstScript();
    if (!scriptUsable)
        return 0;
    ScriptBlock block;
    if (!script[trigger].empty()) {
        block = std::move(script[trigger].front());
        script[trigger].pop_front();
    }
    if (block.result != 1)
        return block.result;
    Channel &started = channelOf(channel);
    started.action = action;
    if (caller.number == 0)
        caller.number = ++lastCaller;
    caller.channel = channel;
    started.owner = caller.number;
    schedule(channel, block);
    return 1;
}

int Line::start(const chan_info *channel, ScriptTrigger trigger, const std::string &action) {
    int result;
    {
        const std::lock_guard lock(guard);
        result = take(channel, trigger, action);
    }
    bell.ring();
    return result;
}

int Line::startTimer(const chan_info *channel, int32_t milliseconds, const std::string &action) {
    int result;
    {
        const std::lock_guard lock(guard);
        result = take(channel, TRIGGER_TIMER, action);
        if (result == 1) {
            removeTimer(channel);
            const std::chrono::milliseconds time(std::max(milliseconds, 0));
            insert({LineClock::now() + time, channel, TIMER_EVENT, 0, true});
        }
    }
    bell.ring();
    return result;
}

bool Line::removeTimer(const chan_info *channel) {
    const auto isIts = [=](const Pending &event) {
        return event.timer && event.channel == channel;
    };
    return std::erase_if(events, isIts) > 0;
}

bool Line::cancelTimer(const chan_info *channel, const std::string &action) {
    const std::lock_guard lock(guard);
    channelOf(channel).action = action;
    return removeTimer(channel);
}

void Line::open(const chan_info *channel) {
    const std::lock_guard lock(guard);
    channelOf(channel);
}

void Line::close(const chan_info *channel) {
    const std::lock_guard lock(guard);
    emptyInbox();
    std::erase_if(events, [=](const Pending &event) { return event.channel == channel; });
    channels.erase(channel);
}

void Line::emptyInbox() {
    for (PostedEvent event; inbox.take(event);)
        insert({event.posted, event.channel, event.code, event.subcode, false});
}

bool Line::mayTake(const chan_info *channel) const {
    if (caller.number == 0)
        return true;
    const auto found = channels.find(channel);
    return found == channels.end() || found->second.owner == 0 ||
           found->second.owner == caller.number;
}

std::vector<Line::Pending>::iterator Line::firstForCaller() {
    return std::find_if(events.begin(), events.end(),
                        [this](const Pending &event) { return mayTake(event.channel); });
}

void Line::deliver(const Pending &pending, vx_event &event) {
    event = {};
    event.code = pending.code;
    event.subcode = pending.subcode;
    event.word2 = ++lastSequence;
    const auto its = channels.find(pending.channel == nullptr ? caller.channel : pending.channel);
    if (its == channels.end())
        return;
    event.word0 = its->second.number;
    const std::string &action = its->second.action;
    memcpy(event.reserved, action.c_str(), std::min(action.size(), sizeof event.reserved - 1));
}

void Line::fetch(vx_event &event) {
    for (;;) {
        const uint32_t seen = bell.count();
        LineClock::duration pause = MAX_SLEEP;
        {
            const std::lock_guard lock(guard);
            readFirstScript();
            emptyInbox();
            if (const auto first = firstForCaller(); first != events.end()) {
                pause = std::min(first->due - LineClock::now(), MAX_SLEEP);
                if (pause <= LineClock::duration::zero()) {
                    deliver(*first, event);
                    events.erase(first);
                    return;
                }
            }
        }
        bell.await(seen, pause);
    }
}
