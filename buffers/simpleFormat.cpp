#include "simpleFormat.h"

#include "digits.h"

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace {

struct Conversion {
    uint32_t width;
    uint32_t precision; // 0: none
    bool zeroPadded;
    bool isLong;
    char letter;
};

} // namespace

static constexpr uint32_t NUMBER_MAX = 999; // a width or precision of more is not simple
static constexpr size_t DIGITS_MAX = 24;

/* ---- each writes to at and returns the place behind; null where there is no room ---- */

static size_t room(const char *at, const char *limit) {
    return static_cast<size_t>(limit - at);
}

static char *putByte(char *at, char byte) {
    *at = byte;
    return byte == '\0' ? nullptr : at + 1; // the general way ends the text at a zero byte
}

static char *putText(char *at, const char *limit, const char *text) {
    if (text == nullptr)
        return nullptr;
    const size_t length = strlen(text);
    if (length >= room(at, limit))
        return nullptr;
    memcpy(at, text, length);
    return at + length;
}

static char *putInteger(char *at, const char *limit, unsigned long magnitude, bool isNegative) {
    // Counted where that decides alone.
    if (room(at, limit) <= DECIMAL_DIGITS_MAX + 1 &&
        decimalDigits(magnitude) + (isNegative ? 1 : 0) >= room(at, limit))
        return nullptr;
    if (isNegative)
        *at++ = '-';
    return putDecimal(at, magnitude);
}

static char *putSignedInteger(char *at, const char *limit, int value) {
    const unsigned int bits = static_cast<unsigned int>(value);
    return putInteger(at, limit, value < 0 ? 0 - bits : bits, value < 0);
}

/* ---- conversions with a width, a precision, an "l" or hexadecimal digits ---- */

static bool readNumber(const char **at, uint32_t *number) {
    uint32_t value = 0;
    for (; **at >= '0' && **at <= '9' && value <= NUMBER_MAX; ++*at)
        value = value * 10 + static_cast<uint32_t>(**at - '0');
    *number = value;
    return value <= NUMBER_MAX;
}

// What follows a "%". A precision of 0 has rules of its own and is not simple.
static bool readConversion(const char **at, Conversion *conversion) {
    conversion->zeroPadded = **at == '0';
    conversion->precision = 0;
    if (!readNumber(at, &conversion->width))
        return false;
    if (**at == '.') {
        ++*at;
        if (!readNumber(at, &conversion->precision) || conversion->precision == 0)
            return false;
    }
    conversion->isLong = **at == 'l';
    if (conversion->isLong)
        ++*at;
    conversion->letter = *(*at)++;
    return true;
}

static size_t writeDigits(char *digits, unsigned long value, char letter) {
    if (letter != 'x' && letter != 'X')
        return static_cast<size_t>(putDecimal(digits, value) - digits);
    size_t count = 1;
    for (unsigned long rest = value; rest > 0xF; rest >>= 4)
        ++count;
    const char *const symbols = letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
    for (size_t place = count; place > 0; value >>= 4)
        digits[--place] = symbols[value & 0xF];
    return count;
}

static char *putPadded(char *at, const char *limit, const Conversion &conversion, bool isNegative,
                       const char *digits, size_t count) {
    const size_t sign = isNegative ? 1 : 0;
    size_t zeros = conversion.precision > count ? conversion.precision - count : 0;
    size_t blanks = 0;
    if (const size_t places = sign + zeros + count; conversion.width > places)
        (conversion.zeroPadded && conversion.precision == 0 ? zeros : blanks) +=
            conversion.width - places;
    if (blanks + sign + zeros + count >= room(at, limit))
        return nullptr;
    // Few bytes each: a loop costs less than a call.
    for (; blanks > 0; --blanks)
        *at++ = ' ';
    if (isNegative)
        *at++ = '-';
    for (; zeros > 0; --zeros)
        *at++ = '0';
    for (size_t index = 0; index < count; ++index)
        *at++ = digits[index];
    return at;
}

static char *putWideInteger(char *at, const char *limit, const Conversion &conversion,
                            FormatArguments *args) {
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
    const long value = conversion.isLong ? va_arg(args->list, long) : va_arg(args->list, int);
    const bool isNegative = isSigned && value < 0;
    unsigned long magnitude = static_cast<unsigned long>(value);
    if (isNegative)
        magnitude = 0 - magnitude;
    else if (!conversion.isLong)
        magnitude = static_cast<unsigned int>(magnitude);
    char digits[DIGITS_MAX];
    const size_t count = writeDigits(digits, magnitude, conversion.letter);
    return putPadded(at, limit, conversion, isNegative, digits, count);
}

static char *putWideText(char *at, const char *limit, const Conversion &conversion,
                         const char *text) {
    if (text == nullptr || conversion.precision != 0 || conversion.zeroPadded || conversion.isLong)
        return nullptr;
    const size_t length = strlen(text);
    const size_t blanks = conversion.width > length ? conversion.width - length : 0;
    if (blanks >= room(at, limit))
        return nullptr;
    memset(at, ' ', blanks);
    return putText(at + blanks, limit, text);
}

// Apart, so that the loop over plain conversions stays small.
[[gnu::noinline]] static char *putWide(char *at, const char *limit, const char **format,
                                       FormatArguments *args) {
    Conversion conversion;
    if (!readConversion(format, &conversion))
        return nullptr;
    switch (conversion.letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
        return putWideInteger(at, limit, conversion, args);
    case 's':
        return putWideText(at, limit, conversion, va_arg(args->list, const char *));
    default:
        return nullptr;
    }
}

/* ---- the whole ---- */

// What follows a "%": mostly a letter alone.
static char *putConversion(char *at, const char *limit, const char **format,
                           FormatArguments *args) {
    switch (*(*format)++) {
    case '%':
        return putByte(at, '%');
    case 'c':
        return putByte(at, static_cast<char>(va_arg(args->list, int)));
    case 's':
        return putText(at, limit, va_arg(args->list, const char *));
    case 'u':
        return putInteger(at, limit, va_arg(args->list, unsigned int), false);
    case 'd':
    case 'i':
        return putSignedInteger(at, limit, va_arg(args->list, int));
    default:
        --*format;
        return putWide(at, limit, format, args);
    }
}

char *formatSimply(char *at, char *limit, const char *format, FormatArguments *args) {
    while (at != nullptr && at < limit) {
        const char ch = *format++;
        if (ch == '%') {
            const char *rest = format; // a copy, so that the loop's own stays in a register
            at = putConversion(at, limit, &rest, args);
            format = rest;
        } else {
            *at = ch;
            if (ch == '\0')
                return at;
            ++at;
        }
    }
    return nullptr;
}
