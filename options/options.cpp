#include "options.h"

#include "readInfo.h"

#include "../buffers/arrays.h"
#include "../buffers/charBuffer.h"
#include "../core/exactMatch.h"
#include "../core/mkcopy.h"
#include "../core/staticObj.h"

#include <ctype.h>
#include <errno.h>
#include <pwd.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static_assert(sizeof(void *) != 4 ||
              (offsetof(OptionEntry, destination) == 12 && sizeof(OptionEntry) == 16));

static constexpr char DEFAULTS_FOLDER[] = "/etc/default";
static constexpr uint32_t FILE_MODES =
    5; // newlines dropped; backslashes and open quotes join lines
static constexpr int32_t TEXT_INCREMENT = 128;

// The position, counted from 1, tells the value: odd is true, even is false.
static constexpr const char *BOOLEAN_WORDS[] = {"T", "F",   "TRUE", "FALSE", "ON",    "OFF",  "Y",
                                                "N", "YES", "NO",   "SET",   "CLEAR", nullptr};

static pthread_mutex_t defaultOptionLock = PTHREAD_MUTEX_INITIALIZER;
static OptionEntry *defaultOption; // a private copy with copied texts, or none
static pthread_mutex_t primaryFileLock = PTHREAD_MUTEX_INITIALIZER;
static char *primaryFile;

static void releaseRest(void *buffer) {
    freeCharBuffer(static_cast<CharBuffer *>(buffer));
}

static StaticObj statementObj = {free, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};
static StaticObj restObj = {releaseRest, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};

static bool isBlank(char ch) {
    return isspace(static_cast<unsigned char>(ch)) != 0;
}

static bool startsName(char ch) {
    return isalpha(static_cast<unsigned char>(ch)) != 0 || ch == '_';
}

static bool continuesName(char ch) {
    return isalnum(static_cast<unsigned char>(ch)) != 0 || ch == '_';
}

static char *skipBlanks(char *text) {
    while (isBlank(*text))
        ++text;
    return text;
}

