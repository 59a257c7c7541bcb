/* Formatting: vfmtCharBuffer appends what the system's formatter makes of the same format and
   arguments, whatever stood in the buffer. Formats are put together from the input, each conversion
   with an argument of its type; one whose argument the scan does not know stands last, where the
   scan cannot take another's for it. */
#include "buffers/charBuffer.h"
#include "buffers/fmtCharBuf.h"
#include "support/scratch.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr size_t MAX_ARGUMENTS = 4;

struct Argument {
    enum Kind { INT, LONG, DOUBLE, TEXT } kind;
    int asInt = 0;
    long asLong = 0;
    double asDouble = 0;
    std::string asText;
};

// What the last conversion takes that the scan does not know.
enum class Last { NONE, INT, LONG_LONG, POINTER, LONG_DOUBLE };

struct Case {
    std::string format;
    std::vector<Argument> arguments;
    Last last = Last::NONE;
    bool hasBound = true; // the scan's bound is none that can fall short
    long long lastNumber = 0;
    std::string before; // what stands in the buffer
    int32_t increment = 0;
};

// ---- the case, from the input

int64_t number(Pieces &pieces) {
    static constexpr int64_t EDGES[] = {0,         1,          -1,        9,         10,
                                        INT32_MAX, INT32_MIN,  INT64_MAX, INT64_MIN, 0xFFFFFFFF,
                                        99999,     1000000000, -99999};
    const uint8_t choice = pieces.byte();
    if (choice < 128)
        return EDGES[choice % (sizeof EDGES / sizeof *EDGES)];
    return static_cast<int64_t>(uint64_t{pieces.number(65536)} << pieces.number(48));
}

double floating(Pieces &pieces) {
    static constexpr double EDGES[] = {0.0,      -0.0,   0.5,      0.49,   1e-5,   1e300, 1.7e308,
                                       4.9e-324, 1e-300, 999999.5, 0.0001, -1e100, 1e22};
    const uint8_t choice = pieces.byte();
    if (choice < 64)
        return EDGES[choice % (sizeof EDGES / sizeof *EDGES)];
    if (choice < 68)
        return choice < 66 ? __builtin_inf() : -__builtin_nan("");
    const double base = static_cast<double>(pieces.number(65536)) - 32768.5;
    return choice < 160 ? base : base * static_cast<double>(number(pieces));
}

// A width or precision: none, digits, or "*" with an argument. Nothing between a few hundred and
// what no formatter can do: it would cost the memory. That is for widths alone: of a precision of e
// the bound takes a third, for which a block is made.
void putSize(Pieces &pieces, Case &made, size_t room, bool isWidth) {
    const uint8_t choice = pieces.byte() % 16;
    if (choice < 8)
        return;
    if (choice < 13)
        made.format += std::to_string(pieces.byte());
    else if (choice == 13)
        made.format += pieces.byte() % 2 == 0 ? (isWidth ? "2147483648" : "500")
                                              : (isWidth ? "99999999999999999999" : "0");
    else if (room > 0) {
        made.format += '*';
        made.arguments.push_back(
            {Argument::INT, static_cast<int>(pieces.number(600)) - 300, 0, 0, ""});
    }
}

void putFlags(Pieces &pieces, Case &made, const char *flags) {
    for (uint8_t bits = pieces.byte(); *flags != '\0'; ++flags, bits /= 2)
        if (bits % 2 != 0)
            made.format += *flags;
}

size_t roomFor(const Case &made) {
    return MAX_ARGUMENTS - made.arguments.size();
}

// Width and precision, each of which may take an argument; one is left for the conversion itself.
void putSizes(Pieces &pieces, Case &made, bool hasPrecision) {
    putSize(pieces, made, roomFor(made) - 1, true);
    if (!hasPrecision || pieces.byte() % 2 == 0)
        return;
    made.format += '.';
    putSize(pieces, made, roomFor(made) - 1, false);
}

