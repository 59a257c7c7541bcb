#include "clearCopy.h"

#include "charBufferRoom.h"
#include "cntlchrs.h"

#include <ctype.h>
#include <stddef.h>
#include <string.h>

static constexpr unsigned HIGH_BIT = 0x80;
static constexpr unsigned LOW_BITS = 0x7F;
static constexpr int MODE_COUNT = 8; // the modes above render as nothing

// The old terminal vocabulary, DCL included. Kept: callers rely on the spellings.
static constexpr char UPPER_NAMES[][4] = {
    "NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "NL",
    "VT",  "NP",  "CR",  "SO",  "SI",  "DLE", "DCL", "DC2", "DC3", "DC4", "NAK",
    "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US",  "SP"};
static constexpr char LOWER_NAMES[][4] = {
    "nul", "soh", "stx", "etx", "eot", "enq", "ack", "bel", "bs",  "ht",  "nl",
    "vt",  "np",  "cr",  "so",  "si",  "dle", "dcl", "dc2", "dc3", "dc4", "nak",
    "syn", "etb", "can", "em",  "sub", "esc", "fs",  "gs",  "rs",  "us",  "sp"};
static_assert(sizeof UPPER_NAMES == (CNTL_SP + 1) * 4 && sizeof LOWER_NAMES == (CNTL_SP + 1) * 4);

// By mode: space, tab, new-line, form feed, carriage return.
static constexpr char WHITE_TEXTS[MODE_COUNT][5][6] = {
    {"< >", "<\\t>", "<\\n>", "<\\f>", "<\\r>"},
    {".", ".", ".", ".", "."},
    {" ", " ", " ", " ", " "},
    {"<040>", "<011>", "<012>", "<014>", "<015>"},
    {"<20>", "<09>", "<0a>", "<0c>", "<0d>"},
    {"< >", "<\\t>", "<\\n>", "<\\f>", "<\\r>"},
    {"<sp>", "<ht>", "<nl>", "<np>", "<cr>"},
    {"<SP>", "<HT>", "<NL>", "<NP>", "<CR>"},
};

static bool putSpan(CharBuffer *buffer, const char *bytes, size_t count) {
    if (static_cast<size_t>(buffer->limit - buffer->next) < count &&
        !reserveCharBuffer(buffer, count))
        return false;
    memcpy(buffer->next, bytes, count);
    buffer->next += count;
    return true;
}

static bool put(CharBuffer *buffer, unsigned ch) {
    const char byte = static_cast<char>(ch);
    return putSpan(buffer, &byte, 1);
}

static bool putText(CharBuffer *buffer, const char *text) {
    return putSpan(buffer, text, strlen(text));
}

// A rendering that is put together here, the longest being "<-\\001>".
struct Rendering {
    char bytes[8];
    size_t size;
};

static void add(Rendering *rendering, unsigned ch) {
    rendering->bytes[rendering->size++] = static_cast<char>(ch);
}

static Rendering opened(unsigned byte) {
    return {{'<', '-'}, (byte & HIGH_BIT) != 0 ? size_t{2} : size_t{1}};
}

static void addOctal(Rendering *rendering, unsigned byte) {
    add(rendering, '0' + (byte >> 6));
    add(rendering, '0' + (byte >> 3 & 7));
    add(rendering, '0' + (byte & 7));
}

static bool putClosed(CharBuffer *buffer, Rendering rendering) {
    add(&rendering, '>');
    return putSpan(buffer, rendering.bytes, rendering.size);
}

static bool renderEscape(CharBuffer *buffer, unsigned byte) {
    const unsigned ch = byte & LOW_BITS;
    Rendering rendering = opened(byte);
    if (!isprint(static_cast<int>(ch)))
        add(&rendering, '\\');
    if (isprint(static_cast<int>(ch)))
        add(&rendering, ch);
    else if (ch == CNTL_BS || ch == CNTL_VT)
        add(&rendering, ch == CNTL_BS ? 'b' : 'v');
    else
        addOctal(&rendering, ch);
    return putClosed(buffer, rendering);
}

static bool renderDot(CharBuffer *buffer, unsigned) {
    return put(buffer, '.');
}

