#include "fmtCharBuf.h"

#include "../core/staticObj.h"
#include "simpleFormat.h"

#include <float.h>
#include <limits.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static constexpr uint32_t DEFAULT_INCREMENT = 128;
static constexpr int64_t DEFAULT_PRECISION = 6;
// From this binary exponent on, e and g are given one more place for the decimal exponent.
static constexpr int WIDE_EXPONENT = 300;
// Where widths and precisions stop counting: past every block, and sums of them stay in 64 bits.
static constexpr int64_t NUMBER_CEILING = int64_t{1} << 32;

struct Conversion {
    int64_t width;
    int64_t precision;
    bool hasPrecision;
    bool hasSign;
    bool isAlternate;
    bool isLong;
    char letter; // the terminator when the format ends inside the conversion
};

static bool isDecimal(char ch) {
    return ch >= '0' && ch <= '9';
}

static int64_t readNumber(const char **at) {
    int64_t number = 0;
    for (; isDecimal(**at); ++*at)
        if (number < NUMBER_CEILING)
            number = number * 10 + (**at - '0');
    return number;
}

static void readFlags(const char **at, Conversion *conversion) {
    for (;; ++*at)
        switch (**at) {
        case ' ':
        case '+':
            conversion->hasSign = true;
            break;
        case '#':
            conversion->isAlternate = true;
            break;
        case '-':
            break;
        default:
            return;
        }
}

static void readWidth(const char **at, Conversion *conversion, FormatArguments *args) {
    if (**at != '*') {
        conversion->width = readNumber(at);
        return;
    }
    ++*at;
    const int64_t width = va_arg(args->list, int);
    conversion->width = width < 0 ? -width : width;
}

static void readPrecision(const char **at, Conversion *conversion, FormatArguments *args) {
    if (**at != '.')
        return;
    ++*at;
    conversion->hasPrecision = **at == '*' || isDecimal(**at);
    if (**at != '*') {
        conversion->precision = readNumber(at);
        return;
    }
    ++*at;
    const int precision = va_arg(args->list, int);
    conversion->precision = precision < 0 ? 0 : precision;
}

// Reads what follows a "%"; leaves the cursor behind the conversion, but never past the terminator.
static Conversion readConversion(const char **at, FormatArguments *args) {
    Conversion conversion = {};
    readFlags(at, &conversion);
    readWidth(at, &conversion, args);
    readPrecision(at, &conversion, args);
    if (**at == 'l') {
        conversion.isLong = true;
        ++*at;
    }
    conversion.letter = **at;
    if (conversion.letter != '\0')
        ++*at;
    return conversion;
}

static int64_t countDigits(uint64_t value, unsigned base) {
    int64_t count = 1;
    for (; value >= base; value /= base)
        ++count;
    return count;
}

static long readInteger(const Conversion &conversion, FormatArguments *args) {
    if (!conversion.isLong)
        return va_arg(args->list, int);
    return va_arg(args->list, long);
}

// The digits, and the sign where there may be one.
static int64_t countPlaces(const Conversion &conversion, FormatArguments *args) {
    const long value = readInteger(conversion, args);
    unsigned long bits = static_cast<unsigned long>(value);
    if (!conversion.isLong)
        bits &= UINT_MAX;
    switch (conversion.letter) {
    case 'o':
        return countDigits(bits, 8);
    case 'x':
    case 'X':
        return countDigits(bits, 16);
    case 'u':
        return countDigits(bits, 10) + (conversion.hasSign ? 1 : 0);
    default:
        return countDigits(value < 0 ? 0 - static_cast<unsigned long>(value) : bits, 10) +
               (value < 0 || conversion.hasSign ? 1 : 0);
    }
}

static int64_t prefixLength(char letter) {
    switch (letter) {
    case 'o':
        return 1;
    case 'x':
    case 'X':
        return 2;
    default:
        return 0;
    }
}

