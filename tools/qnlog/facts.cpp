#include "facts.h"

#include "../common/jsonText.h"

#include "log/logFields.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

std::string clockText(int32_t time) {
    const time_t seconds = time;
    tm fields = {};
    char text[64];
    localtime_r(&seconds, &fields);
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return text;
}

std::string momentText(int32_t time) {
    const time_t seconds = time;
    tm fields = {};
    localtime_r(&seconds, &fields);
    const long minutes = fields.tm_gmtoff / 60;
    char text[64];
    char zone[16];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &fields);
    snprintf(zone, sizeof zone, "%c%02ld:%02ld", minutes < 0 ? '-' : '+', labs(minutes) / 60 % 100,
             labs(minutes) % 60);
    return std::string(text) + zone;
}

// JSON's numbers: no plus sign, no zeros in front, no hexadecimal digits.
static bool isJsonNumber(std::string_view text) {
    size_t at = text.substr(0, 1) == "-" ? 1 : 0;
    const auto skipDigits = [&] {
        const size_t from = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9')
            at++;
        return at - from;
    };
    const size_t first = at;
    const size_t whole = skipDigits();
    if (whole == 0 || (whole > 1 && text[first] == '0'))
        return false;
    if (text.substr(at, 1) == "." && (++at, skipDigits() == 0))
        return false;
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        const bool isSigned = text.substr(at + 1, 1) == "+" || text.substr(at + 1, 1) == "-";
        at += isSigned ? 2 : 1;
        return skipDigits() > 0 && at == text.size();
    }
    return at == text.size();
}

static bool isNumeric(const LogField *field, std::string_view value) {
    constexpr std::string_view NUMBER_TYPES = "DULMF";
    return field != nullptr && NUMBER_TYPES.find(field->type) != std::string_view::npos &&
           isJsonNumber(value);
}

std::vector<NamedValue> namedArguments(const Record &record) {
    const std::vector<std::string_view> values = record.arguments();
    std::vector<NamedValue> found;
    for (size_t i = 0; i < values.size(); i++) {
        const auto place = static_cast<int32_t>(i);
        const LogField *field = getLogFieldName(record.number(), place);
        const bool named = field != nullptr && field->name != nullptr &&
                           cvtLogFieldNameToIndex(record.number(), field->name) == place;
        found.push_back(
            {named ? field->name : std::to_string(i), values[i], isNumeric(field, values[i])});
    }
    return found;
}

void appendJson(std::string &json, const std::vector<NamedValue> &values) {
    json += '{';
    for (const NamedValue &each : values) {
        if (json.back() != '{')
            json += ',';
        appendJson(json, std::string_view(each.name));
        json += ':';
        if (each.isNumber)
            json += each.value;
        else
            appendJson(json, each.value);
    }
    json += '}';
}
