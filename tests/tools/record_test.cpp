/* Record against the library's parser: on near misses, on records cut at every byte, and on many
   random texts of the bytes that matter, both must say the same. */
#include "tools/common/record.h"

#include "log/logMsg.h"

#include <gtest/gtest.h>

#include <random>

static LogEntry whole(std::string_view bytes) {
    return {bytes, false, true};
}

// Everything that the two have in common, as one text.
static std::string seenByParser(const std::string &bytes) {
    std::string text = bytes + '\n';
    LogMsg *msg = parseCmpLogEnhanced(text.data(), 0, 0x100 | PARSE_KEEP_COMMENTS);
    if (msg == nullptr)
        return "foreign";
    std::string seen = "comment";
    if (msg->index >= 0) {
        seen = std::to_string(msg->index) + "|" + std::to_string(msg->priority) + "|" +
               std::to_string(msg->time) + "|" + msg->producer + "|" + msg->file + "|" +
               std::to_string(msg->line);
        for (int32_t i = 0; i < msg->argCount; i++)
            seen += std::string("|") + msg->args[i].value;
    }
    freeLogMsg(msg);
    return seen;
}

static std::string seenByRecord(const std::string &bytes) {
    Record record;
    record.read(whole(bytes));
    if (record.kind() == Record::Kind::COMMENT)
        return "comment";
    if (record.kind() != Record::Kind::RECORD)
        return "foreign";
    std::string seen = std::to_string(record.number()) + "|" + std::to_string(record.priority()) +
                       "|" + std::to_string(record.time()) + "|" + std::string(record.producer()) +
                       "|" + std::string(record.file()) + "|" + std::to_string(record.line());
    for (const std::string_view argument : record.arguments())
        seen += "|" + std::string(argument);
    return seen;
}

static const std::string SOUND = "101 \x1C"
                                 "3659200BCivr f.c:40\x1C"
                                 "7\x1C\x1C"
                                 "a\nb\x1D";

TEST(Record, fieldsOfASoundOne) {
    EXPECT_EQ("101|3|1704067260|ivr|f.c|40|7||a\nb", seenByRecord(SOUND));
}

TEST(Record, saysWhatTheParserSaysWhereverItIsCut) {
    for (size_t cut = 0; cut <= SOUND.size(); cut++)
        EXPECT_EQ(seenByParser(SOUND.substr(0, cut)), seenByRecord(SOUND.substr(0, cut))) << cut;
}

TEST(Record, saysWhatTheParserSaysOfNearMisses) {
    for (const char *text : {"",
                             " ",
                             "\t",
                             "#",
                             " # x",
                             "# 101",
                             "x",
                             "101",
                             "101 ",
                             "101  \x1C\x33",
                             "4294967294 \x1C"
                             "3659200BCa b:1\x1D",
                             "2147483648 \x1C"
                             "3659200BCa b:1\x1D",
                             "1\x1C"
                             "3659200bca\v\f b:1\x1D",
                             "1 \x1C"
                             "3659200BC b:1\x1D",
                             "1 \x1C"
                             "3FFFFFFFFa :99999999999\x1D",
                             "1 \x1C"
                             "3659200BCa b:\x1D",
                             "1 \x1C"
                             "3659200BCa b:1 \x1D",
                             "1 \x1C"
                             "3659200BCa b:1\x1Cx\x1Cy",
                             "1 \x1C"
                             "3659200BCa b\x1C:1\x1D",
                             "1 \x1C"
                             "3659200BCa\x1C b:1\x1D",
                             "1 \x1C"
                             "3659200BCa\nb:1\x1D tail"})
        EXPECT_EQ(seenByParser(text), seenByRecord(text)) << text;
}

TEST(Record, saysWhatTheParserSaysOfRandomTexts) {
    const std::string bytes = "019AFaf: \t\n#\x1C\x1C\x1D\x1Dx\x80\xFF";
    std::mt19937 random(1);
    int records = 0;
    for (int round = 0; round < 40000; round++) {
        std::string text = round % 4 == 0 ? "" : SOUND.substr(0, random() % SOUND.size());
        for (size_t left = random() % 12; left > 0; left--)
            text += bytes[random() % bytes.size()];
        if (round % 4 == 1)
            text = SOUND;
        if (!text.empty() && round % 2 == 1)
            text[random() % text.size()] = bytes[random() % bytes.size()];
        const std::string seen = seenByRecord(text);
        ASSERT_EQ(seenByParser(text), seen) << testing::PrintToString(text);
        records += seen.find('|') != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(records, 4000); // of both kinds
    EXPECT_LT(records, 36000);
}

TEST(Record, zeroBytesAndCutRecordsAreTold) {
    Record record;
    record.read(whole(std::string_view("1\0", 2)));
    EXPECT_EQ(Record::Kind::FOREIGN, record.kind());
    record.read({SOUND, true, true});
    EXPECT_EQ(Record::Kind::CUT, record.kind());
    EXPECT_EQ(SOUND, record.bytes());
}
