#include "logFields.h"

#include "catalogue.h"
#include "dataDict.h"

#include "../core/mkcopy.h"
#include "../options/readInfo.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static_assert(sizeof(void *) != 4 || (offsetof(LogField, type) == 5 &&
                                      offsetof(LogField, second) == 8 && sizeof(LogField) == 12));
static_assert(sizeof(void *) != 4 ||
              (offsetof(LogFieldList, number) == 8 && sizeof(LogFieldList) == 12));
static_assert(sizeof(off_t) == 8, "a dictionary may pass 2 GiB");

// The path of one of the two files.
struct FileName {
    char *current;
    char *previous;
};

static FileName mapName;
static FileName dictName;
static int mapFile = -1; // both open, or both not
static FILE *dictFile;
static LogFieldList **cache; // by message number; null while closed
static uint32_t messageCount;
static CharBuffer *line;

// ---- names

static char *setName(FileName *name, const char *path) {
    // Copied first: it may be the previous name.
    char *copy = mkcopy(path);
    if (copy == nullptr && path != nullptr)
        return name->previous;
    freecopy(name->previous);
    name->previous = name->current;
    name->current = copy;
    return name->previous;
}

char *setDdMapLogName(const char *name) {
    return setName(&mapName, name);
}

char *setDataDictLogName(const char *name) {
    return setName(&dictName, name);
}

// False when memory is exhausted.
static bool ensureName(FileName *name, const char *file) {
    if (name->current != nullptr)
        return true;
    CharBuffer *buffer = nullptr;
    const char *path = formatAnew(&buffer, "%s/%s", catalogueRoot(), file);
    if (path != nullptr)
        setName(name, path);
    freeCharBuffer(buffer);
    return name->current != nullptr;
}

// ---- the open catalogue

// The dictionary's file below its stream. Both files are read by position only: after a fork the
// descriptors share their offsets with other processes, which move them even by exiting.
struct PositionedFile {
    int fd;
    off_t position;
};

static PositionedFile dictionary;

static ssize_t readPositioned(void *cookie, char *buffer, size_t size) {
    PositionedFile *file = static_cast<PositionedFile *>(cookie);
    const ssize_t count = pread(file->fd, buffer, size, file->position);
    if (count > 0)
        file->position += count;
    return count;
}

static int seekPositioned(void *cookie, off64_t *offset, int whence) {
    PositionedFile *file = static_cast<PositionedFile *>(cookie);
    const off_t from = whence == SEEK_CUR ? file->position : 0;
    if (whence == SEEK_END || *offset < -from) {
        errno = EINVAL;
        return -1;
    }
    *offset = file->position = from + *offset;
    return 0;
}

static int closePositioned(void *cookie) {
    return close(static_cast<PositionedFile *>(cookie)->fd);
}

static int openToRead(const char *path) {
    return open(path, O_RDONLY | O_CLOEXEC);
}

static FILE *openDictionary(const char *path) {
    dictionary = {openToRead(path), 0};
    if (dictionary.fd < 0)
        return nullptr;
    FILE *stream =
        fopencookie(&dictionary, "r", {readPositioned, nullptr, seekPositioned, closePositioned});
    if (stream == nullptr)
        close(dictionary.fd);
    return stream;
}

void endDdMapLog(void) {
    if (mapFile >= 0)
        close(mapFile);
    if (dictFile != nullptr)
        fclose(dictFile);
    mapFile = -1;
    dictFile = nullptr;
    for (uint32_t i = 0; i < messageCount; ++i)
        free(cache[i]);
    free(cache);
    cache = nullptr;
    messageCount = 0;
}

// Reads the value of the index's record; false when it is cut short.
static bool readValue(off_t record, uint32_t *value) {
    unsigned char bytes[DD_MAP_RECORD_SIZE];
    if (pread(mapFile, bytes, sizeof bytes, record * DD_MAP_RECORD_SIZE) != ssize_t{sizeof bytes})
        return false;
    *value = 0;
    for (size_t i = DD_MAP_VALUE_OFFSET; i < sizeof bytes; ++i)
        *value = *value << 8 | bytes[i];
    return true;
}

static bool makeCache() {
    uint32_t size;
    if (!readValue(0, &size))
        return false;
    const uint32_t records = size / DD_MAP_RECORD_SIZE;
    const uint32_t count = records == 0 ? 0 : records - 1;
    // One slot at least: an index without messages is open as well.
    cache = static_cast<LogFieldList **>(calloc(count + size_t{1}, sizeof(LogFieldList *)));
    messageCount = cache == nullptr ? 0 : count;
    return cache != nullptr;
}

static bool openCatalogue() {
    if (cache != nullptr)
        return true;
    if (!ensureName(&mapName, DD_MAP_FILE) || !ensureName(&dictName, DATA_DICT_FILE))
        return false;
    mapFile = openToRead(mapName.current);
    dictFile = mapFile < 0 ? nullptr : openDictionary(dictName.current);
    if (dictFile != nullptr && makeCache())
        return true;
    endDdMapLog();
    return false;
}

