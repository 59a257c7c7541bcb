/* Records taken apart: the worked record field by field, tables of what is refused and where, cuts
   at every byte, and what the keep flags keep. Cases that expand run in a child, since settings and
   time zone belong to the process. */
#include "log/logMsg.h"

#include "records.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <malloc.h>
#include <memory>
#include <random>
#include <thread>

namespace {

struct Release {
    void operator()(LogMsg *msg) const { freeLogMsg(msg); }
};
using Parsed = std::unique_ptr<LogMsg, Release>;

// The text is parsed in a block of its own size and must come back as it was.
Parsed parse(const std::string &text, uint32_t flags = 0, int wantExpansion = 0) {
    char *copy = strdup(text.c_str());
    Parsed msg(parseCmpLogEnhanced(copy, wantExpansion, flags));
    EXPECT_STREQ(copy, text.c_str());
    free(copy);
    return msg;
}

std::string record(const std::string &afterTime) {
    return std::string("12 \x1c"
                       "35A0B1C2D") +
           afterTime;
}

TEST(ParseCmpLg, workedRecordFieldByField) {
    const std::string text = record("prog f.c:40\x1c"
                                    "a\x1c\x1d");
    const Parsed msg = parse(text);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->record, text);
    EXPECT_EQ(msg->index, 12);
    EXPECT_EQ(msg->priority, 3);
    EXPECT_EQ(msg->time, 0x5A0B1C2D);
    EXPECT_STREQ(msg->producer, "prog");
    EXPECT_STREQ(msg->file, "f.c");
    EXPECT_EQ(msg->line, 40);
    ASSERT_EQ(msg->argCount, 2);
    EXPECT_STREQ(msg->args[0].value, "a");
    EXPECT_STREQ(msg->args[1].value, "");
    EXPECT_EQ(msg->args[0].spare, nullptr);
    EXPECT_EQ(msg->args[1].spare, nullptr);
    EXPECT_EQ(msg->expansion, nullptr);
    for (const char *spare :
         {msg->spare1, msg->spare2, msg->spare3, msg->spare4, msg->spare5, msg->spare6})
        EXPECT_EQ(spare, nullptr);
}

TEST(ParseCmpLg, brokenDownTimeIsLocal) {
    expectChildPasses([] {
        setenv("TZ", "XST-2", 1);
        const Parsed msg = parse(record("prog f.c:40\x1d"));
        ASSERT_NE(msg, nullptr);
        EXPECT_EQ(msg->tm.tm_year, 117);
        EXPECT_EQ(msg->tm.tm_mon, 10);
        EXPECT_EQ(msg->tm.tm_mday, 14);
        EXPECT_EQ(msg->tm.tm_hour, 18);
        EXPECT_EQ(msg->tm.tm_min, 39);
        EXPECT_EQ(msg->tm.tm_sec, 9);
        EXPECT_EQ(msg->tm.tm_wday, 2);
        EXPECT_EQ(msg->tm.tm_yday, 317);
        EXPECT_EQ(msg->tm.tm_gmtoff, 7200);
        EXPECT_STREQ(msg->tm.tm_zone, "XST");
    });
}

TEST(ParseCmpLg, timeIsSigned32Bits) {
    expectChildPasses([] {
        setenv("TZ", "UTC0", 1);
        const Parsed msg = parse("1\x1c"
                                 "0FFFFFFFFp f:1\x1d");
        ASSERT_NE(msg, nullptr);
        EXPECT_EQ(msg->time, -1);
        EXPECT_EQ(msg->tm.tm_year, 69);
        EXPECT_EQ(msg->tm.tm_sec, 59);
    });
}

TEST(ParseCmpLg, nullTextIsRefused) {
    EXPECT_EQ(parseCmpLog(nullptr, 1), nullptr);
    EXPECT_EQ(parseCmpLogEnhanced(nullptr, 1, PARSE_KEEP_TEXT | PARSE_KEEP_COMMENTS), nullptr);
}

TEST(ParseCmpLg, freeingNullIsHarmless) {
    freeLogMsg(nullptr);
}