static int64_t integerBound(const Conversion &conversion, FormatArguments *args) {
    int64_t bound = countPlaces(conversion, args);
    // The sign is counted among the precision's digits. Kept: callers rely on the block sizes.
    if (conversion.precision > bound)
        bound = conversion.precision;
    return conversion.isAlternate ? bound + prefixLength(conversion.letter) : bound;
}

// The exponent for a mantissa in [0.5, 1), as frexp gives it; 0 for zero, infinities and NaN. Taken
// from the bits, since frexp would make the library need libm.
static int binaryExponent(double value) {
    static_assert(sizeof value == sizeof(uint64_t) && DBL_MANT_DIG == 53);
    constexpr uint64_t allOnes = 0x7FF;
    uint64_t bits;
    memcpy(&bits, &value, sizeof bits);
    const uint64_t biased = bits >> 52 & allOnes;
    if (biased == allOnes || bits << 1 == 0)
        return 0;
    // A number without the leading bit is smaller still; past here no bound tells them apart.
    return static_cast<int>(biased) - 1022;
}

// e and E take a third of the precision, g and G all of it, and f no integer digit below 0.5. Kept:
// callers rely on the block sizes.
static int64_t floatingBound(const Conversion &conversion, double value) {
    const int exponent = binaryExponent(value);
    const int64_t precision = conversion.hasPrecision ? conversion.precision : DEFAULT_PRECISION;
    const int64_t exponentPlaces = exponent <= -WIDE_EXPONENT || exponent >= WIDE_EXPONENT ? 6 : 5;
    const int64_t sign = conversion.hasSign || value < 0 ? 1 : 0;
    switch (conversion.letter) {
    case 'f':
        return sign + precision + (exponent < 0 ? 0 : exponent / 3 + 1) + 1;
    case 'e':
    case 'E':
        return sign + precision / 3 + exponentPlaces;
    default:
        return sign + precision + exponentPlaces;
    }
}

static int64_t textBound(const Conversion &conversion, const char *text) {
    // A precision past every object's size cuts nothing, and would be cut itself where size_t is
    // narrow.
    if (conversion.precision > 0 && conversion.precision < PTRDIFF_MAX)
        return static_cast<int64_t>(strnlen(text, static_cast<size_t>(conversion.precision)));
    return static_cast<int64_t>(strlen(text));
}

static int64_t padded(const Conversion &conversion, int64_t bound) {
    return bound < conversion.width ? conversion.width : bound;
}

static int64_t conversionBound(const Conversion &conversion, FormatArguments *args) {
    switch (conversion.letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        return padded(conversion, integerBound(conversion, args));
    case 'f':
    case 'e':
    case 'E':
    case 'g':
    case 'G':
        return padded(conversion, floatingBound(conversion, va_arg(args->list, double)));
    case 'c':
        // Whatever the width. Kept: callers rely on the block sizes.
        static_cast<void>(va_arg(args->list, int));
        return 1;
    case 's':
        if (const char *text = va_arg(args->list, const char *))
            return padded(conversion, textBound(conversion, text));
        return 0;
    default:
        return 0;
    }
}

static int64_t scanFormat(const char *at, FormatArguments *args) {
    int64_t total = 0;
    while (*at != '\0') {
        if (*at++ != '%') {
            ++total;
        } else if (*at == '%') {
            ++at;
            ++total;
        } else {
            const Conversion conversion = readConversion(&at, args);
            total += conversionBound(conversion, args);
        }
    }
    return total + 1;
}

static int64_t formatBound(const char *format, va_list args) {
    FormatArguments copy;
    va_copy(copy.list, args);
    const int64_t bound = scanFormat(format, &copy);
    va_end(copy.list);
    return bound;
}

int32_t vmaxFormatLength(const char *format, va_list args) {
    const int64_t bound = format == nullptr ? 1 : formatBound(format, args);
    return bound > INT32_MAX ? INT32_MAX : static_cast<int32_t>(bound);
}

