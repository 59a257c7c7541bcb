/* The expansion engine: every directive and escape, each error, the settings' effect, free text and
   comments, and results that feed the next expansion. Settings and time zone are process-wide, so
   each case runs in a child. */
#include "buffers/clearCopy.h"
#include "core/mkcopy.h"

#include "records.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

const std::map<int, std::string> texts = {
    {0, ""}, {1, "call %s failed"}, {2, "%s: %s"}, {3, "100%% of %d%"}, {4, "plain"}};

struct Case {
    const char *format;
    std::string expected;
};

void expectEach(const std::vector<Case> &cases, const std::string &record) {
    withTexts(texts, [&] {
        for (const Case &c : cases)
            EXPECT_EQ(expandedAs(c.format, record), c.expected) << c.format;
    });
}

TEST(ExpandLog, defaultFormat) {
    withTexts(texts, [] {
        EXPECT_EQ(expanded(recordOf(1, 2, {"x"})),
                  "*  Tue Nov 14 16:39:09 2017 prog f.c:40\ncall x failed");
    });
}

TEST(ExpandLog, directives) {
    expectEach({{"%P|%N|%S|%L", "* |prog|f.c|40"},
                {"%P(%s)|%P(%S)|%P(%d)|%P(%D)", "* |* |2|2"},
                {"%P( \t%d \n)|", "2|"},
                {"%P(%s?|", "* |"},
                {"%P(%s", "* "},
                {"%P(%s ", "* "},
                {"%M", "call x failed"},
                {"%%|%Q|%q|% |%)", "%|Q|q| |)"},
                {"%n%s%l", "nsl"},
                {"", ""},
                {"plain\xff\n", "plain\xff\n"},
                {"%", ""},
                {"x%", "x"}},
               recordOf(1, 2, {"x"}));
}

TEST(ExpandLog, wholeRecordLessItsLastCharacter) {
    withTexts(texts, [] {
        const std::string record = recordOf(1, 2, {"x"});
        EXPECT_EQ(expandedAs("%C", record), record.substr(0, record.size() - 1));
        EXPECT_EQ(expandedAs("%C", record + "\n"), record);
    });
}

TEST(ExpandLog, escapes) {
    expectEach({{"\\b\\f\\n\\r\\t", "\b\f\n\r\t"},
                {"\\%N\\\\\\q\\a", "%N\\qa"},
                {"\\1\\12\\101\\1018", "\x01\nAA8"},
                {"\\7x\\778", "\x07x?8"},
                {"\\777\\400z", std::string("\xff")}, // \400 is a zero byte: the text ends
                {"\\8\\9", "89"},
                {"\\", ""},
                {"x\\", "x"}},
               recordOf(4, 2, {}));
}

TEST(ExpandLog, priorityMarks) {
    withTexts(texts, [] {
        const char *const marks[] = {"  ", "M ", "* ", "**", "*C", "", "", "", "", ""};
        for (int priority = 0; priority < 10; ++priority)
            EXPECT_EQ(expandedAs("%P|%P(%s)|%P(%d)", recordOf(4, priority, {})),
                      std::string(marks[priority]) + "|" + marks[priority] + "|" +
                          std::to_string(priority));
    });
}

TEST(ExpandLog, messageTextMustAgreeWithItsArguments) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedAs("%M", recordOf(2, 0, {"a", "b"})), "a: b");
        EXPECT_EQ(expandedAs("%M", recordOf(2, 0, {"", ""})), ": ");
        EXPECT_EQ(expandedAs("%M", recordOf(2, 0, {"a"})), "(null)");
        EXPECT_EQ(expandedAs("%M", recordOf(1, 0, {"a", "b"})), "(null)");
        EXPECT_EQ(expandedAs("%M", "4\x1c"
                                   "05A0B1C2Dp f:1\x1d"),
                  "plain");
        EXPECT_EQ(expandedAs("%M", "1\x1c"
                                   "05A0B1C2Dp f:1\x1d"),
                  "(null)");
        EXPECT_EQ(expandedAs("%M", recordOf(4, 0, {"a"})), "(null)");
        // Only %M looks at the text, but the text must be there.
        EXPECT_EQ(expandedAs("%N", recordOf(2, 0, {"a"})), "prog");
        EXPECT_EQ(expandedAs("%N", recordOf(5, 0, {})), "(null)");
        EXPECT_EQ(expandedAs("", recordOf(5, 0, {})), "(null)");
    });
}

