/* Visible rendering and wrapping in a buffer of the caller's: tables of texts, the told rules one
   by one, and a second wrapping, which works in place as the rules are told, against which random
   texts are compared. Settings are process-wide, so each case runs in a child. */
#include "records.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

// A buffer that holds exactly the text, unterminated.
CharBuffer *bufferOf(const std::string &text) {
    CharBuffer *buffer = mkCharBuffer(static_cast<int32_t>(16 + text.size() / 8));
    for (char ch : text)
        fputCharBuffer(buffer, ch);
    return buffer;
}

std::string posted(const std::string &text) {
    CharBuffer *buffer = bufferOf(text);
    const char *result = postMsg(buffer);
    EXPECT_EQ(result, buffer->text);
    EXPECT_EQ(*buffer->next, '\0');
    const std::string whole(buffer->text, buffer->next);
    freeCharBuffer(buffer);
    return whole;
}

std::string wrapped(int32_t cutoff, const std::string &text) {
    chgExpansionCutoff(cutoff);
    return posted(text);
}

TEST(PostMsg, nullBufferGivesNull) {
    EXPECT_EQ(postMsg(nullptr), nullptr);
}

TEST(PostMsg, freshBufferGivesTheEmptyText) {
    expectChildPasses([] {
        EXPECT_EQ(posted(""), "");
        EXPECT_EQ(wrapped(5, ""), "");
        setVisible(1);
        EXPECT_EQ(wrapped(5, ""), "");
        EXPECT_EQ(wrapped(0, ""), "");
    });
}

TEST(PostMsg, withoutSettingsTextStaysAndIsTerminated) {
    expectChildPasses([] {
        EXPECT_EQ(posted("a long line\ta\x01"), "a long line\ta\x01"); // cut-off still -1
        EXPECT_EQ(wrapped(0, std::string(100, 'x')), std::string(100, 'x'));
    });
}

TEST(PostMsg, visibleRendering) {
    expectChildPasses([] {
        setVisible(1);
        EXPECT_EQ(posted("a\bb\tc\nd\fe\rf"), "a\\bb\\tc\\n\nd\\f\ne\\rf");
        EXPECT_EQ(posted("\x01\x0b\x1c\x7f\x80\xff"), "<1><13><34><177><200><377>");
        EXPECT_EQ(posted(std::string("a\0b", 3)), "a<0>b");
        EXPECT_EQ(posted("plain \\ <text>"), "plain \\ <text>");
    });
}

struct Case {
    int32_t cutoff;
    const char *text, *expected;
};

const Case plain[] = {
    {10, "abcd efghi", "abcd efghi"},             // ten columns fit
    {10, "abcd efghij", "abcd\nefghij"},          // the eleventh does not
    {10, "abcd\tefghijklmn", "abcd\nefghijklmn"}, // a tab is as good as a blank
    {4, "abcdefghij", "abcd\nefgh\nij"},          // no blank: the word is split
    {4, "abcd", "abcd"},
    {4, "", ""},
    {1, "abc", "a\nb\nc"},
    {1, "a b", "a \nb"},                 // the blank stands at the cut-off: not remembered
    {4, "abcd efgh", "abcd \nefgh"},     // the same
    {5, "abcd efgh", "abcd\nefgh"},      // one column earlier it is
    {4, "a b c d e", "a b\nc d\ne"},     // the last blank wins
    {4, "a  bcd", "a \nbcd"},            // two blanks: the last
    {4, "abc\ndefg", "abc\ndefg"},       // a line feed starts at 0
    {4, "abc\rdefg", "abc\rdefg"},       // so does a carriage return
    {4, "abc\fdefg", "abc\fd\nefg"},     // a form feed does not
    {4, "abcd\b\befg", "abcd\b\bef\ng"}, // backspaces take columns back
    {4, "\b\b\babcde", "\b\b\babcd\ne"}, // but not below 0
    {4,
     "ab\x01\x80"
     "cd",
     "ab\x01\x80"
     "cd"}, // what is not printable takes none
    {4,
     "abcd\x01"
     "e",
     "abcd\x01\ne"},
    {20, "abcdefghij\tklmnopqrstuvwxyz", "abcdefghij\tklmnopqrstuvwxyz"}, // 10 -> 2, then 18 fit
    {4, "a b\ncdefg", "a\nb\ncdef\ng"}, // kept: the blank before the line feed is still the place
    {4, "ab \x01 \x02", "ab \x01 \x02"},
    {4, "ab     ", "ab     "}, // blanks alone overflow nothing
    {4, "ab      c", "ab \n   \nc"},
    {3, "a         b", "a \n  \n  \n b"},
};

