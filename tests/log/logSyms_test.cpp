/* Headers line by line, the directory, both forms of symbols, the lookups against a plain walk over
   the table, and what is reported. Each case in a child: the table is the process's. */
#include "log/logSyms.h"
#include "buffers/arrays.h"
#include "log/logStartCl.h"
#include "log/symbolPatterns.h"
#include "options/parseln.h"
#include "regex/regularExp.h"

#include "catalogueFixture.h"
#include "support/failingAlloc.h"
#include "support/threadSanitizer.h"

#include <array>
#include <chrono>
#include <cstring>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const std::string CLASSES = "#define _NETMSG_START 100\n"
                            "#define _DBMSG_START 300\n"
                            "#define __MAX_LOGMSG 500\n";

// A header directory with a class file; LOGROOT leads nowhere unless told otherwise.
class HeaderDir {
  public:
    explicit HeaderDir(const std::string &classes = CLASSES) {
        setenv("LOGROOT", "/nonexistent", 1);
        write("systemLog.h", classes);
    }
    const char *path() const { return dir_.path().c_str(); }
    std::string write(const std::string &name, const std::string &text) const {
        return dir_.write(name, text);
    }
    std::string file(const std::string &name) const { return dir_.file(name); }

  private:
    TempDir dir_;
};

std::string shown(const LogSymbol *symbol) {
    if (symbol == nullptr)
        return "none";
    return std::string(symbol->name) + " " + std::to_string(symbol->absIndex) + " " +
           symbol->className + " " + std::to_string(symbol->relIndex);
}

TEST(LogSyms, headerLineGivesNameNumberClassAndRelativeNumber) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define NET_DOWN logNET(3)\n");
        EXPECT_EQ(logReadSymbols(dir.path()), 1);
        EXPECT_EQ(shown(logGetSymbol(0)), "NET_DOWN 102 NET 3");
        EXPECT_EQ(shown(logFindAbsIndex(102)), "NET_DOWN 102 NET 3");
        EXPECT_EQ(shown(logFindRelIndex("NET", 3)), "NET_DOWN 102 NET 3");
        EXPECT_EQ(shown(logFindDefineName("NET_DOWN")), "NET_DOWN 102 NET 3");
        EXPECT_TRUE(reports.empty());
    });
}

struct LineCase {
    const char *line, *symbol;
};

const LineCase LINES[] = {
    {"#define A logNET(3) /* comment */", "A 102 NET 3"},
    {"#define A logNET(3) /*comment*/", "A 102 NET 3"},
    {"#define A logNET(3) /* a comment of many words", "A 102 NET 3"},
    {"#define\tA\tlogNET(3)", "A 102 NET 3"},
    {"#define a_1 logDB(1)", "a_1 300 DB 1"},
    {"#define A logNET()", "A 99 NET 0"},
    {"#define A logNET(0)", "A 99 NET 0"},
    {"#define A logNET(010)", "A 107 NET 8"},
    {"#define A logNET(08)", "A -1 NET -1"},
    {"#define A logNET(8)", "A 107 NET 8"},
    {"#define A logXYZ(8)", "A -1 XYZ 8"},
    {"#define A logNET(2147483548)", "A 2147483647 NET 2147483548"},
    {"#define A logNET(2147483549)", "A -1 NET 2147483549"},
    {"#define A logNET(99999999999999999999)", "A -1 NET 2147483647"},
    {"#define A logNET(3) comment", "none"},
    {"#define A logNET(3) // comment", "none"},
    {"#define A logNET(3) /", "none"},
    {"#define A logNET(3) 4", "none"},
    {"#define A logNET(3)/*comment*/", "none"},
    {"#define A NET003", "none"},
    {"#define A logN(3)", "none"},
    {"#define A 3", "none"},
    {"#define A", "none"},
    {"#define _A logNET(3)", "none"},
    {"#define \"\" logNET(3)", "none"},
    {"#define A() logNET(3)", "none"},
    {"#DEFINE A logNET(3)", "none"},
    {"# define A logNET(3)", "none"},
    {" #define A logNET(3)", "none"},
    {"#undef A logNET(3)", "none"},
    {"#", "none"},
    {"", "none"},
};

