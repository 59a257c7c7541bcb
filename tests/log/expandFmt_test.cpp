/* The settings of the expansion and the text format file: validation, defaults and environment in
   their order of precedence, real files that are short, damaged, moved or shared with a child, and
   the width of texts. Everything is process-wide, so each case runs in a child. */
#include "log/log.h"

#include "records.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A null text shows as "(null)".
std::string shown(const char *text) {
    return text == nullptr ? "(null)" : text;
}

std::string textOf(int32_t index) {
    return shown(getExpandFmt(index));
}

// Runs the body in a child with the bytes as text format file.
void withFile(const std::string &bytes, const std::function<void()> &body) {
    const TempDir folder;
    const std::string path = folder.write("texts", bytes);
    expectChildPasses([&] {
        setExpandFmt(path.c_str());
        body();
    });
}

std::string entry(const std::string &text) {
    EXPECT_LE(text.size(), 16U);
    return text + std::string(16 - text.size(), ' ');
}

// The text format file.

TEST(TextFormatFile, entryWithBlanksInFrontAndBehind) {
    withFile(entry("  120 7") + std::string(104, '.') + "7 bytesX",
             [] { EXPECT_EQ(textOf(0), "7 bytes"); });
}

TEST(TextFormatFile, textsStayValidWhileTheCacheGrows) {
    withTexts({{0, "zero"}, {1, ""}, {63, "sixty-three"}, {64, "sixty-four"}, {1000, "last"}}, [] {
        const char *zero = getExpandFmt(0);
        const char *last = getExpandFmt(1000);
        const char *sixtyThree = getExpandFmt(63);
        EXPECT_EQ(textOf(64), "sixty-four");
        EXPECT_EQ(textOf(1), "");
        EXPECT_EQ(getExpandFmt(0), zero);
        EXPECT_EQ(getExpandFmt(63), sixtyThree);
        EXPECT_EQ(getExpandFmt(1000), last);
        EXPECT_STREQ(zero, "zero");
        EXPECT_STREQ(last, "last");
        EXPECT_STREQ(sixtyThree, "sixty-three");
    });
}

TEST(TextFormatFile, shortFileFailsOnlyForTheIndexesBeyondIt) {
    withFile(entry("32 2") + entry("34 2") + "aabb" + std::string(11, '.'), [] {
        EXPECT_EQ(textOf(2), "(null)"); // 15 bytes of an entry
        EXPECT_EQ(textOf(3), "(null)");
        EXPECT_EQ(textOf(0), "aa");
        EXPECT_EQ(textOf(1), "bb");
    });
}

TEST(TextFormatFile, damagedEntriesGiveNull) {
    const std::vector<std::string> entries = {"",
                                              "text",
                                              "64",
                                              "64 x",
                                              "-1 2",
                                              "64 -2",
                                              "9999999999999999",
                                              "\0 1",
                                              "0 2147483648",
                                              "0 2147483647",
                                              "9999999999999 1",
                                              "64 999999999999",
                                              "4294967296 1"};
    std::string bytes;
    for (const std::string &text : entries)
        bytes += entry(text);
    withFile(bytes + entry(" 0\t+3~"), [&] {
        for (size_t i = 0; i < entries.size(); ++i)
            EXPECT_EQ(textOf(static_cast<int32_t>(i)), "(null)") << entries[i];
        // Any white space between, a sign, and what follows ignored: the first three bytes.
        EXPECT_EQ(textOf(static_cast<int32_t>(entries.size())), "   ");
    });
}

TEST(TextFormatFile, lengthBeyondTheFileAsksForNoMemory) {
    withFile(entry("32 2") + entry("32 2147483647") + "aa", [] {
        EXPECT_EQ(textOf(0), "aa");
        const size_t before = lastAllocSize();
        EXPECT_EQ(getExpandFmt(1), nullptr);
        EXPECT_EQ(lastAllocSize(), before);
    });
}

TEST(TextFormatFile, indexesOutsideTheFileGiveNullWithoutCost) {
    withTexts({{0, "zero"}}, [] {
        for (int32_t index :
             {-1, INT32_MIN, 1, 1000000000, INT32_MAX - 64, INT32_MAX - 63, INT32_MAX})
            EXPECT_EQ(textOf(index), "(null)") << index;
        EXPECT_EQ(textOf(0), "zero");
    });
}

