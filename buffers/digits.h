/* Digits, written where they go. Internal, C++ only. */
#ifndef QUARNEL_BUFFERS_DIGITS_H
#define QUARNEL_BUFFERS_DIGITS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus

/* The two digits of each number below base * base. */
template<unsigned BASE>
struct DigitPairs {
    char text[2 * BASE * BASE];
    constexpr DigitPairs() : text() {
        for (unsigned pair = 0; pair < BASE * BASE; ++pair) {
            text[2 * pair] = "0123456789ABCDEF"[pair / BASE];
            text[2 * pair + 1] = "0123456789ABCDEF"[pair % BASE];
        }
    }
    const char *of(size_t pair) const { return text + 2 * pair; }
};

static constexpr size_t DECIMAL_DIGITS_MAX = 20;

size_t decimalDigits(unsigned long value);

/* putDecimal of any number; a call apart, since most numbers are short. */
char *putLongDecimal(char *at, unsigned long value);

/* Writes the number's digits, as many as decimalDigits tells; returns the place behind them. */
static inline char *putDecimal(char *at, unsigned long value) {
    static constexpr DigitPairs<10> PAIRS;
    if (value >= 1000) [[unlikely]]
        return putLongDecimal(at, value);
    uint32_t rest = static_cast<uint32_t>(value);
    if (rest >= 100)
        *at++ = static_cast<char>('0' + rest / 100);
    if (rest < 10) {
        *at++ = static_cast<char>('0' + rest);
        return at;
    }
    memcpy(at, PAIRS.of(rest % 100), 2);
    return at + 2;
}

/* At most eleven bytes. */
static inline char *putSigned(char *at, int32_t value) {
    uint32_t magnitude = static_cast<uint32_t>(value);
    if (value < 0) {
        *at++ = '-';
        magnitude = 0 - magnitude;
    }
    return putDecimal(at, magnitude);
}

/* Writes eight digits, in upper case, with zeros in front; returns the place behind them. */
static inline char *putHexadecimal8(char *at, uint32_t value) {
    static constexpr DigitPairs<16> PAIRS;
    memcpy(at, PAIRS.of(value >> 24), 2);
    memcpy(at + 2, PAIRS.of(value >> 16 & 0xFF), 2);
    memcpy(at + 4, PAIRS.of(value >> 8 & 0xFF), 2);
    memcpy(at + 6, PAIRS.of(value & 0xFF), 2);
    return at + 8;
}

#endif

#endif
