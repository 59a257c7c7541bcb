/* Records: what is parsed from any line are parts of that line, a record put together from them
   parses to the same, and an edited record's text says what its fields say. */
#include "log/logMsg.h"
#include "support/exactText.h"
#include "support/scratch.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

static constexpr char FS = '\x1c', GS = '\x1d';
static constexpr uint32_t KEEP = PARSE_KEEP_TEXT | PARSE_KEEP_COMMENTS;

struct Release {
    void operator()(LogMsg *msg) const { freeLogMsg(msg); }
};
using Message = std::unique_ptr<LogMsg, Release>;

static Message parse(const ExactText &text, uint32_t flags, int wantExpansion = 0) {
    return Message(parseCmpLogEnhanced(text.get(), wantExpansion, flags));
}

static bool same(const char *a, const char *b) {
    return a == nullptr || b == nullptr ? a == b : strcmp(a, b) == 0;
}

static void checkSameFields(const LogMsg &a, const LogMsg &b) {
    FUZZ_CHECK(a.index == b.index && a.priority == b.priority && a.time == b.time);
    FUZZ_CHECK(a.tm.tm_sec == b.tm.tm_sec && a.tm.tm_yday == b.tm.tm_yday);
    FUZZ_CHECK(same(a.producer, b.producer) && same(a.file, b.file) && a.line == b.line);
    FUZZ_CHECK(a.argCount == b.argCount);
    for (int32_t i = 0; i < a.argCount; ++i)
        FUZZ_CHECK(same(a.args[i].value, b.args[i].value));
}

static void checkClass(const ExactText &text) {
    int32_t index = 77, priority = 77, time = 77;
    char *rest = nullptr;
    const int32_t type = typeOfCmpLog(text.get(), &index, &priority, &time, &rest);
    FUZZ_CHECK(rest >= text.get() && rest <= text.get() + text.length());
    FUZZ_CHECK(priority >= 0 && priority <= 9);
    FUZZ_CHECK(type == index || (type == -1 && index == 77));
    FUZZ_CHECK(typeOfCmpLog(text.get(), nullptr, nullptr, nullptr, nullptr) == type);
    FUZZ_CHECK(type < 0 || (rest - text.get() >= 11 && rest[-10] == FS));
}

static std::string headOf(const LogMsg &msg) {
    char head[64];
    snprintf(head, sizeof head, "%d %c%d%.8X", msg.index, FS, msg.priority,
             static_cast<unsigned>(msg.time));
    return head;
}

static std::string recordOf(const LogMsg &msg) {
    std::string record =
        headOf(msg) + msg.producer + ' ' + msg.file + ':' + std::to_string(msg.line);
    for (int32_t i = 0; i < msg.argCount; ++i)
        record += FS + std::string(msg.args[i].value);
    return record + GS;
}

static size_t lengthOfParts(const LogMsg &msg) {
    size_t length = strlen(msg.producer) + strlen(msg.file);
    for (int32_t i = 0; i < msg.argCount; ++i)
        length += strlen(msg.args[i].value) + 1;
    return length;
}

static void checkWellFormed(const LogMsg &msg, const ExactText &text) {
    FUZZ_CHECK(same(msg.record, text.get()));
    FUZZ_CHECK(msg.index >= 0 && msg.producer != nullptr && msg.file != nullptr && msg.line >= 0);
    FUZZ_CHECK(strstr(text.get(), msg.producer) != nullptr &&
               strstr(text.get(), msg.file) != nullptr);
    FUZZ_CHECK((msg.argCount > 0) == (msg.args != nullptr));
    for (int32_t i = 0; i < msg.argCount; ++i)
        FUZZ_CHECK(strstr(text.get(), msg.args[i].value) != nullptr);
    FUZZ_CHECK(lengthOfParts(msg) <= text.length());
    const Message again = parse(ExactText(recordOf(msg)), 0);
    FUZZ_CHECK(again != nullptr);
    checkSameFields(msg, *again);
}

static void edit(LogMsg &msg, Pieces &pieces) {
    const auto priority = static_cast<int32_t>(pieces.number(12)) - 3;
    const auto time = static_cast<int32_t>(pieces.number(0x10000) << 16 | pieces.number(0x10000));
    const ExactText producer(pieces.text());
    const int32_t oldPriority = msg.priority, oldTime = msg.time;
    const std::string oldProducer = msg.producer == nullptr ? "" : msg.producer;
    const bool settable = priority >= 0 && priority <= 4;
    FUZZ_CHECK(chgPriorityLogMsg(&msg, priority) == (settable ? oldPriority : -1));
    FUZZ_CHECK(msg.priority == (settable ? priority : oldPriority));
    FUZZ_CHECK(chgTimeLogMsg(&msg, time) == oldTime && msg.time == time);
    const char *previous = chgProducerLogMsg(&msg, producer.get());
    FUZZ_CHECK(previous == nullptr ||
               (oldProducer == previous && same(msg.producer, producer.get())));
}

static void checkEdited(const LogMsg &msg) {
    const Message again = parse(ExactText(msg.record), 0);
    FUZZ_CHECK(again != nullptr);
    checkSameFields(msg, *again);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    setenv("TZ", "UTC0", 1);
    Pieces pieces(data, size);
    const int wantExpansion = pieces.byte() & 1;
    Pieces edits = pieces; // the numbers and the name of the edits, then the line
    for (int i = 0; i < 6; ++i)
        pieces.byte();
    pieces.text();
    const ExactText text(pieces.rest());
    checkClass(text);

    const Message kept = parse(text, KEEP, wantExpansion);
    const Message strict = parse(text, 0);
    FUZZ_CHECK(kept != nullptr && same(kept->record, text.get()));
    FUZZ_CHECK(wantExpansion == 0 || kept->index >= 0 || kept->expansion != nullptr);
    if (strict != nullptr) {
        checkSameFields(*strict, *kept);
        checkWellFormed(*strict, text);
    }
    edit(*kept, edits);
    if (strict != nullptr)
        checkEdited(*kept);
    return 0;
}
