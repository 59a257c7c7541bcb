/* The log client against a real pipe whose reader is the test: the bytes of records, the defaults
   and names, the pipe's failures with their errno, and what a broken pipe must not do to the
   process. The routing by the shared table is in logDstPri_test.cpp. */
#include "clientFixture.h"
#include "records.h"

#include "core/ipcComm.h"
#include "support/failingAlloc.h"

#include <climits>
#include <dirent.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <thread>

namespace {

/* ---- records ---- */

char *vlogEventOf(int32_t number, ...) {
    va_list args;
    va_start(args, number);
    char *const body = vlogEvent(number, 1, 2, "a", 7, args);
    va_end(args);
    return body;
}

char *vfmtEventOf(int32_t number, ...) {
    va_list args;
    va_start(args, number);
    char *const record = vfmtEvent(number, 0x11, 2, "a", 7, args);
    va_end(args);
    return record;
}

TEST(LogEvent, recordTravelsAsOneFrame) {
    withClient([](ClientRoot &root) {
        EXPECT_STREQ(logEvent(PLAIN, 1, 0, "a", 7), "12 \x1C"
                                                    "05F000000tst a:7");
        EXPECT_EQ(root.received(), "0280000000112 \x1C"
                                   "05F000000tst a:7");
    });
}

TEST(LogEvent, argumentsGoThroughTheMessagesFormat) {
    withClient([](ClientRoot &root) {
        EXPECT_NE(logEvent(NUMBER_TEXT, 1, 2, "f.c", 40, -5, "x y"), nullptr);
        EXPECT_EQ(root.received(), "0390000000113 \x1C"
                                   "25F000000tst f.c:40\x1C-5\x1Cx y\x1D");
        EXPECT_NE(logEvent(WIDE, 1, 0, "a", 7, LONG_MIN, 255UL), nullptr);
        EXPECT_EQ(root.received(), framed("0000000114 \x1C"
                                          "05F000000tst a:7\x1C" +
                                          std::to_string(LONG_MIN) +
                                          "\x1C"
                                          "000000FF\x1D"));
    });
}

TEST(LogEvent, destinationAndTimeAreEightDigitsOfThirtyTwoBits) {
    withClient([](ClientRoot &root) {
        timeNow = -1;
        logEvent(PLAIN, 0xFFFFFFFD, 4, "a", 7);
        timeNow = 0;
        logEvent(PLAIN, 0, 0, "a", 7);
        timeNow = 0x7FFFFFFF;
        logEvent(PLAIN, 0x80000000, 0, "a", 7);
        EXPECT_EQ(root.received(), "028FFFFFFFD12 \x1C"
                                   "4FFFFFFFFtst a:7"
                                   "0280000000012 \x1C"
                                   "000000000tst a:7"
                                   "0288000000012 \x1C"
                                   "07FFFFFFFtst a:7");
    });
}

TEST(LogEvent, priorityAndLineAreSignedDecimals) {
    withClient([](ClientRoot &root) {
        logEvent(0, 1, -12, "a", INT32_MIN);
        EXPECT_EQ(root.received(), framed("000000010 \x1C"
                                          "-125F000000tst a:-2147483648"));
    });
}

TEST(LogEvent, missingNamesAreEmpty) {
    withClient([](ClientRoot &root) {
        setLogProcName(nullptr);
        EXPECT_NE(logEvent(PLAIN, 1, 0, nullptr, 7), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000 :7"));
    });
}

TEST(LogEvent, percentInANameIsAConversion) {
    withClient([](ClientRoot &root) {
        setLogProcName("50%d%%");
        EXPECT_NE(logEvent(PLAIN, 1, 0, "%s", 7, 9, "f"), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000509% f:7"));
    });
}

TEST(LogEvent, numberOutsideTheFormatsIsNone) {
    const std::string shown = withClient([](ClientRoot &root) {
        for (int number : {MESSAGES, -1, INT32_MAX, INT32_MIN}) {
            errno = 77;
            EXPECT_EQ(logEvent(number, 3, 0, "a", 7), nullptr) << number;
            EXPECT_EQ(vlogEventOf(number), nullptr);
            EXPECT_EQ(fmtEvent(number, 1, 0, "a", 7), nullptr);
            EXPECT_EQ(vfmtEventOf(number), nullptr);
            EXPECT_EQ(getCmpFmt(number), nullptr);
            EXPECT_EQ(errno, 77);
        }
        EXPECT_EQ(root.received(), "");
        EXPECT_NE(logEvent(MESSAGES - 1, 1, 0, "a", 7), nullptr);
        EXPECT_NE(logEvent(0, 1, 0, "a", 7), nullptr);
    });
    EXPECT_EQ(shown, "");
}

TEST(LogEvent, badNumberLeavesTheLastRecordReadable) {
    withClient([](ClientRoot &) {
        const char *const body = logEvent(PLAIN, 1, 0, "a", 7);
        EXPECT_EQ(logEvent(-1, 1, 0, "b", 8), nullptr);
        EXPECT_STREQ(body, "12 \x1C"
                           "05F000000tst a:7");
    });
}

TEST(LogEvent, failuresLeaveTheLastRecordReadable) {
    withClient([](ClientRoot &root) {
        const char *const body = logEvent(PLAIN, 1, 0, "a", 7);
        setLogProcName("%2147483647d%2147483647d");
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "b", 8, 1, 2), nullptr) << "not formatted";
        setLogProcName("tst");
        root.closeReader();
        for (int line = 8; line < 11; ++line)
            EXPECT_EQ(logEvent(PLAIN, 1, 0, "b", line), nullptr) << "not sent";
        EXPECT_STREQ(body, "12 \x1C"
                           "05F000000tst a:7");
    });
}

TEST(LogEvent, lastRecordMayBeAnArgument) {
    withClient([](ClientRoot &root) {
        const char *body = logEvent(PLAIN, 1, 0, "a", 7);
        body = logEvent(NUMBER_TEXT, 1, 0, "b", 8, 1, body);
        EXPECT_STREQ(body, "13 \x1C"
                           "05F000000tst b:8\x1C"
                           "1\x1C"
                           "12 \x1C"
                           "05F000000tst a:7\x1D");
        EXPECT_STREQ(logEvent(PLAIN, 1, 0, body, 9), "12 \x1C"
                                                     "05F000000tst 13 \x1C"
                                                     "05F000000tst b:8\x1C"
                                                     "1\x1C"
                                                     "12 \x1C"
                                                     "05F000000tst a:7\x1D:9");
        root.received();
    });
}

// Between the two the missing table is reported, which is a record of its own.
TEST(LogMsg, lastRecordMayBeAnArgumentOfTheCallThatReportsTheTable) {
    withClient([](ClientRoot &root) {
        const char *const body = logEvent(PLAIN, 1, 0, "a", 7);
        EXPECT_STREQ(logMsg(NUMBER_TEXT, "b", 8, 1, body), "13 \x1C"
                                                           "05F000000tst b:8\x1C"
                                                           "1\x1C"
                                                           "12 \x1C"
                                                           "05F000000tst a:7\x1D");
        EXPECT_NE(root.received().find("../logMsg:191"), std::string::npos);
    });
}

TEST(LogEvent, unformattableRecordIsNoneAndNothingIsSent) {
    withClient([](ClientRoot &root) {
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 6), nullptr);
        EXPECT_NE(root.received(), "");
        setLogProcName("%2147483647d%2147483647d");
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7, 1, 2), nullptr);
        EXPECT_EQ(root.received(), "");
        setLogProcName("tst");
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000tst a:7"));
    });
}

