/* qncatalog as a program: what it makes of sources that are right, byte by byte, and how it refuses
   those that are not. The expected files of golden/small.toml stand in golden/small. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::string_literals;

static const std::string PROGRAM = TOOLS_DIR "/qncatalog";
static const std::string GOLDEN = GOLDEN_DIR;

static std::string slurp(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.good()) << path;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

static ToolResult compile(const TempDir &dir, const std::string &source) {
    return runTool(PROGRAM, {"--quiet", "--log-root", dir.path() + "/root", source});
}

// The whole source of a catalogue with one class, whose only message has the lines given.
static std::string oneMessage(const std::string &lines) {
    return "[[class]]\nname = \"NET\"\nstart = 100\npriority = 1\n[[class.message]]\n" + lines;
}

struct Root {
    explicit Root(const std::string &path)
        : formats(slurp(path + "/cmpLogFmt")), texts(slurp(path + "/textLogFmt")),
          index(slurp(path + "/ddMapLog")), fields(slurp(path + "/dataDictLog")) {}

    static uint32_t bigEndian(const std::string &bytes, size_t at, size_t width) {
        uint32_t value = 0;
        for (size_t i = 0; i < width; i++)
            value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
        return value;
    }
    uint32_t count() const { return bigEndian(formats, 0, 4); }
    std::string format(size_t number) const {
        const size_t offset = bigEndian(formats, 4 + 2 * number, 2);
        return formats.c_str() + 4 + 2 * count() + offset;
    }
    std::string entry(size_t number) const { return texts.substr(16 * number, 16); }
    std::string text(size_t number) const {
        size_t offset = 0;
        size_t length = 0;
        if (sscanf(entry(number).c_str(), "%zu %zu", &offset, &length) != 2)
            return "(none)";
        return texts.substr(offset, length);
    }
    std::string fieldLine(size_t number) const {
        const size_t offset = bigEndian(index, 8 * number + 12, 4);
        return offset >= fields.size() ? ""
                                       : fields.substr(offset, fields.find('\n', offset) - offset);
    }

    std::string formats, texts, index, fields;
};

class Compiled : public testing::Test {
  protected:
    TempDir dir;
    void compileText(const std::string &text) {
        const ToolResult result = compile(dir, dir.write("source.toml", text));
        ASSERT_EQ(0, result.exitCode) << result.err;
        ASSERT_EQ("", result.err);
    }
    Root root() const { return Root(dir.path() + "/root"); }
};

TEST_F(Compiled, headersAreTheExpectedFiles) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    EXPECT_EQ(slurp(GOLDEN + "/small/logNET.h"), dir.read("root/head/logNET.h"));
    EXPECT_EQ(slurp(GOLDEN + "/small/systemLog.h"), dir.read("root/head/systemLog.h"));
}

TEST_F(Compiled, formatTableIsBigEndianWithSharedTexts) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    const std::string bytes = root().formats;
    EXPECT_EQ("\x00\x00\x07\x45"s, bytes.substr(0, 4));
    EXPECT_EQ("\x00\x00"s, bytes.substr(4, 2));
    EXPECT_EQ("\x00\x00\x00\x00\x00\x02\x00\x00"s, bytes.substr(4 + 2 * 100, 8));
    EXPECT_EQ("\x00\x0B\x00\x0B"s, bytes.substr(4 + 2 * 1727, 4));
    EXPECT_EQ("\x1D\0\x1C%s\x1C%5u\x1D\0\x1C%s\x1D\0"s, bytes.substr(4 + 2 * 1861));
}

TEST_F(Compiled, textsStandAtTheirEntries) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    EXPECT_EQ("    29776    13\n", root().entry(100));
    EXPECT_EQ("    29789    24\n", root().entry(102));
    EXPECT_EQ("Network is up", root().text(100));
    EXPECT_EQ("Host %s: port %s is down", root().text(102));
}

TEST_F(Compiled, unusedNumberHasNoText) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    EXPECT_EQ("               \n", root().entry(101));
    EXPECT_EQ("\x1D", root().format(101));
    EXPECT_EQ("", root().fieldLine(101));
}

TEST_F(Compiled, dictionaryNamesTheFields) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    EXPECT_EQ("100\x1C\x1D", root().fieldLine(100));
    EXPECT_EQ("102\x1Chost,S,0,16\x1Cport,U,0,0\x1C\x1D", root().fieldLine(102));
    EXPECT_EQ("\x00\x00\x00\x00\x00\x00\x3A\x30"s, root().index.substr(0, 8)); // 8 x (1861 + 1)
    EXPECT_EQ(14896u, root().index.size());
}

TEST_F(Compiled, systemErrorsHaveTheNumbersOfTheClient) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    EXPECT_EQ("NONE (no error number): %s", root().text(1727));
    EXPECT_EQ("ENOENT (No such file or directory): %s", root().text(1729));
    EXPECT_EQ("\x1C%s\x1D", root().format(1729));
    EXPECT_EQ("(none)", root().text(1727 + 41)); // no error of that number on Linux
    const std::string header = dir.read("root/head/logOSERR.h");
    EXPECT_NE(std::string::npos,
              header.find("#define OSERR_ENOENT logOSERR(2) /* (const char *text) "));
}

// What readers of the header directory take: "#define", a name, logCLASS(digits), then a comment.
TEST_F(Compiled, everySampleSymbolLineHasTheFormOfTheReaders) {
    ASSERT_EQ(0, compile(dir, SAMPLE_CATALOGUE).exitCode);
    size_t symbols = 0;
    for (const char *name : {"LINE", "CALL", "PROMPT", "DB", "SYS"}) {
        std::istringstream header(dir.read("root/head/log"s + name + ".h"));
        for (std::string line; std::getline(header, line);) {
            char define[256], value[256], comment[1024];
            const int words =
                sscanf(line.c_str(), "#define %255s %255s %1023[^\n]", define, value, comment);
            if (words == 3 && strncmp(value, "log", 3) == 0) {
                EXPECT_EQ(0, strncmp(comment, "/*", 2)) << line;
                EXPECT_EQ("log"s + name + "(", std::string(value).substr(0, strlen(name) + 4))
                    << line;
                symbols++;
            }
        }
    }
    EXPECT_GE(symbols, 40u);
}

TEST_F(Compiled, headersCompileAsStrictC) {
    ASSERT_EQ(0, compile(dir, SAMPLE_CATALOGUE).exitCode);
    dir.write(
        "use.c",
        "#include \"logLINE.h\"\n#include \"logCALL.h\"\n#include \"logOSERR.h\"\n"
        "int check[LINE_ALARM == 109 && CALL_END == 210 && OSERR_ENOENT == 1729 ? 1 : -1];\n");
    const std::string command = "cc -std=c11 -Wall -Wextra -pedantic -Werror -fsyntax-only -I" +
                                dir.path() + "/root/head " + dir.file("use.c");
    EXPECT_EQ(0, system(command.c_str()));
}

TEST_F(Compiled, textCannotEndTheCommentOfItsDefine) {
    compileText(oneMessage("number = 1\nsymbol = \"A\"\ntext = \"a */ b /* c\\nd\"\n"));
    EXPECT_NE(std::string::npos,
              dir.read("root/head/logNET.h").find("#define A logNET(1) /* () a *| b |* c d */\n"));
    EXPECT_EQ("a */ b /* c\nd", root().text(100));
}

