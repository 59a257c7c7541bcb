// Records taken apart, changed and expanded, with every call failing in turn: the whole text or
// none.
#include "buffers/charBuffer.h"
#include "core/mkcopy.h"
#include "log/expandLog.h"
#include "log/log.h"
#include "log/logMsg.h"
#include "log/synLogFlds.h"

#include "faults/sweep.h"

#include <memory>

namespace {

struct FreeBuffer {
    void operator()(CharBuffer *buffer) const { freeCharBuffer(buffer); }
};
using Buffer = std::unique_ptr<CharBuffer, FreeBuffer>;

constexpr const char *RECORD = "1 \x1C"
                               "25F000000prog file.c:12\x1C"
                               "first\x1Csecond\x1D";
constexpr const char *EXPANDED = "*  Sat Jul  4 04:05:20 2020 prog file.c:12\nfirst and second.\n";

// ---- taking apart

std::string partsOf(const LogMsg *msg) {
    if (msg == nullptr)
        return "(null)";
    std::string parts =
        std::to_string(msg->index) + " " + shown(msg->producer) + " " + shown(msg->file);
    for (int32_t i = 0; i < msg->argCount; ++i)
        parts += " " + shown(msg->args[i].value);
    return parts;
}

template<typename Parse>
void parseWith(Attempt &attempt, const char *text, const std::string &parts, Parse operation) {
    std::string line = text;
    LogMsg *msg = attempt.under([&] { return operation(line.data()); });
    EXPECT_EQ(partsOf(msg), attempt.faulted() ? "(null)" : parts);
    freeLogMsg(msg);
    msg = operation(line.data());
    EXPECT_EQ(partsOf(msg), parts);
    freeLogMsg(msg);
}

void parses(Attempt &attempt) {
    parseWith(attempt, RECORD, "1 prog file.c first second",
              [](char *text) { return parseCmpLog(text, 0); });
}

// More arguments than an array's first size.
void parsesMany(Attempt &attempt) {
    std::string record = "1 \x1C"
                         "25F000000prog file.c:12\x1C";
    std::string parts = "1 prog file.c";
    for (int i = 0; i < 25; ++i) {
        record += "arg" + std::to_string(i) + (i < 24 ? "\x1C" : "\x1D");
        parts += " arg" + std::to_string(i);
    }
    parseWith(attempt, record.c_str(), parts,
              [](char *text) { return parseCmpLogEnhanced(text, 0, 0x100); });
}

void keepsText(Attempt &attempt) {
    parseWith(attempt, "free\ttext", "-1 (null) (null)",
              [](char *text) { return parseCmpLogEnhanced(text, 1, PARSE_KEEP_TEXT); });
}

void keepsComment(Attempt &attempt) {
    parseWith(attempt, "# comment", "-2 (null) (null)",
              [](char *text) { return parseCmpLogEnhanced(text, 1, PARSE_KEEP_COMMENTS); });
}

// ---- the expansion

// The file of message texts: number 1 has one.
struct TextFile {
    TextFile() {
        std::string directory(32, ' ');
        directory.replace(16, 5, "32 11");
        setenv("TZ", "UTC", 1);
        for (const char *name : {"LOGFORMAT", "LOGCOLUMN", "LOGCONTPREFIX"})
            unsetenv(name);
        setenv("TEXTLOGFMT", dir.write("texts", directory + "%s and %s.\n").c_str(), 1);
    }
    TempDir dir;
};

std::string expanded() {
    std::string record = RECORD;
    return shown(expandLog(record.data()));
}

std::string right() {
    return EXPANDED;
}

// A read that a signal interrupts goes on, and so does a short one. What was expanded before stays.
bool isOverlooked(const Attempt &attempt) {
    return !attempt.faulted() || attempt.isShort() ||
           (attempt.at("pread") && attempt.effect() == EINTR);
}

void expandsFirst(Attempt &attempt) {
    const TextFile file;
    const std::string text = attempt.under(expanded);
    EXPECT_EQ(text, isOverlooked(attempt) ? right() : "(null)");
    EXPECT_EQ(expanded(), right());
}

void expandsAgain(Attempt &attempt) {
    const TextFile file;
    std::string record = RECORD;
    const char *before = expandLog(record.data());
    ASSERT_NE(before, nullptr);
    const std::string text = attempt.under(expanded);
    EXPECT_EQ(text, isOverlooked(attempt) ? right() : "(null)");
    if (attempt.faulted()) {
        EXPECT_EQ(before, right()) << "the last result";
    }
    EXPECT_EQ(expanded(), right());
}

// Shown and wrapped, as the environment wants it.
void expandsWrapped(Attempt &attempt) {
    const TextFile file;
    setenv("LOGFORMAT", "%N %S:%L %M%C", 1);
    setenv("LOGCOLUMN", "12", 1);
    setenv("LOGCONTPREFIX", "> ", 1);
    setVisible(1);
    const std::string text = attempt.under(expanded);
    const std::string again = expanded();
    EXPECT_TRUE(text == again || (attempt.faulted() && text == "(null)")) << text;
    EXPECT_NE(again, "(null)");
    EXPECT_STREQ(getContinuationPrefix(), "> ");
    EXPECT_EQ(getExpansionCutoff(), 12);
    EXPECT_STREQ(getExpansionFmt(), "%N %S:%L %M%C");
}

// The record's text asked for by the template itself, its time in a layout of its own.
void expandsSynthetic(Attempt &attempt) {
    const TextFile file;
    chgExpansionFmt("@index@ @time@ @program@ @f@[1] %T(%D %B %j %U) %M(%r=,)");
    setenv("LOGROOT", "/no/such/root", 1);
    const std::string text = attempt.under(expanded);
    const std::string whole =
        "1 \"Sat Jul  4 04:05:20 2020\" prog second 07/04/20 July 186 27 first,second,";
    EXPECT_EQ(expanded().substr(0, 50), whole.substr(0, 50));
    EXPECT_TRUE(text == expanded() || (attempt.faulted() && text == "(null)")) << text;
}

void parsesAndExpands(Attempt &attempt) {
    const TextFile file;
    std::string record = RECORD;
    LogMsg *msg = attempt.under([&] { return parseCmpLog(record.data(), 1); });
    // A record without its expansion is one.
    if (msg != nullptr && (!attempt.faulted() || msg->expansion != nullptr)) {
        EXPECT_EQ(shown(msg->expansion), right());
    }
    EXPECT_TRUE(msg == nullptr || partsOf(msg) == "1 prog file.c first second");
    EXPECT_TRUE(msg != nullptr || attempt.isMemory());
    freeLogMsg(msg);
    EXPECT_EQ(expanded(), right());
}

void renews(Attempt &attempt) {
    const TextFile file;
    std::string record = RECORD;
    LogMsg *msg = parseCmpLog(record.data(), 1);
    ASSERT_NE(msg, nullptr);
    attempt.under([&] {
        expandCmpLog(msg);
        return 0;
    });
    EXPECT_EQ(shown(msg->expansion), isOverlooked(attempt) ? right() : "(null)");
    freeLogMsg(msg);
}

// ---- changes

// Field, record text and expansion; an expansion that there is no memory for is missing.
template<typename Change>
void change(Attempt &attempt, const std::string &record, const std::string &expansion,
            bool (*refuses)(const Attempt &attempt), Change operation) {
    const TextFile file;
    std::string text = RECORD;
    LogMsg *msg = parseCmpLog(text.data(), 1);
    ASSERT_NE(msg, nullptr);
    attempt.under([&] {
        operation(msg);
        return 0;
    });
    const bool isRefused = attempt.faulted() && refuses(attempt);
    EXPECT_EQ(msg->record, isRefused ? RECORD : record);
    if (isRefused) {
        EXPECT_EQ(shown(msg->expansion), right());
    } else {
        EXPECT_EQ(shown(msg->expansion), attempt.faulted() ? "(null)" : expansion);
    }
    freeLogMsg(msg);
}

constexpr auto NEVER = [](const Attempt &) { return false; };

void changesPriority(Attempt &attempt) {
    change(attempt,
           "1 \x1C"
           "35F000000prog file.c:12\x1C"
           "first\x1Csecond\x1D",
           "** Sat Jul  4 04:05:20 2020 prog file.c:12\nfirst and second.\n", NEVER,
           [](LogMsg *msg) { EXPECT_EQ(chgPriorityLogMsg(msg, 3), 2); });
}

void changesTime(Attempt &attempt) {
    change(attempt,
           "1 \x1C"
           "25F000001prog file.c:12\x1C"
           "first\x1Csecond\x1D",
           "*  Sat Jul  4 04:05:21 2020 prog file.c:12\nfirst and second.\n", NEVER,
           [](LogMsg *msg) { EXPECT_EQ(chgTimeLogMsg(msg, 0x5F000001), 0x5F000000); });
}

// The first two texts are the name and the record: without either nothing changes.
void changesProducer(Attempt &attempt) {
    change(
        attempt,
        "1 \x1C"
        "25F000000another file.c:12\x1C"
        "first\x1Csecond\x1D",
        "*  Sat Jul  4 04:05:20 2020 another file.c:12\nfirst and second.\n",
        [](const Attempt &run) { return run.nth() <= 2; },
        [](LogMsg *msg) { chgProducerLogMsg(msg, "another"); });
}

// ---- settings

void setsTextFile(Attempt &attempt) {
    const TextFile one, two;
    const std::string first = one.dir.file("texts"), second = two.dir.file("texts");
    EXPECT_EQ(shown(setExpandFmt(first.c_str())), first);
    const char *text = getExpandFmt(1);
    const char *path = attempt.under([&] { return setExpandFmt(second.c_str()); });
    const bool isRefused = attempt.faulted() && attempt.isMemory();
    EXPECT_EQ(shown(path), isRefused ? "(null)" : second);
    if (isRefused) {
        EXPECT_EQ(getExpandFmt(1), text) << "the cache has gone";
    }
    EXPECT_STREQ(getExpandFmt(1), "%s and %s.\n");
}

void getsText(Attempt &attempt) {
    const TextFile file;
    const std::string text = attempt.under([] { return shown(getExpandFmt(1)); });
    EXPECT_EQ(text, isOverlooked(attempt) ? "%s and %s.\n" : "(null)");
    EXPECT_STREQ(getExpandFmt(1), "%s and %s.\n");
    attempt.faulted() ? endExpandFmt() : static_cast<void>(0);
}

void setsFormat(Attempt &attempt) {
    chgExpansionFmt("%N");
    attempt.under([] {
        chgExpansionFmt("%S");
        return 0;
    });
    EXPECT_STREQ(getExpansionFmt(), attempt.faulted() ? "%N" : "%S");
}

void setsPrefix(Attempt &attempt) {
    chgContinuationPrefix("> ");
    const int32_t width = attempt.under([] { return chgContinuationPrefix(">>> "); });
    EXPECT_EQ(width, attempt.faulted() ? 2 : 4);
    EXPECT_STREQ(getContinuationPrefix(), attempt.faulted() ? "> " : ">>> ");
}

// The content stays as it was.
void posts(Attempt &attempt) {
    const Buffer buffer(mkCharBuffer(8));
    putStrCharBuffer(buffer.get(), "one\ttwo three four");
    setVisible(1);
    chgExpansionCutoff(8);
    chgContinuationPrefix("> ");
    const std::string text = attempt.under([&] { return shown(postMsg(buffer.get())); });
    EXPECT_EQ(text, attempt.faulted() ? "(null)" : "one\\ttwo \n> three\n> four");
    EXPECT_STREQ(buffer->text,
                 attempt.faulted() ? "one\ttwo three four" : "one\\ttwo \n> three\n> four");
}

void quotes(Attempt &attempt) {
    const Buffer buffer(mkCharBuffer(2));
    const std::string text =
        attempt.under([&] { return shown(cvtToQuotedStr(buffer.get(), "a \"b\"")); });
    EXPECT_EQ(text, attempt.faulted() ? "(null)" : "\"a \\\"b\\\"\"");
}

void unquotes(Attempt &attempt) {
    const Buffer buffer(mkCharBuffer(2));
    const std::string text =
        attempt.under([&] { return shown(dedoublequoteStr(buffer.get(), "\"a \\\"b\\\"\"")); });
    EXPECT_EQ(text, attempt.faulted() ? "(null)" : "a \"b\"");
}

const Kinds FILES = {INTERRUPTED, NO_SPACE, IO_ERROR, IO_GONE};

const std::vector<Rows> rows = {
    {"parseCmpLog", Fresh::IN_PLACE, parses, MEMORY},
    {"parseCmpLogEnhanced_manyArguments", Fresh::IN_PLACE, parsesMany, MEMORY},
    {"parseCmpLogEnhanced_text", Fresh::IN_PLACE, keepsText, MEMORY},
    {"parseCmpLogEnhanced_comment", Fresh::IN_PLACE, keepsComment, MEMORY},
    {"parseCmpLog_expanded", Fresh::IN_CHILD, parsesAndExpands, MEMORY + FILES},
    {"expandLog", Fresh::IN_CHILD, expandsFirst, MEMORY + FILES + TRANSFERS},
    {"expandLog_again", Fresh::IN_CHILD, expandsAgain, MEMORY},
    {"expandLog_wrapped", Fresh::IN_CHILD, expandsWrapped, MEMORY},
    {"expandLog_synthetic", Fresh::IN_CHILD, expandsSynthetic, MEMORY},
    {"expandCmpLog", Fresh::IN_CHILD, renews, MEMORY},
    {"chgPriorityLogMsg", Fresh::IN_CHILD, changesPriority, MEMORY},
    {"chgTimeLogMsg", Fresh::IN_CHILD, changesTime, MEMORY},
    {"chgProducerLogMsg", Fresh::IN_CHILD, changesProducer, MEMORY},
    {"getExpandFmt", Fresh::IN_CHILD, getsText, MEMORY + FILES + TRANSFERS},
    {"setExpandFmt", Fresh::IN_PLACE, setsTextFile, MEMORY + FILES},
    {"chgExpansionFmt", Fresh::IN_PLACE, setsFormat, MEMORY},
    {"chgContinuationPrefix", Fresh::IN_PLACE, setsPrefix, MEMORY},
    {"postMsg", Fresh::IN_CHILD, posts, MEMORY},
    {"cvtToQuotedStr", Fresh::IN_PLACE, quotes, MEMORY},
    {"dedoublequoteStr", Fresh::IN_PLACE, unquotes, MEMORY},
};

QN_SWEEPS(rows);

} // namespace
