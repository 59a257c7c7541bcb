/* The platform's string class: sharing, growth, and the byte beyond the capacity that must always
 * be writable (the sanitizers watch it). */
#include "platform/String.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using stdComponents::String;
using stdComponents::StringRep;

TEST(String, newStringIsExactlyAsLargeAsItsText) {
    const String text("5551234");
    EXPECT_EQ(text.length(), 7U);
    EXPECT_EQ(text.capacity(), 7U);
    EXPECT_STREQ(text.chars(), "5551234");
}

TEST(String, emptyStringsShareOneRepresentation) {
    const String a, b(""), c(nullptr);
    EXPECT_EQ(a.rep, b.rep);
    EXPECT_EQ(a.rep, c.rep);
    EXPECT_EQ(a.length(), 0U);
    EXPECT_EQ(a.capacity(), 0U);
}

TEST(String, byteBeyondTheCapacityIsWritable) {
    for (const char *text : {"", "1", "5551234"}) {
        const String string(text);
        string.rep->chars[string.capacity()] = '\0';
        EXPECT_STREQ(string.chars(), text);
    }
}

TEST(String, copiesShareUntilMadeUnique) {
    const String first("123");
    String second(first), third;
    third = first;
    EXPECT_EQ(first.rep, second.rep);
    EXPECT_EQ(first.rep, third.rep);
    second.rep = String::ensureUnique(second.rep, 0, false, 0);
    EXPECT_NE(first.rep, second.rep);
    EXPECT_EQ(first.rep, third.rep);
    second.rep->chars[0] = '9';
    EXPECT_STREQ(first.chars(), "123");
    EXPECT_STREQ(second.chars(), "923");
}

TEST(String, copyOutlivesItsOriginal) {
    String kept;
    {
        const String original("123");
        kept = original;
    }
    EXPECT_STREQ(kept.chars(), "123");
}

TEST(String, assigningToItselfKeepsTheText) {
    String text("123");
    const String &alias = text;
    text = alias;
    EXPECT_STREQ(text.chars(), "123");
    EXPECT_EQ(text.rep->owners, 1U);
}

TEST(String, uniqueAndLargeEnoughStaysWhereItIs) {
    const String text("123");
    StringRep *before = text.rep;
    EXPECT_EQ(String::ensureUnique(before, 3, true, 0), before);
    EXPECT_EQ(String::ensureUnique(before, 100, false, 50), before);
}

TEST(String, growthTakesRoomAndExtraAndNeverShrinks) {
    struct {
        uint32_t room;
        int32_t extra;
        uint32_t capacity;
    } const rows[] = {{4, 0, 4}, {4, 6, 10}, {4, -6, 4}, {0, 0, 3}, {2, 0, 3}};
    for (const auto &row : rows) {
        const String text("123");
        text.rep = String::ensureUnique(text.rep, row.room, true, row.extra);
        EXPECT_EQ(text.capacity(), row.capacity);
        EXPECT_EQ(text.length(), 3U);
        text.rep->chars[text.capacity()] = '\0';
        EXPECT_EQ(std::string(text.chars(), text.length()), "123");
    }
}

TEST(String, emptyStringGrowsAwayFromTheSharedOne) {
    const String text, other;
    text.rep = String::ensureUnique(text.rep, 5, true, 0);
    EXPECT_NE(text.rep, other.rep);
    EXPECT_EQ(text.capacity(), 5U);
    text.rep->chars[0] = 'x';
    EXPECT_STREQ(other.chars(), "");
}

TEST(String, emptySharedOneCountsAsSharedEvenWithOneOwner) {
    const String text;
    StringRep *shared = text.rep;
    text.rep = String::ensureUnique(text.rep, 0, false, 0);
    EXPECT_NE(text.rep, shared);
}

TEST(String, sizeThatCannotBeHeldChangesNothing) {
    const String text("123");
    StringRep *before = text.rep;
    EXPECT_EQ(String::ensureUnique(before, UINT32_MAX, true, INT32_MAX), before);
    EXPECT_STREQ(text.chars(), "123");
}

TEST(String, threadsMayCopyAndDropOneString) {
    const String shared("5551234");
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count)
        threads.emplace_back([&shared] {
            for (int round = 0; round < 2000; ++round) {
                const String copy(shared);
                const String other = copy;
                EXPECT_EQ(other.rep, shared.rep);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(shared.rep->owners, 1U);
}

} // namespace
