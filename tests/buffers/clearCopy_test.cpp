/* Visible renderings: every byte in every mode, then the flags for white space and backspaces,
 * random bytes against a rendering of one byte after the other, and what is left when nothing could
 * be rendered. */
#include "buffers/clearCopy.h"
#include "buffers/cntlchrs.h"

#include "core/mkcopy.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <random>
#include <string>

// Bytes from here on are graphic, as in the locales of one byte a character.
static int firstHighGraphic = 0x100;
// So is this one below the space, as in the locales of some alphabets.
static int lowGraphic = -1;

// The classes of bytes that the library looks up, from -128 to 255: what is compiled with
// optimisation takes them from the table, the rest asks isgraph.
extern "C" const unsigned short **__ctype_b_loc() noexcept {
    static unsigned short classes[384];
    static const unsigned short *place = classes + 128;
    static const auto real =
        reinterpret_cast<const unsigned short **(*)()>(dlsym(RTLD_NEXT, "__ctype_b_loc"));
    memcpy(classes, *real() - 128, sizeof classes);
    for (int byte = firstHighGraphic; byte < 0x100; ++byte)
        classes[128 + byte] |= _ISgraph;
    if (lowGraphic >= 0)
        classes[128 + lowGraphic] |= _ISgraph;
    return &place;
}

extern "C" int isgraph(int ch) noexcept {
    return (*__ctype_b_loc())[ch] & _ISgraph;
}

