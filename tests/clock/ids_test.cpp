/* The end of the IDs' range, which is too far to count to: the units are compiled into the test, so
   that it reaches the counter. */
#include "clock/clock.cpp"
#include "clock/clockDump.cpp"
#include "clock/clockHold.cpp"

#include "clockCases.h"

// The library has the same variables, which this program's replace on purpose.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "detect_odr_violation=0";
}

namespace {

SIMULATED(Ids, countUpFromZero) {
    EXPECT_EQ(clkTimeout(note, 0, 1), 0U);
    EXPECT_EQ(clkTimeout(note, 0, 1), 1U);
    EXPECT_EQ(clkTimeout(note, 0, 1), 2U);
    system.advanceSeconds(1);
    EXPECT_EQ(clkTimeout(note, 0, 1), 3U);
}

SIMULATED(Ids, allOnesIsNeverGiven) {
    nextCalloutId = 0xFFFFFFFD;
    EXPECT_EQ(clkTimeout(note, 0, 1), 0xFFFFFFFDU);
    EXPECT_EQ(clkTimeout(note, 0, 1), 0xFFFFFFFEU);
    EXPECT_EQ(clkTimeout(note, 0, 1), 0U);
    EXPECT_EQ(clkTimeout(note, 0, 1), 1U);
    EXPECT_EQ(clkUntimeout(0xFFFFFFFE), 1);
    EXPECT_EQ(clkUntimeout(0xFFFFFFFE), -1);
}

SIMULATED(Ids, refusedTimeoutUsesNone) {
    clkinit(1);
    EXPECT_EQ(clkTimeout(note, 0, 1), 0U);
    EXPECT_EQ(clkTimeout(note, 0, 1), UINT32_MAX);
    system.advanceSeconds(1);
    EXPECT_EQ(clkTimeout(note, 0, 1), 1U);
}

} // namespace
