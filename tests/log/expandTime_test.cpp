/* The time directives, through the expansion: each on fixed times in UTC, the week rule on days at
   its edges, and the exported names. */
#include "log/timeDefs.h"

#include "records.h"

#include <gtest/gtest.h>

#include <ctime>
#include <random>

namespace {

int32_t utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    struct tm t = {};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = minute;
    t.tm_sec = second;
    return static_cast<int32_t>(timegm(&t));
}

std::string timeAs(const std::string &layout, int32_t seconds) {
    return expandedAs("%T(" + layout + ")", recordOf(0, 2, {}, hexTime(seconds)));
}

struct Directive {
    const char *layout;
    const char *expected; // on Tuesday, 14 November 2017, 16:39:09 UTC
};

const Directive directives[] = {
    {"%A", "Tuesday"},
    {"%a", "Tue"},
    {"%B", "November"},
    {"%b", "Nov"},
    {"%h", "Nov"},
    {"%C", "Tue Nov 14 16:39:09 2017\n"},
    {"%c", "Tue Nov 14 16:39:09 2017\n"},
    {"%D", "11/14/17"},
    {"%d", "14"},
    {"%e", "14"},
    {"%H", "16"},
    {"%I", "04"},
    {"%j", "318"},
    {"%M", "39"},
    {"%m", "11"},
    {"%n", "\n"},
    {"%p", "PM"},
    {"%R", "16:39"},
    {"%r", "04:39:09 PM"},
    {"%S", "09"},
    {"%T", "16:39:09"},
    {"%t", "\t"},
    {"%u", "5a0b1c2d"},
    {"%w", "2"},
    {"%Y", "2017"},
    {"%y", "17"},
    {"%Z", "UTC"},
    {"%%", "%"},
    {"%Q", "Q"},
    {"at %H h\\n", "at 16 h\\n"},
    {"%", ""},
    {"", ""},
};

TEST(ExpandTime, eachDirectiveOnTheSampleTime) {
    withTexts({{0, ""}}, [] {
        for (const Directive &directive : directives)
            EXPECT_EQ(timeAs(directive.layout, SAMPLE_SECONDS), directive.expected)
                << directive.layout;
    });
}

TEST(ExpandTime, numbersArePaddedToTheirWidth) {
    withTexts({{0, ""}}, [] {
        const int32_t time = utc(2005, 1, 2, 3, 4, 5);
        EXPECT_EQ(timeAs("%d|%e|%H|%I|%j|%M|%m|%S|%y|%Y|%D|%R|%T", time),
                  "02| 2|03|03|002|04|01|05|05|2005|01/02/05|03:04|03:04:05");
    });
}

struct Hour {
    int hour;
    const char *expected; // of %I%p, %r
};

const Hour hours[] = {
    {0, "12AM 00:30:00 AM"},  {1, "01AM 01:30:00 AM"},  {11, "11AM 11:30:00 AM"},
    {12, "12PM 00:30:00 AM"}, {13, "01PM 01:30:00 PM"}, {23, "11PM 11:30:00 PM"},
};

TEST(ExpandTime, twelveHourClocksDisagreeAtNoon) {
    withTexts({{0, ""}}, [] {
        for (const Hour &hour : hours)
            EXPECT_EQ(timeAs("%I%p %r", utc(2017, 11, 14, hour.hour, 30)), hour.expected)
                << hour.hour;
        EXPECT_EQ(timeAs("%r", utc(2017, 11, 14, 12)), "00:00:00 AM");
    });
}

struct Week {
    int year, month, day;
    const char *expected; // of %U %W
};

// By hand: d is the day of the year (from 0) less the weekday; for %W one more, or less 6 on a
// Sunday.
const Week weeks[] = {
    {2014, 1, 1, "01 01"},   // Wednesday: d -3 and -2
    {2015, 1, 1, "52 01"},   // Thursday: d -4 and -3
    {2016, 1, 1, "52 52"},   // Friday: d -5 and -4
    {2011, 1, 1, "52 52"},   // Saturday: d -6 and -5
    {2012, 1, 1, "01 52"},   // Sunday: d 0 and -6
    {2013, 1, 1, "01 01"},   // Tuesday: d -2 and -1
    {2018, 1, 1, "01 01"},   // Monday: d -1 and 0
    {2014, 1, 5, "02 01"},   // Sunday, day 4: d 4 (r 4) and -2
    {2013, 1, 6, "02 01"},   // Sunday, day 5: d 5 and -1
    {2018, 1, 7, "03 01"},   // Sunday, day 6: d 6 (w 1, r 6) and 0
    {2012, 1, 8, "02 01"},   // Sunday, day 7: d 7 (w 1, r 0) and 1 (w 0, r 1)
    {2017, 11, 14, "46 46"}, // Tuesday, day 317: d 315 (w 45, r 0) and 316 (w 45, r 1)
};

