/* Formatting into buffers: the bound against literals, then what is written, how the block grows,
 * what is left after a failure, and the scratch buffer of each thread. */
#include "buffers/fmtCharBuf.h"

#include "support/childProcess.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <pthread.h>
#include <string>
#include <thread>

namespace {

// The first case of all: the key must not exist yet in the process that is forked.
TEST(FmtStrWithoutKeys, exhaustedKeysGiveNull) {
    expectChildPasses([] {
        pthread_key_t key;
        while (pthread_key_create(&key, nullptr) == 0) {
        }
        EXPECT_EQ(fmtStr("text"), nullptr);
    });
}

TEST(FmtCharBuf, boundOfPlainText) {
    EXPECT_EQ(maxFormatLength(""), 1);
    EXPECT_EQ(maxFormatLength("abc"), 4);
    EXPECT_EQ(maxFormatLength("%%"), 2);
    EXPECT_EQ(maxFormatLength("%%%%x"), 4);
    EXPECT_EQ(maxFormatLength("\xFF\x80"), 3);
    EXPECT_EQ(maxFormatLength(nullptr), 1);
}

TEST(FmtCharBuf, boundStopsAtTheFormatsEndInsideAConversion) {
    EXPECT_EQ(maxFormatLength("ab%"), 3);
    EXPECT_EQ(maxFormatLength("%"), 1);
    EXPECT_EQ(maxFormatLength("%-+ #"), 1);
    EXPECT_EQ(maxFormatLength("%12"), 1);
    EXPECT_EQ(maxFormatLength("%12.3"), 1);
    EXPECT_EQ(maxFormatLength("%12."), 1);
    EXPECT_EQ(maxFormatLength("%l"), 1);
    EXPECT_EQ(maxFormatLength("%*", 7), 1);
    EXPECT_EQ(maxFormatLength("%.*", 7), 1);
}

TEST(FmtCharBuf, boundOfIntegers) {
    const struct {
        const char *format;
        int value, bound;
    } rows[] = {
        {"%d", 0, 2},         {"%d", 9, 2},        {"%d", 10, 3},       {"%d", -5, 3},
        {"%i", -10, 4},       {"%d", INT_MAX, 11}, {"%d", INT_MIN, 12}, {"%+d", 5, 3},
        {"% d", 5, 3},        {"%+d", -5, 3},      {"%5d", 42, 6},      {"%2d", 12345, 6},
        {"%-5d", 42, 6},      {"%05d", 42, 6},     {"%.4d", 42, 5},     {"%.0d", 0, 2},
        {"%.d", 42, 3},       {"%+.4d", 42, 5},    {"%8.4d", 42, 9},    {"%3.4d", 42, 5},
        {"%u", 0, 2},         {"%u", -1, 11},      {"%+u", 7, 3},       {"%#u", 7, 2},
        {"%#d", 7, 2},        {"%o", 0, 2},        {"%o", 8, 3},        {"%o", -1, 12},
        {"%#o", 8, 4},        {"%+o", 8, 3},       {"%#.4o", 8, 6},     {"%x", 0, 2},
        {"%x", 255, 3},       {"%X", 256, 4},      {"%x", -1, 9},       {"%x", INT_MIN, 9},
        {"%#x", 255, 5},      {"%#X", 255, 5},     {"%#x", 0, 4},       {"%#.8x", 255, 11},
        {"%#12.8x", 255, 13}, {"%2.2x", 0x80, 3},  {"%# -+#x", 255, 5},
    };
    for (const auto &row : rows)
        EXPECT_EQ(maxFormatLength(row.format, row.value), row.bound)
            << row.format << " of " << row.value;
}

TEST(FmtCharBuf, boundOfLongIntegers) {
    constexpr bool wide = sizeof(long) == 8;
    EXPECT_EQ(maxFormatLength("%ld%ld", 5L, -7L), 4);
    EXPECT_EQ(maxFormatLength("%ld", LONG_MIN), wide ? 21 : 12);
    EXPECT_EQ(maxFormatLength("%ld", LONG_MAX), wide ? 20 : 11);
    EXPECT_EQ(maxFormatLength("%lu", ULONG_MAX), wide ? 21 : 11);
    EXPECT_EQ(maxFormatLength("%lo", -1L), wide ? 23 : 12);
    EXPECT_EQ(maxFormatLength("%lx", -1L), wide ? 17 : 9);
    EXPECT_EQ(maxFormatLength("%.8lX", 0xFFFFFFFFUL), 9);
    EXPECT_EQ(maxFormatLength("%8.8lx", 0x80000000UL), 9);
    EXPECT_EQ(maxFormatLength("%d", -1), 3);
}

TEST(FmtCharBuf, boundOfCharactersIgnoresTheWidth) {
    EXPECT_EQ(maxFormatLength("%c", 'x'), 2);
    EXPECT_EQ(maxFormatLength("%5c", 'x'), 2);
    EXPECT_EQ(maxFormatLength("%*c%s", 90, 'x', "abc"), 5);
}

TEST(FmtCharBuf, boundOfTexts) {
    EXPECT_EQ(maxFormatLength("%s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%.2s", "abcdef"), 3);
    EXPECT_EQ(maxFormatLength("%.9s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%10s", "ab"), 11);
    EXPECT_EQ(maxFormatLength("%-10.1s", "ab"), 11);
    EXPECT_EQ(maxFormatLength("%1s", "ab"), 3);
    EXPECT_EQ(maxFormatLength("%s", ""), 1);
    EXPECT_EQ(maxFormatLength("%ls", L"a"), 2);
}

TEST(FmtCharBuf, precisionZeroDoesNotCutATextsBound) {
    EXPECT_EQ(maxFormatLength("%.0s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%.s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%.*s", -3, "abcdef"), 7);
}

TEST(FmtCharBuf, nullTextCountsNothingWhateverTheWidth) {
    const char *none = nullptr;
    EXPECT_EQ(maxFormatLength("%s", none), 1);
    EXPECT_EQ(maxFormatLength("%10s", none), 1);
    EXPECT_EQ(maxFormatLength("%10s%d", none, 10), 3);
}

TEST(FmtCharBuf, textIsNotReadPastItsPrecision) {
    char *array = new char[6];
    memcpy(array, "sixsix", 6);
    EXPECT_EQ(maxFormatLength("%.6s", array), 7);
    EXPECT_STREQ(fmtStr("%.6s", array), "sixsix");
    delete[] array;
}

TEST(FmtCharBuf, hugePrecisionCutsNoTextsBound) {
    EXPECT_EQ(maxFormatLength("%.2147483647s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%.4294967296s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%.4294967298s", "abcdef"), 7);
    EXPECT_EQ(maxFormatLength("%.18446744073709551618s", "abcdef"), 7);
}

TEST(FmtCharBuf, boundOfFloatingNumbers) {
    const struct {
        const char *format;
        double value;
        int bound;
    } rows[] = {
        {"%f", 1.0, 9},      {"%f", 0.0, 9},        {"%f", 0.5, 9},       {"%f", 0.25, 8},
        {"%f", -0.25, 9},    {"%f", 2.0, 9},        {"%f", 4.0, 10},      {"%f", -4.0, 11},
        {"%f", 1023.0, 12},  {"%.2f", 1.0, 5},      {"%.0f", 1.0, 3},     {"%.f", 1.0, 9},
        {"%+f", 1.0, 10},    {"% f", -1.0, 10},     {"%12f", 1.0, 13},    {"%f", -0.0, 9},
        {"%f", HUGE_VAL, 9}, {"%f", -HUGE_VAL, 10}, {"%f", NAN, 9},       {"%f", -NAN, 9},
        {"%e", 1.0, 8},      {"%E", -1.0, 9},       {"%.8e", 1.0, 8},     {"%.9e", 1.0, 9},
        {"%+e", 1.0, 9},     {"%e", 0x1p298, 8},    {"%e", 0x1p299, 9},   {"%e", 0x1p-300, 8},
        {"%e", 0x1p-301, 9}, {"%g", 1.0, 12},       {"%G", -1.0, 13},     {"%.0g", 1.0, 6},
        {"%g", 0x1p298, 12}, {"%g", 0x1p299, 13},   {"%G", 0x1p-300, 12}, {"%g", 0x1p-301, 13},
        {"%20g", 1.0, 21},   {"%e", 0x1p-1074, 9},  {"%f", 0x1p-1074, 8}, {"%f", 0.75, 9},
        {"%f", 8.0, 10},     {"%f", 32.0, 11},      {"%e", HUGE_VAL, 8},  {"%g", NAN, 12},
        {"%e", 0.0, 8},      {"%f", 0x1p1023, 350}, {"%lf", 1.0, 9},      {"%#f", 1.0, 9},
    };
    for (const auto &row : rows)
        EXPECT_EQ(maxFormatLength(row.format, row.value), row.bound)
            << row.format << " of " << row.value;
}

TEST(FmtCharBuf, starsTakeTheirArguments) {
    EXPECT_EQ(maxFormatLength("%*d", 7, 42), 8);
    EXPECT_EQ(maxFormatLength("%*d", -7, 42), 8);
    EXPECT_EQ(maxFormatLength("%.*d", 7, 42), 8);
    EXPECT_EQ(maxFormatLength("%.*d", -7, 42), 3);
    EXPECT_EQ(maxFormatLength("%*.*f", 1, 2, 1.0), 5);
    EXPECT_EQ(maxFormatLength("%.*f", -1, 1.0), 3);
}

TEST(FmtCharBuf, unlistedConversionsTakeNoArgument) {
    EXPECT_EQ(maxFormatLength("%h"), 1);
    EXPECT_EQ(maxFormatLength("%p%d", 100), 4);
    EXPECT_EQ(maxFormatLength("%n%d", 100), 4);
    EXPECT_EQ(maxFormatLength("%hd", 100), 2);  // the "d" counts as text
    EXPECT_EQ(maxFormatLength("%lld", 100), 2); // so does this one
    EXPECT_EQ(maxFormatLength("%20p"), 1);
    EXPECT_EQ(maxFormatLength("%A%z%5%"), 1);
    EXPECT_EQ(maxFormatLength("%F%d", 100), 4);
    EXPECT_EQ(maxFormatLength("%0-5d", 100), 3); // "-" after the width ends the conversion
}

TEST(FmtCharBuf, boundsPastTheIntegersRangeStopAtItsEnd) {
    EXPECT_EQ(maxFormatLength("%*d", INT_MIN, 1), INT32_MAX);
    EXPECT_EQ(maxFormatLength("%*d", -INT_MAX, 1), INT32_MAX);
    EXPECT_EQ(maxFormatLength("%99999999999999999999d", 1), INT32_MAX);
    EXPECT_EQ(maxFormatLength("%.99999999999999999999f", 1.0), INT32_MAX);
    EXPECT_EQ(maxFormatLength("%2147483646d", 1), INT32_MAX);
    EXPECT_EQ(maxFormatLength("%2147483645d", 1), INT32_MAX - 1);
    EXPECT_EQ(maxFormatLength("%.2147483647g%.2147483647g%.2147483647g", 1.0, 1.0, 1.0), INT32_MAX);
}

int32_t boundThenFormat(CharBuffer *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int32_t bound = vmaxFormatLength(format, args);
    vfmtCharBuffer(buffer, format, args);
    va_end(args);
    return bound;
}

TEST(FmtCharBuf, boundLeavesTheCallersArgumentsWhereTheyStood) {
    CharBuffer *buffer = mkCharBuffer(16);
    EXPECT_EQ(boundThenFormat(buffer, "%d,%s,%ld,%.1f", 1, "two", 3L, 4.0), 13);
    EXPECT_STREQ(buffer->text, "1,two,3,4.0");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, textIsAppendedAndTerminated) {
    CharBuffer *buffer = mkCharBuffer(0);
    EXPECT_EQ(fmtCharBuffer(buffer, "%d", 12), 2);
    EXPECT_EQ(fmtCharBuffer(buffer, "-%s-", "x"), 3);
    EXPECT_EQ(fmtCharBuffer(buffer, ""), 0);
    EXPECT_EQ(fmtCharBuffer(buffer, nullptr), 0);
    EXPECT_STREQ(buffer->text, "12-x-");
    EXPECT_EQ(buffer->next - buffer->text, 5);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, emptyFormatOnAFreshBufferGivesTheEmptyText) {
    CharBuffer *buffer = mkCharBuffer(8);
    EXPECT_EQ(fmtCharBuffer(buffer, ""), 0);
    ASSERT_NE(buffer->text, nullptr);
    EXPECT_STREQ(buffer->text, "");
    EXPECT_EQ(buffer->size, 8);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, firstBlockHasASpareByteAndLaterOnesHaveNone) {
    CharBuffer *buffer = mkCharBuffer(16);
    fmtCharBuffer(buffer, "%s", "0123456789");
    EXPECT_EQ(lastAllocSize(), 17U);
    EXPECT_EQ(buffer->size, 16);
    EXPECT_EQ(buffer->limit, buffer->text + 16);
    fmtCharBuffer(buffer, "%s", "0123456789");
    EXPECT_EQ(lastAllocSize(), 32U);
    EXPECT_EQ(buffer->size, 32);
    EXPECT_EQ(buffer->limit, buffer->text + 32);
    EXPECT_STREQ(buffer->text, "01234567890123456789");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, growsOnceToTheMultipleThatHoldsTheBound) {
    CharBuffer *buffer = mkCharBuffer(128);
    putStrCharBuffer(buffer, std::string(100, 'a').c_str());
    ASSERT_EQ(buffer->size, 128);
    EXPECT_EQ(fmtCharBuffer(buffer, "%39d", 1), 39);
    EXPECT_EQ(buffer->size, 256);
    EXPECT_EQ(fmtCharBuffer(buffer, "%1000d", 1), 1000);
    EXPECT_EQ(lastAllocSize(), 1152U);
    EXPECT_EQ(buffer->size, 1152);
    freeCharBuffer(buffer);
}

// The bound is one more than the text: 15 characters fill a block of 16.
TEST(FmtCharBuf, boundBelowAtAndAboveTheBlocksEnd) {
    const struct {
        const char *format;
        int32_t size;
    } rows[] = {{"%14d", 16}, {"%15d", 16}, {"%16d", 32}, {"%31d", 32}, {"%32d", 48}};
    for (const auto &row : rows) {
        CharBuffer *buffer = mkCharBuffer(16);
        fmtCharBuffer(buffer, row.format, 7);
        EXPECT_EQ(buffer->size, row.size) << row.format;
        EXPECT_EQ(buffer->text[strlen(buffer->text) - 1], '7');
        freeCharBuffer(buffer);
    }
}

// The bound alone decides: "%5c" writes five characters where one is counted.
TEST(FmtCharBuf, shortBoundNeverPassesTheBlocksEnd) {
    CharBuffer *buffer = mkCharBuffer(1);
    EXPECT_EQ(fmtCharBuffer(buffer, "%5c", 'x'), 5);
    EXPECT_STREQ(buffer->text, "    x");
    EXPECT_EQ(buffer->size, 6);
    EXPECT_EQ(fmtCharBuffer(buffer, "%e|%ld|%s", 1.5, 7L, "end"), 18);
    EXPECT_STREQ(buffer->text, "    x1.500000e+00|7|end");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, shortBoundGrowsToTheMultipleAboveTheRealLength) {
    const struct {
        const char *format;
        int32_t size;
    } rows[] = {{"%7c", 8}, {"%8c", 16}, {"%15c", 16}, {"%16c", 24}};
    for (const auto &row : rows) {
        CharBuffer *buffer = mkCharBuffer(8);
        fmtCharBuffer(buffer, row.format, 'x');
        EXPECT_EQ(buffer->size, row.size) << row.format;
        EXPECT_EQ(buffer->limit, buffer->text + row.size);
        EXPECT_EQ(buffer->next[-1], 'x');
        EXPECT_EQ(*buffer->next, '\0');
        freeCharBuffer(buffer);
    }
}

// Both formattings and the scan take the widths from the caller's list.
TEST(FmtCharBuf, shortBoundWithStarsTakesTheArgumentsAnew) {
    CharBuffer *buffer = mkCharBuffer(1);
    EXPECT_EQ(fmtCharBuffer(buffer, "%*c|%.*f|%s", 5, 'x', 1, 2.5, "end"), 13);
    EXPECT_STREQ(buffer->text, "    x|2.5|end");
    EXPECT_EQ(buffer->size, 14);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, formatThatEndsInsideAConversionIsAFailedFormatter) {
    CharBuffer *buffer = mkCharBuffer(16);
    EXPECT_EQ(fmtCharBuffer(buffer, "%"), -1);
    EXPECT_STREQ(buffer->text, "");
    putStrCharBuffer(buffer, "kept");
    EXPECT_EQ(fmtCharBuffer(buffer, "more%"), -1);
    EXPECT_STREQ(buffer->text, "kept");
    EXPECT_EQ(buffer->next - buffer->text, 4);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, shortBoundOfSmallFractions) {
    CharBuffer *buffer = mkCharBuffer(1);
    EXPECT_EQ(fmtCharBuffer(buffer, "%f", 0.25), 8);
    EXPECT_STREQ(buffer->text, "0.250000");
    EXPECT_EQ(buffer->size, 9);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, nullTextIsWrittenThoughNotCounted) {
    CharBuffer *buffer = mkCharBuffer(1);
    const char *none = nullptr;
    EXPECT_EQ(fmtCharBuffer(buffer, "%s", none), 6);
    EXPECT_STREQ(buffer->text, "(null)");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, incrementZeroBecomes128WhereTheBlockGrows) {
    CharBuffer buffer = {};
    fmtCharBuffer(&buffer, "%s", "x");
    EXPECT_EQ(buffer.increment, 128U);
    EXPECT_EQ(buffer.size, 128);
    free(buffer.text);
}

TEST(FmtCharBuf, zeroByteEndsWhatIsAppendedThoughTheCountGoesOn) {
    CharBuffer *buffer = mkCharBuffer(16);
    EXPECT_EQ(fmtCharBuffer(buffer, "ab%cde", 0), 5);
    EXPECT_EQ(buffer->next - buffer->text, 2);
    fmtCharBuffer(buffer, "f");
    EXPECT_STREQ(buffer->text, "abf");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, oddArgumentsAreTheSameWhereThereIsRoomAtOnce) {
    CharBuffer *buffer = mkCharBuffer(64);
    putStrCharBuffer(buffer, "");
    const char *none = nullptr;
    EXPECT_EQ(fmtCharBuffer(buffer, "%d %s;", 1, none), 9);
    EXPECT_STREQ(buffer->text, "1 (null);");
    EXPECT_EQ(fmtCharBuffer(buffer, "a%cb", 0), 3);
    EXPECT_STREQ(buffer->text, "1 (null);a");
    EXPECT_EQ(buffer->next - buffer->text, 10);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, nullBufferIsRefused) {
    EXPECT_EQ(fmtCharBuffer(nullptr, "%d", 1), -1);
}

// The C locale has no multibyte form of this character.
const wchar_t UNWRITABLE[] = {L'a', 0x20AC, 0};

TEST(FmtCharBuf, failedFormatterLeavesTheContentTerminated) {
    CharBuffer *buffer = mkCharBuffer(64);
    putStrCharBuffer(buffer, "kept");
    errno = 0;
    EXPECT_EQ(fmtCharBuffer(buffer, "more%ls", UNWRITABLE), -1);
    EXPECT_EQ(errno, EILSEQ);
    EXPECT_STREQ(buffer->text, "kept");
    EXPECT_EQ(buffer->next - buffer->text, 4);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, failedGrowthForTheBoundLeavesTheBuffer) {
    CharBuffer *buffer = mkCharBuffer(8);
    putStrCharBuffer(buffer, "kept");
    const CharBuffer before = *buffer;
    {
        const FailingAlloc failing;
        EXPECT_EQ(fmtCharBuffer(buffer, "%s", "longer than eight"), -1);
        EXPECT_EQ(fmtCharBuffer(buffer, "ab%s", "longer than eight"), -1);
    }
    EXPECT_EQ(memcmp(buffer, &before, sizeof before), 0);
    EXPECT_STREQ(buffer->text, "kept");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, failedGrowthOnAResetBufferLeavesItReset) {
    CharBuffer *buffer = mkCharBuffer(8);
    putStrCharBuffer(buffer, "stale");
    buffer->next = buffer->text;
    const CharBuffer before = *buffer;
    const FailingAlloc failing;
    EXPECT_EQ(fmtCharBuffer(buffer, "%s", "longer than eight"), -1);
    EXPECT_EQ(memcmp(buffer, &before, sizeof before), 0);
    EXPECT_EQ(fmtCharBuffer(buffer, "%80c", 'x'), -1);
    EXPECT_EQ(memcmp(buffer, &before, sizeof before), 0);
    EXPECT_STREQ(buffer->text, "");
    EXPECT_EQ(fmtCharBuffer(buffer, "%s", "fresh"), 5);
    EXPECT_STREQ(buffer->text, "fresh");
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, failedGrowthForTheRealLengthLeavesTheContentTerminated) {
    CharBuffer *buffer = mkCharBuffer(8);
    putStrCharBuffer(buffer, "kept");
    {
        const FailingAlloc failing;
        EXPECT_EQ(fmtCharBuffer(buffer, "%80c", 'x'), -1);
    }
    EXPECT_STREQ(buffer->text, "kept");
    EXPECT_EQ(buffer->next - buffer->text, 4);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, sizesPastTheIntegersRangeCountAsExhaustedMemory) {
    CharBuffer *buffer = mkCharBuffer(8);
    putStrCharBuffer(buffer, "kept");
    EXPECT_EQ(fmtCharBuffer(buffer, "%2147483647d", 1), -1);
    EXPECT_EQ(fmtCharBuffer(buffer, "%*d", INT_MIN, 1), -1);
    EXPECT_EQ(fmtCharBuffer(buffer, "%.99999999999999999999f", 1.0), -1);
    EXPECT_STREQ(buffer->text, "kept");
    EXPECT_EQ(buffer->size, 8);
    freeCharBuffer(buffer);
}

TEST(FmtCharBuf, hugeIncrementIsNotWrappedAround) {
    CharBuffer buffer = {};
    buffer.increment = UINT32_MAX;
    EXPECT_EQ(fmtCharBuffer(&buffer, "x"), -1);
    EXPECT_EQ(buffer.text, nullptr);
}

TEST(FmtStr, nextCallOverwritesTheSameStorage) {
    char *first = fmtStr("%s", "first");
    EXPECT_STREQ(first, "first");
    char *second = fmtStr("%d", 2);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "2");
    EXPECT_STREQ(fmtStr(""), "");
    EXPECT_STREQ(fmtStr(nullptr), "");
}