// Reads the message's dictionary line into the line buffer; null when there is none.
static const char *readDictionary(uint32_t number) {
    uint32_t offset;
    // Flushed: a line that was repaired in place is read anew.
    if (!readValue(off_t{number} + 1, &offset) || fflush(dictFile) != 0 ||
        fseeko(dictFile, static_cast<off_t>(offset), SEEK_SET) != 0)
        return nullptr;
    ReadInfo saved;
    resetReadLine(&saved);
    clearerr(dictFile); // of a lookup before
    const char *text = readLine(dictFile);
    // Part of a line is none.
    if (ferror(dictFile) != 0)
        text = nullptr;
    // Copied before the reader's own buffer comes back.
    if (text != nullptr)
        text = formatAnew(&line, "%s", text);
    setReadLine(&saved);
    return text;
}

// ---- one line

static const char *fieldEnd(const char *text) {
    static constexpr char ENDS[] = {DATA_DICT_FIELD_END, DATA_DICT_LIST_END, '\0'};
    return text + strcspn(text, ENDS);
}

// The number of fields in the text that follows the separator. What the line's end cuts off is no
// field.
static uint32_t countFields(const char *text) {
    for (uint32_t count = 0;; ++count) {
        const char *end = fieldEnd(text);
        if (*end != DATA_DICT_FIELD_END)
            return *end == DATA_DICT_LIST_END && end != text ? count + 1 : count;
        text = end + 1;
    }
}

// The number after the comma at *text, which is moved past both; 0 and nothing moved without one.
static int32_t nextNumber(const char **text) {
    return **text == DATA_DICT_PART ? leadingNumber(*text + 1, 0, text) : 0;
}

// Parses the field that ends there; its name goes to the place given. Returns the place behind it.
static char *parseField(LogField *field, const char *text, const char *end, char *place) {
    const char *comma =
        static_cast<const char *>(memchr(text, DATA_DICT_PART, static_cast<size_t>(end - text)));
    const char *nameEnd = comma == nullptr ? end : comma;
    const size_t length = static_cast<size_t>(nameEnd - text);
    field->name = place;
    memcpy(place, text, length);
    place[length] = '\0';
    field->type = DATA_DICT_DEFAULT_TYPE;
    if (comma != nullptr && comma + 1 != end) {
        field->type = comma[1];
        const char *rest = comma + 2;
        field->first = static_cast<int16_t>(nextNumber(&rest));
        field->second = nextNumber(&rest);
    }
    return place + length + 1;
}

// The list, its fields and their names in one block: a lookup meets them side by side. Null when
// memory is exhausted.
static LogFieldList *parseFields(int32_t number, const char *text) {
    const uint32_t count = countFields(text);
    const uint64_t names = sizeof(LogFieldList) + uint64_t{count} * sizeof(LogField);
    const uint64_t size = names + strlen(text) + 1; // each name and its separator
    void *block = size > PTRDIFF_MAX ? nullptr : calloc(1, static_cast<size_t>(size));
    LogFieldList *list = static_cast<LogFieldList *>(block);
    if (list == nullptr)
        return nullptr;
    list->number = number;
    list->fields = reinterpret_cast<LogField *>(list + 1);
    char *place = reinterpret_cast<char *>(list) + names;
    for (; list->count < count; ++list->count) {
        const char *end = fieldEnd(text);
        LogField *field = &list->fields[list->count];
        field->position = static_cast<uint8_t>(list->count);
        place = parseField(field, text, end, place);
        text = end + 1;
    }
    return list;
}

// ---- lookups

LogFieldList *getLogFormatFields(int32_t number) {
    // A negative number is above every count.
    if (!openCatalogue() || static_cast<uint32_t>(number) >= messageCount)
        return nullptr;
    LogFieldList **slot = &cache[number];
    if (*slot != nullptr)
        return *slot;
    const char *text = readDictionary(static_cast<uint32_t>(number));
    if (text == nullptr)
        return nullptr;
    const char *rest;
    // Another message's line: the index is stale.
    if (leadingNumber(text, 10, &rest) != number || rest == text)
        return nullptr;
    // The separator, which the line may lack.
    *slot = parseFields(number, *rest == '\0' ? rest : rest + 1);
    return *slot;
}

LogField *findLogFieldName(int32_t number, const char *name) {
    if (name == nullptr || *name == '\0')
        return nullptr;
    const LogFieldList *list = getLogFormatFields(number);
    for (uint32_t i = 0; list != nullptr && i < list->count; ++i)
        if (strcmp(list->fields[i].name, name) == 0)
            return &list->fields[i];
    return nullptr;
}

int32_t cvtLogFieldNameToIndex(int32_t number, const char *name) {
    const LogField *field = findLogFieldName(number, name);
    return field == nullptr ? -1 : field->position;
}

LogField *getLogFieldName(int32_t number, int32_t position) {
    const LogFieldList *list = getLogFormatFields(number);
    if (list == nullptr || position < 0 || static_cast<uint32_t>(position) >= list->count)
        return nullptr;
    return &list->fields[position];
}

char *cvtLogFieldIndexToName(int32_t number, int32_t position) {
    const LogField *field = getLogFieldName(number, position);
    return field == nullptr ? nullptr : field->name;
}
