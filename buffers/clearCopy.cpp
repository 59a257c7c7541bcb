#include "clearCopy.h"

#include "charBufferRoom.h"
#include "cntlchrs.h"

#include <ctype.h>
#include <stddef.h>
#include <stdlib.h>
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

namespace {

// What is shown in place of a byte, the longest being "<-\\001>"; all eight bytes can be copied at
// once.
struct Rendering {
    char bytes[7] = {};
    uint8_t size = 0;

    constexpr void add(unsigned ch) { bytes[size++] = static_cast<char>(ch); }
    constexpr void add(const char *text) {
        while (*text != '\0')
            bytes[size++] = *text++;
    }
};
static_assert(sizeof(Rendering) == 8);

} // namespace

// ---- the renderings of each mode, laid out when the library is compiled

// The printing characters of ASCII are printing in every locale.
static constexpr bool isPrinting(unsigned ch) {
    return ch >= ' ' && ch <= '~';
}

static constexpr Rendering opened(unsigned byte) {
    Rendering rendering;
    rendering.add((byte & HIGH_BIT) != 0 ? "<-" : "<");
    return rendering;
}

static constexpr void addOctal(Rendering &rendering, unsigned byte) {
    rendering.add('0' + (byte >> 6));
    rendering.add('0' + (byte >> 3 & 7));
    rendering.add('0' + (byte & 7));
}

static constexpr Rendering inEscape(unsigned byte) {
    const unsigned ch = byte & LOW_BITS;
    Rendering rendering = opened(byte);
    rendering.add(isPrinting(ch) ? "" : "\\");
    if (isPrinting(ch))
        rendering.add(ch);
    else if (ch == CNTL_BS || ch == CNTL_VT)
        rendering.add(ch == CNTL_BS ? 'b' : 'v');
    else
        addOctal(rendering, ch);
    rendering.add('>');
    return rendering;
}

static constexpr Rendering inOctal(unsigned byte) {
    Rendering rendering = opened(0);
    addOctal(rendering, byte);
    rendering.add('>');
    return rendering;
}

static constexpr Rendering inHex(unsigned byte) {
    constexpr char DIGITS[] = "0123456789abcdef";
    Rendering rendering = opened(0);
    rendering.add(static_cast<unsigned char>(DIGITS[byte >> 4]));
    rendering.add(static_cast<unsigned char>(DIGITS[byte & 0xF]));
    rendering.add('>');
    return rendering;
}

// Delete has both bits of the test and stands raw in its brackets. Kept: callers rely on it.
static constexpr Rendering inCaret(unsigned byte) {
    const unsigned ch = byte & LOW_BITS;
    Rendering rendering = opened(byte);
    const bool isPlain = (byte & 0x60) != 0;
    rendering.add(isPlain ? "" : "^");
    rendering.add(isPlain ? ch : ch + 0x40);
    rendering.add('>');
    return rendering;
}

static constexpr Rendering inNames(unsigned byte, const char (*names)[4], const char *deleteName) {
    const unsigned ch = byte & LOW_BITS;
    Rendering rendering = opened(byte);
    if (isPrinting(ch))
        rendering.add(ch);
    else
        rendering.add(ch == CNTL_DEL ? deleteName : names[ch]);
    rendering.add('>');
    return rendering;
}

static constexpr Rendering inMode(int mode, unsigned byte) {
    Rendering rendering;
    switch (mode) {
    case CLEAR_ESCAPE:
        return inEscape(byte);
    case CLEAR_DOT:
        rendering.add('.');
        return rendering;
    case CLEAR_BLANK:
        rendering.add(' ');
        return rendering;
    case CLEAR_OCTAL:
        return inOctal(byte);
    case CLEAR_HEX:
        return inHex(byte);
    case CLEAR_CARET:
        return inCaret(byte);
    case CLEAR_LOWER:
        return inNames(byte, LOWER_NAMES, "del");
    case CLEAR_UPPER:
        return inNames(byte, UPPER_NAMES, "DEL");
    default:
        return rendering;
    }
}

