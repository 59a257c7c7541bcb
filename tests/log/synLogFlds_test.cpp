/* Synthetic fields over a small catalogue of real files: each name's value, every form of selector,
   the checker's messages, both sides' reading of backslashes, the quoting pair, and fields in the
   expansion format itself. Catalogue and settings are process-wide, so each case that needs them
   runs in a child. */
#include "log/synLogFlds.h"

#include "records.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>

namespace {

// One line of the dictionary, and the index that finds it as message 7; all others are at its end.
std::string indexOf(size_t messages, size_t lineOfSeven, size_t end) {
    std::string bytes;
    const auto put = [&](size_t value) {
        bytes += std::string(4, '\0');
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes += static_cast<char>(value >> shift & 0xFF);
    };
    put(8 * (messages + 1));
    for (size_t i = 0; i < messages; ++i)
        put(i == 7 ? lineOfSeven : end);
    return bytes;
}

// Runs the body in a child in which message 7 is NET_DOWN, the third of class NET, with the
// arguments host and port_2 and the text "%s:%s"; message 8 is in no catalogue but has a text.
void withCatalogue(const std::function<void()> &body) {
    const TempDir root;
    const std::string line = "7\x1chost,S,0,16\x1cport_2,D\x1c\x1d\n";
    root.write("dataDictLog", line);
    root.write("ddMapLog", indexOf(8, 0, line.size()));
    std::filesystem::create_directory(root.file("head"));
    root.write("head/systemLog.h", "#define _NETMSG_START 5\n#define __MAX_LOGMSG 20\n");
    root.write("head/logNET.h", "#define NET_DOWN logNET(3)\n");
    root.write("textLogFmt", textFormatFile({{7, "%s:%s"}, {8, "no fields"}}));
    expectChildPasses([&] {
        setenv("TZ", "UTC0", 1);
        for (const char *name : {"LOGFORMAT", "LOGCOLUMN", "LOGCONTPREFIX", "TEXTLOGFMT"})
            unsetenv(name);
        setenv("LOGROOT", root.path().c_str(), 1);
        body();
    });
}

struct Release {
    void operator()(LogMsg *msg) const { freeLogMsg(msg); }
    void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
};
using Parsed = std::unique_ptr<LogMsg, Release>;
using Buffer = std::unique_ptr<CharBuffer, Release>;

Parsed parsed(std::string text, uint32_t flags = 0) {
    return Parsed(parseCmpLogEnhanced(text.data(), 0, flags));
}

std::string translated(const std::string &text, LogMsg *msg, const char *key = nullptr) {
    const Buffer buffer(mkCharBuffer(16));
    const char *result = translateSynFields(buffer.get(), text.c_str(), msg, key);
    EXPECT_EQ(result, buffer->text);
    return result == nullptr ? "(null)" : result;
}

struct Case {
    const char *text;
    std::string expected;
};

void expectEach(const std::vector<Case> &cases, const std::string &record) {
    withCatalogue([&] {
        const Parsed msg = parsed(record);
        ASSERT_NE(msg, nullptr);
        for (const Case &c : cases)
            EXPECT_EQ(translated(c.text, msg.get()), c.expected) << c.text;
    });
}

const std::string down = recordOf(7, 2, {"tel one", "80"});

TEST(Translate, eachName) {
    expectEach({{"@index@ @id@ @i@", "7 7 7"},
                {"@priority@ @pri@ @p@", "\"* \" \"* \" \"* \""},
                {"@time@", "\"Tue Nov 14 16:39:09 2017\""},
                {"@t@", "\"Tue Nov 14 16:39:09 2017\""},
                {"@program@ @prog@", "prog prog"},
                {"@file@ @line@", "f.c 40"},
                {"@field@[1] @f@[1]", "80 80"},
                {"@cmpmsg@", "\"" + down + "\""},
                {"@symbol@ @sym@ @s@", "NET_DOWN NET_DOWN NET_DOWN"},
                {"@class@ @c@", "NET NET"},
                {"@classIndex@ @ci@", "3 3"},
                {"@key@", "@key@"},
                {"ls @file@ @p@", "ls f.c \"* \""},
                {"", ""},
                {"no field", "no field"}},
               down);
}

TEST(Translate, namesAreExact) {
    expectEach({{"@msgPtr@ @logfile@", "@msgPtr@ @logfile@"},
                {"@Index@", "@Index@"},
                {"@ index@", "@ index@"},
                {"@inde@", "@inde@"},
                {"@indexx@", "@indexx@"},
                {"@@", "@@"},
                {"@@p@", "@@p@"}, // the empty name, and then no field
                {"a@b @p@ c", "a@b @p@ c"}},
               down);
}

TEST(Translate, openAtCopiesTheRest) {
    expectEach({{"@", "@"}, {"x @p", "x @p"}, {"@p@ @a\\b", "\"* \" @a\\b"}}, down);
}

TEST(Translate, backslashes) {
    expectEach({{"\\a\\\\b", "a\\b"},
                {"\\@p", "@p"},
                {"\\@p@ @i@", "@p@ @i@"}, // the second "@" opens the unknown field "@ @"
                {"\\\\@p@", "\\\"* \""},
                {"x\\", "x"},
                {"\\", ""}},
               down);
}

TEST(Translate, timeParts) {
    expectEach({{"@time@.sec @t@.min @t@.hour @t@.mday @t@.mon", "9 39 16 14 11"},
                {"@t@.year @t@.wday @t@.yday @t@.isdst", "117 2 317 0"},
                {"@time@.monx", "@time@.monx"},
                {"@time@.mon-x", "11-x"},
                {"@time@.week|", "@time@.week|"},
                {"@t@.", "@t@."},
                {"@t@. @i@", "@t@. 7"},
                {"@t@.Mon", "@t@.Mon"}},
               down);
    withCatalogue([] {
        const Parsed msg = parsed(recordOf(7, 2, {}, "00000000"));
        EXPECT_EQ(translated("@time@.mon", msg.get()), "1");
    });
}

TEST(Translate, timeIsThatOfTheSecondsAndItsPartsAreOfTheBrokenDownTime) {
    withCatalogue([] {
        const Parsed msg = parsed(recordOf(7, 2, {}));
        msg->tm.tm_mon = 0;
        EXPECT_EQ(translated("@time@ @time@.mon", msg.get()), "\"Tue Nov 14 16:39:09 2017\" 1");
        msg->time += 60;
        EXPECT_EQ(translated("@t@ @t@.min", msg.get()), "\"Tue Nov 14 16:40:09 2017\" 39");
    });
}

TEST(Translate, argumentsByNumber) {
    expectEach({{"@field@[0]", "\"tel one\""},
                {"@f@[ 1 ]|", "80|"},
                {"@f@[0x1]@f@[0X0]@f@[01]", "80\"tel one\"80"},
                {"@f@[2]|", "@f@[2]|"},
                {"@f@[ 0x2 ]|", "@f@[ 0x2 ]|"},
                {"@f@[99999999999999999999]", "@f@[99999999999999999999]"},
                {"@f@[4294967296]", "@f@[4294967296]"},
                {"@f@[1", "@f@[1"},
                {"@f@[1 x@i@", "@f@[1 x7"},
                {"@f@[1@i@]", "@f@[17]"},
                {"@f@[08]", "@f@[08]"},
                {"@f@[0x]", "@f@[0x]"},
                {"@f@[0xg]", "@f@[0xg]"}},
               down);
}

TEST(Translate, argumentsByName) {
    expectEach({{"@field@[host]", "\"tel one\""},
                {"@f@[  port_2  ]|", "80|"},
                {"@f@[port]|", "@f@[port]|"},
                {"@f@[_x]", "@f@[_x]"},
                {"@f@[host @i@]", "@f@[host 7]"},
                {"@f@[host", "@f@[host"},
                {"@f@[host-]", "@f@[host-]"}},
               down);
    withCatalogue([] {
        const Parsed shorter = parsed(recordOf(7, 2, {"a"})); // port_2 is named but not there
        EXPECT_EQ(translated("@f@[host]@f@[port_2]", shorter.get()), "a@f@[port_2]");
        const Parsed other = parsed(recordOf(8, 2, {"a"}));
        EXPECT_EQ(translated("@f@[host]", other.get()), "@f@[host]");
    });
}

TEST(Translate, otherSelectorsDropTheFieldName) {
    expectEach({{"@f@[-1]", "-1]"},
                {"@f@[  @i@]", "7]"},
                {"@f@[]", "]"},
                {"@f@[\t0]", "\t0]"},
                {"x@field@[", "x"},
                {"x@field@[  ", "x"}},
               down);
}

TEST(Translate, fieldWithoutABracketIsLeft) {
    expectEach({{"@field@", "@field@"}, {"@f@ [0]", "@f@ [0]"}, {"@f@@i@", "@f@7"}}, down);
}

TEST(Translate, resultIsAppended) {
    withCatalogue([] {
        const Parsed msg = parsed(down);
        const Buffer buffer(mkCharBuffer(2));
        EXPECT_STREQ(translateSynFields(buffer.get(), "@i@", msg.get(), nullptr), "7");
        EXPECT_STREQ(translateSynFields(buffer.get(), ", @i@", msg.get(), nullptr), "7, 7");
        EXPECT_STREQ(translateSynFields(buffer.get(), nullptr, msg.get(), nullptr), "7, 7");
        EXPECT_STREQ(translateSynFields(buffer.get(), "", msg.get(), nullptr), "7, 7");
        EXPECT_EQ(translateSynFields(nullptr, "@i@", msg.get(), nullptr), nullptr);
    });
}

TEST(Translate, nullTemplateTerminatesTheBuffer) {
    const Buffer buffer(mkCharBuffer(2));
    EXPECT_STREQ(translateSynFields(buffer.get(), nullptr, nullptr, nullptr), "");
    fputCharBuffer(buffer.get(), 'x');
    fputCharBuffer(buffer.get(), 'y');
    EXPECT_STREQ(translateSynFields(buffer.get(), nullptr, nullptr, nullptr), "xy");
}

TEST(Translate, withoutARecordWhatReadsItIsLeft) {
    withCatalogue([] {
        EXPECT_EQ(translated("@x@ @msgPtr@ @logfile@ @key@", nullptr, "k"),
                  "@x@ @msgPtr@ @logfile@ k");
        EXPECT_EQ(translated("@i@ @t@.mon @f@[0] @m@ @s@ @p@", nullptr),
                  "@i@ @t@.mon @f@[0] @m@ @s@ @p@");
    });
}

TEST(Translate, keysAreQuotedIfNeeded) {
    withCatalogue([] {
        const Parsed msg = parsed(down);
        EXPECT_EQ(translated("@key@", msg.get(), "two words"), "\"two words\"");
        EXPECT_EQ(translated("@key@", msg.get(), "word"), "word");
        EXPECT_EQ(translated("[@key@]", msg.get(), ""), "[]");
        EXPECT_EQ(translated("@key@", msg.get(), "a\tb"), "\"a\tb\"");
        EXPECT_EQ(translated("@key@", msg.get(), "a\"b"), "\"a\\\"b\"");
        EXPECT_EQ(translated("@key@", msg.get(), "a\\b\nc"), "a\\b\nc");
        EXPECT_EQ(translated("@key@", msg.get(), "@p@ \\x"), "\"@p@ \\\\x\"");
    });
}

TEST(Translate, unknownMessagesHaveNoSymbol) {
    withCatalogue([] {
        const Parsed msg = parsed(recordOf(8, 7, {}));
        EXPECT_EQ(translated("@s@ @c@ @ci@ @p@", msg.get()), "<UNDEF> <UNDEF-CLASS> 0 \"\"");
    });
}

TEST(Translate, whatARecordLacksIsEmpty) {
    withCatalogue([] {
        const Parsed msg = parsed("free text", PARSE_KEEP_TEXT);
        EXPECT_EQ(translated("[@prog@][@file@][@line@][@m@][@i@][@f@[0]", msg.get()),
                  "[][][0][][-1][@f@[0]");
        EXPECT_EQ(translated("@time@ @cmpmsg@", msg.get()),
                  "\"Thu Jan  1 00:00:00 1970\" \"free text\"");
        LogMsg none = {};
        EXPECT_EQ(translated("[@prog@][@m@][@cmpmsg@]", &none), "[][][]");
    });
}

TEST(Translate, messageIsExpandedWhereTheRecordIsNot) {
    withCatalogue([] {
        chgExpansionFmt("%M");
        const Parsed msg = parsed(down);
        EXPECT_EQ(translated("@message@ @msg@ @m@", msg.get()),
                  "\"tel one:80\" \"tel one:80\" \"tel one:80\"");
        const Parsed word = parsed(recordOf(7, 2, {"a", "b"}));
        EXPECT_EQ(translated("@m@", word.get()), "a:b");
    });
}

TEST(Translate, messageKeepsTheExpansionThereIs) {
    withCatalogue([] {
        chgExpansionFmt("%M");
        const Parsed msg = parsed(down);
        EXPECT_EQ(translated("@m@", msg.get()), "\"tel one:80\"");
        EXPECT_STREQ(msg->expansion, "tel one:80");
        chgExpansionFmt("%N");
        EXPECT_EQ(translated("@m@", msg.get()), "\"tel one:80\"");
    });
}

TEST(Translate, templateAndKeyMayBeAnEarlierExpansion) {
    withCatalogue([] {
        chgExpansionFmt("<%N>");
        const Parsed msg = parsed(recordOf(8, 2, {}));
        chgExpansionFmt("%L \\100m\\100 \\100key\\100"); // gives 40 @m@ @key@
        char *text = expandLog(msg->record);
        ASSERT_STREQ(text, "40 @m@ @key@");
        chgExpansionFmt("short");
        EXPECT_EQ(translated(text, msg.get(), text), "40 short \"40 @m@ @key@\"");
    });
}

// In the expansion format.

TEST(SyntheticFormat, fieldsAreFilledInBeforeTheDirectives) {
    withCatalogue([] {
        EXPECT_EQ(expandedAs("%P@s@ @f@[port_2]: %M", down), "* NET_DOWN 80: tel one:80");
        EXPECT_EQ(expandedAs("@s@|%N", recordOf(8, 2, {})), "<UNDEF>|prog");
        EXPECT_EQ(expandedAs("%N", recordOf(8, 2, {})), "prog");
        EXPECT_EQ(expandedAs("@s@", recordOf(9, 2, {})), "(null)"); // no text
    });
}

// Kept: the format is translated first, backslashes and all, and then read as a format.
TEST(SyntheticFormat, valuesAndEscapesAreReadAsFormat) {
    withCatalogue([] {
        EXPECT_EQ(expandedAs("@f@[0]", recordOf(7, 2, {"50%N", "b"})), "50prog");
        EXPECT_EQ(expandedAs("@i@\\n", recordOf(8, 2, {})), "8n");
        EXPECT_EQ(expandedAs("@i@\\\\n", recordOf(8, 2, {})), "8\n");
        EXPECT_EQ(expandedAs("@f@[0]", recordOf(7, 2, {"%M(", "b"})), "(null)");
    });
}

TEST(SyntheticFormat, formatThatHoldsTheMessageExpandsItToNothing) {
    withCatalogue([] {
        EXPECT_EQ(expandedAs("[@m@]%M", recordOf(8, 2, {})), "[]no fields");
        EXPECT_EQ(expandedAs("%N", recordOf(8, 2, {})), "prog"); // and the next one runs
    });
}

TEST(SyntheticFormat, atSignsThatNameNoFieldStay) {
    withCatalogue([] { EXPECT_EQ(expandedAs("a@b %N", recordOf(8, 0, {})), "a@b prog"); });
}

// The checker.

struct Verdict {
    int32_t index;
    const char *text;
    const char *error; // null: valid
};

void expectVerdicts(const std::vector<Verdict> &verdicts, int keyAllowed = 0) {
    withCatalogue([&] {
        for (const Verdict &verdict : verdicts) {
            char stale[] = "stale";
            char *error = stale;
            EXPECT_EQ(vfySynFields(verdict.index, verdict.text, &error, keyAllowed),
                      verdict.error == nullptr)
                << verdict.text;
            EXPECT_STREQ(error, verdict.error) << verdict.text;
            EXPECT_EQ(vfySynFields(verdict.index, verdict.text, nullptr, keyAllowed),
                      verdict.error == nullptr)
                << verdict.text;
        }
    });
}

TEST(Check, names) {
    expectVerdicts({
        {7, "", nullptr},
        {7, "no field", nullptr},
        {7, "@index@ @id@ @i@ @priority@ @pri@ @p@ @time@ @t@ @program@ @prog@ @file@", nullptr},
        {7, "@line@ @message@ @msg@ @m@ @cmpmsg@ @symbol@ @sym@ @s@ @class@ @c@", nullptr},
        {7, "@classIndex@ @ci@", nullptr},
        {7, "x @p", "@p : Improperly constructed synthetic field name"},
        {7, "@ and the rest", "@ and the rest : Improperly constructed synthetic field name"},
        {7, "@x@ rest", "@x@ : Unrecognized synthetic field name"},
        {7, "@@", "@@ : Unrecognized synthetic field name"},
        {7, "@msgPtr@", "@msgPtr@ : Unrecognized synthetic field name"},
        {7, "@logfile@", "@logfile@ : Unrecognized synthetic field name"},
        {7, "@p@ @x@", "@x@ : Unrecognized synthetic field name"},
        {7, "@key@", "@key@ : specified in illegal context"},
    });
    expectVerdicts({{7, "@key@ @p@", nullptr}}, 1);
}

TEST(Check, timeParts) {
    expectVerdicts({
        {7, "@time@.sec @t@.min @t@.hour @t@.mday @t@.mon @t@.year", nullptr},
        {7, "@t@.wday @t@.yday @t@.isdst", nullptr},
        {7, "@time@ .week", nullptr},
        {7, "@time@.week rest", "week : Unrecognized @time@ part field name"},
        {7, "@t@.", " : Unrecognized @time@ part field name"},
    });
}

TEST(Check, argumentsByNumber) {
    expectVerdicts({
        {7, "@field@[0] @f@[1] @f@[0x1] @f@[01]", nullptr},
        {-1, "@f@[99]", nullptr},
        {7, "@f@[2] rest", "2] rest : @field@ index >= # of fields in message"},
        {8, "@f@[0]", "0] : @field@ index >= # of fields in message"},
        {7, "@f@[4294967296]", "4294967296] : @field@ index >= # of fields in message"},
        {7, "@f@ [0]", "@f@ [0] : @field@ missing \"[nnn]\""},
        {7, "x@field@", "@field@ : @field@ missing \"[nnn]\""},
        {7, "@f@[1 ]", "@f@[1 ] : @field@ index improperly formed"},
        {-1, "@f@[08]", "@f@[08] : @field@ index improperly formed"},
        {7, "@f@[1", "@f@[1 : @field@ index improperly formed"},
        {7, "@f@[-1] rest", "@f@[-1 : @field@ index improperly formed"},
        {7, "@f@[ 1]", "@f@[ 1 : @field@ index improperly formed"},
        {7, "@f@[", "@f@[ : @field@ index improperly formed"},
        {7, "@f@[]", "@f@[ : @field@ index improperly formed"},
    });
}

TEST(Check, argumentsByName) {
    expectVerdicts({
        {7, "@f@[host] @field@[port_2  ] rest", nullptr},
        {-1, "@f@[whatever]", nullptr},
        {7, "@f@[port]", "port is an unrecognized field name for message NET_DOWN"},
        {8, "@f@[host]", "host is an unrecognized field name for message ??"},
        {7, "@f@[host x] rest", "host x : @field@ index improperly formed"},
        {-1, "@f@[host-]", "host- : @field@ index improperly formed"},
        {7, "@f@[host", "host : @field@ index improperly formed"},
        {7, "@f@[host  ", "host   : @field@ index improperly formed"},
    });
}

TEST(Check, backslashesHideFields) {
    expectVerdicts({
        {7, "\\@key@", nullptr},
        // Another "@" behind: the translator reads the closing one as the start of a field.
        {7, "\\@key@ @key@", "@ @ : Unrecognized synthetic field name"},
        {7, "\\@p@ @i@", "@ @ : Unrecognized synthetic field name"},
        {7, "\\@key@p@", nullptr},
        {7, "\\@key@key@", "@key@ : specified in illegal context"},
        {7, "\\\\@key@", "@key@ : specified in illegal context"},
        {7, "\\\\\\@key@", nullptr},
        {7, "\\@ @p@", nullptr}, // "@ @" is no field's name: only the "@" is taken
        {7, "\\@x@p@", nullptr},
        {7, "\\@x@q@", "@q@ : Unrecognized synthetic field name"},
        {7, "x\\", nullptr},
        {7, "\\", nullptr},
    });
}

TEST(Check, nullTextIsInvalidWithoutAMessage) {
    char stale[] = "stale";
    char *error = stale;
    EXPECT_EQ(vfySynFields(7, nullptr, &error, 1), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(vfySynFields(7, nullptr, nullptr, 1), 0);
}

TEST(Decode, tellsWhereTheCheckGoesOn) {
    withCatalogue([] {
        const auto rest = [](int32_t index, const char *text) {
            char *next = nullptr;
            EXPECT_EQ(decodeSynField(index, text, nullptr, &next, 1), 1) << text;
            return std::string(next == nullptr ? "(null)" : next);
        };
        EXPECT_EQ(rest(7, "@p@ rest"), " rest");
        EXPECT_EQ(rest(7, "@key@"), "");
        EXPECT_EQ(rest(7, "@t@.mon rest"), " rest");
        EXPECT_EQ(rest(7, "@t@ rest"), " rest");
        EXPECT_EQ(rest(7, "@f@[1] rest"), "] rest");
        EXPECT_EQ(rest(-1, "@f@[1] rest"), "] rest");
        EXPECT_EQ(rest(7, "@f@[host ] rest"), " rest");
    });
}

TEST(Decode, needsAnAtSignAndASlot) {
    char stale[] = "stale";
    char *error = stale, *next = nullptr;
    const char *text = "no field";
    EXPECT_EQ(decodeSynField(7, text, &error, &next, 1), 0);
    EXPECT_EQ(next, text);
    EXPECT_EQ(error, nullptr);
    error = stale;
    EXPECT_EQ(decodeSynField(7, "@p@", &error, nullptr, 1), 0);
    EXPECT_EQ(error, nullptr);
    error = stale;
    next = stale;
    EXPECT_EQ(decodeSynField(7, nullptr, &error, &next, 1), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(next, stale);
    EXPECT_EQ(decodeSynField(7, "", &error, &next, 1), 0);
}

// Exhausted memory.

// What the action gives, with ever more memory; it must be null or whole, and both must be seen.
void expectNullOrWhole(const std::function<char *(CharBuffer *)> &action,
                       const std::string &whole) {
    int failures = 0;
    std::string got;
    for (int granted = 0; granted < 40 && got.empty(); ++granted) {
        const Buffer buffer(mkCharBuffer(4)); // grows often
        const char *text;
        {
            const FailingAlloc few(granted);
            text = action(buffer.get());
        }
        if (text == nullptr)
            ++failures;
        else
            got = text;
    }
    EXPECT_EQ(got, whole);
    EXPECT_GE(failures, 3);
}

TEST(ExhaustedMemory, templateIsFilledInWholeOrNotAtAll) {
    withCatalogue([] {
        const Parsed msg = parsed(recordOf(7, 2, {"a b", "80"}));
        const std::vector<Case> cases = {
            {"text before, @s@", "text before, NET_DOWN"},
            {"@time@", "\"Tue Nov 14 16:39:09 2017\""},
            {"123456@p@x", "123456\"* \"x"},
            {"12@i@@i@@i@", "12777"},
            {"@f@[0]@f@[0]@f@[1]", "\"a b\"\"a b\"80"},
            {"@nothing@@nothing@", "@nothing@@nothing@"},
            {"@key@@key@", "k ey"},
            {"@ci@,@ci@,@ci@,@ci@", "3,3,3,3"},
        };
        translated("@s@@f@[host]", msg.get()); // reads the catalogue
        for (const Case &c : cases)
            expectNullOrWhole(
                [&](CharBuffer *buffer) {
                    return translateSynFields(buffer, c.text, msg.get(), "k ey");
                },
                c.text[1] == 'k' ? "\"k ey\"\"k ey\"" : c.expected);
    });
}

TEST(ExhaustedMemory, quotingPairGivesTheWholeOrNull) {
    expectNullOrWhole([](CharBuffer *buffer) { return cvtToQuotedStr(buffer, "a \"b\" and c"); },
                      "\"a \\\"b\\\" and c\"");
    expectNullOrWhole([](CharBuffer *buffer) { return dedoublequoteStr(buffer, "\"a b and c\""); },
                      "a b and c");
}

TEST(ExhaustedMemory, failedCheckHasAMessageStill) {
    expectChildPasses([] {
        char *error = nullptr, *next = nullptr;
        const FailingAlloc none;
        EXPECT_EQ(decodeSynField(-1, "@nothing@", &error, &next, 1), 0);
        EXPECT_STREQ(error, "Invalid synthetic field (out of memory)");
        EXPECT_EQ(vfySynFields(-1, "@p@ @nothing@", &error, 1), 0);
        EXPECT_STREQ(error, "Invalid synthetic field (out of memory)");
        EXPECT_EQ(vfySynFields(-1, "@p@", &error, 1), 1) << "valid needs no memory";
        EXPECT_EQ(error, nullptr);
    });
}

// Quoting.

std::string quoted(const std::string &text) {
    const Buffer buffer(mkCharBuffer(1));
    return cvtToQuotedStr(buffer.get(), text.c_str());
}

std::string unquoted(const std::string &text) {
    const Buffer buffer(mkCharBuffer(1));
    return dedoublequoteStr(buffer.get(), text.c_str());
}

TEST(Quoting, pairUndoesItself) {
    EXPECT_EQ(quoted("a\"b"), "\"a\\\"b\"");
    EXPECT_EQ(quoted(""), "\"\"");
    EXPECT_EQ(quoted("a\\b\n\xff"), "\"a\\\\b\n\xff\"");
    for (const char *text : {"", "a\"b", "\\", "\"", "\\\"", "a b\t", "\\n\xff", "\\\\\"\""})
        EXPECT_EQ(unquoted(quoted(text)), text);
}

TEST(Quoting, unquotingTakesWhatQuotingNeverWrites) {
    EXPECT_EQ(unquoted("a\"b\"c"), "abc");
    EXPECT_EQ(unquoted("\\n\\x"), "\\n\\x");
    EXPECT_EQ(unquoted("a\\"), "a");
    EXPECT_EQ(unquoted("\\\\\\"), "\\");
    EXPECT_EQ(unquoted("\"\""), "");
}

TEST(Quoting, bothAppendAndRefuseNull) {
    const Buffer buffer(mkCharBuffer(16));
    EXPECT_EQ(cvtToQuotedStr(buffer.get(), nullptr), nullptr); // nothing stored yet
    EXPECT_STREQ(cvtToQuotedStr(buffer.get(), "a"), "\"a\"");
    EXPECT_STREQ(dedoublequoteStr(buffer.get(), "\"b\""), "\"a\"b");
    EXPECT_STREQ(cvtToQuotedStr(buffer.get(), nullptr), "\"a\"b");
    EXPECT_STREQ(dedoublequoteStr(buffer.get(), nullptr), "\"a\"b");
    EXPECT_EQ(cvtToQuotedStr(nullptr, "a"), nullptr);
    EXPECT_EQ(dedoublequoteStr(nullptr, "a"), nullptr);
}

TEST(SyntheticFormat, valueThatBreaksTheFormatExpandsItToNothing) {
    withCatalogue([] {
        for (const char *value : {"%P(", "%P(x", "%P( %q", "%M(", "%M(%q", "%M(%r=", "%M(%rx"})
            EXPECT_EQ(expandedAs("@f@[0]", recordOf(7, 2, {value, "0"})), "(null)") << value;
        EXPECT_EQ(expandedAs("@f@[0]", recordOf(7, 2, {"%P(%d)", "0"})), "2");
    });
}

TEST(Translate, argumentsByHexadecimalNumber) {
    expectEach(
        {{"@f@[0x0a]|", "@f@[0x0a]|"}, {"@f@[0X0F]|", "@f@[0X0F]|"}, {"@f@[0x1g]|", "@f@[0x1g]|"}},
        down);
    std::vector<std::string> arguments(12, "x");
    arguments[10] = "ten";
    expectEach({{"@f@[0x0a]@f@[0XA]", "tenten"}}, recordOf(7, 2, arguments));
}

TEST(Translate, priorityWithoutAMarkIsEmpty) {
    withCatalogue([] {
        const Parsed msg = parsed(down);
        msg->priority = -1;
        EXPECT_EQ(translated("@p@", msg.get()), "\"\"");
        msg->priority = 5;
        EXPECT_EQ(translated("@p@", msg.get()), "\"\"");
        msg->priority = 4;
        EXPECT_EQ(translated("@p@", msg.get()), "\"*C\"");
    });
}

TEST(ExhaustedMemory, failedCheckHasAMessageHoweverLittleMemoryThereIs) {
    expectChildPasses([] {
        const std::string name = "@" + std::string(300, 'n') + "@";
        int whole = 0;
        for (int granted = 0; granted < 10; ++granted) {
            char *error = nullptr, *next = nullptr;
            {
                const FailingAlloc few(granted);
                EXPECT_EQ(decodeSynField(-1, name.c_str(), &error, &next, 1), 0);
            }
            ASSERT_NE(error, nullptr);
            const bool isWhole = error == name + " : Unrecognized synthetic field name";
            whole += isWhole ? 1 : 0;
            if (!isWhole) {
                EXPECT_STREQ(error, "Invalid synthetic field (out of memory)");
            }
        }
        EXPECT_GT(whole, 0);
        EXPECT_LT(whole, 10);
    });
}

} // namespace
