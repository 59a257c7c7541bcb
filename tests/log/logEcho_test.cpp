/* When and what the client shows on standard error. The expansion is replaced by one of the test's
   own, which can do what a real one does only in trouble: have nothing to show, and log an error
   itself. The real one is shown in logMsg_test.cpp. */
#include "clientFixture.h"

#include "log/expandLog.h"

namespace {

char shownText[] = "shown\twhole\n\nand no more";
char *expansion = shownText; // what the replaced expansion returns
std::string expanded;        // what it was asked for, one a line
std::function<void()> whileExpanding = [] {};

} // namespace

extern "C" char *expandLog(char *record) {
    expanded += record + "\n"s;
    const std::function<void()> action = whileExpanding;
    whileExpanding = [] {};
    action();
    return expansion;
}

namespace {

const char BODY[] = "12 \x1C"
                    "05F000000tst a:7";

TEST(Echo, destinationTwoShowsAndDoesNotSend) {
    const std::string shown = withClient([](ClientRoot &root) {
        errno = 77;
        EXPECT_STREQ(logEvent(PLAIN, 2, 0, "a", 7), BODY);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(expanded, BODY + "\n"s);
        EXPECT_EQ(root.received(), "");
    });
    EXPECT_EQ(shown, "shown\twhole\n\nand no more");
}

TEST(Echo, destinationWithTwoAmongOthersShowsAndSends) {
    const std::string shown = withClient([](ClientRoot &root) {
        EXPECT_STREQ(logEvent(PLAIN, 3, 0, "a", 7), BODY);
        EXPECT_STREQ(logEvent(PLAIN, 0x80000002, 0, "a", 7), BODY);
        EXPECT_EQ(root.received(), framed("00000003"s + BODY) + framed("80000002"s + BODY));
    });
    EXPECT_EQ(shown, "shown\twhole\n\nand no moreshown\twhole\n\nand no more");
}

TEST(Echo, otherDestinationsShowNothing) {
    const std::string shown = withClient([](ClientRoot &) {
        for (uint32_t destination : {0U, 1U, 4U, 0xFFFFFFFDU})
            EXPECT_NE(logEvent(PLAIN, destination, 0, "a", 7), nullptr);
        EXPECT_EQ(expanded, "");
    });
    EXPECT_EQ(shown, "");
}

TEST(Echo, withoutExpansionNothingIsShownAndSendingGoesOn) {
    const std::string shown = withClient([](ClientRoot &root) {
        expansion = nullptr;
        EXPECT_STREQ(logEvent(PLAIN, 3, 0, "a", 7), BODY);
        EXPECT_EQ(root.received(), framed("00000003"s + BODY));
        EXPECT_STREQ(logEvent(PLAIN, 2, 0, "a", 7), BODY);
        EXPECT_EQ(root.received(), "");
    });
    EXPECT_EQ(shown, "");
}

TEST(Echo, isMadeBeforeASendThatFails) {
    const std::string shown = withClient([](ClientRoot &root) {
        root.closeReader();
        EXPECT_EQ(logEvent(PLAIN, 3, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, ENXIO);
        EXPECT_STREQ(logEvent(PLAIN, 2, 0, "a", 7), BODY) << "needs no reader";
    });
    EXPECT_EQ(shown, "shown\twhole\n\nand no moreshown\twhole\n\nand no more");
}

TEST(Echo, percentInTheExpansionIsOnlyText) {
    char percent[] = "100%s%n";
    const std::string shown = withClient([&](ClientRoot &) {
        expansion = percent;
        logEvent(PLAIN, 2, 0, "a", 7);
    });
    EXPECT_EQ(shown, "100%s%n");
}

TEST(Echo, errorLoggedByTheExpansionDoesNotReplaceTheRecord) {
    withClient([](ClientRoot &root) {
        const std::string text(5000, 'x'); // moves the record that the expansion logs
        for (int round = 0; round < 3; ++round) {
            whileExpanding = [&] {
                errno = 2;
                EXPECT_NE(logperror(1, 3, "inner", 1, "%s", "why"), nullptr);
                EXPECT_NE(logEvent(NUMBER_TEXT, 2, 3, "inner", 1, 1, text.c_str()), nullptr);
            };
            errno = 77;
            EXPECT_STREQ(logEvent(PLAIN, 3, 0, "a", 7), BODY);
            EXPECT_EQ(errno, 77);
            EXPECT_EQ(root.received(), framed("000000011729 \x1C"
                                              "35F000000tst inner:1\x1Cwhy\x1D") +
                                           framed("00000003"s + BODY));
        }
    });
}

TEST(Echo, reportOfAMissingTableIsShownToo) {
    withClient([](ClientRoot &) {
        _destination = 2;
        EXPECT_STREQ(logMsg(PLAIN, "a", 7), BODY);
        EXPECT_EQ(expanded.substr(0, 5), "1729 ");
        EXPECT_EQ(expanded.substr(expanded.size() - sizeof BODY), BODY + "\n"s);
    });
}

// What reports the missing table and logs while that is shown must not report it again.
TEST(Echo, missingTableIsReportedOnceThoughTheExpansionLogs) {
    withClient([](ClientRoot &root) {
        _destination = 3;
        whileExpanding = [] { EXPECT_NE(logMsg(PLAIN, "inner", 1), nullptr); };
        EXPECT_STREQ(logMsg(PLAIN, "a", 7), BODY);
        const std::string got = root.received();
        const size_t first = got.find("../logMsg:191");
        ASSERT_NE(first, std::string::npos);
        EXPECT_EQ(got.find("../logMsg:191", first + 1), std::string::npos);
        EXPECT_NE(got.find("inner:1"), std::string::npos);
    });
}

} // namespace
