/* The format that qncatalog makes for lnav, in lnav itself: what qnlog --json writes of the sample
   log is shown as lines, and its tables hold the named fields. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

static const std::string TOOLS = TOOLS_DIR;

class Lnav : public testing::Test {
  protected:
    void SetUp() override {
        const ToolResult made = runTool(TOOLS + "/qncatalog", {"--lnav", SAMPLE_CATALOGUE});
        ASSERT_EQ(0, made.exitCode) << made.err;
        std::filesystem::create_directories(dir.file("formats/quarnel"));
        dir.write("formats/quarnel/format.json", made.out);
        const ToolResult shown = runTool(
            TOOLS + "/qnlog", {"--log-root", SAMPLE_ROOT, "--json", GOLDEN_DIR "/sample.log"});
        log = dir.write("log.json", shown.out);
    }
    // lnav keeps files of its own: they go with the folder.
    std::string lnav(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"-n", "-I", dir.path()});
        arguments.push_back(log);
        const ToolResult result = runTool(
            "/usr/bin/lnav", arguments, "",
            {"HOME=" + dir.path(), "XDG_CONFIG_HOME=" + dir.path(), "TMPDIR=" + dir.path()});
        EXPECT_EQ(0, result.exitCode) << result.out << result.err;
        return result.out;
    }
    std::string query(const std::string &sql) const {
        return lnav({"-c", ";" + sql, "-c", ":write-csv-to -"});
    }
    TempDir dir;
    std::string log;
};

TEST_F(Lnav, showsALineForEachRecord) {
    const std::string lines = lnav({});
    EXPECT_EQ(
        0U, lines.find("2024-01-01T00:00:00.000 supervisor SYS_STARTED        Started as process "
                       "4711, version 1.0.0\n"
                       "2024-01-01T00:00:01.000 linemgr    LINE_UP            Line 7 is in service "
                       "on board B2\n"))
        << lines;
    EXPECT_NE(std::string::npos,
              lines.find("account    DB_ERROR           Query balance failed with code "
                         "1205:\n\tdeadlock detected\nvictim chosen: this session\n"));
}

TEST_F(Lnav, itsTablesHoldTheNamedFields) {
    EXPECT_EQ(
        "log_time,symbol,class,producer,number,fields/line,fields/board,log_body\n"
        "2024-01-01 00:00:01.000,LINE_UP,LINE,linemgr,100,7,B2,Line 7 is in service on board B2\n",
        query("select log_time, symbol, class, producer, number, \"fields/line\", "
              "\"fields/board\", log_body from quarnel_log where number = 100"));
    EXPECT_EQ("seconds\n69\n", query("select sum(\"fields/seconds\") as seconds from quarnel_log "
                                     "where symbol = 'CALL_END'"));
}

TEST_F(Lnav, prioritiesAreItsLevels) {
    EXPECT_EQ("log_level,priority,count(*)\ninfo,0,12\nnotice,1,1\nwarning,2,1\nerror,3,"
              "2\ncritical,4,1\n",
              query("select log_level, priority, count(*) from quarnel_log group by priority"));
}

TEST_F(Lnav, theFormatIsSoundJson) {
    const ToolResult made = runTool(TOOLS + "/qncatalog", {"--lnav", SAMPLE_CATALOGUE});
    const ToolResult read =
        runTool("/usr/bin/python3",
                {"-c", "import json, sys\n"
                       "values = json.load(sys.stdin)['quarnel_log']['value']\n"
                       "print(values['fields/seconds']['kind'], values['fields/board']['kind'])"},
                made.out);
    EXPECT_EQ("integer string\n", read.out);
    EXPECT_EQ("", read.err);
}

TEST_F(Lnav, aSourceWithMistakesMakesNoFormat) {
    const std::string source = dir.write("bad.toml", "[[class]]\nname = \"x y\"\n");
    const ToolResult made = runTool(TOOLS + "/qncatalog", {"--lnav", source});
    EXPECT_EQ(1, made.exitCode);
    EXPECT_EQ("", made.out);
}
