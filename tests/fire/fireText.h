/* The text that a record carries: its writer, its number, its length and a checksum, and then bytes
   that look like pieces of frames, so that whatever is torn or taken for something else shows. */
#ifndef TESTS_FIRE_FIRETEXT_H
#define TESTS_FIRE_FIRETEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/* Numbers that a seed gives, the same on every machine. */
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15U + 0x632BE59BD9B4E019U) {}
    uint64_t next();
    uint32_t below(uint32_t bound) { return static_cast<uint32_t>((next() >> 11) % bound); }
    uint32_t between(uint32_t least, uint32_t most) { return least + below(most - least + 1); }

  private:
    uint64_t state_;
};

constexpr size_t LEAST_TEXT = 48; // bytes, which the part before the filler needs at most

/* The text of that many bytes, LEAST_TEXT at least. */
void makeText(std::string &text, uint64_t seed, uint32_t writer, uint32_t number, size_t length);

/* Whether the text is one of makeText's, whole; tells whose. */
bool readText(std::string_view text, uint32_t &writer, uint32_t &number);

#endif
