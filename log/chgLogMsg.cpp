#include "logMsg.h"

#include "../buffers/charBuffer.h"
#include "../buffers/cntlchrs.h"
#include "../core/mkcopy.h"
#include "byteClass.h"
#include "expandLog.h"

#include <stddef.h>
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
    const time_t seconds = msg->time = time;
    const struct tm *local = localtime(&seconds);
    if (local != nullptr)
        msg->tm = *local;
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
    CharBuffer *buffer = mkCharBuffer(0);
    if (buffer == nullptr)
        return nullptr;
    const char *nameAt = head + 1;
    while (*nameAt != '\0' && nameAt <= head + HEAD_LENGTH)
        ++nameAt;
    for (const char *at = record; at < nameAt; ++at)
        fputCharBuffer(buffer, *at);
    const char *rest = nameAt;
    while (*rest != '\0' && *rest != CNTL_FS && !isSpaceByte(*rest))
        ++rest;
    char *text = nullptr;
    if (putStrCharBuffer(buffer, name) != nullptr && putStrCharBuffer(buffer, rest) != nullptr)
        text = mkcopy(buffer->text);
    freeCharBuffer(buffer);
    return text;
}

char *chgProducerLogMsg(LogMsg *msg, const char *producer) {
    if (msg == nullptr || producer == nullptr || !isGraphic(producer))
        return nullptr;
    // First, since the name may be what the last call returned, or the record's own.
    char *name = mkcopy(producer);
    if (name == nullptr)
        return nullptr;
    freecopy(previousProducer);
    previousProducer = msg->producer;
    msg->producer = name;
    freecopy(msg->spare4);
    msg->spare4 = nullptr;
    const char *head = findHead(msg);
    if (msg->record != nullptr && head == nullptr)
        return previousProducer; // without renewing the expansion. Kept.
    char *record = head == nullptr ? nullptr : replaceProducer(msg->record, head, name);
    if (record != nullptr) {
        freecopy(msg->record);
        freecopy(msg->spare1);
        msg->record = record;
        msg->spare1 = nullptr;
    }
    renewExpansion(msg);
    return previousProducer;
}
