/* Expansion: any record under any format, settings and message text gives the same text each time,
   no longer than its parts allow and with no line longer than the cut-off; without a directive that
   may be wrong, a record with a message text always gives one. A format that is refused changes
   nothing. */
#include "log/expandLog.h"
#include "log/logMsg.h"
#include "support/exactText.h"
#include "support/memoryFile.h"
#include "support/scratch.h"
#include "support/smallCatalogue.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static constexpr size_t LONGEST_FORMAT = 128, LONGEST_RECORD = 400, LONGEST_PREFIX = 40;

enum Bits {
    VISIBLE = 1,
    CUTOFF_FROM_ENVIRONMENT = 2,
    PREFIX = 4,
    RAW_TEXT_FILE = 8, // the message text is the whole file, directory and all
    NO_CUTOFF = 16,
};

struct Setting {
    bool visible;
    int32_t cutoff;
    size_t prefixLength;
    bool synthetic;
};

static std::string firstOf(const std::string &text, size_t most) {
    return text.substr(0, std::min(text.size(), most));
}

// The same text for each message that the file has an entry for.
static std::string fileOf(const std::string &messageText) {
    std::string file;
    for (int message = 0; message < SMALL_CATALOGUE_MESSAGES; ++message) {
        std::string entry = "64 " + std::to_string(messageText.size());
        entry.resize(16, ' ');
        file += entry;
    }
    return file + messageText;
}

static void setMessageText(const std::string &text, bool raw) {
    static MemoryFile file;
    file.write(raw ? text : fileOf(text));
    FUZZ_CHECK(setExpandFmt(file.path().c_str()) != nullptr);
    for (int message = 0; !raw && message < SMALL_CATALOGUE_MESSAGES; ++message) {
        const char *cached = getExpandFmt(message);
        FUZZ_CHECK(cached != nullptr && strcmp(cached, text.c_str()) == 0);
    }
}

static void setFormat(const std::string &text) {
    static const std::string before = "%P %T %N %S:%L\n%M";
    const ExactText format(text);
    const QuietErrors quiet;
    chgExpansionFmt(before.c_str());
    chgExpansionFmt(format.get());
    FUZZ_CHECK(getExpansionFmt() == before || strcmp(getExpansionFmt(), format.get()) == 0);
}

// putenv keeps the block itself: no copy is left behind for each input.
static void putColumn(int32_t column) {
    static char variable[32];
    snprintf(variable, sizeof variable, "LOGCOLUMN=%d", column);
    putenv(variable);
}

static Setting takeSettings(Pieces &pieces, uint8_t bits) {
    const auto cutoff =
        (bits & NO_CUTOFF) != 0 ? 0 : static_cast<int32_t>(pieces.number(0x10000) % 160);
    const std::string prefix = firstOf(pieces.text(), LONGEST_PREFIX);
    setVisible(bits & VISIBLE);
    chgContinuationPrefix((bits & PREFIX) != 0 ? prefix.c_str() : nullptr);
    putColumn(cutoff);
    chgExpansionCutoff((bits & CUTOFF_FROM_ENVIRONMENT) != 0 ? -1 : cutoff);
    visualWidth(prefix.c_str(), cutoff);
    return {(bits & VISIBLE) != 0, cutoff, (bits & PREFIX) != 0 ? prefix.size() : 0, false};
}

// What a directive gives is at most a record, a message text with the record's arguments in it, or
// a time; a synthetic field twice a record, quoted. Visible bytes are five wide at most ("<377>"),
// and a break adds a line feed and a prefix to a byte.
static size_t longest(const Setting &setting, size_t format, size_t record, size_t text) {
    if (setting.synthetic)
        format *= 2 * record + 64;
    const size_t built = format * (record + text + 64);
    return built * (setting.visible ? 5 : 1) * (setting.cutoff > 0 ? 2 + setting.prefixLength : 1);
}

// Blanks may stand beyond the cut-off: a line is broken where a word begins.
static void checkLines(const std::string &text, int32_t cutoff) {
    int32_t column = 0;
    for (const char ch : text) {
        FUZZ_CHECK(column < cutoff || ch <= ' ' || ch > '~');
        column = ch == '\n' || ch == '\r' ? 0 : column + (ch >= ' ' && ch <= '~' ? 1 : 0);
    }
}

// Tabs, backspaces and prefixes have widths of their own.
static bool hasPlainWidth(const std::string &text, const Setting &setting) {
    return setting.cutoff > 0 && setting.prefixLength == 0 &&
           text.find_first_of("\t\b") == std::string::npos;
}

// Only "%M", "%P(" and "%M(" can be wrong; a synthetic field can bring them in.
static bool mayFail(const std::string &format) {
    return format.find_first_of("@M") != std::string::npos ||
           format.find("P(") != std::string::npos;
}

static void checkMessage(const ExactText &record, const char *expected) {
    LogMsg *msg = parseCmpLog(record.get(), 1);
    FUZZ_CHECK(msg != nullptr || expected == nullptr);
    if (msg != nullptr && expected == nullptr)
        FUZZ_CHECK(mayFail(getExpansionFmt()) || getExpandFmt(msg->index) == nullptr);
    for (int turn = 0; msg != nullptr && turn < 2; ++turn, expandCmpLog(msg))
        FUZZ_CHECK(expected == nullptr ? msg->expansion == nullptr
                                       : strcmp(msg->expansion, expected) == 0);
    freeLogMsg(msg);
}

static void checkExpansion(const ExactText &record, const Setting &setting, size_t bound) {
    const char *result = expandLog(record.get());
    if (result == nullptr) {
        checkMessage(record, nullptr);
        return;
    }
    const std::string text = result;
    FUZZ_CHECK(text.size() <= bound);
    if (hasPlainWidth(text, setting))
        checkLines(text, setting.cutoff);
    checkMessage(record, text.c_str());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    useSmallCatalogue();
    Pieces pieces(data, size);
    const uint8_t bits = pieces.byte();
    const uint32_t flags = pieces.number(0x800);
    Setting setting = takeSettings(pieces, bits);
    setFormat(firstOf(pieces.text(), LONGEST_FORMAT));
    const std::string messageText = firstOf(pieces.text(), LONGEST_RECORD);
    setMessageText(messageText, (bits & RAW_TEXT_FILE) != 0);
    const ExactText record(firstOf(pieces.rest(), LONGEST_RECORD));

    const std::string format = getExpansionFmt();
    setting.synthetic = format.find('@') != std::string::npos;
    checkExpansion(record, setting,
                   longest(setting, format.size(), record.length(), messageText.size()));
    int32_t index = 77, again = 78; // set in any case: the same, whatever stood there
    const char *kept = expandLogEnhanced(record.get(), flags, &index);
    FUZZ_CHECK(kept == nullptr || getExpansionCutoff() == setting.cutoff);
    expandLogEnhanced(record.get(), flags, &again);
    FUZZ_CHECK(index == again);
    return 0;
}