TEST_F(Compiled, twentyThousandMessagesShareTheirFormats) {
    std::string text = "[[class]]\nname = \"BIG\"\nstart = 2000\npriority = 0\n";
    for (int i = 1; i <= 20000; i++)
        text += "[[class.message]]\nnumber = " + std::to_string(i) + "\nsymbol = \"BIG_" +
                std::to_string(i) + "\"\ntext = \"message " + std::to_string(i) +
                ": %s\"\nfields = [{ name = \"a\" }]\n";
    compileText(text);
    EXPECT_EQ(22000u, root().count());
    EXPECT_EQ("\x1C%s\x1D", root().format(21999));
    EXPECT_EQ("message 20000: %s", root().text(21999));
    EXPECT_EQ("21999\x1C"s + "a,S,0,0\x1C\x1D", root().fieldLine(21999));
}

TEST_F(Compiled, classDefaultsServeMessagesThatNameNone) {
    compileText("[[class]]\nname = \"A1\"\nstart = 0\npriority = 2\n"
                "[[class.message]]\nnumber = 1\nsymbol = \"Z\"\ntext = \"zero\"\n");
    EXPECT_EQ("zero", root().text(0));
    EXPECT_EQ("\x1D", root().format(0));
}

TEST_F(Compiled, secondRunReplacesNothing) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    const auto before = fs::last_write_time(dir.file("root/head/logNET.h"));
    const ToolResult result =
        runTool(PROGRAM, {"--log-root", dir.file("root"), GOLDEN + "/small.toml"});
    EXPECT_EQ(dir.file("root") + ": 134 messages in 2 classes, 0 of 8 files written\n", result.out);
    EXPECT_EQ(before, fs::last_write_time(dir.file("root/head/logNET.h")));
}