TEST(TextFormatFile, shortTextIsReadAgainOnceItIsThere) {
    const TempDir folder;
    const std::string path = folder.write("texts", entry("16 4") + "abc");
    expectChildPasses([&] {
        setExpandFmt(path.c_str());
        EXPECT_EQ(textOf(0), "(null)");
        EXPECT_EQ(textOf(0), "(null)");
        std::ofstream(path, std::ios::app) << "d";
        EXPECT_EQ(textOf(0), "abcd");
    });
}

TEST(TextFormatFile, textBeyondTwoGiBIsFound) {
    const TempDir folder;
    const std::string path = folder.write("texts", entry("4294967296 3"));
    std::filesystem::resize_file(path, 4294967296U);
    std::ofstream(path, std::ios::app) << "far";
    expectChildPasses([&] {
        setExpandFmt(path.c_str());
        EXPECT_EQ(textOf(0), "far");
    });
}

TEST(TextFormatFile, entryBeyondTwoGiBIsFound) {
    const TempDir folder;
    const std::string path = folder.write("texts", "far");
    const int32_t index = 134217728 + 5; // 16 times that passes 31 bits
    std::filesystem::resize_file(path, 16U * static_cast<uint64_t>(index));
    std::ofstream(path, std::ios::app) << entry("0 3");
    expectChildPasses([&] {
        setExpandFmt(path.c_str());
        EXPECT_EQ(textOf(index), "far");
    });
}

TEST(TextFormatFile, missingFileIsTriedAgain) {
    const TempDir folder;
    expectChildPasses([&] {
        setExpandFmt(folder.file("late").c_str());
        EXPECT_EQ(textOf(0), "(null)");
        folder.write("late", entry("16 4") + "here");
        EXPECT_EQ(textOf(0), "here");
    });
}

TEST(TextFormatFile, endingDropsTheCacheAndKeepsThePath) {
    const TempDir folder;
    const std::string path = folder.write("texts", entry("16 3") + "old");
    expectChildPasses([&] {
        endExpandFmt(); // nothing open yet
        setExpandFmt(path.c_str());
        EXPECT_EQ(textOf(0), "old");
        folder.write("texts", entry("16 3") + "new");
        EXPECT_EQ(textOf(0), "old");
        endExpandFmt();
        EXPECT_EQ(textOf(0), "new");
    });
}

TEST(TextFormatFile, settingAnotherPathDropsTheCache) {
    const TempDir folder;
    const std::string first = folder.write("first", entry("16 3") + "one");
    const std::string second = folder.write("second", entry("16 3") + "two");
    expectChildPasses([&] {
        EXPECT_EQ(shown(setExpandFmt(first.c_str())), first);
        EXPECT_EQ(textOf(0), "one");
        EXPECT_EQ(shown(setExpandFmt(second.c_str())), second);
        EXPECT_EQ(textOf(0), "two");
    });
}

TEST(TextFormatFile, noPathFailsEveryLookup) {
    withTexts({{0, "zero"}}, [] {
        EXPECT_EQ(textOf(0), "zero");
        EXPECT_EQ(shown(setExpandFmt(nullptr)), "");
        EXPECT_EQ(textOf(0), "(null)");
        EXPECT_EQ(shown(setExpandFmt("")), "");
        EXPECT_EQ(textOf(0), "(null)");
    });
}

TEST(TextFormatFile, storedPathMayBeHandedBack) {
    withFile(entry("16 4") + "text", [] {
        const std::string path = setExpandFmt("elsewhere");
        char *stored = setExpandFmt(path.c_str());
        EXPECT_EQ(shown(setExpandFmt(stored)), path);
    });
}

TEST(TextFormatFile, relativeNameLiesUnderTheLogRoot) {
    const TempDir folder;
    folder.write("textLogFmt", entry("16 7") + "default");
    folder.write("named", entry("16 5") + "named");
    const auto inChild = [&](const std::function<void()> &body) {
        expectChildPasses([&] {
            unsetenv("TEXTLOGFMT");
            setenv("LOGROOT", folder.path().c_str(), 1);
            body();
        });
    };
    inChild([] { EXPECT_EQ(textOf(0), "default"); });
    inChild([] {
        setenv("TEXTLOGFMT", "", 1);
        EXPECT_EQ(textOf(0), "default");
    });
    inChild([&] {
        setenv("TEXTLOGFMT", "named", 1);
        EXPECT_EQ(textOf(0), "named");
        EXPECT_EQ(shown(logRoot), folder.path());
    });
}