TEST(ParseCmpLg, freeingReleasesEverySpare) {
    Parsed msg = parse(record("prog f.c:40\x1c"
                              "a\x1d")); // the leak checker judges
    ASSERT_NE(msg, nullptr);
    char **const spares[] = {&msg->spare1, &msg->spare2, &msg->spare3,    &msg->spare4,
                             &msg->spare5, &msg->spare6, &msg->expansion, &msg->args[0].spare};
    for (char **spare : spares)
        *spare = strdup("spare");
}

struct Fields {
    const char *name;
    std::string afterTime;
    const char *producer, *file;
    int32_t line;
    std::vector<std::string> arguments;
};

const Fields accepted[] = {
    {"lineEndsInGs", "p f:7\x1d", "p", "f", 7, {}},
    {"noLineDigits", "p f:\x1c\x1d", "p", "f", 0, {""}},
    {"manyBlanksAfterProducer", "p \t\n f:7\x1d", "p", "f", 7, {}},
    {"emptyProducer", " f:7\x1d", "", "f", 7, {}},
    {"emptyFile", "p :7\x1d", "p", "", 7, {}},
    {"fileWithBlanksAndPath", "p ../a b/f.c:7\x1d", "p", "../a b/f.c", 7, {}},
    {"gsInTheProducerDoesNotStopIt", "p\x1dq f:7\x1d", "p\x1dq", "f", 7, {}},
    {"gsInTheFileDoesNotStopIt", "p f\x1d:7\x1d", "p", "f\x1d", 7, {}},
    {"ninthHexDigitInTheProducer", "Ebay f:7\x1d", "Ebay", "f", 7, {}},
    {"bytesAbove0x7F", "\xE9\xFF \xA0:7\x1c\xFF\x1d", "\xE9\xFF", "\xA0", 7, {"\xFF"}},
    {"largestLine", "p f:2147483647\x1d", "p", "f", 2147483647, {}},
    {"overlongLineIsClamped", "p f:99999999999999999999999\x1d", "p", "f", 2147483647, {}},
    {"nothingIsReadBehindGs",
     "p f:7\x1c"
     "a\x1d"
     "b\x1d",
     "p",
     "f",
     7,
     {"a"}},
    {"unterminatedTailIsDropped",
     "p f:7\x1c"
     "a\x1c"
     "b\x1c"
     "tail",
     "p",
     "f",
     7,
     {"a", "b"}},
    {"onlyAnUnterminatedTail",
     "p f:7\x1c"
     "tail",
     "p",
     "f",
     7,
     {}},
    {"argumentsKeepBlanksAndLineFeeds",
     "p f:7\x1c"
     " a\nb \x1c:\x1d",
     "p",
     "f",
     7,
     {" a\nb ", ":"}},
};

class Accepted : public testing::TestWithParam<Fields> {};

TEST_P(Accepted, givesItsFields) {
    const Fields &fields = GetParam();
    const Parsed msg = parse(record(fields.afterTime));
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->index, 12);
    EXPECT_STREQ(msg->producer, fields.producer);
    EXPECT_STREQ(msg->file, fields.file);
    EXPECT_EQ(msg->line, fields.line);
    ASSERT_EQ(msg->argCount, static_cast<int32_t>(fields.arguments.size()));
    EXPECT_EQ(msg->args == nullptr, fields.arguments.empty());
    for (size_t i = 0; i < fields.arguments.size(); ++i)
        EXPECT_EQ(msg->args[i].value, fields.arguments[i]);
}

INSTANTIATE_TEST_SUITE_P(ParseCmpLg, Accepted, testing::ValuesIn(accepted),
                         [](const auto &one) { return std::string(one.param.name); });

struct Fault {
    const char *name;
    std::string afterTime;
    const char *producer, *file; // what stays of a kept text
};

const Fault faults[] = {
    {"nothingAfterTheTime", "", nullptr, nullptr},
    {"producerEndsInFs",
     "p\x1c"
     "f:7\x1d",
     nullptr, nullptr},
    {"fsInTheProducer", std::string("p\x1c") + "q f:7\x1d", nullptr, nullptr},
    {"producerEndsTheText", "prog", nullptr, nullptr},
    {"noFile", "p ", "p", nullptr},
    {"fsBeforeTheColon", "p f\x1c:7\x1d", "p", nullptr},
    {"noColon", "p f 7\x1d", "p", nullptr},
    {"blankAfterTheLine", "p f:7 \x1d", "p", "f"},
    {"letterInTheLine", "p f:7a\x1d", "p", "f"},
    {"signBeforeTheLine", "p f:-7\x1d", "p", "f"},
    {"textEndsAfterTheLine", "p f:7", "p", "f"},
};

