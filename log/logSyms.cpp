#include "logSyms.h"

#include "catalogue.h"
#include "log.h"
#include "logStartCl.h"
#include "symbolIndex.h"
#include "symbolPatterns.h"

#include "../buffers/arrays.h"
#include "../core/mkcopy.h"
#include "../regex/regularExp.h"

#include <dirent.h>
#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(void *) != 4 ||
              (offsetof(LogSymbol, className) == 8 && sizeof(LogSymbol) == 16));

static constexpr int32_t NO_NUMBER = -1; // what stands in parentheses is none throughout

int32_t logSymsReadCnt;

using symbolPatterns::LogForm;

static char *currentDir;
static char *previousDir;
static CharBuffer *classPath;
static CharBuffer *headerPath;

static uint32_t symbolTable; // 0: none
static SymbolIndex symbolIndex;
static bool readingSymbols; // all headers: see haveSymbols
static bool readGivenUp;    // the last time

// ---- the table

static uint32_t symbolCount() {
    return arrDescPtr[symbolTable].count;
}

static LogSymbol *symbols() {
    return static_cast<LogSymbol *>(arrDescPtr[symbolTable].storage);
}

// A report made while the catalogue is read may be shown expanded, with the symbol of the report
// itself. Such a lookup takes what there is: reading everything once more would double the table.
static bool haveSymbols() {
    if (symbolTable == 0 && !readingSymbols && !readingStartClasses)
        logReadSymbols(nullptr);
    return symbolTable != 0;
}

// Whether the index can be asked; where memory for it is exhausted the records are walked.
static bool haveIndex() {
    return coverSymbols(&symbolIndex, symbols(), symbolCount()) != 0;
}

// The class lies in the block of the name.
static void releaseSymbol(LogSymbol *symbol) {
    freecopy(symbol->name);
}

void logFreeSymbols(void) {
    clearSymbolIndex(&symbolIndex);
    if (symbolTable == 0)
        return;
    for (uint32_t i = 0; i < symbolCount(); ++i)
        releaseSymbol(&symbols()[i]);
    arrayClose(symbolTable);
    symbolTable = 0;
}

// ---- the directory

// False, nothing changed, for null and when memory is exhausted.
static bool changeDir(const char *dir) {
    // Copied before anything is released: it may be one of the two names.
    char *copy = mkcopy(dir);
    if (copy == nullptr)
        return false;
    freecopy(previousDir);
    previousDir = currentDir;
    currentDir = copy;
    if (previousDir == nullptr || strcmp(previousDir, currentDir) != 0)
        logFreeSymbols();
    const char *path = formatAnew(&classPath, "%s/%s", currentDir, CATALOGUE_CLASS_FILE);
    if (path != nullptr)
        logReadStartClasses(path);
    return true;
}

char *logSetHeaderDirName(const char *dir) {
    changeDir(dir);
    return previousDir;
}

char *logGetHeaderDirName(void) {
    return currentDir;
}

static void setDefaultDir() {
    CharBuffer *path = nullptr;
    logSetHeaderDirName(formatAnew(&path, "%s/head", catalogueRoot()));
    freeCharBuffer(path);
}

// ---- one header

// A header being read.
struct HeaderRead {
    int32_t added;
    bool isWhole; // false once memory was exhausted
    // The class looked up last: one of the table's texts, or null
    const char *className;
    int32_t classStart;
};

static int32_t startOfClass(HeaderRead *read, const char *className) {
    if (read->className == nullptr || strcmp(read->className, className) != 0)
        read->classStart = logStartClass(className);
    read->className = className;
    return read->classStart;
}

static int32_t absoluteIndex(HeaderRead *read, const char *className, int32_t relIndex) {
    const int32_t start = startOfClass(read, className);
    const int64_t index = static_cast<int64_t>(start) + relIndex - 1;
    return start == LOG_UNKNOWN_CLASS || index > INT32_MAX ? -1 : static_cast<int32_t>(index);
}

// Takes the symbol's texts over.
static void appendSymbol(HeaderRead *read, LogSymbol *symbol) {
    if (symbol->relIndex != NO_NUMBER)
        symbol->absIndex = absoluteIndex(read, symbol->className, symbol->relIndex);
    if (arrayPut(symbolTable, symbol) == nullptr) {
        read->className = nullptr;
        read->isWhole = false;
        releaseSymbol(symbol);
        return;
    }
    ++read->added;
}

static bool isComment(const char *word) {
    return strncmp(word, "/*", 2) == 0;
}