void putInteger(Pieces &pieces, Case &made) {
    // "+" and " " are defined for signed conversions only, "#" for those in powers of two.
    const char letter = "diuoxX"[pieces.byte() % 6];
    const bool isSigned = letter == 'd' || letter == 'i';
    putFlags(pieces, made, isSigned ? "-+ " : letter == 'u' ? "-" : "-#");
    const size_t start = made.format.size();
    putSizes(pieces, made, true);
    // The sign and the prefix are counted among the precision's digits.
    if (made.format.find('.', start) != std::string::npos)
        made.hasBound = false;
    Argument argument = {Argument::INT, 0, 0, 0, ""};
    const int64_t value = number(pieces);
    if (pieces.byte() % 2 != 0) {
        argument.kind = Argument::LONG;
        made.format += 'l';
    }
    argument.asInt = static_cast<int>(value);
    argument.asLong = static_cast<long>(value);
    made.format += letter;
    made.arguments.push_back(argument);
}

void putFloating(Pieces &pieces, Case &made) {
    putFlags(pieces, made, "-+ #");
    putSizes(pieces, made, true);
    made.format += "feEgG"[pieces.byte() % 5];
    made.arguments.push_back({Argument::DOUBLE, 0, 0, floating(pieces), ""});
    made.hasBound = false;
}

void putText(Pieces &pieces, Case &made) {
    putFlags(pieces, made, "-");
    putSizes(pieces, made, true);
    made.format += 's';
    made.arguments.push_back({Argument::TEXT, 0, 0, 0, pieces.text()});
}

void putCharacter(Pieces &pieces, Case &made) {
    putFlags(pieces, made, "-");
    const size_t start = made.format.size();
    putSizes(pieces, made, false);
    made.hasBound = made.hasBound && made.format.size() == start; // it counts as one, however wide
    made.format += 'c';
    made.arguments.push_back({Argument::INT, pieces.byte(), 0, 0, ""});
}

void putLiteral(Pieces &pieces, Case &made) {
    for (const char ch : pieces.text())
        made.format += ch == '%' ? std::string("%%") : std::string(1, ch);
}

void putLast(Pieces &pieces, Case &made) {
    static constexpr struct {
        const char *conversion;
        Last last;
    } LASTS[] = {
        {"%hd", Last::INT},        {"%hhx", Last::INT},        {"%05d", Last::INT},
        {"%0-5d", Last::INT},      {"%'d", Last::INT},         {"%lld", Last::LONG_LONG},
        {"%llx", Last::LONG_LONG}, {"%jd", Last::LONG_LONG},   {"%40p", Last::POINTER},
        {"%p", Last::POINTER},     {"%Lf", Last::LONG_DOUBLE}, {"%.3Lg", Last::LONG_DOUBLE}};
    const auto &choice = LASTS[pieces.byte() % (sizeof LASTS / sizeof *LASTS)];
    made.format += choice.conversion;
    made.last = choice.last;
    made.lastNumber = number(pieces);
    made.hasBound = false;
}

Case caseFrom(Pieces &pieces) {
    Case made;
    made.increment = pieces.byte();
    made.before = pieces.text();
    while (made.last == Last::NONE && roomFor(made) > 0) {
        const uint8_t choice = pieces.byte() % 16;
        if (choice == 0)
            break;
        made.format += choice < 4 ? "" : "%";
        if (choice < 4)
            putLiteral(pieces, made);
        else if (choice < 8)
            putInteger(pieces, made);
        else if (choice < 11)
            putFloating(pieces, made);
        else if (choice < 14)
            putText(pieces, made);
        else if (choice < 15)
            putCharacter(pieces, made);
        else {
            made.format.pop_back();
            putLast(pieces, made);
        }
    }
    return made;
}

// ---- the comparison

void checkBuffer(const CharBuffer &buffer) {
    FUZZ_CHECK(buffer.text <= buffer.next && buffer.next <= buffer.limit);
    FUZZ_CHECK(buffer.limit - buffer.text == buffer.size);
}