static constexpr Rendering itself(unsigned byte) {
    Rendering rendering;
    rendering.add(byte);
    return rendering;
}

// Of a byte that is no graphic character, white space as where it is not copied.
static constexpr Rendering notCopied(int mode, unsigned byte) {
    constexpr unsigned COLUMNS[] = {CNTL_SP, CNTL_HT, CNTL_NL, CNTL_NP, CNTL_CR};
    Rendering rendering;
    for (int column = 0; column < 5; ++column)
        if (byte == COLUMNS[column] && mode < MODE_COUNT)
            rendering.add(WHITE_TEXTS[mode][column]);
    return rendering.size > 0 ? rendering : inMode(mode, byte);
}

namespace {

struct ModeTable {
    Rendering of[MODE_COUNT + 1][256];

    constexpr ModeTable() : of() {
        for (int mode = 0; mode <= MODE_COUNT; ++mode)
            for (unsigned byte = 0; byte < 256; ++byte)
                of[mode][byte] =
                    byte > ' ' && isPrinting(byte) ? itself(byte) : notCopied(mode, byte);
    }
};

} // namespace

static constexpr ModeTable MODES;

static const Rendering *modeTable(int32_t flags) {
    const int mode = flags & CLEAR_MODE_MASK;
    return MODES.of[mode < MODE_COUNT ? mode : MODE_COUNT];
}

// ---- the renderings of one call

namespace {

// The mode's renderings, those of the bytes up to the space as the flags want them.
struct View {
    Rendering low[CNTL_SP + 1];
    const Rendering *mode;

    explicit View(int32_t flags);
    const Rendering &of(unsigned char byte) const { return (byte <= CNTL_SP ? low : mode)[byte]; }
};

} // namespace

View::View(int32_t flags) : mode(modeTable(flags)) {
    memcpy(low, mode, sizeof low);
    if ((flags & CLEAR_KEEP_BS) != 0)
        low[CNTL_BS] = itself(CNTL_BS);
    // One flag is enough for a space, a tab needs both. Kept: callers rely on it.
    if ((flags & (CLEAR_WHITE | CLEAR_SPACE)) == 0)
        low[CNTL_SP] = itself(CNTL_SP);
    if ((flags & CLEAR_WHITE) == 0 || (flags & CLEAR_TAB) == 0)
        low[CNTL_HT] = itself(CNTL_HT);
    if ((flags & CLEAR_WHITE) == 0) {
        low[CNTL_NL] = itself(CNTL_NL);
        low[CNTL_NP] = itself(CNTL_NP);
        low[CNTL_CR] = itself(CNTL_CR);
    } else if ((flags & CLEAR_KEEP_WHITE) != 0) {
        low[CNTL_NL].add(CNTL_NL);
        low[CNTL_NP].add(CNTL_NP);
        low[CNTL_CR].add(CNTL_CR);
    }
    // Some locales have letters there, which stand for themselves as all graphic characters do.
    for (unsigned byte = 0; byte < CNTL_SP; ++byte)
        if (isgraph(static_cast<int>(byte)) != 0)
            low[byte] = itself(byte);
}

// ---- words of bytes, all looked at at once

using Word = size_t;
static constexpr Word EACH = ~Word{0} / 0xFF; // 1 in each byte
static constexpr Word HIGH_BITS = EACH * HIGH_BIT;

static Word wordAt(const char *source) {
    Word word;
    memcpy(&word, source, sizeof word);
    return word;
}

// The high bit of each byte that lies below the first, or above "~": those between stand for
// themselves in every locale and mode. No carry leaves a byte.
static Word othersIn(Word word, unsigned first) {
    const Word lows = word & ~HIGH_BITS;
    return (~(lows + EACH * (HIGH_BIT - first)) | (lows + EACH) | word) & HIGH_BITS;
}