static bool renderBlank(CharBuffer *buffer, unsigned) {
    return put(buffer, ' ');
}

static bool renderOctal(CharBuffer *buffer, unsigned byte) {
    Rendering rendering = opened(0);
    addOctal(&rendering, byte);
    return putClosed(buffer, rendering);
}

static bool renderHex(CharBuffer *buffer, unsigned byte) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    Rendering rendering = opened(0);
    add(&rendering, static_cast<unsigned char>(DIGITS[byte >> 4]));
    add(&rendering, static_cast<unsigned char>(DIGITS[byte & 0xF]));
    return putClosed(buffer, rendering);
}

// Delete has both bits of the test and stands raw in its brackets. Kept: callers rely on it.
static bool renderCaret(CharBuffer *buffer, unsigned byte) {
    const unsigned ch = byte & LOW_BITS;
    Rendering rendering = opened(byte);
    if ((byte & 0x60) == 0)
        add(&rendering, '^');
    add(&rendering, (byte & 0x60) != 0 ? ch : ch + 0x40);
    return putClosed(buffer, rendering);
}

static bool renderName(CharBuffer *buffer, unsigned byte, const char (*names)[4],
                       const char *deleteName) {
    const unsigned ch = byte & LOW_BITS;
    Rendering rendering = opened(byte);
    // A locale may call other characters unprintable than those that have a name.
    const bool isNamed = ch == CNTL_DEL || (ch <= CNTL_SP && !isprint(static_cast<int>(ch)));
    if (!isNamed)
        add(&rendering, ch);
    for (const char *at = ch == CNTL_DEL ? deleteName : names[ch]; isNamed && *at != '\0'; ++at)
        add(&rendering, static_cast<unsigned char>(*at));
    return putClosed(buffer, rendering);
}

static bool renderLower(CharBuffer *buffer, unsigned byte) {
    return renderName(buffer, byte, LOWER_NAMES, "del");
}

static bool renderUpper(CharBuffer *buffer, unsigned byte) {
    return renderName(buffer, byte, UPPER_NAMES, "DEL");
}

static constexpr bool (*RENDERERS[MODE_COUNT])(CharBuffer *buffer, unsigned byte) = {
    renderEscape, renderDot,   renderBlank, renderOctal,
    renderHex,    renderCaret, renderLower, renderUpper};

static bool render(CharBuffer *buffer, unsigned byte, int mode) {
    return mode >= MODE_COUNT || RENDERERS[mode](buffer, byte);
}

static bool renderWhite(CharBuffer *buffer, unsigned byte, int mode) {
    static constexpr char COLUMNS[] = {CNTL_SP, CNTL_HT, CNTL_NL, CNTL_NP, CNTL_CR};
    const char *column =
        static_cast<const char *>(memchr(COLUMNS, static_cast<int>(byte), sizeof COLUMNS));
    return mode >= MODE_COUNT || putText(buffer, WHITE_TEXTS[mode][column - COLUMNS]);
}

static bool putByte(CharBuffer *buffer, unsigned byte, int32_t flags) {
    const int mode = flags & CLEAR_MODE_MASK;
    if (isgraph(static_cast<int>(byte)))
        return put(buffer, byte);
    switch (byte) {
    case CNTL_BS:
        return flags & CLEAR_KEEP_BS ? put(buffer, byte) : render(buffer, byte, mode);
    case CNTL_SP:
        // One flag is enough for a space, a tab needs both. Kept: callers rely on it.
        return flags & (CLEAR_WHITE | CLEAR_SPACE) ? renderWhite(buffer, byte, mode)
                                                   : put(buffer, byte);
    case CNTL_HT:
        return flags & CLEAR_WHITE && flags & CLEAR_TAB ? renderWhite(buffer, byte, mode)
                                                        : put(buffer, byte);
    case CNTL_NL:
    case CNTL_NP:
    case CNTL_CR:
        if (flags & CLEAR_WHITE && !renderWhite(buffer, byte, mode))
            return false;
        return (flags & CLEAR_WHITE && !(flags & CLEAR_KEEP_WHITE)) || put(buffer, byte);
    default:
        return render(buffer, byte, mode);
    }
}

