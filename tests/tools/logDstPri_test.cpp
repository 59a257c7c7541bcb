/* logDstPri as a program, on real segments (each case a key of its own): what the table becomes,
   and that a process that has it attached sees rows change in place. */
#include "toolRun.h"
#include "log/log.h"
#include "log/logDstPri.h"
#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/shm.h>
#include <unistd.h>

static const std::string PROGRAM = TOOLS_DIR "/logDstPri";

struct Table {
    TempDir root;
    std::string key = "0x5" + std::to_string(1000000 + getpid() % 1000000);

    explicit Table(int messages = 3) { compile(messages); }
    ~Table() { run({"--remove"}); }

    void compile(int messages, int start = 10) const {
        std::string source =
            "[[class]]\nname = \"NET\"\nstart = " + std::to_string(start) + "\npriority = 1\n";
        for (int number = 1; number <= messages; ++number)
            source += "[[class.message]]\nnumber = " + std::to_string(number) +
                      "\nsymbol = \"NET_M" + std::to_string(number) + "\"\ntext = \"text\"\n";
        const std::string path = root.write("source.toml", source);
        EXPECT_EQ(
            0,
            runTool(TOOLS_DIR "/qncatalog", {"--quiet", "--log-root", root.path(), path}).exitCode);
    }
    ToolResult run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--log-root", root.path()});
        return runTool(PROGRAM, arguments, "", {"LOGDSTPRISHMKEY=" + key, "LOGDSTRULES"});
    }
    std::string shown(const std::string &symbol) const {
        const std::string all = run({"--show"}).out;
        const size_t at = all.find(" " + symbol + " ");
        return at == std::string::npos
                   ? ""
                   : all.substr(all.find_first_of("0123456789", at + symbol.size() + 1), 12);
    }
};

TEST(LogDstPri, fillsTheTableFromTheCatalogue) {
    const Table table;
    const ToolResult filled = table.run({});
    EXPECT_EQ(0, filled.exitCode) << filled.err;
    EXPECT_EQ(0U, filled.out.rfind("a new table of 18", 0)) << filled.out;
    EXPECT_EQ("1 0x00000001", table.shown("NET_M1"));
    EXPECT_EQ(0, table.run({"--check"}).exitCode);
}

TEST(LogDstPri, lastRuleThatMatchesCounts) {
    const Table table;
    table.root.write("msgDst.rules",
                     "# all\nclass NET 2 3\nsymbol *_M2 4 -\n\nnumber 12-13 - 0x10 # the third\n");
    EXPECT_EQ(0, table.run({"--quiet"}).exitCode);
    EXPECT_EQ("2 0x00000003", table.shown("NET_M1"));
    EXPECT_EQ("4 0x00000003", table.shown("NET_M2"));
    EXPECT_EQ("2 0x00000010", table.shown("NET_M3"));
}

TEST(LogDstPri, mistakenRulesAreToldAndNothingChanges) {
    const struct {
        const char *rule;
        const char *reason;
    } cases[] = {
        {"class NET 2", "a rule is: class|symbol|number WHICH PRIORITY DESTINATION"},
        {"class NET 2 3 4", "a rule is: class|symbol|number WHICH PRIORITY DESTINATION"},
        {"kind NET 2 3", "\"kind\" is none of class, symbol, number"},
        {"class NET 5 3", "priority 5 is above 4"},
        {"class NET x 3", "\"x\" is no number of 32 bits"},
        {"class NET 2 0x100000000", "\"0x100000000\" is no number of 32 bits"},
        {"class NONE 2 3", "no message is meant by class NONE"},
        {"number 13-12 2 3", "no message is meant by number 13-12"},
    };
    const Table table;
    ASSERT_EQ(0, table.run({}).exitCode);
    for (const auto &row : cases) {
        const std::string path =
            table.root.write("msgDst.rules", std::string("\n") + row.rule + "\n");
        const ToolResult result = table.run({});
        EXPECT_EQ(1, result.exitCode) << row.rule;
        EXPECT_EQ("logDstPri: " + path + ":2: " + row.reason + "\n", result.err);
        EXPECT_EQ("1 0x00000001", table.shown("NET_M1"));
    }
}

TEST(LogDstPri, attachedProcessSeesRowsChangeInPlaceButNotANewTable) {
    const Table table;
    ASSERT_EQ(0, table.run({}).exitCode);
    expectChildPasses([&] {
        setenv("LOGDSTPRISHMKEY", table.key.c_str(), 1);
        const LogDstPri *row = getLogMsgDstPri(10);
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->destination, 1U);
        table.root.write("msgDst.rules", "symbol NET_M1 3 2\n");
        EXPECT_EQ(0U, table.run({}).out.rfind("1 of ", 0));
        EXPECT_EQ(getLogMsgDstPri(10)->priority, 3);
        EXPECT_EQ(getLogMsgDstPri(10)->destination, 2U);
    });
}

TEST(LogDstPri, tableThatMustGrowIsANewSegment) {
    const Table table;
    ASSERT_EQ(0, table.run({}).exitCode);
    void *address = nullptr;
    const int id = shmget(static_cast<key_t>(strtoul(table.key.c_str(), nullptr, 0)), 0, 0);
    ASSERT_NE(id, -1);
    address = shmat(id, nullptr, SHM_RDONLY);
    table.compile(3, 3000); // beyond the operating system's errors
    const ToolResult grown = table.run({});
    EXPECT_EQ(0, grown.exitCode) << grown.err;
    EXPECT_NE(grown.out.find("the 1 processes that have the old one see it when they start anew"),
              std::string::npos)
        << grown.out;
    EXPECT_EQ("1 0x00000001", table.shown("NET_M1"));
    shmdt(address);
}

TEST(LogDstPri, checkPrintsTheRowsThatDiffer) {
    const Table table;
    ASSERT_EQ(0, table.run({}).exitCode);
    table.root.write("msgDst.rules", "symbol NET_M2 4 3\n");
    const ToolResult result = table.run({"--check"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("    11 NET_M2                   1 0x00000001\n", result.out);
}

TEST(LogDstPri, withoutATableItSaysSo) {
    const Table table;
    for (const char *option : {"--show", "--check", "--remove"}) {
        const ToolResult result = table.run({option});
        EXPECT_EQ(1, result.exitCode);
        EXPECT_EQ("logDstPri: there is no table\n", result.err);
    }
}

TEST(LogDstPri, mistakesOfTheCommandLineAndMissingFiles) {
    const Table table;
    EXPECT_EQ(2, table.run({"--show", "--remove"}).exitCode);
    EXPECT_EQ(2, table.run({"--bogus"}).exitCode);
    EXPECT_EQ(1, table.run({"--rules", "/nonexistent/rules"}).exitCode);
    EXPECT_EQ(1, runTool(PROGRAM, {"--log-root", "/nonexistent"}).exitCode);
}