TEST_F(Compiled, headerOfAClassThatIsGoneGoesToo) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    dir.write("root/head/logOWN.h", "/* written by hand */\n");
    ASSERT_EQ(0, compile(dir, SAMPLE_CATALOGUE).exitCode);
    EXPECT_FALSE(fs::exists(dir.file("root/head/logNET.h")));
    EXPECT_TRUE(fs::exists(dir.file("root/head/logOWN.h")));
}

TEST_F(Compiled, nothingIsLeftOverBesideTheFiles) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    size_t files = 0;
    for (const auto &entry : fs::recursive_directory_iterator(dir.file("root")))
        files += entry.is_regular_file();
    EXPECT_EQ(8u, files);
}

TEST_F(Compiled, aFileThatCannotBePlacedChangesNoOther) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    const Root before = root();
    // No temporary file can be made for it: a name too long for the folder.
    const std::string longName(250, 'X');
    const ToolResult result =
        compile(dir, dir.write("long.toml", "[[class]]\nname = \"" + longName + "\"\nstart = 5\n"));
    EXPECT_EQ(1, result.exitCode);
    EXPECT_NE(std::string::npos, result.err.find("File name too long")) << result.err;
    EXPECT_EQ(before.formats, root().formats);
    EXPECT_EQ(slurp(GOLDEN + "/small/systemLog.h"), dir.read("root/head/systemLog.h"));
}

TEST_F(Compiled, checkTellsStaleMissingAndDamagedFiles) {
    ASSERT_EQ(0, compile(dir, GOLDEN + "/small.toml").exitCode);
    const std::vector<std::string> check = {"--check", "--log-root", dir.file("root"),
                                            GOLDEN + "/small.toml"};
    EXPECT_EQ(0, runTool(PROGRAM, check).exitCode);
    dir.write("root/cmpLogFmt", root().formats.substr(0, 100));
    unlink(dir.file("root/ddMapLog").c_str());
    const ToolResult result = runTool(PROGRAM, check);
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("qncatalog: " + dir.file("root/ddMapLog") +
                  ": missing\nqncatalog: " + dir.file("root/cmpLogFmt") +
                  ": stale or damaged: not what the source compiles to\n",
              result.err);
    EXPECT_EQ(100u, dir.read("root/cmpLogFmt").size());
    EXPECT_FALSE(fs::exists(dir.file("root/ddMapLog")));
}

struct Refusal {
    const char *name;
    std::string source;
    std::string message; // behind "qncatalog: <file>:"
};

static std::string fieldOf(const std::string &field) {
    return oneMessage("number = 1\nsymbol = \"A\"\ntext = \"%s\"\nfields = [\n{ name = \"f\", " +
                      field + " }]\n");
}

static std::string textOf(const std::string &text) {
    return oneMessage("number = 1\nsymbol = \"A\"\ntext = \"" + text + "\"\n");
}