class Faults : public testing::TestWithParam<Fault> {};

TEST_P(Faults, areRefusedOrKeptAsText) {
    const Fault &fault = GetParam();
    const std::string text = record(fault.afterTime);
    EXPECT_EQ(parse(text), nullptr);
    EXPECT_EQ(parse(text, PARSE_KEEP_COMMENTS), nullptr);
    const Parsed msg = parse(text, PARSE_KEEP_TEXT);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->record, text);
    EXPECT_EQ(msg->index, -1);
    EXPECT_EQ(msg->priority, 3);
    EXPECT_EQ(msg->time, 0x5A0B1C2D);
    EXPECT_EQ(msg->tm.tm_year, 117);
    EXPECT_STREQ(msg->producer, fault.producer);
    EXPECT_STREQ(msg->file, fault.file);
    EXPECT_EQ(msg->argCount, 0);
    EXPECT_EQ(msg->expansion, nullptr);
}

INSTANTIATE_TEST_SUITE_P(ParseCmpLg, Faults, testing::ValuesIn(faults),
                         [](const auto &one) { return std::string(one.param.name); });

TEST(ParseCmpLg, shortTimeIsKeptWithIndexZero) {
    const std::string text = "12 \x1c"
                             "35A0B1C prog f.c:40\x1d";
    EXPECT_EQ(parse(text), nullptr);
    const Parsed msg = parse(text, PARSE_KEEP_TEXT);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->index, 0);
    EXPECT_EQ(msg->priority, 3);
    EXPECT_EQ(msg->time, 0);
    EXPECT_EQ(msg->producer, nullptr);
}

TEST(ParseCmpLg, indexBeyond31BitsIsTextThatKeepsItsIndex) {
    const std::string text = "4294967291\x1c"
                             "35A0B1C2Dprog f.c:40\x1d";
    EXPECT_EQ(parse(text), nullptr);
    const Parsed msg = parse(text, PARSE_KEEP_TEXT);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->index, -5);
}

TEST(ParseCmpLg, everyCutIsRefusedOrDropsTheTail) {
    const std::string text = record("prog f.c:40\x1c"
                                    "a\x1c"
                                    "b\x1d");
    const size_t line = text.find(":40") + 3;
    for (size_t length = 0; length < text.size(); ++length) {
        const Parsed msg = parse(text.substr(0, length));
        EXPECT_EQ(msg != nullptr, length > line) << length;
        if (msg != nullptr) {
            EXPECT_EQ(msg->argCount, length > line + 2 ? 1 : 0) << length;
        }
        EXPECT_NE(parse(text.substr(0, length), PARSE_KEEP_TEXT), nullptr) << length;
    }
}

TEST(ParseCmpLg, manyArgumentsGrowPastEveryBlock) {
    std::vector<std::string> arguments;
    for (int i = 0; i < 1000; ++i)
        arguments.push_back(std::to_string(i));
    const Parsed msg = parse(recordOf(1, 2, arguments));
    ASSERT_NE(msg, nullptr);
    ASSERT_EQ(msg->argCount, 1000);
    for (size_t i = 0; i < arguments.size(); ++i)
        EXPECT_EQ(msg->args[i].value, arguments[i]);
}

// Editors of records append arguments where there is room: the block is that of an array, which
// has slots by tens.
TEST(ParseCmpLg, roomBehindTheArgumentsIsThatOfTheArraysSteps) {
    const std::pair<int32_t, int32_t> rows[] = {{1, 10}, {9, 10}, {10, 10}, {11, 20}};
    for (const auto &[count, room] : rows) {
        const Parsed msg = parse(recordOf(1, 2, std::vector<std::string>(size_t(count), "a")));
        ASSERT_NE(msg, nullptr);
        ASSERT_EQ(msg->argCount, count);
        ASSERT_GE(malloc_usable_size(msg->args), size_t(room) * sizeof(LogMsgArg)) << count;
        for (int32_t behind = count; behind < room; ++behind) {
            EXPECT_EQ(msg->args[behind].value, nullptr) << count;
            EXPECT_EQ(msg->args[behind].spare, nullptr) << count;
        }
    }
}