TEST(LogEvent, longRecordHasTheLongFrameHeader) {
    withClient([](ClientRoot &root) {
        for (size_t length : {967UL, 968UL, 969UL, 3000UL}) {
            const std::string text(length, 'x');
            const std::string record = "0000000113 \x1C"
                                       "05F000000tst a:7\x1C"
                                       "1\x1C" +
                                       text + "\x1D";
            EXPECT_NE(logEvent(NUMBER_TEXT, 1, 0, "a", 7, 1, text.c_str()), nullptr);
            const std::string header = length == 967 ? "999" : "<4>" + std::to_string(32 + length);
            EXPECT_EQ(root.received(), header + record);
        }
    });
}

TEST(LogEvent, listVariantsDoTheSame) {
    withClient([](ClientRoot &root) {
        EXPECT_STREQ(vlogEventOf(NUMBER_TEXT, 1, "x"), "13 \x1C"
                                                       "25F000000tst a:7\x1C"
                                                       "1\x1Cx\x1D");
        EXPECT_NE(root.received(), "");
        EXPECT_NE(vlogMsgOf(NUMBER_TEXT, 1, "x"), nullptr);
        const std::string got = root.received(), own = framed("0000000113 \x1C"
                                                              "05F000000tst a:7\x1C"
                                                              "1\x1Cx\x1D");
        ASSERT_GT(got.size(), own.size());
        EXPECT_EQ(got.substr(got.size() - own.size()), own);
    });
}

TEST(FmtEvent, buildsTheWholeRecordAndSendsNothing) {
    withClient([](ClientRoot &root) {
        EXPECT_STREQ(fmtEvent(NUMBER_TEXT, 2, 3, "a", 7, 1, "x"), "0000000213 \x1C"
                                                                  "35F000000tst a:7\x1C"
                                                                  "1\x1Cx\x1D");
        EXPECT_STREQ(vfmtEventOf(NUMBER_TEXT, 1, ""), "0000001113 \x1C"
                                                      "25F000000tst a:7\x1C"
                                                      "1\x1C\x1D");
        EXPECT_EQ(root.received(), "");
    });
}

