/* Random sequences of every operation of the clock on the simulated system, nested in callouts too.
   After each step the table is checked for soundness and compared, record by record, with a plain
   list of deadlines; callouts must run in the model's order and, where nothing came between, at
   their very millisecond. The second program of this kind, races_test, lets time pass inside the
   system's calls.

   The seed is printed; the environment variable QN_SEED repeats a run. */
#include "clockCases.h"
#include "deadlineModel.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>

namespace {

constexpr int STEPS = 200000;
constexpr size_t MAX_TABLE = 60;
constexpr uint32_t MAX_DELAY = 40;

unsigned long chooseSeed() {
    const char *given = getenv("QN_SEED");
    const unsigned long seed =
        given != nullptr ? strtoul(given, nullptr, 10) : std::random_device()();
    printf("QN_SEED=%lu\n", seed);
    fflush(stdout);
    return seed;
}

std::mt19937 generator;

uint32_t below(uint32_t limit) {
    return static_cast<uint32_t>(generator() % limit);
}

bool oneIn(uint32_t count) {
    return below(count) == 0;
}

SimulatedSystem *os;
DeadlineModel model;
int64_t granularity; // milliseconds in which time passes
intptr_t lastArgument;
std::vector<bool> handlers; // those under way: whether the alarm was for the model
int ignoredAlarms;          // pending ones that the end of a suspension drops
int64_t strayKillsExpected;

struct Step {
    int64_t time;
    const char *operation;
};
std::vector<Step> history;

void foreignOne(int) {}
void foreignTwo(int) {}
void clocksOwn(int) {} // stands for the clock's handler

bool isForeign(SignalHandler handler) {
    return handler == SIG_DFL || handler == SIG_IGN || handler == foreignOne ||
           handler == foreignTwo;
}

void *runOne(intptr_t argument, uint32_t id);
void *runTwo(intptr_t argument, uint32_t id);

ClkFunction setflagAsCallout() {
    return reinterpret_cast<ClkFunction>(reinterpret_cast<void (*)()>(setflag));
}

bool isSilent(const Pending &pending) {
    return pending.function == CLK_NO_FUNCTION || pending.function == setflagAsCallout();
}

// The clock gave SIGALRM back just now.
void gaveBack() {
    const Foreign foreign = model.foreign;
    model.installed = !isForeign(foreign.handler);
    if (foreign.left == 0) {
        EXPECT_EQ(os->disposition, foreign.handler);
        return;
    }
    model.foreign = {};
    if (model.installed && os->seconds() - foreign.captured >= foreign.left) {
        gaveBack(); // overdue: the clock's own handler was called, and gave it back in its turn
        return;
    }
    EXPECT_EQ(os->disposition, foreign.handler);
    const uint32_t elapsed = os->seconds() - foreign.captured;
    const int64_t rest = elapsed < foreign.left ? (foreign.left - elapsed) * 1000 : 0;
    EXPECT_EQ(os->alarmAt, rest == 0 ? 0 : os->now + rest);
}

void giveBackIfEmpty() {
    if (model.list.empty() && model.installed && !model.held())
        gaveBack();
}

// --- What the clock does ---

void checkTime(const Pending &pending) {
    if (granularity == 1000 && pending.exactly != 0) {
        EXPECT_EQ(os->now, pending.exactly);
    }
}

void dropSilentDue() {
    while (!model.list.empty() && model.list[0].offset == 0 && isSilent(model.list[0])) {
        checkTime(model.list[0]);
        model.list.erase(model.list.begin());
    }
}

void ran(ClkFunction function, intptr_t argument, uint32_t id) {
    dropSilentDue();
    ASSERT_FALSE(model.list.empty()) << "a callout ran that was not pending";
    const Pending first = model.list[0];
    EXPECT_EQ(first.offset, 0) << "a callout ran that was not due";
    EXPECT_EQ(first.function, function);
    EXPECT_EQ(first.argument, argument);
    EXPECT_EQ(first.id, id);
    checkTime(first);
    model.list.erase(model.list.begin());
}

void enterHandler() {
    const bool ofClock = !isForeign(os->disposition);
    const bool ignored = ofClock && ignoredAlarms > 0;
    if (ignored)
        --ignoredAlarms;
    handlers.push_back(ofClock && !ignored);
    if (handlers.back())
        model.alarmCame(os->seconds());
}

void leaveHandler() {
    const bool served = handlers.back();
    handlers.pop_back();
    if (!served)
        return;
    dropSilentDue();
    EXPECT_TRUE(model.list.empty() || model.list[0].offset > 0) << "a due callout did not run";
    giveBackIfEmpty();
}

// --- The operations: the model is told first, then the clock ---

// What the clock does before it takes SIGALRM over.
void deliverPending() {
    os->blocked = false;
    os->deliver();
}

void takeOver() {
    if (model.capacity == 0)
        model.capacity = 20;
    if (isForeign(os->disposition))
        model.foreign = {os->disposition, os->alarmSeconds(), os->seconds()};
    model.installed = true;
}

Pending newPending(uint32_t delay, ClkFunction function, intptr_t argument) {
    const bool exact = delay != 0 && !model.held();
    return {delay, 0, function, argument, exact ? os->now + static_cast<int64_t>(delay) * 1000 : 0};
}

std::optional<uint32_t> queueInModel(uint32_t delay, ClkFunction function, intptr_t argument) {
    if (!model.held()) {
        deliverPending();
        takeOver();
    } else {
        model.disturb();
    }
    const uint32_t remaining = model.held() ? model.hold.left : os->alarmSeconds();
    return model.queue(newPending(delay, function, argument), remaining, os->seconds());
}

void doTimeout() {
    const ClkFunction function = oneIn(2) ? runOne : runTwo;
    const uint32_t delay = oneIn(8) ? 0 : below(MAX_DELAY);
    const intptr_t argument = oneIn(10) ? 1 : ++lastArgument;
    const std::optional<uint32_t> id = queueInModel(delay, function, argument);
    EXPECT_EQ(clkTimeout(function, argument, delay), id.value_or(UINT32_MAX));
    if (!id)
        giveBackIfEmpty();
}

// The application's own handler and, unless the action would end it, an alarm.
void doForeign() {
    if (model.installed || os->pending)
        return;
    const SignalHandler choices[] = {SIG_DFL, SIG_IGN, foreignOne, foreignTwo};
    os->disposition = choices[below(4)];
    os->alarmAt =
        os->disposition == SIG_DFL || oneIn(3) ? 0 : os->now + (1 + below(MAX_DELAY)) * 1000;
}

template<typename Match, typename Cancel>
void doCancel(Match matches, Cancel cancel) {
    const bool empty = model.list.empty();
    const int64_t expected = model.cancel(matches, os->alarmSeconds(), os->seconds());
    EXPECT_EQ(cancel(), expected);
    if (!empty)
        giveBackIfEmpty();
}

void doUntimeout() {
    const bool known = !model.list.empty() && !oneIn(4);
    const uint32_t id = known ? model.list[below(static_cast<uint32_t>(model.list.size()))].id
                              : below(model.nextId + 2);
    doCancel([id](const Pending &p) { return p.id == id; }, [id] { return clkUntimeout(id); });
}

void doKillTimeout() {
    const bool known = !model.list.empty() && !oneIn(4);
    const Pending wanted = known ? model.list[below(static_cast<uint32_t>(model.list.size()))]
                                 : newPending(0, runOne, 1);
    if (isSilent(wanted) && !handlers.empty())
        return; // may be a sleep that is under way
    doCancel(
        [&](const Pending &p) {
            return p.function == wanted.function && p.argument == wanted.argument;
        },
        [&] { return clkKillTimeout(wanted.function, wanted.argument); });
}

void doHold() {
    if (model.held()) {
        EXPECT_EQ(clkHold(), static_cast<int32_t>(model.hold.start));
        return;
    }
    model.disturb();
    const bool first = model.capacity == 0;
    if (first)
        deliverPending(); // to whoever has it
    if (!model.installed && (first || !os->blocked))
        model.foreign = {os->disposition, os->alarmSeconds(), os->seconds()};
    if (!model.installed && !first && os->blocked && os->pending)
        ++ignoredAlarms; // the clock's handler takes it and finds nothing
    model.installed = true;
    if (first)
        model.capacity = 20;
    model.hold = {os->alarmSeconds(), os->seconds()};
    EXPECT_EQ(clkHold(), 0);
    EXPECT_TRUE(os->blocked);
    EXPECT_EQ(ignoredAlarms, 0);
}

void doRelease() {
    if (model.held())
        model.release(os->seconds());
    clkRelease();
}

void interruptSometimes() {
    os->interruptAt =
        oneIn(2) ? os->now + granularity * below(20000 / static_cast<uint32_t>(granularity)) : 0;
}

void doPause() {
    if (!model.held()) {
        EXPECT_EQ(clkPause(), -1);
        return;
    }
    const uint32_t leftBefore = model.hold.left;
    model.release(os->seconds());
    const uint32_t start = os->seconds();
    const bool blockedBefore = os->blocked; // but for a suspension during the hold
    const bool exchanged = leftBefore != 0 && model.hold.left == 0;
    if (exchanged) {
        ++strayKillsExpected;
        model.stalled = true;
    }
    interruptSometimes();
    const int32_t spent = clkPause();
    EXPECT_EQ(static_cast<uint32_t>(spent), os->seconds() - start);
    EXPECT_EQ(os->blocked, blockedBefore);
    os->interruptAt = 0;
}

uint32_t notSlept(uint32_t seconds, uint32_t start) {
    const uint32_t elapsed = os->seconds() - start;
    return elapsed < seconds ? seconds - elapsed : 0;
}

// The records of sleeps hold addresses that only the clock knows: the model learns them.
void learnArgument(const std::optional<uint32_t> &id, ClkFunction function) {
    for (const Callout *record : recordsOf(activeCallouts, "active"))
        for (Pending &pending : model.list)
            if (id && pending.id == *id && record->ID == *id && record->function == function)
                pending.argument = record->argument;
}

void doSleep() {
    const uint32_t seconds = below(MAX_DELAY);
    if (model.held() || seconds == 0) {
        EXPECT_EQ(clkSleep(seconds), seconds);
        return;
    }
    const uint32_t start = os->seconds();
    const std::optional<uint32_t> id = queueInModel(seconds, CLK_NO_FUNCTION, 0);
    if (!id) {
        EXPECT_EQ(clkSleep(seconds), seconds);
        giveBackIfEmpty();
        return;
    }
    interruptSometimes();
    const uint32_t result = clkSleep(seconds);
    EXPECT_EQ(result, notSlept(seconds, start));
    EXPECT_TRUE(os->blocked);
    os->interruptAt = 0;
    learnArgument(id, CLK_NO_FUNCTION);
}

bool inDeepSleep;

void doDeepSleep() {
    const uint32_t seconds = below(MAX_DELAY);
    static int32_t flag;
    int32_t *word = oneIn(3) ? nullptr : &flag;
    if (model.held() || seconds == 0 || inDeepSleep) {
        if (!inDeepSleep) {
            EXPECT_EQ(deepSleep(seconds, word), seconds);
        }
        return;
    }
    const uint32_t start = os->seconds();
    const std::optional<uint32_t> id = queueInModel(seconds, setflagAsCallout(), 0);
    if (!id) {
        EXPECT_EQ(deepSleep(seconds, word), seconds);
        giveBackIfEmpty();
        return;
    }
    inDeepSleep = true;
    bool slept = false;
    os->onCall = [&](const std::string &name) {
        if (!handlers.empty())
            return;
        if (name == "sigpause") {
            slept = true;
            if (word != nullptr && oneIn(8))
                flag = 1; // by the handler of another signal
            interruptSometimes();
        } else if (name == "sigrelse" && slept) {
            slept = false; // the sleep is over: it cancels its own now
            model.cancel([&](const Pending &p) { return p.id == *id; }, os->alarmSeconds(),
                         os->seconds());
        }
    };
    interruptSometimes();
    const uint32_t result = deepSleep(seconds, word);
    os->onCall = nullptr;
    os->interruptAt = 0;
    inDeepSleep = false;
    giveBackIfEmpty();
    EXPECT_EQ(result, notSlept(seconds, start));
    EXPECT_FALSE(os->blocked);
}

void doSuspend() {
    if (model.frames.size() == 5) {
        EXPECT_EQ(suspendTimeouts(), -1);
        return;
    }
    const bool wasBlocked = os->blocked && model.capacity != 0;
    if (model.installed || model.capacity == 0)
        deliverPending();
    else if (os->pending)
        ++ignoredAlarms; // the clock's handler takes it and finds nothing
    if (model.capacity == 0)
        takeOver();
    // Behind a block the application's handler does not show.
    model.suspend(os->alarmSeconds(), os->seconds(),
                  wasBlocked && os->blocked ? clocksOwn : os->disposition);
    const size_t count = model.frames.back().list.size();
    EXPECT_EQ(suspendTimeouts(), static_cast<int32_t>(count));
    EXPECT_EQ(os->alarmAt, 0);
    EXPECT_FALSE(os->blocked);
}

void doUnsuspend() {
    if (model.frames.empty()) {
        EXPECT_EQ(unsuspendTimeouts(), -1);
        return;
    }
    const SignalHandler disposition = model.frames.back().disposition;
    const bool toClock = model.installed || !isForeign(disposition) ||
                         (disposition == SIG_DFL && !isForeign(os->disposition));
    ignoredAlarms = os->pending && toClock ? 1 : 0;
    model.unsuspend(os->seconds());
    const size_t count = model.list.size();
    const int32_t result = unsuspendTimeouts();
    EXPECT_EQ(result, static_cast<int32_t>(count));
    EXPECT_EQ(os->blocked, model.held());
    EXPECT_EQ(ignoredAlarms, 0);
    if (!isForeign(disposition) && model.installed) {
        EXPECT_FALSE(isForeign(os->disposition));
    }
}

void doGrow() {
    const size_t wanted = below(MAX_TABLE) + (oneIn(20) ? 100000 : 0);
    const size_t count = wanted == 0 ? 20 : wanted;
    const bool refused = count < model.capacity || count > 32767 ||
                         (count != model.capacity && !model.frames.empty());
    if (count != model.capacity && !refused) {
        if (!model.held())
            deliverPending();
        if (!model.installed)
            model.foreign = {os->disposition, os->alarmSeconds(), os->seconds()};
        model.installed = true;
        model.grow(count);
    }
    EXPECT_EQ(clkinit(static_cast<int32_t>(wanted)), refused ? -1 : 0);
    if (count == model.capacity && !refused && model.list.empty() && !model.held() &&
        isForeign(os->disposition) && model.installed)
        gaveBack();
}

void doCatchup() {
    const int32_t elapsed = static_cast<int32_t>(below(MAX_DELAY)) - 1;
    const bool done = model.held() && elapsed > 0;
    if (done)
        model.charge(elapsed);
    EXPECT_EQ(clkCatchup(elapsed), done ? 1 : 0);
}

void doSignal() {
    if (!model.installed)
        return;
    model.disturb();
    os->signalArrives();
}

void doAdvance() {
    const uint32_t units = below(15000 / static_cast<uint32_t>(granularity));
    if (os->blocked || os->pending)
        model.disturb();
    os->advance(granularity * units);
}

struct Operation {
    const char *name;
    uint32_t weight;
    void (*perform)();
};

constexpr Operation OPERATIONS[] = {
    {"timeout", 30, doTimeout}, {"advance", 25, doAdvance},    {"untimeout", 10, doUntimeout},
    {"kill", 6, doKillTimeout}, {"hold", 5, doHold},           {"release", 8, doRelease},
    {"pause", 4, doPause},      {"sleep", 3, doSleep},         {"deepSleep", 3, doDeepSleep},
    {"suspend", 3, doSuspend},  {"unsuspend", 4, doUnsuspend}, {"grow", 1, doGrow},
    {"catchup", 2, doCatchup},  {"signal", 2, doSignal},       {"foreign", 5, doForeign},
};

const Operation &chooseOperation() {
    uint32_t total = 0;
    for (const Operation &operation : OPERATIONS)
        total += operation.weight;
    uint32_t choice = below(total);
    for (const Operation &operation : OPERATIONS) {
        if (choice < operation.weight)
            return operation;
        choice -= operation.weight;
    }
    return OPERATIONS[0];
}

// What a callout itself does: mostly nothing.
void actInCallout() {
    if (!oneIn(4))
        return;
    switch (below(5)) {
    case 0:
    case 1:
        doTimeout();
        break;
    case 2:
        doKillTimeout();
        break;
    case 3:
        if (!model.held()) {
            doHold();
            doTimeout();
            doRelease();
        }
        break;
    case 4:
        if (model.frames.size() < 5 && !model.held()) {
            doSuspend();
            doTimeout();
            doUnsuspend();
        }
        break;
    }
}

void *runOne(intptr_t argument, uint32_t id) {
    ran(runOne, argument, id);
    actInCallout();
    return nullptr;
}

void *runTwo(intptr_t argument, uint32_t id) {
    ran(runTwo, argument, id);
    actInCallout();
    return nullptr;
}

// --- After each step ---

void compareList(const ListHeader &header, const PendingList &expected) {
    const std::vector<const Callout *> records = recordsOf(header, "compared");
    ASSERT_EQ(records.size(), expected.size());
    int64_t offset = 0;
    for (size_t i = 0; i < records.size(); ++i) {
        const Callout &record = *records[i];
        const Pending &pending = expected[i];
        offset += record.increment;
        if (offset != pending.offset || record.ID != pending.id ||
            record.function != pending.function ||
            (!isSilent(pending) && record.argument != pending.argument))
            ADD_FAILURE() << "callout " << i << ": ID " << record.ID << " in " << offset
                          << " seconds, expected " << pending.id << " in " << pending.offset;
    }
}

// Every callout's time will come.
void expectAlarm() {
    if (model.held() || model.stalled || os->pending || model.firstTimed() == model.list.end())
        return;
    EXPECT_NE(os->alarmAt, 0) << "callouts wait and no alarm is armed";
}

void compare() {
    tableIsSound();
    EXPECT_EQ(static_cast<size_t>(maxcallouts), model.capacity);
    EXPECT_EQ(static_cast<size_t>(clksptr - suspensions), model.frames.size());
    compareList(activeCallouts, model.list);
    for (size_t i = 0; i < model.frames.size(); ++i)
        compareList(suspensions[i].active, model.frames[i].list);
    EXPECT_EQ(holdInfo.startTime, model.hold.start);
    EXPECT_EQ(holdInfo.secondsLeft, model.hold.left);
    if (model.installed) {
        EXPECT_FALSE(isForeign(os->disposition));
    }
    EXPECT_EQ(os->deaths, 0);
    EXPECT_EQ(os->endlessWaits, 0);
    EXPECT_EQ(static_cast<int64_t>(os->strayKills.size()), strayKillsExpected);
    expectAlarm();
}

void tellHistory() {
    const size_t start = history.size() > 30 ? history.size() - 30 : 0;
    for (size_t i = start; i < history.size(); ++i)
        printf("step %zu, millisecond %lld: %s\n", i, static_cast<long long>(history[i].time),
               history[i].operation);
}

void runSteps(int64_t granularityWanted, int steps) {
    generator.seed(static_cast<std::mt19937::result_type>(chooseSeed()));
    os = &beginSimulation();
    os->onHandler = [](bool entering) { entering ? enterHandler() : leaveHandler(); };
    granularity = granularityWanted;
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        const Operation &operation = chooseOperation();
        history.push_back({os->now, operation.name});
        operation.perform();
        compare();
    }
    if (testing::Test::HasFailure())
        tellHistory();
    os->onHandler = nullptr;
    simulated = nullptr;
}

TEST(Simulation, wholeSecondsFollowTheDeadlinesExactly) {
    expectChildPasses([] { runSteps(1000, STEPS); }, 300);
}

TEST(Simulation, fractionsOfSecondsAreRoundedAsTheAlarmTells) {
    expectChildPasses([] { runSteps(1, STEPS); }, 300);
}

} // namespace