TEST(TextFormatFile, rootInForceWinsOverTheEnvironment) {
    const TempDir folder;
    folder.write("textLogFmt", entry("16 4") + "root");
    expectChildPasses([&] {
        unsetenv("TEXTLOGFMT");
        setenv("LOGROOT", "/nonexistent", 1);
        logRoot = strdup(folder.path().c_str());
        EXPECT_EQ(textOf(0), "root");
        EXPECT_EQ(shown(logRoot), folder.path());
    });
}

TEST(TextFormatFile, nameWithASlashIsTakenAsItStands) {
    const TempDir folder;
    folder.write("texts", entry("16 4") + "here");
    expectChildPasses([&] {
        ASSERT_EQ(chdir(folder.path().c_str()), 0);
        setenv("TEXTLOGFMT", "./texts", 1);
        setenv("LOGROOT", "/nonexistent", 1);
        EXPECT_EQ(textOf(0), "here");
        EXPECT_EQ(logRoot, nullptr);
    });
}

TEST(TextFormatFile, rootIsDefaultedWhereNothingNamesOne) {
    expectChildPasses([] {
        unsetenv("TEXTLOGFMT");
        unsetenv("LOGROOT");
        getExpandFmt(0);
        EXPECT_EQ(shown(logRoot), "/usr/spool/log");
    });
}

TEST(TextFormatFile, environmentIsReadOnceForThePath) {
    withTexts({{0, "zero"}}, [] {
        EXPECT_EQ(textOf(0), "zero");
        setenv("TEXTLOGFMT", "/nonexistent/file", 1);
        endExpandFmt();
        EXPECT_EQ(textOf(0), "zero");
    });
}

int openDescriptor(const std::string &path) {
    for (const auto &link : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        if (std::filesystem::read_symlink(link.path(), ignored) == path)
            return std::stoi(link.path().filename());
    }
    return -1;
}

TEST(TextFormatFile, descriptorClosesOnExecAndOnEnd) {
    const TempDir folder;
    const std::string path = folder.write("texts", entry("16 4") + "text");
    expectChildPasses([&] {
        setExpandFmt(path.c_str());
        getExpandFmt(0);
        const int fd = openDescriptor(path);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        endExpandFmt();
        EXPECT_EQ(openDescriptor(path), -1);
    });
}

TEST(TextFormatFile, descriptorZeroIsAsGoodAsAnother) {
    withFile(entry("16 4") + "text", [] {
        close(0);
        EXPECT_EQ(textOf(0), "text");
        EXPECT_EQ(textOf(0), "text");
        endExpandFmt();
        EXPECT_EQ(fcntl(0, F_GETFD), -1);
    });
}

// The offset of a shared descriptor is shared too: whoever moves it must disturb nobody.
TEST(TextFormatFile, readsDoNotUseTheSharedOffset) {
    const TempDir folder;
    const std::string path =
        folder.write("texts", textFormatFile({{0, "zero"}, {1, "one"}, {2, "two"}}));
    expectChildPasses([&] {
        setExpandFmt(path.c_str());
        getExpandFmt(0);
        const int fd = openDescriptor(path);
        lseek(fd, 5, SEEK_SET);
        const pid_t child = fork();
        if (child == 0)
            _exit(textOf(1) == "one" && lseek(fd, 0, SEEK_CUR) == 5 ? 0 : 1);
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(textOf(2), "two");
        EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 5);
    });
}

TEST(TextFormatFile, folderGivesNull) {
    const TempDir folder;
    expectChildPasses([&] {
        setExpandFmt(folder.path().c_str());
        EXPECT_EQ(textOf(0), "(null)");
    });
}

// The expansion format.

struct Validity {
    const char *format;
    bool valid;
};

const Validity formats[] = {
    {"", true},        {"text", true},     {"%P( %d )", true},    {"%M(%r=,)", true},
    {"%M(%R)", true},  {"%Q", true},       {"%Q(%x)", true},      {"%P(%s)%M(%r)", true},
    {"%P(%S)", true},  {"%P(%D)", true},   {"%P (x)", true},      {"%T(x)", true},
    {"%", true},       {"%P(%s", true},    {"%P(%s ", true},      {"%M(%r", true},
    {"%M(%r=", true},  {"%P(%d?", true},   {"%%P(x)", true},      {"%P(%s%P(x)", true},
    {"%P(%x)", false}, {"%M(%s)", false},  {"%P(%r)", false},     {"%M(%d)", false},
    {"%P(", false},    {"%P(%", false},    {"%P( ", false},       {"%M(x%r)", false},
    {"%P()", false},   {"\\%P(x)", false}, {"text %M(s)", false}, {"%P(%s)%P(%)", false},
};

