/* The three operations call by call. This program replaces the platform's operations, as any
   application may, with ones that play a list of events and write down every call; a list that runs
   out before the operation returns ends the process. */
#include "dialer/dialer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct Event {
    int32_t code, subcode;
};

struct Platform {
    std::string calls; // each call, in order, followed by a blank
    std::deque<Event> events;
    int startResult = 1;
    int checkResult = 1;
    int cancelResult = 0;
    bool uniqueFails = false;        // ensureUnique gives null
    bool uniqueRefuses = false;      // ensureUnique gives back what it was asked about
    bool traceReplacesEvent = false; // event_trace puts (11, 0) into the record
    vx_event *record = nullptr;      // the one record of the running operation
    std::vector<char> dialled;       // what vxDial was given, terminator included
    void *trace = nullptr;
    int32_t level = 0;
};

Platform platform;
chan_info *const CHANNEL = reinterpret_cast<chan_info *>(&platform);

std::string name(const chan_info *channel) {
    return channel == CHANNEL ? "channel" : "?";
}

void note(const std::string &call) {
    platform.calls += call + " ";
}

} // namespace

int vxDial(chan_info *channel, int32_t mode, const char *number) {
    note("dial(" + name(channel) + "," + std::to_string(mode) + "," + number + ")");
    platform.dialled.assign(number, number + strlen(number) + 1);
    return platform.startResult;
}

int vxStartTimer(chan_info *channel, int32_t milliseconds, int32_t third, int32_t fourth) {
    note("start(" + name(channel) + "," + std::to_string(milliseconds) + "," +
         std::to_string(third) + "," + std::to_string(fourth) + ")");
    return platform.startResult;
}

int vxCancelTimer(chan_info *channel, int32_t second) {
    note("cancel(" + name(channel) + "," + std::to_string(second) + ")");
    return platform.cancelResult;
}

int vxWCheck(vx_event *event) {
    if (platform.events.empty()) {
        fprintf(stderr, "waits for ever after: %s\n", platform.calls.c_str());
        abort();
    }
    if (platform.record == nullptr) {
        const vx_event zeroed = {};
        EXPECT_EQ(memcmp(event, &zeroed, sizeof zeroed), 0) << "the first record was not zeroed";
        platform.record = event;
    }
    EXPECT_EQ(event, platform.record);
    int32_t words[4] = {0x11111111, platform.events.front().code, 0x22222222,
                        platform.events.front().subcode};
    memcpy(static_cast<void *>(event), words, sizeof words);
    note("check");
    platform.events.pop_front();
    return platform.checkResult;
}

void event_trace(vx_event *event, std::ofstream &trace, int32_t level) {
    EXPECT_EQ(event, platform.record);
    note("trace(" + std::to_string(event->code) + "," + std::to_string(event->subcode) + ")");
    platform.trace = &trace;
    platform.level = level;
    if (platform.traceReplacesEvent) {
        event->code = 11;
        event->subcode = 0;
    }
}

namespace stdComponents {

// The real one unless told otherwise, after writing down how it was asked.
StringRep *String::ensureUnique(StringRep *asked, uint32_t room, bool grow, int32_t extra) {
    note("unique(" + std::to_string(room) + "," + std::to_string(grow) + "," +
         std::to_string(extra) + ")");
    if (platform.uniqueFails || platform.uniqueRefuses)
        return platform.uniqueFails ? nullptr : asked;
    using Function = StringRep *(*)(StringRep *, uint32_t, bool, int32_t);
    static const Function real = reinterpret_cast<Function>(
        dlsym(RTLD_NEXT, "_ZN13stdComponents6String12ensureUniqueEPNS_9StringRepEjbi"));
    return real(asked, room, grow, extra);
}

} // namespace stdComponents

