/* Line scripts as text: a table to accept, a table of near misses to refuse with line and reason,
 * and a script cut at every byte. */
#include "platform/scriptParser.h"

#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

// A script as text again, in one fixed spelling.
std::string spelled(const LineScript &script) {
    const char *const words[] = {"open", "timer", "dial"};
    std::string text;
    for (size_t trigger = 0; trigger < TRIGGER_COUNT; ++trigger)
        for (const ScriptBlock &block : script[trigger]) {
            text += std::string(words[trigger]) + "=" + std::to_string(block.result);
            for (const ScriptedEvent &event : block.events)
                text += " " + std::to_string(event.delay) + ":" + std::to_string(event.code) + "/" +
                        std::to_string(event.subcode);
            text += ";";
        }
    return text;
}

TEST(ScriptParser, acceptsWhatTheFormatTells) {
    struct {
        const char *text;
        const char *script;
    } const rows[] = {
        {"", ""},
        {"\n\n", ""},
        {"# nothing but a comment", ""},
        {"dial", "dial=1;"},
        {"dial\n", "dial=1;"},
        {"dial\n5 event 11\n", "dial=1 5:11/0;"},
        {"dial # first\n\t 5\tevent  11 sub 3 # done\n", "dial=1 5:11/3;"},
        {"dial\r\n5 event 11\r\n", "dial=1 5:11/0;"},
        {"timer\n0 event -2147483648 sub 2147483647\n", "timer=1 0:-2147483648/2147483647;"},
        {"timer\n2147483647 event 4 sub -1\n", "timer=1 2147483647:4/-1;"},
        {"open\n9 event 38\n1 event 12\n", "open=1 9:38/0 1:12/0;"},
        {"dial\n1 event 1\ntimer\n2 event 2\ndial\n3 event 3\n",
         "timer=1 2:2/0;dial=1 1:1/0;dial=1 3:3/0;"},
        {"dial refused", "dial=0;"},
        {"timer refused 0\ntimer refused 2\ntimer refused -1\ntimer",
         "timer=0;timer=2;timer=-1;timer=1;"},
    };
    for (const auto &row : rows) {
        LineScript script;
        std::string fault;
        EXPECT_TRUE(parseLineScript("s", row.text, script, fault)) << row.text << ": " << fault;
        EXPECT_EQ(spelled(script), row.script) << row.text;
    }
}

TEST(ScriptParser, refusesNearMissesWithLineAndReason) {
    struct {
        const char *text;
        const char *fault;
    } const rows[] = {
        {"5 event 11", "s:1: an event before the first \"open\", \"timer\" or \"dial\""},
        {"# one\n\nring",
         "s:3: \"ring\" is neither \"open\", \"timer\", \"dial\" nor a delay of 0 to "
         "2147483647 milliseconds"},
        {"Dial", "s:1: \"Dial\" is neither \"open\", \"timer\", \"dial\" nor a delay of 0 to "
                 "2147483647 milliseconds"},
        {"dial\n-1 event 11",
         "s:2: \"-1\" is neither \"open\", \"timer\", \"dial\" nor a delay of 0 "
         "to 2147483647 milliseconds"},
        {"dial\n2147483648 event 11",
         "s:2: \"2147483648\" is neither \"open\", \"timer\", \"dial\" "
         "nor a delay of 0 to 2147483647 milliseconds"},
        {"dial\n1.5 event 11",
         "s:2: \"1.5\" is neither \"open\", \"timer\", \"dial\" nor a delay of "
         "0 to 2147483647 milliseconds"},
        {"dial\n5", "s:2: \"event\" and a code expected after the delay"},
        {"dial\n5 event", "s:2: \"event\" and a code expected after the delay"},
        {"dial\n5 evnt 11", "s:2: \"event\" and a code expected after the delay"},
        {"dial\n5 event # 11", "s:2: \"event\" and a code expected after the delay"},
        {"dial\n5 event 11x", "s:2: \"11x\" is no 32-bit code"},
        {"dial\n5 event 0x11", "s:2: \"0x11\" is no 32-bit code"},
        {"dial\n5 event +11", "s:2: \"+11\" is no 32-bit code"},
        {"dial\n5 event 2147483648", "s:2: \"2147483648\" is no 32-bit code"},
        {"dial\n5 event -2147483649", "s:2: \"-2147483649\" is no 32-bit code"},
        {"dial\n5 event 65 32", "s:2: \"sub\" and a sub-code, or nothing, expected after the code"},
        {"dial\n5 event 65 sub",
         "s:2: \"sub\" and a sub-code, or nothing, expected after the code"},
        {"dial\n5 event 65 sb 32",
         "s:2: \"sub\" and a sub-code, or nothing, expected after the code"},
        {"dial\n5 event 65 sub x", "s:2: \"x\" is no 32-bit sub-code"},
        {"dial\n5 event 65 sub 32 1", "s:2: nothing may follow the sub-code, not \"1\""},
        {"dial 5551234", "s:1: \"refused\" expected, not \"5551234\""},
        {"dial refused 1", "s:1: result 1 would be an accepted start"},
        {"dial refused no", "s:1: \"no\" is no 32-bit result"},
        {"dial refused 0 0", "s:1: nothing may follow the result, not \"0\""},
        {"dial refused\n5 event 11", "s:2: an event after a refused start"},
        {"open refused", "s:1: nothing may follow \"open\", not \"refused\""},
        {"open\nopen", "s:2: \"open\" may stand only once"},
        {"di\x01\xFF",
         "s:1: \"di??\" is neither \"open\", \"timer\", \"dial\" nor a delay of 0 to 2147483647 "
         "milliseconds"},
        {"dial refused 123456789012345678901234567890123456789012345",
         "s:1: \"1234567890123456789012345678901234567890...\" is no 32-bit result"},
    };
    for (const auto &row : rows) {
        LineScript script;
        script[TRIGGER_OPEN].emplace_back();
        std::string fault;
        EXPECT_FALSE(parseLineScript("s", row.text, script, fault)) << row.text;
        EXPECT_EQ(fault, row.fault);
        EXPECT_EQ(spelled(script), "open=1;") << "changed by a refused script";
    }
}

