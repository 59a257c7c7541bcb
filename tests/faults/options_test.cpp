// Options, statements, expansions and the line reader, with every call failing in turn.
#include "buffers/arrays.h"
#include "core/mkcopy.h"
#include "options/options.h"
#include "options/readInfo.h"

#include "faults/sweep.h"

#include <cstdio>

namespace {

const Kinds READING = {INTERRUPTED, IO_ERROR, IO_GONE};

// ---- the line reader

// Takes the reader's state away and brings it back: each run starts without a line buffer.
struct FreshReader {
    FreshReader() { resetReadLine(&saved); }
    ~FreshReader() { setReadLine(&saved); }
    FreshReader(const FreshReader &) = delete;
    FreshReader &operator=(const FreshReader &) = delete;
    ReadInfo saved;
};

// A signal is not noticed. What cannot be stored is lost, with ENOMEM; what cannot be read ends the
// input, and ferror tells.
void readWith(Attempt &attempt, char *(*reader)(FILE *), const std::string &text,
              const std::string &right) {
    const FreshReader fresh;
    const TempDir dir;
    FILE *file = fopen(dir.write("lines", text).c_str(), "r");
    setvbuf(file, nullptr, _IONBF, 0); // each byte is read, so that each read can fail
    const std::string line = attempt.under([&] { return shown(reader(file)); });
    const bool isCut = attempt.faulted() && attempt.at("getc") && attempt.effect() != EINTR;
    if (attempt.faulted() && attempt.isMemory()) {
        EXPECT_EQ(line, "(null)");
        EXPECT_EQ(attempt.error(), ENOMEM);
    } else if (isCut) {
        const size_t taken = static_cast<size_t>(attempt.nth() - 1);
        std::string part = text.substr(0, taken);
        if (const size_t joint = part.find("\\\n"); joint != std::string::npos)
            part.erase(joint, 2);
        EXPECT_EQ(line, taken == 0 ? "(null)" : part);
    } else {
        EXPECT_EQ(line, right);
    }
    EXPECT_EQ(ferror(file) != 0, isCut);
    rewind(file);
    EXPECT_EQ(shown(reader(file)), right);
    fclose(file);
}

const std::string LONG(100, 'x'); // more than the line buffer's first size

void readsLine(Attempt &attempt) {
    readWith(attempt, readLine, LONG + "\nnext\n", LONG + "\n");
}

void readsContinued(Attempt &attempt) {
    readWith(attempt, readContLine, LONG + "\\\nnext\n", LONG + "next\n");
}

void readsQuoted(Attempt &attempt) {
    readWith(attempt, readQuotedLine, LONG + "'\nnext'\n", LONG + "'\nnext'\n");
}

uint32_t openArrays() {
    return arrDescPtr == nullptr ? 1 : arrDescPtr->count;
}

std::string linesOf(uint32_t array) {
    const ArrayDescriptor *descriptor = arrayValidDescriptor(array);
    if (descriptor == nullptr)
        return "(no array)";
    std::string text;
    for (uint32_t place = 0; place < descriptor->count; ++place)
        text += static_cast<char **>(descriptor->storage)[place];
    return text;
}

// The whole or nothing; the reader's own line and counters stay.
template<typename Read>
void readAll(Attempt &attempt, Read read) {
    const FreshReader fresh;
    const TempDir dir;
    const std::string path = dir.write("lines", "one\ntwo\nthree\n");
    setReadLineModes(3);
    inlineCnt = 5;
    const uint32_t before = openArrays();
    const uint32_t array = attempt.under([&] { return read(path.c_str()); });
    const bool isWhole = !attempt.faulted() || attempt.at("fclose") ||
                         (attempt.at("getc") && attempt.effect() == EINTR);
    EXPECT_EQ(linesOf(array), isWhole ? "one\ntwo\nthree\n" : "(no array)");
    arrayClose(array);
    EXPECT_EQ(openArrays(), before);
    EXPECT_EQ(ri_modes, 3U);
    EXPECT_EQ(inlineCnt, 5U);
    const uint32_t again = read(path.c_str());
    EXPECT_EQ(linesOf(again), "one\ntwo\nthree\n");
    arrayClose(again);
}

void readsFile(Attempt &attempt) {
    readAll(attempt, [](const char *path) { return readFileIntoArray(path, 0, 0); });
}

void readsStream(Attempt &attempt) {
    readAll(attempt, [](const char *path) {
        FILE *file = fopen(path, "r");
        setvbuf(file, nullptr, _IONBF, 0);
        const uint32_t array = readFpIntoArray(file, 0, 0);
        fclose(file);
        return array;
    });
}

// ---- one statement

void parses(Attempt &attempt) {
    char *name = nullptr, *value = nullptr, *rest = nullptr;
    const auto parse = [&] {
        return parseXeqY(0, 0, "  NAME = 'a value' # rest", &name, &value, &rest);
    };
    const int result = attempt.under(parse);
    // A key that could not be made is made by the store that follows.
    EXPECT_TRUE(result == 1 || attempt.faulted());
    if (result == 0) {
        EXPECT_EQ(attempt.error(), ENOMEM);
        EXPECT_EQ(value, nullptr);
    }
    EXPECT_EQ(parse(), 1);
    EXPECT_STREQ(name, "NAME");
    EXPECT_STREQ(value, "a value");
    EXPECT_STREQ(rest, " # rest");
}

// ---- expansion

constexpr const char *TEXT =
    "a $QN_SET ${QN_SET:-b} ${QN_UNSET:-'c d'} ${QN_MADE:=e} `echo f` ~root";

void expectEnvironment(const char *name, const char *value) {
    EXPECT_EQ(shown(getenv(name)), shown(value)) << name;
}

// The whole text or none. A command that cannot be run gives nothing, a user that cannot be looked
// up none.
void expands(Attempt &attempt) {
    setenv("QN_SET", "set", 1);
    unsetenv("QN_UNSET");
    unsetenv("QN_MADE");
    std::string text = TEXT;
    char *expanded = attempt.under([&] { return shellVariable(text.data()); });
    const bool isUnnoticed =
        attempt.at("pclose") || (attempt.at("getc") && attempt.effect() == EINTR);
    if (!attempt.faulted() || isUnnoticed) {
        EXPECT_EQ(shown(expanded),
                  attempt.isOnward() && attempt.faulted() && attempt.effect() != ENOMEM
                      ? "a set set c d e f ~root"
                      : "a set set c d e f /root");
    } else if (attempt.at("popen") && attempt.effect() != ENOMEM) {
        EXPECT_EQ(shown(expanded),
                  attempt.isOnward() ? "a set set c d e  ~root" : "a set set c d e  /root");
    } else if (attempt.at("getpwnam") && attempt.effect() != ENOMEM) {
        EXPECT_EQ(shown(expanded), "a set set c d e f ~root");
    } else {
        EXPECT_EQ(shown(expanded), "(null)");
    }
    freecopy(expanded);
    EXPECT_TRUE(getenv("QN_MADE") == nullptr || shown(getenv("QN_MADE")) == "e");
    EXPECT_EQ(text, TEXT);
    expanded = shellVariable(text.data());
    EXPECT_EQ(shown(expanded), "a set set c d e f /root");
    freecopy(expanded);
}

// Texts that need a growth of their own.
void expandsLong(Attempt &attempt) {
    const std::string value(300, 'v');
    setenv("QN_LONG", value.c_str(), 1);
    std::string text = "a$QN_LONG${QN_UNSET:-$QN_LONG}`printf %300s x`";
    const std::string right = "a" + value + value + std::string(299, ' ') + "x";
    for (const bool faulting : {true, false}) {
        const auto expand = [&] { return shellVariable(text.data()); };
        char *expanded = faulting ? attempt.under(expand) : expand();
        EXPECT_EQ(shown(expanded), faulting && attempt.faulted() ? "(null)" : right);
        freecopy(expanded);
    }
}

void runs(Attempt &attempt) {
    std::string text = "`echo words`rest";
    char *output = nullptr;
    const char *end = attempt.under([&] { return quotedShCmd(text.data(), &output); });
    EXPECT_STREQ(end, "`rest");
    const bool isUnnoticed =
        attempt.at("pclose") || (attempt.at("getc") && attempt.effect() == EINTR);
    EXPECT_EQ(shown(output), !attempt.faulted() || isUnnoticed ? "words" : "(null)");
    freecopy(output);
}

// ---- the environment and the handlers

void exports(Attempt &attempt) {
    setenv("QN_NAME", "before", 1);
    const int result = attempt.under([] { return setEnvVar("QN_NAME", "after"); });
    EXPECT_EQ(result != 0, attempt.faulted());
    EXPECT_EQ(attempt.error(), attempt.effect());
    expectEnvironment("QN_NAME", attempt.faulted() ? "before" : "after");
    EXPECT_EQ(setEnvVar("QN_NAME", "at last"), 0);
    expectEnvironment("QN_NAME", "at last");
}

void storesText(Attempt &attempt) {
    char before[] = "before", given[] = "given", name[] = "NAME";
    char *destination = before;
    OptionEntry entry = {name, nullptr, optStr, &destination};
    attempt.under([&] {
        optStr(&entry, name, given);
        return 0;
    });
    EXPECT_STREQ(destination, attempt.faulted() ? "before" : "given");
    if (destination != before)
        freecopy(destination);
}

void exportsOption(Attempt &attempt) {
    setenv("QN_NAME", "before", 1);
    char name[] = "QN_NAME", given[] = "given";
    OptionEntry entry = {name, nullptr, optEnv, nullptr};
    attempt.under([&] {
        optEnv(&entry, name, given);
        return 0;
    });
    expectEnvironment("QN_NAME", attempt.faulted() ? "before" : "given");
}

// ---- the settings

std::string handled; // what the default option was told last

void noteStatement(OptionEntry *entry, char *name, char *value) {
    handled = shown(name) + "=" + shown(value) + " of " + shown(entry->name) + "," +
              shown(entry->defaultValue);
}

std::string handledOf(const char *line) {
    std::string text = line;
    char *lines[] = {text.data(), nullptr};
    handled = "nothing";
    EXPECT_EQ(processOptions(lines, nullptr), 1);
    return handled;
}

// The one before stays.
void setsDefault(Attempt &attempt) {
    char first[] = "first", second[] = "second", one[] = "1", two[] = "2";
    OptionEntry before = {first, one, noteStatement, nullptr},
                after = {second, two, noteStatement, nullptr};
    setDefaultOption(&before);
    attempt.under([&] {
        setDefaultOption(&after);
        return 0;
    });
    EXPECT_EQ(handledOf("A=b"), attempt.faulted() ? "A=b of first,1" : "A=b of second,2");
    setDefaultOption(nullptr);
}

void setsExporter(Attempt &attempt) {
    unsetenv("QN_NAME");
    setDefaultOption(nullptr);
    attempt.under([] {
        makeDfltOptionEnv();
        return 0;
    });
    handledOf("QN_NAME=b");
    expectEnvironment("QN_NAME", attempt.faulted() ? nullptr : "b");
    setDefaultOption(nullptr);
}

void setsPrimaryFile(Attempt &attempt) {
    const TempDir dir;
    const std::string one = dir.write("one", "QN_NAME=one\n"),
                      two = dir.write("two", "QN_NAME=two\n");
    makeDfltOptionEnv();
    setPrimaryOptionsFile(one.c_str());
    attempt.under([&] {
        setPrimaryOptionsFile(two.c_str());
        return 0;
    });
    processProgramOptions("program", nullptr);
    expectEnvironment("QN_NAME", attempt.faulted() ? "one" : "two");
    setPrimaryOptionsFile(nullptr);
    setDefaultOption(nullptr);
}

void namesFile(Attempt &attempt) {
    char *path =
        attempt.under([] { return createStandardOptionsName("/opt", "/usr/bin/program"); });
    EXPECT_EQ(shown(path), attempt.faulted() ? "(null)" : "/opt/etc/default/program");
    freecopy(path);
}

// ---- whole files

struct Settings {
    char *text = nullptr;
    int32_t number = -1;
    int32_t flag = -1;

