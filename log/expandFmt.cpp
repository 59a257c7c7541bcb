#include "expandLog.h"

#include "../buffers/fmtCharBuf.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expansionSettings.h"
#include "log.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static constexpr char DEFAULT_FORMAT[] = "%P %T %N %S:%L\n%M";
static constexpr char DEFAULT_LOG_ROOT[] = "/usr/spool/log";
static constexpr char TEXT_FORMAT_FILE[] = "textLogFmt";
static constexpr int64_t CACHE_STEP = 64;
static constexpr size_t ENTRY_SIZE = 16; // of the text format file's directory

ExpansionSettings expansionSettings = {
    nullptr, 0,       -1,      nullptr, 0,  0,       0,       nullptr,
    nullptr, nullptr, nullptr, 0,       -1, nullptr, nullptr, nullptr,
};

// The file's directory, and its texts.

static int32_t clampTo32(int64_t value) {
    if (value > INT32_MAX)
        return INT32_MAX;
    return value < INT32_MIN ? INT32_MIN : static_cast<int32_t>(value);
}

// Positioned reads only: a descriptor that a child process shares has one offset for both.
static bool readAt(int fd, char *place, size_t size, int64_t offset) {
    while (size > 0) {
        const ssize_t count = pread(fd, place, size, offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        place += count;
        size -= static_cast<size_t>(count);
        offset += count;
    }
    return true;
}

// Where a message text lies in the file.
struct TextPlace {
    int64_t offset;
    int32_t length;
};

static bool readDirectoryEntry(int fd, int32_t index, TextPlace *place) {
    char entry[ENTRY_SIZE + 1] = {};
    if (!readAt(fd, entry, ENTRY_SIZE, static_cast<int64_t>(ENTRY_SIZE) * index))
        return false;
    char *offsetEnd, *lengthEnd;
    place->offset = strtoll(entry, &offsetEnd, 10);
    const int64_t length = strtoll(offsetEnd, &lengthEnd, 10);
    place->length = clampTo32(length);
    return offsetEnd != entry && lengthEnd != offsetEnd && place->offset >= 0 && length >= 0 &&
           length <= INT32_MAX;
}

// Whether the file has the text: a damaged length must not cost the memory it asks for.
static bool hasText(int fd, const TextPlace &place) {
    char last;
    return place.length == 0 || (place.offset <= INT64_MAX - place.length &&
                                 readAt(fd, &last, 1, place.offset + place.length - 1));
}

static char *readText(int fd, const TextPlace &place) {
    if (!hasText(fd, place))
        return nullptr;
    const size_t length = static_cast<size_t>(place.length);
    char *text = static_cast<char *>(malloc(length + 1));
    if (text == nullptr)
        return nullptr;
    if (!readAt(fd, text, length, place.offset)) {
        free(text);
        return nullptr;
    }
    text[length] = '\0';
    return text;
}

static char *loadText(int fd, int32_t index) {
    TextPlace place;
    return readDirectoryEntry(fd, index, &place) ? readText(fd, place) : nullptr;
}

static const char *currentLogRoot() {
    if (logRoot == nullptr) {
        const char *root = getenv("LOGROOT");
        logRoot = mkcopy(root != nullptr ? root : DEFAULT_LOG_ROOT);
    }
    return logRoot != nullptr ? logRoot : DEFAULT_LOG_ROOT;
}

static CharBuffer *defaultTextFormatPath() {
    const char *name = getenv("TEXTLOGFMT");
    if (name == nullptr || *name == '\0')
        name = TEXT_FORMAT_FILE;
    CharBuffer *path = mkCharBuffer(0);
    const bool filled = strchr(name, '/') != nullptr
                            ? putStrCharBuffer(path, name) != nullptr
                            : fmtCharBuffer(path, "%s/%s", currentLogRoot(), name) >= 0;
    if (filled)
        return path;
    freeCharBuffer(path); // the next lookup tries again
    return nullptr;
}

static bool openTextFormatFile() {
    ExpansionSettings &own = expansionSettings;
    if (own.textFmtFd >= 0)
        return true;
    if (own.textFmtPath == nullptr)
        own.textFmtPath = defaultTextFormatPath();
    if (own.textFmtPath == nullptr)
        return false;
    own.textFmtFd = open(own.textFmtPath->text, O_RDONLY | O_CLOEXEC);
    return own.textFmtFd >= 0;
}

// The smallest multiple of the step above the index, as slots; the new ones are empty.
static bool growCacheFor(int32_t index) {
    ExpansionSettings &own = expansionSettings;
    if (index < own.textFmtCapacity)
        return true;
    const int64_t capacity = (index + CACHE_STEP) / CACHE_STEP * CACHE_STEP;
    if (capacity > INT32_MAX)
        return false;
    char **cache = static_cast<char **>(calloc(static_cast<size_t>(capacity), sizeof(char *)));
    if (cache == nullptr)
        return false;
    if (own.textFmtCache != nullptr)
        memcpy(cache, own.textFmtCache, static_cast<size_t>(own.textFmtCapacity) * sizeof(char *));
    free(own.textFmtCache);
    own.textFmtCache = cache;
    own.textFmtCapacity = static_cast<int32_t>(capacity);
    return true;
}

char *getExpandFmt(int32_t index) {
    ExpansionSettings &own = expansionSettings;
    if (index < 0)
        return nullptr;
    if (index < own.textFmtCapacity && own.textFmtCache[index] != nullptr)
        return own.textFmtCache[index];
    if (!openTextFormatFile())
        return nullptr;
    // Read before the cache grows: a damaged index must not cost the memory for its slot.
    char *text = loadText(own.textFmtFd, index);
    if (text == nullptr)
        return nullptr;
    if (!growCacheFor(index)) {
        free(text);
        return nullptr;
    }
    own.textFmtCache[index] = text;
    return text;
}

void endExpandFmt(void) {
    ExpansionSettings &own = expansionSettings;
    if (own.textFmtFd < 0)
        return;
    close(own.textFmtFd);
    own.textFmtFd = -1;
    for (int32_t i = 0; i < own.textFmtCapacity; ++i) {
        freecopy(own.textFmtCache[i]);
        own.textFmtCache[i] = nullptr;
    }
}

char *setExpandFmt(const char *path) {
    ExpansionSettings &own = expansionSettings;
    // First: what was handed in may be the old path, or a text of the cache that is now dropped.
    CharBuffer *stored = mkCharBuffer(0);
    char *text = putStrCharBuffer(stored, path);
    if (text == nullptr) {
        freeCharBuffer(stored);
        return nullptr;
    }
    endExpandFmt();
    freeCharBuffer(own.textFmtPath);
    own.textFmtPath = stored;
    return text;
}

// The expansion format.

// Checks "(", white space, "%" and one of the letters. Null when something else stands there, else
// what follows the ")" expected behind them; whether it is one is left to the expansion. Kept.
static const char *skipParenthesized(const char *text, const char *letters) {
    text = skipSpace(text + 1);
    if (*text != '%' || text[1] == '\0' || strchr(letters, text[1]) == nullptr)
        return nullptr;
    text = skipSpace(text + 2);
    return *text != '\0' ? text + 1 : text;
}

static bool isValidFormat(const char *format) {
    while (*format != '\0') {
        if (*format++ != '%')
            continue;
        const char letter = *format;
        if (letter == '\0')
            break;
        ++format;
        if (*format != '(' || (letter != 'P' && letter != 'M'))
            continue;
        format = skipParenthesized(format, letter == 'P' ? "SsdD" : "Rr");
        if (format == nullptr)
            return false;
    }
    return true;
}

char *getExpansionFmt(void) {
    return expansionSettings.format;
}

// Installs a copy; false when memory is exhausted.
static bool installFormat(const char *format) {
    char *copy = mkcopy(format);
    if (copy == nullptr)
        return false;
    freecopy(expansionSettings.format);
    expansionSettings.format = copy;
    expansionSettings.usesSynthetic = strchr(copy, '@') != nullptr;
    return true;
}

// An invalid format is told of, and refused.
static bool acceptsFormat(const char *format) {
    const bool isValid = isValidFormat(format);
    if (!isValid)
        fprintf(stderr, "Invalid expansion format - %s\n", format);
    return isValid;
}

void chgExpansionFmt(const char *format) {
    if (format != nullptr && acceptsFormat(format))
        installFormat(format);
}

// Wrapping and visible mode.

int32_t getExpansionCutoff(void) {
    return expansionSettings.cutoff;
}

int32_t chgExpansionCutoff(int32_t column) {
    const int32_t previous = expansionSettings.cutoff;
    expansionSettings.cutoff = column;
    return previous;
}

char *getContinuationPrefix(void) {
    return expansionSettings.contPrefix;
}

int32_t chgContinuationPrefix(const char *prefix) {
    ExpansionSettings &own = expansionSettings;
    char *copy = mkcopy(prefix); // before the old one goes: it may be the same text
    if (copy == nullptr && prefix != nullptr)
        return own.contPrefixWidth;
    freecopy(own.contPrefix);
    own.contPrefix = copy;
    own.contPrefixLength = copy == nullptr ? 0 : clampTo32(static_cast<int64_t>(strlen(copy)));
    own.contPrefixWidth = visualWidth(copy, 0);
    return own.contPrefixWidth;
}

int getVisible(void) {
    return expansionSettings.visible;
}

int setVisible(int visible) {
    const int previous = expansionSettings.visible;
    expansionSettings.visible = visible;
    return previous;
}

// How far a byte that is neither printable nor moves the cursor advances it: in visible mode it
// shows in octal in angle brackets. Bytes above 0x7F count as 3, narrower than they show. Kept.
static int hiddenWidth(char ch) {
    const signed char value = static_cast<signed char>(ch);
    return 3 + (value >= 8 ? 1 : 0) + (value >= 64 ? 1 : 0);
}

int32_t visualWidth(const char *text, int32_t start) {
    const bool visible = expansionSettings.visible != 0;
    int64_t origin = start, column = start;
    for (; text != nullptr && *text != '\0'; ++text) {
        const char ch = *text;
        if (ch == '\n' || ch == '\f' || ch == '\r')
            origin = column = 0;
        else if (visible)
            column += ch == '\b' || ch == '\t' ? 2 : isPrintByte(ch) ? 1 : hiddenWidth(ch);
        else if (ch == '\b')
            column = column > 0 ? column - 1 : 0;
        else if (ch == '\t')
            column %= 8; // not the next tab stop. Kept: formats count on it.
        else if (isPrintByte(ch))
            ++column;
    }
    return clampTo32(column - origin);
}

// The environment. What there is no memory for now is asked for again by the next expansion.

static bool settleFormat() {
    if (expansionSettings.format != nullptr)
        return true;
    const char *format = getenv("LOGFORMAT");
    return installFormat(format != nullptr && acceptsFormat(format) ? format : DEFAULT_FORMAT);
}

static bool settlePrefix() {
    const char *prefix = getenv("LOGCONTPREFIX");
    if (expansionSettings.contPrefix != nullptr || prefix == nullptr)
        return true;
    chgContinuationPrefix(prefix);
    return expansionSettings.contPrefix != nullptr;
}

static bool settleCutoff() {
    if (expansionSettings.cutoff >= 0)
        return true;
    const char *column = getenv("LOGCOLUMN");
    const int32_t cutoff = column == nullptr ? 0 : clampTo32(strtol(column, nullptr, 10));
    if (cutoff != 0 && !settlePrefix())
        return false;
    expansionSettings.cutoff = cutoff;
    return true;
}

int settleExpansionSettings(void) {
    return settleFormat() && settleCutoff() ? 1 : 0;
}