namespace {

std::string rendered(const std::string &bytes, int32_t flags) {
    char *text = clearCopyBinary(bytes.data(), static_cast<uint32_t>(bytes.size()), flags);
    const std::string result = text == nullptr ? "(none)" : text;
    freecopy(text);
    return result;
}

std::string renderedByte(int byte, int32_t flags) {
    return rendered(std::string(1, static_cast<char>(byte)), flags);
}

TEST(ClearCopy, letterOfTheLocaleBelowTheSpaceStandsForItself) {
    lowGraphic = 1;
    for (int32_t mode = 0; mode <= CLEAR_MODE_MASK; ++mode)
        EXPECT_EQ(rendered("a\1b", mode), "a\1b") << mode;
    EXPECT_EQ(rendered("a\2b", CLEAR_ESCAPE), "a<\\002>b");
    lowGraphic = -1;
    EXPECT_EQ(rendered("a\1b", CLEAR_ESCAPE), "a<\\001>b");
}

TEST(ClearCopy, workedRenderings) {
    const struct {
        int byte;
        const char *texts[8];
    } rows[] = {
        {0x01, {"<\\001>", ".", " ", "<001>", "<01>", "<^A>", "<soh>", "<SOH>"}},
        {0x81, {"<-\\001>", ".", " ", "<201>", "<81>", "<-^A>", "<-soh>", "<-SOH>"}},
        {0xC1, {"<-A>", ".", " ", "<301>", "<c1>", "<-A>", "<-A>", "<-A>"}},
        {0xA0, {"<- >", ".", " ", "<240>", "<a0>", "<- >", "<- >", "<- >"}},
        {0x7F, {"<\\177>", ".", " ", "<177>", "<7f>", "<\x7F>", "<del>", "<DEL>"}},
        {0xFF, {"<-\\177>", ".", " ", "<377>", "<ff>", "<-\x7F>", "<-del>", "<-DEL>"}},
        {0x0B, {"<\\v>", ".", " ", "<013>", "<0b>", "<^K>", "<vt>", "<VT>"}},
        {0x8B, {"<-\\v>", ".", " ", "<213>", "<8b>", "<-^K>", "<-vt>", "<-VT>"}},
        {0x08, {"<\\b>", ".", " ", "<010>", "<08>", "<^H>", "<bs>", "<BS>"}},
        {0x88, {"<-\\b>", ".", " ", "<210>", "<88>", "<-^H>", "<-bs>", "<-BS>"}},
        {0x89, {"<-\\011>", ".", " ", "<211>", "<89>", "<-^I>", "<-ht>", "<-HT>"}},
        {0x80, {"<-\\000>", ".", " ", "<200>", "<80>", "<-^@>", "<-nul>", "<-NUL>"}},
        {0x00, {"<\\000>", ".", " ", "<000>", "<00>", "<^@>", "<nul>", "<NUL>"}},
        {0x11, {"<\\021>", ".", " ", "<021>", "<11>", "<^Q>", "<dcl>", "<DCL>"}},
        {0x1F, {"<\\037>", ".", " ", "<037>", "<1f>", "<^_>", "<us>", "<US>"}},
        {0x1C, {"<\\034>", ".", " ", "<034>", "<1c>", "<^\\>", "<fs>", "<FS>"}},
    };
    for (const auto &row : rows)
        for (int mode = 0; mode < 8; ++mode)
            EXPECT_EQ(renderedByte(row.byte, mode), row.texts[mode])
                << "byte " << row.byte << " mode " << mode;
}

TEST(ClearCopy, namesOfAllControlCharacters) {
    const struct {
        int byte;
        const char *upper, *lower;
    } rows[] = {
        {CNTL_NUL, "<NUL>", "<nul>"}, {CNTL_SOH, "<SOH>", "<soh>"}, {CNTL_STX, "<STX>", "<stx>"},
        {CNTL_ETX, "<ETX>", "<etx>"}, {CNTL_EOT, "<EOT>", "<eot>"}, {CNTL_ENQ, "<ENQ>", "<enq>"},
        {CNTL_ACK, "<ACK>", "<ack>"}, {CNTL_BEL, "<BEL>", "<bel>"}, {CNTL_BS, "<BS>", "<bs>"},
        {CNTL_HT, "<HT>", "<ht>"},    {CNTL_NL, "<NL>", "<nl>"},    {CNTL_VT, "<VT>", "<vt>"},
        {CNTL_NP, "<NP>", "<np>"},    {CNTL_CR, "<CR>", "<cr>"},    {CNTL_SO, "<SO>", "<so>"},
        {CNTL_SI, "<SI>", "<si>"},    {CNTL_DLE, "<DLE>", "<dle>"}, {CNTL_DCL, "<DCL>", "<dcl>"},
        {CNTL_DC2, "<DC2>", "<dc2>"}, {CNTL_DC3, "<DC3>", "<dc3>"}, {CNTL_DC4, "<DC4>", "<dc4>"},
        {CNTL_NAK, "<NAK>", "<nak>"}, {CNTL_SYN, "<SYN>", "<syn>"}, {CNTL_ETB, "<ETB>", "<etb>"},
        {CNTL_CAN, "<CAN>", "<can>"}, {CNTL_EM, "<EM>", "<em>"},    {CNTL_SUB, "<SUB>", "<sub>"},
        {CNTL_ESC, "<ESC>", "<esc>"}, {CNTL_FS, "<FS>", "<fs>"},    {CNTL_GS, "<GS>", "<gs>"},
        {CNTL_RS, "<RS>", "<rs>"},    {CNTL_US, "<US>", "<us>"},    {CNTL_DEL, "<DEL>", "<del>"},
    };
    for (const auto &row : rows) {
        const int32_t white = CLEAR_WHITE | CLEAR_TAB;
        EXPECT_EQ(renderedByte(row.byte, CLEAR_UPPER | white), row.upper);
        EXPECT_EQ(renderedByte(row.byte, CLEAR_LOWER | white), row.lower);
    }
    EXPECT_EQ(CNTL_NUL, 0);
    EXPECT_EQ(CNTL_DCL, 0x11);
    EXPECT_EQ(CNTL_FS, 0x1C);
    EXPECT_EQ(CNTL_GS, 0x1D);
    EXPECT_EQ(CNTL_DEL, 0x7F);
}

TEST(ClearCopy, graphicCharactersAreCopiedInEveryMode) {
    std::string graphic;
    for (char ch = '!'; ch <= '~'; ++ch)
        graphic += ch;
    for (int32_t mode = 0; mode < 16; ++mode)
        EXPECT_EQ(rendered(graphic, mode | CLEAR_WHITE | CLEAR_SPACE | CLEAR_TAB), graphic);
}

TEST(ClearCopy, whiteSpaceRenderings) {
    const struct {
        int byte;
        const char *texts[8];
    } rows[] = {
        {' ', {"< >", ".", " ", "<040>", "<20>", "< >", "<sp>", "<SP>"}},
        {'\t', {"<\\t>", ".", " ", "<011>", "<09>", "<\\t>", "<ht>", "<HT>"}},
        {'\n', {"<\\n>", ".", " ", "<012>", "<0a>", "<\\n>", "<nl>", "<NL>"}},
        {'\f', {"<\\f>", ".", " ", "<014>", "<0c>", "<\\f>", "<np>", "<NP>"}},
        {'\r', {"<\\r>", ".", " ", "<015>", "<0d>", "<\\r>", "<cr>", "<CR>"}},
    };
    for (const auto &row : rows)
        for (int mode = 0; mode < 8; ++mode)
            EXPECT_EQ(renderedByte(row.byte, mode | CLEAR_WHITE | CLEAR_TAB), row.texts[mode])
                << "byte " << row.byte << " mode " << mode;
}

TEST(ClearCopy, whiteSpaceIsCopiedUnlessTheFlagsAskForItsRendering) {
    EXPECT_EQ(rendered(" \t\n\f\r", CLEAR_UPPER), " \t\n\f\r");
    EXPECT_EQ(rendered(" \t\n\f\r", CLEAR_UPPER | CLEAR_KEEP_WHITE), " \t\n\f\r");
    EXPECT_EQ(rendered(" \t\n\f\r", CLEAR_UPPER | CLEAR_TAB), " \t\n\f\r");
    EXPECT_EQ(rendered(" \t\n\f\r", CLEAR_UPPER | CLEAR_SPACE), "<SP>\t\n\f\r");
    EXPECT_EQ(rendered(" \t\n\f\r", CLEAR_UPPER | CLEAR_SPACE | CLEAR_TAB), "<SP>\t\n\f\r");
    EXPECT_EQ(rendered(" \t\n\f\r", CLEAR_UPPER | CLEAR_WHITE), "<SP>\t<NL><NP><CR>");
    EXPECT_EQ(rendered(" ", CLEAR_SPACE), "< >");
    EXPECT_EQ(rendered("\t", CLEAR_TAB), "\t");
    EXPECT_EQ(rendered("\v", CLEAR_UPPER), "<VT>");
}

TEST(ClearCopy, keptWhiteSpaceFollowsItsRendering) {
    EXPECT_EQ(rendered("a\tb\nc", 23), "a\tb<NL>c");
    EXPECT_EQ(rendered("a\tb\nc", 0x97), "a\tb<NL>\nc");
    EXPECT_EQ(rendered("\n\f\r \t", 0x97 | CLEAR_TAB), "<NL>\n<NP>\f<CR>\r<SP><HT>");
}

TEST(ClearCopy, modesWithoutARenderingDropTheByte) {
    for (int32_t mode = 8; mode < 16; ++mode) {
        EXPECT_EQ(rendered("a\001\x7F\x80\xFF\b\vb", mode), "ab");
        EXPECT_EQ(rendered("a b\n\f\r\t", mode | CLEAR_WHITE | CLEAR_TAB), "ab");
        EXPECT_EQ(rendered("a b\n\f\r\t", mode), "a b\n\f\r\t");
        EXPECT_EQ(rendered("a \n\f\r", mode | CLEAR_WHITE | CLEAR_KEEP_WHITE), "a\n\f\r");
    }
}

TEST(ClearCopy, unassignedFlagBitsChangeNothing) {
    constexpr int32_t assigned = CLEAR_MODE_MASK | CLEAR_WHITE | CLEAR_BACKSPACE | CLEAR_KEEP_BS |
                                 CLEAR_KEEP_WHITE | CLEAR_SPACE | CLEAR_TAB;
    const std::string text = "ab\bc \t\n\001\x81";
    const struct {
        int32_t flags;
        const char *expected;
    } rows[] = {
        {CLEAR_UPPER, "ab<BS>c \t\n<SOH><-SOH>"},
        {CLEAR_UPPER | CLEAR_WHITE, "ab<BS>c<SP>\t<NL><SOH><-SOH>"},
        {CLEAR_HEX | CLEAR_BACKSPACE | CLEAR_WHITE | CLEAR_TAB, "ac<20><09><0a><01><81>"},
    };
    for (const auto &row : rows)
        for (const int32_t unassigned : {~assigned, INT32_MIN, 0x40000000})
            EXPECT_EQ(rendered(text, row.flags | (unassigned & ~assigned)), row.expected)
                << row.flags << ' ' << unassigned;
}

TEST(ClearCopy, minusOneIsEveryFlagAndTheLastMode) {
    EXPECT_EQ(rendered("xab\bc \t\n\001", -1), "xac\n");
}

TEST(ClearCopy, backspacesErase) {
    const struct {
        const char *text;
        int32_t flags;
        const char *expected;
    } rows[] = {
        {"ab\bc", 0x27, "ac"},        {"ab\bc", 7, "ab<BS>c"}, {"\b\bab", 0x27, "ab"},
        {"a\b\b\bb", 0x27, "b"},      {"a\b", 0x27, ""},       {"\b", 0x27, ""},
        {"\001\bx", 0x27, "x"},       {"abc", 0x27, "abc"},    {"ab\bc", 0x67, "ac"},
        {"ab\bc", 0x47, "ab\bc"},     {"a\x88\b", 0x27, "a"},  {"ab\b\001", 0x27, "a<SOH>"},
        {"\xFF\xFF\b", 0x24, "<ff>"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(rendered(row.text, row.flags), row.expected) << row.expected;
}

TEST(ClearCopy, backspaceBehindTheLengthIsNotSeen) {
    char *text = clearCopyBinary("ab\bc", 2, CLEAR_UPPER | CLEAR_BACKSPACE);
    EXPECT_STREQ(text, "ab");
    freecopy(text);
}

TEST(ClearCopy, zeroBytesInsideTheLengthAreRendered) {
    EXPECT_EQ(rendered(std::string("a\0b\0", 4), CLEAR_UPPER), "a<NUL>b<NUL>");
    EXPECT_EQ(rendered(std::string("a\0\bb", 4), CLEAR_UPPER | CLEAR_BACKSPACE), "ab");
    char *text = clearCopy("a\001", CLEAR_HEX);
    EXPECT_STREQ(text, "a<01>");
    freecopy(text);
}

TEST(ClearCopy, zeroLengthGivesTheEmptyText) {
    EXPECT_EQ(rendered("", 0), "");
    EXPECT_EQ(rendered("", CLEAR_BACKSPACE), "");
    CharBuffer *buffer = mkCharBuffer(0);
    ASSERT_NE(clearCopyBinaryCharBuffer(buffer, "x", 0, 0), nullptr);
    EXPECT_STREQ(buffer->text, "");
    freeCharBuffer(buffer);
}

TEST(ClearCopy, sourceNeedsNoTerminator) {
    char *bytes = new char[2];
    memcpy(bytes, "a\001", 2);
    EXPECT_EQ(rendered(std::string(bytes, 2), CLEAR_UPPER), "a<SOH>");
    char *text = clearCopyBinary(bytes, 2, CLEAR_UPPER | CLEAR_BACKSPACE);
    EXPECT_STREQ(text, "a<SOH>");
    freecopy(text);
    delete[] bytes;
}

TEST(ClearCopy, replacesTheBuffersContent) {
    CharBuffer *buffer = mkCharBuffer(4);
    putStrCharBuffer(buffer, "much longer than what follows");
    EXPECT_EQ(clearCopyCharBuffer(buffer, "a\nb", 23), buffer->text);
    EXPECT_STREQ(buffer->text, "a<NL>b");
    EXPECT_EQ(buffer->next - buffer->text, 6);
    EXPECT_STREQ(clearCopyBinaryCharBuffer(buffer, "x\0y", 3, CLEAR_DOT), "x.y");
    freeCharBuffer(buffer);
}

TEST(ClearCopy, blockGrowsOnlyWhereTextAndTerminatorDoNotFit) {
    const struct {
        const char *text;
        int32_t size;
    } rows[] = {{"ab\n", 8}, {"abc\n", 8}, {"abcd\n", 16}, {"abcdefg", 8}, {"abcdefgh", 16}};
    for (const auto &row : rows) {
        CharBuffer *buffer = mkCharBuffer(8);
        clearCopyCharBuffer(buffer, row.text, 23);
        EXPECT_EQ(buffer->size, row.size) << row.text;
        freeCharBuffer(buffer);
    }
}

TEST(ClearCopy, detachedTextHasABlockOfTheDefaultIncrement) {
    char *text = clearCopy("ab\bc", CLEAR_UPPER);
    EXPECT_EQ(lastAllocSize(), 129U);
    freecopy(text);
}

TEST(ClearCopy, nullsGiveNullAndWriteNothing) {
    CharBuffer *buffer = mkCharBuffer(8);
    putStrCharBuffer(buffer, "kept");
    EXPECT_EQ(clearCopyBinaryCharBuffer(buffer, nullptr, 3, 0), nullptr);
    EXPECT_EQ(clearCopyCharBuffer(buffer, nullptr, 0), nullptr);
    EXPECT_STREQ(buffer->text, "kept");
    EXPECT_EQ(buffer->next - buffer->text, 4);
    EXPECT_EQ(clearCopyBinaryCharBuffer(nullptr, "x", 1, 0), nullptr);
    EXPECT_EQ(clearCopyCharBuffer(nullptr, "x", 0), nullptr);
    EXPECT_EQ(clearCopyBinary(nullptr, 1, 0), nullptr);
    EXPECT_EQ(clearCopy(nullptr, 0), nullptr);
    freeCharBuffer(buffer);
}

TEST(ClearCopy, exhaustedMemoryGivesNullAndATerminatedBuffer) {
    for (const int32_t mode : {CLEAR_ESCAPE, CLEAR_DOT, CLEAR_HEX, CLEAR_CARET, CLEAR_UPPER}) {
        CharBuffer *buffer = mkCharBuffer(6);
        putStrCharBuffer(buffer, "old");
        const std::string longText(50, '\001');
        char *text;
        {
            const FailingAlloc failing;
            text = clearCopyCharBuffer(buffer, longText.c_str(), mode);
        }
        EXPECT_EQ(text, nullptr);
        EXPECT_STREQ(buffer->text, "");
        EXPECT_EQ(buffer->next, buffer->text);
        freeCharBuffer(buffer);
    }
}

// The erased copy and the rendering itself need memory: each is refused in turn.
TEST(ClearCopy, exhaustedMemoryOfEveryStepGivesNullAndATerminatedBuffer) {
    constexpr int32_t all = CLEAR_UPPER | CLEAR_WHITE | CLEAR_TAB | CLEAR_KEEP_WHITE;
    for (const int32_t flags : {all, all | CLEAR_BACKSPACE})
        for (const char *unit : {" ", "\t", "\n", "\v", "\x7F", "xx"}) {
            std::string text = "a\bb";
            for (int round = 0; round < 20; ++round)
                text += unit;
            const char *result = nullptr;
            int successes = 0;
            for (; result == nullptr && successes < 100; ++successes) {
                CharBuffer *buffer = mkCharBuffer(6);
                putStrCharBuffer(buffer, "old");
                {
                    const FailingAlloc failing(successes);
                    result = clearCopyCharBuffer(buffer, text.c_str(), flags);
                }
                if (result == nullptr) {
                    EXPECT_STREQ(buffer->text, "") << flags << ' ' << unit << ' ' << successes;
                    EXPECT_EQ(buffer->next, buffer->text);
                }
                freeCharBuffer(buffer);
            }
            EXPECT_GT(successes, 1) << flags << ' ' << unit;
            EXPECT_NE(result, nullptr) << flags << ' ' << unit;
        }
}

// How many of its allocations were refused before it succeeded.
static int failuresOf(const char *text, int32_t flags) {
    for (int successes = 0; successes < 100; ++successes) {
        char *copy;
        {
            const FailingAlloc failing(successes);
            copy = clearCopy(text, flags);
        }
        if (copy != nullptr) {
            freecopy(copy);
            return successes;
        }
    }
    return -1;
}

TEST(ClearCopy, exhaustedMemoryLeaksNothing) {
    const std::string longText(300, 'x');
    EXPECT_GE(failuresOf(longText.c_str(), 0), 2);
    EXPECT_GE(failuresOf("a\b", CLEAR_BACKSPACE), 2);
}

// Growth is refused at each byte of each rendering: the block is filled up to there.
TEST(ClearCopy, exhaustedMemoryAtEveryByteOfARenderingGivesNullOrTheWhole) {
    const int32_t all = CLEAR_WHITE | CLEAR_TAB | CLEAR_KEEP_WHITE;
    int refused = 0;
    for (int mode = 0; mode < 8; ++mode)
        for (const char *unit : {"\001", "\x81", "\xC1", "\x7F", "\b", "\v", " ", "\t", "\n"})
            for (size_t filled = 60; filled < 84; ++filled) {
                const std::string source = std::string(filled, 'x') + unit;
                const std::string whole = rendered(source, mode | all);
                CharBuffer *buffer = mkCharBuffer(80);
                putStrCharBuffer(buffer, "old"); // makes the block
                char *result;
                {
                    const FailingAlloc failing;
                    result = clearCopyCharBuffer(buffer, source.c_str(), mode | all);
                }
                if (result == nullptr)
                    ++refused;
                EXPECT_EQ(std::string(buffer->text), result == nullptr ? "" : whole)
                    << mode << ' ' << filled;
                freeCharBuffer(buffer);
            }
    EXPECT_GT(refused, 8 * 9);
    EXPECT_LT(refused, 8 * 9 * 24);
}

// ---- random bytes

std::string octal(unsigned value) {
    char text[16];
    snprintf(text, sizeof text, "%3.3o", value);
    return text;
}

std::string hex(unsigned value) {
    char text[16];
    snprintf(text, sizeof text, "%2.2x", value);
    return text;
}

std::string named(unsigned byte, bool isUpper) {
    static constexpr const char *names[] = {
        "NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",  "HT",  "NL",
        "VT",  "NP",  "CR",  "SO",  "SI",  "DLE", "DCL", "DC2", "DC3", "DC4", "NAK",
        "SYN", "ETB", "CAN", "EM",  "SUB", "ESC", "FS",  "GS",  "RS",  "US",  "SP"};
    std::string name = byte == 0x7F ? "DEL" : names[byte];
    for (char &ch : name)
        ch = static_cast<char>(isUpper ? ch : tolower(ch));
    return name;
}

std::string bracketed(unsigned byte, const std::string &text) {
    return (byte >= 0x80 ? "<-" : "<") + text + ">";
}

std::string plainlyInMode(unsigned byte, int32_t mode) {
    const unsigned ch = byte & 0x7F;
    const std::string itself(1, static_cast<char>(ch));
    const bool isPrintable = ch >= ' ' && ch <= '~';
    switch (mode) {
    case CLEAR_ESCAPE:
        return bracketed(byte, isPrintable ? itself
                               : ch == 8   ? "\\b"
                               : ch == 11  ? "\\v"
                                           : "\\" + octal(ch));
    case CLEAR_DOT:
        return ".";
    case CLEAR_BLANK:
        return " ";
    case CLEAR_OCTAL:
        return "<" + octal(byte) + ">";
    case CLEAR_HEX:
        return "<" + hex(byte) + ">";
    case CLEAR_CARET:
        return bracketed(byte,
                         ch < 0x20 ? "^" + std::string(1, static_cast<char>(ch + 0x40)) : itself);
    case CLEAR_LOWER:
    case CLEAR_UPPER:
        return bracketed(byte, isPrintable ? itself : named(ch, mode == CLEAR_UPPER));
    default:
        return "";
    }
}

std::string plainlyWhite(unsigned byte, int32_t mode) {
    if (mode == CLEAR_ESCAPE || mode == CLEAR_CARET)
        return byte == ' '    ? "< >"
               : byte == '\t' ? "<\\t>"
               : byte == '\n' ? "<\\n>"
               : byte == '\f' ? "<\\f>"
                              : "<\\r>";
    if (mode == CLEAR_LOWER || mode == CLEAR_UPPER)
        return "<" + named(byte, mode == CLEAR_UPPER) + ">";
    return plainlyInMode(byte, mode);
}

std::string plainlyShown(unsigned byte, int32_t flags) {
    const std::string itself(1, static_cast<char>(byte));
    const int32_t mode = flags & CLEAR_MODE_MASK;
    const bool isWhite = (flags & CLEAR_WHITE) != 0;
    if (isgraph(static_cast<int>(byte)) != 0 || (byte == 8 && (flags & CLEAR_KEEP_BS) != 0))
        return itself;
    if (byte == ' ')
        return isWhite || (flags & CLEAR_SPACE) != 0 ? plainlyWhite(byte, mode) : itself;
    if (byte == '\t')
        return isWhite && (flags & CLEAR_TAB) != 0 ? plainlyWhite(byte, mode) : itself;
    if (byte == '\n' || byte == '\f' || byte == '\r')
        return (isWhite ? plainlyWhite(byte, mode) : "") +
               (!isWhite || (flags & CLEAR_KEEP_WHITE) != 0 ? itself : "");
    return plainlyInMode(byte, mode);
}

std::string plainlyRendered(std::string bytes, int32_t flags) {
    if ((flags & CLEAR_BACKSPACE) != 0) {
        std::string erased;
        for (const char byte : bytes)
            if (byte != '\b')
                erased += byte;
            else if (!erased.empty())
                erased.pop_back();
        bytes = erased;
    }
    std::string text;
    for (const char byte : bytes)
        text += plainlyShown(static_cast<unsigned char>(byte), flags);
    return text;
}

std::string randomBytes(std::mt19937 &random) {
    const size_t length = random() % 4 != 0 ? random() % 200 : random() % 2000;
    const unsigned rarity = 1U << random() % 10; // of what is no graphic character
    std::string bytes;
    while (bytes.size() < length)
        bytes += static_cast<char>(random() % rarity == 0 ? random() % 256 : '!' + random() % 94);
    return bytes;
}

TEST(ClearCopy, randomBytesShowAsEachOfThemAlone) {
    std::mt19937 random(20260);
    for (int round = 0; round < 1000; ++round) {
        firstHighGraphic = round % 3 == 0 ? 0xA1 : 0x100;
        const std::string bytes = randomBytes(random);
        const int32_t flags = static_cast<int32_t>(random() & 0xFFF);
        const std::string expected = plainlyRendered(bytes, flags);
        const int32_t increment = 1 + static_cast<int32_t>(random() % 200);
        CharBuffer *buffer = mkCharBuffer(increment);
        ASSERT_NE(clearCopyBinaryCharBuffer(buffer, bytes.data(),
                                            static_cast<uint32_t>(bytes.size()), flags),
                  nullptr);
        ASSERT_EQ(std::string(buffer->text, buffer->next), expected) << flags << ' ' << round;
        ASSERT_EQ(*buffer->next, '\0');
        ASSERT_EQ(buffer->size, (static_cast<int32_t>(expected.size()) / increment + 1) * increment)
            << "not the size that growing by single increments reaches";
        freeCharBuffer(buffer);
    }
    firstHighGraphic = 0x100;
}

// Bytes above ASCII are asked for at every place of a word.
TEST(ClearCopy, graphicBytesAboveAsciiAreCopied) {
    firstHighGraphic = 0xA1;
    for (size_t before = 0; before < 70; ++before)
        EXPECT_EQ(rendered(std::string(before, 'x') + "\xE4\x81\xFC", CLEAR_UPPER),
                  std::string(before, 'x') + "\xE4<-SOH>\xFC");
    firstHighGraphic = 0x100;
}

} // namespace
