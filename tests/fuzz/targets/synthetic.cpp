/* Synthetic fields: what the checker accepts for a message, the translator fills from a record of
   that message, so that no "@" is left but those written for themselves. Quoting comes undone. */
#include "log/logMsg.h"
#include "log/synLogFlds.h"
#include "support/exactText.h"
#include "support/scratch.h"
#include "support/smallCatalogue.h"

#include <algorithm>
#include <cstring>
#include <string>

// A record of the message with the arguments it has; nothing in it holds an "@".
static std::string recordOf(int index, Pieces &pieces) {
    std::string record = std::to_string(index) + " \x1c" + "25A0B1C2Dprog f.c:40";
    for (int i = 0; i < index; ++i) {
        std::string argument = pieces.text();
        std::replace_if(
            argument.begin(), argument.end(),
            [](char ch) { return ch == '@' || ch == '\x1c' || ch == '\x1d'; }, ' ');
        record += '\x1c' + argument;
    }
    return record + '\x1d';
}

static const char *behindField(const char *opening, const char *closing) {
    const std::string name(opening + 1, closing);
    if (name == "field" || name == "f")
        return strchr(closing, ']') + 1;
    const bool hasPart = (name == "time" || name == "t") && closing[1] == '.';
    return closing + 1 + (hasPart ? 1 + strspn(closing + 2, "abcdefghijklmnopqrstuvwxyz") : 0);
}

// How many "@" of a template that the checker accepts are no part of a field.
static ptrdiff_t plainMarks(const char *text) {
    ptrdiff_t count = 0;
    while (*text != '\0') {
        if (*text == '\\') {
            count += text[1] == '@';
            text += text[1] == '\0' ? 1 : 2;
        } else if (*text != '@') {
            ++text;
        } else if (const char *closing = strchr(text + 1, '@')) {
            text = behindField(text, closing);
        } else {
            ++count; // the closing mark of a field behind a backslash
            ++text;
        }
    }
    return count;
}

static void checkFields(int32_t index, const ExactText &text, int keyAllowed) {
    for (char *at = text.get(); (at = strchr(at, '@')) != nullptr; ++at) {
        char *error, *next = nullptr;
        const int valid = decodeSynField(index, at, &error, &next, keyAllowed);
        FUZZ_CHECK((valid != 0) == (error == nullptr));
        FUZZ_CHECK(valid != 0 ? next > at && next <= text.get() + text.length() : next == at);
    }
}

static bool accepts(int32_t index, const ExactText &text, int keyAllowed) {
    char *error;
    const int valid = vfySynFields(index, text.get(), &error, keyAllowed);
    FUZZ_CHECK((valid != 0) == (error == nullptr));
    FUZZ_CHECK(valid == 0 || vfySynFields(index, text.get(), nullptr, 1) != 0);
    return valid != 0;
}

static std::string translate(const ExactText &text, LogMsg *msg, const char *key) {
    CharBuffer *buffer = mkCharBuffer(0);
    putStrCharBuffer(buffer, "before");
    const char *result = translateSynFields(buffer, text.get(), msg, key);
    FUZZ_CHECK(result != nullptr && strncmp(result, "before", 6) == 0);
    std::string translated = result + 6;
    freeCharBuffer(buffer);
    return translated;
}

static void checkQuoting(const ExactText &text) {
    CharBuffer *quoted = mkCharBuffer(0), *plain = mkCharBuffer(0);
    const char *word = cvtToQuotedStr(quoted, text.get());
    FUZZ_CHECK(word[0] == '"' && word[strlen(word) - 1] == '"');
    FUZZ_CHECK(strcmp(dedoublequoteStr(plain, word), text.get()) == 0);
    plain->next = plain->text;
    FUZZ_CHECK(strlen(dedoublequoteStr(plain, text.get())) <= text.length());
    freeCharBuffer(quoted);
    freeCharBuffer(plain);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    useSmallCatalogue();
    Pieces pieces(data, size);
    const auto index = static_cast<int32_t>(pieces.byte() % SMALL_CATALOGUE_MESSAGES);
    const uint8_t bits = pieces.byte();
    const int keyAllowed = bits & 1;
    const bool wellFormed = (bits & 2) == 0;
    const ExactText text(pieces.text());
    std::string key = pieces.text();
    std::replace(key.begin(), key.end(), '@', ' ');
    const ExactText record(wellFormed ? recordOf(index, pieces) : pieces.rest());

    checkQuoting(text);
    checkFields(index, text, keyAllowed);
    checkFields(-1, text, keyAllowed);
    LogMsg *msg = parseCmpLogEnhanced(record.get(), 0, PARSE_KEEP_TEXT | PARSE_KEEP_COMMENTS);
    const bool filled = accepts(index, text, keyAllowed) && wellFormed;
    FUZZ_CHECK(!filled || accepts(-1, text, keyAllowed));
    const std::string translated = translate(text, msg, key.c_str());
    FUZZ_CHECK(translated == translate(text, msg, key.c_str()));
    if (filled)
        FUZZ_CHECK(std::count(translated.begin(), translated.end(), '@') == plainMarks(text.get()));
    translate(text, nullptr, nullptr);
    freeLogMsg(msg);
    return 0;
}