TEST(LogSyms, onlyDefinitionsOfMessagesAreUsed) {
    expectChildPasses([] {
        const HeaderDir dir;
        logSetHeaderDirName(dir.path());
        for (const LineCase &row : LINES) {
            logFreeSymbols();
            const std::string path = dir.write("x", std::string(row.line) + "\n");
            EXPECT_EQ(logReadHeader(path.c_str()), strcmp(row.symbol, "none") != 0) << row.line;
            EXPECT_EQ(shown(logGetSymbol(0)), row.symbol) << row.line;
        }
    });
}

// The symbol that the line defines, its words split by parseln and judged by the patterns.
std::string symbolOf(std::string line) {
    char *words[4];
    if (line[0] != '#')
        return "none";
    const int32_t count = parseln(line.data(), words, 4);
    CaptureBlock *groups = nullptr;
    if (count < 3 || strcmp(words[0], "#define") != 0 ||
        (count > 3 && strncmp(words[3], "/*", 2) != 0) ||
        regularExp(symbolPatterns::DEFINED_NAME.bytes, words[1], nullptr) == nullptr ||
        regularExp(symbolPatterns::LOG_FORM.bytes, words[2], &groups) == nullptr)
        return "none";
    const std::string symbol = std::string(words[1]) + " " + groups->group[0] +
                               std::to_string(strtol(groups->group[1], nullptr, 0));
    free(groups);
    return symbol;
}

std::string damagedLine(std::mt19937 &random) {
    static const std::vector<std::string> PIECES = {"\"", "\\", " ", "\t", "\f", "x", "/", "#"};
    std::string line = "#define A_1 logNET(3) /* a word */";
    for (auto edits = random() % 4; edits > 0; --edits)
        line.replace(random() % line.size(), random() % 2, PIECES[random() % PIECES.size()]);
    return line;
}

TEST(LogSyms, linesAreSplitAsParselnDoes) {
    expectChildPasses([] {
        const HeaderDir dir;
        logSetHeaderDirName(dir.path());
        std::mt19937 random(1);
        int used = 0, quoted = 0;
        std::string text;
        std::vector<std::string> symbols;
        for (int round = 0; round < 5000; ++round) {
            const std::string line = damagedLine(random), symbol = symbolOf(line);
            text += line + "\n";
            if (symbol == "none")
                continue;
            symbols.push_back(symbol);
            ++used;
            quoted += line.find_first_of("\"\\") < line.find("/*") ? 1 : 0;
        }
        EXPECT_EQ(logReadHeader(dir.write("x", text).c_str()), used);
        for (int32_t i = 0; i < used; ++i) {
            const LogSymbol *symbol = logGetSymbol(i);
            EXPECT_EQ(std::string(symbol->name) + " " + symbol->className +
                          std::to_string(symbol->relIndex),
                      symbols[static_cast<size_t>(i)]);
        }
        EXPECT_GT(used, 1000);
        EXPECT_GT(quoted, 100);
    });
}

TEST(LogSyms, onlyHeadersByTheirNamesAreRead) {
    expectChildPasses([] {
        const HeaderDir dir;
        for (const char *name : {"logNET.h", "logDB_2.h", "logX.h"})
            dir.write(name, "#define " + std::string(name).substr(3, 1) + " logNET(1)\n");
        for (const char *name : {"lognet.h", "logNET.txt", "log.h", "logNET.h~", "xlogNET.h"})
            dir.write(name, "#define WRONG logNET(2)\n");
        EXPECT_EQ(logReadSymbols(dir.path()), 3);
        EXPECT_EQ(logTotalSymbols(), 3);
        EXPECT_EQ(logFindDefineName("WRONG"), nullptr);
        EXPECT_STREQ(logGetSymbol(0)->name, "D");
        EXPECT_STREQ(logGetSymbol(1)->name, "N");
        EXPECT_STREQ(logGetSymbol(2)->name, "X");
        EXPECT_EQ(logGetSymbol(3), nullptr);
        EXPECT_EQ(logGetSymbol(-1), nullptr);
    });
}

TEST(LogSyms, tableIsSortedByNameThenNumber) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define B logNET(2)\n#define a logNET(3)\n#define B logNET(1)\n"
                              "#define A_ logNET(4)\n#define AB logNET(5)\n#define B logXX(9)\n");
        EXPECT_EQ(logReadSymbols(dir.path()), 6);
        const char *const ORDER[] = {"AB 104 NET 5", "A_ 103 NET 4", "B -1 XX 9",
                                     "B 100 NET 1",  "B 101 NET 2",  "a 102 NET 3"};
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(shown(logGetSymbol(i)), ORDER[i]);
        EXPECT_STREQ(logFindDefineName("B")->name, "B");
    });
}