// The source with each backspace, and the character before it, left out; null when memory is
// exhausted.
static CharBuffer *eraseBackspaces(const char *source, size_t length) {
    CharBuffer *erased =
        mkCharBuffer(length < INT32_MAX ? static_cast<int32_t>(length) : INT32_MAX);
    if (erased == nullptr)
        return nullptr;
    for (size_t place = 0; place < length; ++place) {
        if (source[place] == CNTL_BS) {
            removeLastCharBufferChar(erased);
        } else if (!put(erased, static_cast<unsigned char>(source[place]))) {
            freeCharBuffer(erased);
            return nullptr;
        }
    }
    return erased;
}

// Bytes at the front that stand for themselves whatever the locale and the mode: the first is the
// least of them, "~" the last. Whole blocks, with a loop that the compiler makes a few instructions
// of.
static size_t countPlain(const char *source, size_t length, unsigned char first) {
    constexpr size_t BLOCK = 16;
    size_t place = 0;
    for (; length - place >= BLOCK; place += BLOCK) {
        unsigned char others = 0;
        for (size_t i = 0; i < BLOCK; ++i) {
            const auto distance = static_cast<unsigned char>(source[place + i] - first);
            others |= static_cast<unsigned char>(distance > '~' - first);
        }
        if (others != 0)
            break;
    }
    while (place < length && static_cast<unsigned char>(source[place] - first) <= '~' - first)
        ++place;
    return place;
}

static bool putBytes(CharBuffer *buffer, const char *source, size_t length, int32_t flags) {
    const unsigned char first = (flags & (CLEAR_WHITE | CLEAR_SPACE)) != 0 ? '!' : ' ';
    for (size_t place = 0; place < length; ++place) {
        const size_t plain = countPlain(source + place, length - place, first);
        if (plain > 0 && !putSpan(buffer, source + place, plain))
            return false;
        place += plain;
        if (place < length && !putByte(buffer, static_cast<unsigned char>(source[place]), flags))
            return false;
    }
    return putStrCharBuffer(buffer, nullptr) != nullptr;
}

static bool putErased(CharBuffer *buffer, const char *source, size_t length, int32_t flags) {
    CharBuffer *erased = eraseBackspaces(source, length);
    if (erased == nullptr)
        return false;
    const size_t left = static_cast<size_t>(erased->next - erased->text);
    const bool isDone = putBytes(buffer, erased->text, left, flags);
    freeCharBuffer(erased);
    return isDone;
}

static char *clearCopyBytes(CharBuffer *buffer, const char *source, size_t length, int32_t flags) {
    buffer->next = buffer->text;
    const bool erases =
        flags & CLEAR_BACKSPACE && length > 0 && memchr(source, CNTL_BS, length) != nullptr;
    if ((erases ? putErased : putBytes)(buffer, source, length, flags))
        return buffer->text;
    // Cut short: who reads the buffer all the same finds a terminated text.
    buffer->next = buffer->text;
    if (buffer->text != nullptr)
        *buffer->text = '\0';
    return nullptr;
}

static char *clearCopyDetached(const char *source, size_t length, int32_t flags) {
    CharBuffer *buffer = mkCharBuffer(0);
    if (buffer == nullptr)
        return nullptr;
    if (clearCopyBytes(buffer, source, length, flags) != nullptr)
        return detachCharBuffer(buffer);
    freeCharBuffer(buffer);
    return nullptr;
}

char *clearCopyBinaryCharBuffer(CharBuffer *buffer, const char *source, uint32_t length,
                                int32_t flags) {
    if (buffer == nullptr || source == nullptr)
        return nullptr;
    return clearCopyBytes(buffer, source, length, flags);
}

char *clearCopyCharBuffer(CharBuffer *buffer, const char *text, int32_t flags) {
    if (buffer == nullptr || text == nullptr)
        return nullptr;
    return clearCopyBytes(buffer, text, strlen(text), flags);
}

char *clearCopyBinary(const char *source, uint32_t length, int32_t flags) {
    return source == nullptr ? nullptr : clearCopyDetached(source, length, flags);
}

char *clearCopy(const char *text, int32_t flags) {
    return text == nullptr ? nullptr : clearCopyDetached(text, strlen(text), flags);
}