TEST(ExpandLog, percentInMessageTextStandsForTheNextCharacter) {
    withTexts(texts, [] { EXPECT_EQ(expandedAs("%M", recordOf(3, 0, {})), "100% of d"); });
}

TEST(ExpandLog, argumentsAreNotFormatsThemselves) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedAs("%M", recordOf(1, 0, {"%s\\n%N"})), "call %s\\n%N failed");
    });
}

TEST(ExpandLog, rawArguments) {
    expectEach({{"%M(%r)", "a\x1c"
                           "b\x1d"},
                {"%M(%R)", "a\x1c"
                           "b\x1d"},
                {"%M( %r )|", "a\x1c"
                              "b\x1d|"},
                {"%M(%r=,)", "a,b,"},
                {"%M(%r=, )|", "a,b,|"},
                {"%M(%r= )|", "a b |"},
                {"%M(%r=))|", "a)b)|"},
                {"%M(%r==)", "a=b="},
                {"%M(%r=%)", "a%b%"},
                {"%M(%r=\\\\)", "a\\b\\"},
                {"%M(%r=\\b)", "a\bb\b"},
                {"%M(%r=\\f)", "a\fb\f"},
                {"%M(%r=\\n)", "a\nb\n"},
                {"%M(%r=\\r)", "a\rb\r"},
                {"%M(%r=\\t)", "a\tb\t"},
                {"%M(%r=\\1)", "aIbI"}, // 73
                {"%M(%r=\\3)", "a\xdb"
                               "b\xdb"}, // 219
                {"%M(%r=\\4)", "a$b$"},  // 292 - 256
                {"%M(%r=\\7)", "a\xff"
                               "b\xff"}}, // 511 - 256
               recordOf(2, 0, {"a", "b"}));
}

TEST(ExpandLog, rawArgumentsOfOtherCounts) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedAs("[%M(%r)]", recordOf(4, 0, {})), "[]");
        EXPECT_EQ(expandedAs("[%M(%r=,)]", recordOf(4, 0, {})), "[]");
        EXPECT_EQ(expandedAs("[%M(%r)]", recordOf(4, 0, {"a"})), "[a\x1d]");
        // Raw arguments need not agree with the text.
        EXPECT_EQ(expandedAs("%M(%r=,)", recordOf(1, 0, {"a", "b", "c"})), "a,b,c,");
    });
}

TEST(ExpandLog, badParenthesesAreErrors) {
    withTexts(texts, [] {
        for (const char *format :
             {"%M(%r", "%M(%r=", "%M(%r=,", "%M(%r=)", "%M(%r =,)", "%M(%r,)", "%M(%r=,,)",
              "%M(%r=\\)", "%M(%r=\\", "%M(%r=\\8)", "%M(%r=\\12)", "%M(%r=\\x)", "%M(%r?"}) {
            chgExpansionFmt("%N");
            EXPECT_EQ(expandedAs(format, recordOf(4, 0, {})), "(null)") << format;
            EXPECT_STREQ(getExpansionFmt(), format);
        }
    });
}

TEST(ExpandLog, indexSlotIsSetWhateverHappens) {
    withTexts(texts, [] {
        int32_t index = 77;
        EXPECT_EQ(expandLogEnhanced(nullptr, 0, &index), nullptr);
        EXPECT_EQ(index, -1);
        std::string record = recordOf(9, 0, {});
        index = 77;
        EXPECT_EQ(expandLogEnhanced(record.data(), 0, &index), nullptr); // no text
        EXPECT_EQ(index, 9);
        std::string text = "text";
        index = 77;
        EXPECT_EQ(expandLogEnhanced(text.data(), 0, &index), nullptr);
        EXPECT_EQ(index, -1);
        std::string comment = "#";
        index = 77;
        EXPECT_STREQ(expandLogEnhanced(comment.data(), PARSE_KEEP_COMMENTS, &index), "#");
        EXPECT_EQ(index, -2);
        EXPECT_STREQ(expandLogEnhanced(comment.data(), PARSE_KEEP_COMMENTS, nullptr), "#");
    });
}

std::string expandedWith(uint32_t flags, std::string line) {
    const char *text = expandLogEnhanced(line.data(), flags, nullptr);
    return text == nullptr ? "(null)" : text;
}

TEST(ExpandLog, freeTextIsRenderedInTheModeOfTheFlags) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT | 7, "a b\x01\n"), "a b<SOH>\n");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT | 0x16, "a b\x01\n"), "a<sp>b<soh><nl>");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT, ""), "");
        EXPECT_EQ(expandedWith(PARSE_KEEP_COMMENTS, "text"), "(null)");
        EXPECT_EQ(expanded("text"), "(null)");
    });
}