TEST(LogSyms, symbolsAreFoundInBothFormsByDecimalNumber) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define EIGHT logNET(010)\n#define TEN logNET(10)\n"
                              "#define NET011 logNET(1)\n#define ELEVEN logNET(11)\n"
                              "#define ZERO logNET()\n");
        EXPECT_EQ(logReadSymbols(dir.path()), 5);
        const struct {
            const char *symbol, *expected;
        } ROWS[] = {
            {"EIGHT", "EIGHT 107 NET 8"},
            {"logNET(8)", "EIGHT 107 NET 8"},
            {"NET008", "EIGHT 107 NET 8"},
            {"logNET(010)", "TEN 109 NET 10"},
            {"NET010", "TEN 109 NET 10"},
            {"NET011", "NET011 100 NET 1"}, // the name first
            {"logNET(11)", "ELEVEN 110 NET 11"},
            {"logNET()", "ZERO 99 NET 0"},
            {"NET000", "ZERO 99 NET 0"},
            {"logNET(7)", "none"},
            {"NET10", "none"},
            {"logDB(10)", "none"},
            {"logNET(99999999999)", "none"},
            {"eight", "none"},
            {"", "none"},
            {"logNET(10", "none"},
        };
        for (const auto &row : ROWS)
            EXPECT_EQ(shown(logFindSymbol(row.symbol)), row.expected) << row.symbol;
        EXPECT_EQ(logFindSymbol(nullptr), nullptr);
    });
}

TEST(LogSyms, convertersGiveOneFieldOrNothing) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define DOWN logNET(3)\n#define LOST logXX(4)\n"
                              "#define ODD logNET(08)\n");
        logReadSymbols(dir.path());
        EXPECT_EQ(logSymbolToAbsIndex("DOWN"), 102);
        EXPECT_EQ(logSymbolToAbsIndex("LOST"), -1);
        EXPECT_EQ(logSymbolToAbsIndex("NONE"), -1);
        EXPECT_EQ(logSymbolToRelIndex("NET003"), 3);
        EXPECT_EQ(logSymbolToRelIndex("LOST"), 4);
        EXPECT_EQ(logSymbolToRelIndex("NONE"), -1);
        EXPECT_STREQ(logSymbolToClass("logXX(4)"), "XX");
        EXPECT_EQ(logSymbolToClass("NONE"), nullptr);
        EXPECT_STREQ(logAbsIndexToSymbol(102), "DOWN");
        EXPECT_EQ(logAbsIndexToSymbol(103), nullptr);
        // Records without a number are not found by it.
        EXPECT_EQ(logAbsIndexToSymbol(-1), nullptr);
        EXPECT_EQ(logFindAbsIndex(-1), nullptr);
        EXPECT_EQ(logFindRelIndex("NET", -1), nullptr);
        EXPECT_EQ(logFindRelIndex(nullptr, 3), nullptr);
        EXPECT_EQ(logFindDefineName(nullptr), nullptr);
        EXPECT_EQ(logSymsReadCnt, 0);
    });
}

// ---- lookups against the walk

const LogSymbol *walkToAbsolute(int32_t absIndex) {
    for (int i = 0; i < logTotalSymbols(); ++i)
        if (logGetSymbol(i)->absIndex == absIndex)
            return logGetSymbol(i);
    return nullptr;
}

const LogSymbol *walkToRelative(const char *className, int32_t relIndex) {
    for (int i = 0; i < logTotalSymbols(); ++i)
        if (logGetSymbol(i)->relIndex == relIndex &&
            strcmp(logGetSymbol(i)->className, className) == 0)
            return logGetSymbol(i);
    return nullptr;
}

void expectLookupsEqualTheWalk() {
    int found = 0;
    for (int number = 0; number < 460; ++number) {
        const LogSymbol *byNumber = logFindAbsIndex(number);
        ASSERT_EQ(byNumber, walkToAbsolute(number)) << number;
        found += byNumber != nullptr;
        for (const char *className : {"NET", "DB", "XX"})
            ASSERT_EQ(logFindRelIndex(className, number), walkToRelative(className, number))
                << className << number;
    }
    EXPECT_GT(found, 5);
}