TEST(FmtEvent, manyRecordsOfAllLengthsAreWhole) {
    withClient([](ClientRoot &) {
        for (size_t length = 0; length < 700; ++length) {
            const std::string text(length, 'y');
            ASSERT_EQ(fmtEvent(NUMBER_TEXT, 1, 0, "a", 7, 1, text.c_str()), "0000000113 \x1C"
                                                                            "05F000000tst a:7\x1C"
                                                                            "1\x1C" +
                                                                                text + "\x1D");
        }
    });
}

TEST(GetCmpFmt, givesTheMessagesFormat) {
    withClient([](ClientRoot &) {
        EXPECT_STREQ(getCmpFmt(NUMBER_TEXT), "\x1C%d\x1C%s\x1D");
        EXPECT_STREQ(getCmpFmt(0), "");
        EXPECT_STREQ(getCmpFmt(1729), "\x1C%s\x1D");
        EXPECT_EQ(getCmpFmt(NUMBER_TEXT), Fmt + FmtTbl[NUMBER_TEXT]);
        EXPECT_EQ(fmtMax, MESSAGES);
    });
}

/* ---- before and at loginit ---- */

TEST(BeforeLoginit, nothingIsLogged) {
    expectChildPasses([] {
        setenv("LOGDSTPRISHMKEY", NO_TABLE_KEY, 1);
        char body[] = "12 body";
        EXPECT_EQ(logEvent(0, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(logMsg(0, "a", 7), nullptr);
        EXPECT_EQ(logperror(1, 0, "a", 7, "x"), nullptr);
        EXPECT_EQ(logSysError("a", 7, "x"), nullptr);
        EXPECT_EQ(fmtEvent(0, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(relogCmpMsg(body, 1), nullptr);
        EXPECT_EQ(getCmpFmt(0), nullptr);
        EXPECT_EQ(getLogProcName(), nullptr);
        EXPECT_EQ(logend(), -1);
        EXPECT_EQ(fmtMax, 0);
        EXPECT_EQ(logRoot, nullptr);
    });
}

TEST(Loginit, storesNameDefaultsAndRoot) {
    withClient([](ClientRoot &root) {
        EXPECT_EQ(loginit("other", 0x80000001, 4, root.path().c_str()), 0);
        EXPECT_EQ(_destination, 0x80000001U);
        EXPECT_EQ(_priority, 4);
        EXPECT_STREQ(logProcName, "other");
        EXPECT_EQ(logRoot, root.path());
        EXPECT_NE(logRoot, root.path().c_str()) << "a copy";
    });
}

TEST(Loginit, rootComesFromTheEnvironment) {
    withClient([](ClientRoot &root) {
        setenv("LOGROOT", root.path().c_str(), 1);
        EXPECT_EQ(logInit("env"), 0);
        EXPECT_EQ(logRoot, root.path());
        EXPECT_EQ(_destination, 1U);
        EXPECT_EQ(_priority, 0);
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000env a:7"));
    });
}

TEST(Loginit, unsetRootIsTheSpoolFolderAndAnEmptyOneIsEmpty) {
    const std::string shown = withClient([](ClientRoot &) {
        EXPECT_EQ(loginit("tst", 1, 0, ""), -1);
        EXPECT_STREQ(logRoot, "");
        setenv("LOGROOT", "", 1);
        EXPECT_EQ(logInit("tst"), -1);
        EXPECT_STREQ(logRoot, "");
        unsetenv("LOGROOT");
        EXPECT_EQ(logInit("tst"), -1);
        EXPECT_STREQ(logRoot, "/usr/spool/log");
    });
    EXPECT_EQ(shown, "getcmpLogFmt: can't open /cmpLogFmt.\n"
                     "getcmpLogFmt: can't open /cmpLogFmt.\n"
                     "getcmpLogFmt: can't open /usr/spool/log/cmpLogFmt.\n");
}

TEST(Loginit, failedLoadHasChangedAllButThePipe) {
    const TempDir empty;
    withClient([&](ClientRoot &root) {
        EXPECT_EQ(loginit("new", 0x99, 3, empty.path().c_str()), -1);
        EXPECT_STREQ(logProcName, "new");
        EXPECT_EQ(_destination, 0x99U);
        EXPECT_EQ(_priority, 3);
        EXPECT_EQ(logRoot, empty.path());
        EXPECT_LT(fmtMax, 1);
        EXPECT_EQ(logEvent(0, 1, 0, "a", 7), nullptr);
        char body[] = "12 body";
        EXPECT_EQ(relogCmpMsg(body, 1), body) << "the pipe of before is open";
        EXPECT_EQ(root.received(), "0150000000112 body");
    });
}

TEST(Loginit, noFormatsAtAllIsAFailedLoad) {
    withClient([](ClientRoot &root) {
        root.dir().write("cmpLogFmt", "\0\0\0\0"s);
        EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), -1);
        EXPECT_EQ(fmtMax, 0);
    });
}

TEST(Loginit, withoutReaderFailsAndTheNextRecordTriesAgain) {
    withClient([](ClientRoot &root) {
        root.closeReader();
        errno = 0;
        EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), -1);
        EXPECT_EQ(errno, ENXIO);
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, ENXIO);
        root.openReader();
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000tst a:7"));
    });
}

