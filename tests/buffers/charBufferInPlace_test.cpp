/* The appends that callers compiled with optimisation make in place, as this file is, against the
 * library's own on the same texts. */
#include "buffers/charBuffer.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#ifndef __OPTIMIZE__
#error "without optimisation there are no appends in place"
#endif

namespace {

// Read anew for each call, so that the compiler cannot see through it.
int (*volatile libraryFputCharBuffer)(CharBuffer *, char) = fputCharBuffer;
char *(*volatile libraryPutStrCharBuffer)(CharBuffer *, const char *) = putStrCharBuffer;

struct FreeBuffer {
    void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
};
using Buffer = std::unique_ptr<CharBuffer, FreeBuffer>;

// The content, and the byte behind it where that is told.
std::string contentOf(const Buffer &buffer, bool isTerminated) {
    return std::string(buffer->text, buffer->next + (isTerminated ? 1 : 0));
}

void expectAlike(const Buffer &inPlace, const Buffer &library, bool isTerminated) {
    ASSERT_EQ(inPlace->size, library->size);
    ASSERT_EQ(inPlace->limit - inPlace->text, library->size);
    ASSERT_EQ(inPlace->text == nullptr, library->text == nullptr);
    ASSERT_EQ(contentOf(inPlace, isTerminated), contentOf(library, isTerminated));
}

std::string randomText(std::mt19937 &random) {
    std::string text(random() % 8 == 0 ? random() % 600 : random() % 20, ' ');
    for (char &ch : text)
        ch = static_cast<char>(1 + random() % 255);
    return text;
}

// One append to both, without memory if told so; false if it was refused.
bool appendToBoth(const Buffer &inPlace, const Buffer &library, bool isRefused,
                  std::mt19937 &random) {
    const std::string text = randomText(random);
    const char *given = random() % 8 == 0 ? nullptr : text.c_str();
    const char ch = static_cast<char>(random());
    const bool isText = random() % 2 == 0;
    std::unique_ptr<FailingAlloc> failing(isRefused ? new FailingAlloc : nullptr);
    if (isText) {
        const char *put = putStrCharBuffer(inPlace.get(), given);
        const char *libraryPut = libraryPutStrCharBuffer(library.get(), given);
        failing.reset();
        EXPECT_EQ(put == nullptr, libraryPut == nullptr);
        EXPECT_TRUE(put == nullptr || put == inPlace->text);
        expectAlike(inPlace, library, put != nullptr);
        return put != nullptr;
    }
    const char *before = inPlace->next;
    const int put = fputCharBuffer(inPlace.get(), ch);
    const int libraryPut = libraryFputCharBuffer(library.get(), ch);
    failing.reset();
    EXPECT_EQ(put, libraryPut);
    expectAlike(inPlace, library, false);
    return inPlace->next != before;
}

TEST(CharBufferInPlace, randomAppendsLeaveWhatTheLibrarysLeave) {
    std::mt19937 random(20262);
    int refused = 0;
    for (int round = 0; round < 500; ++round) {
        const int32_t increment = static_cast<int32_t>(random() % 4 == 0 ? 0 : 1 + random() % 40);
        const Buffer inPlace(mkCharBuffer(increment)), library(mkCharBuffer(increment));
        for (int step = 0; step < 40; ++step) {
            if (random() % 10 == 0) { // as callers do who use a buffer anew
                inPlace->next = inPlace->text;
                library->next = library->text;
            }
            const bool isRefused = random() % 4 == 0;
            refused += appendToBoth(inPlace, library, isRefused, random) ? 0 : 1;
            ASSERT_FALSE(::testing::Test::HasFailure()) << round << ' ' << step;
        }
    }
    EXPECT_GT(refused, 100);
}

TEST(CharBufferInPlace, nullBufferIsRefused) {
    CharBuffer *volatile none = nullptr;
    EXPECT_EQ(fputCharBuffer(none, 'x'), -1);
    EXPECT_EQ(putStrCharBuffer(none, "x"), nullptr);
    EXPECT_EQ(putStrCharBuffer(none, nullptr), nullptr);
}

TEST(CharBufferInPlace, topBitComesBackNegative) {
    const Buffer buffer(mkCharBuffer(0));
    EXPECT_EQ(fputCharBuffer(buffer.get(), 'a'), 'a');
    EXPECT_EQ(fputCharBuffer(buffer.get(), '\xFE'), -2);
    EXPECT_EQ(fputCharBuffer(buffer.get(), '\xFF'), -1);
    EXPECT_EQ(contentOf(buffer, false), "a\xFE\xFF");
}

} // namespace
