/* Edited records: fields, text and expansion in step, refusals, and texts too short to hold what is
   written. Time zone and expansion are process-wide, so cases that touch them run in a child. */
#include "records.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

LogMsg *parsed(std::string text, uint32_t flags = 0) {
    LogMsg *msg = parseCmpLogEnhanced(text.data(), 0, flags);
    EXPECT_NE(msg, nullptr) << text;
    return msg;
}

// The sample record with another priority, time or producer.
std::string sample(const std::string &priority, const std::string &time,
                   const std::string &producer) {
    return std::string("12 \x1c") + priority + time + producer +
           " f.c:40\x1c"
           "a b\x1c\x1d";
}

const std::string original = sample("3", "5A0B1C2D", "prog");

// A record in which only the text is set, to be read beyond at one's peril.
LogMsg *textOnly(const char *text) {
    LogMsg *msg = static_cast<LogMsg *>(calloc(1, sizeof(LogMsg)));
    msg->record = strdup(text);
    return msg;
}

TEST(ChgPriority, rewritesFieldAndDigit) {
    LogMsg *msg = parsed(original);
    EXPECT_EQ(chgPriorityLogMsg(msg, 4), 3);
    EXPECT_EQ(msg->priority, 4);
    EXPECT_EQ(msg->record, sample("4", "5A0B1C2D", "prog"));
    EXPECT_EQ(chgPriorityLogMsg(msg, 0), 4);
    EXPECT_EQ(msg->record, sample("0", "5A0B1C2D", "prog"));
    freeLogMsg(msg);
}

TEST(ChgPriority, isRefusedOutsideZeroToFour) {
    LogMsg *msg = parsed(original);
    for (int32_t priority : {-1, 5, 9, INT32_MAX, INT32_MIN})
        EXPECT_EQ(chgPriorityLogMsg(msg, priority), -1);
    EXPECT_EQ(msg->priority, 3);
    EXPECT_EQ(msg->record, original);
    EXPECT_EQ(chgPriorityLogMsg(nullptr, 2), -1);
    freeLogMsg(msg);
}

TEST(ChgTime, rewritesFieldDigitsAndLocalTime) {
    expectChildPasses([] {
        setenv("TZ", "UTC0", 1);
        LogMsg *msg = parsed(sample("3", "00000000", "prog"));
        EXPECT_EQ(chgTimeLogMsg(msg, 0x5A0B1C2D), 0);
        EXPECT_EQ(msg->time, 0x5A0B1C2D);
        EXPECT_EQ(msg->record, original);
        EXPECT_EQ(msg->tm.tm_year, 117);
        EXPECT_EQ(msg->tm.tm_yday, 317);
        EXPECT_EQ(msg->tm.tm_sec, 9);
        EXPECT_EQ(chgTimeLogMsg(msg, -2), 0x5A0B1C2D);
        EXPECT_EQ(msg->record, sample("3", "FFFFFFFE", "prog"));
        EXPECT_EQ(msg->tm.tm_year, 69);
        EXPECT_EQ(chgTimeLogMsg(msg, 0xAF), -2);
        EXPECT_EQ(msg->record, sample("3", "000000AF", "prog"));
        freeLogMsg(msg);
    });
}

TEST(ChgTime, nullRecordIsRefused) {
    EXPECT_EQ(chgTimeLogMsg(nullptr, 1), -1);
}

TEST(ChgProducer, rewritesFieldAndTextAndKeepsTheRest) {
    LogMsg *msg = parsed(original);
    msg->spare1 = strdup("spare");
    msg->spare4 = strdup("spare");
    EXPECT_STREQ(chgProducerLogMsg(msg, "another"), "prog");
    EXPECT_STREQ(msg->producer, "another");
    EXPECT_EQ(msg->record, sample("3", "5A0B1C2D", "another"));
    EXPECT_EQ(msg->spare1, nullptr);
    EXPECT_EQ(msg->spare4, nullptr);
    LogMsg *again = parsed(msg->record);
    EXPECT_EQ(again->index, 12);
    EXPECT_EQ(again->priority, 3);
    EXPECT_EQ(again->time, 0x5A0B1C2D);
    EXPECT_STREQ(again->file, "f.c");
    EXPECT_EQ(again->line, 40);
    EXPECT_EQ(again->argCount, 2);
    freeLogMsg(again);
    freeLogMsg(msg);
}

TEST(ChgProducer, resultOutlivesTheRecord) {
    LogMsg *msg = parsed(original);
    const char *previous = chgProducerLogMsg(msg, "b");
    freeLogMsg(msg);
    EXPECT_STREQ(previous, "prog");
}