static std::string classAt(const std::string &name, int start, std::initializer_list<int> numbers) {
    std::string text =
        "[[class]]\nname = \"" + name + "\"\nstart = " + std::to_string(start) + "\npriority = 0\n";
    for (const int number : numbers)
        text += "[[class.message]]\nnumber = " + std::to_string(number) + "\nsymbol = \"" + name +
                "_" + std::to_string(number) + "\"\ntext = \"t\"\n";
    return text;
}

static const Refusal REFUSALS[] = {
    {"notToml", "[[class\n", "1: "},
    // Letters beyond ASCII where a blank might stand.
    {"accentInKey", oneMessage("cl\xC3\xA9 = 1\n"), "6: "},
    {"ideographicCommaInKey", oneMessage("a\xE3\x80\x81 = 1\n"), "6: "},
    {"noClass", "", "1: the catalogue has no [[class]]"},
    {"fewerFieldsThanSlots", textOf("%s and %s"), "8: A: the text has 2 \"%s\" for 0 fields"},
    {"moreFieldsThanSlots",
     oneMessage("number = 1\nsymbol = \"A\"\ntext = \"t\"\nfields = [{ name = \"f\" }]\n"),
     "8: A: the text has 0 \"%s\" for 1 fields"},
    {"percentAtEnd", textOf("50%"), "8: A: a lone \"%\" at the end of the text"},
    {"percentAfterPercents", textOf("50%%%"), "8: A: a lone \"%\" at the end of the text"},
    {"conversionInText", textOf("%d"), "8: A: \"%d\" in the text: only \"%s\" and \"%%\""},
    {"emptyText", textOf(""), "8: A: the text is empty"},
    {"fieldSeparatorInText", textOf("a\\u001Cb"), "8: A: a control character in the text"},
    {"groupSeparatorInText", textOf("a\\u001Db"), "8: A: a control character in the text"},
    {"zeroByteInText", textOf("a\\u0000b"), "8: A: a control character in the text"},
    {"escapeInText", textOf("\\u001B[31m"), "8: A: a control character in the text"},
    {"stringAsNumber", fieldOf("type = \"D\", conversion = \"%s\""),
     "10: a field of A: the conversion \"%s\" does not fit a field of type D (such as \"%d\")"},
    {"numberAsString", fieldOf("type = \"S\", conversion = \"%d\""),
     "10: a field of A: the conversion"},
    {"intAsLong", fieldOf("type = \"L\", conversion = \"%d\""), "10: a field of A: the conversion"},
    {"longAsInt", fieldOf("type = \"D\", conversion = \"%ld\""),
     "10: a field of A: the conversion"},
    {"shortLength", fieldOf("type = \"D\", conversion = \"%hd\""),
     "10: a field of A: the conversion"},
    {"longLong", fieldOf("type = \"L\", conversion = \"%lld\""),
     "10: a field of A: the conversion"},
    {"pointer", fieldOf("type = \"X\", conversion = \"%p\""), "10: a field of A: the conversion"},
    {"written", fieldOf("type = \"D\", conversion = \"%n\""), "10: a field of A: the conversion"},
    {"widthByArgument", fieldOf("type = \"D\", conversion = \"%*d\""),
     "10: a field of A: the conversion"},
    {"precisionByArgument", fieldOf("type = \"S\", conversion = \"%.*s\""),
     "10: a field of A: the conversion"},
    {"precisionOfNothing", fieldOf("type = \"S\", conversion = \"%.s\""),
     "10: a field of A: the conversion"},
    {"precisionOfCharacter", fieldOf("type = \"C\", conversion = \"%.1c\""),
     "10: a field of A: the conversion"},
    {"wideWidth", fieldOf("type = \"D\", conversion = \"%1000d\""),
     "10: a field of A: the conversion"},
    {"signOfUnsigned", fieldOf("type = \"U\", conversion = \"%+u\""),
     "10: a field of A: the conversion"},
    {"flagBehindZero", fieldOf("type = \"D\", conversion = \"%0-5d\""),
     "10: a field of A: the conversion"},
    {"blankBehindZero", fieldOf("type = \"L\", conversion = \"%0 5ld\""),
     "10: a field of A: the conversion"},
    {"twoConversions", fieldOf("type = \"D\", conversion = \"%d%d\""),
     "10: a field of A: the conversion"},
    {"textBehindConversion", fieldOf("type = \"D\", conversion = \"%dx\""),
     "10: a field of A: the conversion"},
    {"textBeforeConversion", fieldOf("type = \"D\", conversion = \"x%d\""),
     "10: a field of A: the conversion \"x%d\" does not start with %"},
    {"lonePercentConversion", fieldOf("type = \"D\", conversion = \"%\""),
     "10: a field of A: the conversion"},
    {"emptyConversion", fieldOf("type = \"D\", conversion = \"\""),
     "10: a field of A: the conversion"},
    {"unknownType", fieldOf("type = \"Q\""), "10: a field of A: \"Q\" is no field type"},
    {"separatorInFieldName",
     oneMessage("number = 1\nsymbol = \"A\"\ntext = \"%s\"\nfields = [{ name = \"a,b\" }]\n"),
     "9: a field of A: \"a,b\" is no field name"},
    {"fieldTwice",
     oneMessage(
         "number = 1\nsymbol = \"A\"\ntext = \"%s%s\"\nfields = [\n{ name = \"f\" },\n{ name = "
         "\"f\" }]\n"),
     "11: A: field f is there twice"},
    {"fieldNumberTooWide", fieldOf("numbers = [32768, 0]"),
     "10: a field of A: numbers must be a number from -32768 to 32767"},
    {"oneFieldNumber", fieldOf("numbers = [1]"), "10: a field of A: numbers must be two"},
    {"unknownKey", textOf("t") + "colour = \"red\"\n", "9: A: unknown key \"colour\""},
    {"noText", oneMessage("number = 1\nsymbol = \"A\"\n"), "5: A: no text"},
    {"numberZero", oneMessage("number = 0\nsymbol = \"A\"\ntext = \"t\"\n"),
     "6: A: number must be a number from 1 to 999999"},
    {"priorityWithoutMark", textOf("t") + "priority = 5\n",
     "9: A: priority must be a number from 0 to 4"},
    {"wideDestination", textOf("t") + "destination = 4294967296\n",
     "9: A: destination must be a number"},
    {"lowerCaseSymbol", oneMessage("number = 1\nsymbol = \"down\"\ntext = \"t\"\n"),
     "7: down: a symbol is upper-case letters"},
    {"lowerCaseClass", classAt("Net", 100, {}), "2: class Net: a class's name is"},
    {"oneLetterClass", classAt("N", 100, {}), "2: class N: a class's name is"},
    {"classTwice", classAt("AB", 1, {}) + classAt("AB", 9, {}),
     "5: class AB is there already at line 1"},
    {"reservedClass", classAt("OSERR", 1, {}),
     "1: class OSERR is there already of the operating system's errors"},
    {"sameStart", classAt("AB", 5, {}) + classAt("CD", 5, {}),
     "5: classes AB and CD both start at 5"},
    {"numberTwice", classAt("AB", 1, {2, 2}),
     "9: AB_2: number 2 of class AB is there already at line 5"},
    {"symbolTwice", classAt("AB", 1, {2, 2}), "9: symbol AB_2 is there already at line 5"},
    {"numberLeavesClass", classAt("AB", 10, {5, 6}) + classAt("CD", 15, {1}),
     "9: AB_6: number 6 leaves class AB: 15 belongs to class CD"},
    {"classesInAnyOrder", classAt("CD", 15, {1}) + classAt("AB", 10, {6}),
     "13: AB_6: number 6 leaves class AB: 15 belongs to class CD"},
    {"numberReachesSystemErrors", classAt("AB", 1700, {27, 28}),
     "9: AB_28: number 28 leaves class AB: 1727 belongs to class OSERR"},
    {"classAmongSystemErrors", classAt("AB", 1800, {}),
     "1: class AB starts at 1800, among the numbers"},
    {"numberBeyondAll", classAt("AB", 999'999, {2}), "5: AB_2: number 2 leaves class AB: 1000000"},
};

TEST(Refused, eachSourceWithFileLineAndReason) {
    for (const Refusal &refusal : REFUSALS) {
        const TempDir dir;
        const std::string source = dir.write("source.toml", refusal.source);
        const ToolResult result = compile(dir, source);
        EXPECT_EQ(1, result.exitCode) << refusal.name;
        EXPECT_NE(std::string::npos,
                  ("\n" + result.err).find("\nqncatalog: " + source + ":" + refusal.message))
            << refusal.name << ":\n"
            << result.err;
        EXPECT_FALSE(fs::exists(dir.file("root"))) << refusal.name;
    }
}

/* 1008 formats of 65 bytes (ten texts with two widths each, a number, FS, GS, the zero), no two
   alike, behind the 7 bytes of the unused numbers' and the errors'; then one of the conversion
   given, at 65527, and one more. */
static std::string manyFormats(const std::string &conversion) {
    std::string text = "[[class]]\nname = \"BIG\"\nstart = 2000\npriority = 0\n";
    const auto add = [&text](int number, const std::string &slots, const std::string &fields) {
        const std::string digits = std::to_string(number);
        text += "[[class.message]]\nnumber = " + digits + "\nsymbol = \"B" + digits +
                "\"\ntext = \"" + slots + "\"\nfields = [" + fields + "]\n";
    };
    for (int i = 1; i <= 1008; i++) {
        std::string fields = "{ name = \"g\", type = \"D\" },";
        for (int digit = 0; digit < 10; digit++)
            fields += "{ name = \"f" + std::to_string(digit) + "\", conversion = \"%" +
                      ((i >> digit & 1) == 0 ? "-10s" : "-20s") + "\" },";
        add(i, "%s%s%s%s%s%s%s%s%s%s%s", fields);
    }
    add(1009, "%s", "{ name = \"f\", conversion = \"" + conversion + "\" }");
    add(1010, "%s", "{ name = \"f\", type = \"D\" }");
    return text;
}

TEST(Refused, aFormatThatBeginsPast65535) {
    const TempDir dir;
    const std::string fits =
        dir.write("fits.toml", manyFormats("%-99s")); // 8 bytes: the next at 65535
    ASSERT_EQ(0, compile(dir, fits).exitCode);
    EXPECT_EQ("\x1C%d\x1D", Root(dir.file("root")).format(3009));
    const std::string over = dir.write("over.toml", manyFormats("%-999s")); // 9 bytes: at 65536
    const ToolResult result = compile(dir, over);
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ(
        "qncatalog: " + over +
            ":5050: the compressed formats up to here pass 65535 bytes: too many different ones\n",
        result.err);
    EXPECT_EQ("\x1C%d\x1D", Root(dir.file("root")).format(3009));
}

TEST(Refused, aSourceThatCannotBeRead) {
    const TempDir dir;
    const ToolResult result = compile(dir, dir.file("none.toml"));
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("qncatalog: " + dir.file("none.toml") + ": No such file or directory\n", result.err);
}

TEST(Usage, mistakesAnswerTwo) {
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{}, {"--nonsense", "a"}, {"a", "b"}}) {
        const ToolResult result = runTool(PROGRAM, arguments);
        EXPECT_EQ(2, result.exitCode);
        EXPECT_EQ("", result.out);
        EXPECT_EQ(0u, result.err.rfind("qncatalog: ", 0)) << result.err;
        EXPECT_EQ(result.err.size() - 1, result.err.find('\n'));
    }
}

TEST(Usage, helpFitsAScreenAndVersionIsOneLine) {
    const ToolResult help = runTool(PROGRAM, {"--help"});
    EXPECT_EQ(0, help.exitCode);
    EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 24);
    EXPECT_EQ("qncatalog 1.0.0\n", runTool(PROGRAM, {"--version"}).out);
}

TEST(Usage, logRootComesFromTheEnvironment) {
    const TempDir dir;
    const ToolResult result =
        runTool(PROGRAM, {GOLDEN + "/small.toml"}, "", {"LOGROOT=" + dir.file("fromEnvironment")});
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_TRUE(fs::exists(dir.file("fromEnvironment/cmpLogFmt")));
}
