#include "clipboard.h"

#include "../buffers/arrays.h"
#include "../buffers/charBuffer.h"
#include "../buffers/charBufferRoom.h"
#include "../core/mkcopy.h"
#include "../options/options.h"
#include "../options/lineReader.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert(sizeof(void *) != 4 ||
              (offsetof(Clipboard, entries) == 12 && sizeof(Clipboard) == 16));
static_assert(sizeof(ClipEntry) == 4 * sizeof(char *));

static constexpr uint32_t READER_MODES =
    5; // newlines dropped; backslashes and open quotes join lines
static constexpr uint32_t WRITE_MASK = CLIP_MODIFIED | CLIP_EXPANDED;
static constexpr char QUOTED_CHARACTERS[] = " \t'\"`|^<>;#&[]{}()$\n\r\f\b";
static constexpr mode_t NEW_FILE_MODE = 0666; // less the umask
static constexpr mode_t SET_ID_BITS = S_ISUID | S_ISGID;
static constexpr int MAXIMUM_ROUNDS = 100; // of opening a file that is replaced meanwhile

// In place of a descriptor.
static constexpr int NOT_OPENED = -1, NOT_LOCKED = -2, NOT_EMPTIED = -3;

static const char *skipBlanks(const char *text) {
    while (isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    return text;
}

// Copies to where there is room; returns the end.
static char *copyTo(char *place, const char *text, size_t length) {
    if (length > 0)
        memcpy(place, text, length);
    return place + length;
}

static void freeTexts(ClipEntry *entry) {
    freecopy(entry->comment);
    freecopy(entry->name);
    freecopy(entry->value);
    freecopy(entry->trailer);
}

// ---- opening ----

// Waits for the exclusive lock on the whole file.
static bool lockWhole(int fd) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    while (fcntl(fd, F_SETLKW, &lock) == -1)
        if (errno != EINTR)
            return false;
    return true;
}

static void closeKeepingErrno(int fd) {
    const int kept = errno;
    close(fd);
    errno = kept;
}

