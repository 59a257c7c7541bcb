/* Line scripts: one that is accepted, written out from what was understood, is understood alike;
   one that is refused changes nothing and is told in one readable line. */
#include "platform/scriptParser.h"
#include "support/scratch.h"

#include <algorithm>
#include <cctype>

static const char *const TRIGGER_NAMES[] = {"open", "timer", "dial"};

static bool isEqual(const ScriptBlock &one, const ScriptBlock &other) {
    return one.result == other.result &&
           std::equal(one.events.begin(), one.events.end(), other.events.begin(),
                      other.events.end(), [](const ScriptedEvent &a, const ScriptedEvent &b) {
                          return a.delay == b.delay && a.code == b.code && a.subcode == b.subcode;
                      });
}

static bool isEqual(const LineScript &one, const LineScript &other) {
    return std::equal(one.begin(), one.end(), other.begin(),
                      [](const std::deque<ScriptBlock> &a, const std::deque<ScriptBlock> &b) {
                          return std::equal(
                              a.begin(), a.end(), b.begin(), b.end(),
                              [](const auto &x, const auto &y) { return isEqual(x, y); });
                      });
}

static std::string written(const LineScript &script) {
    std::string text;
    for (size_t trigger = 0; trigger < TRIGGER_COUNT; ++trigger)
        for (const ScriptBlock &block : script[trigger]) {
            text += TRIGGER_NAMES[trigger];
            if (block.result != 1)
                text += " refused " + std::to_string(block.result);
            text += '\n';
            for (const ScriptedEvent &event : block.events)
                text += std::to_string(event.delay) + " event " + std::to_string(event.code) +
                        " sub " + std::to_string(event.subcode) + '\n';
        }
    return text;
}

// "name:line: reason", in printable characters.
static bool isFault(const std::string &fault, const std::string &name, size_t lines) {
    if (fault.rfind(name + ":", 0) != 0)
        return false;
    size_t digits = 0;
    const unsigned long line = std::stoul(fault.substr(name.size() + 1), &digits);
    const std::string reason = fault.substr(name.size() + 1 + digits);
    return line >= 1 && line <= lines && reason.rfind(": ", 0) == 0 && reason.size() > 2 &&
           reason.size() < 200 && std::all_of(fault.begin(), fault.end(), [](unsigned char ch) {
               return isprint(ch) != 0;
           });
}

static void checkAccepted(const LineScript &script) {
    FUZZ_CHECK(script[TRIGGER_OPEN].size() <= 1);
    for (const std::deque<ScriptBlock> &blocks : script)
        for (const ScriptBlock &block : blocks) {
            FUZZ_CHECK(block.result == 1 || block.events.empty());
            for (const ScriptedEvent &event : block.events)
                FUZZ_CHECK(event.delay >= 0);
        }
    LineScript again;
    std::string fault;
    FUZZ_CHECK(parseLineScript("again", written(script), again, fault));
    FUZZ_CHECK(isEqual(script, again));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = Pieces(data, size).rest();
    const auto lines =
        static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1; // the last may be open
    LineScript script;
    script[TRIGGER_DIAL].push_back({0, {}}); // what stays when a script is refused
    std::string fault = "none";
    const bool isAccepted = parseLineScript("script", text, script, fault);
    if (isAccepted) {
        FUZZ_CHECK(fault == "none");
        checkAccepted(script);
    } else {
        FUZZ_CHECK(isFault(fault, "script", lines));
        FUZZ_CHECK(script[TRIGGER_DIAL].size() == 1 && script[TRIGGER_TIMER].empty());
    }

    const std::string path = scratchFile("script", text);
    LineScript fromFile;
    std::string fileFault;
    FUZZ_CHECK(readLineScript(path, fromFile, fileFault) == isAccepted);
    if (isAccepted)
        FUZZ_CHECK(isEqual(script, fromFile));
    else
        FUZZ_CHECK(fileFault == path + fault.substr(sizeof "script" - 1));
    return 0;
}
