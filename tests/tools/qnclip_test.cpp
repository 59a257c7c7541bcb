/* qnclip as a program: what it prints, what the file becomes, and that several at once lose no
 * change. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

static const std::string PROGRAM = TOOLS_DIR "/qnclip";

struct Clip {
    TempDir dir;
    std::string path = dir.file("clip");
    ToolResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), path);
        return runTool(PROGRAM, arguments);
    }
    std::string content() const { return dir.read("clip"); }
};

TEST(Qnclip, setsAndGetsKeepingComments) {
    Clip clip;
    clip.dir.write("clip", "# head\nA=1 # one\n# tail\n");
    EXPECT_EQ(0, clip.run({"set", "A", "two words"}).exitCode);
    EXPECT_EQ(
        0, clip.run({"set", "B", "3", "--comment", "# new\n", "--trailer", " # three"}).exitCode);
    EXPECT_EQ("# head\nA=\"two words\" # one\n# tail\n# new\nB=3 # three\n", clip.content());
    EXPECT_EQ("two words\n", clip.run({"get", "A"}).out);
}

TEST(Qnclip, helpOfACommandShowsItBehindTheFile) {
    const std::string help = runTool(PROGRAM, {"x", "set", "--help"}).out;
    EXPECT_NE(std::string::npos, help.find("\nUsage: qnclip file set [OPTIONS] name value\n"))
        << help;
}

TEST(Qnclip, insertsDeletesListsAndExpands) {
    Clip clip;
    clip.dir.write("clip", "A=1\nC='\\$HOME_OF_TEST x'\n");
    EXPECT_EQ(0, clip.run({"insert", "C", "B", "2"}).exitCode);
    EXPECT_EQ("A=1\nB=2\nC=\"$HOME_OF_TEST x\"\n", clip.run({"list"}).out);
    const ToolResult expanded = runTool(PROGRAM, {clip.path, "expand"}, "", {"HOME_OF_TEST=/h"});
    EXPECT_EQ("A=1\nB=2\nC=\"/h x\"\n", expanded.out);
    EXPECT_EQ(0, clip.run({"delete", "A"}).exitCode);
    EXPECT_EQ("B=2\nC=\"$HOME_OF_TEST x\"\n", clip.content());
}

TEST(Qnclip, failuresAreToldAndChangeNothing) {
    Clip clip;
    clip.dir.write("clip", "A=1\n");
    const struct {
        std::vector<std::string> arguments;
        std::string reason;
    } cases[] = {
        {{"get", "X"}, "no entry named X"},
        {{"delete", "X"}, "no entry named X"},
        {{"insert", "X", "B", "2"}, "no entry named X"},
        {{"insert", "A", "A", "2"}, "A has a value already"},
    };
    for (const auto &row : cases) {
        const ToolResult result = clip.run(row.arguments);
        EXPECT_EQ(1, result.exitCode);
        EXPECT_EQ("qnclip: " + clip.path + ": " + row.reason + "\n", result.err);
        EXPECT_EQ("A=1\n", clip.content());
    }
}

TEST(Qnclip, readingDoesNotMakeTheFile) {
    Clip clip;
    EXPECT_EQ(1, clip.run({"get", "A"}).exitCode);
    EXPECT_EQ(1, clip.run({"list"}).exitCode);
    EXPECT_EQ(0, clip.run({"set", "A", "1"}).exitCode);
    EXPECT_EQ("A=1\n", clip.content());
}

TEST(Qnclip, whatCouldNotBeReadBackIsRefused) {
    Clip clip;
    clip.dir.write("clip", "A=1\n");
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"set", "1A", "x"},
          {"set", "A B", "x"},
          {"set", "", "x"},
          {"set", "A", "x", "--trailer", "y"},
          {"set", "A", "x", "--comment", "no comment\n"},
          {"set", "A", "x", "--comment", "# cut"},
          {"get"},
          {},
          {"bogus"}}) {
        EXPECT_EQ(2, clip.run(arguments).exitCode);
        EXPECT_EQ("A=1\n", clip.content());
    }
}

TEST(Qnclip, severalAtOnceLoseNoChange) {
    Clip clip;
    std::vector<std::unique_ptr<ToolProcess>> running;
    for (int each = 0; each < 12; ++each)
        running.push_back(std::make_unique<ToolProcess>(
            PROGRAM, std::vector<std::string>{clip.path, "set", "N" + std::to_string(each), "x"}));
    for (const auto &process : running)
        EXPECT_EQ(0, process->finish().exitCode);
    const std::string list = clip.run({"list"}).out;
    EXPECT_EQ(12, std::count(list.begin(), list.end(), '\n'));
}

TEST(Qnclip, aTerminalNeverSeesControlsOfAFile) {
    Clip clip;
    clip.dir.write("clip", "A='x\x1B[2J'\n");
    EXPECT_EQ("x<33>[2J\n", runOnTerminal(PROGRAM, {clip.path, "get", "A"}, 80));
    EXPECT_EQ("A=\"x<33>[2J\"\n", runOnTerminal(PROGRAM, {clip.path, "list"}, 80));
    EXPECT_EQ("x\x1B[2J\n", clip.run({"get", "A"}).out);
    EXPECT_EQ("qnclip: <33>[2Jnone: No such file or directory\n",
              runOnTerminal(PROGRAM, {"\x1B[2Jnone", "get", "A"}, 80));
}