TEST(ExpandTime, weeksFollowTheirOwnRule) {
    withTexts({{0, ""}}, [] {
        for (const Week &week : weeks)
            EXPECT_EQ(timeAs("%U %W", utc(week.year, week.month, week.day)), week.expected)
                << week.year << "-" << week.month << "-" << week.day;
    });
}

TEST(ExpandTime, weekdaysAndMonthsByName) {
    withTexts({{0, ""}}, [] {
        EXPECT_EQ(timeAs("%A %a %w %B %b", utc(2012, 1, 1)), "Sunday Sun 0 January Jan");
        EXPECT_EQ(timeAs("%A %a %w %B %b", utc(2011, 12, 31)), "Saturday Sat 6 December Dec");
        EXPECT_EQ(timeAs("%j", utc(2012, 12, 31)), "366");
    });
}

TEST(ExpandTime, negativeTimeHasEightHexDigits) {
    withTexts({{0, ""}}, [] {
        EXPECT_EQ(timeAs("%u %Y %y", -1), "ffffffff 1969 69");
        EXPECT_EQ(timeAs("%u", 0x1F), "0000001f");
        EXPECT_EQ(timeAs("%Y %y", INT32_MIN), "1901 01");
    });
}

TEST(ExpandTime, plainTimeIsCtimeWithoutItsLineFeed) {
    withTexts({{0, ""}}, [] {
        EXPECT_EQ(expandedAs("%T|", recordOf(0, 2, {}, hexTime(utc(2005, 1, 2, 3, 4, 5)))),
                  "Sun Jan  2 03:04:05 2005|");
    });
}

TEST(ExpandTime, zoneUpTo38Characters) {
    withTexts({{0, ""}}, [] {
        const std::string longest(38, 'A');
        setenv("TZ", ("<" + longest + ">0").c_str(), 1);
        EXPECT_EQ(timeAs("%Z", 0), longest);
        setenv("TZ", ("<" + longest + "A>0").c_str(), 1);
        EXPECT_EQ(timeAs("[%Z]", 0), "[]");
    });
}

TEST(ExpandTime, layoutEndsAtTheFirstParenthesis) {
    withTexts({{0, ""}}, [] {
        const std::string record = recordOf(0, 2, {});
        EXPECT_EQ(expandedAs("%T(%H)%N", record), "16prog");
        EXPECT_EQ(expandedAs("%T(%H%)%N", record), "16prog");
        EXPECT_EQ(expandedAs("%T(%H", record), "16");
        EXPECT_EQ(expandedAs("%T(%", record), "");
        EXPECT_EQ(expandedAs("%T(", record), "");
        EXPECT_EQ(expandedAs("%T((%H))", record), "(16)");
    });
}

TEST(TimeDefs, tablesEndWithNull) {
    EXPECT_STREQ(fullMonthNames[8], "September");
    EXPECT_EQ(fullMonthNames[12], nullptr);
    EXPECT_STREQ(abbrvMonthNames[11], "Dec");
    EXPECT_EQ(abbrvMonthNames[12], nullptr);
    EXPECT_STREQ(fullWeekdayNames[3], "Wednesday");
    EXPECT_EQ(fullWeekdayNames[7], nullptr);
    EXPECT_STREQ(abbrvWeekdayNames[4], "Thu");
    EXPECT_EQ(abbrvWeekdayNames[7], nullptr);
}

TEST(ExpandTime, timeTextIsThatOfCtime) {
    withTexts({{0, ""}}, [] {
        std::mt19937 random(1);
        std::vector<int32_t> times = {0, -1, INT32_MIN, INT32_MAX};
        while (times.size() < 2000)
            times.push_back(static_cast<int32_t>(random()));
        for (const char *zone : {"UTC0", "Europe/Berlin", "XST-167", "XST167"}) {
            setenv("TZ", zone, 1);
            for (const int32_t seconds : times) {
                const time_t time = seconds;
                const std::string text = ctime(&time);
                ASSERT_EQ(timeAs("%c", seconds), text);
                ASSERT_EQ(expandedAs("%T", recordOf(0, 2, {}, hexTime(seconds))) + "\n", text);
            }
        }
    });
}

} // namespace
