#include "logMsg.h"

#include "../buffers/cntlchrs.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expandLog.h"
#include "localTime.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static constexpr int32_t HIGHEST_PRIORITY = 4; // the parser takes more, none is set
static constexpr ptrdiff_t TIME_DIGITS = 8;
static constexpr ptrdiff_t HEAD_LENGTH = 1 + TIME_DIGITS; // behind FS: priority and time

// What chgProducerLogMsg returned last, kept for its caller.
static char *previousProducer;

// The first FS of the record text; null where there is no text or no FS.
static char *findHead(const LogMsg *msg) {
    return msg->record == nullptr ? nullptr : strchr(msg->record, CNTL_FS);
}

static void renewExpansion(LogMsg *msg) {
    if (msg->expansion != nullptr)
        expandCmpLog(msg);
}

int32_t chgPriorityLogMsg(LogMsg *msg, int32_t priority) {
    if (msg == nullptr || priority < 0 || priority > HIGHEST_PRIORITY)
        return -1;
    const int32_t previous = msg->priority;
    msg->priority = priority;
    char *head = findHead(msg);
    if (msg->record != nullptr && head == nullptr)
        return previous; // without renewing the expansion. Kept.
    if (head != nullptr && head[1] != '\0')
        head[1] = static_cast<char>('0' + priority);
    renewExpansion(msg);
    return previous;
}

static void writeTime(char *digits, int32_t time) {
    uint32_t rest = static_cast<uint32_t>(time);
    for (ptrdiff_t i = TIME_DIGITS - 1; i >= 0; --i, rest >>= 4)
        digits[i] = "0123456789ABCDEF"[rest & 0xF];
}

int32_t chgTimeLogMsg(LogMsg *msg, int32_t time) {
    if (msg == nullptr)
        return -1;
    const int32_t previous = msg->time;
    msg->time = time;
    readLocalTime(time, &msg->tm);
    char *head = findHead(msg);
    if (head != nullptr && strlen(head) > HEAD_LENGTH)
        writeTime(head + 2, time);
    renewExpansion(msg);
    return previous;
}

static bool isGraphic(const char *text) {
    while (isGraphByte(*text))
        ++text;
    return *text == '\0';
}

// The record text with the name in place of its producer; head is its first FS. Null when memory is
// exhausted.
static char *replaceProducer(const char *record, const char *head, const char *name) {
    const char *nameAt = head + 1;
    while (*nameAt != '\0' && nameAt <= head + HEAD_LENGTH)
        ++nameAt;
    const char *rest = nameAt;
    while (*rest != '\0' && *rest != CNTL_FS && !isSpaceByte(*rest))
        ++rest;
    const size_t before = static_cast<size_t>(nameAt - record), length = strlen(name);
    const size_t after = strlen(rest) + 1;
    char *text = static_cast<char *>(malloc(before + length + after));
    if (text == nullptr)
        return nullptr;
    memcpy(text, record, before);
    memcpy(text + before, name, length);
    memcpy(text + before + length, rest, after);
    return text;
}

static void installProducer(LogMsg *msg, char *name) {
    freecopy(previousProducer);
    previousProducer = msg->producer;
    msg->producer = name;
    freecopy(msg->spare4);
    msg->spare4 = nullptr;
}

static void installRecord(LogMsg *msg, char *record) {
    freecopy(msg->record);
    freecopy(msg->spare1);
    msg->record = record;
    msg->spare1 = nullptr;
}

char *chgProducerLogMsg(LogMsg *msg, const char *producer) {
    if (msg == nullptr || producer == nullptr || !isGraphic(producer))
        return nullptr;
    // Both texts first: a failure changes nothing, and the name may be what the last call returned
    // or the record's own.
    char *name = mkcopy(producer);
    if (name == nullptr)
        return nullptr;
    const char *head = findHead(msg);
    char *record = head == nullptr ? nullptr : replaceProducer(msg->record, head, name);
    if (head != nullptr && record == nullptr) {
        freecopy(name);
        return nullptr;
    }
    installProducer(msg, name);
    if (msg->record != nullptr && record == nullptr)
        return previousProducer; // without renewing the expansion. Kept.
    if (record != nullptr)
        installRecord(msg, record);
    renewExpansion(msg);
    return previousProducer;
}