TEST(ExpansionFormat, validFormatsReplaceInvalidOnesAreReported) {
    for (const Validity &format : formats) {
        const ChildResult result = runInChild([&] {
            chgExpansionFmt("before");
            chgExpansionFmt(format.format);
            EXPECT_STREQ(getExpansionFmt(), format.valid ? format.format : "before");
        });
        EXPECT_EQ(result.exitCode, 0) << format.format << result.out;
        EXPECT_EQ(result.err,
                  format.valid ? ""
                               : std::string("Invalid expansion format - ") + format.format + "\n");
    }
}

TEST(ExpansionFormat, noneAtFirstAndNullIsIgnored) {
    expectChildPasses([] {
        EXPECT_EQ(getExpansionFmt(), nullptr);
        chgExpansionFmt(nullptr);
        EXPECT_EQ(getExpansionFmt(), nullptr);
        chgExpansionFmt("x");
        chgExpansionFmt(nullptr);
        EXPECT_STREQ(getExpansionFmt(), "x");
    });
}

TEST(ExpansionFormat, installedFormatMayBeHandedBack) {
    expectChildPasses([] {
        chgExpansionFmt("%N %M");
        chgExpansionFmt(getExpansionFmt());
        EXPECT_STREQ(getExpansionFmt(), "%N %M");
        chgExpansionFmt(getExpansionFmt() + 3);
        EXPECT_STREQ(getExpansionFmt(), "%M");
    });
}

TEST(ExpansionFormat, defaultHoldsARealLineFeed) {
    withTexts({{0, ""}}, [] {
        expanded(recordOf(0, 0, {}));
        EXPECT_STREQ(getExpansionFmt(), "%P %T %N %S:%L\n%M");
    });
}

TEST(ExpansionFormat, environmentCountsOnlyWhileNoneIsInstalled) {
    withTexts({{0, ""}}, [] {
        setenv("LOGFORMAT", "%N", 1);
        EXPECT_EQ(expanded(recordOf(0, 0, {})), "prog");
        setenv("LOGFORMAT", "%S", 1);
        EXPECT_EQ(expanded(recordOf(0, 0, {})), "prog");
    });
    withTexts({{0, ""}}, [] {
        setenv("LOGFORMAT", "%N", 1);
        EXPECT_EQ(expandedAs("%S", recordOf(0, 0, {})), "f.c");
    });
}

TEST(ExpansionFormat, emptyEnvironmentIsTheEmptyFormat) {
    withTexts({{0, ""}}, [] {
        setenv("LOGFORMAT", "", 1);
        EXPECT_EQ(expanded(recordOf(0, 0, {})), "");
        EXPECT_STREQ(getExpansionFmt(), "");
    });
}

TEST(ExpansionFormat, invalidEnvironmentIsReportedOnceAndTheDefaultUsed) {
    const TempDir folder;
    const std::string path = folder.write("texts", textFormatFile({{0, "text"}}));
    const ChildResult result = runInChild([&] {
        setExpandFmt(path.c_str());
        setenv("LOGFORMAT", "%P(%x)", 1);
        for (int round = 0; round < 3; ++round)
            EXPECT_NE(expanded(recordOf(0, 0, {})).find("\ntext"), std::string::npos);
    });
    EXPECT_EQ(result.exitCode, 0) << result.out;
    EXPECT_EQ(result.err, "Invalid expansion format - %P(%x)\n");
}

// Cut-off, prefix and visible mode.

TEST(Cutoff, undecidedAtFirstAndChangersGiveTheValueBefore) {
    expectChildPasses([] {
        EXPECT_EQ(getExpansionCutoff(), -1);
        EXPECT_EQ(chgExpansionCutoff(INT32_MIN), -1);
        EXPECT_EQ(chgExpansionCutoff(7), INT32_MIN);
        EXPECT_EQ(getExpansionCutoff(), 7);
        EXPECT_EQ(getVisible(), 0);
        EXPECT_EQ(setVisible(5), 0);
        EXPECT_EQ(setVisible(0), 5);
    });
}

struct Column {
    const char *value;
    int32_t cutoff;
};

const Column columns[] = {
    {"80", 80},
    {" 80 columns", 80},
    {"wide", 0},
    {"", 0},
    {"0x10", 0},
    {"-3", -3},
    {"99999999999999999999", INT32_MAX},
    {"-99999999999999999999", INT32_MIN},
};