TEST(Loginit, withoutPipeFails) {
    withClient([](ClientRoot &root) {
        unlink(root.pipe().c_str());
        EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), -1);
        EXPECT_EQ(errno, ENOENT);
    });
}

TEST(Loginit, canMoveToAnotherRoot) {
    ClientRoot second;
    withClient([&](ClientRoot &root) {
        second.openReader();
        const char *const format = getCmpFmt(NUMBER_TEXT);
        EXPECT_EQ(loginit("tst", 1, 0, second.path().c_str()), 0);
        EXPECT_STREQ(format, "\x1C%d\x1C%s\x1D") << "earlier tables stay";
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received(), "");
        EXPECT_NE(second.received(), "");
    });
}

TEST(Loginit, takesTheRootAndNameInForce) {
    withClient([](ClientRoot &root) {
        EXPECT_EQ(loginit(logProcName, 1, 0, logRoot), 0);
        EXPECT_STREQ(logProcName, "tst");
        EXPECT_EQ(logRoot, root.path());
    });
}

TEST(Loginit, takesTheNameOfBeforeAsRoot) {
    withClient([](ClientRoot &root) {
        setLogProcName(root.path().c_str());
        const char *const before = setLogProcName("tst");
        EXPECT_EQ(loginit("new", 1, 0, before), 0);
        EXPECT_EQ(logRoot, root.path());
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
    });
}

TEST(Loginit, successLeavesErrno) {
    withClient([](ClientRoot &root) {
        errno = 77;
        EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), 0);
        EXPECT_EQ(errno, 77);
    });
}

/* ---- names ---- */

TEST(LogProcName, settingReturnsTheNameBefore) {
    withClient([](ClientRoot &) {
        EXPECT_STREQ(setLogProcName("b"), "tst");
        EXPECT_STREQ(setLogProcName("c"), "b");
        EXPECT_STREQ(logProcName, "c");
        EXPECT_STREQ(setLogProcName(nullptr), "c");
        EXPECT_EQ(logProcName, nullptr);
        EXPECT_EQ(getLogProcName(), nullptr);
        EXPECT_EQ(setLogProcName("d"), nullptr);
        EXPECT_STREQ(logProcName, "d");
    });
}

TEST(LogProcName, returnedNamesCanBeGivenBack) {
    withClient([](ClientRoot &) {
        char *const before = setLogProcName("other");
        EXPECT_STREQ(setLogProcName(before), "other");
        EXPECT_STREQ(logProcName, "tst");
        setLogProcName(logProcName);
        EXPECT_STREQ(logProcName, "tst");
        setLogProcName(getLogProcName());
        EXPECT_STREQ(logProcName, "tst");
    });
}

TEST(LogProcName, gettingReturnsACopyThatOutlivesTheName) {
    withClient([](ClientRoot &) {
        const char *const copy = getLogProcName();
        EXPECT_NE(copy, logProcName);
        setLogProcName("b");
        setLogProcName("c");
        EXPECT_STREQ(copy, "tst");
        EXPECT_STREQ(getLogProcName(), "c");
    });
}

TEST(LogProcName, isSetBeforeLoginitToo) {
    expectChildPasses([] {
        EXPECT_EQ(setLogProcName("early"), nullptr);
        EXPECT_STREQ(getLogProcName(), "early");
    });
}

/* ---- system errors ---- */

TEST(Logperror, logsTheErrorsMessageWithTheText) {
    withClient([](ClientRoot &root) {
        errno = 2;
        EXPECT_STREQ(logperror(0x21, 3, "a", 7, "open %s: %d", "f", 5),
                     "1729 \x1C"
                     "35F000000tst a:7\x1Copen f: 5\x1D");
        EXPECT_EQ(errno, 2);
        EXPECT_EQ(root.received(), framed("000000211729 \x1C"
                                          "35F000000tst a:7\x1Copen f: 5\x1D"));
    });
}

TEST(Logperror, missingTextIsEmptyWhateverCameBefore) {
    withClient([](ClientRoot &root) {
        errno = 0;
        logperror(1, 0, "a", 7, nullptr);
        logperror(1, 0, "a", 7, "%s", "text");
        logperror(1, 0, "a", 7, nullptr);
        logperror(1, 0, "a", 7, "%s", "text");
        logperror(1, 0, "a", 7, "");
        const std::string empty = framed("000000011727 \x1C"
                                         "05F000000tst a:7\x1C\x1D");
        const std::string text = framed("000000011727 \x1C"
                                        "05F000000tst a:7\x1Ctext\x1D");
        EXPECT_EQ(root.received(), empty + text + empty + text + empty);
    });
}