// The name, and behind it in the same block the class; null when memory is exhausted.
static char *copyTexts(const char *name, const LogForm &form) {
    const size_t nameSize = strlen(name) + 1;
    const size_t classLength = static_cast<size_t>(form.classEnd - form.className);
    char *copy = static_cast<char *>(malloc(nameSize + classLength + 1));
    if (copy == nullptr)
        return nullptr;
    memcpy(copy, name, nameSize);
    memcpy(copy + nameSize, form.className, classLength);
    copy[nameSize + classLength] = '\0';
    return copy;
}

// The digits' number in automatic base; NO_NUMBER when they are none throughout. Ends them by a
// zero.
static int32_t readNumber(const LogForm &form) {
    *form.numberEnd = '\0';
    if (*form.number == '0') {
        const char *end;
        const int32_t number = leadingNumber(form.number, 0, &end);
        return *end == '\0' ? number : NO_NUMBER;
    }
    int64_t number = 0;
    for (const char *digit = form.number; *digit != '\0'; ++digit)
        if (number <= INT32_MAX)
            number = number * 10 + (*digit - '0');
    return number > INT32_MAX ? INT32_MAX : static_cast<int32_t>(number);
}

static void readSymbol(void *context, char **words, int32_t count) {
    HeaderRead *read = static_cast<HeaderRead *>(context);
    LogForm form;
    if ((count > 3 && !isComment(words[3])) || !symbolPatterns::isDefinedName(words[1]) ||
        !symbolPatterns::readLogForm(words[2], &form))
        return;
    // Both before the class is looked up, which may read another file.
    char *name = copyTexts(words[1], form);
    const int32_t number = readNumber(form);
    if (name == nullptr) {
        read->isWhole = false;
        return;
    }
    LogSymbol symbol = {name, -1, name + strlen(name) + 1, number};
    appendSymbol(read, &symbol);
}

// Takes back what was appended beyond so many records: half a header would be taken for the whole.
static void dropBeyond(uint32_t count) {
    clearSymbolIndex(&symbolIndex);
    while (symbolCount() > count) {
        LogSymbol *last = &symbols()[symbolCount() - 1];
        releaseSymbol(last);
        arrayDel(symbolTable, last);
    }
    if (count == 0)
        logFreeSymbols();
}

// Appends all or nothing, and then gives false.
static bool appendHeader(FILE *stream, int32_t *added) {
    if (symbolTable == 0)
        symbolTable = arrayOpen(0, sizeof(LogSymbol));
    if (symbolTable == 0)
        return false;
    const uint32_t before = symbolCount();
    HeaderRead read = {0, true, nullptr, 0};
    const bool isRead = readDefines(stream, readSymbol, &read);
    if (!isRead || !read.isWhole)
        dropBeyond(before);
    else
        *added = read.added;
    return isRead && read.isWhole;
}

// False when it could not be read whole; one that cannot be opened is passed over.
static bool readHeader(const char *path, int32_t *added) {
    if (path == nullptr)
        return true;
    FILE *stream = fopen(path, "r");
    if (stream == nullptr) {
        logperror(_destination, 2, "../logSyms", 265, "%s", path);
        return true;
    }
    const bool isAppended = appendHeader(stream, added);
    fclose(stream);
    return isAppended;
}

int32_t logReadHeader(const char *path) {
    int32_t added = 0;
    readHeader(path, &added);
    return added;
}

// ---- all headers

// As regularExp; *isWhole becomes false when it was memory that was lacking.
static bool matches(const char *pattern, const char *text, bool *isWhole) {
    errno = 0;
    const bool isMatch = regularExp(pattern, text, nullptr) != nullptr;
    if (!isMatch && errno == ENOMEM)
        *isWhole = false;
    return isMatch;
}

// The number of symbols; -1 when a header, or the directory, could not be read whole.
static int32_t readHeaders(DIR *dir) {
    int32_t total = 0;
    bool isWhole = initSptr() != nullptr;
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(dir);
        if (entry == nullptr)
            return errno == 0 && isWhole ? total : -1;
        if (!matches(symbolPatterns::HEADER_FILE.bytes, entry->d_name, &isWhole))
            continue;
        const char *path = formatAnew(&headerPath, "%s/%s", currentDir, entry->d_name);
        int32_t added = 0;
        isWhole = isWhole && path != nullptr && readHeader(path, &added);
        total += added;
    }
}