TEST(ScriptParser, zeroByteIsNoEndOfTheScript) {
    LineScript script;
    std::string fault;
    EXPECT_FALSE(parseLineScript("s", std::string("dial\0\n5 event 1\n", 16), script, fault));
    EXPECT_EQ(fault.substr(0, 12), "s:1: \"dial?\"");
}

TEST(ScriptParser, scriptCutAnywhereIsWholeOrRefusedInItsLastLine) {
    const std::string whole = "timer\n12 event 4 sub 8\ndial refused 22\n";
    int accepted = 0;
    for (size_t length = 0; length <= whole.size(); ++length) {
        const std::string cut = whole.substr(0, length);
        const auto wholeLines = std::count(cut.begin(), cut.end(), '\n');
        const std::string place = "s:" + std::to_string(wholeLines + 1) + ": ";
        LineScript script;
        std::string fault;
        const bool good = parseLineScript("s", cut, script, fault);
        EXPECT_TRUE(good || fault.rfind(place, 0) == 0) << fault;
        accepted += good ? 1 : 0;
    }
    // "", timer (2), 12 event 4 (2), sub 8 (2), dial (2), refused (2), 2, 22 (2): the pairs are one
    // with and one without the blank or line end behind.
    EXPECT_EQ(accepted, 14);
}

TEST(ScriptParser, readsAFileAndNamesItInFaults) {
    const TempDir dir;
    LineScript script;
    std::string fault;
    EXPECT_TRUE(readLineScript(dir.write("good", "dial\n5 event 11\n"), script, fault)) << fault;
    EXPECT_EQ(spelled(script), "dial=1 5:11/0;");
    const std::string bad = dir.write("bad", "dial\nring\n");
    EXPECT_FALSE(readLineScript(bad, script, fault));
    EXPECT_EQ(fault.rfind(bad + ":2: \"ring\" is neither", 0), 0U) << fault;
}

TEST(ScriptParser, unreadableFileIsRefusedWithTheSystemsReason) {
    const TempDir dir;
    LineScript script;
    std::string fault;
    EXPECT_FALSE(readLineScript(dir.file("none"), script, fault));
    EXPECT_EQ(fault, dir.file("none") + ": " + strerror(ENOENT));
    EXPECT_FALSE(readLineScript(dir.path(), script, fault));
    EXPECT_EQ(fault, dir.path() + ": " + strerror(EISDIR));
}

TEST(ScriptParser, fileOfOneMebibyteIsTheLargest) {
    const TempDir dir;
    LineScript script;
    std::string fault;
    EXPECT_TRUE(readLineScript(dir.write("large", std::string(1U << 20, '\n')), script, fault));
    EXPECT_FALSE(
        readLineScript(dir.write("larger", std::string((1U << 20) + 1, '\n')), script, fault));
    EXPECT_EQ(fault, dir.file("larger") + ": " + strerror(EFBIG));
    EXPECT_FALSE(readLineScript("/dev/zero", script, fault));
}

} // namespace