    Settings() = default;
    ~Settings() { freecopy(text); }
    Settings(const Settings &) = delete;
    Settings &operator=(const Settings &) = delete;
    // Of a statement that was passed over: what was before it.
    void expectOrBefore(bool maybe) const {
        EXPECT_TRUE(shown(text) == "some text" || (maybe && text == nullptr)) << shown(text);
        EXPECT_TRUE(number == 42 || (maybe && number == -1)) << number;
        EXPECT_TRUE(flag == 1 || (maybe && flag == -1)) << flag;
    }
};

constexpr const char *OPTIONS = "TEXT=\"some text\"; NUMBER=42\nFLAG=`echo on`\nQN_OTHER=x\n";

// A statement counts whole or not at all; a file, too, where it cannot be read.
template<typename Process>
void process(Attempt &attempt, Process run) {
    const TempDir dir;
    const std::string path = dir.write("options", OPTIONS);
    char names[3][8] = {"TEXT", "NUMBER", "FLAG"}, fallback[] = "default", known[] = "known";
    unsetenv("QN_OTHER");
    OptionEntry other = {known, fallback, noteStatement, nullptr};
    setDefaultOption(&other);
    handled = "nothing";
    const uint32_t before = openArrays();
    for (const bool faulting : {true, false}) {
        Settings settings;
        OptionEntry table[] = {{names[0], nullptr, optStr, &settings.text},
                               {names[1], nullptr, optInteger, &settings.number},
                               {names[2], nullptr, optBool, &settings.flag},
                               {nullptr, nullptr, nullptr, nullptr}};
        if (faulting)
            attempt.under([&] {
                run(path.c_str(), table);
                return 0;
            });
        else
            run(path.c_str(), table);
        settings.expectOrBefore(faulting && attempt.faulted());
        EXPECT_TRUE(handled == "QN_OTHER=x of known,default" ||
                    (faulting && attempt.faulted() && handled == "nothing"))
            << handled;
    }
    EXPECT_EQ(openArrays(), before);
    setDefaultOption(nullptr);
}

void processesFile(Attempt &attempt) {
    process(attempt, [](const char *path, OptionEntry *table) { processOptionsFile(path, table); });
}

void processesLines(Attempt &attempt) {
    process(attempt, [](const char *, OptionEntry *table) {
        std::string lines[] = {"TEXT=\"some text\"; NUMBER=42", "FLAG=`echo on`", "QN_OTHER=x"};
        char *texts[] = {lines[0].data(), lines[1].data(), lines[2].data(), nullptr};
        EXPECT_EQ(processOptions(texts, table), 1);
    });
}

void processesProgram(Attempt &attempt) {
    process(attempt, [](const char *path, OptionEntry *table) {
        // The fault is for what follows: the path is set by whoever knows of no fault.
        setPrimaryOptionsFile(path);
        processProgramOptions("/bin/no-such-program", table);
    });
    setPrimaryOptionsFile(nullptr);
}

const Kind REFUSED = {"ENOMEMOfSystem", "system", ENOMEM, 0};

const std::vector<Rows> rows = {
    {"readLine", Fresh::IN_PLACE, readsLine, MEMORY + READING},
    {"readContLine", Fresh::IN_PLACE, readsContinued, MEMORY + READING},
    {"readQuotedLine", Fresh::IN_PLACE, readsQuoted, MEMORY + READING},
    {"readFileIntoArray", Fresh::IN_PLACE, readsFile, MEMORY + READING},
    {"readFpIntoArray", Fresh::IN_PLACE, readsStream, MEMORY + READING},
    {"parseXeqY", Fresh::IN_THREAD, parses, MEMORY},
    {"shellVariable", Fresh::IN_PLACE, expands, MEMORY + READING + Kinds{REFUSED}},
    {"shellVariable_longTexts", Fresh::IN_PLACE, expandsLong, MEMORY},
    {"quotedShCmd", Fresh::IN_PLACE, runs, MEMORY + READING + Kinds{REFUSED}},
    {"setEnvVar", Fresh::IN_PLACE, exports, MEMORY},
    {"optStr", Fresh::IN_PLACE, storesText, MEMORY},
    {"optEnv", Fresh::IN_PLACE, exportsOption, MEMORY},
    {"setDefaultOption", Fresh::IN_PLACE, setsDefault, MEMORY},
    {"makeDfltOptionEnv", Fresh::IN_PLACE, setsExporter, MEMORY},
    {"setPrimaryOptionsFile", Fresh::IN_PLACE, setsPrimaryFile, MEMORY},
    {"createStandardOptionsName", Fresh::IN_PLACE, namesFile, MEMORY},
    {"processOptionsFile", Fresh::IN_THREAD, processesFile, MEMORY + READING},
    {"processOptions", Fresh::IN_THREAD, processesLines, MEMORY + READING},
    {"processProgramOptions", Fresh::IN_THREAD, processesProgram, MEMORY + READING},
};

QN_SWEEPS(rows);

} // namespace