namespace {

using stdComponents::String;

constexpr int32_t LEVEL = -77;

enum Operation { DELAY, DIAL, DIALTONE };

struct Outcome {
    int32_t status;
    std::string calls;
    int32_t seconds; // of QN_delay, after the call
};

Outcome run(Operation operation, std::deque<Event> events, int32_t seconds = 3) {
    std::ofstream trace;
    platform.calls.clear();
    platform.events = std::move(events);
    platform.record = nullptr;
    platform.trace = nullptr;
    int32_t status = 0;
    switch (operation) {
    case DELAY:
        status = QN_delay(CHANNEL, seconds, trace, LEVEL);
        break;
    case DIAL:
        status = QN_dial(CHANNEL, String("5551234"), trace, LEVEL);
        break;
    case DIALTONE:
        status = QN_wait4dialtone(CHANNEL, seconds, trace, LEVEL);
        break;
    }
    if (platform.trace != nullptr) {
        EXPECT_EQ(platform.trace, &trace);
        EXPECT_EQ(platform.level, LEVEL);
    }
    return {status, platform.calls, seconds};
}

class Dialer : public testing::Test {
  protected:
    void SetUp() override { platform = {}; }
};

// An event that ends each operation for certain, without a cancel, and its status.
constexpr Event LAST = {38, 4711};
constexpr int32_t LAST_STATUS = -2;

constexpr int32_t WAITS = 1000; // in the tables below: the operation keeps waiting

struct Row {
    int32_t code, subcode, status;
    bool cancel;
};

// Runs the operation on the row's event, with an event that ends it behind, and compares every
// call.
void expectRow(Operation operation, const Row &row) {
    SCOPED_TRACE("operation " + std::to_string(operation) + " event " + std::to_string(row.code) +
                 " sub-code " + std::to_string(row.subcode));
    const std::string start =
        operation == DIAL ? "unique(8,1,0) dial(channel,0,5551234) " : "start(channel,3000,0,0) ";
    std::string calls = start + "check trace(" + std::to_string(row.code) + "," +
                        std::to_string(row.subcode) + ") ";
    if (row.cancel)
        calls += "cancel(channel,0) ";
    if (row.status == WAITS)
        calls += "check trace(38,4711) ";
    const Outcome outcome = run(operation, {{row.code, row.subcode}, LAST});
    EXPECT_EQ(outcome.status, row.status == WAITS ? LAST_STATUS : row.status);
    EXPECT_EQ(outcome.calls, calls);
    EXPECT_EQ(outcome.seconds, operation == DELAY && row.status == 0 ? 0 : 3);
}

// Sub-codes that no table names.
constexpr int32_t OTHER_SUBCODES[] = {0,  1,  5,  7,   9,     31,        33,       37,
                                      39, -1, -8, 264, 65568, INT32_MAX, INT32_MIN};

TEST_F(Dialer, delayReactsAsItsTableSays) {
    for (const Row &row : {Row{7, 0, 0, false}, Row{7, 8, 0, false}, Row{7, INT32_MIN, 0, false},
                           Row{12, 0, -11, true}, Row{34, 8, -11, true}, Row{54, 32, -11, true},
                           Row{38, 0, -2, false}, Row{38, 8, -2, false}, Row{65, 8, WAITS, false},
                           Row{65, 32, WAITS, false}, Row{65, 38, WAITS, false}})
        expectRow(DELAY, row);
    for (const int32_t subcode : OTHER_SUBCODES)
        expectRow(DELAY, {65, subcode, -11, true});
}

TEST_F(Dialer, dialReactsAsItsTableSaysAndNeverCancels) {
    for (const Row &row :
         {Row{11, 0, 0, false}, Row{11, 65, 0, false}, Row{12, 0, -11, false},
          Row{34, 8, -11, false}, Row{54, 32, -11, false}, Row{38, 0, -2, false},
          Row{65, 8, WAITS, false}, Row{65, 32, WAITS, false}, Row{65, 38, WAITS, false}})
        expectRow(DIAL, row);
    for (const int32_t subcode : OTHER_SUBCODES)
        expectRow(DIAL, {65, subcode, -11, false});
}

TEST_F(Dialer, dialtoneReactsAsItsTableSays) {
    for (const Row &row : {Row{4, 32, WAITS, false}, Row{4, 8, 0, true}, Row{4, 38, 0, true},
                           Row{7, 0, -5, false}, Row{7, 8, -5, false}, Row{12, 0, -11, true},
                           Row{34, 8, -11, true}, Row{54, 32, -11, true}, Row{38, 0, -2, false},
                           Row{65, 32, WAITS, false}, Row{65, 8, 0, true}, Row{65, 38, 0, true}})
        expectRow(DIALTONE, row);
    for (const int32_t subcode : OTHER_SUBCODES) {
        expectRow(DIALTONE, {4, subcode, -3, true});
        expectRow(DIALTONE, {65, subcode, -11, true});
    }
}

TEST_F(Dialer, everyOtherCodeIsTracedAndIgnored) {
    const struct {
        Operation operation;
        std::vector<int32_t> known;
    } operations[] = {{DELAY, {7, 12, 34, 38, 54, 65}},
                      {DIAL, {11, 12, 34, 38, 54, 65}},
                      {DIALTONE, {4, 7, 12, 34, 38, 54, 65}}};
    for (const auto &[operation, known] : operations) {
        std::vector<int32_t> codes = {INT32_MIN, -65,   -38,     -1,       1000,
                                      263,       65543, 0x10007, INT32_MAX};
        for (int32_t code = 0; code <= 70; ++code)
            codes.push_back(code);
        for (const int32_t code : codes)
            if (std::find(known.begin(), known.end(), code) == known.end())
                for (const int32_t subcode : {0, 5, 8, 32, 38})
                    expectRow(operation, {code, subcode, WAITS, false});
    }
}

TEST_F(Dialer, waitsThroughAnyNumberOfIgnoredEvents) {
    std::deque<Event> events(10000, Event{65, 32});
    events.push_back({7, 0});
    EXPECT_EQ(run(DELAY, events).status, 0);
    EXPECT_TRUE(platform.events.empty());
}

TEST_F(Dialer, anyStartResultButOneIsRefusedWithNothingFetchedTracedOrCancelled) {
    for (const int result : {0, 2, -1, 257, 65537, INT32_MAX, INT32_MIN}) {
        platform.startResult = result;
        const Outcome delay = run(DELAY, {{7, 0}});
        EXPECT_EQ(delay.status, -1);
        EXPECT_EQ(delay.calls, "start(channel,3000,0,0) ");
        EXPECT_EQ(delay.seconds, 3);
        const Outcome dial = run(DIAL, {{11, 0}});
        EXPECT_EQ(dial.status, -1);
        EXPECT_EQ(dial.calls, "unique(8,1,0) dial(channel,0,5551234) ");
        const Outcome dialtone = run(DIALTONE, {{4, 8}});
        EXPECT_EQ(dialtone.status, -1);
        EXPECT_EQ(dialtone.calls, "start(channel,3000,0,0) ");
    }
}

TEST_F(Dialer, resultOfFetchingIsIgnored) {
    for (const int result : {0, -1, 42}) {
        platform.checkResult = result;
        EXPECT_EQ(run(DIAL, {{11, 0}}).status, 0);
    }
}

TEST_F(Dialer, resultOfCancellingIsIgnored) {
    for (const int result : {1, -1, 42}) {
        platform.cancelResult = result;
        const Outcome delay = run(DELAY, {{12, 0}});
        EXPECT_EQ(delay.status, -11);
        EXPECT_EQ(delay.calls, "start(channel,3000,0,0) check trace(12,0) cancel(channel,0) ");
        const Outcome dialtone = run(DIALTONE, {{4, 8}});
        EXPECT_EQ(dialtone.status, 0);
        EXPECT_EQ(dialtone.calls, "start(channel,3000,0,0) check trace(4,8) cancel(channel,0) ");
    }
}

TEST_F(Dialer, eventIsReadAfterTheTraceReturned) {
    platform.traceReplacesEvent = true;
    EXPECT_EQ(run(DIAL, {{12, 5}}).status, 0);
}

TEST_F(Dialer, millisecondsWrapInThirtyTwoBits) {
    const struct {
        int32_t seconds;
        const char *start;
    } rows[] = {{0, "start(channel,0,0,0) "},
                {-1, "start(channel,-1000,0,0) "},
                {2147483, "start(channel,2147483000,0,0) "},
                {2147484, "start(channel,-2147483296,0,0) "},
                {4294968, "start(channel,704,0,0) "},
                {INT32_MAX, "start(channel,-1000,0,0) "},
                {INT32_MIN, "start(channel,0,0,0) "}};
    for (const auto &row : rows)
        for (const Operation operation : {DELAY, DIALTONE}) {
            const Outcome outcome = run(operation, {{38, 0}}, row.seconds);
            EXPECT_EQ(outcome.calls, std::string(row.start) + "check trace(38,0) ");
            EXPECT_EQ(outcome.seconds, row.seconds);
        }
}

TEST_F(Dialer, nullChannelIsPassedOn) {
    std::ofstream trace;
    platform.events = {{11, 0}};
    EXPECT_EQ(QN_dial(nullptr, String("1"), trace, 0), 0);
    EXPECT_EQ(platform.calls, "unique(2,1,0) dial(?,0,1) check trace(11,0) ");
}

// Dials the string and returns how.
std::string callsOfDialling(const String &number) {
    std::ofstream trace;
    platform.calls.clear();
    platform.record = nullptr;
    platform.events = {{11, 0}};
    EXPECT_EQ(QN_dial(CHANNEL, number, trace, 0), 0);
    return platform.calls;
}

TEST_F(Dialer, fullNumberIsRegrownByOneBeforeItIsTerminated) {
    const String number("5551234");
    ASSERT_EQ(number.capacity(), 7U);
    number.rep->chars[7] = 'X';
    EXPECT_EQ(callsOfDialling(number), "unique(8,1,0) dial(channel,0,5551234) check trace(11,0) ");
    EXPECT_EQ(number.length(), 7U);
    EXPECT_EQ(number.capacity(), 8U);
    EXPECT_STREQ(number.chars(), "5551234");
}

TEST_F(Dialer, numberWithRoomIsTerminatedInPlace) {
    const String number("55512345");
    number.rep->length = 7;
    stdComponents::StringRep *before = number.rep;
    EXPECT_EQ(callsOfDialling(number), "dial(channel,0,5551234) check trace(11,0) ");
    EXPECT_EQ(number.rep, before);
    EXPECT_EQ(number.rep->chars[7], '\0');
}

// Without a representation of its own: kept, only a full number is regrown.
TEST_F(Dialer, sharedNumberWithRoomIsTerminatedForBothItsStrings) {
    const String number("55512345");
    number.rep->length = 7;
    const String copy(number);
    ASSERT_EQ(number.rep, copy.rep);
    EXPECT_EQ(callsOfDialling(number), "dial(channel,0,5551234) check trace(11,0) ");
    EXPECT_EQ(number.rep, copy.rep);
    EXPECT_EQ(copy.rep->owners, 2U);
    EXPECT_EQ(copy.rep->chars[7], '\0');
}

TEST_F(Dialer, numberThatCannotBeRegrownIsRefusedUndialled) {
    const String number("5551234");
    stdComponents::StringRep *before = number.rep;
    std::ofstream trace;
    platform.uniqueFails = true;
    EXPECT_EQ(QN_dial(CHANNEL, number, trace, 0), -1);
    EXPECT_EQ(platform.calls, "unique(8,1,0) ");
    EXPECT_EQ(number.rep, before);
    EXPECT_EQ(number.length(), 7U);
}

// The platform's string owns one writable byte more than its capacity.
TEST_F(Dialer, unchangedRepresentationIsTerminatedBehindItsCapacity) {
    const String number("5551234");
    stdComponents::StringRep *before = number.rep;
    number.rep->chars[7] = 'X';
    platform.uniqueRefuses = true;
    EXPECT_EQ(callsOfDialling(number), "unique(8,1,0) dial(channel,0,5551234) check trace(11,0) ");
    EXPECT_EQ(number.rep, before);
    EXPECT_EQ(number.capacity(), 7U);
    EXPECT_EQ(number.rep->chars[7], '\0');
}

TEST_F(Dialer, lengthBeyondTheCapacityIsRegrownToo) {
    const String number("5551234");
    number.rep->capacity = 5;
    EXPECT_EQ(callsOfDialling(number), "unique(8,1,0) dial(channel,0,5551234) check trace(11,0) ");
    EXPECT_EQ(number.capacity(), 8U);
}

TEST_F(Dialer, emptyNumberIsTerminatedAndDialled) {
    const String number;
    number.rep->chars[0] = 'X';
    EXPECT_EQ(callsOfDialling(number), "dial(channel,0,) check trace(11,0) ");
    EXPECT_EQ(number.rep->chars[0], '\0');
}

TEST_F(Dialer, copyOfADialledNumberKeepsItsOwnRepresentation) {
    const String number("5551234");
    const String copy(number);
    callsOfDialling(number);
    EXPECT_NE(number.rep, copy.rep);
    EXPECT_EQ(copy.capacity(), 7U);
    EXPECT_STREQ(copy.chars(), "5551234");
    EXPECT_EQ(copy.rep->owners, 1U);
    EXPECT_EQ(number.rep->owners, 1U);
}

TEST_F(Dialer, numberIsReadOnlyUpToItsLengthOnlyAfterTermination) {
    const String number("5551234999");
    number.rep->length = 3;
    callsOfDialling(number);
    EXPECT_EQ(platform.dialled, (std::vector<char>{'5', '5', '5', '\0'}));
}

} // namespace
