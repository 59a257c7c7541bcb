/* qnlog with a person in front: pager, progress, and what a pipe turns off. The pager is a real
   process; the terminal is a real one of 24 lines. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <pty.h>
#include <signal.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static const std::string PROGRAM = TOOLS_DIR "/qnlog";
static const std::string ROOT = SAMPLE_ROOT;
static const std::string DOWN = "101 \x1C"
                                "365920080ivr f.c:40\x1C"
                                "7\x1C"
                                "cut\x1D\n";

class Paged : public testing::Test {
  protected:
    std::string shown(std::vector<std::string> arguments,
                      const std::vector<std::string> &variables) const {
        arguments.insert(arguments.begin(),
                         {"--log-root", ROOT, "--format", "%N %M", "--width", "0"});
        arguments.push_back(log);
        return runOnTerminal(PROGRAM, arguments, 80, variables);
    }
    TempDir dir;
    std::string log = dir.write("log", DOWN + "free\n");
};

static const std::string PLAIN =
    "ivr Line 7 is out of service: cut\n<not a record> free\nqnlog: 1 line is no record\n";
static const std::string COLOURED =
    "\x1B[31mivr Line 7 is out of service: cut\x1B[0m\n\x1B[35m<not a record>\x1B[0m free\n"
    "qnlog: 1 line is no record\n";

// Both streams go through it, and the colours of the terminal stay.
TEST_F(Paged, throughTheProgramOfTheEnvironment) {
    std::string expected = COLOURED;
    for (size_t at = 0; at < expected.size(); at = expected.find('\n', at) + 1)
        expected.insert(at, "> ");
    EXPECT_EQ(expected, shown({}, {"PAGER=sed 's/^/> /'"}));
}

TEST_F(Paged, thePagerIsAwaited) {
    EXPECT_EQ(PLAIN + "end of the pager\n",
              shown({"--color=never"}, {"PAGER=cat; sleep 0.3; echo end of the pager"}));
}

TEST_F(Paged, notWhereItIsRefused) {
    EXPECT_EQ(COLOURED, shown({}, {"PAGER=cat"}));
    EXPECT_EQ(COLOURED, shown({}, {"PAGER="}));
    EXPECT_EQ(COLOURED, shown({"--no-pager"}, {"PAGER=sed 's/^/> /'"}));
    EXPECT_EQ(PLAIN, shown({"--no-pager"}, {"NO_COLOR=1", "PAGER=sed 's/^/> /'"}));
}

TEST_F(Paged, lessLeavesAShortTextOnTheScreen) {
    const std::string text = shown({}, {"PAGER", "LESS"});
    EXPECT_NE(std::string::npos, text.find("\x1B[31mivr Line 7 is out of service: cut\x1B[0m"));
    EXPECT_EQ(std::string::npos, text.find("(END)"));
    EXPECT_EQ(std::string::npos, text.find("\x1B[?1049h")); // another screen
}

TEST_F(Paged, nothingToShowNeedsNoPager) {
    EXPECT_EQ("", shown({"--only-records", "--priority", "1", "--since", "1h"},
                        {"PAGER=echo pager was here"}));
}

TEST_F(Paged, whoLeavesThePagerEarlyEndsTheReading) {
    std::ofstream stream(log, std::ios::binary);
    for (int i = 0; i < 100000; i++)
        stream << DOWN;
    stream.close();
    const std::string text = shown({"--color=never"}, {"PAGER=head -n 1"});
    EXPECT_EQ("ivr Line 7 is out of service: cut\n", text);
}

TEST_F(Paged, notInAPipeAndNotWhenFollowing) {
    const ToolResult piped = runTool(PROGRAM, {"--log-root", ROOT, "--format", "%N %M", log}, "",
                                     {"PAGER=echo pager was here"});
    EXPECT_EQ("ivr Line 7 is out of service: cut\n<not a record> free\n", piped.out);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        setenv("PAGER", "echo pager was here", 1);
        execl(PROGRAM.c_str(), "qnlog", "--log-root", ROOT.c_str(), "--follow", "--color=never",
              "--format", "%N", log.c_str(), nullptr);
        _exit(127);
    }
    std::string text;
    char block[256];
    for (ssize_t count; text.find("free") == std::string::npos &&
                        (count = read(terminal, block, sizeof block)) > 0;)
        text.append(block, static_cast<size_t>(count));
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    close(terminal);
    EXPECT_EQ("ivr\r\n<not a record> free\r\n", text);
}

TEST_F(Paged, jsonForATerminalHoldsNoControls) {
    dir.write("log", "101 \x1C"
                     "365920080ivr f.c:40\x1C"
                     "7\x1C\x1B[2J\xC2\x9B\x7F\x1D\n");
    EXPECT_NE(std::string::npos,
              shown({"--json"}, {"PAGER=cat"}).find("\"reason\":\"\\u001b[2J\\u009b\\u007f\""));
    const std::string csv = shown({"--csv"}, {"PAGER=cat"});
    EXPECT_NE(std::string::npos, csv.find("<33>[2J<302><233><177>"));
    EXPECT_EQ(std::string::npos, csv.find('\x1B'));
}

// A pipe that is fed slowly makes work that is long.
static std::string progressOf(const std::string &redirection, const std::string &options) {
    const std::string command = "{ printf '# a\\n'; sleep 1.3; printf '# b\\n'; sleep 0.1; } | " +
                                PROGRAM + " --log-root " + ROOT + " " + options + " " + redirection;
    return runOnTerminal("/bin/sh", {"-c", command}, 80);
}

TEST(Progress, isToldOnATerminalFromASecondOnAndWiped) {
    const std::string wiped = "\x1B[K";
    const std::string shown = progressOf("> /dev/null", "");
    EXPECT_EQ(0U, shown.find(wiped + "0 MB")) << shown;
    EXPECT_EQ(shown.size() - wiped.size(), shown.rfind(wiped)) << shown;
}

TEST(Progress, isNotToldElsewhere) {
    const TempDir dir;
    EXPECT_EQ("", progressOf("> /dev/null 2>" + dir.file("err"), ""));
    std::ifstream stream(dir.file("err"));
    EXPECT_EQ(EOF, stream.get());
}