// Bytes at the front that stand for themselves, in whole blocks.
static size_t countPlain(const char *source, size_t length, unsigned first) {
    constexpr size_t WORDS = 8, BLOCK = WORDS * sizeof(Word);
    size_t count = 0;
    for (; length - count >= BLOCK; count += BLOCK) {
        Word others = 0;
        for (size_t i = 0; i < WORDS; ++i)
            others |= othersIn(wordAt(source + count + i * sizeof(Word)), first);
        if (others != 0)
            break;
    }
    return count;
}

// ---- rendering

static bool putSpan(CharBuffer *buffer, const char *bytes, size_t count) {
    // With the terminator, which always follows.
    if (static_cast<size_t>(buffer->limit - buffer->next) <= count &&
        !reserveCharBuffer(buffer, uint64_t{count} + 1))
        return false;
    memcpy(buffer->next, bytes, count);
    buffer->next += count;
    return true;
}

// All the functions that show something write up to eight bytes behind the end they return.
static char *showByte(char *out, unsigned char byte, const View &view) {
    // What a locale calls graphic above ASCII stands for itself.
    if ((byte & HIGH_BIT) != 0 && isgraph(byte) != 0) {
        *out = static_cast<char>(byte);
        return out + 1;
    }
    const Rendering &rendering = view.of(byte);
    memcpy(out, &rendering, sizeof rendering);
    return out + rendering.size;
}

// Writes the whole word, and what is behind each of the others once more behind its rendering: of
// "ab\1cdefg" the word, then "<\001>" over "\1cdefg", then "cdefg". Byte 0 is the word's lowest, as
// on both of this library's machines.
static char *showWord(char *out, Word word, Word others, const View &view) {
    unsigned shown = 0; // bits of the word
    memcpy(out, &word, sizeof word);
    for (; others != 0; others &= others - 1) {
        const unsigned place = static_cast<unsigned>(__builtin_ctzl(others)) - 7;
        const Word rest = word >> place;
        out = showByte(out + (place - shown) / 8, static_cast<unsigned char>(rest), view);
        shown = place + 8;
        const Word behind = rest >> 8;
        memcpy(out, &behind, sizeof behind);
    }
    return out + sizeof word - shown / 8;
}

static char *showBytes(char *out, const char *source, size_t length, const View &view,
                       unsigned first) {
    size_t place = 0;
    for (; length - place >= sizeof(Word); place += sizeof(Word)) {
        const Word word = wordAt(source + place);
        out = showWord(out, word, othersIn(word, first), view);
    }
    for (; place < length; ++place)
        out = showByte(out, static_cast<unsigned char>(source[place]), view);
    return out;
}

static bool putBytes(CharBuffer *buffer, const char *source, size_t length, int32_t flags) {
    constexpr size_t PIECE = 512;
    char shown[(PIECE + 1) * sizeof(Rendering)];
    const View view(flags);
    const unsigned first = (flags & (CLEAR_WHITE | CLEAR_SPACE)) != 0 ? '!' : ' ';
    while (length > 0) {
        const size_t plain = countPlain(source, length, first);
        if (plain > 0 && !putSpan(buffer, source, plain))
            return false;
        source += plain;
        length -= plain;
        const size_t piece = length < PIECE ? length : PIECE;
        const char *end = showBytes(shown, source, piece, view, first);
        if (!putSpan(buffer, shown, static_cast<size_t>(end - shown)))
            return false;
        source += piece;
        length -= piece;
    }
    return putStrCharBuffer(buffer, nullptr) != nullptr;
}

// Copies the source with each backspace, and the character before it, left out; returns the length.
static size_t eraseBackspaces(char *copy, const char *source, size_t length) {
    size_t count = 0;
    for (size_t place = 0; place < length; ++place)
        if (source[place] != CNTL_BS)
            copy[count++] = source[place];
        else if (count > 0)
            --count;
    return count;
}

static bool putErased(CharBuffer *buffer, const char *source, size_t length, int32_t flags) {
    char *erased = static_cast<char *>(malloc(length));
    if (erased == nullptr)
        return false;
    const size_t left = eraseBackspaces(erased, source, length);
    const bool isDone = putBytes(buffer, erased, left, flags);
    free(erased);
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