// A new text of the first length characters.
static char *copySpan(const char *text, size_t length) {
    char *copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr) {
        memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

// A text that is released when it goes out of scope.
struct OwnedText {
    char *text;
    ~OwnedText() { freecopy(text); }
};

static const char *baseName(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

static void freeEntry(OptionEntry *entry) {
    if (entry == nullptr)
        return;
    freecopy(entry->name);
    freecopy(entry->defaultValue);
    free(entry);
}

// Null when memory is exhausted: an entry without its default would stand for another value.
static OptionEntry *copyEntry(const OptionEntry *entry) {
    OptionEntry *copy = static_cast<OptionEntry *>(malloc(sizeof(OptionEntry)));
    if (copy == nullptr)
        return nullptr;
    *copy = {mkcopy(entry->name), mkcopy(entry->defaultValue), entry->handler, entry->destination};
    if ((copy->name != nullptr || entry->name == nullptr) &&
        (copy->defaultValue != nullptr || entry->defaultValue == nullptr))
        return copy;
    freeEntry(copy);
    return nullptr;
}

// ---- statements ----

// The calling thread's copy of the text to work on, in place of its previous one. The text may lie
// in that one or in the thread's rest buffer: it is copied before either changes.
static char *workingCopy(const char *text) {
    char *copy = mkcopy(text);
    if (copy == nullptr)
        return nullptr;
    char *previous = static_cast<char *>(fetchStaticObj(&statementObj));
    if (storeStaticObj(&statementObj, copy) != 0) {
        freecopy(copy);
        return nullptr;
    }
    freecopy(previous);
    return copy;
}

static CharBuffer *emptiedRestBuffer() {
    CharBuffer *buffer = static_cast<CharBuffer *>(fetchStaticObj(&restObj));
    if (buffer == nullptr) {
        buffer = mkCharBuffer(TEXT_INCREMENT);
        if (buffer == nullptr)
            return nullptr;
        if (storeStaticObj(&restObj, buffer) != 0) {
            freeCharBuffer(buffer);
            return nullptr;
        }
    }
    buffer->next = buffer->text;
    return buffer;
}

// Collects a value in place, from its first character; sets valueEnd behind its last one and
// returns the character that ended it.
static char *collectValue(char *from, char **valueEnd) {
    char *to = from;
    char quote = '\0';
    for (; *from != '\0'; ++from) {
        const char ch = *from;
        const bool isQuote = ch == '"' || ch == '\'' || ch == '`';
        if (isQuote && (quote == '\0' || quote == ch)) {
            quote = quote == '\0' ? ch : '\0';
            if (ch == '`') // stays for the expansion, which runs the command
                *to++ = ch;
        } else if (quote == '\0' && (ch == '#' || ch == ';' || isBlank(ch))) {
            break;
        } else if (ch == '\\') {
            ++from;
            if (*from == '\0') // ends the value, and is no rest
                break;
            *to++ = *from;
        } else {
            *to++ = ch;
        }
    }
    *valueEnd = to;
    return from;
}

// Cuts the name off at the text's start and returns what follows the "=", or null without one.
static char *cutName(char *text) {
    while (continuesName(*text))
        ++text;
    char *sign = skipBlanks(text);
    const bool hasSign = *sign == '=';
    *text = '\0';
    return hasSign ? skipBlanks(sign + 1) : nullptr;
}

// A statement cut out of a text, in which its name is terminated, and its value by endValue().
struct Statement {
    char *name;
    char *value; // null: nothing follows the "="
    char *valueEnd;
    char *rest; // from the character that ended the value, which endValue() may overwrite
};

static void endValue(const Statement &statement) {
    if (statement.value != nullptr)
        *statement.valueEnd = '\0';
}

// Cuts the statement out at the text's start. False for none; its name may be one all the same.
static bool cutStatement(char *text, Statement *statement) {
    *statement = {};
    if (!startsName(*text))
        return false;
    statement->name = text;
    char *value = cutName(text);
    if (value == nullptr)
        return false;
    if (*value != '\0') {
        statement->value = value;
        statement->rest = collectValue(value, &statement->valueEnd);
    }
    return true;
}

// Exhausted memory, for parseXeqY: no assignment, but told apart from a text that is none.
static int noMemory() {
    errno = ENOMEM;
    return 0;
}

int parseXeqY(intptr_t, intptr_t, const char *line, char **name, char **value, char **rest) {
    if (rest != nullptr)
        *rest = nullptr;
    if (name != nullptr)
        *name = nullptr;
    if (value != nullptr)
        *value = nullptr;
    if (line == nullptr || name == nullptr || value == nullptr)
        return 0;
    while (isBlank(*line))
        ++line;
    if (*line == '\0' || *line == '#')
        return 0;
    char *text = workingCopy(line);
    CharBuffer *restBuffer = text == nullptr ? nullptr : emptiedRestBuffer();
    if (restBuffer == nullptr)
        return noMemory();
    Statement statement;
    const bool isAssignment = cutStatement(text, &statement);
    *name = statement.name;
    if (!isAssignment || statement.value == nullptr)
        return isAssignment ? 1 : 0;
    if (rest != nullptr && *statement.rest != '\0' &&
        (*rest = putStrCharBuffer(restBuffer, statement.rest)) == nullptr)
        return noMemory();
    endValue(statement);
    *value = statement.value;
    return 1;
}

// ---- expansion ----

// Where an expansion stands: what is still to read, and what was written.
struct Expansion {
    char *from;
    CharBuffer out; // of its own: making one with mkCharBuffer costs as much as a short text
    bool isWhole;   // false once memory was exhausted: a piece is missing
};

// Makes the next growth a doubling: steps of one fixed size copy a long text over and over.
static void prepareGrowth(CharBuffer *buffer) {
    constexpr auto FIRST = static_cast<uint32_t>(TEXT_INCREMENT);
    const auto size = static_cast<uint32_t>(buffer->size);
    buffer->increment = size < FIRST ? FIRST : size;
}

// Appends the characters; false when memory is exhausted.
static bool putSpan(CharBuffer *buffer, const char *text, size_t length) {
    while (static_cast<size_t>(buffer->limit - buffer->next) < length) {
        prepareGrowth(buffer);
        if (expandCharBuffer(buffer) == nullptr)
            return false;
    }
    memcpy(buffer->next, text, length);
    buffer->next += length;
    return true;
}

static void put(Expansion &expansion, const char *text, size_t length) {
    if (!putSpan(&expansion.out, text, length))
        expansion.isWhole = false;
}

static void put(Expansion &expansion, char ch) {
    put(expansion, &ch, 1);
}

static void put(Expansion &expansion, const char *text) {
    if (text != nullptr && *text != '\0')
        put(expansion, text, strlen(text));
}

static const char *getenvSpan(Expansion &expansion, const char *name, size_t length) {
    const OwnedText copy = {copySpan(name, length)};
    if (copy.text == nullptr)
        expansion.isWhole = false;
    return copy.text == nullptr ? nullptr : getenv(copy.text);
}

// ${name:Xword}: puts the variable's value or what the operator X makes of the expanded word.
static void expandOperator(Expansion &expansion, const char *name, size_t nameLength, char *colon,
                           char *brace) {
    const char *current = getenvSpan(expansion, name, nameLength);
    const bool isSet = current != nullptr && *current != '\0';
    const char symbol = colon + 1 < brace ? colon[1] : '\0';
    if (isSet && symbol != '+') {
        put(expansion, current);
        return;
    }
    char *wordStart = colon + 1 < brace ? colon + 2 : brace;
    const OwnedText word = {copySpan(wordStart, static_cast<size_t>(brace - wordStart))};
    const OwnedText expanded = {shellVariable(word.text)};
    if (!expansion.isWhole || expanded.text == nullptr) {
        expansion.isWhole = false;
        return;
    }
    if (symbol == '-' || symbol == '=' || (symbol == '+' && isSet))
        put(expansion, expanded.text);
    if (symbol == '=') {
        const OwnedText nameCopy = {copySpan(name, nameLength)};
        if (nameCopy.text == nullptr || setEnvVar(nameCopy.text, expanded.text) != 0)
            expansion.isWhole = false;
    }
}

// At the "{" of "${": false when no "}" closes it, which ends the whole expansion.
static bool expandBraces(Expansion &expansion) {
    char *name = expansion.from + 1;
    char *brace = strchr(name, '}');
    if (brace == nullptr)
        return false;
    char *colon = static_cast<char *>(memchr(name, ':', static_cast<size_t>(brace - name)));
    if (colon == nullptr)
        put(expansion, getenvSpan(expansion, name, static_cast<size_t>(brace - name)));
    else
        expandOperator(expansion, name, static_cast<size_t>(colon - name), colon, brace);
    expansion.from = brace + 1;
    return true;
}

// At a "$"; false when the expansion ends here.
static bool expandDollar(Expansion &expansion) {
    char *next = ++expansion.from;
    if (*next == '{')
        return expandBraces(expansion);
    if (startsName(*next)) {
        while (continuesName(*expansion.from))
            ++expansion.from;
        put(expansion, getenvSpan(expansion, next, static_cast<size_t>(expansion.from - next)));
        return true;
    }
    put(expansion, '$');
    if (*next != '\0') {
        put(expansion, *next);
        ++expansion.from;
    }
    return true;
}

// Stores the stream's bytes; false when memory is exhausted, or reading fails.
static bool collectOutput(FILE *stream, CharBuffer *output) {
    for (;;) {
        const int ch = getc(stream);
        if (ch != EOF) {
            const char byte = static_cast<char>(ch);
            if (!putSpan(output, &byte, 1))
                return false;
        } else if (ferror(stream) != 0 && errno == EINTR) {
            clearerr(stream); // a caught signal: the command goes on
        } else {
            return ferror(stream) == 0;
        }
    }
}

// Runs the command. Its whole output as a new text, less one final newline, becomes the result;
// null when it cannot be run. False, the result null, when there is no memory for the whole or it
// cannot be read.
static bool takeOutput(const char *command, char **result) {
    CharBuffer *output = mkCharBuffer(TEXT_INCREMENT);
    if (output == nullptr)
        return false;
    FILE *stream = popen(command, "r");
    if (stream == nullptr) {
        const bool isExhausted = errno == ENOMEM;
        freeCharBuffer(output);
        return !isExhausted;
    }
    bool isWhole = collectOutput(stream, output);
    pclose(stream);
    if (output->next > output->text && output->next[-1] == '\n')
        removeLastCharBufferChar(output);
    isWhole = isWhole && putStrCharBuffer(output, nullptr) != nullptr;
    if (isWhole)
        *result = detachCharBuffer(output);
    else
        freeCharBuffer(output);
    return isWhole;
}

// At a backquote: quotedShCmd, and false when the output is not whole.
static bool runQuoted(char **text, char **result) {
    char *start = *text + 1;
    char *end = start;
    while (*end != '\0' && *end != '`')
        end += *end == '\\' && end[1] != '\0' ? 2 : 1;
    *text = end;
    if (end == start)
        return true;
    const OwnedText command = {copySpan(start, static_cast<size_t>(end - start))};
    return command.text != nullptr && takeOutput(command.text, result);
}

// At a backquote.
static void expandCommand(Expansion &expansion) {
    OwnedText output = {nullptr};
    if (!runQuoted(&expansion.from, &output.text))
        expansion.isWhole = false;
    put(expansion, output.text);
    if (*expansion.from == '`')
        ++expansion.from;
}

// The user's home directory as a new text; null when nobody has that name.
static char *homeOf(const char *user) {
    // The database is read through one place of the process.
    static pthread_mutex_t guard = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&guard);
    errno = 0;
    setpwent();
    const passwd *entry = getpwnam(user);
    const int error = errno;
    char *home = entry == nullptr ? nullptr : mkcopy(entry->pw_dir);
    const bool exhausted =
        entry == nullptr ? error == ENOMEM : home == nullptr && entry->pw_dir != nullptr;
    endpwent();
    pthread_mutex_unlock(&guard);
    errno = exhausted ? ENOMEM : 0;
    return home;
}

// At a "~".
static void expandHome(Expansion &expansion) {
    const char *user = ++expansion.from;
    size_t length = 0;
    while (isalnum(static_cast<unsigned char>(user[length])) != 0)
        ++length;
    const OwnedText name = {length == 0 ? nullptr : copySpan(user, length)};
    errno = length != 0 && name.text == nullptr ? ENOMEM : 0;
    const OwnedText home = {name.text == nullptr ? nullptr : homeOf(name.text)};
    if (home.text == nullptr) {
        expansion.isWhole = expansion.isWhole && errno != ENOMEM;
        put(expansion, '~');
        return;
    }
    put(expansion, home.text);
    expansion.from += length;
}

// At a blank outside quotes.
static void squeezeBlanks(Expansion &expansion) {
    expansion.from = skipBlanks(expansion.from);
    if (*expansion.from != '\0')
        put(expansion, ' ');
}

// The characters that expandStep() copies in every state, so that a run of them needs no steps.
// Those beyond ASCII are left to it: which of them are blanks is the locale's to say.
static bool isPlain(char ch) {
    return ch > ' ' && ch < 0x7F && ch != '\\' && ch != '$' && ch != '`' && ch != '~' &&
           ch != '\'' && ch != '"';
}

static void copyRun(Expansion &expansion) {
    const char *start = expansion.from;
    while (isPlain(*expansion.from))
        ++expansion.from;
    if (expansion.from != start)
        put(expansion, start, static_cast<size_t>(expansion.from - start));
}

static void copyOne(Expansion &expansion) {
    put(expansion, *expansion.from++);
}

// Takes one step, at a character other than the end; false when the expansion ends here. The order
// of the tests is the order of the rules.
static bool expandStep(Expansion &expansion, char &quote) {
    const char ch = *expansion.from;
    if (ch == '\\') {
        if (*++expansion.from == '\0')
            return false;
        copyOne(expansion);
    } else if (quote != '\0' && ch == quote) {
        quote = '\0';
        ++expansion.from;
    } else if (quote == '\'') {
        copyOne(expansion);
    } else if (ch == '$') {
        return expandDollar(expansion);
    } else if (ch == '`') {
        expandCommand(expansion);
    } else if (ch == '~') {
        expandHome(expansion);
    } else if (quote == '"') {
        copyOne(expansion);
    } else if (ch == '\'' || ch == '"') {
        quote = ch;
        ++expansion.from;
    } else if (isBlank(ch)) {
        squeezeBlanks(expansion);
    } else {
        copyOne(expansion);
    }
    return true;
}

char *shellVariable(char *text) {
    if (text == nullptr)
        return nullptr;
    Expansion expansion = {text, {nullptr, nullptr, nullptr, 0, TEXT_INCREMENT}, true};
    char quote = '\0';
    do
        copyRun(expansion);
    while (expansion.isWhole && *expansion.from != '\0' && expandStep(expansion, quote));
    put(expansion, '\0');
    if (expansion.isWhole)
        return expansion.out.text;
    freecopy(expansion.out.text);
    return nullptr;
}

char *quotedShCmd(char *text, char **result) {
    if (result != nullptr)
        *result = nullptr;
    if (text == nullptr || *text != '`')
        return text;
    OwnedText output = {nullptr};
    runQuoted(&text, &output.text);
    if (result != nullptr) {
        *result = output.text;
        output.text = nullptr;
    }
    return text;
}

int setEnvVar(const char *name, const char *value) {
    if (name == nullptr)
        return 0;
    if (value == nullptr)
        value = "";
    const size_t size = strlen(name) + strlen(value) + 2;
    char *assignment = static_cast<char *>(malloc(size));
    if (assignment == nullptr)
        return -1;
    snprintf(assignment, size, "%s=%s", name, value);
    const int result = putenv(assignment);
    if (result != 0)
        free(assignment);
    return result;
}

// ---- processing ----

// What a statement without a handler does.
static void exportOption(const OptionEntry *entry, const char *name, const char *value) {
    setEnvVar(name, value == nullptr ? entry->defaultValue : value);
}

static OptionEntry *findFrom(OptionEntry *row, const char *name) {
    for (; row->name != nullptr; ++row)
        if (strcmp(row->name, name) == 0)
            return row;
    return nullptr;
}

/* A file that sets many options searches the table as often. After some searches a byte for each
   row, made of its name, tells nearly all rows apart without a look at their names. That holds
   while no handler has run that may change the table: from then on every row is looked at anew. */
struct Rows {
    explicit Rows(OptionEntry *all) : table(all) {}

    OptionEntry *table; // null: there are none
    bool mayChange = false;
    uint32_t searches = 0;
    size_t marked = 0; // so many rows, from the first on, have marks
    uint8_t marks[256];
};
static constexpr uint32_t SEARCHES_WITHOUT_MARKS = 8; // about what making the marks costs

static uint8_t markOf(const char *name) {
    uint32_t mark = 0;
    for (; *name != '\0'; ++name)
        mark = mark * 31 + static_cast<unsigned char>(*name);
    return static_cast<uint8_t>(mark);
}

static void makeMarks(Rows &rows) {
    for (rows.marked = 0; rows.marked < sizeof rows.marks; ++rows.marked) {
        const char *name = rows.table[rows.marked].name;
        if (name == nullptr)
            return;
        rows.marks[rows.marked] = markOf(name);
    }
}

// The first row with that mark, from the given one on; the number of marks when there is none.
static size_t nextMarked(const Rows &rows, size_t from, uint8_t mark) {
    const void *found = memchr(rows.marks + from, mark, rows.marked - from);
    return found == nullptr ? rows.marked
                            : static_cast<size_t>(static_cast<const uint8_t *>(found) - rows.marks);
}

static OptionEntry *findRow(Rows &rows, const char *name) {
    if (rows.table == nullptr)
        return nullptr;
    if (rows.mayChange || ++rows.searches <= SEARCHES_WITHOUT_MARKS)
        return findFrom(rows.table, name);
    if (rows.marked == 0)
        makeMarks(rows);
    const uint8_t mark = markOf(name);
    for (size_t row = nextMarked(rows, 0, mark); row < rows.marked;
         row = nextMarked(rows, row + 1, mark))
        if (strcmp(rows.table[row].name, name) == 0)
            return rows.table + row;
    return findFrom(rows.table + rows.marked, name);
}

// Whether the place lies in a row that may have a mark, or in the one that ends them.
static bool isInTable(const Rows &rows, const void *place) {
    const size_t row =
        (reinterpret_cast<uintptr_t>(place) - reinterpret_cast<uintptr_t>(rows.table)) /
        sizeof(OptionEntry);
    size_t each = 0;
    if (row >= sizeof rows.marks)
        return false;
    while (each < row && rows.table[each].name != nullptr)
        ++each;
    return each == row;
}

// The library's own handlers leave the rows' names alone, unless they store into the table, or turn
// a default to upper case that is a name too.
static bool mayChangeNames(const Rows &rows, const OptionEntry &entry, const char *value) {
    if (entry.handler == optEnv)
        return false;
    if (entry.handler == optBool && value == nullptr)
        return true;
    if (entry.handler != optInteger && entry.handler != optBool && entry.handler != optStr)
        return true;
    return rows.table != nullptr && isInTable(rows, entry.destination);
}

static void apply(Rows &rows, OptionEntry *entry, char *name, char *value) {
    if (entry->handler == nullptr) {
        exportOption(entry, name, value);
        return;
    }
    rows.mayChange = rows.mayChange || mayChangeNames(rows, *entry, value);
    entry->handler(entry, name, value);
}

// Works on a copy, since the handler may replace the default option.
static void applyDefaultOption(Rows &rows, char *name, char *value) {
    pthread_mutex_lock(&defaultOptionLock);
    OptionEntry *entry = defaultOption == nullptr ? nullptr : copyEntry(defaultOption);
    pthread_mutex_unlock(&defaultOptionLock);
    if (entry != nullptr)
        apply(rows, entry, name, value);
    freeEntry(entry);
}

static void applyStatement(Rows &rows, const Statement &statement) {
    OwnedText expanded = {nullptr};
    char *value = statement.value;
    if (value != nullptr && *value != '\0') {
        value = expanded.text = shellVariable(value);
        if (value == nullptr)
            return; // without memory: dropped, since no value would stand for the default
    }
    OptionEntry *row = findRow(rows, statement.name);
    if (row != nullptr)
        apply(rows, row, statement.name, value);
    else
        applyDefaultOption(rows, statement.name, value);
}

// The text from its first character on, where a statement may begin; null where none can.
static char *statementAt(char *text) {
    text = skipBlanks(text);
    return *text == '\0' || *text == '#' ? nullptr : text;
}

// The next statement in what one left of a line, or null.
static char *nextStatement(char *rest) {
    if (rest == nullptr)
        return nullptr;
    rest = skipBlanks(rest);
    return *rest == ';' ? statementAt(rest + 1) : nullptr;
}

// What parseXeqY finds, one statement after the other, but cut out of a copy of its own: a handler
// that parses replaces the thread's working texts.
static void processLine(const char *line, Rows &rows) {
    const OwnedText copy = {mkcopy(line)};
    char *text = copy.text == nullptr ? nullptr : statementAt(copy.text);
    Statement statement;
    while (text != nullptr && cutStatement(text, &statement)) {
        text = nextStatement(statement.rest);
        endValue(statement);
        applyStatement(rows, statement);
    }
}

int processOptions(char **lines, OptionEntry *table) {
    if (lines == nullptr)
        return 0;
    Rows rows(table);
    for (; *lines != nullptr; ++lines)
        processLine(*lines, rows);
    return 1;
}

int processOptionsFile(const char *path, OptionEntry *table) {
    const uint32_t array = path == nullptr ? 0 : readFileIntoArray(path, 0, FILE_MODES);
    const ArrayDescriptor *descriptor = arrayValidDescriptor(array);
    if (descriptor == nullptr)
        return 0;
    if (descriptor->count == 0)
        return 1; // kept: the array stays open
    const int result = processOptions(static_cast<char **>(descriptor->storage), table);
    arrayClose(array);
    return result;
}

// False when memory is exhausted: the standard file must not stand in for one that is set.
static bool copyPrimaryFile(char **copy) {
    pthread_mutex_lock(&primaryFileLock);
    const bool isSet = primaryFile != nullptr;
    *copy = mkcopy(primaryFile);
    pthread_mutex_unlock(&primaryFileLock);
    return *copy != nullptr || !isSet;
}

void processProgramOptions(const char *program, OptionEntry *table) {
    if (table != nullptr)
        for (OptionEntry *row = table; row->name != nullptr; ++row)
            if (row->handler != nullptr && row->defaultValue != nullptr)
                row->handler(row, row->name, row->defaultValue);
    if (program == nullptr)
        return;
    OwnedText primary = {nullptr};
    if (!copyPrimaryFile(&primary.text))
        return;
    if (primary.text != nullptr && access(primary.text, R_OK) == 0) {
        processOptionsFile(primary.text, table);
        return;
    }
    const OwnedText standard = {createStandardOptionsName("", program)};
    if (standard.text != nullptr && access(standard.text, R_OK) == 0)
        processOptionsFile(standard.text, table);
}

// ---- handlers and settings ----

static const char *textFor(const OptionEntry *entry, const char *value) {
    return value == nullptr ? entry->defaultValue : value;
}

void optStr(OptionEntry *entry, char *, char *value) {
    const char *text = textFor(entry, value);
    char *copy = entry->destination == nullptr ? nullptr : mkcopy(text);
    if (entry->destination != nullptr && (copy != nullptr || text == nullptr))
        *static_cast<char **>(entry->destination) = copy;
}

// Stores the number if it is the whole text; long may be wider than what is stored.
static bool wholeNumber(const char *text, long *number) {
    char *end;
    *number = strtol(text, &end, 0);
    return *end == '\0';
}

void optInteger(OptionEntry *entry, char *, char *value) {
    const char *text = textFor(entry, value);
    long number;
    if (text == nullptr || entry->destination == nullptr || !wholeNumber(text, &number))
        return;
    const long clamped = number > INT32_MAX ? INT32_MAX : number < INT32_MIN ? INT32_MIN : number;
    *static_cast<int32_t *>(entry->destination) = static_cast<int32_t>(clamped);
}

void optEnv(OptionEntry *entry, char *name, char *value) {
    setEnvVar(name, textFor(entry, value));
}

// Writes the bytes that change and no other, so that an upper-case default may be a constant.
static void toUpperInPlace(char *text) {
    for (; *text != '\0'; ++text) {
        const char upper = static_cast<char>(toupper(static_cast<unsigned char>(*text)));
        if (upper != *text)
            *text = upper;
    }
}

void optBool(OptionEntry *entry, char *, char *value) {
    char *text = value == nullptr ? entry->defaultValue : value;
    if (text == nullptr)
        return;
    toUpperInPlace(text);
    int32_t *destination = static_cast<int32_t *>(entry->destination);
    if (destination == nullptr)
        return;
    if (isdigit(static_cast<unsigned char>(*text)) != 0 || *text == '-' || *text == '+') {
        long number;
        if (wholeNumber(text, &number))
            *destination = number != 0 ? 1 : 0;
        return;
    }
    const uint32_t position = exactMatch(text, BOOLEAN_WORDS);
    if (position != 0)
        *destination = position % 2 == 1 ? 1 : 0;
}

void setDefaultOption(OptionEntry *entry) {
    OptionEntry *previous = nullptr;
    pthread_mutex_lock(&defaultOptionLock);
    if (entry != defaultOption) {
        OptionEntry *copy = entry == nullptr ? nullptr : copyEntry(entry);
        if (copy != nullptr || entry == nullptr) {
            previous = defaultOption;
            defaultOption = copy;
        }
    }
    pthread_mutex_unlock(&defaultOptionLock);
    freeEntry(previous);
}

void makeDfltOptionEnv() {
    OptionEntry exporter = {nullptr, nullptr, optEnv, nullptr};
    setDefaultOption(&exporter);
}

void setPrimaryOptionsFile(const char *path) {
    char *copy = mkcopy(path);
    if (copy == nullptr && path != nullptr)
        return;
    pthread_mutex_lock(&primaryFileLock);
    char *previous = primaryFile;
    primaryFile = copy;
    pthread_mutex_unlock(&primaryFileLock);
    freecopy(previous);
}

char *createStandardOptionsName(const char *prefix, const char *program) {
    if (prefix == nullptr || program == nullptr)
        return nullptr;
    const char *name = baseName(program);
    const size_t size = strlen(prefix) + sizeof DEFAULTS_FOLDER + 1 + strlen(name);
    char *path = static_cast<char *>(malloc(size));
    if (path != nullptr)
        snprintf(path, size, "%s%s/%s", prefix, DEFAULTS_FOLDER, name);
    return path;
}