TEST(ParseCmpLg, plainParserRefusesCommentsAndText) {
    for (const char *line : {"# comment", "  # comment", " \t", "text", "", "  text"}) {
        char *copy = strdup(line);
        EXPECT_EQ(parseCmpLog(copy, 1), nullptr) << line;
        free(copy);
    }
}

TEST(ParseCmpLg, commentsAreKeptOnlyOnTheirFlag) {
    for (const char *line : {"# comment\x01", " # comment", " \t"}) {
        EXPECT_EQ(parse(line, PARSE_KEEP_TEXT), nullptr);
        const Parsed plain = parse(line, PARSE_KEEP_COMMENTS);
        ASSERT_NE(plain, nullptr);
        EXPECT_EQ(plain->index, -2);
        EXPECT_EQ(plain->expansion, nullptr);
        const Parsed shown = parse(line, PARSE_KEEP_COMMENTS, 1);
        EXPECT_STREQ(shown->expansion, line);
    }
}

TEST(ParseCmpLg, textExpandsVisiblyWithNamesAndWhiteSpace) {
    const Parsed msg = parse("a b\x1c\n", PARSE_KEEP_TEXT, 1);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->index, -1);
    EXPECT_STREQ(msg->expansion, "a<SP>b<FS><NL>");
}

TEST(ParseCmpLg, expansionIsACopyOnlyWhereAsked) {
    withTexts({{12, "said %s"}}, [] {
        chgExpansionFmt("%M");
        std::string text = recordOf(12, 3, {"x"});
        Parsed msg(parseCmpLog(text.data(), 1));
        ASSERT_NE(msg, nullptr);
        EXPECT_STREQ(msg->expansion, "said x");
        expanded(recordOf(12, 3, {"other"}));
        EXPECT_STREQ(msg->expansion, "said x");
        EXPECT_EQ(Parsed(parseCmpLog(text.data(), 0))->expansion, nullptr);
    });
}

TEST(ParseCmpLg, failedExpansionLeavesNone) {
    withTexts({{12, "no slot"}}, [] {
        std::string text = recordOf(12, 3, {"x"});
        const Parsed msg(parseCmpLog(text.data(), 1));
        ASSERT_NE(msg, nullptr);
        EXPECT_EQ(msg->expansion, nullptr);
    });
}

TEST(ParseCmpLg, malformedRecordExpandsVisibly) {
    const Parsed msg = parse(record("prog f.c 40\x1d"), PARSE_KEEP_TEXT, 1);
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(msg->index, -1);
    EXPECT_STREQ(msg->producer, "prog");
    EXPECT_STREQ(msg->expansion, "12<SP><FS>35A0B1C2Dprog<SP>f.c<SP>40<GS>");
}

TEST(ParseCmpLg, bothKeepFlagsExpandEachInItsWay) {
    withTexts({{12, "said %s"}}, [] {
        chgExpansionFmt("%M");
        const uint32_t both = PARSE_KEEP_TEXT | PARSE_KEEP_COMMENTS;
        EXPECT_STREQ(parse("a b", both, 1)->expansion, "a<SP>b");
        EXPECT_STREQ(parse("# a b", both, 1)->expansion, "# a b");
        EXPECT_STREQ(parse(recordOf(12, 3, {"x"}), both, 1)->expansion, "said x");
    });
}

struct Swept {
    const char *name;
    std::string text;
    uint32_t flags;
    int wantExpansion;
};

const Swept swept[] = {
    {"record", recordOf(12, 3, {"a", "", "c"}), 0, 0},
    {"recordThatWouldBeKept", recordOf(12, 3, {"a", "", "c"}), PARSE_KEEP_TEXT, 0},
    {"malformed", record("prog f.c 40\x1d"), PARSE_KEEP_TEXT, 1},
    {"text", "free text", PARSE_KEEP_TEXT, 1},
    {"comment", "# comment", PARSE_KEEP_COMMENTS, 1},
};

class Exhausted : public testing::TestWithParam<Swept> {};