TEST(ChgProducer, returnedNameMayBeHandedBack) {
    LogMsg *msg = parsed(original);
    char *previous = chgProducerLogMsg(msg, "b");
    EXPECT_STREQ(chgProducerLogMsg(msg, previous), "b");
    EXPECT_STREQ(msg->producer, "prog");
    EXPECT_EQ(msg->record, original);
    EXPECT_STREQ(chgProducerLogMsg(msg, msg->producer), "prog");
    EXPECT_STREQ(msg->producer, "prog");
    freeLogMsg(msg);
}

TEST(ChgProducer, onlyGraphicNamesAreTaken) {
    LogMsg *msg = parsed(original);
    for (const char *name : {"a b", " ", "a\t", "a\x1c", "\x7f", "\x80", "a\xff"})
        EXPECT_EQ(chgProducerLogMsg(msg, name), nullptr) << name;
    EXPECT_EQ(chgProducerLogMsg(msg, nullptr), nullptr);
    EXPECT_EQ(chgProducerLogMsg(nullptr, "name"), nullptr);
    EXPECT_STREQ(msg->producer, "prog");
    EXPECT_EQ(msg->record, original);
    freeLogMsg(msg);
}

TEST(ChgProducer, emptyNameIsTaken) {
    LogMsg *msg = parsed(original);
    EXPECT_STREQ(chgProducerLogMsg(msg, ""), "prog");
    EXPECT_STREQ(msg->producer, "");
    EXPECT_EQ(msg->record, sample("3", "5A0B1C2D", ""));
    EXPECT_STREQ(chgProducerLogMsg(msg, "back"), "");
    EXPECT_EQ(msg->record, sample("3", "5A0B1C2D", "back"));
    freeLogMsg(msg);
}

TEST(ChgLogMsg, textWithoutFsKeepsItsTextAndItsExpansion) {
    LogMsg *msg = parsed("free text", PARSE_KEEP_TEXT);
    msg->expansion = strdup("old");
    EXPECT_EQ(chgPriorityLogMsg(msg, 2), 0);
    EXPECT_EQ(msg->priority, 2);
    EXPECT_EQ(chgProducerLogMsg(msg, "p"), nullptr); // it had none
    EXPECT_STREQ(msg->producer, "p");
    EXPECT_STREQ(msg->record, "free text");
    EXPECT_STREQ(msg->expansion, "old");
    // The time renews the expansion even so, and free text has none.
    EXPECT_EQ(chgTimeLogMsg(msg, 5), 0);
    EXPECT_EQ(msg->time, 5);
    EXPECT_STREQ(msg->record, "free text");
    EXPECT_EQ(msg->expansion, nullptr);
    freeLogMsg(msg);
}

TEST(ChgLogMsg, recordWithoutTextHasItsFieldsChanged) {
    LogMsg msg = {};
    EXPECT_EQ(chgPriorityLogMsg(&msg, 2), 0);
    EXPECT_EQ(chgTimeLogMsg(&msg, 5), 0);
    EXPECT_EQ(chgProducerLogMsg(&msg, "p"), nullptr);
    EXPECT_EQ(msg.priority, 2);
    EXPECT_EQ(msg.time, 5);
    EXPECT_STREQ(msg.producer, "p");
    EXPECT_EQ(msg.record, nullptr);
    EXPECT_EQ(msg.expansion, nullptr);
    free(msg.producer);
}

// Cut behind the FS, at every byte of the head; a sanitizer sees what passes the end.
TEST(ChgLogMsg, shortTextsAreNotPassed) {
    const std::string head = "35A0B1C2D";
    for (size_t length = 0; length <= head.size(); ++length) {
        const std::string text = "12\x1c" + head.substr(0, length);
        LogMsg *msg = textOnly(text.c_str());
        chgPriorityLogMsg(msg, 1);
        EXPECT_EQ(msg->record, length == 0 ? text
                                           : "12\x1c"
                                             "1" +
                                                 head.substr(1, length - 1));
        chgPriorityLogMsg(msg, 3);
        chgTimeLogMsg(msg, 0x11111111);
        EXPECT_EQ(msg->record, length < 9 ? text
                                          : "12\x1c"
                                            "311111111");
        const std::string before = msg->record;
        chgProducerLogMsg(msg, "p");
        EXPECT_EQ(msg->record, before + "p");
        freeLogMsg(msg);
    }
}

