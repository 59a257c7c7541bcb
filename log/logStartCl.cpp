#include "logStartCl.h"

#include "catalogue.h"
#include "log.h"

#include "../buffers/arrays.h"
#include "../core/mkcopy.h"

#include <stddef.h>
#include <string.h>

static_assert(sizeof(void *) != 4 ||
              (offsetof(LogStartClass, start) == 4 && sizeof(LogStartClass) == 8));

static constexpr const char *END_NAME = "_MAX_LOGMSG";
static constexpr const char *START_SUFFIX = "MSG_START";

int32_t logClassReadCnt;
bool readingStartClasses;

static uint32_t classTable; // 0: none
static CharBuffer *defaultPath;

static uint32_t recordCount() {
    return arrDescPtr[classTable].count;
}

static LogStartClass *records() {
    return static_cast<LogStartClass *>(arrDescPtr[classTable].storage);
}

static void dropTable() {
    if (classTable == 0)
        return;
    for (uint32_t i = 0; i < recordCount(); ++i)
        freecopy(records()[i].name);
    arrayClose(classTable);
    classTable = 0;
}

// Appends a class named by the first characters of the text; false when memory is exhausted.
static bool appendClass(const char *text, size_t length, int32_t start) {
    const LogStartClass record = {strndup(text, length), start};
    if (record.name != nullptr && arrayPut(classTable, &record) != nullptr)
        return true;
    freecopy(record.name);
    return false;
}

// The length of the class's name in "_NAMEMSG_START", behind the "_"; 0 when the word is none such.
static size_t classNameLength(const char *word) {
    const size_t length = strlen(word), suffix = strlen(START_SUFFIX);
    if (word[0] != '_' || length < suffix + 2 || strcmp(word + length - suffix, START_SUFFIX) != 0)
        return 0;
    return length - 1 - suffix;
}

static void readClass(void *context, char **words, int32_t) {
    const char *number = words[2];
    if (*number == '\0' || number[strspn(number, "0123456789")] != '\0')
        return;
    const char *name = words[1][0] == '_' ? words[1] + 1 : words[1];
    const bool isEnd = name != words[1] && strcmp(name, END_NAME) == 0;
    const size_t length = isEnd ? strlen(END_NAME) : classNameLength(words[1]);
    bool *isWhole = static_cast<bool *>(context);
    if (length != 0 && !appendClass(name, length, leadingNumber(number, 10, nullptr)))
        *isWhole = false;
}

static uint32_t readStartClasses(const char *path) {
    logClassReadCnt = static_cast<int32_t>(static_cast<uint32_t>(logClassReadCnt) + 1);
    dropTable();
    if (path == nullptr)
        path = formatAnew(&defaultPath, "%s/head/%s", catalogueRoot(), CATALOGUE_CLASS_FILE);
    if (path == nullptr)
        return 0;
    FILE *stream = fopen(path, "r");
    if (stream == nullptr) {
        logperror(_destination, 3, "../logStartCl", 113, "%s", path);
        return 0;
    }
    classTable = arrayOpen(0, sizeof(LogStartClass));
    bool isWhole = true;
    // Half a table would be taken for the whole one from here on.
    if (classTable != 0 && (!readDefines(stream, readClass, &isWhole) || !isWhole))
        dropTable();
    fclose(stream);
    return classTable;
}

uint32_t logReadStartClasses(const char *path) {
    readingStartClasses = true;
    const uint32_t table = readStartClasses(path);
    readingStartClasses = false;
    return table;
}

static bool haveTable() {
    if (classTable == 0 && !readingStartClasses)
        logReadStartClasses(nullptr);
    return classTable != 0;
}

// The position of the first record of that name, -1 when there is none.
static int64_t findClass(const char *name) {
    if (name == nullptr || *name == '\0')
        return -1;
    for (uint32_t i = 0; i < recordCount(); ++i)
        if (strcmp(records()[i].name, name) == 0)
            return i;
    return -1;
}

int32_t logStartClass(const char *name) {
    if (!haveTable())
        return LOG_UNKNOWN_CLASS;
    const int64_t position = findClass(name);
    return position < 0 ? LOG_UNKNOWN_CLASS : records()[position].start;
}

int32_t logClassSize(const char *name) {
    if (!haveTable())
        return LOG_UNKNOWN_CLASS;
    const int64_t position = findClass(name);
    if (position < 0)
        return 0;
    if (position + 1 == recordCount())
        return LOG_UNKNOWN_CLASS;
    // Starts are never negative: no difference overflows.
    return records()[position + 1].start - records()[position].start;
}

int32_t logTotalClasses(void) {
    return haveTable() ? static_cast<int32_t>(recordCount()) - 1 : 0;
}

char *logGetClass(int32_t position) {
    if (!haveTable() || position < 0 || static_cast<uint32_t>(position) >= recordCount())
        return nullptr;
    return records()[position].name;
}

int32_t logMaxLogMsgIndex(void) {
    return logStartClass(END_NAME);
}