// Few numbers for many names: most occur several times.
std::string randomHeader(std::mt19937 &generator, int lines) {
    static const char *const CLASS_NAMES[] = {"NET", "DB", "XX"};
    std::string text;
    for (int i = 0; i < lines; ++i)
        text += "#define S" + std::to_string(generator() % 100000) + " log" +
                CLASS_NAMES[generator() % 3] + "(" + std::to_string(generator() % 150) + ")\n";
    return text;
}

TEST(LogSyms, firstOfSeveralRecordsIsFoundHoweverTheTableCameAbout) {
    expectChildPasses([] {
        std::mt19937 generator(5);
        const HeaderDir dir;
        const std::string path = dir.write("logNET.h", randomHeader(generator, 40));
        logReadSymbols(dir.path());
        expectLookupsEqualTheWalk();
        // Grown without a sort, one header after the other, past every size of the index
        for (int lines : {1, 7, 30, 200, 500}) {
            const std::string more = dir.write("more", randomHeader(generator, lines));
            EXPECT_EQ(logReadHeader(more.c_str()), lines);
            expectLookupsEqualTheWalk();
        }
        EXPECT_EQ(logTotalSymbols(), 778);
        logSortSymbols();
        expectLookupsEqualTheWalk();
        // Read anew, with other symbols
        dir.write("logNET.h", randomHeader(generator, 60));
        EXPECT_EQ(logReadSymbols(nullptr), 60);
        expectLookupsEqualTheWalk();
    });
}

TEST(LogSyms, sortingChangesWhichRecordIsFirst) {
    expectChildPasses([] {
        const HeaderDir dir;
        logSetHeaderDirName(dir.path());
        EXPECT_EQ(
            logReadHeader(dir.write("x", "#define B logNET(1)\n#define A logNET(1)\n").c_str()), 2);
        EXPECT_STREQ(logFindAbsIndex(100)->name, "B");
        EXPECT_STREQ(logFindRelIndex("NET", 1)->name, "B");
        logSortSymbols();
        EXPECT_STREQ(logFindAbsIndex(100)->name, "A");
        EXPECT_STREQ(logFindRelIndex("NET", 1)->name, "A");
    });
}

std::string numberedHeader(int symbols) {
    std::string text;
    for (int i = 1; i <= symbols; ++i)
        text += "#define SYMBOL_" + std::to_string(i) + " logNET(" + std::to_string(i) + ")\n";
    return text;
}

// Slots are had by tens: the table of 1001 symbols has room for nine more.
TEST(LogSyms, tableGrowsByTheStepsOfItsArray) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", numberedHeader(1001));
        ASSERT_EQ(logReadSymbols(dir.path()), 1001);
        std::vector<uint32_t> capacities;
        for (uint32_t array = 1; array < arrDescPtr->capacity; ++array) {
            const ArrayDescriptor &one = arrDescPtr[array];
            if (one.increment != 0 && one.elemSize == sizeof(LogSymbol) && one.count == 1001)
                capacities.push_back(one.capacity);
        }
        EXPECT_EQ(capacities, std::vector<uint32_t>{1010});
    });
}

TEST(LogSyms, missingNumbersAreMissedWhateverTheSizeOfTheTable) {
    expectChildPasses([] {
        const HeaderDir dir;
        for (int symbols : {1, 31, 32, 33, 63, 64, 65, 128, 256}) {
            dir.write("logNET.h", numberedHeader(symbols));
            EXPECT_EQ(logReadSymbols(dir.path()), symbols);
            EXPECT_EQ(logFindAbsIndex(99), nullptr);
            EXPECT_EQ(logFindAbsIndex(100 + symbols), nullptr);
            EXPECT_EQ(logFindRelIndex("NET", symbols + 1), nullptr);
            EXPECT_EQ(logFindRelIndex("DB", 1), nullptr);
            EXPECT_NE(logFindRelIndex("NET", symbols), nullptr);
        }
    });
}