TEST(ChgProducer, oldNameEndsAtFsToo) {
    LogMsg *msg = textOnly("12\x1c"
                           "35A0B1C2Dold\x1c"
                           "x y");
    chgProducerLogMsg(msg, "new");
    EXPECT_STREQ(msg->record, "12\x1c"
                              "35A0B1C2Dnew\x1c"
                              "x y");
    freeLogMsg(msg);
}

TEST(ChgLogMsg, expansionIsRenewedOnlyWhereThereIsOne) {
    withTexts({{12, "%s-%s"}}, [] {
        chgExpansionFmt("%P|%T(%u)|%N|%M");
        LogMsg *msg = parsed(original);
        chgPriorityLogMsg(msg, 2);
        chgTimeLogMsg(msg, 1);
        chgProducerLogMsg(msg, "p");
        EXPECT_EQ(msg->expansion, nullptr);
        expandCmpLog(msg);
        EXPECT_STREQ(msg->expansion, "* |00000001|p|a b-");
        chgPriorityLogMsg(msg, 1);
        EXPECT_STREQ(msg->expansion, "M |00000001|p|a b-");
        chgTimeLogMsg(msg, 255);
        EXPECT_STREQ(msg->expansion, "M |000000ff|p|a b-");
        chgProducerLogMsg(msg, "other");
        EXPECT_STREQ(msg->expansion, "M |000000ff|other|a b-");
        freeLogMsg(msg);
    });
}

TEST(ChgPriority, previousOneMayBeHigherThanAnyThatIsSet) {
    for (int32_t priority = 5; priority <= 9; ++priority) {
        LogMsg *msg = parsed(sample(std::to_string(priority), "5A0B1C2D", "prog"));
        EXPECT_EQ(chgPriorityLogMsg(msg, 3), priority);
        EXPECT_EQ(msg->record, original);
        freeLogMsg(msg);
    }
}

TEST(ChgLogMsg, expansionThatCannotBeRenewedIsGone) {
    withTexts({{12, "%s"}}, [] { // one argument fewer than the record has
        LogMsg *msg = parsed(original);
        msg->expansion = strdup("old");
        msg->spare6 = strdup("spare");
        EXPECT_EQ(chgPriorityLogMsg(msg, 1), 3);
        EXPECT_EQ(msg->expansion, nullptr);
        EXPECT_EQ(msg->spare6, nullptr);
        msg->expansion = strdup("old");
        EXPECT_STREQ(chgProducerLogMsg(msg, "p"), "prog");
        EXPECT_EQ(msg->expansion, nullptr);
        freeLogMsg(msg);
    });
}

TEST(ChgProducer, oneNameIsKeptForAllRecords) {
    LogMsg *one = parsed(original), *other = parsed(sample("3", "5A0B1C2D", "second"));
    char *previous = chgProducerLogMsg(one, "a");
    EXPECT_STREQ(previous, "prog");
    // The name kept from the one record goes into the other, and the other's is kept then.
    previous = chgProducerLogMsg(other, previous);
    EXPECT_STREQ(previous, "second");
    EXPECT_STREQ(other->producer, "prog");
    EXPECT_STREQ(one->producer, "a");
    freeLogMsg(one);
    freeLogMsg(other);
    EXPECT_STREQ(previous, "second");
}

TEST(ChgProducer, exhaustedMemoryChangesNothing) {
    for (int n = 0; n < 2; ++n) {
        LogMsg *msg = parsed(original);
        msg->spare1 = strdup("spare1");
        msg->spare4 = strdup("spare4");
        msg->expansion = strdup("old");
        const char *previous;
        {
            const FailingAlloc fails(n);
            previous = chgProducerLogMsg(msg, "another");
        }
        EXPECT_EQ(previous, nullptr) << n;
        EXPECT_STREQ(msg->producer, "prog");
        EXPECT_EQ(msg->record, original);
        EXPECT_STREQ(msg->spare1, "spare1");
        EXPECT_STREQ(msg->spare4, "spare4");
        EXPECT_STREQ(msg->expansion, "old");
        freeLogMsg(msg);
    }
}

TEST(ChgProducer, twoAllocationsAreEnough) {
    LogMsg *msg = parsed(original);
    {
        const FailingAlloc fails(2);
        EXPECT_STREQ(chgProducerLogMsg(msg, "another"), "prog");
    }
    EXPECT_EQ(msg->record, sample("3", "5A0B1C2D", "another"));
    freeLogMsg(msg);
}

} // namespace
