/* The three operations over the stand-in as it is: whole calls on scripted lines, with the trace
 * that they leave. */
#include "dialer/dialer.h"

#include "platform/lineScript.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

namespace {

using stdComponents::String;

class OnStandIn : public testing::Test {
  protected:
    void SetUp() override {
        channel = vxOpenChannel();
        trace.open(dir.file("trace"));
    }
    void TearDown() override { vxCloseChannel(channel); }

    static void script(const char *text) { ASSERT_EQ(vxSetLineScript("script", text), 1); }

    // The trace without times and channel numbers.
    std::string traced() {
        return std::regex_replace(dir.read("trace"), std::regex("[0-9:.]+ channel [0-9]+, "), "");
    }

    TempDir dir;
    chan_info *channel = nullptr;
    std::ofstream trace;
};

TEST_F(OnStandIn, answeredCall) {
    script("timer\n 2 event 4 sub 32\n 4 event 4 sub 8\ndial\n 1 event 65 sub 8\n 3 event 11\n");
    EXPECT_EQ(QN_wait4dialtone(channel, 5, trace, 1), 0);
    EXPECT_EQ(vxCancelTimer(channel, 0), 0) << "the timer was left running";
    EXPECT_EQ(QN_dial(channel, "5551234", trace, 1), 0);
    EXPECT_EQ(traced(), "start timer 5000 ms: event 4, sub-code 32\n"
                        "start timer 5000 ms: event 4, sub-code 8\n"
                        "dial 5551234: event 65, sub-code 8\n"
                        "dial 5551234: event 11, sub-code 0\n");
}

TEST_F(OnStandIn, busyLine) {
    script("dial\n 1 event 65 sub 5\n");
    EXPECT_EQ(QN_dial(channel, "5551234", trace, 0), -11);
    EXPECT_EQ(traced(), "");
}

TEST_F(OnStandIn, refusedStarts) {
    script("dial refused\ntimer refused 2\ntimer refused\n");
    int32_t seconds = 5;
    EXPECT_EQ(QN_dial(channel, "5551234", trace, 1), -1);
    EXPECT_EQ(QN_wait4dialtone(channel, 5, trace, 1), -1);
    EXPECT_EQ(QN_delay(channel, seconds, trace, 1), -1);
    EXPECT_EQ(seconds, 5);
    EXPECT_EQ(traced(), "");
}

TEST_F(OnStandIn, noDialTone) {
    script("");
    EXPECT_EQ(QN_wait4dialtone(channel, 0, trace, 1), -5);
    EXPECT_EQ(traced(), "start timer 0 ms: event 7, sub-code 0\n");
}

TEST_F(OnStandIn, delayThatPassesAndDelayThatIsInterrupted) {
    script("timer\ntimer\n 0 event 4 sub 5\n 1 event 38\n");
    int32_t seconds = 1;
    EXPECT_EQ(QN_delay(channel, seconds, trace, 1), 0);
    EXPECT_EQ(seconds, 0);
    seconds = 9;
    EXPECT_EQ(QN_delay(channel, seconds, trace, 1), -2);
    EXPECT_EQ(seconds, 9);
    EXPECT_EQ(vxCancelTimer(channel, 0), 1) << "the interrupted delay's timer was cancelled";
}

} // namespace
