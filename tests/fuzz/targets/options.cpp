/* Lines, words, statements and expansions. Each is compared with a plain reading of its rules,
   written down below on whole texts. Commands are never run: popen gives a recorded command its own
   text as output. Users and the environment are this file's own. */
#include "options/options.h"
#include "options/parseln.h"
#include "options/readInfo.h"

#include "buffers/arrays.h"
#include "core/mkcopy.h"
#include "support/scratch.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <pwd.h>
#include <unistd.h>
#include <vector>

// ---- what stands for the system

static std::vector<std::string> commandsRun;

static std::string outputOf(const std::string &command) {
    return "<" + command + ">" + (command.size() % 2 == 0 ? "\n" : "");
}

extern "C" FILE *popen(const char *command, const char *) {
    static std::string output; // one command at a time
    commandsRun.emplace_back(command);
    output = outputOf(command);
    FILE *stream = fmemopen(output.data(), output.size(), "r");
    FUZZ_CHECK(stream != nullptr);
    return stream;
}

extern "C" int pclose(FILE *stream) {
    return fclose(stream);
}

static char userFolder[] = "/home/user";

extern "C" passwd *getpwnam(const char *name) {
    static passwd user;
    user.pw_dir = userFolder;
    return strcmp(name, "user") == 0 ? &user : nullptr;
}
extern "C" void setpwent() {}
extern "C" void endpwent() {}

// The environment of each input; what the library adds is released behind it.
static char *environment[4096];
static size_t environmentCount;
static std::vector<char *> texts;
static char one[] = "A=one", empty[] = "E=", blanks[] = "B_2= x  y ";

static void startEnvironment() {
    environmentCount = 0;
    for (char *text : {one, empty, blanks})
        environment[environmentCount++] = text;
    environment[environmentCount] = nullptr;
    environ = environment;
    for (char *text : texts)
        free(text);
    texts.clear();
    commandsRun.clear();
}

static bool isOfName(const char *assignment, const char *name, size_t length) {
    return strncmp(assignment, name, length) == 0 && assignment[length] == '=';
}

extern "C" int putenv(char *text) {
    texts.push_back(text);
    const size_t length = static_cast<size_t>(strchr(text, '=') - text);
    for (size_t i = 0; i < environmentCount; ++i)
        if (isOfName(environment[i], text, length)) {
            environment[i] = text;
            return 0;
        }
    FUZZ_CHECK(environmentCount + 1 < sizeof environment / sizeof *environment);
    environment[environmentCount++] = text;
    environment[environmentCount] = nullptr;
    return 0;
}

// ---- the rules, on whole texts

namespace {

using Text = std::optional<std::string>;

bool isBlank(char ch) {
    return strchr(" \t\n\v\f\r", ch) != nullptr && ch != '\0';
}
bool isNameByte(char ch) {
    return isalnum(static_cast<unsigned char>(ch)) != 0 || ch == '_';
}
bool startsName(char ch) {
    return isNameByte(ch) && isdigit(static_cast<unsigned char>(ch)) == 0;
}

std::string withoutLeadingBlanks(std::string text) {
    text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), isBlank));
    return text;
}

struct Rules {
    std::vector<std::string> variables = {one, empty, blanks};
    std::vector<std::string> commands;

    Text valueOf(const std::string &name) const {
        for (const std::string &variable : variables)
            if (!name.empty() && isOfName(variable.c_str(), name.c_str(), name.size()))
                return variable.substr(name.size() + 1);
        return {};
    }
    void set(const std::string &name, const std::string &value) {
        const std::string assignment = name + "=" + value;
        const size_t length = assignment.find('=');
        for (std::string &variable : variables)
            if (isOfName(variable.c_str(), assignment.c_str(), length)) {
                variable = assignment;
                return;
            }
        variables.push_back(assignment);
    }
    std::string braced(const std::string &inner);
    std::string commandOutput(const std::string &command);
    std::string expanded(const std::string &text);
};

// What stands between "${" and "}".
std::string Rules::braced(const std::string &inner) {
    const size_t colon = inner.find(':');
    const std::string name = inner.substr(0, colon);
    const Text value = valueOf(name);
    if (colon == std::string::npos)
        return value.value_or("");
    const bool isSet = !value.value_or("").empty();
    const char symbol = colon + 1 < inner.size() ? inner[colon + 1] : '\0';
    if (isSet && symbol != '+')
        return *value;
    const std::string word = expanded(colon + 1 < inner.size() ? inner.substr(colon + 2) : "");
    if (symbol == '=')
        set(name, word);
    return symbol == '-' || symbol == '=' || (symbol == '+' && isSet) ? word : "";
}

std::string Rules::commandOutput(const std::string &command) {
    if (command.empty())
        return "";
    commands.push_back(command);
    std::string output = outputOf(command);
    if (output.back() == '\n')
        output.pop_back();
    return output;
}