TEST(ExpandLog, malformedRecordsAreFreeText) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT | 7, "4\x1c"
                                                    "05A0B1C2Dprog"),
                  "4<FS>05A0B1C2Dprog");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT | 7, "4294967291\x1c"
                                                    "05A0B1C2Dp f:1\x1d"),
                  "4294967291<FS>05A0B1C2Dp f:1<GS>");
    });
}

// Such a record is kept with index 0, without its producer and file.
TEST(ExpandLog, shortTimeExpandsWithEmptyFields) {
    withTexts({{0, "zero"}}, [] {
        chgExpansionFmt("[%N][%S][%L]%M");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT, "4\x1c"
                                                "05A0B1C prog f.c:40\x1d"),
                  "[][][0]zero");
        // Its time is 0, and its broken-down time was never filled.
        chgExpansionFmt("%T");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT, "4\x1c"
                                                "05A0B1C prog f.c:40\x1d"),
                  "Thu Jan  1 00:00:00 1970");
    });
}

TEST(ExpandLog, commentsComeUnchangedAndUnwrapped) {
    withTexts(texts, [] {
        chgExpansionCutoff(4);
        setVisible(1);
        EXPECT_EQ(expandedWith(PARSE_KEEP_COMMENTS, "# a long comment\x01\n"),
                  "# a long comment\x01\n");
        EXPECT_EQ(expandedWith(PARSE_KEEP_COMMENTS, " "), " ");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT, "long text, not wrapped"),
                  "long text, not wrapped");
    });
}

TEST(ExpandLog, resultIsWrappedAndRendered) {
    withTexts(texts, [] {
        chgExpansionCutoff(4);
        EXPECT_EQ(expandedAs("%N %S", recordOf(4, 0, {})),
                  "prog \nf.c"); // the blank stands at the cut-off
        chgExpansionCutoff(0);
        setVisible(1);
        EXPECT_EQ(expandedAs("a\tb\\001", recordOf(4, 0, {})), "a\\tb<1>");
        chgExpansionCutoff(3);
        EXPECT_EQ(expandedAs("a\tb", recordOf(4, 0, {})), "a\\t\nb");
    });
}

TEST(ExpandLog, emptyResultIsEmptyAndTerminated) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedAs("", recordOf(4, 0, {})), "");
        EXPECT_EQ(expandedAs("%N", recordOf(4, 0, {})), "prog");
        EXPECT_EQ(expandedAs("", recordOf(4, 0, {})), "");
    });
}

TEST(ExpandLog, resultMayBeExpandedAgain) {
    withTexts(texts, [] {
        // The format rebuilds the record from its parts.
        chgExpansionFmt("4\\0340%T(%u)%N %S:%L\\034%M(%r)");
        std::string record = recordOf(2, 0, {"a", "b"});
        char *first = expandLog(record.data());
        ASSERT_NE(first, nullptr);
        const std::string rebuilt = first;
        EXPECT_EQ(rebuilt, "4\x1c"
                           "05a0b1c2dprog f.c:40\x1c"
                           "a\x1c"
                           "b\x1d");
        EXPECT_STREQ(expandLog(first), rebuilt.c_str());
    });
}

TEST(ExpandLog, atSignsStandForThemselvesUntilTheyNameAField) {
    withTexts(texts, [] { EXPECT_EQ(expandedAs("a@b %N", recordOf(4, 0, {})), "a@b prog"); });
}

TEST(ExpandLog, longRecordsPassEveryBlockSize) {
    withTexts(texts, [] {
        for (size_t length : {126U, 127U, 128U, 129U, 255U, 256U, 100000U}) {
            const std::string argument(length, 'x');
            EXPECT_EQ(expandedAs("%M", recordOf(1, 0, {argument})), "call " + argument + " failed");
        }
    });
}

TEST(ExpandCmpLog, replacesTheExpansionEachTime) {
    withTexts(texts, [] {
        chgExpansionFmt("%M");
        std::string record = recordOf(1, 0, {"x"});
        LogMsg *msg = parseCmpLog(record.data(), 0);
        ASSERT_NE(msg, nullptr);
        msg->spare6 = strdup("spare");
        expandCmpLog(msg);
        EXPECT_STREQ(msg->expansion, "call x failed");
        EXPECT_EQ(msg->spare6, nullptr);
        chgExpansionFmt("%N");
        expandCmpLog(msg);
        EXPECT_STREQ(msg->expansion, "prog");
        setExpandFmt("");
        expandCmpLog(msg);
        EXPECT_EQ(msg->expansion, nullptr);
        freeLogMsg(msg);
    });
}

