/* Visible rendering: of any bytes in any mode, compared with a plain reading of the rules, a new
   copy and one in a buffer that held something else, as bytes and as a text. */
#include "buffers/charBuffer.h"
#include "buffers/clearCopy.h"
#include "core/mkcopy.h"
#include "support/scratch.h"

#include <cctype>
#include <cstring>

static const char *const NAMES[] = {"NUL", "SOH", "STX", "ETX", "EOT", "ENQ", "ACK", "BEL", "BS",
                                    "HT",  "NL",  "VT",  "NP",  "CR",  "SO",  "SI",  "DLE", "DCL",
                                    "DC2", "DC3", "DC4", "NAK", "SYN", "ETB", "CAN", "EM",  "SUB",
                                    "ESC", "FS",  "GS",  "RS",  "US",  "SP"};

static bool isPrinted(unsigned byte) {
    return byte >= ' ' && byte < 0x7F;
}

static std::string octal(unsigned byte) {
    return {static_cast<char>('0' + byte / 64), static_cast<char>('0' + byte / 8 % 8),
            static_cast<char>('0' + byte % 8)};
}

static std::string hex(unsigned byte) {
    static const char DIGITS[] = "0123456789abcdef";
    return {DIGITS[byte / 16], DIGITS[byte % 16]};
}

static std::string named(unsigned low, bool isUpper) {
    std::string name = low == 0x7F ? "DEL" : NAMES[low];
    for (char &ch : name)
        ch = isUpper ? ch : static_cast<char>(tolower(ch));
    return name;
}

static std::string inBrackets(unsigned byte, int32_t mode) {
    const unsigned low = byte & 0x7F;
    const std::string itself(1, static_cast<char>(low));
    if (mode == CLEAR_CARET)
        return low < ' ' ? std::string("^") + static_cast<char>(low + '@') : itself;
    if (isPrinted(low))
        return itself;
    if (mode != CLEAR_ESCAPE)
        return named(low, mode == CLEAR_UPPER);
    return low == '\b' ? "\\b" : low == '\v' ? "\\v" : "\\" + octal(low);
}

static std::string rendered(unsigned byte, int32_t mode) {
    switch (mode) {
    case CLEAR_DOT:
        return ".";
    case CLEAR_BLANK:
        return " ";
    case CLEAR_OCTAL:
        return "<" + octal(byte) + ">";
    case CLEAR_HEX:
        return "<" + hex(byte) + ">";
    default:
        return mode > CLEAR_UPPER ? "" : (byte > 0x7F ? "<-" : "<") + inBrackets(byte, mode) + ">";
    }
}

// A blank that is to be seen.
static std::string shown(unsigned byte, int32_t mode) {
    const bool hasName = mode == CLEAR_LOWER || mode == CLEAR_UPPER;
    if (hasName)
        return "<" + named(byte, mode == CLEAR_UPPER) + ">";
    if (mode != CLEAR_ESCAPE && mode != CLEAR_CARET)
        return rendered(byte, mode);
    const char *letter = strchr("\tt\nn\ff\rr", static_cast<int>(byte));
    return byte == ' ' ? "< >" : std::string("<\\") + letter[1] + ">";
}

static std::string visible(unsigned byte, int32_t flags) {
    const int32_t mode = flags & CLEAR_MODE_MASK;
    const std::string itself(1, static_cast<char>(byte));
    const auto has = [flags](int32_t bit) { return (flags & bit) != 0; };
    switch (byte) {
    case ' ':
        return has(CLEAR_WHITE) || has(CLEAR_SPACE) ? shown(byte, mode) : itself;
    case '\t':
        return has(CLEAR_WHITE) && has(CLEAR_TAB) ? shown(byte, mode) : itself;
    case '\n':
    case '\f':
    case '\r':
        return !has(CLEAR_WHITE) ? itself
                                 : shown(byte, mode) + (has(CLEAR_KEEP_WHITE) ? itself : "");
    case '\b':
        return has(CLEAR_KEEP_BS) ? itself : rendered(byte, mode);
    default:
        return isPrinted(byte) ? itself : rendered(byte, mode);
    }
}

static std::string expectedOf(const std::string &source, int32_t flags) {
    std::string erased;
    for (const char ch : source) {
        const bool erases = ch == '\b' && (flags & CLEAR_BACKSPACE) != 0;
        if (!erases)
            erased += ch;
        else if (!erased.empty())
            erased.pop_back();
    }
    std::string expected;
    for (const char ch : erased)
        expected += visible(static_cast<unsigned char>(ch), flags);
    return expected;
}

static void checkBytes(const std::string &source, int32_t flags) {
    const auto length = static_cast<uint32_t>(source.size());
    const std::string expected = expectedOf(source, flags);
    char *copy = clearCopyBinary(source.data(), length, flags);
    FUZZ_CHECK(copy != nullptr && expected == copy);
    freecopy(copy);
    CharBuffer *buffer = mkCharBuffer(flags % 32);
    FUZZ_CHECK(putStrCharBuffer(buffer, "what stood there before") != nullptr);
    const char *text = clearCopyBinaryCharBuffer(buffer, source.data(), length, flags);
    FUZZ_CHECK(text == buffer->text && expected == text);
    FUZZ_CHECK(buffer->next == text + expected.size() && buffer->next < buffer->limit);
    freeCharBuffer(buffer);
}

static void checkText(const std::string &source, int32_t flags) {
    char *copy = clearCopy(source.c_str(), flags);
    FUZZ_CHECK(copy != nullptr && expectedOf(source.c_str(), flags) == copy);
    freecopy(copy);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    const auto flags = static_cast<int32_t>(pieces.number(0x1000));
    const std::string source = pieces.rest();
    checkBytes(source, flags);
    checkText(source, flags);
    return 0;
}
