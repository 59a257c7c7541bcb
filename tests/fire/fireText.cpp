#include "fireText.h"

#include <cinttypes>
#include <cstdio>

uint64_t Random::next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return state_ * 0x2545F4914F6CDD1DU;
}

static uint64_t checksum(std::string_view text) {
    uint64_t sum = 0xCBF29CE484222325U;
    for (const char each : text)
        sum = (sum ^ static_cast<unsigned char>(each)) * 0x100000001B3U;
    return sum;
}

constexpr size_t SUM_DIGITS = 16;

// The sum stands first, then everything that it is made of.
void makeText(std::string &text, uint64_t seed, uint32_t writer, uint32_t number, size_t length) {
    static const char FILLER[] =
        "0123456789012345678901234567<<<>>>   % \n\tabcdefghijkl00000001101";
    static_assert(sizeof FILLER - 1 == 64);
    char part[64];
    Random random(seed ^ (uint64_t{writer} << 32 | number));
    text.assign(SUM_DIGITS, ' ');
    text.append(part, static_cast<size_t>(
                          snprintf(part, sizeof part, " %u %u %zu ", writer, number, length)));
    uint64_t bits = 0;
    for (int left = 0; text.size() < length; left--) {
        if (left == 0) {
            bits = random.next();
            left = 10;
        }
        text += FILLER[bits & 63];
        bits >>= 6;
    }
    snprintf(part, sizeof part, "%016" PRIx64, checksum(std::string_view(text).substr(SUM_DIGITS)));
    text.replace(0, SUM_DIGITS, part);
}

bool readText(std::string_view text, uint32_t &writer, uint32_t &number) {
    char part[LEAST_TEXT + 1] = {};
    uint64_t sum = 0;
    size_t length = 0;
    if (text.size() < LEAST_TEXT)
        return false;
    text.copy(part, LEAST_TEXT);
    return sscanf(part, "%16" SCNx64 " %u %u %zu ", &sum, &writer, &number, &length) == 4 &&
           length == text.size() && checksum(text.substr(SUM_DIGITS)) == sum;
}