// Seconds of a round of lookups spread over the table, the best of several.
double lookupSeconds(int symbols) {
    double best = 1e9;
    for (int attempt = 0; attempt < 5; ++attempt) {
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < 2000; ++i) {
            const int number = 1 + i * 7919 % symbols;
            EXPECT_NE(logFindAbsIndex(99 + number), nullptr);
            EXPECT_NE(logFindRelIndex("NET", number), nullptr);
        }
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        best = std::min(best, taken.count());
    }
    return best;
}

TEST(LogSyms, lookupsCostTheSameInALargeCatalogue) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", numberedHeader(100));
        EXPECT_EQ(logReadSymbols(dir.path()), 100);
        const double few = lookupSeconds(100);
        dir.write("logNET.h", numberedHeader(20000));
        EXPECT_EQ(logReadSymbols(nullptr), 20000);
        // A walk takes two hundred times as long.
        EXPECT_LT(lookupSeconds(20000), 10 * few);
    });
}

#ifndef __SANITIZE_ADDRESS__ // which reserves its address space beforehand: no limit can be set
TEST(LogSyms, withoutMemoryForTheIndexRecordsAreFoundAllTheSame) {
    SKIP_UNDER_THREAD_SANITIZER("its own memory would count against the limit");
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", numberedHeader(20000));
        EXPECT_EQ(logReadSymbols(dir.path()), 20000);
        rlimit limit = {0, RLIM_INFINITY};
        rlimit before;
        getrlimit(RLIMIT_AS, &before);
        limit.rlim_max = before.rlim_max;
        ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
        std::array<void *, 1000> taken = {};
        size_t blocks = 0;
        while (blocks < taken.size() && (taken[blocks] = malloc(64U << 10)) != nullptr)
            ++blocks;
        const std::string first = shown(logFindAbsIndex(15000));
        const std::string second = shown(logFindRelIndex("NET", 19999));
        const LogSymbol *missing = logFindAbsIndex(90);
        ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
        EXPECT_LT(blocks, taken.size());
        for (void *block : taken)
            free(block);
        EXPECT_EQ(first, "SYMBOL_14901 15000 NET 14901");
        EXPECT_EQ(second, "SYMBOL_19999 20098 NET 19999");
        EXPECT_EQ(missing, nullptr);
    });
}
#endif

// ---- the directory

TEST(LogSyms, directoryNamesComeBackOneCallLater) {
    expectChildPasses([] {
        const HeaderDir one, two;
        EXPECT_EQ(logGetHeaderDirName(), nullptr);
        EXPECT_EQ(logSetHeaderDirName(one.path()), nullptr);
        EXPECT_STREQ(logGetHeaderDirName(), one.path());
        EXPECT_STREQ(logSetHeaderDirName(two.path()), one.path());
        EXPECT_STREQ(logGetHeaderDirName(), two.path());
        EXPECT_NE(logGetHeaderDirName(), two.path());
        // A name of the library's own
        char *kept = logSetHeaderDirName(logGetHeaderDirName());
        EXPECT_STREQ(kept, two.path());
        kept = logSetHeaderDirName(one.path());
        EXPECT_STREQ(logSetHeaderDirName(kept), one.path());
        EXPECT_STREQ(logGetHeaderDirName(), two.path());
    });
}

TEST(LogSyms, directoryOfNoneChangesNothing) {
    expectChildPasses([] {
        const HeaderDir dir;
        EXPECT_EQ(logSetHeaderDirName(nullptr), nullptr);
        dir.write("logNET.h", "#define A logNET(1)\n");
        logReadSymbols(dir.path());
        const LogSymbol *symbol = logGetSymbol(0);
        const int32_t reads = logClassReadCnt;
        EXPECT_EQ(logSetHeaderDirName(nullptr), nullptr);
        EXPECT_STREQ(logGetHeaderDirName(), dir.path());
        EXPECT_EQ(logGetSymbol(0), symbol);
        EXPECT_EQ(logClassReadCnt, reads);
    });
}

TEST(LogSyms, sameDirectoryKeepsTheSymbolsAndReadsTheClassesAgain) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1)\n");
        logReadSymbols(dir.path());
        const int32_t reads = logClassReadCnt;
        dir.write("logNET.h", "");
        dir.write("systemLog.h", "#define _NETMSG_START 700\n");
        logSetHeaderDirName(std::string(dir.path()).c_str());
        EXPECT_EQ(logClassReadCnt, reads + 1);
        EXPECT_EQ(shown(logGetSymbol(0)), "A 100 NET 1");
        EXPECT_EQ(logStartClass("NET"), 700);
        logSetHeaderDirName(logGetHeaderDirName());
        EXPECT_EQ(shown(logGetSymbol(0)), "A 100 NET 1");
    });
}