TEST(LogSysError, missingTextIsEmptyWhateverCameBefore) {
    withClient([](ClientRoot &root) {
        logMsg(PLAIN, "a", 7); // the report of the missing table
        root.received();
        errno = 0;
        logSysError("a", 7, "%s", "text");
        logSysError("a", 7, nullptr);
        logSysError("a", 7, "");
        const std::string empty = framed("000000011727 \x1C"
                                         "05F000000tst a:7\x1C\x1D");
        EXPECT_EQ(root.received(), framed("000000011727 \x1C"
                                          "05F000000tst a:7\x1Ctext\x1D") +
                                       empty + empty);
    });
}

TEST(Logperror, percentInTheTextIsOnlyText) {
    withClient([](ClientRoot &root) {
        errno = 2;
        logperror(1, 0, "a", 7, "%s", "100%s%n");
        EXPECT_EQ(root.received(), framed("000000011729 \x1C"
                                          "05F000000tst a:7\x1C"
                                          "100%s%n\x1D"));
    });
}

TEST(Logperror, oldModeIgnoresDestinationAndPriority) {
    const struct {
        const char *setting;
        bool old;
    } cases[] = {{"Y", true},  {"y", true}, {"Tru", true}, {"t", true},     {"N", false},
                 {"1", false}, {"", false}, {" Y", false}, {nullptr, false}};
    for (const auto &one : cases)
        withClient([&](ClientRoot &root) {
            if (one.setting != nullptr)
                setenv("OLD_LOGPERROR", one.setting, 1);
            _destination = 0x44;
            errno = 1;
            logperror(0x21, 2, "a", 7, "x");
            EXPECT_EQ(root.received(), framed((one.old ? "000000441728 \x1C"
                                                         "3"
                                                       : "000000211728 \x1C"
                                                         "2") +
                                              "5F000000tst a:7\x1Cx\x1D"s))
                << (one.setting ? one.setting : "(unset)");
        });
}

TEST(Logperror, modeIsSettledByTheFirstCall) {
    withClient([](ClientRoot &root) {
        errno = 1;
        logperror(0x21, 2, "a", 7, "x");
        const std::string first = root.received();
        setenv("OLD_LOGPERROR", "Y", 1);
        errno = 1;
        logperror(0x21, 2, "a", 7, "x");
        EXPECT_EQ(root.received(), first);
    });
}

TEST(LogSysError, oldModePlaysNoPart) {
    withClient([](ClientRoot &root) {
        logMsg(PLAIN, "a", 7);
        root.received();
        setenv("OLD_LOGPERROR", "Y", 1);
        _priority = 1;
        errno = 1;
        logSysError("a", 7, "x");
        EXPECT_EQ(root.received(), framed("000000011728 \x1C"
                                          "15F000000tst a:7\x1Cx\x1D"));
    });
}

/* ---- relog ---- */

TEST(RelogCmpMsg, sendsTheBodyToItsNewDestination) {
    withClient([](ClientRoot &root) {
        char body[] = "12 \x1C"
                      "05F000000tst a:7\x1C 100%s \x1D";
        errno = 77;
        EXPECT_EQ(relogCmpMsg(body, 0xFEDCBA98), body);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(root.received(), framed("FEDCBA98"s + body));
        char *const last = logEvent(PLAIN, 1, 0, "a", 7);
        root.received();
        EXPECT_EQ(relogCmpMsg(last, 5), last);
        EXPECT_EQ(root.received(), framed("0000000512 \x1C"
                                          "05F000000tst a:7"));
    });
}

TEST(RelogCmpMsg, doesNotShowTheMessage) {
    const std::string shown = withClient([](ClientRoot &root) {
        char body[] = "12 \x1C"
                      "05F000000tst a:7";
        EXPECT_EQ(relogCmpMsg(body, 2), body);
        EXPECT_EQ(root.received(), framed("00000002"s + body));
    });
    EXPECT_EQ(shown, "");
}