int32_t maxFormatLength(const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t bound = vmaxFormatLength(format, args);
    va_end(args);
    return bound;
}

// Makes room for so many bytes behind the content, in one growth to a multiple of the increment.
static bool reserve(CharBuffer *buffer, int64_t need) {
    const ptrdiff_t length = buffer->next - buffer->text;
    if (buffer->size - length >= need)
        return true;
    const uint32_t increment = buffer->increment == 0 ? DEFAULT_INCREMENT : buffer->increment;
    const uint64_t whole = static_cast<uint64_t>(length + need);
    const uint64_t size = (whole + increment - 1) / increment * increment;
    if (size > INT32_MAX)
        return false;
    // Only a first block carries a spare byte. Kept: callers rely on the block sizes.
    const size_t blockSize = static_cast<size_t>(size) + (buffer->text == nullptr ? 1 : 0);
    char *text = static_cast<char *>(realloc(buffer->text, blockSize));
    if (text == nullptr)
        return false;
    *buffer = {text, text + size, text + length, static_cast<int32_t>(size), increment};
    return true;
}

// Formats into the room there is; the caller's list is left for another formatting.
static int formatAtNext(CharBuffer *buffer, const char *format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int count =
        vsnprintf(buffer->next, static_cast<size_t>(buffer->limit - buffer->next), format, copy);
    va_end(copy);
    return count;
}

// The fast half; -1, with nothing changed, where the format is not for it or the text does not fit.
static int32_t appendSimply(CharBuffer *buffer, const char *format, va_list args) {
    char *const begin = buffer->next;
    if (begin >= buffer->limit)
        return -1;
    const char before = *begin;
    FormatArguments copy;
    va_copy(copy.list, args);
    char *const end = formatSimply(begin, buffer->limit, format, &copy);
    va_end(copy.list);
    if (end == nullptr) {
        *begin = before;
        return -1;
    }
    buffer->next = end;
    return static_cast<int32_t>(end - begin);
}

int32_t vfmtCharBuffer(CharBuffer *buffer, const char *format, va_list args) {
    if (buffer == nullptr)
        return -1;
    if (format == nullptr)
        format = "";
    if (const int32_t count = appendSimply(buffer, format, args); count >= 0)
        return count;
    if (!reserve(buffer, formatBound(format, args)))
        return -1;
    int count = formatAtNext(buffer, format, args);
    if (count >= buffer->limit - buffer->next)
        count = reserve(buffer, int64_t{count} + 1) ? formatAtNext(buffer, format, args) : -1;
    if (count < 0)
        *buffer->next = '\0';
    else
        buffer->next += strlen(buffer->next);
    return count;
}

int32_t fmtCharBuffer(CharBuffer *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t count = vfmtCharBuffer(buffer, format, args);
    va_end(args);
    return count;
}

static void releaseScratch(void *scratch) {
    freeCharBuffer(static_cast<CharBuffer *>(scratch));
}

static StaticObj scratchObj = {releaseScratch, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};

static CharBuffer *fetchScratch() {
    CharBuffer *scratch = static_cast<CharBuffer *>(fetchStaticObj(&scratchObj));
    if (scratch != nullptr)
        return scratch;
    scratch = mkCharBuffer(0);
    if (scratch != nullptr && storeStaticObj(&scratchObj, scratch) != 0) {
        freeCharBuffer(scratch);
        return nullptr;
    }
    return scratch;
}

char *vfmtStr(const char *format, va_list args) {
    CharBuffer *scratch = fetchScratch();
    if (scratch == nullptr)
        return nullptr;
    scratch->next = scratch->text;
    // Without this a failed call would show the text of the call before.
    if (vfmtCharBuffer(scratch, format, args) < 0 && scratch->text != nullptr)
        *scratch->text = '\0';
    return scratch->text;
}

char *fmtStr(const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = vfmtStr(format, args);
    va_end(args);
    return text;
}