TEST(LogSyms, otherDirectoryDropsTheSymbols) {
    expectChildPasses([] {
        const HeaderDir one, two("#define _NETMSG_START 700\n");
        one.write("logNET.h", "#define A logNET(1)\n");
        two.write("logNET.h", "#define B logNET(1)\n");
        EXPECT_EQ(logReadSymbols(one.path()), 1);
        EXPECT_EQ(logSymbolToAbsIndex("A"), 100);
        logSetHeaderDirName(two.path());
        EXPECT_EQ(logSymbolToAbsIndex("A"), -1);
        EXPECT_EQ(logSymbolToAbsIndex("B"), 700);
    });
}

TEST(LogSyms, lookupWithoutATableReadsTheDefaultDirectory) {
    expectChildPasses([] {
        const TempDir root;
        ASSERT_EQ(mkdir(root.file("head").c_str(), 0700), 0);
        root.write("head/systemLog.h", CLASSES);
        root.write("head/logDB.h", "#define A logDB(2)\n");
        setenv("LOGROOT", root.path().c_str(), 1);
        EXPECT_STREQ(logAbsIndexToSymbol(301), "A");
        EXPECT_EQ(logGetHeaderDirName(), root.path() + "/head");
        // Each lookup finds its own way to the symbols.
        const struct {
            const char *what;
            bool (*found)();
        } LOOKUPS[] = {
            {"name", [] { return logFindDefineName("A") != nullptr; }},
            {"relative", [] { return logFindRelIndex("DB", 2) != nullptr; }},
            {"symbol", [] { return logFindSymbol("DB002") != nullptr; }},
            {"total", [] { return logTotalSymbols() == 1; }},
            {"position", [] { return logGetSymbol(0) != nullptr; }},
            {"read", [] { return logReadSymbols(nullptr) == 1; }},
        };
        for (const auto &row : LOOKUPS) {
            logFreeSymbols();
            EXPECT_TRUE(row.found()) << row.what;
        }
        EXPECT_TRUE(reports.empty());
    });
}

TEST(LogSyms, withoutLogrootTheDefaultRootIsUsed) {
    expectChildPasses([] {
        unsetenv("LOGROOT");
        logReadSymbols(nullptr);
        EXPECT_STREQ(logGetHeaderDirName(), "/usr/spool/log/head");
    });
}

TEST(LogSyms, readReplacesTheSymbolsThereWere) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1)\n");
        EXPECT_EQ(logReadSymbols(dir.path()), 1);
        EXPECT_EQ(logReadSymbols(dir.path()), 1);
        EXPECT_EQ(logTotalSymbols(), 1);
        // The library's own text as the argument
        EXPECT_EQ(logReadSymbols(logGetHeaderDirName()), 1);
        EXPECT_EQ(logTotalSymbols(), 1);
    });
}

TEST(LogSyms, symbolsOfTheTableBeforeAreForgotten) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1)\n");
        logReadSymbols(dir.path());
        EXPECT_STREQ(logAbsIndexToSymbol(100), "A");
        dir.write("logNET.h", "#define B logNET(2)\n");
        EXPECT_EQ(logReadSymbols(nullptr), 1);
        EXPECT_EQ(logFindAbsIndex(100), nullptr);
        EXPECT_EQ(logFindRelIndex("NET", 1), nullptr);
        EXPECT_STREQ(logAbsIndexToSymbol(101), "B");
    });
}

// ---- failures

TEST(LogSyms, missingDirectoryIsToldOfByTheClassReaderOnly) {
    expectChildPasses([] {
        EXPECT_EQ(logReadSymbols("/nonexistent/head"), 0);
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].file, "../logStartCl");
        EXPECT_EQ(reports[0].text, "/nonexistent/head/systemLog.h");
        EXPECT_EQ(logTotalSymbols(), 0);
        EXPECT_EQ(logGetSymbol(0), nullptr);
        EXPECT_EQ(logFindAbsIndex(1), nullptr);
        EXPECT_EQ(logFindRelIndex("NET", 1), nullptr);
        EXPECT_EQ(logFindSymbol("NET001"), nullptr);
        EXPECT_EQ(logFindDefineName("A"), nullptr);
        EXPECT_EQ(reports.size(), 1U);
        logSortSymbols();
        logFreeSymbols();
    });
}

