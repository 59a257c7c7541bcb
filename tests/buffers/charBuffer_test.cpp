/* Growable text buffers: sizes of blocks at, below and above their ends, what each operation leaves
 * in the content, and exhausted memory. Appending a text is compared with appending its characters.
 */
#include "buffers/charBuffer.h"

#include "core/mkcopy.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

class CharBufferTest : public testing::Test {
  protected:
    ~CharBufferTest() override { freeCharBuffer(buffer); }
    void make(int32_t increment) { buffer = mkCharBuffer(increment); }
    std::string content() const {
        return std::string(buffer->text, static_cast<size_t>(buffer->next - buffer->text));
    }
    void fill(const std::string &text) {
        for (const char ch : text)
            fputCharBuffer(buffer, ch);
    }
    CharBuffer *buffer = nullptr;
};

TEST_F(CharBufferTest, incrementsBelowOneBecome128) {
    const struct {
        int32_t asked;
        uint32_t increment;
    } rows[] = {{0, 128}, {-5, 128}, {INT32_MIN, 128}, {1, 1}, {16, 16}, {INT32_MAX, 0x7FFFFFFF}};
    for (const auto &row : rows) {
        CharBuffer *made = mkCharBuffer(row.asked);
        EXPECT_EQ(made->increment, row.increment) << row.asked;
        EXPECT_EQ(made->text, nullptr);
        EXPECT_EQ(made->limit, nullptr);
        EXPECT_EQ(made->next, nullptr);
        EXPECT_EQ(made->size, 0);
        freeCharBuffer(made);
    }
}

TEST_F(CharBufferTest, onlyTheFirstBlockHasASpareByte) {
    make(16);
    fputCharBuffer(buffer, 'a');
    EXPECT_EQ(lastAllocSize(), 17U);
    EXPECT_EQ(buffer->size, 16);
    EXPECT_EQ(buffer->limit, buffer->text + 16);
    fill("bcdefghijklmnop");
    EXPECT_EQ(buffer->size, 16);
    EXPECT_EQ(buffer->next, buffer->limit);
    fputCharBuffer(buffer, 'q');
    EXPECT_EQ(lastAllocSize(), 32U);
    EXPECT_EQ(buffer->size, 32);
    EXPECT_EQ(buffer->limit, buffer->text + 32);
    EXPECT_EQ(content(), "abcdefghijklmnopq");
}

TEST_F(CharBufferTest, expansionKeepsTheContent) {
    make(2);
    EXPECT_EQ(expandCharBuffer(buffer), buffer->text);
    EXPECT_EQ(lastAllocSize(), 3U);
    EXPECT_EQ(buffer->next, buffer->text);
    fill("ab");
    EXPECT_EQ(expandCharBuffer(buffer), buffer->text);
    EXPECT_EQ(lastAllocSize(), 4U);
    EXPECT_EQ(buffer->size, 4);
    EXPECT_EQ(content(), "ab");
}

TEST_F(CharBufferTest, incrementOfZeroGrowsBy128) {
    CharBuffer zero = {};
    EXPECT_EQ(fputCharBuffer(&zero, 'a'), 'a');
    EXPECT_EQ(zero.size, 128);
    EXPECT_EQ(lastAllocSize(), 129U);
    EXPECT_NE(putStrCharBuffer(&zero, std::string(200, 'b').c_str()), nullptr);
    EXPECT_EQ(zero.size, 256);
    free(zero.text);
}

TEST_F(CharBufferTest, sizesPastTheIntegersRangeFail) {
    make(INT32_MAX);
    buffer->increment = 0x80000000;
    EXPECT_EQ(expandCharBuffer(buffer), nullptr);
    EXPECT_EQ(fputCharBuffer(buffer, 'a'), -1);
    EXPECT_EQ(putStrCharBuffer(buffer, "a"), nullptr);
    EXPECT_EQ(putStrCharBuffer(buffer, nullptr), nullptr);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'a', 0), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "a", 0), nullptr);
    buffer->increment = 16;
    fill("abc");
    buffer->increment = UINT32_MAX;
    EXPECT_EQ(expandCharBuffer(buffer), nullptr);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', INT32_MAX), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "x", INT32_MAX), nullptr);
    EXPECT_EQ(content(), "abc");
    EXPECT_EQ(buffer->size, 16);
}

TEST_F(CharBufferTest, storedCharacterComesBackSigned) {
    make(4);
    EXPECT_EQ(fputCharBuffer(buffer, 'a'), 'a');
    EXPECT_EQ(fputCharBuffer(buffer, '\x80'), -128);
    EXPECT_EQ(fputCharBuffer(buffer, '\0'), 0);
    EXPECT_EQ(fputCharBuffer(buffer, '\xFF'), -1);
    EXPECT_EQ(content(), std::string("a\x80\0\xFF", 4));
}