TEST(ExpandCmpLog, nothingToExpandIsLeftAlone) {
    expandCmpLog(nullptr);
    LogMsg msg = {};
    char expansion[] = "kept";
    msg.expansion = expansion;
    expandCmpLog(&msg);
    EXPECT_EQ(msg.expansion, expansion);
}

TEST(ExpandLog, shortTimeHasALineFeedInItsLayout) {
    withTexts({{0, "zero"}}, [] {
        chgExpansionFmt("%T(%c)|");
        EXPECT_EQ(expandedWith(PARSE_KEEP_TEXT, "4\x1c"
                                                "05A0B1C prog f.c:40\x1d"),
                  "Thu Jan  1 00:00:00 1970\n|");
    });
}

TEST(ExpandLog, expansionStartedWhileOneRunsIsEmpty) {
    withTexts(texts, [] {
        EXPECT_EQ(expandedAs("[@message@]%N", recordOf(4, 0, {})), "[]prog");
        EXPECT_EQ(expandedAs("%N", recordOf(4, 0, {})), "prog");
    });
}

TEST(ExpandLog, lastResultStaysReadableAfterAFailedOne) {
    withTexts(texts, [] {
        std::string good = recordOf(4, 0, {}), noText = recordOf(9, 0, {}), bad = "text";
        chgExpansionFmt("%N %M");
        const char *last = expandLog(good.data());
        ASSERT_STREQ(last, "prog plain");
        EXPECT_EQ(expandLog(bad.data()), nullptr);
        EXPECT_STREQ(last, "prog plain");
        EXPECT_EQ(expandLog(noText.data()), nullptr);
        EXPECT_STREQ(last, "prog plain");
        EXPECT_EQ(expandedAs("overwritten by this %M(%r=", good), "(null)");
        EXPECT_STREQ(last, "prog plain");
        EXPECT_EQ(expandedAs("overwritten by this %M", recordOf(4, 0, {"one too many"})), "(null)");
        EXPECT_STREQ(last, "prog plain");
        // And the next one that succeeds is whole.
        EXPECT_EQ(expandedAs("%N", good), "prog");
    });
}

// Fields of every kind, and plain characters enough for blocks to grow in the middle of each.
const std::string filler(130, '.');
const std::string everyField =
    "%P%T%T(%A%e%r%u%Z%n" + filler + ")%N%S%L%M%M(%r=,)%C" + filler + "\\\\n\\\\101@index@";

std::string everyFieldExpanded(const std::string &record) {
    return "* Tue Nov 14 16:39:09 2017Tuesday1404:39:09 PM5a0b1c2dUTC\n" + filler +
           "progf.c40a: ba,b," + record.substr(0, record.size() - 1) + filler + "\nA2";
}

// After n granted allocations none is: the whole text, or null and the last result as it was.
void expectWholeOrNothing(int n, int32_t cutoff, int enough) {
    withTexts(texts, [=] {
        std::string first = recordOf(4, 0, {}), record = recordOf(2, 2, {"a", "b"});
        std::string expected = everyFieldExpanded(record);
        chgExpansionFmt("%N");
        const char *last = expandLog(first.data());
        chgExpansionFmt(everyField.c_str());
        chgExpansionCutoff(cutoff);
        const char *text;
        {
            const FailingAlloc fails(n);
            text = expandLog(record.data());
        }
        if (text == nullptr) {
            EXPECT_STREQ(last, "prog") << n;
        } else {
            EXPECT_EQ(text, expected) << n;
        }
        if (n == 0 || n == enough) {
            EXPECT_EQ(text != nullptr, n == enough);
        }
        EXPECT_EQ(expanded(record), expected) << n;
    });
}

TEST(ExpandLog, exhaustedMemoryGivesTheWholeTextOrNothing) {
    for (int n = 0; n <= 60; ++n)
        expectWholeOrNothing(n, 0, 60);
}

TEST(ExpandLog, exhaustedMemoryInWrappingGivesTheWholeTextOrNothing) {
    for (int n = 0; n <= 60; ++n)
        expectWholeOrNothing(n, 100000, 60); // wrapped without a break
}

