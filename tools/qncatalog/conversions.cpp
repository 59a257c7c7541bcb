/* Which printf conversions a field may have. A record is formatted by the log client, which
 * measures its arguments with a scan of its own before it formats them: only conversions that the
 * scan and printf read alike are let through, so no "h", "ll", "p", "n" and no width or precision
 * by "*". */
#include "catalogue.h"

#include <cstring>
#include <iterator>

namespace {

struct FieldType {
    char letter;
    const char *argument;          // the C type of what the caller passes
    const char *defaultConversion; // where the source names none
    const char *flags;             // those that C defines for its conversions
    bool precision;                // may be given
    bool isLong;                   // "l" stands before the conversion letter
    const char *letters;
};

constexpr FieldType TYPES[] = {
    {'S', "const char *", "%s", "-", true, false, "s"},
    {'C', "int", "%c", "-", false, false, "c"},
    {'D', "int", "%d", "-+ 0", true, false, "di"},
    {'U', "unsigned", "%u", "-0", true, false, "u"},
    {'X', "unsigned", "%x", "-#0", true, false, "xXo"},
    {'L', "long", "%ld", "-+ 0", true, true, "di"},
    {'M', "unsigned long", "%lu", "-0", true, true, "uxXo"},
    {'F', "double", "%f", "-+ #0", true, false, "feEgG"},
};

// A record travels in one write of a pipe: more would be cut.
constexpr size_t MAX_WIDTH_DIGITS = 3;

const FieldType *findType(char letter) {
    for (const FieldType &type : TYPES)
        if (type.letter == letter)
            return &type;
    return nullptr;
}

size_t skipDigits(const std::string &text, size_t at) {
    const size_t end = text.find_first_not_of("0123456789", at);
    return (end == std::string::npos ? text.size() : end) - at;
}

bool isOneOf(const char *letters, char letter) {
    return letter != '\0' && strchr(letters, letter) != nullptr;
}

// The letter that ends the conversion, after what stands before it was checked; 0 when malformed.
char finalLetter(const FieldType &type, const std::string &conversion) {
    size_t at = 1;
    while (at < conversion.size() && conversion[at] != '0' && isOneOf(type.flags, conversion[at]))
        at++;
    // The scan takes a zero for the width's first digit: no flag may stand behind it.
    while (at < conversion.size() && conversion[at] == '0' && isOneOf(type.flags, '0'))
        at++;
    const size_t width = skipDigits(conversion, at);
    at += width;
    size_t precision = 0;
    if (type.precision && at < conversion.size() && conversion[at] == '.') {
        precision = skipDigits(conversion, at + 1);
        at += 1 + precision;
        if (precision == 0)
            return '\0';
    }
    if (type.isLong && at < conversion.size() && conversion[at] == 'l')
        at++;
    else if (type.isLong)
        return '\0';
    const bool last = at + 1 == conversion.size();
    return last && width <= MAX_WIDTH_DIGITS && precision <= MAX_WIDTH_DIGITS ? conversion[at]
                                                                              : '\0';
}

} // namespace

const char *defaultConversion(char letter) {
    const FieldType *type = findType(letter);
    return type == nullptr ? nullptr : type->defaultConversion;
}

const char *argumentType(char letter) {
    const FieldType *type = findType(letter);
    return type == nullptr ? nullptr : type->argument;
}

std::string conversionProblem(char letter, const std::string &conversion) {
    const FieldType *type = findType(letter);
    if (type == nullptr)
        return std::string("no field type \"") + letter + "\"";
    if (conversion.empty() || conversion[0] != '%')
        return "the conversion \"" + conversion + "\" does not start with %";
    if (isOneOf(type->letters, finalLetter(*type, conversion)))
        return "";
    return "the conversion \"" + conversion + "\" does not fit a field of type " + letter +
           " (such as \"" + type->defaultConversion + "\")";
}