// A fresh process for each number of granted allocations, as the arrays' table stays.
TEST_P(Exhausted, memoryGivesTheWholeRecordOrNone) {
    const Swept &one = GetParam();
    for (int n = 0; n <= 20; ++n)
        expectChildPasses([&] {
            std::string text = one.text;
            LogMsg *cut;
            {
                const FailingAlloc fails(n);
                cut = parseCmpLogEnhanced(text.data(), one.wantExpansion, one.flags);
            }
            const Parsed msg(cut);
            EXPECT_FALSE(n == 0 && msg != nullptr);
            EXPECT_FALSE(n == 20 && msg == nullptr);
            if (msg == nullptr)
                return;
            const Parsed whole = parse(one.text, one.flags, one.wantExpansion);
            EXPECT_EQ(msg->index, whole->index);
            EXPECT_STREQ(msg->record, whole->record);
            EXPECT_STREQ(msg->producer, whole->producer);
            EXPECT_STREQ(msg->file, whole->file);
            EXPECT_STREQ(msg->expansion, whole->expansion);
            ASSERT_EQ(msg->argCount, whole->argCount);
            for (int32_t i = 0; i < whole->argCount; ++i)
                EXPECT_STREQ(msg->args[i].value, whole->args[i].value);
        });
}

INSTANTIATE_TEST_SUITE_P(ParseCmpLg, Exhausted, testing::ValuesIn(swept),
                         [](const auto &one) { return std::string(one.param.name); });

// Parses a record of one second over and over; how often its broken-down time was another's.
int strangeTimes(const std::string &time, int second) {
    int strange = 0;
    std::string text = recordOf(1, 2, {}, time);
    for (int i = 0; i < 20000; ++i) {
        const Parsed msg(parseCmpLog(text.data(), 0));
        strange += msg == nullptr || msg->tm.tm_sec != second || msg->tm.tm_year != 70;
    }
    return strange;
}

TEST(ParseCmpLg, threadsDoNotShareABrokenDownTime) {
    expectChildPasses([] {
        setenv("TZ", "UTC0", 1);
        int strange = -1;
        std::thread other([&] { strange = strangeTimes("00000002", 2); });
        EXPECT_EQ(strangeTimes("00000001", 1), 0);
        other.join();
        EXPECT_EQ(strange, 0);
    });
}

TEST(ParseCmpLg, timeZoneChangedMeanwhileIsSeen) {
    expectChildPasses([] {
        setenv("TZ", "UTC0", 1);
        EXPECT_EQ(parse(record("p f:1\x1d"))->tm.tm_hour, 16);
        setenv("TZ", "XST-2", 1);
        EXPECT_EQ(parse(record("p f:1\x1d"))->tm.tm_hour, 18);
    });
}

std::string shownTime(const struct tm &tm) {
    char text[200];
    snprintf(text, sizeof text, "%d %d %d %d %d %d %d %d %d %ld %s", tm.tm_sec, tm.tm_min,
             tm.tm_hour, tm.tm_mday, tm.tm_mon, tm.tm_year, tm.tm_wday, tm.tm_yday, tm.tm_isdst,
             tm.tm_gmtoff, tm.tm_zone);
    return text;
}

void setZone(const char *zone) {
    if (zone == nullptr)
        unsetenv("TZ");
    else
        setenv("TZ", zone, 1);
}

// Few seconds and few zones, so that both come again, in every order; between two records the
// process looks at the time of another zone.
TEST(ParseCmpLg, brokenDownTimesAreThoseOfLocaltime) {
    expectChildPasses([] {
        const std::string longName = "<" + std::string(70, 'L') + ">-3";
        const char *const zones[] = {nullptr,
                                     "",
                                     "UTC0",
                                     "Europe/Berlin",
                                     ":UTC",
                                     "XST-2",
                                     "America/Denver",
                                     longName.c_str(),
                                     "XST",
                                     "XST-2:0",
                                     "AAA5BBB,J60/0:01,J60/1:02"};
        std::mt19937 random(1);
        std::vector<int32_t> times = {0, -1, INT32_MIN, INT32_MAX, 5061600, 5061660};
        while (times.size() < 12)
            times.push_back(static_cast<int32_t>(random()));
        for (int round = 0; round < 5000; ++round) {
            setZone(zones[random() % std::size(zones)]);
            if (random() % 4 == 0)
                tzset();
            setZone(zones[random() % std::size(zones)]);
            const int32_t seconds = times[random() % times.size()];
            const Parsed msg = parse(recordOf(1, 2, {}, hexTime(seconds)));
            ASSERT_NE(msg, nullptr);
            const time_t time = seconds;
            ASSERT_EQ(shownTime(msg->tm), shownTime(*localtime(&time))) << getenv("TZ");
        }
    });
}