TEST(Wrapping, withoutPrefix) {
    expectChildPasses([] {
        for (const Case &c : plain)
            EXPECT_EQ(wrapped(c.cutoff, c.text), c.expected) << c.cutoff << " " << c.text;
    });
}

const Case prefixed[] = {
    {10, "abcd efghij", "abcd\n> efghij"},
    {6, "abcdefghijkl", "abcdef\n> ghij\n> kl"},
    {6, "abc defg hij", "abc\n> defg \n> hij"},
    {2, "abcd", "ab\n> c\n> d"}, // no room beside the prefix: one character a line
    {1, "abc", "a\n> b\n> c"},
};

TEST(Wrapping, withPrefix) {
    expectChildPasses([] {
        chgContinuationPrefix("> ");
        for (const Case &c : prefixed)
            EXPECT_EQ(wrapped(c.cutoff, c.text), c.expected) << c.cutoff << " " << c.text;
    });
}

// At the continuation point no character is looked at: it counts one column.
TEST(Wrapping, characterAtTheContinuationPointCountsOneColumn) {
    expectChildPasses([] {
        // Behind the break at the second blank stands a third: one column, and no place to break.
        EXPECT_EQ(wrapped(4, "ab  cdefg"), "ab \ncdef\ng");
        EXPECT_EQ(wrapped(3, "ab \tcdef"), "ab\n\tcd\nef");
        EXPECT_EQ(wrapped(3, "ab \x01"
                             "cdef"),
                  "ab\n\x01"
                  "cd\nef");
    });
}

TEST(Wrapping, widePrefixTakesCharactersOfTheTextWithIt) {
    expectChildPasses([] {
        setVisible(1);
        EXPECT_EQ(chgContinuationPrefix("\x01"), 3); // one byte that counts three columns
        setVisible(0);
        // Columns 0 to 2 are the prefix's, and two characters go with them; the third counts one.
        EXPECT_EQ(wrapped(5, "abcdefghijklm"), "abcde\n\x01"
                                               "fghi\n\x01"
                                               "jklm");
        EXPECT_EQ(wrapped(5, "abcdef"), "abcde\n\x01"
                                        "f"); // clamped to the end
        EXPECT_EQ(wrapped(5, "abcdefg"), "abcde\n\x01"
                                         "fg");
        EXPECT_EQ(wrapped(5, "abcdefgh"), "abcde\n\x01"
                                          "fgh");
    });
}

TEST(Wrapping, narrowPrefixCountsItsOwnTail) {
    expectChildPasses([] {
        EXPECT_EQ(chgContinuationPrefix("\x01>"), 1);
        // Column 1 after the prefix, one more for its second byte: then three characters fit.
        EXPECT_EQ(wrapped(5, "abcdefghij"), "abcde\n\x01>fgh\n\x01>ij");
        EXPECT_EQ(wrapped(5, "abcde fghij"), "abcde \n\x01>fgh\n\x01>ij");
    });
}

TEST(Wrapping, neverEndsInsideAPrefixAndSoAlwaysEnds) {
    expectChildPasses([] {
        for (const char *prefix : {"\t\t\tabc", "\x01 \x01 ", "\t \t > ", "wider than all", "\n\n"})
            for (int32_t cutoff = 1; cutoff < 6; ++cutoff) {
                chgContinuationPrefix(prefix);
                const std::string result = wrapped(cutoff, "abcdefghij klmno  pqr\tstu");
                EXPECT_LT(result.size(), 24 * (strlen(prefix) + 2)) << prefix << cutoff;
            }
    });
}

TEST(Wrapping, emptyPrefixIsAsGoodAsNone) {
    expectChildPasses([] {
        chgContinuationPrefix("");
        EXPECT_EQ(wrapped(4, "ab cdefghi"), "ab\ncdef\nghi");
    });
}

TEST(Wrapping, visibleTextIsWrappedAsShown) {
    expectChildPasses([] {
        setVisible(1);
        EXPECT_EQ(wrapped(4, "ab\tcd"), "ab\\t\ncd");
        EXPECT_EQ(wrapped(4, "a\nbcde"), "a\\n\nbcde");
    });
}

TEST(Wrapping, zeroBytesTakeNoColumn) {
    expectChildPasses(
        [] { EXPECT_EQ(wrapped(3, std::string("ab\0cd", 5)), std::string("ab\0c\nd", 6)); });
}