size_t endOfCommand(const std::string &text, size_t at) {
    while (at < text.size() && text[at] != '`')
        at += text[at] == '\\' && at + 1 < text.size() ? size_t{2} : size_t{1};
    return at;
}

std::string Rules::expanded(const std::string &text) {
    std::string out;
    char quote = '\0';
    for (size_t at = 0; at < text.size();) {
        const char ch = text[at++];
        const char next = at < text.size() ? text[at] : '\0';
        if (ch == '\\') {
            if (at == text.size())
                break;
            out += text[at++];
        } else if (ch == quote) {
            quote = '\0';
        } else if (quote == '\'') {
            out += ch;
        } else if (ch == '$' && next == '{') {
            const size_t brace = text.find('}', at);
            if (brace == std::string::npos)
                break;
            out += braced(text.substr(at + 1, brace - at - 1));
            at = brace + 1;
        } else if (ch == '$' && startsName(next)) {
            const size_t start = at;
            while (at < text.size() && isNameByte(text[at]))
                ++at;
            out += valueOf(text.substr(start, at - start)).value_or("");
        } else if (ch == '$') {
            out += ch;
            if (at < text.size())
                out += text[at++];
        } else if (ch == '`') {
            const size_t end = endOfCommand(text, at);
            out += commandOutput(text.substr(at, end - at));
            at = end < text.size() ? end + 1 : end;
        } else if (ch == '~') {
            const auto end =
                std::find_if_not(text.begin() + static_cast<ptrdiff_t>(at), text.end(),
                                 [](unsigned char each) { return isalnum(each) != 0; });
            const size_t length = static_cast<size_t>(end - text.begin()) - at;
            const bool isUser = text.compare(at, length, "user") == 0;
            out += isUser ? userFolder : "~";
            at += isUser ? length : 0;
        } else if (quote == '"') {
            out += ch;
        } else if (ch == '\'' || ch == '"') {
            quote = ch;
        } else if (isBlank(ch)) {
            while (at < text.size() && isBlank(text[at]))
                ++at;
            out += at < text.size() ? " " : "";
        } else {
            out += ch;
        }
    }
    return out;
}

struct Statement {
    bool isAssignment = false;
    Text name, value, rest;
    bool operator==(const Statement &) const = default;
};

Statement statementIn(const std::string &line) {
    Statement found;
    const std::string text = withoutLeadingBlanks(line);
    if (text.empty() || !startsName(text[0]))
        return found;
    size_t at = 0;
    while (at < text.size() && isNameByte(text[at]))
        ++at;
    found.name = text.substr(0, at);
    std::string behind = withoutLeadingBlanks(text.substr(at));
    if (behind.empty() || behind[0] != '=')
        return found;
    found.isAssignment = true;
    behind = withoutLeadingBlanks(behind.substr(1));
    if (behind.empty())
        return found;
    found.value = "";
    char quote = '\0';
    for (at = 0; at < behind.size(); ++at) {
        const char ch = behind[at];
        if (strchr("'\"`", ch) != nullptr && (quote == '\0' || quote == ch)) {
            quote = quote == '\0' ? ch : '\0';
            *found.value += ch == '`' ? "`" : "";
        } else if (quote == '\0' && (ch == '#' || ch == ';' || isBlank(ch))) {
            found.rest = behind.substr(at);
            break;
        } else if (ch != '\\') {
            *found.value += ch;
        } else if (++at < behind.size()) {
            *found.value += behind[at];
        }
    }
    return found;
}

// The assignments that a line makes, one after the other, values expanded.
std::vector<Statement> assignmentsOf(const std::string &line, Rules &rules) {
    std::vector<Statement> made;
    for (std::string text = line;;) {
        Statement each = statementIn(text);
        if (!each.isAssignment)
            return made;
        const std::string rest = withoutLeadingBlanks(each.rest.value_or(""));
        if (!each.value.value_or("").empty())
            each.value = rules.expanded(*each.value);
        each.rest.reset();
        made.push_back(each);
        if (rest.empty() || rest[0] != ';')
            return made;
        text = withoutLeadingBlanks(rest.substr(1));
        if (text.empty() || text[0] == '#')
            return made;
    }
}

std::vector<std::string> wordsOf(const std::string &line) {
    std::vector<std::string> words;
    bool isInWord = false, isQuoted = false;
    for (size_t at = 0; at < line.size(); ++at) {
        if (!isInWord && isBlank(line[at]))
            continue;
        if (!isInWord)
            words.emplace_back();
        isInWord = true;
        if (line[at] == '\\') {
            if (++at == line.size())
                break;
            if (!isQuoted && line[at] == '\n')
                isInWord = false;
            else
                words.back() += line[at];
        } else if (line[at] == '"') {
            isQuoted = !isQuoted;
        } else if (!isQuoted && isBlank(line[at])) {
            isInWord = false;
        } else {
            words.back() += line[at];
        }
    }
    return words;
}