TEST_F(CharBufferTest, appendedCharacterIsNotTerminated) {
    make(4);
    putStrCharBuffer(buffer, "");
    buffer->text[1] = '#';
    fputCharBuffer(buffer, 'a');
    EXPECT_EQ(buffer->text[1], '#');
}

TEST_F(CharBufferTest, nullTextOnlyTerminates) {
    make(4);
    EXPECT_EQ(putStrCharBuffer(buffer, nullptr), buffer->text);
    ASSERT_NE(buffer->text, nullptr);
    EXPECT_STREQ(buffer->text, "");
    EXPECT_EQ(buffer->size, 4);
    EXPECT_EQ(lastAllocSize(), 5U);
    fill("abcd");
    EXPECT_EQ(putStrCharBuffer(buffer, nullptr), buffer->text);
    EXPECT_EQ(buffer->size, 8);
    EXPECT_STREQ(buffer->text, "abcd");
    EXPECT_EQ(content(), "abcd");
}

TEST_F(CharBufferTest, emptyTextTerminatesAFreshBuffer) {
    make(4);
    EXPECT_STREQ(putStrCharBuffer(buffer, ""), "");
    EXPECT_EQ(buffer->size, 4);
}

TEST_F(CharBufferTest, textsAreAppendedAndTerminated) {
    make(4);
    EXPECT_STREQ(putStrCharBuffer(buffer, "ab"), "ab");
    EXPECT_STREQ(putStrCharBuffer(buffer, "\x80\xFF"), "ab\x80\xFF");
    EXPECT_EQ(content(), "ab\x80\xFF");
    EXPECT_EQ(buffer->size, 8);
}

TEST_F(CharBufferTest, textAndTerminatorBelowAtAndAboveTheBlocksEnd) {
    const struct {
        size_t length;
        int32_t size;
        size_t block; // one more than the size only while it is the first
    } rows[] = {{1, 8, 9},    {6, 8, 9},    {7, 8, 9},    {8, 16, 16}, {9, 16, 16},
                {15, 16, 16}, {16, 24, 24}, {17, 24, 24}, {80, 88, 88}};
    for (const auto &row : rows) {
        CharBuffer *made = mkCharBuffer(8);
        putStrCharBuffer(made, std::string(row.length, 'x').c_str());
        EXPECT_EQ(made->size, row.size) << row.length;
        EXPECT_EQ(lastAllocSize(), row.block) << row.length;
        EXPECT_EQ(made->limit, made->text + made->size);
        EXPECT_EQ(strlen(made->text), row.length);
        freeCharBuffer(made);
    }
}

// The slow way is the plainly right one.
TEST_F(CharBufferTest, textGrowsTheBlockAsItsCharactersWould) {
    for (const int32_t increment : {1, 2, 3, 7, 128})
        for (size_t before = 0; before < 10; ++before)
            for (size_t count = 0; count < 20; ++count) {
                CharBuffer *whole = mkCharBuffer(increment), *single = mkCharBuffer(increment);
                const std::string first(before, 'a'), second(count, 'b');
                for (const char ch : first) {
                    fputCharBuffer(whole, ch);
                    fputCharBuffer(single, ch);
                }
                for (const char ch : second)
                    fputCharBuffer(single, ch);
                if (single->next >= single->limit)
                    expandCharBuffer(single);
                putStrCharBuffer(whole, second.c_str());
                EXPECT_EQ(whole->size, single->size) << increment << ' ' << before << ' ' << count;
                EXPECT_EQ(first + second, whole->text);
                freeCharBuffer(whole);
                freeCharBuffer(single);
            }
}

TEST_F(CharBufferTest, removedCharacterIsReplacedByAZero) {
    make(4);
    EXPECT_EQ(removeLastCharBufferChar(buffer), -1);
    putStrCharBuffer(buffer, "a\xFE");
    EXPECT_EQ(removeLastCharBufferChar(buffer), -2);
    EXPECT_STREQ(buffer->text, "a");
    EXPECT_EQ(removeLastCharBufferChar(buffer), 'a');
    EXPECT_STREQ(buffer->text, "");
    EXPECT_EQ(removeLastCharBufferChar(buffer), -1);
    EXPECT_EQ(buffer->next, buffer->text);
}

TEST_F(CharBufferTest, removalFromAFullUnterminatedBlockStaysInside) {
    make(2);
    fill("ab");
    EXPECT_EQ(removeLastCharBufferChar(buffer), 'b');
    EXPECT_STREQ(buffer->text, "a");
}

TEST_F(CharBufferTest, characterBeyondTheEndIsPutBehindZerosUnterminated) {
    make(8);
    putStrCharBuffer(buffer, "ab");
    buffer->text[6] = '#';
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', 5), buffer->text);
    EXPECT_EQ(content(), std::string("ab\0\0\0x", 6));
    EXPECT_EQ(buffer->text[6], '#');
}

