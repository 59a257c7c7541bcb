/* Splitting a line: a table of lines and their words, then what is left in the line. */
#include "options/parseln.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using std::string;
using Words = std::vector<string>;

Words split(string line, int32_t maximum = 20) {
    std::vector<char *> words(static_cast<size_t>(maximum < 1 ? 1 : maximum));
    const int32_t count = parseln(line.data(), words.data(), maximum);
    return {words.begin(), words.begin() + count};
}

TEST(Parseln, lineFallsIntoItsWords) {
    const struct {
        const char *line;
        Words words;
    } cases[] = {
        {"", {}},
        {" \t\n\v\f\r ", {}},
        {"one", {"one"}},
        {"one two", {"one", "two"}},
        {"  one\t\ttwo\n", {"one", "two"}},
        {"a\vb\fc\rd", {"a", "b", "c", "d"}},
        {"\xE9t\xE9 \xA0 \xFF", {"\xE9t\xE9", "\xA0", "\xFF"}},
        {"\"a b\" c", {"a b", "c"}},
        {"a\"b c\"d e", {"ab cd", "e"}},
        {"\"a\"\"b\"", {"ab"}},
        {"\"\"", {""}},
        {"a \"\" b", {"a", "", "b"}},
        {"\"a\tb\nc\"", {"a\tb\nc"}},
        {"\"a b", {"a b"}},
        {"x \"a b ", {"x", "a b "}},
        {"\"", {""}},
        {"x\"", {"x"}},
        {"\"a\\\"b\" c", {"a\"b", "c"}},
        {"\"a\\\\\" b", {"a\\", "b"}},
        {"\"a\\b\"", {"ab"}},
        {"\"a\\\nb\"", {"a\nb"}},
        {"a\\ b c", {"a b", "c"}},
        {"a\\\"b c\\\"", {"a\"b", "c\""}},
        {"a\\\\ b", {"a\\", "b"}},
        {"\\a", {"a"}},
        {"a\\\nb", {"a", "b"}},
        {"\\\nb", {"", "b"}},
        {"a\\\n", {"a"}},
        {"a\\", {"a"}},
        {"\\", {""}},
        {"a \\", {"a", ""}},
        {"\"a\\", {"a"}},
        {"\"\\", {""}},
        {"'a b' `c`", {"'a", "b'", "`c`"}},
        {"#define  X_NAME\t(BASE + 4)  ", {"#define", "X_NAME", "(BASE", "+", "4)"}},
    };
    for (const auto &one : cases)
        EXPECT_EQ(split(one.line), one.words) << '|' << one.line << '|';
}

TEST(Parseln, wordsAreStoredUpToTheMaximumOnly) {
    string line = "a b c d";
    char guard[] = "guard";
    char *words[] = {guard, guard, guard};
    EXPECT_EQ(parseln(line.data(), words, 2), 2);
    EXPECT_STREQ(words[0], "a");
    EXPECT_STREQ(words[1], "b");
    EXPECT_EQ(words[2], guard);
    EXPECT_EQ(line, string("a\0b\0c d", 7));
}

TEST(Parseln, maximumOfNothingLeavesLineAndWordsAlone) {
    for (const int32_t maximum : {0, -1, INT32_MIN}) {
        string line = " \"a\" b";
        char *words[] = {nullptr};
        EXPECT_EQ(parseln(line.data(), words, maximum), 0);
        EXPECT_EQ(line, " \"a\" b");
        EXPECT_EQ(words[0], nullptr);
    }
}

TEST(Parseln, nullArgumentsHaveNoWords) {
    char line[] = "a";
    char *words[1];
    EXPECT_EQ(parseln(nullptr, words, 1), 0);
    EXPECT_EQ(parseln(line, nullptr, 1), 0);
}

TEST(Parseln, whatIsBeyondTheMaximumMovesDownUnchanged) {
    string line = "\"a\\b\"  \"c d\" e\\f";
    char *words[1];
    EXPECT_EQ(parseln(line.data(), words, 1), 1);
    EXPECT_STREQ(words[0], "ab");
    EXPECT_STREQ(words[0] + 4, "\"c d\" e\\f");
}

TEST(Parseln, blanksBetweenWordsStayInTheLine) {
    string line = "a \t b";
    char *words[2];
    EXPECT_EQ(parseln(line.data(), words, 2), 2);
    EXPECT_EQ(line, string("a\0\t b", 5));
    EXPECT_EQ(words[1], line.data() + 4);
}

TEST(Parseln, nothingBehindTheTerminatorIsTouched) {
    for (const char *text : {"a\\", "\"a\\", "\"a", "\\", "a "}) {
        string line = text;
        line += string("\0guard \"x\"", 10);
        char *words[4];
        EXPECT_EQ(parseln(line.data(), words, 4), 1) << text;
        EXPECT_EQ(line.substr(line.size() - 9), "guard \"x\"") << text;
    }
}

TEST(Parseln, longLineOfQuotedWordsTakesTimeInProportion) {
    string line;
    for (int word = 0; word < 200000; ++word)
        line += "\"w\\x\" ";
    std::vector<char *> words(200001);
    EXPECT_EQ(parseln(line.data(), words.data(), 200001), 200000);
    EXPECT_STREQ(words[199999], "wx");
}

} // namespace
