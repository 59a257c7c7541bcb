/* The four patterns of the log headers: each against texts it takes and near misses, its captures,
   and its listing. */
#include "log/symbolPatterns.h"

#include "../regex/listing.h"
#include "regex/regularExp.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace symbolPatterns;

void expectMatches(const char *pattern, std::initializer_list<const char *> texts) {
    for (const char *text : texts)
        EXPECT_NE(regularExp(pattern, text, nullptr), nullptr) << text;
}

void expectRefuses(const char *pattern, std::initializer_list<const char *> texts) {
    for (const char *text : texts)
        EXPECT_EQ(regularExp(pattern, text, nullptr), nullptr) << text;
}

// "class|number", or "none".
std::string groupsOf(const char *pattern, const char *text) {
    CaptureBlock *block = nullptr;
    if (regularExp(pattern, text, &block) == nullptr)
        return "none";
    const std::string groups =
        std::string(block->group[GROUP_CLASS]) + "|" + block->group[GROUP_NUMBER];
    EXPECT_EQ(block->count, 2);
    free(block);
    return groups;
}

TEST(SymbolPatterns, headerFiles) {
    expectMatches(HEADER_FILE.bytes, {"logN.h", "logNET.h", "logNET_2.h", "logN_.h", "logNET9.h"});
    expectRefuses(HEADER_FILE.bytes,
                  {"lognet.h", "logNET.txt", "log.h", "logNET", "logNET.hh", "logNET.h ",
                   "xlogNET.h", "LogNET.h", "log9.h", "log_N.h", "logNeT.h", "logNETxh",
                   "logNET-2.h", "systemLog.h", "logNET.h~", "", ".", "..", "log"});
}

TEST(SymbolPatterns, definedNames) {
    expectMatches(DEFINED_NAME.bytes, {"a", "Z", "NET_DOWN", "net9", "a_", "A__9z"});
    expectRefuses(DEFINED_NAME.bytes, {"", "_a", "9a", "a-b", "a(", "f(x)", "a.b", "a b",
                                       "\xE4"
                                       "b"});
}

TEST(SymbolPatterns, logForm) {
    const struct {
        const char *text, *groups;
    } ROWS[] = {
        {"logNET(3)", "NET|3"},  {"logNET()", "NET|"},      {"logNe_9(012)", "Ne_9|012"},
        {"logAB(7)", "AB|7"},    {"logN_(1)", "N_|1"},      {"logN9(00)", "N9|00"},
        {"logN(3)", "none"},     {"lognet(3)", "none"},     {"log_N(3)", "none"},
        {"logNET(3", "none"},    {"logNET3)", "none"},      {"logNET(x)", "none"},
        {"logNET(-1)", "none"},  {"logNET(3))", "none"},    {"logNET(3) ", "none"},
        {"logNET(0x3)", "none"}, {" logNET(3)", "none"},    {"LogNET(3)", "none"},
        {"logNET-A(3)", "none"}, {"log(3)", "none"},        {"", "none"},
        {"logNET((3)", "none"},  {"logNET(3)/**/", "none"},
    };
    for (const auto &row : ROWS)
        EXPECT_EQ(groupsOf(LOG_FORM.bytes, row.text), row.groups) << row.text;
}

TEST(SymbolPatterns, shortForm) {
    const struct {
        const char *text, *groups;
    } ROWS[] = {
        {"NET003", "NET|003"},
        {"NET1003", "NET1|003"},
        {"AB123", "AB|123"},
        {"A1001", "A1|001"},
        {"Net_x999", "Net_x|999"},
        {"A_B000", "A_B|000"},
        {"N1234567", "N1234|567"},
        {"N003", "none"},
        {"NET03", "none"},
        {"NET_003", "none"},
        {"net003", "none"},
        {"_NET003", "none"},
        {"NET003x", "none"},
        {"NET003 ", "none"},
        {"NET", "none"},
        {"1NET003", "none"},
        {"NE-T003", "none"},
        {"003", "none"},
        {"", "none"},
    };
    for (const auto &row : ROWS)
        EXPECT_EQ(groupsOf(SHORT_FORM.bytes, row.text), row.groups) << row.text;
}