char *throughList(const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *text = vfmtStr(format, args);
    va_end(args);
    return text;
}

TEST(FmtStr, takesAnArgumentListToo) {
    EXPECT_STREQ(throughList("%s=%d", "a", -7), "a=-7");
    EXPECT_EQ(throughList("x"), fmtStr("y"));
}

TEST(FmtStr, growsPastItsFirstBlock) {
    const std::string longText(1000, 'y');
    EXPECT_EQ(fmtStr("%s!", longText.c_str()), longText + "!");
}

TEST(FmtStr, eachThreadHasItsOwnText) {
    char *own = fmtStr("own");
    for (int round = 0; round < 3; ++round)
        std::thread([own] {
            char *other = fmtStr("other");
            EXPECT_NE(other, own);
            EXPECT_STREQ(other, "other");
        }).join();
    EXPECT_STREQ(own, "own");
}

TEST(FmtStr, racingThreadsSeeOnlyTheirOwnText) {
    std::thread threads[4];
    for (int number = 0; number < 4; ++number)
        threads[number] = std::thread([number] {
            const std::string expected(static_cast<size_t>(number + 1) * 60,
                                       static_cast<char>('a' + number));
            for (int round = 0; round < 500; ++round)
                ASSERT_EQ(fmtStr("%s", expected.c_str()), expected);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(FmtStr, failedFormatterGivesTheEmptyText) {
    fmtStr("stale");
    EXPECT_STREQ(fmtStr("%ls", UNWRITABLE), "");
    EXPECT_STREQ(fmtStr("fresh"), "fresh");
}

TEST(FmtStr, exhaustedMemoryGivesTheEmptyTextOrNull) {
    fmtStr("stale");
    const std::string longText(5000, 'y');
    char *text;
    {
        const FailingAlloc failing;
        text = fmtStr("%s", longText.c_str());
    }
    EXPECT_STREQ(text, "");
    for (const int successes : {0, 1})
        std::thread([successes] {
            char *none;
            {
                const FailingAlloc failing(successes);
                none = fmtStr("fresh");
            }
            EXPECT_EQ(none, nullptr);
            EXPECT_STREQ(fmtStr("fresh"), "fresh");
        }).join();
}

} // namespace
