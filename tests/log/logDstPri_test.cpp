/* The shared destination/priority table: its key from every kind of setting, its rows in real
   shared memory, and how it routes messages, seen in the records that arrive. */
#include "clientFixture.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>
#include <ucontext.h>

namespace {

/* ---- the key ---- */

struct KeyCase {
    const char *setting;
    uint32_t key;
};

uint32_t keyWith(const char *setting) {
    uint32_t key = 0;
    const ChildResult result = runInChild([&] {
        unsetenv("LOGDSTPRISHMKEY");
        if (setting != nullptr)
            setenv("LOGDSTPRISHMKEY", setting, 1);
        errno = 77;
        printf("%x", logDstPriShmKey());
        EXPECT_EQ(errno, 77);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    sscanf(result.out.c_str(), "%x", &key);
    return key;
}

TEST(LogDstPriShmKey, isSettledByTheEnvironment) {
    const KeyCase cases[] = {
        {nullptr, 0x4C474450},                   // unset: the bytes in memory order
        {"PDGL", 0x5044474C},                    // set: the first byte is the highest
        {"0x1234", 0x1234},                      // hexadecimal
        {"0XaBc", 0xABC},                        //
        {"1234", 1234},                          // decimal
        {"0755", 493},                           // octal
        {"12ab", 0x31326162},                    // not wholly a number: packed
        {"0x", 0x3078},                          //
        {"08", 0x3038},                          // no octal digit
        {"12 ", 0x313220},                       //
        {" 12", 0x203132},                       // does not begin with a digit
        {"-5", 0x2D35},                          //
        {"+5", 0x2B35},                          //
        {"", 0x4C474450},                        // packs to 0
        {"0", 0x4C474450},                       //
        {"0x0", 0x4C474450},                     //
        {"A", 0x41},                             //
        {"ABCD", 0x41424344},                    //
        {"ABCDE", 0x41424344},                   // four bytes at most
        {"4294967295", 0xFFFFFFFF},              //
        {"4294967294", 0xFFFFFFFE},              //
        {"4294967296", 0xFFFFFFFF},              // clamped
        {"0x100000001", 0xFFFFFFFF},             //
        {"99999999999999999999999", 0xFFFFFFFF}, // beyond 64 bits too
        {"\xE9", 0xFFFFFFE9},                    // signed bytes
        {"A\xE9", 0xFFFFFFE9},                   //
        {"\xE9"
         "A",
         0xFFFFE941},
        {"\x80"
         "ABC",
         0x80414243},
    };
    for (const auto &one : cases)
        EXPECT_EQ(keyWith(one.setting), one.key) << (one.setting ? one.setting : "(unset)");
}

TEST(LogDstPriShmKey, isComputedOnce) {
    expectChildPasses([] {
        setenv("LOGDSTPRISHMKEY", "0x1234", 1);
        EXPECT_EQ(logDstPriShmKey(), 0x1234U);
        setenv("LOGDSTPRISHMKEY", "0x5678", 1);
        EXPECT_EQ(logDstPriShmKey(), 0x1234U);
    });
}

/* ---- rows ---- */

TEST(GetLogMsgDstPri, givesTheRowsWithinTheTableAndNoOthers) {
    const Segment segment(3, {{0, 1}, {4, 0xFFFFFFFF}, {-7, 0}});
    expectChildPasses([&] {
        segment.name();
        ASSERT_NE(getLogMsgDstPri(0), nullptr);
        EXPECT_EQ(getLogMsgDstPri(1)->priority, 4);
        EXPECT_EQ(getLogMsgDstPri(1)->destination, 0xFFFFFFFFU);
        EXPECT_EQ(getLogMsgDstPri(2)->priority, -7);
        EXPECT_EQ(getLogMsgDstPri(2), getLogMsgDstPri(0) + 2);
        EXPECT_EQ(getLogMsgDstPri(3), nullptr);
        EXPECT_EQ(getLogMsgDstPri(-1), nullptr);
        EXPECT_EQ(getLogMsgDstPri(INT32_MAX), nullptr);
        EXPECT_EQ(getLogMsgDstPri(INT32_MIN), nullptr);
    });
}

TEST(GetLogMsgDstPri, withoutATableIsNullAndReportsNothing) {
    withClient([](ClientRoot &root) {
        EXPECT_EQ(getLogMsgDstPri(0), nullptr);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(root.received(), "");
        logMsg(PLAIN, "a", 7);
        EXPECT_NE(root.received().find("../logMsg:191"), std::string::npos)
            << "the first log call still reports";
    });
}

TEST(GetLogMsgDstPri, settingOfTheRulesChangesNoRow) {
    const Segment segment(2, {{0, 1}, {4, 9}});
    for (const char *rules : {"/somewhere/else.rules", ""})
        expectChildPasses([&] {
            segment.name();
            setenv("LOGDSTRULES", rules, 1);
            ASSERT_NE(getLogMsgDstPri(1), nullptr);
            EXPECT_EQ(getLogMsgDstPri(1)->destination, 9U);
        });
}

TEST(GetLogMsgDstPri, tableIsMappedReadOnly) {
    const Segment segment(1, {{0, 1}});
    expectChildPasses([&] {
        segment.name();
        char address[32];
        const auto page = reinterpret_cast<uintptr_t>(getLogMsgDstPri(0)) & ~uintptr_t{0xFFF};
        snprintf(address, sizeof address, "%08lx-", static_cast<unsigned long>(page));
        std::ifstream maps("/proc/self/maps");
        std::stringstream all;
        all << maps.rdbuf();
        const std::string text = all.str();
        const size_t at = text.find(address);
        ASSERT_NE(at, std::string::npos);
        EXPECT_EQ(text.substr(text.find(' ', at) + 1, 4), "r--s");
    });
}

TEST(GetLogMsgDstPri, rowsThatTheSegmentHasNoRoomForDoNotExist) {
    const Segment liar(INT32_MAX, {{1, 1}, {2, 2}}), half(5, {{1, 1}}, 16 + 8 + 7),
        headless(5, {}, 8), negative(-1, {{1, 1}});
    expectChildPasses([&] {
        liar.name();
        ASSERT_NE(getLogMsgDstPri(1), nullptr);
        EXPECT_EQ(getLogMsgDstPri(2), nullptr);
        EXPECT_EQ(getLogMsgDstPri(INT32_MAX - 1), nullptr);
    });
    expectChildPasses([&] {
        half.name();
        ASSERT_NE(getLogMsgDstPri(0), nullptr);
        EXPECT_EQ(getLogMsgDstPri(1), nullptr);
    });
    expectChildPasses([&] {
        headless.name();
        EXPECT_EQ(getLogMsgDstPri(0), nullptr);
    });
    expectChildPasses([&] {
        negative.name();
        EXPECT_EQ(getLogMsgDstPri(0), nullptr);
    });
}

TEST(GetLogMsgDstPri, tableStaysAttachedAfterItsRemoval) {
    const Segment segment(1, {{3, 5}});
    expectChildPasses([&] {
        segment.name();
        ASSERT_NE(getLogMsgDstPri(0), nullptr);
        shmctl(segment.id(), IPC_RMID, nullptr);
        ASSERT_NE(getLogMsgDstPri(0), nullptr);
        EXPECT_EQ(getLogMsgDstPri(0)->destination, 5U);
    });
}

/* ---- routing by logMsg ---- */

// Message 12, line 7 of file a, as routed; its format takes no argument.
std::string routed(const std::string &destination, const std::string &priority) {
    return framed(destination + "12 \x1C" + priority + "5F000000tst a:7");
}

std::vector<LogDstPri> rowsWith(size_t count, size_t at, LogDstPri row) {
    std::vector<LogDstPri> rows(count, LogDstPri{0, 0x10});
    rows[at] = row;
    return rows;
}

TEST(LogMsg, isRoutedByItsRow) {
    const Segment segment(13, rowsWith(13, 12, {3, 0xABCD1235}));
    withClient([&](ClientRoot &root) {
        segment.name();
        EXPECT_STREQ(logMsg(PLAIN, "a", 7), "12 \x1C"
                                            "35F000000tst a:7");
        EXPECT_EQ(root.received(), routed("ABCD1235", "3"));
    });
}

TEST(LogMsg, rowsAreReadAnewAtEachCall) {
    const Segment segment(13, rowsWith(13, 12, {3, 1}));
    withClient([&](ClientRoot &root) {
        segment.name();
        logMsg(PLAIN, "a", 7);
        segment.table()->row[12] = {2, 0x40};
        logMsg(PLAIN, "a", 7);
        EXPECT_EQ(root.received(), routed("00000001", "3") + routed("00000040", "2"));
        segment.table()->rowCount = 12;
        EXPECT_EQ(logMsg(PLAIN, "a", 7), nullptr);
        segment.table()->rowCount = 13;
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
    });
}

TEST(LogMsg, outsideTheTableIsNotLogged) {
    const Segment segment(12, rowsWith(13, 12, {3, 1}));
    const std::string shown = withClient([&](ClientRoot &root) {
        segment.name();
        for (int number : {12, -1, INT32_MIN, INT32_MAX}) {
            errno = 77;
            EXPECT_EQ(logMsg(number, "a", 7), nullptr) << number;
            EXPECT_EQ(errno, 77);
        }
        EXPECT_EQ(root.received(), "");
    });
    EXPECT_EQ(shown, "");
}

TEST(LogMsg, listVariantIsRoutedByItsRowAndNotOutsideTheTable) {
    const Segment segment(13, rowsWith(13, 12, {3, 0xABCD1235}));
    withClient([&](ClientRoot &root) {
        segment.name();
        EXPECT_STREQ(vlogMsgOf(PLAIN), "12 \x1C"
                                       "35F000000tst a:7");
        EXPECT_EQ(root.received(), routed("ABCD1235", "3"));
        for (int number : {13, -1, INT32_MIN, INT32_MAX})
            EXPECT_EQ(vlogMsgOf(number), nullptr) << number;
        EXPECT_EQ(root.received(), "");
    });
}

TEST(LogMsg, rowBeyondTheSegmentIsNotLogged) {
    const Segment segment(INT32_MAX, rowsWith(12, 0, {}));
    withClient([&](ClientRoot &root) {
        segment.name();
        EXPECT_EQ(logMsg(PLAIN, "a", 7), nullptr);
        EXPECT_EQ(logMsg(1000, "a", 7), nullptr);
        EXPECT_EQ(root.received(), "");
    });
}

TEST(LogMsg, inTheTableButWithoutFormatIsNotLogged) {
    const Segment segment(MESSAGES + 1, rowsWith(MESSAGES + 1, 0, {}));
    withClient([&](ClientRoot &root) {
        segment.name();
        EXPECT_EQ(logMsg(MESSAGES, "a", 7), nullptr);
        EXPECT_EQ(vlogMsgOf(MESSAGES), nullptr);
        EXPECT_EQ(root.received(), "");
        EXPECT_NE(logMsg(MESSAGES - 1, "a", 7), nullptr);
        EXPECT_NE(root.received(), "");
    });
}

TEST(LogMsg, tableThatAppearsLaterIsFound) {
    withClient([](ClientRoot &root) {
        uint32_t key;
        {
            const Segment gone(0, {});
            gone.name();
            key = gone.key();
        }
        logMsg(PLAIN, "a", 7);
        EXPECT_NE(root.received().find(routed("00000001", "0")), std::string::npos);
        const Segment segment(13, rowsWith(13, 12, {3, 0x40}), 0, 0600, key);
        logMsg(PLAIN, "a", 7);
        EXPECT_EQ(root.received(), routed("00000040", "3"));
    });
}

typedef uint64_t RowWord __attribute__((aligned(8), may_alias));

RowWord *rowWord(const Segment &segment, int number) {
    void *const address = &segment.table()->row[number];
    return static_cast<RowWord *>(address);
}

RowWord *steppedRow;
uint32_t steps;
volatile sig_atomic_t stepping;

// Runs after each machine instruction: puts the count of them into both halves of the row.
void changeRow(int, siginfo_t *, void *context) {
    constexpr greg_t TRAP_FLAG = 0x100;
    greg_t &flags = static_cast<ucontext_t *>(context)->uc_mcontext.gregs[REG_EFL];
    ++steps;
    __atomic_store_n(steppedRow, uint64_t{steps} << 32 | steps, __ATOMIC_RELAXED);
    flags = stepping != 0 ? flags | TRAP_FLAG : flags & ~TRAP_FLAG;
}

// The row changes after every single instruction of the call, so that two loads would differ.
TEST(LogMsg, takesARowWithOneLoad) {
    const Segment segment(13, rowsWith(13, 12, {0, 0}));
    withClient([&](ClientRoot &root) {
        segment.name();
        logMsg(PLAIN, "a", 7);
        root.received();
        steppedRow = rowWord(segment, 12);
        struct sigaction action = {};
        action.sa_sigaction = changeRow;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGTRAP, &action, nullptr);
        stepping = 1;
        raise(SIGTRAP);
        const char *const body = logMsg(PLAIN, "a", 7);
        stepping = 0;
        ASSERT_NE(body, nullptr);
        const std::string got = root.received();
        const std::string destination = got.substr(3, 8);
        const unsigned long step = std::stoul(destination, nullptr, 16);
        EXPECT_GT(step, 1U);
        EXPECT_LT(step, steps);
        EXPECT_EQ(got, routed(destination, std::to_string(step)));
    });
}

// The same from other threads, four of them at one row: no record takes half of a change.
TEST(LogMsg, rowsMayBeChangedWhileTheyAreRead) {
    const Segment segment(13, rowsWith(13, 12, {1, 0x11111111}));
    withClient([&](ClientRoot &root) {
        segment.name();
        bool stop = false;
        std::thread writers[4];
        for (std::thread &writer : writers)
            writer = std::thread([&] {
                const uint64_t words[] = {0x1111111100000001, 0x2222222200000002};
                for (unsigned round = 0; !__atomic_load_n(&stop, __ATOMIC_RELAXED); ++round)
                    __atomic_store_n(rowWord(segment, 12), words[round % 2], __ATOMIC_RELAXED);
            });
        for (int round = 0; round < 2000; ++round) {
            EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
            const std::string got = root.received();
            EXPECT_TRUE(got == routed("11111111", "1") || got == routed("22222222", "2")) << got;
        }
        __atomic_store_n(&stop, true, __ATOMIC_RELAXED);
        for (std::thread &writer : writers)
            writer.join();
    });
}

/* ---- routing by logSysError ---- */

std::string systemError(const std::string &destination, const std::string &number,
                        const std::string &priority, const std::string &text) {
    return framed(destination + number + " \x1C" + priority + "5F000000tst a:7\x1C" + text +
                  "\x1D");
}

TEST(LogSysError, rowIsTakenWhateverTheTablesCountTells) {
    const Segment segment(0, rowsWith(1730, 1729, {4, 0x44}));
    withClient([&](ClientRoot &root) {
        segment.name();
        errno = ENOENT;
        EXPECT_NE(logSysError("a", 7, "no %s", "file"), nullptr);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(root.received(), systemError("00000044", "1729", "4", "no file"));
    });
}

TEST(LogSysError, beyondTheSegmentUsesTheDefaults) {
    const Segment segment(5000, rowsWith(1729, 0, {4, 0x44}));
    withClient([&](ClientRoot &root) {
        segment.name();
        _destination = 0x21;
        _priority = 3;
        errno = ENOENT;
        EXPECT_NE(logSysError("a", 7, ""), nullptr);
        EXPECT_EQ(root.received(), systemError("00000021", "1729", "3", ""));
    });
}

TEST(LogSysError, withErrnoBeyondTheMessagesIsNotLogged) {
    const Segment segment(13, rowsWith(13, 12, {3, 1}));
    withClient([&](ClientRoot &root) {
        segment.name();
        for (int error : {-2000, MESSAGES - 1727, INT32_MAX, INT32_MIN}) {
            errno = error;
            EXPECT_EQ(logSysError("a", 7, nullptr), nullptr) << error;
            EXPECT_EQ(errno, error);
        }
        EXPECT_EQ(root.received(), "");
    });
}

TEST(LogSysError, withoutATableUsesTheDefaultsAfterTheReport) {
    withClient([](ClientRoot &root) {
        _destination = 0x20;
        _priority = 4;
        errno = EACCES;
        EXPECT_STREQ(logSysError("a", 7, "own %d", 1), "1740 \x1C"
                                                       "45F000000tst a:7\x1Cown 1\x1D");
        EXPECT_EQ(errno, EACCES);
        const std::string got = root.received();
        const std::string own = systemError("00000020", "1740", "4", "own 1");
        ASSERT_GT(got.size(), own.size());
        EXPECT_EQ(got.substr(got.size() - own.size()), own) << "the report kept its text apart";
        EXPECT_NE(got.find("../logMsg:191"), std::string::npos);
    });
}

/* ---- the report of a missing table ---- */

const char REPORT_TEXT[] =
    "\n\tattaching logging destination/priority table\n\tKey parameters: 0x7e57c1e0 -> "
    "0xffffffff\n\t-- check \"ipcs -m\" and/or run \"logDstPri\"";

std::string report(const std::string &destination, const std::string &priority) {
    return framed(destination + "1729 \x1C" + priority + "5F000000tst ../logMsg:191\x1C" +
                  REPORT_TEXT + "\x1D");
}

TEST(MissingTable, isReportedOnceBeforeTheFirstMessage) {
    withClient([](ClientRoot &root) {
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
        EXPECT_EQ(root.received(), report("00000001", "2") + routed("00000001", "0"));
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
        errno = 2;
        EXPECT_NE(logSysError("a", 7, "x"), nullptr);
        EXPECT_EQ(root.received(),
                  routed("00000001", "0") + systemError("00000001", "1729", "0", "x"));
    });
}

TEST(MissingTable, argumentsOfTheFirstMessageSurviveTheReport) {
    withClient([](ClientRoot &root) {
        EXPECT_STREQ(logMsg(NUMBER_TEXT, "a", 7, -42, "text"),
                     "13 \x1C"
                     "05F000000tst a:7\x1C-42\x1Ctext\x1D");
        EXPECT_EQ(root.received(), report("00000001", "2") + framed("0000000113 \x1C"
                                                                    "05F000000tst a:7\x1C-42\x1C"
                                                                    "text\x1D"));
    });
}

TEST(MissingTable, reportGoesToTheDaemonWhateverTheDefault) {
    withClient([](ClientRoot &root) {
        _destination = 0x40;
        _priority = 4;
        errno = 77;
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
        EXPECT_EQ(errno, 77);
        EXPECT_EQ(root.received(), report("00000041", "2") + routed("00000040", "4"));
    });
}

TEST(MissingTable, reportInTheOldModeTakesTheDefaultDestination) {
    withClient([](ClientRoot &root) {
        setenv("OLD_LOGPERROR", "yes", 1);
        _destination = 0x40;
        logMsg(PLAIN, "a", 7);
        EXPECT_EQ(root.received(), report("00000040", "3") + routed("00000040", "0"));
    });
}

TEST(MissingTable, reportThatCouldNotBeSentCountsAsMade) {
    withClient([](ClientRoot &root) {
        root.closeReader();
        EXPECT_EQ(logMsg(PLAIN, "a", 7), nullptr);
        root.openReader();
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
        EXPECT_EQ(root.received(), routed("00000001", "0"));
    });
}

TEST(MissingTable, thatMayNotBeReadIsReportedWithItsIdentifierAndError) {
    const Segment segment(13, rowsWith(13, 12, {3, 1}), 0, 0);
    withClient([&](ClientRoot &root) {
        segment.name();
        if (geteuid() == 0) {
            ASSERT_EQ(setuid(65534), 0);
        }
        EXPECT_NE(logMsg(PLAIN, "a", 7), nullptr);
        char parameters[64];
        snprintf(parameters, sizeof parameters, "Key parameters: 0x%x -> 0x%x\n", segment.key(),
                 static_cast<unsigned>(segment.id()));
        const std::string got = root.received();
        EXPECT_NE(got.find(parameters), std::string::npos) << got;
        EXPECT_NE(got.find("000000011740 \x1C"), std::string::npos) << "1727 + EACCES: " << got;
    });
}

} // namespace