// The argument needs a larger block, what follows it does not: a text without the argument would
// be easy to build.
TEST(ExpandLog, exhaustedMemoryLeavesNoHole) {
    for (int n = 0; n <= 20; ++n)
        withTexts(texts, [n] {
            const std::string argument(200, 'x');
            std::string record = recordOf(1, 0, {argument});
            chgExpansionFmt("%M");
            const char *text;
            {
                const FailingAlloc fails(n);
                text = expandLog(record.data());
            }
            if (text != nullptr) {
                EXPECT_EQ(text, "call " + argument + " failed") << n;
            }
            EXPECT_FALSE(n == 20 && text == nullptr);
        });
}

// ---- what the expansion takes apart for itself, against the parser

// A record with some bytes changed, lost or added.
std::string damagedRecord(std::mt19937 &random) {
    static const std::string BYTES = "\x1c\x1c\x1d: \t#09aFx\xe9\n";
    std::vector<std::string> arguments(random() % 5);
    for (std::string &argument : arguments)
        argument = std::string(random() % 4, 'v');
    std::string record = recordOf(static_cast<int>(random() % 4), static_cast<int>(random() % 10),
                                  arguments, hexTime(static_cast<int32_t>(random())));
    for (auto edits = random() % 4; edits > 0; --edits) {
        const size_t place = random() % record.size();
        record.replace(place, random() % 2, random() % 3, BYTES[random() % BYTES.size()]);
    }
    return record;
}

// What an expansion with "%P(%d)|%N|%S|%L|%M(%r=,)|%c" shows of the record's own parts.
std::string partsOf(const LogMsg *msg, uint32_t flags) {
    if (msg == nullptr)
        return "(null)";
    if (msg->index == -2)
        return msg->record;
    if (msg->index < 0) {
        char *shown = clearCopy(msg->record, static_cast<int32_t>(flags));
        const std::string text = shown;
        freecopy(shown);
        return text;
    }
    if (getExpandFmt(msg->index) == nullptr)
        return "(null)";
    const auto shown = [](const char *text) { return std::string(text == nullptr ? "" : text); };
    const time_t time = msg->time;
    std::string text = std::to_string(msg->priority) + "|" + shown(msg->producer) + "|" +
                       shown(msg->file) + "|" + std::to_string(msg->line) + "|";
    for (int32_t i = 0; i < msg->argCount; ++i)
        text += shown(msg->args[i].value) + ",";
    return text + "|" + ctime(&time) + "|" + std::string(msg->record, strlen(msg->record) - 1);
}

TEST(ExpandLog, takesRecordsApartAsTheParserDoes) {
    withTexts(texts, [] {
        chgExpansionFmt("%P(%d)|%N|%S|%L|%M(%r=,)|%T(%c)|%C");
        std::mt19937 random(1);
        int whole = 0, kept = 0;
        for (int round = 0; round < 20000; ++round) {
            std::string record = damagedRecord(random);
            const uint32_t flags =
                0x100 | (random() % 2 * PARSE_KEEP_TEXT) | (random() % 2 * PARSE_KEEP_COMMENTS);
            LogMsg *msg = parseCmpLogEnhanced(record.data(), 0, flags);
            int32_t index;
            const char *text = expandLogEnhanced(record.data(), flags, &index);
            ASSERT_EQ(text == nullptr ? "(null)" : text, partsOf(msg, flags)) << record;
            ASSERT_EQ(index, msg == nullptr ? -1 : msg->index);
            whole += msg != nullptr && index >= 0;
            kept += msg != nullptr && index < 0;
            freeLogMsg(msg);
        }
        EXPECT_GT(whole, 5000);
        EXPECT_GT(kept, 1000);
    });
}

// Lines and arguments of every length, past each growth of the buffer.
TEST(ExpandLog, textsOfEveryLengthAreWhole) {
    withTexts(texts, [] {
        for (size_t length = 0; length < 600; ++length) {
            const std::string argument(length, 'v');
            EXPECT_EQ(expandedAs("%M|%L|%C", recordOf(1, 0, {argument})),
                      "call " + argument +
                          " failed|40|1\x1c"
                          "05A0B1C2Dprog f.c:40\x1c" +
                          argument);
        }
        for (const char *line : {"0", "9", "10", "2147483646", "2147483647", "99999999999"})
            EXPECT_EQ(expandedAs("%L", std::string("4\x1c"
                                                   "05A0B1C2Dp f:") +
                                           line + GS),
                      std::string(line).size() > 10 ? "2147483647" : line);
    });
}

} // namespace