TEST(RelogCmpMsg, refusesNoBodyAndNoDestination) {
    withClient([](ClientRoot &root) {
        char empty[] = "", body[] = "12";
        errno = 77;
        EXPECT_EQ(relogCmpMsg(nullptr, 1), nullptr);
        EXPECT_EQ(relogCmpMsg(empty, 1), nullptr);
        EXPECT_EQ(relogCmpMsg(body, 0), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(root.received(), "");
    });
}

/* ---- errno ---- */

TEST(Errno, isAsBeforeAfterARecordThatWasSent) {
    withClient([](ClientRoot &) {
        char body[] = "12";
        errno = 77;
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_NE(vlogEventOf(NUMBER_TEXT, 1, "x"), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_NE(logperror(1, 0, "a", 7, "x"), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_NE(logSysError("a", 7, "x"), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_NE(relogCmpMsg(body, 1), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_NE(fmtEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, 77);
    });
}

TEST(Errno, afterAFailureIsKeptByTheMessageCallsAndTheFailuresInTheOthers) {
    withClient([](ClientRoot &root) {
        root.closeReader();
        char body[] = "12";
        const auto after = [](const char *result) {
            EXPECT_EQ(result, nullptr);
            const int error = errno;
            errno = 77;
            return error;
        };
        errno = 77;
        EXPECT_EQ(after(logEvent(PLAIN, 1, 0, "a", 7)), ENXIO);
        EXPECT_EQ(after(vlogEventOf(NUMBER_TEXT, 1, "x")), ENXIO);
        EXPECT_EQ(after(relogCmpMsg(body, 1)), ENXIO);
        EXPECT_EQ(after(logMsg(PLAIN, "a", 7)), 77);
        EXPECT_EQ(after(vlogMsgOf(NUMBER_TEXT, 1, "x")), 77);
        EXPECT_EQ(after(logperror(1, 0, "a", 7, "x")), 77);
        EXPECT_EQ(after(logSysError("a", 7, "x")), 77);
    });
}

/* ---- the pipe ---- */

// The client's end of the pipe: its descriptor, -1 when there is none.
int clientEnd(const ClientRoot &root) {
    DIR *const dir = opendir("/proc/self/fd");
    int found = -1;
    while (const dirent *const entry = readdir(dir)) {
        struct stat is = {}, pipe = {};
        const int fd = atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fstat(fd, &is) == 0 &&
            stat(root.pipe().c_str(), &pipe) == 0 && is.st_ino == pipe.st_ino &&
            is.st_dev == pipe.st_dev && (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY)
            found = fd;
    }
    closedir(dir);
    return found;
}

void expectFlagsOf(const ClientRoot &root) {
    const int fd = clientEnd(root);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
}

// The pipe is replaced by another of its name, so that the client's end has lost its reader.
void replacePipe(ClientRoot &root) {
    root.closeReader();
    ASSERT_EQ(unlink(root.pipe().c_str()), 0);
    ASSERT_EQ(mkfifo(root.pipe().c_str(), 0600), 0);
    root.openReader();
}

// The granule is the process's, settled by the first frame of all.
TEST(LogPipe, firstRecordSettlesTheGranule) {
    withClient([](ClientRoot &root) {
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        setenv("MAXMSGSIZE", "256", 1);
        IpcChannel channel = {open(root.pipe().c_str(), O_WRONLY), 0, 0, 0, nullptr};
        EXPECT_EQ(ipcSend(&channel, "hello"), 5);
        EXPECT_EQ(channel.capacity, 120);
        free(channel.buffer);
        close(channel.fd);
    });
}

TEST(LogPipe, isClosedOnExecAndDoesNotBlockAfterEachOpening) {
    withClient([](ClientRoot &root) {
        expectFlagsOf(root);
        replacePipe(root);
        EXPECT_EQ(clientEnd(root), -1);
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        expectFlagsOf(root);
        EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), 0);
        expectFlagsOf(root);
    });
}

TEST(LogPipe, newReaderGetsTheRecordThatTheOldOneMissed) {
    withClient([](ClientRoot &root) {
        logEvent(PLAIN, 1, 0, "a", 7);
        replacePipe(root);
        errno = 77;
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 8), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000tst a:8"));
    });
}

TEST(LogPipe, loginitClosesTheEndOfBefore) {
    withClient([](ClientRoot &root) {
        const int before = clientEnd(root);
        for (int round = 0; round < 5; ++round)
            EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), 0);
        EXPECT_EQ(clientEnd(root), before);
    });
}

TEST(LogPipe, recordAfterLogendReopens) {
    withClient([](ClientRoot &root) {
        const int fd = clientEnd(root);
        EXPECT_EQ(logend(), 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
        errno = 0;
        EXPECT_EQ(logend(), -1);
        EXPECT_EQ(errno, EBADF) << "the number stays stored";
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_NE(root.received(), "");
        EXPECT_EQ(logend(), 0);
        EXPECT_EQ(loginit("tst", 1, 0, root.path().c_str()), 0);
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
    });
}

TEST(LogPipe, closedEndWithoutReaderIsMinusOne) {
    withClient([](ClientRoot &root) {
        root.closeReader();
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(logend(), -1);
    });
}

// Leaves no room for a single byte.
void fillPipe(const ClientRoot &root) {
    const int fd = open(root.pipe().c_str(), O_WRONLY | O_NONBLOCK);
    const std::string block(4096, 'z');
    while (write(fd, block.data(), block.size()) > 0) {
    }
    while (write(fd, block.data(), 1) > 0) {
    }
    close(fd);
}

TEST(LogPipe, fullPipeLosesTheRecordAfterOneReopening) {
    withClient([](ClientRoot &root) {
        fillPipe(root);
        const int watch = inotify_init1(IN_NONBLOCK);
        inotify_add_watch(watch, root.pipe().c_str(), IN_OPEN | IN_CLOSE_WRITE);
        EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(errno, EAGAIN);
        char events[4096];
        const ssize_t size = read(watch, events, sizeof events);
        EXPECT_EQ(size, static_cast<ssize_t>(2 * sizeof(inotify_event))) << "one close, one open";
        root.received();
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 8), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000tst a:8"));
    });
}

