/* The matcher against two others: random programs and subjects against the slow recursive one in
   referenceMatcher.h, captures included, once as they are and once after enough failures that the
   interpreter notes and skips them, once on subjects of long runs, where what must come further on
   is looked for first; and random patterns whose first match is the only or longest one against
   the system's regexec. */
#include "regex/regularExp.h"

#include "listing.h"
#include "referenceMatcher.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <regex.h>
#include <string>

namespace {

using namespace matchProgram;

std::mt19937 generator;

int below(int limit) {
    return static_cast<int>(generator() % static_cast<unsigned>(limit));
}

template<size_t N>
const char *pick(const char *const (&from)[N]) {
    return from[below(static_cast<int>(N))];
}

std::string randomSubject(const char *alphabet, int longest) {
    std::string subject;
    for (int length = below(longest + 1); length > 0; --length)
        subject += alphabet[below(static_cast<int>(strlen(alphabet)))];
    return subject;
}

// ---- programs

template<size_t N>
std::string str(const Bytes<N> &part) {
    return std::string(part.bytes, N);
}

char byteOf(int value) {
    return static_cast<char>(value);
}

std::string randomCounts() {
    static const int MAXIMA[] = {0, 1, 2, 3, 5, 255};
    return {byteOf(below(4)), byteOf(MAXIMA[below(6)])};
}

std::string randomItem() {
    static const char *const CLASSES[] = {"\x02"
                                          "a",
                                          "\x03"
                                          "ab",
                                          "\x04\x10"
                                          "bc",
                                          "\x05\x10"
                                          "abc",
                                          "\x04\x10"
                                          "\x20\xE9",
                                          "\x06"
                                          "\xE9\x10"
                                          "Zbc",
                                          "\x01",
                                          "\x03\x10"
                                          "a"};
    static const int KINDS[] = {MATCH_CHARACTER, MATCH_CHARACTER, MATCH_ANY, MATCH_IN_CLASS,
                                MATCH_NOT_IN_CLASS};
    const int kind = KINDS[below(5)], how = below(4);
    std::string item(1, byteOf(kind | how));
    if (kind == MATCH_CHARACTER)
        item += byteOf('a' + below(3));
    else if (kind != MATCH_ANY)
        item += pick(CLASSES);
    return how == MATCH_COUNTED ? item + randomCounts() : item;
}

std::string randomParts(int depth);

std::string randomGroup(int depth) {
    static const int KINDS[] = {MATCH_GROUP_COUNTED, MATCH_GROUP_ZERO_OR_MORE,
                                MATCH_GROUP_ONE_OR_MORE};
    const int kind = KINDS[below(3)];
    const std::string sub = randomParts(depth - 1) + byteOf(MATCH_SUB_END);
    const int length = static_cast<int>(sub.size());
    if (length > 1000)
        return randomItem();
    const std::string group = std::string{byteOf(kind | length / 256), byteOf(length % 256)} + sub;
    return kind == MATCH_GROUP_COUNTED ? group + randomCounts() : group;
}

std::string randomCapture(int depth) {
    const int slot = below(3) == 0 ? below(12) : -1;
    return std::string{MATCH_OPEN, byteOf(slot)} + randomParts(depth) +
           std::string{MATCH_CLOSE, byteOf(slot), byteOf(below(12))};
}

std::string randomParts(int depth) {
    std::string parts;
    for (int count = below(4); count >= 0; --count) {
        const int choice = below(10);
        if (choice < 5 || depth == 0)
            parts += randomItem();
        else if (choice < 7)
            parts += randomGroup(depth);
        else if (choice < 9)
            parts += randomCapture(depth - 1);
        else
            parts += std::string{byteOf(below(2) == 0 ? MATCH_SKIP : MATCH_SKIP_TOO), 'x'};
    }
    return parts;
}

std::string randomProgram() {
    std::string program = randomParts(3);
    if (below(3) == 0)
        program.insert(program.begin(), byteOf(MATCH_ANCHOR));
    if (below(3) == 0)
        program += byteOf(MATCH_SUBJECT_END);
    return program + byteOf(below(10) == 0 ? MATCH_SUB_END : MATCH_END);
}

// Damages a program: bytes replaced, dropped or put in; never by opcode 45 or 46.
std::string damaged(std::string program) {
    static const int BYTES[] = {0,  1,  2,  8,  9,  11, 12, 16, 20, 21, 23, 25, 28, 32,  40,
                                47, 48, 49, 52, 56, 57, 60, 64, 65, 67, 68, 71, 97, 128, 255};
    for (int count = 1 + below(4); count > 0; --count) {
        const size_t at = static_cast<size_t>(below(static_cast<int>(program.size())));
        const char byte = byteOf(BYTES[below(30)]);
        if (below(3) == 0)
            program.insert(at, 1, byte);
        else if (program.size() > 1 && below(2) == 0)
            program.erase(at, 1);
        else
            program[at] = byte;
    }
    return program;
}

// ---- one comparison

std::optional<ReferenceMatcher::Match> matchOf(const std::string &program,
                                               const std::string &subject) {
    CaptureBlock *block = nullptr;
    const char *end = regularExp(program.c_str(), subject.c_str(), &block);
    if (end == nullptr) {
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(startPatMatch(), nullptr);
        return std::nullopt;
    }
    ReferenceMatcher::Match match = {static_cast<size_t>(startPatMatch() - subject.c_str()),
                                     static_cast<size_t>(end - subject.c_str()),
                                     {}};
    for (int32_t group = 0; block != nullptr && group < block->count; ++group)
        if (block->group[group] != nullptr)
            match.groups[group] = block->group[group];
    free(block);
    return match;
}

std::string shown(const std::optional<ReferenceMatcher::Match> &match) {
    if (!match)
        return "none";
    std::string text = std::to_string(match->start) + "-" + std::to_string(match->end);
    for (const auto &[group, captured] : match->groups)
        text += " " + std::to_string(group) + "=" + captured;
    return text;
}

struct Tally {
    int matched = 0, captured = 0, failed = 0;
};

constexpr int REFERENCE_STEPS = 200000;

// The program proper may be followed by anything; zeros end it as a literal's terminator does.
void compare(const std::string &program, const std::string &subject, const std::string &prefix,
             Tally *tally, int steps = REFERENCE_STEPS) {
    const std::string padded = program + std::string(1100, '\0');
    ReferenceMatcher reference(padded, subject, steps);
    const auto expected = reference.match();
    if (reference.tooSlow() || reference.cameToSavingEnd())
        return;
    const bool anchored = program[0] == MATCH_ANCHOR;
    const std::string real = prefix.empty() ? padded
                             : anchored     ? padded.substr(0, 1) + prefix + padded.substr(1)
                                            : prefix + padded;
    const auto actual = matchOf(real, subject);
    ++(expected ? tally->matched : tally->failed);
    tally->captured += expected && !expected->groups.empty();
    ASSERT_EQ(actual == expected, true)
        << listing::listProgram(padded.c_str()) << "on \"" << subject << "\": " << shown(actual)
        << ", not " << shown(expected);
}

void compareMany(int count, int shortest, const std::string &prefix,
                 std::string (*change)(std::string), Tally *tally) {
    for (int i = 0; i < count && !testing::Test::HasFatalFailure(); ++i) {
        std::string subject = randomSubject("aabc", 8);
        subject += std::string("abcabcab").substr(0, static_cast<size_t>(shortest));
        compare(change(randomProgram()), subject, prefix, tally);
    }
}

std::string unchanged(std::string program) {
    return program;
}

TEST(Reference, randomProgramsMatchAndCaptureAlike) {
    generator.seed(1);
    Tally tally;
    compareMany(60000, 0, "", unchanged, &tally);
    EXPECT_GT(tally.matched, 10000);
    EXPECT_GT(tally.captured, 3000);
    EXPECT_GT(tally.failed, 10000);
}

TEST(Reference, damagedProgramsMatchAndCaptureAlike) {
    generator.seed(2);
    Tally tally;
    compareMany(60000, 0, "", damaged, &tally);
    EXPECT_GT(tally.matched, 3000);
    EXPECT_GT(tally.failed, 10000);
}

// Fails in some thousand ways on a subject of six characters or more, and then matches nothing.
constexpr auto MANY_FAILURES =
    groupTimes(0, 1, zeroOrMore(ANY), zeroOrMore(ANY), zeroOrMore(ANY), zeroOrMore(ANY),
               zeroOrMore(ANY), zeroOrMore(ANY), zeroOrMore(ANY), zeroOrMore(ANY), zeroOrMore(ANY),
               zeroOrMore(ANY), zeroOrMore(ANY), zeroOrMore(ANY), character('Z'));

TEST(Reference, notedFailuresChangeNoResult) {
    generator.seed(3);
    Tally tally;
    const std::string prefix(MANY_FAILURES.bytes, sizeof MANY_FAILURES.bytes);
    for (int i = 0; i < 4000 && !HasFatalFailure(); ++i) {
        // A literal first restricts the starts; behind the prefix it would not.
        std::string program = randomProgram();
        if (program[0] == MATCH_CHARACTER)
            program.insert(0, {MATCH_SKIP, 'x'});
        compare(program, randomSubject("aabc", 3) + "abcabc", prefix, &tally);
    }
    EXPECT_GT(tally.matched, 1000);
    EXPECT_GT(tally.captured, 250);
    EXPECT_GT(tally.failed, 500);
}

// Runs of a character, some of them long, and the start of what may follow them.
std::string randomRuns() {
    std::string runs;
    for (int count = below(5); count >= 0; --count)
        runs += std::string(static_cast<size_t>(below(3) == 0 ? below(70) : below(4)),
                            "aabbc\xE9-"[below(7)]);
    return runs;
}

// Without groups: what comes further on is needed whatever comes before.
std::string randomLine() {
    std::string program;
    if (below(3) != 0)
        program = byteOf(MATCH_ANCHOR);
    for (int count = 1 + below(5); count > 0; --count) {
        std::string part = below(4) == 0   ? str(character("ab-"[below(3)]))
                           : below(3) == 0 ? str(oneOrMore(in(range('A', 'c'), one('\xE9'))))
                                           : randomItem();
        if (below(3) == 0)
            part.insert(0, {MATCH_OPEN, byteOf(count)}) +=
                {MATCH_CLOSE, byteOf(count), byteOf(count)};
        program += part;
    }
    if (below(2) == 0)
        program += byteOf(MATCH_SUBJECT_END);
    return program + byteOf(MATCH_END);
}

TEST(Reference, longRunsMatchAndCaptureAlike) {
    generator.seed(5);
    Tally tally;
    for (int i = 0; i < 8000 && !HasFatalFailure(); ++i)
        compare(i % 4 == 0 ? randomProgram() : randomLine(), randomRuns(), "", &tally, 5000);
    EXPECT_GT(tally.matched, 1800);
    EXPECT_GT(tally.captured, 800);
    EXPECT_GT(tally.failed, 2000);
}

TEST(Reference, everyProgramOfThreeShortPartsMatchesAlike) {
    static const std::string PARTS[] = {{20, 'a'},
                                        {21, 'a'},
                                        {22, 'b'},
                                        {23, 'a', 1, 2},
                                        {64},
                                        {65},
                                        {67, 0, 1},
                                        {24, 2, 'a'},
                                        {9, 2, 'a'},
                                        {28},
                                        {60, 0},
                                        {12, 0, 0},
                                        {60, -1},
                                        {12, -1, 0},
                                        {56, 3, 20, 'a', 47},
                                        {56, 3, 21, 'a', 47},
                                        {68, 2, 64, 47},
                                        {48, 3, 20, 'a', 47, 1, 2}};
    static const char *const SUBJECTS[] = {"", "a", "b", "aa", "ab", "ba", "aab", "aba", "baab"};
    Tally tally;
    for (const std::string &first : PARTS)
        for (const std::string &second : PARTS)
            for (const std::string &third : PARTS)
                for (const char *subject : SUBJECTS)
                    ASSERT_NO_FATAL_FAILURE(
                        compare(first + second + third + byteOf(MATCH_END), subject, "", &tally));
    EXPECT_EQ(tally.matched + tally.failed, 18 * 18 * 18 * 9);
}

// ---- the system's matcher

// A pattern in both forms. Captures go only around single items, so that the longest-first match
// is also the leftmost longest one, except that later items may want what earlier ones took: each
// item's characters differ from its neighbours'.
struct BothForms {
    std::string program, expression;
    int groups = 0;
};

void addItem(BothForms *forms, int alphabet) {
    static const char *const PROGRAM_ITEMS[] = {"\x14"
                                                "a",
                                                "\x14"
                                                "b",
                                                "\x18\x04\x10"
                                                "cd",
                                                "\x18\x03"
                                                "ef"};
    static const char *const EXPRESSION_ITEMS[] = {"a", "b", "[c-d]", "[ef]"};
    static const char *const HOW[] = {"", "*", "+", "{1,3}"};
    std::string item = PROGRAM_ITEMS[alphabet];
    const int how = below(4);
    item[0] = byteOf(item[0] + how);
    if (how == MATCH_COUNTED)
        item += {1, 3};
    const std::string expression = std::string(EXPRESSION_ITEMS[alphabet]) + HOW[how];
    if (below(2) == 0 && forms->groups < 9) {
        const char group = byteOf(forms->groups++);
        forms->program +=
            std::string{MATCH_OPEN, group} + item + std::string{MATCH_CLOSE, group, group};
        forms->expression += "(" + expression + ")";
    } else {
        forms->program += item;
        forms->expression += expression;
    }
}

BothForms randomBothForms() {
    BothForms forms;
    if (below(3) == 0) {
        forms.program = byteOf(MATCH_ANCHOR);
        forms.expression = "^";
    }
    int alphabet = below(4);
    for (int count = 1 + below(5); count > 0; --count) {
        addItem(&forms, alphabet);
        alphabet = (alphabet + 1 + below(3)) % 4;
    }
    if (below(3) == 0) {
        forms.program += byteOf(MATCH_SUBJECT_END);
        forms.expression += "$";
    }
    forms.program += byteOf(MATCH_END);
    return forms;
}

std::optional<ReferenceMatcher::Match> systemMatch(const BothForms &forms,
                                                   const std::string &subject) {
    regex_t compiled;
    EXPECT_EQ(regcomp(&compiled, forms.expression.c_str(), REG_EXTENDED), 0) << forms.expression;
    regmatch_t found[10];
    const int result = regexec(&compiled, subject.c_str(), 10, found, 0);
    regfree(&compiled);
    if (result != 0)
        return std::nullopt;
    ReferenceMatcher::Match match = {
        static_cast<size_t>(found[0].rm_so), static_cast<size_t>(found[0].rm_eo), {}};
    for (int group = 0; group < forms.groups; ++group)
        match.groups[group] =
            subject.substr(static_cast<size_t>(found[group + 1].rm_so),
                           static_cast<size_t>(found[group + 1].rm_eo - found[group + 1].rm_so));
    return match;
}

TEST(Reference, longestFirstPatternsMatchAsRegexecDoes) {
    generator.seed(4);
    int matched = 0;
    for (int i = 0; i < 20000; ++i) {
        BothForms forms = randomBothForms();
        const std::string subject = randomSubject("aabbcdef", 10);
        const auto expected = systemMatch(forms, subject);
        const auto actual = matchOf(forms.program, subject);
        matched += expected.has_value();
        ASSERT_EQ(actual == expected, true)
            << forms.expression << " on \"" << subject << "\": " << shown(actual) << ", not "
            << shown(expected);
    }
    EXPECT_GT(matched, 3000);
}

} // namespace
