/* Keyword lists: one table of texts against lists, worked out by hand. */
#include "core/exactMatch.h"

#include <gtest/gtest.h>

namespace {

const char *const WORDS[] = {"ON", "OFF", "AUTO", "OFFLINE", "AUTO", nullptr};
const char *const WITH_EMPTY[] = {"ON", "", "OFF", nullptr};
const char *const HIGH_BYTES[] = {"\x7F", "\xE9", "\xFF", nullptr};
const char *const EMPTY_LIST[] = {nullptr};

TEST(ExactMatch, positionIsThatOfTheFirstEqualEntry) {
    const struct {
        const char *text;
        const char *const *list;
        uint32_t position;
    } cases[] = {
        {"ON", WORDS, 1},        {"OFF", WORDS, 2},       {"AUTO", WORDS, 3},
        {"OFFLINE", WORDS, 4},   {"on", WORDS, 0},        {"AUTo", WORDS, 0},
        {"O", WORDS, 0},         {"OFFL", WORDS, 0},      {"ONN", WORDS, 0},
        {" ON", WORDS, 0},       {"ON ", WORDS, 0},       {"", WORDS, 0},
        {"", WITH_EMPTY, 2},     {"OFF", WITH_EMPTY, 3},  {"", EMPTY_LIST, 0},
        {"ON", EMPTY_LIST, 0},   {"\xE9", HIGH_BYTES, 2}, {"\xFF", HIGH_BYTES, 3},
        {"\xC9", HIGH_BYTES, 0},
    };
    for (const auto &one : cases)
        EXPECT_EQ(exactMatch(one.text, one.list), one.position) << '"' << one.text << '"';
}

TEST(ExactMatch, nullTextOrListMatchesNothing) {
    EXPECT_EQ(exactMatch(nullptr, WORDS), 0U);
    EXPECT_EQ(exactMatch("ON", nullptr), 0U);
    EXPECT_EQ(exactMatch(nullptr, nullptr), 0U);
}

TEST(ExactMatch, contentsAreComparedAndNotAddresses) {
    char word[] = "AUTO";
    EXPECT_EQ(exactMatch(word, WORDS), 3U);
    word[3] = 'X';
    EXPECT_EQ(exactMatch(word, WORDS), 0U);
}

} // namespace
