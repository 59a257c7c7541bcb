/* The forms that other programs read, given to readers that are not ours: python3's json and csv.
   The table of counts, as a person sees it. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

static const std::string PROGRAM = TOOLS_DIR "/qnlog";
static const std::string ROOT = SAMPLE_ROOT;

static std::string record(int number, int priority, const std::string &producer,
                          const std::vector<std::string> &arguments) {
    std::string text = std::to_string(number) + " \x1C" + std::to_string(priority) + "65920080" +
                       producer + " f.c:40";
    for (const std::string &argument : arguments)
        text += '\x1C' + argument;
    return text + "\x1D\n";
}

static ToolResult run(const std::string &log, std::vector<std::string> arguments,
                      const std::vector<std::string> &variables = {}) {
    arguments.insert(arguments.begin(), {"--log-root", ROOT});
    return runTool(PROGRAM, arguments, log, variables);
}

// What a python program says of the text on its standard input.
static std::string python(const std::string &program, const std::string &text) {
    const ToolResult result =
        runTool("/usr/bin/python3", {"-c", "import sys, json, csv, io\n" + program}, text);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(0, result.exitCode);
    return result.out;
}

static const std::string STRICT_LINES =
    "lines = sys.stdin.buffer.read().decode('utf-8', 'strict').split('\\n')\n"
    "assert lines.pop() == ''\n";

TEST(Json, oneObjectALine) {
    EXPECT_EQ("{\"time\":\"2024-01-01T00:00:00+00:00\",\"priority\":3,\"number\":101,"
              "\"symbol\":\"LINE_DOWN\",\"class\":\"LINE\",\"producer\":\"ivr\",\"file\":\"f.c\","
              "\"line\":40,\"fields\":{\"line\":7,\"reason\":\"cut\"},"
              "\"text\":\"Line 7 is out of service: cut\"}\n",
              run(record(101, 3, "ivr", {"7", "cut"}), {"--json"}).out);
}

TEST(Json, timesHaveTheZoneOfTheReader) {
    const std::string log = record(509, 0, "ivr", {});
    for (const auto &[zone, text] :
         {std::pair{"TZ=CET-1CEST,M3.5.0,M10.5.0/3", "2024-01-01T01:00:00+01:00"},
          std::pair{"TZ=NST3:30NDT,M3.2.0,M11.1.0", "2023-12-31T20:30:00-03:30"}})
        EXPECT_NE(std::string::npos, run(log, {"--json"}, {zone}).out.find(text)) << zone;
}

TEST(Json, whatTheCatalogueDoesNotKnowIsNull) {
    const ToolResult result = run(record(5000, 0, "x", {"a", "b"}), {"--json"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("None None None {'0': 'a', '1': 'b'}\n",
              python("o = json.load(sys.stdin)\n"
                     "print(o['symbol'], o['class'], o['text'], o['fields'])",
                     result.out));
}

TEST(Json, numbersAreNumbersWhereTheyAre) {
    for (const auto &[argument, json] :
         {std::pair{"7", "7"}, std::pair{"-7", "-7"}, std::pair{"0", "0"},
          std::pair{"007", "'007'"}, std::pair{"+7", "'+7'"}, std::pair{"", "''"},
          std::pair{"-", "'-'"}, std::pair{"1.5", "1.5"}, std::pair{"1.", "'1.'"},
          std::pair{"1e5", "100000.0"}, std::pair{"1e", "'1e'"}, std::pair{"1E+", "'1E+'"},
          std::pair{"0x1F", "'0x1F'"}, std::pair{"nan", "'nan'"}, std::pair{" 7", "' 7'"},
          std::pair{"12345678901234567890", "12345678901234567890"}})
        EXPECT_EQ(json + std::string("\n"),
                  python("print(repr(json.load(sys.stdin)['fields']['line']))",
                         run(record(101, 0, "x", {argument, "r"}), {"--json"}).out));
}

// Every byte but the separators and zero, alone and beside others.
TEST(Json, anyBytesComeOutAsUtf8) {
    std::string log;
    size_t records = 0;
    for (int byte = 1; byte < 256; byte++)
        if (byte != 0x1C && byte != 0x1D)
            for (const char *frame :
                 {"%", "a%b", "%%", "\xC3%", "%\xA9", "\xE2\x82%", "\xF0\x9F%\x80"}) {
                std::string argument = frame;
                for (size_t at; (at = argument.find('%')) != std::string::npos && byte != '%';)
                    argument[at] = static_cast<char>(byte);
                log += record(101, 0, "x", {"1", argument});
                records++;
            }
    const ToolResult result = run(log, {"--json"});
    EXPECT_EQ("", result.err);
    EXPECT_TRUE(std::all_of(result.out.begin(), result.out.end(), [](char c) {
        return c == '\n' || static_cast<unsigned char>(c) >= ' ';
    }));
    EXPECT_EQ(std::string::npos, result.out.find('\x7F'));
    EXPECT_EQ(std::to_string(records) + " True\n",
              python(STRICT_LINES +
                         "texts = [json.loads(line) for line in lines]\n"
                         "same = all(o['text'].endswith(o['fields']['reason']) for o in texts)\n"
                         "print(len(texts), same)",
                     result.out));
}

TEST(Json, charactersStayAndStrayBytesAreLatin1) {
    EXPECT_EQ("['a\\x1b[2J\\x7f\"\\\\\\t\\n', '\\xe9\\u20ac\\U0001f600', '\\xe9\\xff\\xc0\\x80', "
              "'\\x9b']\n",
              python(STRICT_LINES +
                         "print(ascii([json.loads(line)['fields']['reason'] for line in lines]))",
                     run(record(101, 0, "x", {"1", "a\x1B[2J\x7F\"\\\t\n"}) +
                             record(101, 0, "x", {"1", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"}) +
                             record(101, 0, "x", {"1", "\xE9\xFF\xC0\x80"}) +
                             record(101, 0, "x", {"1", "\xC2\x9B"}),
                         {"--json"})
                         .out));
}

TEST(Json, linesThatAreNoRecordsAreCountedOnly) {
    const ToolResult result = run("free\n# comment\n" + record(509, 0, "x", {}) +
                                      "101 \x1C\x30"
                                      "65920080x f.c:1\x1C"
                                      "a",
                                  {"--json"});
    EXPECT_EQ(1, std::count(result.out.begin(), result.out.end(), '\n'));
    EXPECT_EQ("qnlog: 1 record is cut; 1 line is no record\n", result.err);
}

TEST(Json, textFollowsTheLayoutThatWasAskedFor) {
    const std::string log = record(509, 0, "x", {});
    EXPECT_NE(std::string::npos,
              run(log, {"--json", "--format", "%N: %M"}).out.find("\"text\":\"x: Still alive\""));
    EXPECT_NE(std::string::npos,
              run(log, {"--json"}, {"LOGFORMAT=%N"}).out.find("\"text\":\"Still alive\""));
}

TEST(Csv, readsBackByAnyReader) {
    const std::string log = record(101, 3, "i,v\"r", {"7", "a,\"b\"\r\nc"}) +
                            record(5000, 0, "x", {"=1"}) + record(509, 0, "\xE9", {});
    const ToolResult result = run(log, {"--csv"});
    EXPECT_EQ(0U, result.out.find(
                      "time,priority,number,symbol,class,producer,file,line,fields,text\r\n"));
    EXPECT_EQ(
        "4 {10}\n"
        "['2024-01-01T00:00:00+00:00', '3', '101', 'LINE_DOWN', 'LINE', 'i,v\"r', 'f.c', '40', "
        "'{\"line\":7,\"reason\":\"a,\\\\\"b\\\\\"\\\\u000d\\\\nc\"}', "
        "'Line 7 is out of service: a,\"b\"\\r\\nc']\n"
        "['2024-01-01T00:00:00+00:00', '0', '5000', '', '', 'x', 'f.c', '40', '{\"0\":\"=1\"}', "
        "'']\n"
        "['2024-01-01T00:00:00+00:00', '0', '509', 'SYS_MARK', 'SYS', '\\xe9', 'f.c', '40', '{}', "
        "'Still alive']\n",
        python("text = sys.stdin.buffer.read().decode('utf-8', 'strict')\n"
               "rows = list(csv.reader(io.StringIO(text, newline=''), strict=True))\n"
               "print(len(rows), {len(row) for row in rows})\n"
               "for row in rows[1:]: print(ascii(row))",
               result.out));
}

TEST(Csv, theHeadStandsAloneWhereThereIsNothing) {
    EXPECT_EQ("time,priority,number,symbol,class,producer,file,line,fields,text\r\n",
              run("", {"--csv"}).out);
}

TEST(Csv, manyQuotesTakeNoLongerThanOtherBytes) {
    const std::string quotes(1 << 19, '"');
    const ToolResult result = run(record(101, 0, "x", {"1", quotes}), {"--csv"});
    EXPECT_GT(result.out.size(), size_t{4} << 19);
}

static std::string sampleLog() {
    std::string log;
    for (int i = 0; i < 9; i++)
        log += record(101, 3, "ivr", {"7", "cut"});
    return log + record(509, 0, "supervisor", {}) + record(5000, 0, "ivr", {}) + "free\n";
}

TEST(Statistics, countsWithBars) {
    const ToolResult result = run(sampleLog(), {"--stats"}, {"LC_ALL=C"});
    EXPECT_EQ("11 records from 2024-01-01 00:00:00 to 2024-01-01 00:00:00\n"
              "\n"
              "priority  count  share\n"
              "0             2   18 %  ########\n"
              "3 **          9   82 %  ########################################\n"
              "\n"
              "class   count  share\n"
              "LINE        9   82 %  ########################################\n"
              "(none)      1    9 %  ####\n"
              "SYS         1    9 %  ####\n"
              "\n"
              "symbol       count  share\n"
              "LINE_DOWN        9   82 %  ########################################\n"
              "SYS_MARK         1    9 %  ####\n"
              "number 5000      1    9 %  ####\n"
              "\n"
              "producer    count  share\n"
              "ivr            10   91 %  ########################################\n"
              "supervisor      1    9 %  ####\n",
              result.out);
    EXPECT_EQ("qnlog: 1 line is no record\n", result.err);
    EXPECT_EQ(0, result.exitCode);
}

static size_t widest(const std::string &text) {
    std::istringstream stream(text);
    size_t width = 0;
    for (std::string line; std::getline(stream, line);)
        width =
            std::max(width, static_cast<size_t>(std::count_if(line.begin(), line.end(), [](char c) {
                         return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
                     })));
    return width;
}

TEST(Statistics, fitsItsWidthAndUsesIt) {
    std::string log = sampleLog();
    for (int i = 0; i < 40; i++)
        log += record(200 + i, 1,
                      "producer-of-a-very-long-name-indeed-that-goes-on-and-on-\xC3\xA9-" +
                          std::to_string(i),
                      {"1"});
    for (const char *locale : {"LC_ALL=C", "LC_ALL=C.UTF-8"})
        for (const size_t width : {40U, 80U, 119U, 120U, 160U, 179U, 180U, 200U}) {
            const std::string out =
                run(log, {"--stats", "--width", std::to_string(width)}, {locale}).out;
            EXPECT_LE(widest(out), width);
            EXPECT_GE(widest(out), width * 2 / 3) << width;
            // "priority" and what is beside it
            const std::string head = out.substr(0, out.find("\n0 "));
            EXPECT_EQ(width >= 120, head.find("symbol") != std::string::npos) << width;
            EXPECT_EQ(width >= 180, head.find("producer") != std::string::npos) << width;
        }
}

TEST(Statistics, theManySmallOnesAreOne) {
    std::string log;
    for (int i = 0; i < 1500; i++)
        log += record(509, 0, "p" + std::to_string(i % 30), {});
    const std::string out = run(log, {"--stats"}, {"LC_ALL=C"}).out;
    EXPECT_NE(std::string::npos, out.find("1,500 records"));
    EXPECT_NE(std::string::npos, out.find("\n11 others    550   37 %\n"));
    EXPECT_EQ(std::string::npos, out.find("\np29 "));
}

TEST(Statistics, controlsAndEmptyLogs) {
    EXPECT_EQ("0 records\n", run("", {"--stats"}).out);
    const std::string out = run(record(509, 0, "\x1B[2J", {}), {"--stats"}).out;
    EXPECT_NE(std::string::npos, out.find("\n<33>[2J "));
    EXPECT_EQ(std::string::npos, out.find('\x1B'));
}

TEST(Statistics, colourIsSparing) {
    const std::string out = run(sampleLog(), {"--stats", "--color", "always"}, {"LC_ALL=C"}).out;
    EXPECT_NE(std::string::npos, out.find("\x1B[31m####"));
    EXPECT_NE(std::string::npos, out.find("\x1B[1mpriority"));
    EXPECT_EQ(0, std::count(out.begin(), out.end(), '\x1B') % 2);
}

TEST(Statistics, followWhatTheFiltersLeave) {
    EXPECT_EQ(0U, run(sampleLog(), {"--stats", "--class", "SYS"}).out.find("1 record from "));
}

TEST(Forms, oneAtATime) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--json", "--csv"},
                                                      {"--json", "--stats"},
                                                      {"--csv", "--stats"},
                                                      {"--json", "--template", "@p@"},
                                                      {"--stats", "--last", "3"}}) {
        const ToolResult result = run("", arguments);
        EXPECT_EQ(2, result.exitCode);
        EXPECT_EQ("", result.out);
    }
}