TEST(SymbolPatterns, everyByteInEveryPlaceIsJudgedByItsKind) {
    for (int ch = 1; ch < 256; ++ch) {
        const bool capital = ch >= 'A' && ch <= 'Z', small = ch >= 'a' && ch <= 'z',
                   digit = ch >= '0' && ch <= '9', word = capital || small || digit || ch == '_';
        const std::string c(1, static_cast<char>(ch));
        const auto takes = [](const char *pattern, const std::string &text) {
            return regularExp(pattern, text.c_str(), nullptr) != nullptr;
        };
        EXPECT_EQ(takes(HEADER_FILE.bytes, "log" + c + ".h"), capital) << ch;
        EXPECT_EQ(takes(HEADER_FILE.bytes, "logN" + c + ".h"), word && !small) << ch;
        EXPECT_EQ(takes(DEFINED_NAME.bytes, c), capital || small) << ch;
        EXPECT_EQ(takes(DEFINED_NAME.bytes, "a" + c), word) << ch;
        EXPECT_EQ(takes(LOG_FORM.bytes, "log" + c + "B()"), capital) << ch;
        EXPECT_EQ(takes(LOG_FORM.bytes, "logA" + c + "()"), word) << ch;
        EXPECT_EQ(takes(LOG_FORM.bytes, "logAB(" + c + ")"), digit) << ch;
        EXPECT_EQ(takes(SHORT_FORM.bytes, c + "B012"), capital) << ch;
        EXPECT_EQ(takes(SHORT_FORM.bytes, "A" + c + "B012"), word) << ch;
        EXPECT_EQ(takes(SHORT_FORM.bytes, "A" + c + "012"), word && ch != '_') << ch;
        EXPECT_EQ(takes(SHORT_FORM.bytes, "AB" + c + "12"), digit) << ch;
    }
}

std::string randomText(std::mt19937 &random, const std::vector<std::string> &pieces) {
    std::string text;
    for (auto count = random() % 7; count > 0; --count)
        text += pieces[random() % pieces.size()];
    return text;
}

TEST(SymbolPatterns, readersTakeWhatThePatternsTake) {
    std::mt19937 random(1);
    int names = 0, forms = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string name = randomText(random, {"a", "Z", "_", "9", "NET", "-", "\xE4", " "});
        EXPECT_EQ(isDefinedName(name.c_str()),
                  regularExp(DEFINED_NAME.bytes, name.c_str(), nullptr) != nullptr)
            << name;
        std::string text = (random() % 8 == 0 ? "lo" : "log") +
                           randomText(random, {"N", "N", "b", "_", "9", "(", "-"}) + "(" +
                           randomText(random, {"3", "017", "08", "999", ")", "x"}) +
                           (random() % 4 == 0 ? "" : ")") + (random() % 8 == 0 ? "\n" : "");
        const std::string groups = groupsOf(LOG_FORM.bytes, text.c_str());
        LogForm form;
        const bool isForm = readLogForm(text.data(), &form);
        EXPECT_EQ(isForm ? std::string(form.className, form.classEnd) + "|" +
                               std::string(form.number, form.numberEnd)
                         : "none",
                  groups)
            << text;
        names += isDefinedName(name.c_str());
        forms += isForm;
    }
    EXPECT_GT(names, 1000);
    EXPECT_GT(forms, 200);
}

TEST(SymbolPatterns, listingReadsLikeThePattern) {
    EXPECT_EQ(listing::listProgram(SHORT_FORM.bytes), "0: anchored\n"
                                                      "1: open 0\n"
                                                      "3: in 'A'-'Z'\n"
                                                      "8: in 'A'-'Z' '0'-'9' 'a'-'z' '_'*\n"
                                                      "20: in 'A'-'Z' '0'-'9' 'a'-'z'\n"
                                                      "31: close 0 group 0\n"
                                                      "34: open 1\n"
                                                      "36: in '0'-'9' {3,3}\n"
                                                      "43: close 1 group 1\n"
                                                      "46: subject-end\n"
                                                      "47: end\n");
    EXPECT_EQ(listing::listProgram(HEADER_FILE.bytes), "0: anchored\n"
                                                       "1: character 'l'\n"
                                                       "3: character 'o'\n"
                                                       "5: character 'g'\n"
                                                       "7: in 'A'-'Z'\n"
                                                       "12: in 'A'-'Z' '0'-'9' '_'*\n"
                                                       "21: character '.'\n"
                                                       "23: character 'h'\n"
                                                       "25: subject-end\n"
                                                       "26: end\n");
}

} // namespace