// Whether the path still names the open file: who waited for the lock may hold that of a file
// removed meanwhile.
static bool isStillNamed(int fd, const char *path) {
    struct stat open, named;
    return fstat(fd, &open) == 0 && stat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

// A descriptor of the file with the lock held; NOT_OPENED or NOT_LOCKED with errno. Where the path
// names another file each time the lock is granted, the last one is taken as it is.
static int openLocked(const char *path, int flags) {
    for (int round = 1;; ++round) {
        const int fd = open(path, O_RDWR | O_CLOEXEC | flags, NEW_FILE_MODE);
        if (fd == -1)
            return NOT_OPENED;
        if (!lockWhole(fd)) {
            closeKeepingErrno(fd);
            return NOT_LOCKED;
        }
        if (isStillNamed(fd, path) || round == MAXIMUM_ROUNDS)
            return fd;
        close(fd);
    }
}

// As openLocked, emptied under the lock; what has no length, a device or a FIFO, is taken as it is.
static int openEmptied(const char *path) {
    const int fd = openLocked(path, O_CREAT);
    if (fd < 0 || ftruncate(fd, 0) == 0 || errno == EINVAL)
        return fd;
    closeKeepingErrno(fd);
    return NOT_EMPTIED;
}

static Clipboard *makeClipboard(const char *path, FILE *stream) {
    Clipboard *clipboard = static_cast<Clipboard *>(calloc(1, sizeof(Clipboard)));
    if (clipboard == nullptr)
        return nullptr;
    clipboard->path = mkcopy(path);
    clipboard->stream = stream;
    if (clipboard->path == nullptr) {
        free(clipboard);
        return nullptr;
    }
    return clipboard;
}

// Takes the descriptor over; null and closed on failure.
static Clipboard *clipboardOn(const char *path, int fd, const char *mode) {
    if (fd < 0)
        return nullptr;
    FILE *stream = fdopen(fd, mode);
    if (stream == nullptr) {
        closeKeepingErrno(fd);
        return nullptr;
    }
    Clipboard *clipboard = makeClipboard(path, stream);
    if (clipboard == nullptr)
        fclose(stream);
    return clipboard;
}

Clipboard *newClipboard(const char *path) {
    if (path == nullptr)
        return nullptr;
    return clipboardOn(path, openEmptied(path), "w+");
}

Clipboard *modifyClipboard(const char *path) {
    if (path == nullptr)
        return nullptr;
    int fd = openLocked(path, 0);
    // Not emptied here: whoever else made the file since may have written into it.
    if (fd == NOT_OPENED)
        fd = openLocked(path, O_CREAT);
    return clipboardOn(path, fd, "r+");
}

// ---- entries ----

static ArrayDescriptor *entriesOf(const Clipboard *clipboard) {
    return clipboard == nullptr ? nullptr : arrayValidDescriptor(clipboard->entries);
}

static ClipEntry *entryAt(const ArrayDescriptor *entries, uint32_t position) {
    return static_cast<ClipEntry *>(entries->storage) + position;
}

static bool hasName(const ClipEntry *entry, const char *name) {
    if (name == nullptr || entry->name == nullptr)
        return name == entry->name;
    return *entry->name == *name && strcmp(entry->name, name) == 0;
}

ClipEntry *getClipEntry(Clipboard *clipboard, const char *name) {
    const ArrayDescriptor *entries = entriesOf(clipboard);
    if (entries == nullptr)
        return nullptr;
    for (uint32_t position = 0; position < entries->count; ++position)
        if (hasName(entryAt(entries, position), name))
            return entryAt(entries, position);
    return nullptr;
}

char *findClipEntryValue(Clipboard *clipboard, const char *name) {
    if (name == nullptr || *name == '\0')
        return nullptr;
    const ClipEntry *entry = getClipEntry(clipboard, name);
    return entry == nullptr ? nullptr : entry->value;
}

// A text that there is; false when it cannot be copied.
static bool copyText(char **copy, const char *text) {
    return text == nullptr || (*copy = mkcopy(text)) != nullptr;
}

// Copies the four texts; false, nothing kept, when one cannot be copied.
static bool copyTexts(ClipEntry *copy, const char *comment, const char *name, const char *value,
                      const char *trailer) {
    *copy = {};
    const bool whole = copyText(&copy->comment, comment) && copyText(&copy->name, name) &&
                       copyText(&copy->value, value) && copyText(&copy->trailer, trailer);
    if (!whole)
        freeTexts(copy);
    return whole;
}

static void replaceText(char **place, char *text) {
    freecopy(*place);
    *place = text;
}

static int replaceTexts(Clipboard *clipboard, ClipEntry *entry, const char *comment,
                        const char *value, const char *trailer) {
    ClipEntry copy; // made before anything is released: the texts may be the entry's own
    if (!copyTexts(&copy, comment, nullptr, value, trailer))
        return 0;
    replaceText(&entry->value, copy.value);
    if (comment != nullptr)
        replaceText(&entry->comment, copy.comment);
    if (trailer != nullptr)
        replaceText(&entry->trailer, copy.trailer);
    clipboard->flags |= CLIP_MODIFIED;
    return 1;
}

// Appends the entry, or releases its texts.
static bool putOrFree(const Clipboard *clipboard, ClipEntry *entry) {
    if (arrayPut(clipboard->entries, entry) != nullptr)
        return true;
    freeTexts(entry);
    return false;
}

int addClipEntry(Clipboard *clipboard, const char *comment, const char *name, const char *value,
                 const char *trailer) {
    if (entriesOf(clipboard) == nullptr || name == nullptr || *name == '\0')
        return 0;
    ClipEntry *existing = getClipEntry(clipboard, name);
    if (existing != nullptr)
        return replaceTexts(clipboard, existing, comment, value, trailer);
    ClipEntry entry;
    if (!copyTexts(&entry, comment, name, value, trailer) || !putOrFree(clipboard, &entry))
        return 0;
    clipboard->flags |= CLIP_MODIFIED;
    return 1;
}

int insertClipEntry(Clipboard *clipboard, const char *before, const char *comment, const char *name,
                    const char *value, const char *trailer) {
    if (name == nullptr || *name == '\0')
        return 0;
    const ClipEntry *place = getClipEntry(clipboard, before);
    if (place == nullptr || findClipEntryValue(clipboard, name) != nullptr)
        return 0;
    // By position: appending may move the entries.
    const size_t position = static_cast<size_t>(place - entryAt(entriesOf(clipboard), 0));
    ClipEntry entry;
    if (!copyTexts(&entry, comment, name, value, trailer))
        return 0;
    if (arrayPut(clipboard->entries, nullptr) == nullptr) {
        freeTexts(&entry);
        return 0;
    }
    const ArrayDescriptor *entries = entriesOf(clipboard);
    ClipEntry *freed = entryAt(entries, 0) + position;
    memmove(freed + 1, freed, (entries->count - 1 - position) * sizeof(ClipEntry));
    *freed = entry;
    clipboard->flags |= CLIP_MODIFIED;
    return 1;
}

int deleteClipEntry(Clipboard *clipboard, const char *name) {
    ClipEntry *entry = getClipEntry(clipboard, name);
    if (entry == nullptr)
        return 0;
    freeTexts(entry);
    arrayDel(clipboard->entries, entry);
    clipboard->flags |= CLIP_MODIFIED;
    return 1;
}

int32_t expandClipEntries(Clipboard *clipboard) {
    if (clipboard == nullptr)
        return -1;
    const ArrayDescriptor *entries = entriesOf(clipboard);
    int32_t changed = 0;
    for (uint32_t position = 0; entries != nullptr && position < entries->count; ++position) {
        ClipEntry *entry = entryAt(entries, position);
        if (entry->value == nullptr || *entry->value == '\0')
            continue;
        char *expanded = shellVariable(entry->value);
        if (expanded == nullptr || strcmp(expanded, entry->value) == 0) {
            freecopy(expanded);
            continue;
        }
        replaceText(&entry->value, expanded);
        clipboard->flags |= CLIP_EXPANDED;
        ++changed;
    }
    return changed;
}

uint32_t getClipboardFlags(Clipboard *clipboard) {
    return clipboard == nullptr ? 0 : clipboard->flags;
}

uint32_t setClipboardFlags(Clipboard *clipboard, uint32_t flags) {
    const uint32_t previous = getClipboardFlags(clipboard);
    if (clipboard != nullptr)
        clipboard->flags = flags;
    return previous;
}

uint32_t addClipboardFlags(Clipboard *clipboard, uint32_t bits) {
    return setClipboardFlags(clipboard, getClipboardFlags(clipboard) | bits);
}

uint32_t removeClipboardFlags(Clipboard *clipboard, uint32_t bits) {
    return setClipboardFlags(clipboard, getClipboardFlags(clipboard) & ~bits);
}

// ---- loading ----

static void releaseEntries(Clipboard *clipboard) {
    const ArrayDescriptor *entries = entriesOf(clipboard);
    if (entries == nullptr)
        return;
    for (uint32_t position = 0; position < entries->count; ++position)
        freeTexts(entryAt(entries, position));
    arrayClose(clipboard->entries);
    clipboard->entries = 0;
}

// The comment lines read so far that no entry has taken yet; text is null while there are none.
struct PendingComment {
    CharBuffer *lines = nullptr;
    PendingComment() = default;
    ~PendingComment() { freeCharBuffer(lines); }
    PendingComment(const PendingComment &) = delete;
    PendingComment &operator=(const PendingComment &) = delete;

    bool append(const char *line) {
        if (lines == nullptr)
            lines = mkCharBuffer(0);
        return putStrCharBuffer(lines, line) != nullptr && putStrCharBuffer(lines, "\n") != nullptr;
    }
    char *take() {
        char *text = detachCharBuffer(lines);
        lines = nullptr;
        return text;
    }
};

// The next assignment on the line behind a value, or null when what follows is the entry's trailer.
static const char *nextAssignment(const char *rest) {
    if (rest == nullptr)
        return nullptr;
    rest = skipBlanks(rest);
    if (*rest != ';')
        return nullptr;
    rest = skipBlanks(rest + 1);
    return *rest == '#' ? nullptr : rest;
}

// False, as in the rest of the loading, when memory is exhausted.
static bool loadEntry(const Clipboard *clipboard, PendingComment &pending, const char *name,
                      const char *value, const char *trailer) {
    ClipEntry entry;
    if (!copyTexts(&entry, nullptr, name, value, trailer))
        return false;
    entry.comment = pending.take();
    return putOrFree(clipboard, &entry);
}

namespace {

// A line that is a single assignment, the value plain or in double quotes as a whole: what most
// lines are, and what this file writes.
struct SimpleLine {
    const char *name, *value;
    size_t nameLength, valueLength;

    bool cut(const char *line);
};

// What a byte may be in a simple line. Bytes above ASCII are left to the locale.
enum : uint8_t { IN_NAME = 1, IN_VALUE = 2, IN_QUOTES = 4 };
struct SimpleBytes {
    uint8_t of[256] = {};
    constexpr SimpleBytes() {
        for (unsigned byte = 1; byte < 256; ++byte) {
            const bool isDigit = byte >= '0' && byte <= '9';
            const bool isLetter = (byte | 0x20) >= 'a' && (byte | 0x20) <= 'z';
            of[byte] = isDigit || isLetter || byte == '_' ? IN_NAME | IN_VALUE | IN_QUOTES
                       : byte > ' ' && byte <= '~'        ? IN_VALUE | IN_QUOTES
                                                          : IN_QUOTES;
        }
        of[u8'"'] = of[u8'\\'] = 0;
        of[u8'\''] = of[u8'`'] = of[u8'#'] = of[u8';'] = IN_QUOTES;
    }
};

} // namespace

static size_t lengthOfRun(const char *text, unsigned kind) {
    static constexpr SimpleBytes BYTES;
    size_t length = 0;
    while ((BYTES.of[static_cast<unsigned char>(text[length])] & kind) != 0)
        ++length;
    return length;
}

bool SimpleLine::cut(const char *line) {
    name = line;
    nameLength = lengthOfRun(name, IN_NAME);
    if (nameLength == 0 || (*name >= '0' && *name <= '9') || name[nameLength] != '=')
        return false;
    value = name + nameLength + 1;
    if (*value != '"') {
        valueLength = lengthOfRun(value, IN_VALUE);
        return valueLength > 0 && value[valueLength] == '\0';
    }
    ++value;
    valueLength = lengthOfRun(value, IN_QUOTES);
    return value[valueLength] == '"' && value[valueLength + 1] == '\0';
}

static char *copySpan(const char *text, size_t length) {
    char *copy = static_cast<char *>(malloc(length + 1));
    if (copy != nullptr)
        *copyTo(copy, text, length) = '\0';
    return copy;
}

static bool loadSimple(const Clipboard *clipboard, const SimpleLine &line,
                       PendingComment &pending) {
    ClipEntry entry = {nullptr, copySpan(line.name, line.nameLength),
                       copySpan(line.value, line.valueLength), nullptr};
    if (entry.name == nullptr || entry.value == nullptr) {
        freeTexts(&entry);
        return false;
    }
    entry.comment = pending.take();
    return putOrFree(clipboard, &entry);
}

// As parseXeqY cuts a line, of any kind.
static bool loadStatements(const Clipboard *clipboard, const char *line, PendingComment &pending) {
    char *name, *value, *rest;
    errno = 0; // tells exhausted memory from a line that is no assignment
    while (line != nullptr && parseXeqY(0, 0, line, &name, &value, &rest) != 0) {
        line = nextAssignment(rest);
        if (!loadEntry(clipboard, pending, name, value, line == nullptr ? rest : nullptr))
            return false;
        errno = 0;
    }
    return errno != ENOMEM;
}

static bool loadLine(const Clipboard *clipboard, const char *line, PendingComment &pending) {
    SimpleLine simple;
    return simple.cut(line) ? loadSimple(clipboard, simple, pending)
                            : loadStatements(clipboard, line, pending);
}

static bool isCommentLine(const char *line) {
    line = skipBlanks(line);
    return *line == '\0' || *line == '#';
}

// Comment lines of a file without any assignment are not kept.
static bool keepFinalComment(const Clipboard *clipboard, PendingComment &pending) {
    if (pending.lines == nullptr || entriesOf(clipboard)->count == 0)
        return true;
    ClipEntry entry = {pending.take(), nullptr, nullptr, nullptr};
    return putOrFree(clipboard, &entry);
}

// False as well when the file cannot be read to its end: what is missing would be lost for good
// with the next rewriting.
static bool loadEntries(const Clipboard *clipboard) {
    PendingComment pending;
    LineReader reader(READER_MODES);
    for (const char *line; (line = reader.next(clipboard->stream, JOIN_QUOTED)) != nullptr;)
        if (isCommentLine(line) ? !pending.append(line) : !loadLine(clipboard, line, pending))
            return false;
    if (feof(clipboard->stream) == 0 || ferror(clipboard->stream) != 0)
        return false;
    return keepFinalComment(clipboard, pending);
}

uint32_t getClipboard(Clipboard *clipboard) {
    if (clipboard == nullptr || clipboard->stream == nullptr)
        return 0;
    releaseEntries(clipboard);
    rewind(clipboard->stream);
    clipboard->flags = 0;
    clipboard->entries = arrayOpen(0, sizeof(ClipEntry));
    if (clipboard->entries == 0)
        return 0;
    if (!loadEntries(clipboard))
        releaseEntries(clipboard);
    return clipboard->entries;
}

// ---- writing ----

namespace {

// What writing a value takes.
struct Quoting {
    size_t length = 0;
    size_t escapes = 0; // characters that a backslash goes before
    bool isQuoted = false;

    explicit Quoting(const char *text);
    size_t written() const { return isQuoted ? length + escapes + 2 : length; }
};

// What each character of a value asks for.
enum : uint8_t { ESCAPED = 1, QUOTED = 2, END = 4 };
struct CharacterTable {
    uint8_t of[256] = {};
    constexpr CharacterTable() {
        for (const char ch : QUOTED_CHARACTERS)
            of[static_cast<unsigned char>(ch)] = QUOTED;
        of[u8'"'] = QUOTED | ESCAPED;
        of[u8'\\'] = ESCAPED;
        of[0] = END;
    }
};

} // namespace

static constexpr CharacterTable CHARACTERS;

static unsigned characterOf(char ch) {
    return CHARACTERS.of[static_cast<unsigned char>(ch)];
}

Quoting::Quoting(const char *text) {
    unsigned seen = 0;
    for (unsigned what; ((what = characterOf(text[length])) & END) == 0; ++length) {
        seen |= what;
        escapes += what & ESCAPED;
    }
    isQuoted = (seen & QUOTED) != 0;
}

// Where there is room for it; returns the end.
static char *quoteTo(char *place, const char *text, const Quoting &quoting) {
    if (!quoting.isQuoted)
        return copyTo(place, text, quoting.length);
    *place++ = '"';
    for (; *text != '\0'; ++text) {
        if ((characterOf(*text) & ESCAPED) != 0)
            *place++ = '\\';
        *place++ = *text;
    }
    *place++ = '"';
    return place;
}

int quotePuts(const char *text, FILE *stream) {
    if (text == nullptr || stream == nullptr)
        return 0;
    const Quoting quoting(text);
    char *quoted = static_cast<char *>(malloc(quoting.written() + 1));
    if (quoted == nullptr)
        return 0;
    *quoteTo(quoted, text, quoting) = '\0';
    const bool whole = fputs(quoted, stream) != EOF;
    free(quoted);
    return whole && ferror(stream) == 0 ? 1 : 0;
}

static size_t lengthOf(const char *text) {
    return text == nullptr ? 0 : strlen(text);
}

// False when memory ran out.
static bool putEntry(CharBuffer *out, const ClipEntry *entry) {
    const size_t comment = lengthOf(entry->comment), name = lengthOf(entry->name);
    const size_t trailer = lengthOf(entry->trailer);
    const char *value = entry->value == nullptr ? "" : entry->value;
    const Quoting quoting(value);
    // With "=" and the new-line.
    if (!reserveCharBuffer(out, uint64_t{comment} + name + quoting.written() + trailer + 2))
        return false;
    char *place = copyTo(out->next, entry->comment, comment);
    if (entry->name != nullptr) {
        place = copyTo(place, entry->name, name);
        *place++ = '=';
        place = quoteTo(place, value, quoting);
        place = copyTo(place, entry->trailer, trailer);
        *place++ = '\n';
    }
    out->next = place;
    return true;
}

// The new text of the file, whole before the file is touched.
struct NewText {
    CharBuffer *text = mkCharBuffer(4096);
    int64_t *ends = nullptr; // where each entry's text ends
    ~NewText() {
        freeCharBuffer(text);
        free(ends);
    }
    bool compose(const ArrayDescriptor *entries) {
        ends = static_cast<int64_t *>(calloc(entries->count + size_t{1}, sizeof(int64_t)));
        bool whole = text != nullptr && ends != nullptr;
        for (uint32_t position = 0; whole && position < entries->count; ++position) {
            whole = putEntry(text, entryAt(entries, position));
            ends[position] = text->next - text->text;
        }
        return whole;
    }
};

// Gives the file the owner and the permissions of another.
static void takeAfter(int fd, const struct stat *old) {
    // The owner first: changing it may clear permission bits. What this process may not do stays
    // undone, and then nothing runs as somebody else.
    const bool isOwned = fchown(fd, old->st_uid, old->st_gid) == 0;
    const mode_t permissions = old->st_mode & (isOwned ? 07777 : 07777 & ~SET_ID_BITS);
    if (fchmod(fd, permissions) == -1)
        errno = 0;
}

// A text "<folder of the path>/.clipXXXXXX", to be released with free.
static char *temporaryName(const char *path) {
    static constexpr char NAME[] = ".clipXXXXXX";
    const char *slash = strrchr(path, '/');
    const size_t folder = slash == nullptr ? 0 : static_cast<size_t>(slash + 1 - path);
    char *name = static_cast<char *>(malloc(folder + sizeof NAME));
    if (name != nullptr) {
        memcpy(name, path, folder);
        memcpy(name + folder, NAME, sizeof NAME);
    }
    return name;
}

// A file made anew in place of one that cannot be reopened, with that one's owner and permissions;
// -1, the old one still there, if none can be. It takes the path only when it is locked, so that
// nobody finds it empty.
static int recreate(const Clipboard *clipboard) {
    struct stat old;
    if (fstat(fileno(clipboard->stream), &old) == -1) {
        old.st_mode = NEW_FILE_MODE;
        old.st_uid = getuid();
        old.st_gid = getgid();
    }
    char *name = temporaryName(clipboard->path);
    int fd = name == nullptr ? -1 : mkostemp(name, O_CLOEXEC);
    if (fd != -1) {
        takeAfter(fd, &old);
        if (!lockWhole(fd) || rename(name, clipboard->path) == -1) {
            unlink(name);
            close(fd);
            fd = -1;
        }
    }
    free(name);
    return fd;
}

// The emptied file to write to: the one already open if it is empty, else a second descriptor,
// locked as well; negative if there is none.
static int openForRewriting(const Clipboard *clipboard) {
    struct stat status;
    const int current = fileno(clipboard->stream);
    if (fstat(current, &status) == 0 && status.st_size == 0 && lseek(current, 0, SEEK_SET) == 0)
        return current;
    const int fd = openEmptied(clipboard->path);
    return fd == NOT_OPENED ? recreate(clipboard) : fd;
}

static int64_t writeWhole(int fd, const char *bytes, int64_t count) {
    int64_t written = 0;
    while (written < count) {
        const ssize_t step = write(fd, bytes + written, static_cast<size_t>(count - written));
        if (step > 0)
            written += step;
        else if (step == 0 || errno != EINTR)
            break;
    }
    return written;
}

// Writes the entries; returns how many with a name were written whole, -1 when the text could not
// be composed or the file not be had.
static int32_t rewriteFile(const Clipboard *clipboard, const ArrayDescriptor *entries) {
    NewText composed;
    if (!composed.compose(entries))
        return -1;
    const int fd = openForRewriting(clipboard);
    if (fd < 0)
        return -1;
    const int64_t written =
        writeWhole(fd, composed.text->text, composed.text->next - composed.text->text);
    // Closing any descriptor of the file drops the lock: this one only now that all is written, the
    // old one after it.
    if (fd != fileno(clipboard->stream))
        close(fd);
    int32_t count = 0;
    for (uint32_t position = 0; position < entries->count; ++position)
        if (entryAt(entries, position)->name != nullptr && composed.ends[position] <= written)
            ++count;
    return count;
}

int32_t closeClipboard(Clipboard *clipboard) {
    const ArrayDescriptor *entries = entriesOf(clipboard);
    if (entries == nullptr || clipboard->stream == nullptr)
        return 0;
    const bool isChanged = (clipboard->flags & WRITE_MASK) == CLIP_MODIFIED;
    const int32_t result = isChanged ? rewriteFile(clipboard, entries) : 0;
    releaseEntries(clipboard);
    fclose(clipboard->stream);
    freecopy(clipboard->path);
    free(clipboard);
    return result;
}

int removeClipboard(const char *path) {
    return path == nullptr ? -1 : unlink(path);
}