TEST(Cutoff, comesFromTheEnvironmentInDecimal) {
    for (const Column &column : columns)
        withTexts({{0, ""}}, [&] {
            setenv("LOGCOLUMN", column.value, 1);
            expanded(recordOf(0, 0, {}));
            EXPECT_EQ(getExpansionCutoff(), column.cutoff) << column.value;
        });
    withTexts({{0, ""}}, [] {
        expanded(recordOf(0, 0, {}));
        EXPECT_EQ(getExpansionCutoff(), 0);
    });
}

TEST(Cutoff, isReadAgainOnlyAfterANegativeOne) {
    withTexts({{0, ""}}, [] {
        setenv("LOGCOLUMN", "10", 1);
        expanded(recordOf(0, 0, {}));
        setenv("LOGCOLUMN", "20", 1);
        expanded(recordOf(0, 0, {}));
        EXPECT_EQ(getExpansionCutoff(), 10);
        EXPECT_EQ(chgExpansionCutoff(-1), 10);
        expanded(recordOf(0, 0, {}));
        EXPECT_EQ(getExpansionCutoff(), 20);
    });
}

TEST(ContinuationPrefix, comesWithTheCutoffFromTheEnvironment) {
    const auto prefixAfter = [](const char *column, const std::function<void()> &before,
                                const std::string &expected) {
        withTexts({{0, ""}}, [&] {
            if (column != nullptr)
                setenv("LOGCOLUMN", column, 1);
            setenv("LOGCONTPREFIX", "env", 1);
            before();
            expanded(recordOf(0, 0, {}));
            EXPECT_EQ(shown(getContinuationPrefix()), expected);
        });
    };
    prefixAfter(
        "10", [] {}, "env");
    prefixAfter(
        "-1", [] {}, "env");
    prefixAfter(
        "0", [] {}, "(null)");
    prefixAfter(
        nullptr, [] {}, "(null)");
    prefixAfter(
        "10", [] { chgContinuationPrefix("own"); }, "own");
    prefixAfter(
        "10", [] { chgContinuationPrefix(""); }, "");
    prefixAfter(
        "10", [] { chgExpansionCutoff(10); }, "(null)");
    prefixAfter(
        "10", [] { chgExpansionCutoff(0); }, "(null)");
}

TEST(ContinuationPrefix, changerGivesTheNewWidth) {
    expectChildPasses([] {
        EXPECT_EQ(getContinuationPrefix(), nullptr);
        EXPECT_EQ(chgContinuationPrefix("  > "), 4);
        EXPECT_STREQ(getContinuationPrefix(), "  > ");
        EXPECT_EQ(chgContinuationPrefix(getContinuationPrefix()), 4);
        EXPECT_EQ(chgContinuationPrefix(getContinuationPrefix() + 2), 2);
        EXPECT_STREQ(getContinuationPrefix(), "> ");
        EXPECT_EQ(chgContinuationPrefix(""), 0);
        EXPECT_STREQ(getContinuationPrefix(), "");
        EXPECT_EQ(chgContinuationPrefix(nullptr), 0);
        EXPECT_EQ(getContinuationPrefix(), nullptr);
    });
}

struct Width {
    const char *text;
    int32_t start, plain, visible;
};

const Width widths[] = {
    {"pq\tr", 0, 3, 5},     {"abc\ndef", 10, 3, 3}, {"", 10, 0, 0},     {nullptr, 10, 0, 0},
    {"abc", 10, 3, 3},      {"\b", 0, 0, 2},        {"\b", 5, -1, 2},   {"\t", 8, -8, 2},
    {"\t", 7, 0, 2},        {"ab\fcd", 4, 2, 2},    {"ab\rc", 4, 1, 1}, {"ab\n", 4, 0, 0},
    {"\x01", 0, 0, 3},      {"\x07", 0, 0, 3},      {"\x0b", 0, 0, 4},  {"\x1f", 0, 0, 4},
    {"\x7f", 0, 0, 5},      {"\x80", 0, 0, 3},      {"\xff", 0, 0, 3},  {"a", INT32_MAX, 1, 1},
    {"a", INT32_MIN, 1, 1},
};

TEST(VisualWidth, inBothModes) {
    expectChildPasses([] {
        for (const Width &width : widths) {
            setVisible(0);
            EXPECT_EQ(visualWidth(width.text, width.start), width.plain) << shown(width.text);
            setVisible(1);
            EXPECT_EQ(visualWidth(width.text, width.start), width.visible) << shown(width.text);
        }
    });
}