TEST(LogSyms, directoryWithoutHeadersHasNoSymbols) {
    expectChildPasses([] {
        const HeaderDir dir;
        EXPECT_EQ(logReadSymbols(dir.path()), 0);
        EXPECT_EQ(logTotalSymbols(), 0);
        EXPECT_EQ(logFindAbsIndex(100), nullptr);
        dir.write("logNET.h", "");
        EXPECT_EQ(logReadSymbols(dir.path()), 0);
        EXPECT_EQ(logFindAbsIndex(100), nullptr);
        EXPECT_EQ(logFindRelIndex("NET", 1), nullptr);
        EXPECT_EQ(logFindDefineName("A"), nullptr);
    });
}

TEST(LogSyms, headerThatCannotBeOpenedIsReportedAndPassedOver) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1)\n");
        ASSERT_EQ(symlink("/nonexistent/%s%n", dir.file("logBAD.h").c_str()), 0);
        _destination = 0x34;
        EXPECT_EQ(logReadSymbols(dir.path()), 1);
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].destination, 0x34U);
        EXPECT_EQ(reports[0].priority, 2);
        EXPECT_EQ(reports[0].file, "../logSyms");
        EXPECT_EQ(reports[0].line, 265);
        EXPECT_EQ(reports[0].format, "%s");
        EXPECT_EQ(reports[0].text, dir.file("logBAD.h"));
        EXPECT_EQ(reports[0].error, ENOENT);
        EXPECT_EQ(logReadHeader("/nonexistent/%d"), 0);
        EXPECT_EQ(reports.back().text, "/nonexistent/%d");
        EXPECT_EQ(logReadHeader(nullptr), 0);
    });
}

TEST(LogSyms, folderNamedLikeAHeaderIsAnEmptyHeader) {
    expectChildPasses([] {
        const HeaderDir dir;
        ASSERT_EQ(mkdir(dir.file("logDIR.h").c_str(), 0700), 0);
        dir.write("logNET.h", "#define A logNET(1)\n");
        EXPECT_EQ(logReadSymbols(dir.path()), 1);
        EXPECT_TRUE(reports.empty());
    });
}

// ---- readers inside readers

TEST(LogSyms, classFileIsReadInTheMiddleOfAHeader) {
    expectChildPasses([] {
        const TempDir root;
        ASSERT_EQ(mkdir(root.file("head").c_str(), 0700), 0);
        root.write("head/systemLog.h", std::string(300, ' ') + "\n" + CLASSES);
        setenv("LOGROOT", root.path().c_str(), 1);
        const std::string header =
            root.write("x", "#define FIRST_SYMBOL logNET(1) /* c */\n#define SECOND logDB(2)\n");
        EXPECT_EQ(logClassReadCnt, 0);
        EXPECT_EQ(logReadHeader(header.c_str()), 2);
        EXPECT_EQ(logClassReadCnt, 1);
        EXPECT_EQ(shown(logGetSymbol(0)), "FIRST_SYMBOL 100 NET 1");
        EXPECT_EQ(shown(logGetSymbol(1)), "SECOND 301 DB 2");
    });
}

TEST(LogSyms, lineReaderIsGivenBack) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1)\n");
        logSetHeaderDirName(dir.path());
        expectReaderGivenBack([] { EXPECT_EQ(logSymbolToAbsIndex("A"), 100); });
    });
}

TEST(LogSyms, outerModesDoNotReachTheHeader) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1) \\\n#define B logNET(2)\n");
        setReadLineModes(7);
        EXPECT_EQ(logReadSymbols(dir.path()), 1);
        EXPECT_EQ(shown(logGetSymbol(0)), "B 101 NET 2");
        EXPECT_EQ(ri_modes, 7U);
    });
}