TEST(LogPipe, partOfALongRecordIsNotContinued) {
    withClient([](ClientRoot &root) {
        fillPipe(root);
        char page[4096];
        const int second = open(root.pipe().c_str(), O_RDONLY | O_NONBLOCK);
        ASSERT_EQ(read(second, page, sizeof page), 4096); // room for a part of the record
        const std::string text(6000, 'x');
        errno = 77;
        EXPECT_EQ(logEvent(NUMBER_TEXT, 1, 0, "a", 7, 1, text.c_str()), nullptr);
        EXPECT_EQ(errno, EAGAIN) << "the second try found the pipe full";
        const std::string got = root.received();
        EXPECT_EQ(got.substr(got.size() - 4096, 20), "<4>60320000000113 \x1C"
                                                     "0");
        EXPECT_EQ(got.back(), 'x');
        close(second);
    });
}

/* ---- expanded messages ---- */

void writeTexts(const ClientRoot &root) {
    setenv("TZ", "UTC0", 1);
    root.dir().write("textLogFmt", textFormatFile({{NUMBER_TEXT, "line %s says %s"},
                                                   {1729, "No such file or directory: %s"}}));
}

TEST(Expansion, destinationTwoShowsTheMessageAndSendsNothing) {
    const std::string shown = withClient([](ClientRoot &root) {
        writeTexts(root);
        EXPECT_STREQ(logEvent(NUMBER_TEXT, 2, 2, "f.c", 40, 5, "x y"), "13 \x1C"
                                                                       "25F000000tst f.c:40\x1C"
                                                                       "5\x1Cx y\x1D");
        EXPECT_EQ(root.received(), "");
    });
    EXPECT_EQ(shown, "*  Sat Jul  4 04:05:20 2020 tst f.c:40\nline 5 says x y");
}

TEST(Expansion, destinationThreeShowsAndSends) {
    const std::string shown = withClient([](ClientRoot &root) {
        writeTexts(root);
        setenv("LOGFORMAT", "%P[%N %S:%L] %M.", 1);
        EXPECT_NE(logEvent(NUMBER_TEXT, 3, 4, "f.c", 40, 5, "x y"), nullptr);
        EXPECT_NE(logEvent(NUMBER_TEXT, 3, 0, "f.c", 41, 6, ""), nullptr);
        EXPECT_EQ(root.received(), framed("0000000313 \x1C"
                                          "45F000000tst f.c:40\x1C"
                                          "5\x1Cx y\x1D") +
                                       framed("0000000313 \x1C"
                                              "05F000000tst f.c:41\x1C"
                                              "6\x1C\x1D"));
    });
    EXPECT_EQ(shown, "*C[tst f.c:40] line 5 says x y.  [tst f.c:41] line 6 says .");
}

TEST(Expansion, listOfAMessageIsShownAsItsArgumentsAre) {
    const std::string shown = withClient([](ClientRoot &root) {
        writeTexts(root);
        setenv("LOGFORMAT", "%M.", 1);
        EXPECT_NE(vlogMsgOf(NUMBER_TEXT, 4, "x"), nullptr); // with the report of the missing table
        root.received();
        _destination = 2;
        EXPECT_NE(vlogMsgOf(NUMBER_TEXT, 5, "x y"), nullptr);
        EXPECT_EQ(root.received(), "");
        _destination = 1;
        root.closeReader();
        EXPECT_EQ(vlogMsgOf(NUMBER_TEXT, 6, "z"), nullptr) << "not sent";
    });
    EXPECT_EQ(shown, "line 5 says x y.");
}

TEST(Expansion, messageWithoutTextIsSentWithoutBeingShown) {
    const std::string shown = withClient([](ClientRoot &root) {
        EXPECT_NE(logEvent(NUMBER_TEXT, 3, 4, "f.c", 40, 5, "x"), nullptr);
        EXPECT_NE(root.received(), "");
        EXPECT_NE(logEvent(NUMBER_TEXT, 2, 4, "f.c", 40, 5, "x"), nullptr);
        EXPECT_EQ(root.received(), "");
    });
    EXPECT_EQ(shown, "");
}

TEST(Expansion, reportWithItsLineFeedsTravelsAndIsReadBackWhole) {
    withClient([](ClientRoot &root) {
        writeTexts(root);
        setenv("LOGFORMAT", "%P%N %S:%L %M", 1);
        logMsg(NUMBER_TEXT, "f.c", 40, 5, "x");
        IpcChannel daemon = {root.reader(), 0, 0, 0, nullptr};
        ASSERT_GT(ipcRecv(&daemon), 8);
        std::string stored = daemon.buffer + 8;
        stored += '\n';
        free(daemon.buffer);
        EXPECT_EQ(expanded(stored), "* tst ../logMsg:191 No such file or directory: "
                                    "\n\tattaching logging destination/priority table"
                                    "\n\tKey parameters: 0x7e57c1e0 -> 0xffffffff"
                                    "\n\t-- check \"ipcs -m\" and/or run \"logDstPri\"");
    });
}