// A zone's file, in the first version of its format: from one second on so many seconds are added,
// and the zone has the other name, or still the first.
std::string zoneFile(uint32_t change, uint32_t added = 3600, char isSummer = 0, char nameAt = 4) {
    std::string file = "TZif" + std::string(16, '\0');
    const auto put = [&](uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            file += static_cast<char>(value >> shift & 0xFF);
    };
    for (const uint32_t count : {0U, 0U, 0U, 1U, 2U, 8U}) // changes, kinds of time, bytes of names
        put(count);
    put(change);
    file += '\1'; // the kind from then on
    put(0);
    file += std::string("\0\0", 2);
    put(added);
    file += {isSummer, nameAt};
    return file + std::string("AAA\0BBB\0", 8);
}

void expectLocaltimeAround(const std::string &zone, int32_t change) {
    setenv("TZ", zone.c_str(), 1);
    for (int step = -300; step <= 300; ++step) {
        const int32_t seconds = change + (step <= 0 ? step + 150 : 150 - step);
        const Parsed msg = parse(recordOf(1, 2, {}, hexTime(seconds)));
        ASSERT_NE(msg, nullptr);
        const time_t time = seconds;
        ASSERT_EQ(shownTime(msg->tm), shownTime(*localtime(&time))) << zone << " " << seconds;
    }
}

// Second by second, forward and back, over the changes of a zone: to summer time and back, by rules
// made up to change twice in a minute, in the middle of one, over a leap second, and at the range's
// ends.
TEST(ParseCmpLg, everySecondAroundAChangeIsThatOfLocaltime) {
    expectChildPasses([] {
        expectLocaltimeAround("Europe/Berlin", 1711846800);
        expectLocaltimeAround("Europe/Berlin", 1729990800);
        expectLocaltimeAround("CET-1CEST", 1711846800);
        expectLocaltimeAround("AAA5BBB,J60/0:01:10,J60/1:01:40", 5115700);
        expectLocaltimeAround("Europe/Amsterdam", -1025741972);
        expectLocaltimeAround("Africa/Monrovia", 63593070);
        expectLocaltimeAround("right/UTC", 1483228826);
        expectLocaltimeAround("UTC0", INT32_MAX - 151);
        expectLocaltimeAround("UTC0", INT32_MIN + 151);
        const TempDir dir;
        const std::string zone = ":" + dir.write("zone", zoneFile(1000000017));
        expectLocaltimeAround(zone, 1000000017);
        const time_t changed = 1000000017;
        EXPECT_EQ(shownTime(*localtime(&changed)), "57 46 2 9 8 101 0 251 0 3600 BBB");
    });
}

// Each changes, within a minute, the second, the day, the month, the year, or alone whether it is
// summer time, and the name.
TEST(ParseCmpLg, changeOfAnyPartWithinAMinuteIsThatOfLocaltime) {
    constexpr uint32_t DAY = 86400;
    const struct {
        uint32_t added;
        char isSummer, nameAt;
        const char *atTheChange;
    } rows[] = {{30, 0, 4, "27 47 1 9 8 101 0 251 0 30 BBB"},
                {DAY, 0, 4, "57 46 1 10 8 101 1 252 0 86400 BBB"},
                {30 * DAY, 0, 4, "57 46 1 9 9 101 2 281 0 2592000 BBB"},
                {365 * DAY, 0, 4, "57 46 1 9 8 102 1 251 0 31536000 BBB"},
                {0, 1, 0, "57 46 1 9 8 101 0 251 1 0 AAA"},
                {0, 0, 4, "57 46 1 9 8 101 0 251 0 0 BBB"}};
    for (const auto &row : rows)
        expectChildPasses([&] {
            const TempDir dir;
            const std::string file = zoneFile(1000000017, row.added, row.isSummer, row.nameAt);
            expectLocaltimeAround(":" + dir.write("zone", file), 1000000017);
            const time_t changed = 1000000017;
            EXPECT_EQ(shownTime(*localtime(&changed)), row.atTheChange);
        });
}

} // namespace
