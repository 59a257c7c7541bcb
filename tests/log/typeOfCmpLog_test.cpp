/* The class of a line: a table of lines with every output, then what is left alone when reading
 * stops early. */
#include "log/logMsg.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

constexpr int32_t UNTOUCHED = -77;

struct Case {
    const char *name;
    const char *text;
    int32_t type, index, priority, time;
    int rest; // offset of the rest position
};

const Case cases[] = {
    {"record",
     "12 \x1c"
     "35A0B1C2Dprog",
     12, 12, 3, 0x5A0B1C2D, 13},
    {"noBlankBeforeFs",
     "7\x1c"
     "000000001p",
     7, 7, 0, 1, 11},
    {"allWhiteSpaceBeforeFs",
     "7 \t\v\f\r\n\x1c"
     "000000001p",
     7, 7, 0, 1, 17},
    {"lowerCaseTime",
     "0\x1c"
     "9abcdef01",
     0, 0, 9, static_cast<int32_t>(0xABCDEF01), 11},
    {"ninthHexDigitIsTheProducers",
     "0\x1c"
     "1123456789",
     0, 0, 1, 0x12345678, 11},
    {"highestIndex",
     "2147483647\x1c"
     "100000000",
     2147483647, 2147483647, 1, 0, 20},
    {"indexBeyond31BitsIsNegative",
     "2147483648\x1c"
     "100000000",
     INT32_MIN, INT32_MIN, 1, 0, 20},
    {"indexThatWrapsToMinusTwo",
     "4294967294\x1c"
     "100000000",
     -2, -2, 1, 0, 20},
    {"indexWrapsIn32Bits",
     "4294967301\x1c"
     "100000000",
     5, 5, 1, 0, 20},
    {"shortTimeKeepsThePriority",
     "0\x1c"
     "35A0B1C prog",
     -1, UNTOUCHED, 3, 0, 9},
    {"noTime",
     "0\x1c"
     "3",
     -1, UNTOUCHED, 3, 0, 3},
    {"noHexDigitAfterSeven",
     "0\x1c"
     "31234567g",
     -1, UNTOUCHED, 3, 0, 10},
    {"digitsThenText", "12 monkeys", -1, -1, 0, 0, 3},
    {"digitsAlone", "12", -1, -1, 0, 0, 2},
    {"gsIsNotFs",
     "12\x1d"
     "300000000",
     -1, -1, 0, 0, 2},
    {"priorityMustBeADigit",
     "12\x1c"
     "x00000000",
     -1, -1, 0, 0, 3},
    {"priorityMissing", "12\x1c", -1, -1, 0, 0, 3},
    {"comment", "# text", -2, -2, 0, 0, 0},
    {"commentAfterBlanks", " \t# text", -2, -2, 0, 0, 2},
    {"blankLine", " \n", -2, -2, 0, 0, 2},
    {"textAfterBlanks", "  text", -1, -1, 0, 0, 2},
    {"recordAfterABlankIsText",
     " 12\x1c"
     "300000000",
     -1, -1, 0, 0, 1},
    {"text", "text", -1, -1, 0, 0, 0},
    {"emptyTextIsText", "", -1, -1, 0, 0, 0},
    {"byteAbove0x7F", "\xA0text", -1, -1, 0, 0, 0},
};

class TypeOfCmpLog : public testing::TestWithParam<Case> {};

TEST_P(TypeOfCmpLog, givesClassAndOutputs) {
    const Case &c = GetParam();
    int32_t index = UNTOUCHED, priority = UNTOUCHED, time = UNTOUCHED;
    char *rest = nullptr;
    EXPECT_EQ(typeOfCmpLog(c.text, &index, &priority, &time, &rest), c.type);
    EXPECT_EQ(index, c.index);
    EXPECT_EQ(priority, c.priority);
    EXPECT_EQ(time, c.time);
    EXPECT_EQ(rest - c.text, c.rest);
    EXPECT_EQ(typeOfCmpLog(c.text, nullptr, nullptr, nullptr, nullptr), c.type);
}

INSTANTIATE_TEST_SUITE_P(Lines, TypeOfCmpLog, testing::ValuesIn(cases),
                         [](const auto &one) { return std::string(one.param.name); });

TEST(TypeOfCmpLogNull, touchesNoOutput) {
    int32_t index = UNTOUCHED, priority = UNTOUCHED, time = UNTOUCHED;
    char *rest = nullptr;
    EXPECT_EQ(typeOfCmpLog(nullptr, &index, &priority, &time, &rest), -1);
    EXPECT_EQ(index, UNTOUCHED);
    EXPECT_EQ(priority, UNTOUCHED);
    EXPECT_EQ(time, UNTOUCHED);
    EXPECT_EQ(rest, nullptr);
}

// Each cut is a text of its own block, so that a sanitizer sees a read beyond its end.
TEST(TypeOfCmpLogCut, headCutAnywhereIsText) {
    const std::string head = "12 \x1c"
                             "35A0B1C2D";
    for (size_t length = 0; length < head.size(); ++length) {
        char *cut = strdup(head.substr(0, length).c_str());
        EXPECT_EQ(typeOfCmpLog(cut, nullptr, nullptr, nullptr, nullptr), -1) << length;
        free(cut);
    }
}

TEST(TypeOfCmpLogNull, outputAloneLeavesTheOthersFilled) {
    const char *text = "12 \x1c"
                       "35A0B1C2Dprog";
    for (int missing = 0; missing < 4; ++missing) {
        int32_t index = UNTOUCHED, priority = UNTOUCHED, time = UNTOUCHED;
        char *rest = nullptr;
        EXPECT_EQ(typeOfCmpLog(text, missing == 0 ? nullptr : &index,
                               missing == 1 ? nullptr : &priority, missing == 2 ? nullptr : &time,
                               missing == 3 ? nullptr : &rest),
                  12);
        EXPECT_EQ(index, missing == 0 ? UNTOUCHED : 12);
        EXPECT_EQ(priority, missing == 1 ? UNTOUCHED : 3);
        EXPECT_EQ(time, missing == 2 ? UNTOUCHED : 0x5A0B1C2D);
        EXPECT_EQ(rest, missing == 3 ? nullptr : text + 13);
    }
}

} // namespace