TEST_F(CharBufferTest, characterAtTheEndIsAppended) {
    make(4);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'a', 0), buffer->text);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, '\xFF', 1), buffer->text);
    EXPECT_EQ(content(), "a\xFF");
}

TEST_F(CharBufferTest, characterAtTheEndOfAFullLaterBlockGrowsIt) {
    make(4);
    fill("abcdefgh");
    ASSERT_EQ(buffer->next, buffer->limit);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', 8), buffer->text);
    EXPECT_EQ(buffer->size, 12);
    EXPECT_EQ(lastAllocSize(), 12U);
    EXPECT_EQ(content(), "abcdefghx");
}

// Beyond the end no terminator is counted: four characters fill a block of four.
TEST_F(CharBufferTest, characterBeyondTheEndGrowsOnlyWhereItDoesNotFit) {
    const struct {
        int32_t index, size;
    } rows[] = {{0, 4}, {2, 4}, {3, 4}, {4, 8}, {7, 8}, {8, 12}};
    for (const auto &row : rows) {
        CharBuffer *made = mkCharBuffer(4);
        insertChrIntoCharBuffer(made, 'x', row.index);
        EXPECT_EQ(made->size, row.size) << row.index;
        EXPECT_EQ(made->next - made->text, row.index + 1);
        freeCharBuffer(made);
    }
}

TEST_F(CharBufferTest, characterInsideMovesTheTerminatorToo) {
    make(8);
    putStrCharBuffer(buffer, "abc");
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', 1), buffer->text);
    EXPECT_STREQ(buffer->text, "axbc");
    EXPECT_EQ(content(), "axbc");
    insertChrIntoCharBuffer(buffer, 'y', 0);
    EXPECT_STREQ(buffer->text, "yaxbc");
    insertChrIntoCharBuffer(buffer, 'z', 4);
    EXPECT_STREQ(buffer->text, "yaxbzc");
}

// It grows where length + 1 reaches the size, so that there is room for the terminator moved.
TEST_F(CharBufferTest, characterInsideBelowAtAndAboveTheBlocksEnd) {
    const struct {
        const char *text;
        int32_t size;
    } rows[] = {{"abcdef", 8}, {"abcdefg", 16}, {"abcdefgh", 16}};
    for (const auto &row : rows) {
        CharBuffer *made = mkCharBuffer(8);
        for (const char *at = row.text; *at != '\0'; ++at)
            fputCharBuffer(made, *at);
        insertChrIntoCharBuffer(made, 'x', 1);
        EXPECT_EQ(made->size, row.size) << row.text;
        EXPECT_EQ(made->text[1], 'x');
        freeCharBuffer(made);
    }
}

TEST_F(CharBufferTest, characterIntoAFullBlockOfIncrementOneGrowsTwice) {
    make(1);
    fill("a");
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', 0), buffer->text);
    EXPECT_EQ(buffer->size, 3);
    EXPECT_EQ(content(), "xa");
}

TEST_F(CharBufferTest, textInsideMovesTheTerminatorToo) {
    make(4);
    putStrCharBuffer(buffer, "abc");
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "xy", 1), buffer->text);
    EXPECT_STREQ(buffer->text, "axybc");
    EXPECT_EQ(buffer->next - buffer->text, 5);
    EXPECT_EQ(buffer->size, 8);
    insertStrIntoCharBuffer(buffer, "0123456789", 0);
    EXPECT_STREQ(buffer->text, "0123456789axybc");
    EXPECT_EQ(buffer->size, 16);
}

// The byte at next lies past the block's end until the growth.
TEST_F(CharBufferTest, textInsideFullUnterminatedContentGrowsFirst) {
    for (const std::string before : {"abcd", "abcdefgh"}) {
        buffer = mkCharBuffer(4);
        fill(before);
        ASSERT_EQ(buffer->next, buffer->limit);
        EXPECT_EQ(insertStrIntoCharBuffer(buffer, "xy", 1), buffer->text);
        EXPECT_EQ(content(), "axy" + before.substr(1));
        EXPECT_EQ(buffer->size, static_cast<int32_t>(before.size()) + 4);
        freeCharBuffer(buffer);
        buffer = nullptr;
    }
}

TEST_F(CharBufferTest, textInsideBelowAtAndAboveTheBlocksEnd) {
    const struct {
        size_t count;
        int32_t size;
    } rows[] = {{3, 8}, {4, 8}, {5, 16}, {12, 16}, {13, 24}};
    for (const auto &row : rows) {
        CharBuffer *made = mkCharBuffer(8);
        putStrCharBuffer(made, "abc");
        insertStrIntoCharBuffer(made, std::string(row.count, 'x').c_str(), 2);
        EXPECT_EQ(made->size, row.size) << row.count;
        EXPECT_EQ(strlen(made->text), row.count + 3);
        freeCharBuffer(made);
    }
}

