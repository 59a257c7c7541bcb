/* qnlogedit as a program: which bytes of a log it changes, and that it changes no other. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace std::string_literals;

static const std::string PROGRAM = TOOLS_DIR "/qnlogedit";

static const std::string RECORD = "12 \x1C"
                                  "35A0B1C2Dprog f.c:40\x1C"
                                  "a\x1C\x1D";

static std::string edited(const std::string &log, const std::vector<std::string> &arguments) {
    const ToolResult result = runTool(PROGRAM, arguments, log);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(0, result.exitCode);
    return result.out;
}

TEST(Qnlogedit, withoutAnOptionNothingChanges) {
    const std::string log =
        RECORD + "\n# comment\n\nfree \x01 text\n" + "12 \x1C" + "35A0B\n" + RECORD;
    EXPECT_EQ(log, edited(log, {}));
}

TEST(Qnlogedit, eachOptionChangesItsFieldAlone) {
    EXPECT_EQ("12 \x1C"
              "05A0B1C2Dprog f.c:40\x1C"
              "a\x1C\x1D\n",
              edited(RECORD + "\n", {"--priority", "0"}));
    EXPECT_EQ("12 \x1C"
              "35A0B1C2Cprog f.c:40\x1C"
              "a\x1C\x1D\n",
              edited(RECORD + "\n", {"--shift=-1"}));
    EXPECT_EQ("12 \x1C"
              "35A0B2A3Dprog f.c:40\x1C"
              "a\x1C\x1D\n",
              edited(RECORD + "\n", {"--shift", "3600"}));
    EXPECT_EQ("12 \x1C"
              "35A0B1C2Dother f.c:40\x1C"
              "a\x1C\x1D\n",
              edited(RECORD + "\n", {"--producer", "other"}));
}

TEST(Qnlogedit, optionsWorkTogetherOnFilesInTheirOrder) {
    const TempDir dir;
    const std::string a = dir.write("a", "first\n" + RECORD + "\n");
    const std::string b = dir.write("b", RECORD);
    const std::string changed = "12 \x1C"
                                "45A0B1C37x f.c:40\x1C"
                                "a\x1C\x1D";
    EXPECT_EQ("first\n" + changed + "\n" + changed,
              edited("", {"--priority=4", "--shift=10", "--producer=x", a, b}));
}

TEST(Qnlogedit, whatCannotBeParsedPassesUnchanged) {
    const std::string log = "12 \x1C"
                            "3short\n"
                            "# 12\n"
                            "\n"
                            "bytes \xFF\n"s +
                            "zero \0 byte\n"s +
                            "12 \x1C"
                            "35A0B1C2Dprog f.c:40\x1C"
                            "cut off\n"
                            "no line feed";
    EXPECT_EQ(log, edited(log, {"--priority", "0", "--shift", "5", "--producer", "x"}));
}

TEST(Qnlogedit, lineFeedsWithinArgumentsStay) {
    const std::string log = "12 \x1C"
                            "35A0B1C2Dprog f.c:40\x1C"
                            "one\ntwo\x1D\n";
    EXPECT_EQ("12 \x1C"
              "15A0B1C2Dprog f.c:40\x1C"
              "one\ntwo\x1D\n",
              edited(log, {"--priority", "1"}));
}

TEST(Qnlogedit, timeThatWouldLeave32BitsIsKeptAndTold) {
    const ToolResult result = runTool(PROGRAM, {"--shift", "4294967296"}, RECORD + "\n");
    EXPECT_EQ(RECORD + "\n", result.out);
    EXPECT_EQ("qnlogedit: 1 records keep their time: it would leave 32 bits\n", result.err);
    EXPECT_EQ(1, result.exitCode);
}

TEST(Qnlogedit, missingFileIsToldAndTheOthersWritten) {
    const TempDir dir;
    const std::string a = dir.write("a", RECORD + "\n");
    const ToolResult result = runTool(PROGRAM, {"/nonexistent/log", a});
    EXPECT_EQ(RECORD + "\n", result.out);
    EXPECT_EQ("qnlogedit: /nonexistent/log: No such file or directory\n", result.err);
    EXPECT_EQ(1, result.exitCode);
}

TEST(Qnlogedit, mistakesAnswerTwoAndHelpFitsAScreen) {
    for (const char *mistake :
         {"--priority=5", "--priority=x", "--shift=x", "--producer=a b", "--bogus"})
        EXPECT_EQ(2, runTool(PROGRAM, {mistake}, RECORD).exitCode) << mistake;
    const std::string help = runTool(PROGRAM, {"--help"}).out;
    EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 24);
    EXPECT_EQ("qnlogedit ", runTool(PROGRAM, {"--version"}).out.substr(0, 10));
}

TEST(Qnlogedit, aTerminalNeverSeesControlsOfALog) {
    const TempDir dir;
    const std::string log = dir.write("log", RECORD + "\nfree \x1B[2J text\n");
    EXPECT_EQ("12 <34>35A0B1C2Dprog f.c:40<34>a<34><35>\nfree <33>[2J text\n",
              runOnTerminal(PROGRAM, {log}, 80));
}
