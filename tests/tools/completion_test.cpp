/* What every tool tells of its options: the help, which fits a screen, and the shells' completion,
   which is run by the shells. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

static const std::string TOOLS = TOOLS_DIR;
static const std::string COMPLETIONS = COMPLETIONS_DIR;

class EachTool : public testing::TestWithParam<const char *> {
  protected:
    std::string name = GetParam();
    std::string help = runTool(TOOLS + "/" + name, {"--help"}).out;
};

INSTANTIATE_TEST_SUITE_P(Tools, EachTool,
                         testing::Values("qncatalog", "qnlogd", "qnlog", "qnlogedit", "logDstPri",
                                         "qnclip"),
                         [](const auto &each) { return std::string(each.param); });

static std::string shell(const std::string &program, const std::string &script,
                         const std::vector<std::string> &variables = {}) {
    const ToolResult result = runTool(program, {"-c", script}, "", variables);
    EXPECT_EQ("", result.err) << script;
    EXPECT_EQ(0, result.exitCode) << script;
    return result.out;
}

static std::string bash(const std::string &script, const std::vector<std::string> &variables = {}) {
    return shell("/bin/bash", script, variables);
}

// The long options that the text names.
static std::set<std::string> longOptionsIn(const std::string &text) {
    std::set<std::string> found;
    for (size_t at = 0; (at = text.find("--", at)) != std::string::npos;) {
        const size_t end =
            std::min(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz-", at), text.size());
        if (end > at + 2 && (at == 0 || text[at - 1] != '-'))
            found.insert(text.substr(at, end - at));
        at = end;
    }
    return found;
}

// What bash offers behind the words, the last of which is being written.
static std::string offered(const std::string &tool, const std::string &words, int place,
                           const std::vector<std::string> &variables = {}) {
    return bash(". '" + COMPLETIONS + "/bash/" + tool + "'; COMP_WORDS=(" + words +
                    "); COMP_CWORD=" + std::to_string(place) + "; _quarnel_" + tool +
                    "; echo \"${COMPREPLY[*]}\"",
                variables);
}

TEST_P(EachTool, helpFitsAScreenAndShowsTwoUses) {
    std::istringstream stream(help);
    int lines = 0;
    int uses = 0;
    for (std::string line; std::getline(stream, line); lines++) {
        EXPECT_LT(line.size(), 80U) << line;
        uses += line.find("  ") == 0 && line.find(name + " ") != std::string::npos ? 1 : 0;
    }
    EXPECT_LE(lines, 23);                                    // and the prompt
    EXPECT_GE(uses + (name == "qnlogd" ? 1 : 0), 2) << help; // one of qnlogd's is a signal to it
}

TEST_P(EachTool, helpNamesEveryOptionAndNoOther) {
    const std::string words = offered(name, name + " --", 1);
    std::set<std::string> named = longOptionsIn(help);
    named.erase(name == "qncatalog" ? "--json" : ""); // of qnlog
    named.erase("--comment");                         // of qnclip's set and insert
    named.erase("--trailer");
    EXPECT_EQ(longOptionsIn(words), named);
}

static std::string slurp(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Else: cmake --build TREE --target completions
TEST_P(EachTool, installedScriptsAreWhatTheToolTells) {
    const std::string program = TOOLS + "/" + name;
    EXPECT_EQ(runTool(program, {"--completion", "bash"}).out, slurp(COMPLETIONS + "/bash/" + name));
    EXPECT_EQ(runTool(program, {"--completion", "zsh"}).out, slurp(COMPLETIONS + "/zsh/_" + name));
    EXPECT_NE(0, runTool(program, {"--completion", "csh"}).exitCode);
}

TEST_P(EachTool, bashKnowsIt) {
    EXPECT_EQ("complete -F _quarnel_" + name + " " + name + "\n",
              bash(". '" + COMPLETIONS + "/bash/" + name + "'; complete -p " + name));
}

// With zsh's own function in place whose arguments are printed.
TEST_P(EachTool, zshTakesItsScript) {
    const std::string file = COMPLETIONS + "/zsh/_" + name;
    EXPECT_EQ("", shell("/usr/bin/zsh", "zsh -n '" + file + "'"));
    const std::string seen =
        shell("/usr/bin/zsh", "_arguments() { print -rl -- \"$@\" }; . '" + file + "'");
    EXPECT_EQ(0U, seen.find("-S\n"));
    for (const std::string &option : longOptionsIn(offered(name, name + " --", 1)))
        EXPECT_NE(std::string::npos, seen.find(option)) << option;
}

TEST(Completion, offersWhatFollowsAnOption) {
    EXPECT_EQ("auto always\n", offered("qnlog", "qnlog --color a", 2));
    EXPECT_EQ("never\n", offered("qnlog", "qnlog --color = n", 3));
    EXPECT_EQ("auto always never\n", offered("qnlog", "qnlog --color =", 2));
    EXPECT_EQ("yesterday\n", offered("qnlog", "qnlog --since y", 2));
    EXPECT_EQ("--since --symbol --stats\n", offered("qnlog", "qnlog --s", 1));
    EXPECT_EQ("\n", offered("qnlog", "qnlog --producer ''", 2));
    EXPECT_EQ("set\n", offered("qnclip", "qnclip file s", 2));
}

TEST(Completion, knowsTheCatalogue) {
    const std::string root = SAMPLE_ROOT;
    EXPECT_EQ("LINE_DOWN LINE_DIALTONE\n",
              offered("qnlog", "qnlog --log-root '" + root + "' --symbol LINE_D", 4));
    EXPECT_EQ("CALL\n", offered("qnlog", "qnlog --class C", 2, {"LOGROOT=" + root}));
    EXPECT_EQ("\n", offered("qnlog", "qnlog --class ''", 2, {"LOGROOT=/nowhere"}));
}

TEST(Completion, offersFiles) {
    const TempDir dir;
    dir.write("log file", "");
    EXPECT_EQ(dir.file("log file") + "\n", offered("qnlog", "qnlog " + dir.file("lo"), 1));
    EXPECT_EQ(dir.path() + "\n", offered("qnlog", "qnlog --log-root " + dir.path(), 2));
}

// The command and its words stand behind the file.
TEST(Completion, offersWhatACommandTakes) {
    const TempDir dir;
    dir.write("clip", "# A=0\nTRUNK=1\nTONE=\"a b\" # c\nCALLS=3\n");
    const std::string clip = "qnclip " + dir.file("clip");
    EXPECT_EQ("TRUNK TONE CALLS\n", offered("qnclip", clip + " get ''", 3));
    EXPECT_EQ("TRUNK TONE\n", offered("qnclip", clip + " insert T", 3));
    EXPECT_EQ("--comment\n", offered("qnclip", clip + " set TONE x --c", 5));
    EXPECT_EQ("-h --help\n", offered("qnclip", clip + " get -", 3));
    EXPECT_EQ("\n", offered("qnclip", clip + " set TONE x --comment ''", 6));
    EXPECT_EQ("\n", offered("qnclip", "qnclip /nowhere get ''", 3));
}
