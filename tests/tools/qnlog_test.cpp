/* qnlog as a program, on logs written by hand: what is shown for which bytes, and that nothing gets
   lost on the way. golden/sample.log holds records of the sample catalogue and what else a log file
   may hold; golden/sample.txt is what it shows. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::string_literals;

static const std::string PROGRAM = TOOLS_DIR "/qnlog";
static const std::string GOLDEN = GOLDEN_DIR;
static const std::string ROOT = SAMPLE_ROOT;

static std::string slurp(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.good()) << path;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

static ToolResult showText(const std::string &log, std::vector<std::string> arguments = {},
                           const std::vector<std::string> &variables = {}) {
    arguments.insert(arguments.begin(), {"--log-root", ROOT});
    return runTool(PROGRAM, arguments, log, variables);
}

// "%N %M" leaves the moment and the place out.
static ToolResult showShort(const std::string &log, std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"--format", "%N %M"});
    return showText(log, arguments);
}

static const char *const T0 = "65920080"; // 2024-01-01 00:00:00 UTC

static std::string record(int number, int priority, const std::string &producer,
                          const std::vector<std::string> &arguments, const std::string &time = T0) {
    std::string text =
        std::to_string(number) + " \x1C" + std::to_string(priority) + time + producer + " f.c:40";
    for (const std::string &argument : arguments)
        text += '\x1C' + argument;
    return text + '\x1D';
}

static const std::string UP = record(100, 0, "ivr", {"7", "A"});
static const std::string UP_TEXT = "ivr Line 7 is in service on board A\n";
static const std::string DOWN = record(101, 3, "ivr", {"7", "cut"});
static const std::string DOWN_TEXT = "ivr Line 7 is out of service: cut\n";
static const std::string MARK = record(509, 0, "sys", {});
static const std::string MARK_TEXT = "sys Still alive\n";

TEST(Shown, sampleLogGivesTheExpectedText) {
    const ToolResult result = showText(slurp(GOLDEN + "/sample.log"));
    EXPECT_EQ(slurp(GOLDEN + "/sample.txt"), result.out);
    EXPECT_EQ(
        "qnlog: 2 records could not be expanded (number 150, 201); 1 record is cut; 2 lines are no "
        "records\n",
        result.err);
    EXPECT_EQ(1, result.exitCode);
}

TEST(Shown, filesInTheirOrderAndStandardInputByName) {
    const TempDir dir;
    const std::string a = dir.write("a", UP + "\n");
    const std::string b = dir.write("b", MARK + "\n");
    const ToolResult result = showShort(DOWN + "\n", {b, "-", a});
    EXPECT_EQ(MARK_TEXT + DOWN_TEXT + UP_TEXT, result.out);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(0, result.exitCode);
}

TEST(Shown, defaultLayoutIsTheLibrarys) {
    EXPECT_EQ("** Mon Jan  1 00:00:00 2024 ivr f.c:40\nLine 7 is out of service: cut\n",
              showText(DOWN + "\n").out);
}

TEST(Shown, layoutOfTheEnvironmentServesWhereNoneIsGiven) {
    EXPECT_EQ("[0]\n", showText(UP + "\n", {}, {"LOGFORMAT=[%P(%d)]"}).out);
    EXPECT_EQ("ivr\n", showText(UP + "\n", {"--format", "%N"}, {"LOGFORMAT=[%P(%d)]"}).out);
}

TEST(Shown, recordInALayoutIsWhole) {
    EXPECT_EQ("509 <34>065920080sys f.c:40<35>\n", showText(MARK + "\n", {"--format", "%C"}).out);
}

TEST(Joined, lineFeedsWithinArgumentsAreOneRecord) {
    const std::string error = record(405, 3, "ivr", {"q", "12", "\n\tat line 3\n"});
    const ToolResult result = showShort(error + "\n" + UP + "\n");
    EXPECT_EQ("ivr Query q failed with code 12:\n\t\n\tat line 3\n" + UP_TEXT, result.out);
    EXPECT_EQ("", result.err);
}

// However the bytes come: cut at every one of them, each part read by itself.
TEST(Joined, theSameForEveryWayTheBytesCome) {
    const std::string log = record(101, 0, "ivr", {"1", "a\nb"}) + "\nfree\n" + MARK + "\n";
    const std::string expected =
        "ivr Line 1 is out of service: a\nb\n<not a record> free\n" + MARK_TEXT;
    for (size_t cut = 0; cut <= log.size(); cut++) {
        const TempDir dir;
        const std::string file = dir.write("log", log.substr(0, cut));
        ToolProcess tool(PROGRAM, {"--log-root", ROOT, "--format", "%N %M", "--follow", file});
        // Whole entries of the first part are shown before the second part comes.
        const size_t firstEnd = record(101, 0, "ivr", {"1", "a\nb"}).size() + 1;
        if (cut >= firstEnd) {
            ASSERT_TRUE(tool.awaitOut("a\nb\n"));
        }
        std::ofstream(file, std::ios::app | std::ios::binary) << log.substr(cut);
        ASSERT_TRUE(tool.awaitOut(MARK_TEXT)) << "cut at " << cut << ": " << tool.out();
        kill(tool.pid(), SIGTERM);
        ASSERT_EQ(expected, tool.finish().out) << "cut at " << cut;
    }
}

TEST(Joined, cutRecordEndsWhereAnotherBegins) {
    const std::string torn = "101 \x1C\x30"s + T0 + "ivr f.c:40\x1C\x37\x1Chalf";
    const ToolResult result = showShort(torn + "\n" + UP + "\n");
    EXPECT_EQ("<cut record> 101 <34>0" + std::string(T0) + "ivr f.c:40<34>7<34>half\n" + UP_TEXT,
              result.out);
    EXPECT_EQ("qnlog: 1 record is cut\n", result.err);
}

TEST(Joined, linesBehindACutRecordAreShownAsTheyAre) {
    const std::string torn = "101 \x1C\x30"s + T0 + "ivr f.c:40\x1C" + "a";
    EXPECT_EQ("<cut record> 101 <34>0" + std::string(T0) +
                  "ivr f.c:40<34>a\n<not a record> b\n<not a record> c\n",
              showShort(torn + "\nb\nc\n").out);
}

TEST(Joined, nothingIsJoinedPastTheBound) {
    const std::string head = "101 \x1C\x30"s + T0 + "ivr f.c:40\x1C\x37\x1C";
    const size_t bound = 1 << 20;
    // The GS is the last byte within the bound, then the first one behind it.
    for (const bool fits : {true, false}) {
        const std::string filler(bound - head.size() - 2 + (fits ? 0 : 1), 'x');
        const ToolResult result = showShort(head + "\n" + filler + "\x1D\n" + UP + "\n");
        EXPECT_EQ(fits ? "" : "qnlog: 1 record is cut; 1 line is no record\n", result.err);
        EXPECT_EQ(UP_TEXT, result.out.substr(result.out.size() - UP_TEXT.size()));
    }
}

TEST(Joined, longLineWithoutEndComesInPieces) {
    const ToolResult result = showShort(std::string((1 << 20) + 10, 'x') + "\n" + UP + "\n");
    EXPECT_EQ("qnlog: 2 lines are no records\n", result.err);
    EXPECT_EQ((1u << 20) + 10,
              static_cast<size_t>(std::count(result.out.begin(), result.out.end(), 'x')));
}

TEST(Joined, whatStandsBehindARecordOnItsLineIsNotLost) {
    EXPECT_EQ(UP_TEXT + DOWN_TEXT + "<not a record> tail\n", showShort(UP + DOWN + "tail\n").out);
}

TEST(Marked, linesThatAreNoRecords) {
    const struct {
        const char *name;
        std::string line;
        std::string shown;
    } LINES[] = {
        {"free text", "started by hand", "<not a record> started by hand\n"},
        {"comment", "# rotated", "# rotated\n"},
        {"blank", "", "\n"},
        {"short time",
         "100 \x1C\x30"
         "6592ivr f.c:4\x1D",
         "<not a record> 100 <34>06592ivr f.c:4<35>\n"},
        {"no line", "100 \x1C\x30"s + T0 + "ivr f.c\x1D",
         "<not a record> 100 <34>065920080ivr f.c<35>\n"},
        {"zero byte", "a\0b"s, "<not a record> a<0>b\n"},
        {"unknown number", record(5000, 0, "x", {}),
         "<no expansion> 5000 <34>065920080x f.c:40<35>\n"},
        {"unused number", record(150, 0, "x", {}),
         "<no expansion> 150 <34>065920080x f.c:40<35>\n"},
        {"too few arguments", record(100, 0, "x", {"7"}),
         "<no expansion> 100 <34>065920080x f.c:40<34>7<35>\n"},
    };
    for (const auto &each : LINES)
        EXPECT_EQ(each.shown + UP_TEXT, showShort(each.line + "\n" + UP + "\n").out) << each.name;
}

TEST(Marked, lastLineWithoutLineFeed) {
    EXPECT_EQ(UP_TEXT, showShort(UP).out);
    EXPECT_EQ("<not a record> tail\n", showShort("tail").out);
}

TEST(Marked, onlyRecordsLeavesTheRestToTheSummary) {
    const ToolResult result = showShort("free\n# comment\n" + UP + "\n", {"--only-records"});
    EXPECT_EQ(UP_TEXT, result.out);
    EXPECT_EQ("qnlog: 1 line is no record\n", result.err);
    EXPECT_EQ(0, result.exitCode);
}

TEST(Marked, summaryNamesTheNumbersOnce) {
    std::string log;
    for (int number = 5000; number < 5012; number++)
        log += record(number, 0, "x", {}) + "\n" + record(number, 0, "x", {}) + "\n";
    EXPECT_EQ(
        "qnlog: 24 records could not be expanded (number 5000, 5001, 5002, 5003, 5004, 5005, 5006, "
        "5007, 5008, 5009, ...)\n",
        showShort(log).err);
}

TEST(Marked, missingCatalogueIsTold) {
    const TempDir dir;
    const ToolResult result = runTool(PROGRAM, {"--log-root", dir.path()}, UP + "\n");
    EXPECT_EQ("qnlog: 1 record could not be expanded (number 100)\nqnlog: " + dir.path() +
                  "/textLogFmt: No such file or directory\n",
              result.err);
    EXPECT_EQ(1, result.exitCode);
}

TEST(Marked, missingFileIsToldAndTheOthersShown) {
    const TempDir dir;
    const ToolResult result = showShort("", {dir.file("none"), dir.write("log", UP + "\n")});
    EXPECT_EQ(UP_TEXT, result.out);
    EXPECT_EQ("qnlog: " + dir.file("none") + ": No such file or directory\n", result.err);
    EXPECT_EQ(1, result.exitCode);
}

TEST(Controls, ofRecordsAreSpelledOut) {
    const std::string log =
        record(101, 0, "ivr", {"1", "\x1B[2J\a\b\f\r\x7F\x9B\xC2\x9B\xC3\xA9\xFF\ttab"});
    EXPECT_EQ(
        "ivr Line 1 is out of service: <33>[2J<7>\\b\\f\\r<177><233><302><233>\xC3\xA9<377>\ttab\n",
        showShort(log + "\n").out);
}

TEST(Controls, ofForeignLinesAreSpelledOut) {
    EXPECT_EQ("<not a record> <33>]0;x<7>\n", showShort("\x1B]0;x\a\n").out);
    EXPECT_EQ("# <33>[31m\n", showShort("# \x1B[31m\n").out);
}

TEST(Controls, rawLeavesThemInAPipe) {
    EXPECT_EQ("ivr Line 1 is out of service: \x1B[2J\n",
              showShort(record(101, 0, "ivr", {"1", "\x1B[2J"}) + "\n", {"--raw"}).out);
}

TEST(Controls, visibleShowsLineFeedsAndTabsToo) {
    EXPECT_EQ("ivr Line 1 is out of service: a\\n\nb\\t<33>\n",
              showShort(record(101, 0, "ivr", {"1", "a\nb\t\x1B"}) + "\n", {"--visible"}).out);
}

TEST(Wrapped, atTheWidthGiven) {
    EXPECT_EQ("ivr Line 7 is in\nservice on board A\n",
              showShort(UP + "\n", {"--width", "18"}).out);
    EXPECT_EQ(UP_TEXT, showShort(UP + "\n", {"--width", "0"}).out);
    EXPECT_EQ("ivr Line 7 is in\nservice on board A\n",
              showText(UP + "\n", {"--format", "%N %M"}, {"LOGCOLUMN=18"}).out);
    EXPECT_EQ(
        "ivr Line 7 is in\n> service on\n> board A\n",
        showText(UP + "\n", {"--format", "%N %M", "--width", "18"}, {"LOGCONTPREFIX=> "}).out);
}

TEST(Coloured, byPriorityOnEachLine) {
    std::string log;
    for (int priority = 0; priority <= 5; priority++)
        log += record(101, priority, "p", {"1", "a\nb"}) + "\n";
    const auto lines = [](const std::string &on, const std::string &off) {
        return on + "p Line 1 is out of service: a" + off + "\n" + on + "b" + off + "\n";
    };
    const std::string off = "\x1B[0m";
    EXPECT_EQ(lines("", "") + lines("\x1B[36m", off) + lines("\x1B[33m", off) +
                  lines("\x1B[31m", off) + lines("\x1B[1;37;41m", off) + lines("\x1B[1;31m", off),
              showShort(log, {"--color", "always"}).out);
}

TEST(Coloured, notInAPipeAndNotWhenRefused) {
    EXPECT_EQ(DOWN_TEXT, showShort(DOWN + "\n").out);
    EXPECT_EQ(DOWN_TEXT, showShort(DOWN + "\n", {"--color", "never"}).out);
}

// On a terminal of 30 columns.
static std::string shownOnTerminal(std::vector<std::string> arguments,
                                   const std::vector<std::string> &variables) {
    arguments.insert(arguments.begin(), {"--log-root", ROOT, "--format", "%N %M"});
    return runOnTerminal(PROGRAM, arguments, 30, variables);
}

TEST(Terminal, coloursAndWrapsAtItsWidth) {
    const TempDir dir;
    const std::string log = dir.write("log", DOWN + "\n");
    EXPECT_EQ("\x1B[31mivr Line 7 is out of service:\x1B[0m\n\x1B[31mcut\x1B[0m\n",
              shownOnTerminal({log}, {}));
    EXPECT_EQ("ivr Line 7 is out of service:\ncut\n", shownOnTerminal({log}, {"NO_COLOR=1"}));
    EXPECT_EQ("ivr Line 7 is out of service:\ncut\n", shownOnTerminal({log}, {"TERM=dumb"}));
    EXPECT_EQ("\x1B[31m" + DOWN_TEXT.substr(0, DOWN_TEXT.size() - 1) + "\x1B[0m\n",
              shownOnTerminal({"--width", "0", log}, {"NO_COLOR="}));
}

TEST(Terminal, neverSeesControlsOfARecord) {
    const TempDir dir;
    const std::string log = dir.write("log", record(101, 0, "p", {"1", "\x1B[2J"}) + "\n\x1B[2J\n");
    const std::string shown = shownOnTerminal({"--raw", "--width", "0", log}, {"NO_COLOR=1"});
    EXPECT_EQ(
        "p Line 1 is out of service: <33>[2J\n<not a record> <33>[2J\nqnlog: 1 line is no record\n",
        shown);
}

static std::string numbersShown(const std::vector<std::string> &filter) {
    std::string log;
    log += record(100, 0, "ivr", {"1", "A"}, "65920080") + "\n";  // 2024-01-01 00:00:00
    log += record(101, 3, "ivr2", {"1", "b"}, "65920081") + "\n"; // one second later
    log += record(509, 1, "db", {}, "659200BC") + "\n";           // 00:01:00
    log += record(501, 4, "ivr", {"9"}, "65935200") + "\n";       // a day later
    std::vector<std::string> arguments = {"--format", "%P(%d)"};
    arguments.insert(arguments.end(), filter.begin(), filter.end());
    const ToolResult result = showText(log, arguments);
    EXPECT_EQ("", result.err);
    std::string shown = result.out;
    shown.erase(std::remove(shown.begin(), shown.end(), '\n'), shown.end());
    return shown; // the priorities tell the four records apart
}

TEST(Filtered, eachFilterAloneAndTogether) {
    const struct {
        std::vector<std::string> filter;
        const char *shown;
    } FILTERS[] = {
        {{}, "0314"},
        {{"--priority", "3"}, "3"},
        {{"--priority", "1-3"}, "31"},
        {{"--priority", "3-"}, "34"},
        {{"--priority", "0,4"}, "04"},
        {{"--number", "100-101,509"}, "031"},
        {{"--number", "7"}, ""},
        {{"--producer", "ivr"}, "04"},
        {{"--producer", "ivr*"}, "034"},
        {{"--producer", "db", "--producer", "ivr?"}, "31"},
        {{"--since", "2024-01-01 00:00:01"}, "314"},
        {{"--until", "2024-01-01T00:00:01"}, "03"},
        {{"--since", "@1704067260", "--until", "@1704067260"}, "1"},
        {{"--since", "2024-01-02"}, "4"},
        {{"--since", "1h"}, ""},
        {{"--until", "1h"}, "0314"},
        {{"--since", "00:00"}, ""},
        {{"--priority", "3-", "--producer", "ivr"}, "4"},
    };
    for (const auto &each : FILTERS) {
        std::string name;
        for (const std::string &word : each.filter)
            name += word + " ";
        EXPECT_EQ(each.shown, numbersShown(each.filter)) << name;
    }
}

TEST(Filtered, linesThatCannotBeJudgedStay) {
    EXPECT_EQ("<not a record> free\n", showShort("free\n" + UP + "\n", {"--priority", "4"}).out);
}

TEST(Filtered, recordsThatAreLeftOutNeedNoExpansion) {
    EXPECT_EQ(0, showShort(record(5000, 0, "x", {}) + "\n", {"--priority", "4"}).exitCode);
}

TEST(Filtered, lastShowsOnlyTheEnd) {
    EXPECT_EQ(DOWN_TEXT + MARK_TEXT,
              showShort(UP + "\n" + UP + "\n" + DOWN + "\n" + MARK + "\n", {"--last", "2"}).out);
    EXPECT_EQ(DOWN_TEXT, showShort(UP + "\n" + DOWN + "\n" + MARK + "\n",
                                   {"--last", "1", "--producer", "ivr", "--priority", "3"})
                             .out);
}

class Followed : public testing::Test {
  protected:
    TempDir dir;
    std::string file = dir.write("log", UP + "\n");
    void append(const std::string &bytes) const {
        std::ofstream(file, std::ios::app | std::ios::binary) << bytes;
    }
    std::vector<std::string> arguments(const std::string &path) const {
        return {"--log-root", ROOT, "--format", "%N %M", "--follow", path};
    }
};

TEST_F(Followed, growsAndEndsOnASignalWithItsSummary) {
    ToolProcess tool(PROGRAM, arguments(file));
    ASSERT_TRUE(tool.awaitOut(UP_TEXT));
    append("free\n" + DOWN + "\n");
    ASSERT_TRUE(tool.awaitOut(DOWN_TEXT));
    kill(tool.pid(), SIGINT);
    const ToolResult result = tool.finish();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ(UP_TEXT + "<not a record> free\n" + DOWN_TEXT, result.out);
    EXPECT_EQ("qnlog: 1 line is no record\n", result.err);
}

TEST_F(Followed, anotherFileOfTheNameIsReadFromItsBeginning) {
    ToolProcess tool(PROGRAM, arguments(file));
    ASSERT_TRUE(tool.awaitOut(UP_TEXT));
    append(MARK + "\n");
    ASSERT_EQ(0, rename(file.c_str(), dir.file("log.1").c_str()));
    dir.write("log", DOWN + "\n");
    ASSERT_TRUE(tool.awaitOut(DOWN_TEXT));
    EXPECT_EQ(UP_TEXT + MARK_TEXT + DOWN_TEXT, tool.out());
}

TEST_F(Followed, aFileMadeShorterIsReadFromItsBeginning) {
    append(UP + "\n");
    ToolProcess tool(PROGRAM, arguments(file));
    ASSERT_TRUE(tool.awaitOut(UP_TEXT + UP_TEXT));
    dir.write("log", MARK + "\n");
    ASSERT_TRUE(tool.awaitOut(MARK_TEXT));
}

TEST_F(Followed, aFileThatIsNotThereYetIsAwaited) {
    ToolProcess tool(PROGRAM, arguments(dir.file("later")));
    ASSERT_TRUE(tool.awaitErr(": No such file or directory: waiting for it\n"));
    dir.write("later", MARK + "\n");
    ASSERT_TRUE(tool.awaitOut(MARK_TEXT));
    kill(tool.pid(), SIGTERM);
    EXPECT_EQ(0, tool.finish().exitCode);
}

TEST_F(Followed, whatIsUnfinishedAtTheEndIsShown) {
    ToolProcess tool(PROGRAM, arguments(file));
    ASSERT_TRUE(tool.awaitOut(UP_TEXT));
    append("half a line");
    kill(tool.pid(), SIGTERM);
    EXPECT_EQ(UP_TEXT + "<not a record> half a line\n", tool.finish().out);
}

TEST_F(Followed, standardInputEndsIt) {
    const ToolResult result =
        runTool(PROGRAM, {"--log-root", ROOT, "--format", "%N %M", "-f"}, UP + "\n");
    EXPECT_EQ(UP_TEXT, result.out);
    EXPECT_EQ(0, result.exitCode);
}

TEST(Catalogue, layoutTakesSyntheticFields) {
    const ToolResult result =
        showText(DOWN + "\n" + MARK + "\n", {"--format", "@symbol@ @class@ @ci@ %N"});
    EXPECT_EQ("LINE_DOWN LINE 2 ivr\nSYS_MARK SYS 10 sys\n", result.out);
    EXPECT_EQ("cut\n", showText(DOWN + "\n", {"--format", "@field@[reason]"}).out);
}

TEST(Catalogue, filtersBySymbolClassFieldAndMessage) {
    const std::string log = UP + "\n" + DOWN + "\n" + MARK + "\n";
    const struct {
        std::vector<std::string> arguments;
        std::string expected;
    } cases[] = {
        {{"--symbol", "LINE_DOWN"}, DOWN_TEXT},
        {{"--symbol", "LINE_*"}, UP_TEXT + DOWN_TEXT},
        {{"--symbol=LINE_UP", "--symbol=SYS_MARK"}, UP_TEXT + MARK_TEXT},
        {{"--symbol", "line_down"}, ""},
        {{"--class", "SYS"}, MARK_TEXT},
        {{"--class", "L*", "--priority", "3"}, DOWN_TEXT},
        {{"--class", "NONE"}, ""},
        {{"--field", "reason=cut"}, DOWN_TEXT},
        {{"--field", "line=7"}, UP_TEXT + DOWN_TEXT},
        {{"--field", "line=7", "--field", "board=?"}, UP_TEXT},
        {{"--field", "reason="}, ""},
        {{"--field", "nosuch=*"}, ""},
        {{"--message", "out of service"}, DOWN_TEXT},
        {{"--message", "ivr"}, ""},
        {{"--message", ""}, UP_TEXT + DOWN_TEXT + MARK_TEXT},
    };
    for (const auto &row : cases) {
        const ToolResult result = showShort(log, row.arguments);
        EXPECT_EQ(row.expected, result.out) << row.arguments[1];
        EXPECT_EQ("", result.err);
    }
}

TEST(Catalogue, messagesAreSearchedWithoutALayoutOfOnesOwnToo) {
    const ToolResult result = showText(DOWN + "\n" + UP + "\n", {"--message", "out of service"});
    EXPECT_EQ("** Mon Jan  1 00:00:00 2024 ivr f.c:40\nLine 7 is out of service: cut\n",
              result.out);
}

TEST(Negated, theNextFilterAlone) {
    const std::string log = UP + "\n" + DOWN + "\n" + MARK + "\n";
    const struct {
        std::vector<std::string> arguments;
        std::string expected;
    } cases[] = {
        {{"--not", "--class", "SYS"}, UP_TEXT + DOWN_TEXT},
        {{"--not", "--class", "SYS", "--priority", "3"}, DOWN_TEXT},
        {{"--class", "LINE", "--not", "--priority", "3"}, UP_TEXT},
        {{"--not", "--priority", "0", "--not", "--class", "SYS"}, DOWN_TEXT},
        {{"--not", "--symbol", "LINE_UP", "--not", "--symbol", "SYS_MARK"}, DOWN_TEXT},
        {{"--not", "--producer", "ivr"}, MARK_TEXT},
        {{"--not", "--number=100-101"}, MARK_TEXT},
        {{"--not", "--field", "line=7"}, MARK_TEXT},
        {{"--field", "line=7", "--not", "--field", "reason=cut"}, UP_TEXT},
        {{"--not", "--message", "service"}, MARK_TEXT},
        {{"--not", "--since", "2024-01-01"}, ""},
        {{"--not", "--until", "2024-01-01"}, ""},
        {{"--priority", "0", "--priority", "3", "--not", "--priority", "3"}, UP_TEXT + MARK_TEXT},
    };
    for (const auto &row : cases)
        EXPECT_EQ(row.expected, showShort(log, row.arguments).out)
            << testing::PrintToString(row.arguments);
}

TEST(Negated, standsBeforeAFilter) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--not"},
                                                      {"--not", "--json"},
                                                      {"--not", "--not", "--class", "X"},
                                                      {"--class", "X", "--not"}}) {
        const ToolResult result = showShort("", arguments);
        EXPECT_EQ(2, result.exitCode);
        EXPECT_EQ("qnlog: --not: a filter must follow\n", result.err);
    }
}

TEST(Filtered, timesThatBeginWithASign) {
    EXPECT_EQ("", showShort(UP + "\n", {"--since", "-15m"}).out);
    EXPECT_EQ(UP_TEXT, showShort(UP + "\n", {"--until", "-15m"}).out);
    EXPECT_EQ(UP_TEXT, showShort(UP + "\n", {"--until=2h ago"}).out);
}

TEST(Filtered, linesThatAreNoRecordsHaveTheTimeOfTheRecordBeforeThem) {
    const std::string log = "first\n" + UP + "\nfree\n";
    EXPECT_EQ("", showShort(log, {"--since", "1h"}).out);
    EXPECT_EQ(UP_TEXT + "<not a record> free\n", showShort(log, {"--since", "2024-01-01"}).out);
    EXPECT_EQ("<not a record> first\n", showShort(log, {"--until", "2023-12-31"}).out);
}

TEST(Catalogue, templateWritesALineForEachRecordAlone) {
    const std::string log = "foreign\n" + DOWN + "\n# comment\n" + MARK + "\n";
    const ToolResult result =
        showText(log, {"--template", "page @program@ @p@ @field@[reason] \\@symbol\\@", "--color",
                       "always"});
    EXPECT_EQ("page ivr \"**\" cut @symbol@\npage sys \"  \" @field@[reason] @symbol@\n",
              result.out);
}

TEST(Catalogue, templateOfSpecialBytesStaysHarmless) {
    const std::string log = record(101, 3, "ivr", {"7", "a\x1B[2Jb"}) + "\n";
    EXPECT_EQ(showText(log, {"--template", "@field@[1]"}).out.find('\x1B'), std::string::npos);
}

TEST(Catalogue, badTemplateIsRefusedBeforeAnythingIsRead) {
    const ToolResult unknown = showText(UP + "\n", {"--template", "@nosuch@"});
    EXPECT_EQ(2, unknown.exitCode);
    EXPECT_EQ("", unknown.out);
    EXPECT_EQ("qnlog: --template: @nosuch@ : Unrecognized synthetic field name\n", unknown.err);
    const ToolResult key = showText(UP + "\n", {"--template", "@key@"});
    EXPECT_EQ(2, key.exitCode);
    EXPECT_EQ("qnlog: --template: @key@ : specified in illegal context\n", key.err);
}

TEST(Catalogue, fieldWithoutASignIsAMistake) {
    EXPECT_EQ(2, showText(UP + "\n", {"--field", "line"}).exitCode);
    EXPECT_EQ(2, showText(UP + "\n", {"--field", "=7"}).exitCode);
}

TEST(Usage, mistakesAnswerTwo) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--nonsense"},
                                                      {"--priority", "x"},
                                                      {"--priority", "3-1"},
                                                      {"--number", ""},
                                                      {"--since", "yesteryear"},
                                                      {"--since", "2024-13-01"},
                                                      {"--color", "red"},
                                                      {"--width", "-1"},
                                                      {"--format", "%P(x)"}}) {
        const ToolResult result = runTool(PROGRAM, arguments);
        EXPECT_EQ(2, result.exitCode) << arguments[0] << ": " << result.err;
        EXPECT_EQ("", result.out);
        EXPECT_NE(std::string::npos, result.err.find("qnlog: ")) << result.err;
    }
}

TEST(Usage, versionIsOneLine) {
    EXPECT_EQ("qnlog 1.0.0\n", runTool(PROGRAM, {"--version"}).out);
}
