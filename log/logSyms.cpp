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

int32_t logSymsReadCnt;

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

static void releaseSymbol(LogSymbol *symbol) {
    freecopy(symbol->name);
    freecopy(symbol->className);
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

// Takes name and class over.
static void appendSymbol(HeaderRead *read, char *name, char *className, const char *number) {
    LogSymbol symbol = {name, -1, className, -1};
    const char *end;
    const int32_t relIndex = leadingNumber(number, 0, &end);
    if (*end == '\0') {
        symbol.relIndex = relIndex;
        symbol.absIndex = absoluteIndex(read, className, relIndex);
    }
    if (arrayPut(symbolTable, &symbol) == nullptr) {
        read->className = nullptr;
        read->isWhole = false;
        releaseSymbol(&symbol);
        return;
    }
    ++read->added;
}

static bool isComment(const char *word) {
    return strncmp(word, "/*", 2) == 0;
}

// As regularExp; *isWhole becomes false when it was memory that was lacking.
static bool matches(const char *pattern, const char *text, CaptureBlock **groups, bool *isWhole) {
    errno = 0;
    const bool isMatch = regularExp(pattern, text, groups) != nullptr;
    if (!isMatch && errno == ENOMEM)
        *isWhole = false;
    return isMatch;
}

static void readSymbol(void *context, char **words, int32_t count) {
    HeaderRead *read = static_cast<HeaderRead *>(context);
    CaptureBlock *groups;
    if ((count > 3 && !isComment(words[3])) ||
        !matches(symbolPatterns::DEFINED_NAME.bytes, words[1], nullptr, &read->isWhole) ||
        !matches(symbolPatterns::LOG_FORM.bytes, words[2], &groups, &read->isWhole))
        return;
    // Copied before the class is looked up, which may read another file.
    char *name = mkcopy(words[1]);
    char *className = mkcopy(groups->group[symbolPatterns::GROUP_CLASS]);
    if (name != nullptr && className != nullptr) {
        appendSymbol(read, name, className, groups->group[symbolPatterns::GROUP_NUMBER]);
    } else {
        read->isWhole = false;
        freecopy(name);
        freecopy(className);
    }
    free(groups);
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
    HeaderRead read = {0, initSptr() != nullptr, nullptr, 0};
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

// The number of symbols; -1 when a header, or the directory, could not be read whole.
static int32_t readHeaders(DIR *dir) {
    int32_t total = 0;
    bool isWhole = initSptr() != nullptr;
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(dir);
        if (entry == nullptr)
            return errno == 0 && isWhole ? total : -1;
        if (!matches(symbolPatterns::HEADER_FILE.bytes, entry->d_name, nullptr, &isWhole))
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