TEST(Wrapping, longTextsCostNoMoreThanTheirLength) {
    expectChildPasses(
        [] {
            const size_t length = 400000;
            chgContinuationPrefix("> ");
            EXPECT_GT(wrapped(3, std::string(length, 'x')).size(), length);
            EXPECT_GT(wrapped(3, std::string(length, ' ') + "x").size(), length);
            EXPECT_GT(wrapped(3, std::string(length, ' ') + "\nwords").size(), length);
            EXPECT_GT(wrapped(9, std::string(length, ' ') + "\twordswords").size(), length);
        },
        20);
}

// The wrapping as it is told, in place; for prefixes as wide as long, where it ends by itself.
std::string wrappedInPlace(std::string text, size_t cutoff, const std::string &prefix) {
    size_t column = 0, at = 0, place = std::string::npos;
    while (at < text.size()) {
        const char ch = text[at];
        if (ch == '\b') {
            column -= column > 0;
        } else if (ch == '\t') {
            if (cutoff > column)
                place = at;
            column %= 8;
        } else if (ch == '\n' || ch == '\r') {
            column = 0;
        } else if (ch == ' ') {
            if (cutoff > column)
                place = at;
            ++column;
        } else if (ch > ' ' && ch < 0x7F) {
            if (column < cutoff) {
                ++column;
            } else {
                if (place != std::string::npos) {
                    text[place] = '\n';
                    at = place + 1;
                } else {
                    text.insert(at++, 1, '\n');
                }
                text.insert(at, prefix);
                at += prefix.size();
                column = prefix.size() + 1;
                place = std::string::npos;
            }
        }
        ++at;
    }
    return text;
}

TEST(Wrapping, agreesWithWrappingInPlace) {
    expectChildPasses([] {
        std::mt19937 random(20171114);
        const std::string alphabet = "abc   \t\n\r\b\f\x01";
        for (int round = 0; round < 20000; ++round) {
            std::string text;
            for (size_t length = random() % 60; text.size() < length;)
                text += alphabet[random() % alphabet.size()];
            const int32_t cutoff = static_cast<int32_t>(1 + random() % 14);
            const std::string prefix(random() % 4, '>');
            chgContinuationPrefix(prefix.c_str());
            ASSERT_EQ(wrapped(cutoff, text),
                      wrappedInPlace(text, static_cast<size_t>(cutoff), prefix))
                << cutoff << prefix << "\n"
                << text;
        }
    });
}

TEST(Wrapping, blankInTheTailOfANarrowPrefixIsNoPlaceToBreak) {
    expectChildPasses([] {
        EXPECT_EQ(chgContinuationPrefix("\x01\x01\x01 >"), 2);
        // Column 2, one more at the continuation point, then the blank and the ">": two are left.
        EXPECT_EQ(wrapped(7, "abcdefghij"), "abcdefg\n\x01\x01\x01 >hi\n\x01\x01\x01 >j");
    });
}

TEST(PostMsg, zeroBytesAreShownAndKept) {
    expectChildPasses([] {
        EXPECT_EQ(wrapped(9, std::string("a\0b", 3)), std::string("a\0b", 3));
        setVisible(1);
        EXPECT_EQ(wrapped(9, std::string("a\0b", 3)), "a<0>b");
    });
}

// The content after n granted allocations: posted whole, or as it was and null.
void expectPostedOrUnchanged(int n, int visible, int32_t cutoff, const std::string &expected) {
    expectChildPasses([&] {
        setVisible(visible);
        chgExpansionCutoff(cutoff);
        const std::string text(100, '\x01');
        CharBuffer *buffer = bufferOf(text);
        const char *result;
        {
            const FailingAlloc fails(n);
            result = postMsg(buffer);
        }
        EXPECT_EQ(std::string(buffer->text, buffer->next), result == nullptr ? text : expected);
        if (n == 0 || n == 30) {
            EXPECT_EQ(result != nullptr, n == 30);
        }
        EXPECT_EQ(postMsg(nullptr), nullptr);
        freeCharBuffer(buffer);
    });
}

TEST(PostMsg, exhaustedMemoryLeavesTheContent) {
    std::string shown, lines;
    for (int i = 0; i < 100; ++i)
        shown += "<1>";
    for (size_t line = 0; line < 5; ++line)
        lines += (line == 0 ? "" : "\n") + shown.substr(60 * line, 60);
    for (int n = 0; n <= 30; ++n) {
        expectPostedOrUnchanged(n, 1, 0, shown);
        expectPostedOrUnchanged(n, 1, 60, lines);
        expectPostedOrUnchanged(n, 0, 60, std::string(100, '\x01'));
    }
}

} // namespace
