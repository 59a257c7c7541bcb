/* Moments as people write them, at a fixed now: Friday 2026-05-01 12:00:00 in a zone with summer
   time (UTC+2 then). */
#include "tools/qnlog/moment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>

constexpr int64_t NOW = 1777629600;
constexpr int64_t MIDNIGHT = NOW - 12 * 3600;

class Moment : public testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
};

TEST_F(Moment, formsThatAreRead) {
    const struct {
        const char *text;
        int64_t seconds;
    } FORMS[] = {
        {"now", NOW},
        {"90s", NOW - 90},
        {"15m", NOW - 900},
        {"-15m", NOW - 900},
        {"2h ago", NOW - 7200},
        {"2 hours ago", NOW - 7200},
        {"1h30m", NOW - 5400},
        {"1 day 2 hrs", NOW - 93600},
        {"3d", NOW - 259200},
        {"2w", NOW - 1209600},
        {"today", MIDNIGHT},
        {"today 09:30", MIDNIGHT + 34200},
        {"yesterday", MIDNIGHT - 86400},
        {"yesterday 14:00", MIDNIGHT - 86400 + 50400},
        {"yesterday 14:00:05", MIDNIGHT - 86400 + 50405},
        {"tomorrow", MIDNIGHT + 86400},
        {"14:00", MIDNIGHT + 50400},
        {"14:00:05", MIDNIGHT + 50405},
        {"2026-05-01", MIDNIGHT},
        {"2026-05-01 14:00", MIDNIGHT + 50400},
        {"2026-05-01T14:00:05", MIDNIGHT + 50405},
        {"2026-05-01T14:00:05+02:00", MIDNIGHT + 50405},
        {"2026-05-01T12:00:05Z", MIDNIGHT + 50405},
        {"Fri May  1 14:00:05 2026", MIDNIGHT + 50405},
        {"2026-03-01", 1772319600}, // winter
        {"1777629600", NOW},
        {"@5", 5},
        {"@0", 0},
    };
    for (const auto &form : FORMS)
        EXPECT_EQ(form.seconds, parseMoment(form.text, NOW)) << form.text;
}

TEST_F(Moment, whatIsNoTimeIsRefused) {
    for (const char *text : {"",
                             " ",
                             "x",
                             "15",
                             "15x",
                             "m",
                             "-",
                             "ago",
                             "15m x",
                             "2026",
                             "20260501",
                             "2026-02-30",
                             "2026-13-01",
                             "2026-05-01 25:00",
                             "yesterday x",
                             "yesterdays",
                             "14:60",
                             "@",
                             "@x",
                             "@-5",
                             "1777629600x",
                             "99999999999m",
                             "--15m",
                             "15 m agony"})
        EXPECT_THROW(parseMoment(text, NOW), std::invalid_argument) << text;
}

// The day before summer time begins is 23 hours long.
TEST_F(Moment, yesterdayIsADayOfTheCalendar) {
    const int64_t sundayNoon = 1774778400; // 2026-03-29 12:00 CEST
    EXPECT_EQ(sundayNoon - 11 * 3600 - 86400, parseMoment("yesterday", sundayNoon));
}