TEST(TextFormatFile, cacheGrowsInStepsOf64) {
    withTexts({{0, "zero"}, {63, "sixty-three"}, {64, "sixty-four"}}, [] {
        getExpandFmt(0);
        EXPECT_EQ(lastAllocSize(), 64 * sizeof(char *));
        getExpandFmt(63);
        EXPECT_EQ(lastAllocSize(), sizeof "sixty-three"); // the text alone
        getExpandFmt(64);
        EXPECT_EQ(lastAllocSize(), 128 * sizeof(char *));
    });
}

TEST(TextFormatFile, emptyRootIsTheRootFolder) {
    const TempDir folder;
    folder.write("textLogFmt", entry("16 4") + "here");
    expectChildPasses([&] {
        ASSERT_EQ(chdir(folder.path().c_str()), 0);
        unsetenv("TEXTLOGFMT");
        setenv("LOGROOT", "", 1);
        EXPECT_EQ(textOf(0), "(null)"); // "/textLogFmt", not the one here
        EXPECT_EQ(shown(logRoot), "");
    });
}

TEST(TextFormatFile, cachedTextMayBeTheNextPath) {
    withTexts({{0, "/nonexistent/texts"}}, [] {
        char *cached = getExpandFmt(0);
        EXPECT_EQ(shown(setExpandFmt(cached)), "/nonexistent/texts");
        EXPECT_EQ(textOf(0), "(null)");
    });
}

TEST(TextFormatFile, exhaustedMemoryKeepsPathAndCache) {
    withTexts({{0, "zero"}, {1, "one"}}, [] {
        const char *zero = getExpandFmt(0);
        for (int n = 0; n < 2; ++n) {
            const char *stored;
            {
                const FailingAlloc fails(n);
                stored = setExpandFmt("/nonexistent/texts");
            }
            EXPECT_EQ(stored, nullptr) << n;
            EXPECT_EQ(getExpandFmt(0), zero) << n;
        }
        EXPECT_EQ(textOf(1), "one");
    });
}

TEST(TextFormatFile, defaultPathThatFoundNoMemoryIsDecidedAgain) {
    for (int n = 0; n < 3; ++n)
        withTexts({{0, "zero"}}, [n] {
            const char *text;
            {
                const FailingAlloc fails(n);
                text = getExpandFmt(0);
            }
            EXPECT_EQ(text, nullptr) << n;
            EXPECT_EQ(textOf(0), "zero") << n;
        });
}

TEST(ContinuationPrefix, emptyOneOfTheEnvironmentIsAPrefix) {
    withTexts({{0, ""}}, [] {
        setenv("LOGCOLUMN", "4", 1);
        setenv("LOGCONTPREFIX", "", 1);
        EXPECT_EQ(expandedAs("abcdef", recordOf(0, 0, {})), "abcd\nef");
        EXPECT_EQ(shown(getContinuationPrefix()), "");
        // It counts as set: another column does not ask the environment again.
        setenv("LOGCONTPREFIX", "> ", 1);
        chgExpansionCutoff(-1);
        EXPECT_EQ(expandedAs("abcdef", recordOf(0, 0, {})), "abcd\nef");
    });
}

TEST(ContinuationPrefix, exhaustedMemoryKeepsTheOldOne) {
    expectChildPasses([] {
        chgContinuationPrefix("> ");
        {
            const FailingAlloc fails(0);
            EXPECT_EQ(chgContinuationPrefix("longer > "), 2);
        }
        EXPECT_EQ(shown(getContinuationPrefix()), "> ");
    });
}

const Width negativeStarts[] = {
    {"abc", -2, 3, 3}, {"\b", -5, 5, 2}, {"\t", -9, 8, 2}, {"ab\ncd", -3, 2, 2}, {"", -3, 0, 0},
};

TEST(VisualWidth, fromColumnsLeftOfTheScreen) {
    expectChildPasses([] {
        for (const Width &width : negativeStarts) {
            setVisible(0);
            EXPECT_EQ(visualWidth(width.text, width.start), width.plain) << width.text;
            setVisible(1);
            EXPECT_EQ(visualWidth(width.text, width.start), width.visible) << width.text;
        }
    });
}

TEST(ExpansionFormat, exhaustedMemoryLeavesTheOneThereIs) {
    expectChildPasses([] {
        chgExpansionFmt("%N");
        {
            const FailingAlloc none;
            chgExpansionFmt("%S:%L");
        }
        EXPECT_STREQ(getExpansionFmt(), "%N");
    });
}

} // namespace