TEST(LogSyms, rememberedClassServesWithinOneHeaderOnly) {
    expectChildPasses([] {
        const HeaderDir dir;
        logSetHeaderDirName(dir.path());
        EXPECT_EQ(
            logReadHeader(dir.write("x", "#define A logNET(1)\n#define B logNET(2)\n").c_str()), 2);
        logReadStartClasses(dir.write("classes", "#define _NETMSG_START 700\n").c_str());
        EXPECT_EQ(logReadHeader(dir.write("x", "#define C logNET(3)\n").c_str()), 1);
        EXPECT_EQ(shown(logGetSymbol(1)), "B 101 NET 2");
        EXPECT_EQ(shown(logGetSymbol(2)), "C 702 NET 3");
    });
}

TEST(LogSyms, unknownClassIsLookedUpOncePerHeader) {
    expectChildPasses([] {
        setenv("LOGROOT", "/nonexistent", 1);
        const TempDir dir;
        // No class file: each lookup of a class tries to read it, and reports.
        EXPECT_EQ(logReadHeader(dir.write("x", "#define A logNET(1)\n#define B logNET(08)\n"
                                               "#define C logNET(3)\n#define D logDB(3)\n"
                                               "#define E logNET(3)\n")
                                    .c_str()),
                  5);
        EXPECT_EQ(reports.size(), 3U);
        EXPECT_EQ(shown(logGetSymbol(2)), "C -1 NET 3");
    });
}

TEST(LogSyms, readsCloseTheirFiles) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", "#define A logNET(1)\n");
        logReadSymbols(dir.path());
        const int before = openDescriptors();
        for (int i = 0; i < 5; ++i)
            logReadSymbols(dir.path());
        EXPECT_EQ(openDescriptors(), before);
    });
}

TEST(LogSyms, directoryWithoutMemoryForItsNameReadsNothingAndChangesNothing) {
    expectChildPasses([] {
        const TempDir dir, other;
        dir.write("systemLog.h", "#define _NETMSG_START 5\n#define __MAX_LOGMSG 20\n");
        dir.write("logNET.h", "#define NET_DOWN logNET(3)\n");
        ASSERT_EQ(logReadSymbols(dir.path().c_str()), 1);
        {
            const FailingAlloc none;
            EXPECT_EQ(logReadSymbols(other.path().c_str()), 0);
        }
        EXPECT_EQ(logGetHeaderDirName(), dir.path());
        EXPECT_STREQ(logAbsIndexToSymbol(7), "NET_DOWN");
    });
}

TEST(LogSyms, headerWithoutPathIsNotReported) {
    expectChildPasses([] {
        EXPECT_EQ(logReadHeader(nullptr), 0);
        EXPECT_TRUE(reports.empty());
    });
}

TEST(LogSyms, exhaustedMemoryReadsNoSymbolByHalf) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", numberedHeader(30)); // more than the table's first slots
        ASSERT_EQ(logReadSymbols(dir.path()), 30);
        int incomplete = 0;
        keepsReports = false;
        for (int granted = 0; granted < 160; ++granted) {
            int32_t read;
            {
                const FailingAlloc few(granted);
                read = logReadSymbols(nullptr);
            }
            incomplete += read < 30 ? 1 : 0;
            for (int32_t position = 0; position < read; ++position) {
                const LogSymbol *symbol = logGetSymbol(position);
                ASSERT_NE(symbol, nullptr) << granted;
                EXPECT_EQ(shown(symbol), "SYMBOL_" + std::to_string(symbol->relIndex) + " " +
                                             std::to_string(symbol->relIndex + 99) + " NET " +
                                             std::to_string(symbol->relIndex));
            }
            if (read > 0) {
                EXPECT_EQ(logTotalSymbols(), read);
            }
        }
        EXPECT_GT(incomplete, 30); // a block for each symbol, and the tables
        EXPECT_EQ(logReadSymbols(nullptr), 30);
    });
}

TEST(LogSyms, missingNumbersAreMissedWithoutMemoryForTheIndex) {
    expectChildPasses([] {
        const HeaderDir dir;
        dir.write("logNET.h", numberedHeader(5));
        ASSERT_EQ(logReadSymbols(dir.path()), 5);
        const FailingAlloc none;
        EXPECT_EQ(logFindRelIndex("NET", 6), nullptr);
        EXPECT_EQ(logFindRelIndex("DB", 1), nullptr);
        EXPECT_NE(logFindRelIndex("NET", 5), nullptr);
        EXPECT_EQ(logFindAbsIndex(300), nullptr);
        EXPECT_NE(logFindAbsIndex(104), nullptr);
    });
}

} // namespace
