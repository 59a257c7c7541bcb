/* Statements, handlers, files and the default option. Whatever changes the environment or the
   default option runs in a child process. */
#include "options/options.h"

#include "buffers/arrays.h"
#include "core/mkcopy.h"
#include "support/childProcess.h"
#include "support/failingAlloc.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Statement {
    int result;
    std::string name, value, rest;
    bool operator==(const Statement &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Statement &statement) {
    return out << statement.result << " name=" << statement.name << " value=" << statement.value
               << " rest=" << statement.rest;
}

std::string orNull(const char *text) {
    return text == nullptr ? "<null>" : text;
}

Statement parse(const char *line) {
    char *name, *value, *rest;
    const int result = parseXeqY(0, 0, line, &name, &value, &rest);
    return {result, orNull(name), orNull(value), orNull(rest)};
}

TEST(ParseXeqY, takesOneStatement) {
    const struct {
        const char *line;
        Statement expected;
    } cases[] = {
        {"A=1", {1, "A", "1", "<null>"}},
        {"  A = 1", {1, "A", "1", "<null>"}},
        {"_a1=x", {1, "_a1", "x", "<null>"}},
        {"A=1; B=2 # note", {1, "A", "1", "; B=2 # note"}},
        {"A=1 B=2", {1, "A", "1", " B=2"}},
        {"A=1#2", {1, "A", "1", "#2"}},
        {"A=", {1, "A", "<null>", "<null>"}},
        {"A=  ", {1, "A", "<null>", "<null>"}},
        {"A=''", {1, "A", "", "<null>"}},
        {"A=;", {1, "A", "", ";"}},
        {"A=#x", {1, "A", "", "#x"}},
        {"MSG='a  b'", {1, "MSG", "a  b", "<null>"}},
        {"MSG=a\\ b", {1, "MSG", "a b", "<null>"}},
        {"A=\"x'y\"", {1, "A", "x'y", "<null>"}},
        {"A='x\"y'", {1, "A", "x\"y", "<null>"}},
        {"A='x;#y'z", {1, "A", "x;#yz", "<null>"}},
        {"A=`echo 'a;b'` c", {1, "A", "`echo 'a;b'`", " c"}},
        {"A='a\\'b'", {1, "A", "a'b", "<null>"}},
        {"A=a\\;b", {1, "A", "a;b", "<null>"}},
        {"A='open", {1, "A", "open", "<null>"}},
        {"A=ab\\", {1, "A", "ab", "<null>"}},
        {"A='ab\\", {1, "A", "ab", "<null>"}},
        {"A==", {1, "A", "=", "<null>"}},
        {"A", {0, "A", "<null>", "<null>"}},
        {"A 1", {0, "A", "<null>", "<null>"}},
        {"A-B=1", {0, "A", "<null>", "<null>"}},
        {"", {0, "<null>", "<null>", "<null>"}},
        {"   ", {0, "<null>", "<null>", "<null>"}},
        {"# A=1", {0, "<null>", "<null>", "<null>"}},
        {"1A=1", {0, "<null>", "<null>", "<null>"}},
        {"=1", {0, "<null>", "<null>", "<null>"}},
        {"\xC3\xA9=1", {0, "<null>", "<null>", "<null>"}},
    };
    for (const auto &row : cases)
        EXPECT_EQ(parse(row.line), row.expected) << "line: " << row.line;
}

TEST(ParseXeqY, nullLineAndNullOutsGiveNothing) {
    char *name = const_cast<char *>("x"), *value = name, *rest = name;
    EXPECT_EQ(parseXeqY(0, 0, nullptr, &name, &value, &rest), 0);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(rest, nullptr);
    EXPECT_EQ(parseXeqY(0, 0, "A=1", nullptr, &value, &rest), 0);
    EXPECT_EQ(parseXeqY(0, 0, "A=1", &name, nullptr, &rest), 0);
    EXPECT_EQ(parseXeqY(0, 0, "A=1;", &name, &value, nullptr), 1);
}

TEST(ParseXeqY, lineIsNotChanged) {
    char line[] = "A='1 2' ; B=\\x";
    parse(line);
    EXPECT_STREQ(line, "A='1 2' ; B=\\x");
}