enum Joining { NOTHING, BACKSLASH, QUOTED };

// Reads the logical lines; a zero byte in one ends what is seen of it.
std::vector<std::string> linesOf(const std::string &bytes, Joining joining, uint32_t modes) {
    std::vector<std::string> lines;
    std::string line;
    char quote = '\0';
    bool isEscaped = false, isOpen = false;
    const auto take = [&] {
        lines.push_back(line.c_str());
        line.clear();
        quote = '\0';
        isEscaped = isOpen = false;
    };
    for (const char ch : bytes) {
        isOpen = true;
        line += ch;
        const bool wasEscaped = isEscaped && joining != NOTHING;
        isEscaped = ch == '\\' && !wasEscaped;
        if (joining == QUOTED && !wasEscaped && strchr("'\"`", ch) != nullptr && ch != '\0' &&
            (quote == '\0' || quote == ch))
            quote = quote == '\0' ? ch : '\0';
        if (ch != '\n')
            continue;
        if (wasEscaped && (modes & READ_KEEP_JOINT) == 0)
            line.resize(line.size() - 2);
        if (wasEscaped || quote != '\0')
            continue;
        if ((modes & READ_DROP_NEWLINE) != 0)
            line.pop_back();
        take();
    }
    if (isOpen)
        take();
    return lines;
}

uint32_t physicalLines(const std::string &bytes) {
    const auto ends = static_cast<uint32_t>(std::count(bytes.begin(), bytes.end(), '\n'));
    return ends + (bytes.empty() || bytes.back() == '\n' ? 0 : 1);
}

// ---- the library against the rules

Text textOf(const char *text) {
    return text == nullptr ? Text() : Text(text);
}

using Reader = char *(*)(FILE *);
constexpr Reader READERS[] = {readLine, readContLine, readQuotedLine};

void checkReaders(const std::string &bytes, uint32_t modes) {
    for (const Joining joining : {NOTHING, BACKSLASH, QUOTED}) {
        const std::vector<std::string> expected = linesOf(bytes, joining, modes);
        FILE *stream = fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "r");
        FUZZ_CHECK(stream != nullptr);
        resetReadLine(nullptr);
        setReadLineModes(modes);
        std::vector<std::string> actual;
        while (const char *line = READERS[joining](stream))
            actual.push_back(line);
        fclose(stream);
        FUZZ_CHECK(actual == expected);
        FUZZ_CHECK(virtLineCnt == expected.size() && inlineCnt == physicalLines(bytes));
    }
}