/* ---- exhausted memory ---- */

TEST(ExhaustedMemory, recordThatCannotBeBuiltIsNone) {
    withClient([](ClientRoot &root) {
        {
            const FailingAlloc none;
            EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr) << "no buffers";
        }
        const std::string name(5000, 'n');
        const std::string text(20000, 't');
        char body[] = "12";
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_NE(relogCmpMsg(body, 1), nullptr);
        root.received();
        setLogProcName(name.c_str());
        {
            const FailingAlloc none;
            EXPECT_EQ(logEvent(PLAIN, 1, 0, "a", 7), nullptr) << "no header";
            EXPECT_EQ(relogCmpMsg(const_cast<char *>(text.c_str()), 1), nullptr);
        }
        setLogProcName("tst");
        {
            const FailingAlloc none;
            EXPECT_EQ(logEvent(NUMBER_TEXT, 1, 0, "a", 7, 1, text.c_str()), nullptr) << "no record";
        }
        EXPECT_EQ(root.received(), "");
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_EQ(root.received(), framed("0000000112 \x1C"
                                          "05F000000tst a:7"));
    });
}

// A call, and what stands before and behind the process's name in what it gives.
struct Building {
    const char *name;
    char *(*build)(const char *text);
    const char *before, *behind;
};

const Building buildings[] = {
    {"fmtEvent", [](const char *text) { return fmtEvent(NUMBER_TEXT, 1, 0, "a", 7, 1, text); },
     "0000000113 \x1C"
     "05F000000",
     " a:7\x1C"
     "1\x1C"},
    {"vfmtEvent", [](const char *text) { return vfmtEventOf(NUMBER_TEXT, 1, text); },
     "0000001113 \x1C"
     "25F000000",
     " a:7\x1C"
     "1\x1C"},
    {"logEvent", [](const char *text) { return logEvent(NUMBER_TEXT, 1, 0, "a", 7, 1, text); },
     "13 \x1C"
     "05F000000",
     " a:7\x1C"
     "1\x1C"},
    {"vlogEvent", [](const char *text) { return vlogEventOf(NUMBER_TEXT, 1, text); },
     "13 \x1C"
     "25F000000",
     " a:7\x1C"
     "1\x1C"},
    {"logMsg", [](const char *text) { return logMsg(NUMBER_TEXT, "a", 7, 1, text); },
     "13 \x1C"
     "05F000000",
     " a:7\x1C"
     "1\x1C"},
    {"vlogMsg", [](const char *text) { return vlogMsgOf(NUMBER_TEXT, 1, text); },
     "13 \x1C"
     "05F000000",
     " a:7\x1C"
     "1\x1C"},
};

class Buildings : public testing::TestWithParam<Building> {};

// Each call comes one allocation further, since what was allocated stays.
TEST_P(Buildings, giveTheWholeRecordOrNone) {
    withClient([](ClientRoot &root) {
        const std::string name(300, 'n'), text(3000, 't');
        setLogProcName(name.c_str());
        const std::string whole = GetParam().before + name + GetParam().behind + text + "\x1D";
        int failures = 0;
        for (int granted : {0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 9, 0}) {
            char *made;
            {
                const FailingAlloc few(granted);
                made = GetParam().build(text.c_str());
            }
            failures += made == nullptr ? 1 : 0;
            if (made != nullptr) {
                EXPECT_EQ(made, whole) << granted;
            }
            root.received();
        }
        EXPECT_GE(failures, 5); // two buffers with their blocks, and the room for the record
        const char *const made = GetParam().build(text.c_str());
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(made, whole);
    });
}

INSTANTIATE_TEST_SUITE_P(ExhaustedMemory, Buildings, testing::ValuesIn(buildings),
                         [](const auto &one) { return std::string(one.param.name); });

TEST(ExhaustedMemory, errorWhoseTextCannotBeFormattedHasAnEmptyOne) {
    withClient([](ClientRoot &root) {
        errno = 1;
        for (int record = 0; record < 2; ++record) // both of its buffers are there then
            logperror(1, 0, "a", 7, "first");
        root.received();
        const std::string text(5000, 't');
        {
            const FailingAlloc none;
            errno = 1;
            EXPECT_NE(logperror(1, 0, "a", 7, "%s", text.c_str()), nullptr);
        }
        EXPECT_EQ(root.received(), framed("000000011728 \x1C"
                                          "05F000000tst a:7\x1C\x1D"));
    });
}

TEST(ExhaustedMemory, loginitFailsAndCanBeRepeated) {
    withClient([](ClientRoot &root) {
        for (int granted = 0; granted < 10; ++granted) {
            const FailingAlloc few(granted);
            const int32_t result = loginit("tst", 1, 0, root.path().c_str());
            EXPECT_EQ(result, granted < 6 ? -1 : 0) << granted;
        }
        EXPECT_NE(logEvent(PLAIN, 1, 0, "a", 7), nullptr);
        EXPECT_NE(root.received(), "");
    });
}

} // namespace