TEST(ParseXeqY, takesItsOwnPreviousResultsAsLine) {
    char *name, *value, *rest;
    ASSERT_EQ(parseXeqY(0, 0, "A='B=2'; C=3", &name, &value, &rest), 1);
    ASSERT_EQ(parseXeqY(0, 0, value, &name, &value, nullptr), 1);
    EXPECT_STREQ(name, "B");
    EXPECT_STREQ(value, "2");
    ASSERT_EQ(parseXeqY(0, 0, "A=1; C=3", &name, &value, &rest), 1);
    ASSERT_EQ(parseXeqY(0, 0, rest + 1, &name, &value, &rest), 1);
    EXPECT_STREQ(name, "C");
    EXPECT_STREQ(value, "3");
}

TEST(ParseXeqY, threadsKeepTheirOwnResults) {
    char *name, *value, *rest;
    ASSERT_EQ(parseXeqY(0, 0, "A=1;r", &name, &value, &rest), 1);
    std::thread([] { EXPECT_EQ(parse("B=2;s"), (Statement{1, "B", "2", ";s"})); }).join();
    EXPECT_STREQ(name, "A");
    EXPECT_STREQ(value, "1");
    EXPECT_STREQ(rest, ";r");
}

// A handler that notes what it is given.
std::vector<std::string> calls;

void note(OptionEntry *entry, char *name, char *value) {
    calls.push_back(orNull(entry->name) + ":" + orNull(name) + "=" + orNull(value));
}

int process(std::vector<std::string> lines, OptionEntry *table) {
    std::vector<char *> texts;
    for (std::string &line : lines)
        texts.push_back(line.data());
    texts.push_back(nullptr);
    return processOptions(texts.data(), table);
}

char A[] = "A", B[] = "B", DEFAULT[] = "default";