void checkArray(const std::string &path, const std::string &bytes, uint32_t modes,
                uint32_t maximum) {
    const Joining joining = (modes & READ_JOIN_BACKSLASH) != 0 ? BACKSLASH
                            : (modes & READ_JOIN_QUOTED) != 0  ? QUOTED
                                                               : NOTHING;
    std::vector<std::string> expected = linesOf(bytes, joining, modes);
    if (maximum != 0 && expected.size() > maximum)
        expected.resize(maximum);
    const uint32_t array = readFileIntoArray(path.c_str(), maximum, modes);
    const ArrayDescriptor *descriptor = arrayValidDescriptor(array);
    FUZZ_CHECK(descriptor != nullptr && descriptor->count == expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        FUZZ_CHECK(expected[i] == static_cast<char **>(descriptor->storage)[i]);
    arrayClose(array);
}

void checkWords(const std::string &line, int32_t maximum) {
    const std::vector<std::string> expected = wordsOf(line);
    char *copy = mkcopy(line.c_str());
    std::vector<char *> words(static_cast<size_t>(maximum));
    const int32_t count = parseln(copy, words.data(), maximum);
    FUZZ_CHECK(count == std::min(maximum, static_cast<int32_t>(expected.size())));
    for (size_t i = 0; i < static_cast<size_t>(count); ++i)
        FUZZ_CHECK(expected[i] == words[i]);
    freecopy(copy);
}

void checkStatement(const std::string &line) {
    Statement actual;
    char *name, *value, *rest;
    actual.isAssignment = parseXeqY(0, 0, line.c_str(), &name, &value, &rest) != 0;
    actual.name = textOf(name);
    actual.value = textOf(value);
    actual.rest = textOf(rest);
    FUZZ_CHECK(actual == statementIn(line));
}

void checkExpansion(const std::string &text, Rules &rules) {
    char *copy = mkcopy(text.c_str());
    char *actual = shellVariable(copy);
    FUZZ_CHECK(actual != nullptr && rules.expanded(text) == actual);
    FUZZ_CHECK(text == copy); // names are cut off in it for a while
    freecopy(actual);
    freecopy(copy);
}

std::vector<Statement> handled;

void record(OptionEntry *, char *name, char *value) {
    handled.push_back({true, textOf(name), textOf(value), {}});
}

// optStr leaves the copy that it replaces to its caller.
void replaceText(OptionEntry *entry, char *name, char *value) {
    char **text = static_cast<char **>(entry->destination);
    freecopy(*text);
    *text = nullptr;
    optStr(entry, name, value);
}

// Every row has a handler of its own; what the table lacks goes to the recorder alone.
struct Table {
    char *text = nullptr;
    int32_t number = -1, flag = -1;
    char textName[5] = "TEXT", numberName[7] = "NUMBER", flagName[5] = "FLAG",
         plainName[6] = "PLAIN";
    char deflt[8] = "default";
    OptionEntry rows[5] = {{textName, deflt, replaceText, &text},
                           {numberName, nullptr, optInteger, &number},
                           {flagName, nullptr, optBool, &flag},
                           {plainName, deflt, nullptr, nullptr},
                           {nullptr, nullptr, nullptr, nullptr}};
};

bool isInTable(const Statement &each) {
    return each.name == "TEXT" || each.name == "NUMBER" || each.name == "FLAG" ||
           each.name == "PLAIN";
}

// Everything to the recorder, and then the same lines into a table.
void checkFile(const std::string &path, const std::string &bytes, Rules &rules) {
    OptionEntry recorder = {nullptr, nullptr, record, nullptr};
    setDefaultOption(&recorder);
    handled.clear();
    const std::vector<std::string> lines =
        linesOf(bytes, QUOTED, READ_DROP_NEWLINE | READ_JOIN_QUOTED);
    std::vector<Statement> expected;
    for (const std::string &line : lines)
        for (const Statement &each : assignmentsOf(line, rules))
            expected.push_back(each);
    if (lines.empty()) // the array of an empty file would stay open
        return;
    FUZZ_CHECK(processOptionsFile(path.c_str(), nullptr) == 1);
    FUZZ_CHECK(handled == expected);
    FUZZ_CHECK(commandsRun == rules.commands);
}

void checkTable(const std::string &path, const std::string &bytes) {
    Rules rules;
    startEnvironment();
    handled.clear();
    Table table;
    FUZZ_CHECK(processOptionsFile(path.c_str(), table.rows) == 1);
    std::vector<Statement> expected;
    Text text;
    for (const std::string &line : linesOf(bytes, QUOTED, READ_DROP_NEWLINE | READ_JOIN_QUOTED)) {
        // Exported at once, so that a later statement sees it.
        for (std::string rest = line; !rest.empty();) {
            const Statement found = statementIn(rest);
            if (!found.isAssignment)
                break;
            Statement each = found;
            if (!each.value.value_or("").empty())
                each.value = rules.expanded(*each.value);
            each.rest.reset();
            if (each.name == "PLAIN")
                rules.set("PLAIN", each.value.value_or("default"));
            if (each.name == "TEXT")
                text = each.value.value_or("default");
            if (!isInTable(each))
                expected.push_back(each);
            rest = withoutLeadingBlanks(found.rest.value_or(""));
            rest = rest.empty() || rest[0] != ';' ? "" : withoutLeadingBlanks(rest.substr(1));
        }
    }
    FUZZ_CHECK(handled == expected);
    FUZZ_CHECK(textOf(table.text) == text);
    FUZZ_CHECK(table.flag >= -1 && table.flag <= 1);
    FUZZ_CHECK(textOf(getenv("PLAIN")) == rules.valueOf("PLAIN"));
    freecopy(table.text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    const uint8_t choice = pieces.byte();
    const uint32_t modes = pieces.byte() % 16;
    const uint32_t maximum = choice / 4 % 8;
    const std::string bytes = pieces.rest();
    const std::string text = bytes.c_str();
    Rules rules;
    char **const environBefore = environ;
    startEnvironment();
    if (choice % 4 == 0) {
        checkReaders(bytes, modes);
        checkArray(scratchFile("lines", bytes), bytes, modes, maximum);
    } else if (choice % 4 == 1) {
        checkWords(text, static_cast<int32_t>(maximum) + 1);
        checkStatement(text);
        checkStatement("N=" + text);
    } else if (choice % 4 == 2) {
        checkExpansion(text, rules);
        checkExpansion(text, rules); // in the environment that the first one left
        FUZZ_CHECK(commandsRun == rules.commands);
    } else {
        const std::string path = scratchFile("options", bytes);
        checkFile(path, bytes, rules);
        if (!bytes.empty())
            checkTable(path, bytes);
    }
    environ = environBefore;
    return 0;
}
