/* The classes of bytes against those of libc, every byte in each locale there is. */
#include "log/byteClass.h"

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>

namespace {

class ByteClass : public testing::TestWithParam<const char *> {
  protected:
    void SetUp() override { ASSERT_NE(setlocale(LC_CTYPE, GetParam()), nullptr); }
    void TearDown() override { setlocale(LC_CTYPE, "C"); }
};

TEST_P(ByteClass, isThatOfTheLocale) {
    for (int byte = 0; byte < 256; ++byte) {
        const char ch = static_cast<char>(byte);
        EXPECT_EQ(isDigitByte(ch), isdigit(byte) != 0) << byte;
        EXPECT_EQ(isSpaceByte(ch), isspace(byte) != 0) << byte;
        EXPECT_EQ(isPrintByte(ch), isprint(byte) != 0) << byte;
        EXPECT_EQ(isGraphByte(ch), isgraph(byte) != 0) << byte;
        EXPECT_EQ(isNameStartByte(ch), isalpha(byte) != 0 || byte == '_') << byte;
        EXPECT_EQ(isNameByte(ch), isalnum(byte) != 0 || byte == '_') << byte;
        EXPECT_EQ(hexDigitValue(ch) < 16, isxdigit(byte) != 0) << byte;
    }
}

INSTANTIATE_TEST_SUITE_P(Locales, ByteClass, testing::Values("C", "C.UTF-8"), [](const auto &one) {
    return std::string(one.param[1] == '\0' ? "C" : "Utf8");
});

TEST(ByteClass, hexadecimalDigitsHaveTheirValue) {
    const char digits[] = "0123456789abcdef0123456789ABCDEF";
    for (unsigned i = 0; i < 32; ++i)
        EXPECT_EQ(hexDigitValue(digits[i]), i % 16);
}

} // namespace
