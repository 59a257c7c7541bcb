#include "simpleFormat.h"

#include <string.h>

namespace {

struct Output {
    char *at;
    char *end;     // one byte before the end of the room, which the terminator takes
    int64_t bound; // of what was formatted so far
};

// Wrapped, so that it can be passed by reference where va_list is an array type.
struct Arguments {
    va_list list;
};

struct Conversion {
    uint32_t width;
    uint32_t precision; // 0: none
    bool zeroPadded;
    bool isLong;
    char letter;
};

struct DigitPairs {
    char text[200];
    constexpr DigitPairs() : text() {
        for (int pair = 0; pair < 100; ++pair) {
            text[2 * pair] = static_cast<char>('0' + pair / 10);
            text[2 * pair + 1] = static_cast<char>('0' + pair % 10);
        }
    }
};

} // namespace

static constexpr DigitPairs PAIRS;
static constexpr uint32_t NUMBER_MAX = 999; // a width or precision of more is not simple
static constexpr size_t DIGITS_MAX = 24;

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

static bool putText(Output *out, const char *text, size_t length) {
    if (length > static_cast<size_t>(out->end - out->at))
        return false;
    memcpy(out->at, text, length);
    out->at += length;
    out->bound += static_cast<int64_t>(length);
    return true;
}

// The digits, written to end at the given place; where they begin.
static char *writeDecimal(char *end, unsigned long value) {
    for (; value >= 100; value /= 100) {
        end -= 2;
        memcpy(end, &PAIRS.text[2 * (value % 100)], 2);
    }
    if (value >= 10) {
        end -= 2;
        memcpy(end, &PAIRS.text[2 * value], 2);
        return end;
    }
    *--end = static_cast<char>('0' + value);
    return end;
}

static char *writeHexadecimal(char *end, unsigned long value, const char *digits) {
    do
        *--end = digits[value & 0xF];
    while ((value >>= 4) != 0);
    return end;
}

static bool putNumber(Output *out, const Conversion &conversion, bool isNegative,
                      const char *digits, size_t count) {
    const size_t sign = isNegative ? 1 : 0;
    size_t zeros = conversion.precision > count ? conversion.precision - count : 0;
    size_t blanks = 0;
    if (const size_t places = sign + zeros + count; conversion.width > places)
        (conversion.zeroPadded && conversion.precision == 0 ? zeros : blanks) +=
            conversion.width - places;
    const size_t size = blanks + sign + zeros + count;
    if (size > static_cast<size_t>(out->end - out->at))
        return false;
    // Few bytes each: a loop costs less than a call.
    char *at = out->at;
    for (; blanks > 0; --blanks)
        *at++ = ' ';
    if (isNegative)
        *at++ = '-';
    for (; zeros > 0; --zeros)
        *at++ = '0';
    for (size_t index = 0; index < count; ++index)
        *at++ = digits[index];
    out->at = at;
    // The sign is counted among the precision's digits.
    size_t bound = conversion.precision > sign + count ? conversion.precision : sign + count;
    bound = bound < conversion.width ? conversion.width : bound;
    out->bound += static_cast<int64_t>(bound);
    return true;
}

static bool putInteger(Output *out, const Conversion &conversion, Arguments *args) {
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
    const long value = conversion.isLong ? va_arg(args->list, long) : va_arg(args->list, int);
    const bool isNegative = isSigned && value < 0;
    unsigned long bits = static_cast<unsigned long>(value);
    if (isNegative)
        bits = 0 - bits;
    else if (!conversion.isLong)
        bits = static_cast<unsigned int>(bits);
    char digits[DIGITS_MAX];
    char *const end = digits + sizeof digits;
    const char *begin;
    if (conversion.letter == 'x' || conversion.letter == 'X')
        begin = writeHexadecimal(
            end, bits, conversion.letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF");
    else
        begin = writeDecimal(end, bits);
    return putNumber(out, conversion, isNegative, begin, static_cast<size_t>(end - begin));
}

static bool putString(Output *out, const Conversion &conversion, const char *text) {
    if (text == nullptr || conversion.precision != 0 || conversion.zeroPadded || conversion.isLong)
        return false;
    const size_t length = strlen(text);
    const size_t blanks = conversion.width > length ? conversion.width - length : 0;
    if (blanks > static_cast<size_t>(out->end - out->at))
        return false;
    memset(out->at, ' ', blanks);
    out->at += blanks;
    out->bound += static_cast<int64_t>(blanks);
    return putText(out, text, length);
}

static bool putCharacter(Output *out, const Conversion &conversion, int character) {
    const char byte = static_cast<char>(character);
    const bool isPlain = conversion.width == 0 && conversion.precision == 0 && !conversion.isLong &&
                         !conversion.zeroPadded;
    return byte != '\0' && isPlain && putText(out, &byte, 1);
}

static bool putConversion(Output *out, const Conversion &conversion, Arguments *args) {
    switch (conversion.letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
        return putInteger(out, conversion, args);
    case 's':
        return putString(out, conversion, va_arg(args->list, const char *));
    case 'c':
        return putCharacter(out, conversion, va_arg(args->list, int));
    default:
        return false;
    }
}

// The text up to the next "%" or to the end; mostly a separator, or a whole header.
static bool putLiteral(Output *out, const char **format) {
    const char *const percent = (*format)[1] == '%' ? *format + 1 : strchrnul(*format, '%');
    const bool fits = putText(out, *format, static_cast<size_t>(percent - *format));
    *format = percent;
    return fits;
}

static bool formatAll(Output *out, const char *format, Arguments *args) {
    bool isSimple = true;
    while (isSimple && *format != '\0') {
        Conversion conversion;
        if (*format != '%') {
            isSimple = putLiteral(out, &format);
        } else if (format[1] == '%') {
            isSimple = putText(out, format, 1);
            format += 2;
        } else {
            ++format;
            isSimple = readConversion(&format, &conversion) && putConversion(out, conversion, args);
        }
    }
    return isSimple;
}

int32_t formatSimply(char *out, int64_t room, const char *format, va_list args) {
    if (room < 1)
        return -1;
    const char before = *out;
    Output output = {out, out + (room - 1), 1};
    Arguments copy;
    va_copy(copy.list, args);
    const bool isSimple = formatAll(&output, format, &copy);
    va_end(copy.list);
    if (!isSimple || output.bound > room) {
        *out = before;
        return -1;
    }
    *output.at = '\0';
    return static_cast<int32_t>(output.at - out);
}