TEST_F(CharBufferTest, textBeyondTheEndIsPutBehindZerosTerminated) {
    make(4);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "xy", 2), buffer->text);
    EXPECT_EQ(content(), std::string("\0\0xy", 4));
    EXPECT_EQ(buffer->text[4], '\0');
    EXPECT_EQ(buffer->size, 8);
    insertStrIntoCharBuffer(buffer, "z", 4);
    EXPECT_EQ(content(), std::string("\0\0xyz", 5));
}

TEST_F(CharBufferTest, emptyInsertionsAndNegativeIndexesChangeNothing) {
    make(4);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "", 3), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "x", -1), nullptr);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', -1), nullptr);
    EXPECT_EQ(buffer->size, 0);
    putStrCharBuffer(buffer, "ab");
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "", 9), buffer->text);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, nullptr, 0), buffer->text);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "x", INT32_MIN), buffer->text);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', -1), buffer->text);
    EXPECT_STREQ(buffer->text, "ab");
    EXPECT_EQ(buffer->next - buffer->text, 2);
}

TEST_F(CharBufferTest, nullBuffersAreRefused) {
    freeCharBuffer(nullptr);
    EXPECT_EQ(detachCharBuffer(nullptr), nullptr);
    EXPECT_EQ(expandCharBuffer(nullptr), nullptr);
    EXPECT_EQ(fputCharBuffer(nullptr, 'a'), -1);
    EXPECT_EQ(putStrCharBuffer(nullptr, "a"), nullptr);
    EXPECT_EQ(removeLastCharBufferChar(nullptr), -1);
    EXPECT_EQ(insertChrIntoCharBuffer(nullptr, 'a', 0), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(nullptr, "a", 0), nullptr);
}

TEST_F(CharBufferTest, detachedBlockOutlivesItsBuffer) {
    CharBuffer *made = mkCharBuffer(4);
    EXPECT_EQ(detachCharBuffer(made), nullptr);
    made = mkCharBuffer(4);
    putStrCharBuffer(made, "text");
    char *text = detachCharBuffer(made);
    EXPECT_STREQ(text, "text");
    freecopy(text);
}

TEST_F(CharBufferTest, exhaustedMemoryMakesNoBuffer) {
    const FailingAlloc failing;
    EXPECT_EQ(mkCharBuffer(4), nullptr);
}

TEST_F(CharBufferTest, exhaustedMemoryLeavesAFreshBufferEmpty) {
    make(4);
    const FailingAlloc failing;
    EXPECT_EQ(expandCharBuffer(buffer), nullptr);
    EXPECT_EQ(fputCharBuffer(buffer, 'a'), -1);
    EXPECT_EQ(putStrCharBuffer(buffer, "a"), nullptr);
    EXPECT_EQ(putStrCharBuffer(buffer, nullptr), nullptr);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'a', 3), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "a", 3), nullptr);
    EXPECT_EQ(buffer->text, nullptr);
    EXPECT_EQ(buffer->next, nullptr);
    EXPECT_EQ(buffer->size, 0);
}

TEST_F(CharBufferTest, exhaustedMemoryLeavesTheContentTerminated) {
    make(4);
    putStrCharBuffer(buffer, "abc");
    const CharBuffer before = *buffer;
    const FailingAlloc failing;
    EXPECT_EQ(expandCharBuffer(buffer), nullptr);
    EXPECT_EQ(putStrCharBuffer(buffer, "defgh"), nullptr);
    EXPECT_EQ(putStrCharBuffer(buffer, "d"), nullptr);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', 1), nullptr);
    EXPECT_EQ(insertChrIntoCharBuffer(buffer, 'x', 9), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "xy", 1), nullptr);
    EXPECT_EQ(insertStrIntoCharBuffer(buffer, "x", 3), nullptr);
    EXPECT_EQ(memcmp(buffer, &before, sizeof before), 0);
    EXPECT_STREQ(buffer->text, "abc");
    EXPECT_EQ(fputCharBuffer(buffer, 'd'), 'd');
    EXPECT_EQ(fputCharBuffer(buffer, 'e'), -1);
    EXPECT_EQ(content(), "abcd");
}

TEST_F(CharBufferTest, byteOfAllOnesIsToldFromFailureByNext) {
    make(1);
    EXPECT_EQ(fputCharBuffer(buffer, '\xFF'), -1);
    EXPECT_EQ(buffer->next - buffer->text, 1);
    const FailingAlloc failing;
    EXPECT_EQ(fputCharBuffer(buffer, '\xFF'), -1);
    EXPECT_EQ(buffer->next - buffer->text, 1);
}

} // namespace