void compareText(const Case &made, const CharBuffer &buffer, int32_t count, const char *expected) {
    const size_t length = made.before.size();
    const size_t added = strlen(expected); // a zero byte that %c put out ends it
    FUZZ_CHECK(static_cast<size_t>(count) >= added);
    FUZZ_CHECK(static_cast<size_t>(buffer.next - buffer.text) == length + added);
    FUZZ_CHECK(memcmp(buffer.text, made.before.data(), length) == 0);
    FUZZ_CHECK(memcmp(buffer.text + length, expected, added + 1) == 0);
}

void checkBound(const Case &made, int count, va_list args) {
    const int32_t bound = vmaxFormatLength(made.format.c_str(), args);
    FUZZ_CHECK(bound >= 1);
    if (made.hasBound && count >= 0)
        FUZZ_CHECK(bound > count);
}

// The system's formatting, with its count; null where it fails.
std::unique_ptr<char[]> systemText(const Case &made, int *count, va_list args) {
    va_list copy;
    va_copy(copy, args);
    *count = vsnprintf(nullptr, 0, made.format.c_str(), copy);
    va_end(copy);
    if (*count < 0)
        return nullptr;
    auto text = std::make_unique<char[]>(static_cast<size_t>(*count) + 1);
    va_copy(copy, args);
    vsnprintf(text.get(), static_cast<size_t>(*count) + 1, made.format.c_str(), copy);
    va_end(copy);
    return text;
}

void compareList(const Case &made, va_list args) {
    int expectedCount;
    const auto expected = systemText(made, &expectedCount, args);
    CharBuffer *buffer = mkCharBuffer(made.increment);
    if (!made.before.empty())
        FUZZ_CHECK(putStrCharBuffer(buffer, made.before.c_str()) != nullptr);
    const int32_t count = vfmtCharBuffer(buffer, made.format.c_str(), args);
    FUZZ_CHECK(count == expectedCount);
    checkBuffer(*buffer);
    if (expected != nullptr)
        compareText(made, *buffer, count, expected.get());
    else if (!made.before.empty()) // the content and its terminator as they were
        FUZZ_CHECK(made.before == buffer->text &&
                   buffer->next == buffer->text + made.before.size());
    checkBound(made, expectedCount, args);
    const char *scratch = vfmtStr(made.format.c_str(), args);
    if (expected != nullptr)
        FUZZ_CHECK(strcmp(scratch, expected.get()) == 0);
    freeCharBuffer(buffer);
}

void compare(const Case *made, ...) {
    va_list args;
    va_start(args, made);
    compareList(*made, args);
    va_end(args);
}

// ---- the argument list

template<class... Values>
void passLast(const Case &made, Values... values) {
    switch (made.last) {
    case Last::NONE:
        return compare(&made, values...);
    case Last::INT:
        return compare(&made, values..., static_cast<int>(made.lastNumber));
    case Last::LONG_LONG:
        return compare(&made, values..., made.lastNumber);
    case Last::POINTER:
        return compare(&made, values...,
                       reinterpret_cast<void *>(static_cast<intptr_t>(made.lastNumber)));
    case Last::LONG_DOUBLE:
        return compare(&made, values..., static_cast<long double>(made.lastNumber));
    }
}

// Each argument with its type, one after the other.
template<class... Values>
void pass(const Case &made, Values... values) {
    constexpr size_t TAKEN = sizeof...(Values);
    if constexpr (TAKEN == MAX_ARGUMENTS) {
        passLast(made, values...);
    } else {
        if (TAKEN == made.arguments.size())
            return passLast(made, values...);
        const Argument &argument = made.arguments[TAKEN];
        switch (argument.kind) {
        case Argument::INT:
            return pass(made, values..., argument.asInt);
        case Argument::LONG:
            return pass(made, values..., argument.asLong);
        case Argument::DOUBLE:
            return pass(made, values..., argument.asDouble);
        case Argument::TEXT:
            return pass(made, values..., argument.asText.c_str());
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    pass(caseFrom(pieces));
    return 0;
}