int32_t logReadSymbols(const char *dir) {
    if (dir != nullptr && !changeDir(dir))
        return 0;
    if (currentDir == nullptr)
        setDefaultDir();
    readGivenUp = currentDir == nullptr;
    logFreeSymbols();
    DIR *stream = currentDir == nullptr ? nullptr : opendir(currentDir);
    if (stream == nullptr)
        return 0;
    readingSymbols = true;
    const int32_t total = readHeaders(stream);
    readingSymbols = false;
    closedir(stream);
    readGivenUp = total < 0;
    if (readGivenUp)
        logFreeSymbols(); // the next lookup tries again
    logSortSymbols();
    return readGivenUp ? 0 : total;
}

bool symbolsAreUnread() {
    return symbolTable == 0 && readGivenUp;
}

static int compareSymbols(const void *left, const void *right) {
    const LogSymbol *a = static_cast<const LogSymbol *>(left);
    const LogSymbol *b = static_cast<const LogSymbol *>(right);
    const int byName = strcmp(a->name, b->name);
    return byName != 0 ? byName : (a->absIndex > b->absIndex) - (a->absIndex < b->absIndex);
}

void logSortSymbols(void) {
    if (symbolTable == 0 || symbolCount() < 2)
        return;
    clearSymbolIndex(&symbolIndex);
    qsort(symbols(), symbolCount(), sizeof(LogSymbol), compareSymbols);
}

// ---- lookups

static int compareName(const void *name, const void *symbol) {
    return strcmp(static_cast<const char *>(name), static_cast<const LogSymbol *>(symbol)->name);
}

LogSymbol *logFindDefineName(const char *name) {
    if (name == nullptr || !haveSymbols() || symbolCount() == 0)
        return nullptr;
    return static_cast<LogSymbol *>(
        bsearch(name, symbols(), symbolCount(), sizeof(LogSymbol), compareName));
}

static int64_t walkToRelative(const char *className, int32_t relIndex) {
    for (uint32_t i = 0; i < symbolCount(); ++i)
        if (symbols()[i].relIndex == relIndex && strcmp(symbols()[i].className, className) == 0)
            return i;
    return -1;
}

static int64_t walkToAbsolute(int32_t absIndex) {
    for (uint32_t i = 0; i < symbolCount(); ++i)
        if (symbols()[i].absIndex == absIndex)
            return i;
    return -1;
}

LogSymbol *logFindRelIndex(const char *className, int32_t relIndex) {
    if (className == nullptr || relIndex < 0 || !haveSymbols())
        return nullptr;
    const int64_t position = haveIndex()
                                 ? findRelative(&symbolIndex, symbols(), className, relIndex)
                                 : walkToRelative(className, relIndex);
    return position < 0 ? nullptr : &symbols()[position];
}

LogSymbol *logFindAbsIndex(int32_t absIndex) {
    if (absIndex < 0 || !haveSymbols())
        return nullptr;
    const int64_t position =
        haveIndex() ? findAbsolute(&symbolIndex, symbols(), absIndex) : walkToAbsolute(absIndex);
    return position < 0 ? nullptr : &symbols()[position];
}

LogSymbol *logFindSymbol(const char *symbol) {
    if (symbol == nullptr || *symbol == '\0')
        return nullptr;
    LogSymbol *found = logFindDefineName(symbol);
    if (found != nullptr)
        return found;
    CaptureBlock *groups;
    if (regularExp(symbolPatterns::SHORT_FORM.bytes, symbol, &groups) == nullptr &&
        regularExp(symbolPatterns::LOG_FORM.bytes, symbol, &groups) == nullptr)
        return nullptr;
    found =
        logFindRelIndex(groups->group[symbolPatterns::GROUP_CLASS],
                        leadingNumber(groups->group[symbolPatterns::GROUP_NUMBER], 10, nullptr));
    free(groups);
    return found;
}

int32_t logSymbolToAbsIndex(const char *symbol) {
    const LogSymbol *found = logFindSymbol(symbol);
    return found == nullptr ? -1 : found->absIndex;
}

int32_t logSymbolToRelIndex(const char *symbol) {
    const LogSymbol *found = logFindSymbol(symbol);
    return found == nullptr ? -1 : found->relIndex;
}

char *logSymbolToClass(const char *symbol) {
    const LogSymbol *found = logFindSymbol(symbol);
    return found == nullptr ? nullptr : found->className;
}

char *logAbsIndexToSymbol(int32_t absIndex) {
    const LogSymbol *found = logFindAbsIndex(absIndex);
    return found == nullptr ? nullptr : found->name;
}

int32_t logTotalSymbols(void) {
    return haveSymbols() ? static_cast<int32_t>(symbolCount()) : 0;
}

LogSymbol *logGetSymbol(int32_t position) {
    if (!haveSymbols() || position < 0 || static_cast<uint32_t>(position) >= symbolCount())
        return nullptr;
    return &symbols()[position];
}