TEST(ProcessOptions, statementsReachTheirHandlers) {
    calls.clear();
    OptionEntry table[] = {{A, DEFAULT, note, nullptr},
                           {B, nullptr, note, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
    EXPECT_EQ(process({"A=1; B=2 # note", "# A=3", "A=4 B=5", "A=", "B=''", "A", "A=6 ; # B=7",
                       "A=8;;B=9"},
                      table),
              1);
    EXPECT_EQ(calls, (std::vector<std::string>{"A:A=1", "B:B=2", "A:A=4", "A:A=<null>",
                                               "B:B=", "A:A=6", "A:A=8"}));
}

TEST(ProcessOptions, valuesAreExpandedAndQuotesPeelTwice) {
    expectChildPasses([] {
        unsetenv("HOME");
        unsetenv("Y");
        calls.clear();
        OptionEntry table[] = {{A, nullptr, note, nullptr}, {nullptr, nullptr, nullptr, nullptr}};
        process({"A=${HOME:-/tmp}/x", "A=${Y:=5}", "A='a  b'", "A=\"'a  b'\"", "A=`echo out`",
                 "A='$Y'", "A=\\\\$Y"},
                table);
        EXPECT_EQ(calls, (std::vector<std::string>{"A:A=/tmp/x", "A:A=5", "A:A=a b", "A:A=a  b",
                                                   "A:A=out", "A:A=5", "A:A=$Y"}));
        EXPECT_STREQ(getenv("Y"), "5");
    });
}

TEST(ProcessOptions, firstRowOfANameWins) {
    calls.clear();
    OptionEntry table[] = {{A, DEFAULT, note, nullptr},
                           {A, nullptr, note, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
    process({"A=1"}, table);
    EXPECT_EQ(calls.size(), 1U);
}

// Tables of random names, many of them twice, and files of random statements: each has to reach the
// row that a search from the first one on finds.
TEST(ProcessOptions, statementsOfLongFilesReachTheFirstRowOfTheirName) {
    std::mt19937 random(20260103);
    const auto randomName = [&](size_t kinds) {
        return std::string(random() % 2 == 0 ? "name" : "n") + std::to_string(random() % kinds);
    };
    for (const size_t count : {0U, 1U, 7U, 100U, 255U, 256U, 257U, 400U})
        for (const size_t kinds : {20U, 700U}) {
            std::vector<std::string> names(count);
            std::vector<int32_t> stored(count, 0), expected(count, 0);
            std::vector<OptionEntry> table;
            for (size_t row = 0; row < count; ++row) {
                names[row] = randomName(kinds);
                table.push_back({names[row].data(), nullptr, optInteger, &stored[row]});
            }
            table.push_back({nullptr, nullptr, nullptr, nullptr});
            std::vector<std::string> lines;
            for (int32_t number = 1; number <= 200; ++number) {
                const std::string name = randomName(kinds);
                lines.push_back(name + "=" + std::to_string(number));
                const auto row = std::find(names.begin(), names.end(), name);
                if (row != names.end())
                    expected[static_cast<size_t>(row - names.begin())] = number;
            }
            EXPECT_EQ(process(lines, table.data()), 1);
            EXPECT_EQ(stored, expected) << count << " rows, " << kinds << " names";
        }
}

// A handler that gives the first row the name of the second.
OptionEntry *rowToRename;

void renameFirstRow(OptionEntry *, char *, char *) {
    static char name[] = "SECOND";
    rowToRename->name = name;
}

TEST(ProcessOptions, handlerMayRenameARowWhileAFileIsProcessed) {
    char first[] = "FIRST", second[] = "SECOND", rename[] = "RENAME";
    int32_t values[2] = {0, 0};
    OptionEntry table[] = {{first, nullptr, optInteger, &values[0]},
                           {second, nullptr, optInteger, &values[1]},
                           {rename, nullptr, renameFirstRow, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
    rowToRename = table;
    std::vector<std::string> lines(20, "SECOND=1");
    lines.insert(lines.end(), {"RENAME=", "SECOND=2", "FIRST=3"});
    process(lines, table);
    EXPECT_EQ(values[0], 2);
    EXPECT_EQ(values[1], 1);
}

TEST(ProcessOptions, nullLinesAndNullTable) {
    EXPECT_EQ(processOptions(nullptr, nullptr), 0);
    EXPECT_EQ(process({}, nullptr), 1);
    EXPECT_EQ(process({"A=1"}, nullptr), 1);
}

TEST(ProcessOptions, rowWithoutHandlerIsExported) {
    expectChildPasses([] {
        OptionEntry table[] = {{A, DEFAULT, nullptr, nullptr},
                               {B, nullptr, nullptr, nullptr},
                               {nullptr, nullptr, nullptr, nullptr}};
        process({"A=", "B="}, table);
        EXPECT_STREQ(getenv("A"), "default");
        EXPECT_STREQ(getenv("B"), "");
        process({"A=text"}, table);
        EXPECT_STREQ(getenv("A"), "text");
    });
}

TEST(ProcessOptions, unknownNamesGoToTheDefaultOption) {
    expectChildPasses([] {
        unsetenv("UNKNOWN");
        process({"UNKNOWN=1"}, nullptr);
        EXPECT_EQ(getenv("UNKNOWN"), nullptr);
        makeDfltOptionEnv();
        process({"UNKNOWN=1"}, nullptr);
        EXPECT_STREQ(getenv("UNKNOWN"), "1");
        calls.clear();
        OptionEntry entry = {B, DEFAULT, note, nullptr};
        setDefaultOption(&entry);
        process({"UNKNOWN=2"}, nullptr);
        EXPECT_EQ(calls, (std::vector<std::string>{"B:UNKNOWN=2"}));
        setDefaultOption(nullptr);
        process({"UNKNOWN=3"}, nullptr);
        EXPECT_STREQ(getenv("UNKNOWN"), "1");
    });
}

TEST(ProcessOptions, defaultOptionWithoutHandlerExportsItsDefault) {
    expectChildPasses([] {
        OptionEntry entry = {nullptr, DEFAULT, nullptr, nullptr};
        setDefaultOption(&entry);
        process({"UNKNOWN="}, nullptr);
        EXPECT_STREQ(getenv("UNKNOWN"), "default");
    });
}

TEST(ProcessOptions, defaultOptionIsACopy) {
    expectChildPasses([] {
        calls.clear();
        char name[] = "name";
        OptionEntry entry = {name, nullptr, note, nullptr};
        setDefaultOption(&entry);
        name[0] = 'X';
        entry.handler = nullptr;
        process({"UNKNOWN=2"}, nullptr);
        EXPECT_EQ(calls, (std::vector<std::string>{"name:UNKNOWN=2"}));
    });
}

void replaceDefault(OptionEntry *entry, char *name, char *value) {
    note(entry, name, value);
    setDefaultOption(entry);
    OptionEntry other = {B, nullptr, note, nullptr};
    setDefaultOption(&other);
}

TEST(ProcessOptions, handlerMayReplaceTheDefaultOptionWhileItIsInUse) {
    expectChildPasses([] {
        calls.clear();
        OptionEntry entry = {A, nullptr, replaceDefault, nullptr};
        setDefaultOption(&entry);
        process({"U=1; V=2"}, nullptr);
        EXPECT_EQ(calls, (std::vector<std::string>{"A:U=1", "B:V=2"}));
    });
}

void parseInside(OptionEntry *entry, char *name, char *value) {
    parse("OTHER='statement of the handler'; rest");
    note(entry, name, value);
}

TEST(ProcessOptions, handlerThatParsesDoesNotDisturbTheStatement) {
    calls.clear();
    OptionEntry table[] = {{A, nullptr, parseInside, nullptr},
                           {B, nullptr, parseInside, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
    process({"A=; B=2; A=3"}, table);
    process({"A=1; B=2"}, table);
    EXPECT_EQ(calls, (std::vector<std::string>{"A:A=", "B:B=2", "A:A=3", "A:A=1", "B:B=2"}));
}

TEST(ProcessOptionsFile, linesOfTheFileAreProcessed) {
    const TempDir folder;
    calls.clear();
    OptionEntry table[] = {{A, nullptr, note, nullptr},
                           {B, nullptr, note, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
    const std::string path = folder.write("options", "A=1; \\\nB=2\n\nA='\"x\ny\"'\nB=last");
    EXPECT_EQ(processOptionsFile(path.c_str(), table), 1);
    EXPECT_EQ(calls, (std::vector<std::string>{"A:A=1", "B:B=2", "A:A=x\ny", "B:B=last"}));
}

TEST(ProcessOptionsFile, unreadableFileGivesZero) {
    EXPECT_EQ(processOptionsFile("/nonexistent/options", nullptr), 0);
    EXPECT_EQ(processOptionsFile(nullptr, nullptr), 0);
}

TEST(ProcessOptionsFile, emptyFileLeavesItsArrayOpenAndEveryOtherClosesIt) {
    expectChildPasses([] {
        const TempDir folder;
        const uint32_t first = arrayOpen(1, 0);
        processOptionsFile(folder.write("full", "A=1\n").c_str(), nullptr);
        processOptionsFile("/nonexistent/options", nullptr);
        EXPECT_EQ(arrDescPtr->count, 2U);
        EXPECT_EQ(processOptionsFile(folder.write("empty", "").c_str(), nullptr), 1);
        EXPECT_EQ(arrDescPtr->count, 3U);
        arrayClose(first);
    });
}

TEST(ProcessProgramOptions, defaultsThenThePrimaryFile) {
    expectChildPasses([] {
        const TempDir folder;
        calls.clear();
        OptionEntry table[] = {{A, DEFAULT, note, nullptr},
                               {B, nullptr, note, nullptr},
                               {nullptr, nullptr, nullptr, nullptr}};
        setPrimaryOptionsFile(folder.write("primary", "B=2\n").c_str());
        processProgramOptions(nullptr, table);
        EXPECT_EQ(calls, (std::vector<std::string>{"A:A=default"}));
        processProgramOptions("/usr/bin/program", table);
        EXPECT_EQ(calls, (std::vector<std::string>{"A:A=default", "A:A=default", "B:B=2"}));
    });
}

// /etc/default is the system's own: a file of ours stands there only for this case.
TEST(ProcessProgramOptions, standardFileIsReadOnlyWithoutAReadablePrimaryFile) {
    const std::string program = "quarnel-test-" + std::to_string(getpid());
    const std::string standard = "/etc/default/" + program;
    FILE *file = fopen(standard.c_str(), "w");
    if (file == nullptr)
        GTEST_SKIP() << "needs to write " << standard;
    fputs("A=standard\n", file);
    fclose(file);
    expectChildPasses([&] {
        const TempDir folder;
        calls.clear();
        OptionEntry table[] = {{A, nullptr, note, nullptr}, {nullptr, nullptr, nullptr, nullptr}};
        processProgramOptions(("/usr/bin/" + program).c_str(), table);
        setPrimaryOptionsFile("/nonexistent/primary");
        processProgramOptions(program.c_str(), table);
        setPrimaryOptionsFile(folder.write("primary", "A=primary\n").c_str());
        processProgramOptions(program.c_str(), table);
        setPrimaryOptionsFile(nullptr);
        processProgramOptions(program.c_str(), table);
        EXPECT_EQ(calls, (std::vector<std::string>{"A:A=standard", "A:A=standard", "A:A=primary",
                                                   "A:A=standard"}));
    });
    remove(standard.c_str());
}

TEST(CreateStandardOptionsName, joinsPrefixFolderAndBaseName) {
    char *name = createStandardOptionsName("/opt", "/usr/bin/prog");
    EXPECT_STREQ(name, "/opt/etc/default/prog");
    freecopy(name);
    name = createStandardOptionsName("", "prog");
    EXPECT_STREQ(name, "/etc/default/prog");
    freecopy(name);
    EXPECT_EQ(createStandardOptionsName(nullptr, "prog"), nullptr);
    EXPECT_EQ(createStandardOptionsName("", nullptr), nullptr);
}

TEST(OptStr, storesACopyOfTheValueOrTheDefault) {
    char *destination = nullptr;
    OptionEntry entry = {A, DEFAULT, optStr, &destination};
    char value[] = "value";
    optStr(&entry, A, value);
    EXPECT_STREQ(destination, "value");
    EXPECT_NE(destination, value);
    freecopy(destination);
    optStr(&entry, A, nullptr);
    EXPECT_STREQ(destination, "default");
    freecopy(destination);
    entry.defaultValue = nullptr;
    optStr(&entry, A, nullptr);
    EXPECT_EQ(destination, nullptr);
    entry.destination = nullptr;
    optStr(&entry, A, value);
}

TEST(OptInteger, storesWholeNumbersOnly) {
    constexpr int32_t UNTOUCHED = 77;
    const struct {
        const char *text;
        int32_t expected;
    } cases[] = {{"12", 12},
                 {"-12", -12},
                 {"0x1F", 31},
                 {"010", 8},
                 {"0", 0},
                 {"12a", UNTOUCHED},
                 {"a", UNTOUCHED},
                 {"12 ", UNTOUCHED},
                 {" 12", 12},
                 {"", 0},
                 {"08", UNTOUCHED},
                 {"2147483647", INT32_MAX},
                 {"2147483648", INT32_MAX},
                 {"-2147483649", INT32_MIN},
                 {"99999999999999999999", INT32_MAX}};
    for (const auto &row : cases) {
        int32_t destination = UNTOUCHED;
        OptionEntry entry = {A, nullptr, optInteger, &destination};
        std::string text = row.text;
        optInteger(&entry, A, text.data());
        EXPECT_EQ(destination, row.expected) << row.text;
    }
    int32_t destination = UNTOUCHED;
    OptionEntry entry = {A, nullptr, optInteger, &destination};
    optInteger(&entry, A, nullptr);
    EXPECT_EQ(destination, UNTOUCHED);
}

TEST(OptBool, wordsAndNumbers) {
    constexpr int32_t UNTOUCHED = 77;
    const struct {
        const char *text;
        int32_t expected;
    } cases[] = {{"T", 1},
                 {"F", 0},
                 {"TRUE", 1},
                 {"FALSE", 0},
                 {"ON", 1},
                 {"OFF", 0},
                 {"Y", 1},
                 {"N", 0},
                 {"YES", 1},
                 {"NO", 0},
                 {"SET", 1},
                 {"CLEAR", 0},
                 {"yes", 1},
                 {"On", 1},
                 {"clear", 0},
                 {"1", 1},
                 {"0", 0},
                 {"-1", 1},
                 {"+0", 0},
                 {"0x10", 1},
                 {"maybe", UNTOUCHED},
                 {"1x", UNTOUCHED},
                 {"-", UNTOUCHED},
                 {"", UNTOUCHED},
                 {"TRUEISH", UNTOUCHED},
                 {" 1", UNTOUCHED}};
    for (const auto &row : cases) {
        int32_t destination = UNTOUCHED;
        OptionEntry entry = {A, nullptr, optBool, &destination};
        std::string text = row.text;
        optBool(&entry, A, text.data());
        EXPECT_EQ(destination, row.expected) << row.text;
    }
}

TEST(OptBool, textIsTurnedToUpperCaseInPlace) {
    int32_t destination = 0;
    OptionEntry entry = {A, nullptr, optBool, &destination};
    char text[] = "may\xE9"
                  "be";
    optBool(&entry, A, text);
    EXPECT_STREQ(text, "MAY\xE9"
                       "BE");
    entry.destination = nullptr;
    char other[] = "on";
    optBool(&entry, A, other);
    EXPECT_STREQ(other, "ON");
}

TEST(OptBool, upperCaseDefaultMayBeAConstant) {
    int32_t destination = 0;
    OptionEntry entry = {A, const_cast<char *>("TRUE"), optBool, &destination};
    optBool(&entry, A, nullptr);
    EXPECT_EQ(destination, 1);
    entry.defaultValue = nullptr;
    optBool(&entry, A, nullptr);
    EXPECT_EQ(destination, 1);
}

TEST(OptEnv, exportsTheValueTheDefaultOrNothing) {
    expectChildPasses([] {
        OptionEntry entry = {A, DEFAULT, optEnv, nullptr};
        char name[] = "QN_OPT_ENV", value[] = "value";
        optEnv(&entry, name, value);
        EXPECT_STREQ(getenv("QN_OPT_ENV"), "value");
        optEnv(&entry, name, nullptr);
        EXPECT_STREQ(getenv("QN_OPT_ENV"), "default");
        entry.defaultValue = nullptr;
        optEnv(&entry, name, nullptr);
        EXPECT_STREQ(getenv("QN_OPT_ENV"), "");
    });
}

TEST(SetEnvVar, exportsAndTakesNull) {
    expectChildPasses([] {
        EXPECT_EQ(setEnvVar("QN_SET", "a=b"), 0);
        EXPECT_STREQ(getenv("QN_SET"), "a=b");
        EXPECT_EQ(setEnvVar("QN_SET", nullptr), 0);
        EXPECT_STREQ(getenv("QN_SET"), "");
        EXPECT_EQ(setEnvVar(nullptr, "x"), 0);
    });
}

TEST(ParseXeqY, exhaustedMemoryIsNoAssignmentAndToldByErrno) {
    // In a thread of its own: it has no working texts yet.
    std::thread([] {
        const std::string line = "A=1; B=" + std::string(200, 'x');
        int failures = 0;
        for (int successes = 0; successes < 20; ++successes) {
            char *name, *value, *rest;
            int result, error;
            {
                const FailingAlloc failing(successes);
                errno = 0;
                result = parseXeqY(0, 0, line.c_str(), &name, &value, &rest);
                error = errno;
            }
            if (result == 1) {
                EXPECT_EQ(rest, line.substr(3));
                continue;
            }
            ++failures;
            EXPECT_EQ(error, ENOMEM);
            EXPECT_EQ(value, nullptr);
            EXPECT_EQ(rest, nullptr);
        }
        EXPECT_GT(failures, 2);
        EXPECT_LT(failures, 20);
    }).join();
}

char lastValue[400];

void keepValue(OptionEntry *, char *, char *value) {
    snprintf(lastValue, sizeof lastValue, "%s", value == nullptr ? "<default>" : value);
}

TEST(ProcessOptions, exhaustedMemoryDropsTheStatement) {
    OptionEntry table[] = {{A, DEFAULT, keepValue, nullptr}, {nullptr, nullptr, nullptr, nullptr}};
    const std::string filler(200, 'x');
    int dropped = 0;
    for (int successes = 0; successes < 40; ++successes) {
        for (std::string statement : {"A=" + filler + "`echo out`", std::string("A=''")}) {
            const bool isEmpty = statement == "A=''";
            char *lines[] = {statement.data(), nullptr};
            strcpy(lastValue, "<dropped>");
            {
                const FailingAlloc failing(successes);
                processOptions(lines, table);
            }
            if (strcmp(lastValue, "<dropped>") == 0)
                ++dropped;
            else
                EXPECT_EQ(lastValue, isEmpty ? "" : filler + "out") << successes;
        }
    }
    EXPECT_GT(dropped, 6);
    EXPECT_LT(dropped, 80);
}

void processInside(OptionEntry *entry, char *name, char *value) {
    note(entry, name, value);
    OptionEntry inner[] = {{B, nullptr, note, nullptr}, {nullptr, nullptr, nullptr, nullptr}};
    process({"B=inner; B='again'"}, inner);
    note(entry, name, value);
}

TEST(ProcessOptions, handlerMayProcessFurtherLines) {
    calls.clear();
    OptionEntry table[] = {{A, nullptr, processInside, nullptr},
                           {B, nullptr, note, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
    process({"A=1; B=2", "B=3"}, table);
    EXPECT_EQ(calls, (std::vector<std::string>{"A:A=1", "B:B=inner", "B:B=again", "A:A=1", "B:B=2",
                                               "B:B=3"}));
}

void processRepeatedly(const std::string &text, int *wrong) {
    for (int round = 0; round < 500; ++round) {
        char *first = nullptr, *second = nullptr;
        OptionEntry table[] = {{A, nullptr, optStr, &first},
                               {B, nullptr, optStr, &second},
                               {nullptr, nullptr, nullptr, nullptr}};
        process({"A=" + text + "; B='\"" + text + "  " + text + "\"'"}, table);
        *wrong += first == text && second == text + "  " + text ? 0 : 1;
        freecopy(first);
        freecopy(second);
    }
}

TEST(ProcessOptions, threadsDoNotDisturbEachOther) {
    int wrong[2] = {};
    std::thread other([&] { processRepeatedly("one", &wrong[0]); });
    processRepeatedly(std::string(300, 'y'), &wrong[1]);
    other.join();
    EXPECT_EQ(wrong[0], 0);
    EXPECT_EQ(wrong[1], 0);
}

TEST(ProcessOptions, entryOfTheDefaultHandlerIsACopyForTheCall) {
    expectChildPasses([] {
        static const OptionEntry *original;
        static bool isCopy;
        OptionEntry entry = {A, DEFAULT,
                             [](OptionEntry *given, char *, char *) {
                                 isCopy = given != original && given->name != A &&
                                          given->defaultValue != DEFAULT &&
                                          strcmp(given->name, A) == 0;
                             },
                             nullptr};
        original = &entry;
        setDefaultOption(&entry);
        process({"UNKNOWN=1"}, nullptr);
        EXPECT_TRUE(isCopy);
        setDefaultOption(nullptr);
    });
}

TEST(ProcessProgramOptions, nullTableLeavesAllToTheDefaultOption) {
    expectChildPasses([] {
        const TempDir folder;
        unsetenv("UNKNOWN");
        setPrimaryOptionsFile(folder.write("primary", "UNKNOWN=1\n").c_str());
        makeDfltOptionEnv();
        processProgramOptions(nullptr, nullptr);
        EXPECT_EQ(getenv("UNKNOWN"), nullptr);
        processProgramOptions("program", nullptr);
        EXPECT_STREQ(getenv("UNKNOWN"), "1");
    });
}

TEST(ProcessProgramOptions, programThatEndsInASlashReadsNoFile) {
    expectChildPasses([] {
        calls.clear();
        OptionEntry table[] = {{A, DEFAULT, note, nullptr}, {nullptr, nullptr, nullptr, nullptr}};
        processProgramOptions("/usr/bin/", table); // the folder itself, which has no lines
        EXPECT_EQ(calls, (std::vector<std::string>{"A:A=default"}));
    });
}

TEST(ProcessOptionsFile, folderReadsAsAnEmptyFile) {
    expectChildPasses([] {
        const TempDir folder;
        EXPECT_EQ(processOptionsFile(folder.path().c_str(), nullptr), 1);
    });
}

TEST(CreateStandardOptionsName, pathWithoutABaseNameGivesTheFolder) {
    for (const char *program : {"/usr/bin/", "/", ""}) {
        char *name = createStandardOptionsName("/opt", program);
        EXPECT_STREQ(name, "/opt/etc/default/");
        freecopy(name);
    }
}

TEST(ProcessOptions, whatIsInNoTableDoesNothingWithoutADefaultOption) {
    expectChildPasses([] {
        static int32_t first, second;
        OptionEntry table[] = {{const_cast<char *>("A"), nullptr, optInteger, &first},
                               {const_cast<char *>("B"), nullptr, optInteger, &second},
                               {nullptr, nullptr, nullptr, nullptr}};
        char line[] = "C=3; B=2; ";
        char *lines[] = {line, nullptr};
        unsetenv("C");
        setDefaultOption(nullptr); // there is none: stays so
        EXPECT_EQ(processOptions(lines, table), 1);
        EXPECT_EQ(first, 0);
        EXPECT_EQ(second, 2);
        EXPECT_EQ(getenv("C"), nullptr);
    });
}

TEST(ProcessOptions, lineEndsAtACommentBehindASemicolon) {
    expectChildPasses([] {
        static int32_t first, second;
        OptionEntry table[] = {{const_cast<char *>("A"), nullptr, optInteger, &first},
                               {const_cast<char *>("B"), nullptr, optInteger, &second},
                               {nullptr, nullptr, nullptr, nullptr}};
        char comment[] = "A=1; # B=1";
        char end[] = "A=3 ;";
        char *lines[] = {comment, nullptr};
        EXPECT_EQ(processOptions(lines, table), 1);
        EXPECT_EQ(first, 1);
        lines[0] = end;
        EXPECT_EQ(processOptions(lines, table), 1);
        EXPECT_EQ(first, 3);
        EXPECT_EQ(second, 0);
    });
}

TEST(OptInteger, withoutADestinationStoresNothing) {
    char value[] = "12";
    OptionEntry entry = {nullptr, nullptr, optInteger, nullptr};
    optInteger(&entry, nullptr, value);
    EXPECT_STREQ(value, "12");
}

TEST(ProcessProgramOptions, defaultOfARowWithoutHandlerIsNotApplied) {
    expectChildPasses([] {
        unsetenv("A");
        static int32_t number = 7;
        OptionEntry table[] = {
            {const_cast<char *>("A"), const_cast<char *>("1"), nullptr, nullptr},
            {const_cast<char *>("B"), nullptr, optInteger, &number},
            {const_cast<char *>("C"), const_cast<char *>("5"), optInteger, &number},
            {nullptr, nullptr, nullptr, nullptr}};
        processProgramOptions(nullptr, table);
        EXPECT_EQ(getenv("A"), nullptr);
        EXPECT_EQ(number, 5);
    });
}

TEST(CreateStandardOptionsName, exhaustedMemoryGivesNull) {
    const FailingAlloc failing;
    EXPECT_EQ(createStandardOptionsName("", "program"), nullptr);
}

TEST(QuotedShCmd, nullAndTextsWithoutABackquoteAreGivenBack) {
    char *result = reinterpret_cast<char *>(8);
    EXPECT_EQ(quotedShCmd(nullptr, &result), nullptr);
    EXPECT_EQ(result, nullptr);
    char text[] = "echo";
    EXPECT_EQ(quotedShCmd(text, nullptr), text);
}

TEST(ProcessOptions, withoutMemoryForADefaultOptionThereIsNone) {
    expectChildPasses([] {
        static int32_t number;
        OptionEntry entry = {nullptr, nullptr, optInteger, &number};
        {
            const FailingAlloc none;
            setDefaultOption(&entry);
            processProgramOptions("program", nullptr); // no name of a file, no file
        }
        char line[] = "A=5";
        char *lines[] = {line, nullptr};
        EXPECT_EQ(processOptions(lines, nullptr), 1);
        EXPECT_EQ(number, 0);
        setDefaultOption(&entry);
        EXPECT_EQ(processOptions(lines, nullptr), 1);
        EXPECT_EQ(number, 5);
        setDefaultOption(nullptr);
    });
}

// So many statements of a row that more of them are found by other means.
constexpr char MANY_STATEMENTS[] = "OLD=1;OLD=1;OLD=1;OLD=1;OLD=1;OLD=1;OLD=1;OLD=1;OLD=1;OLD=1;";

TEST(ProcessOptions, rowRenamedThroughAnotherOnesDestinationIsFound) {
    int32_t number = 0;
    char old[] = "OLD", next[] = "NEXT";
    OptionEntry table[] = {{next, nullptr, optStr, &table[1].name},
                           {old, nullptr, optInteger, &number},
                           {nullptr, nullptr, nullptr, nullptr}};
    std::string line = std::string(MANY_STATEMENTS) + "NEXT=FRESH; FRESH=5";
    char *lines[] = {line.data(), nullptr};
    EXPECT_EQ(processOptions(lines, table), 1);
    EXPECT_EQ(number, 5);
    freecopy(table[1].name);
}

TEST(ProcessOptions, rowWhoseNameADefaultTurnsToUpperCaseIsFound) {
    static int32_t number, flag; // far from the table: a destination in it is another matter
    char old[] = "OLD", switchName[] = "FLAG", shared[] = "yes";
    OptionEntry table[] = {{old, nullptr, optInteger, &number},
                           {switchName, shared, optBool, &flag},
                           {shared, nullptr, optInteger, &number},
                           {nullptr, nullptr, nullptr, nullptr}};
    std::string line = std::string(MANY_STATEMENTS) + "FLAG=";
    char last[] = "YES=7";
    char *lines[] = {line.data(), last, nullptr};
    EXPECT_EQ(processOptions(lines, table), 1);
    EXPECT_EQ(number, 7);
}

} // namespace
