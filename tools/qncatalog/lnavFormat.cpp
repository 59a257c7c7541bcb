#include "catalogue.h"

#include "../common/jsonText.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace {

constexpr size_t WIDEST_SYMBOL = 32; // columns: longer ones move what follows

bool isNumber(char type) {
    return strchr("DULM", type) != nullptr;
}

// Each name once. A name of several messages is a number where it is one in all of them.
std::map<std::string, bool> namesAndWhetherNumbers(const Catalogue &catalogue) {
    std::map<std::string, bool> names;
    for (const MessageClass &each : catalogue.classes)
        for (const Message &message : each.messages)
            for (const Field &field : message.fields) {
                const auto [place, fresh] = names.emplace(field.name, true);
                place->second = place->second && isNumber(field.type);
            }
    return names;
}

size_t symbolWidth(const Catalogue &catalogue) {
    size_t width = 0;
    for (const MessageClass &each : catalogue.classes)
        for (const Message &message : each.messages)
            if (!each.generated)
                width = std::max(width, message.symbol.size());
    return std::min(width, WIDEST_SYMBOL);
}

// How the fields of an object are taken; lnav shows what the line does not hold only when asked.
constexpr const char *COMMON_VALUES = R"(
      "priority": {"kind": "integer", "hidden": true},
      "number": {"kind": "integer", "foreign-key": true, "hidden": true},
      "symbol": {"kind": "string", "identifier": true},
      "class": {"kind": "string", "identifier": true, "hidden": true},
      "producer": {"kind": "string", "identifier": true},
      "file": {"kind": "string", "identifier": true, "hidden": true},
      "line": {"kind": "integer", "foreign-key": true, "hidden": true},
      "text": {"kind": "string"})";

constexpr const char *HEAD = R"({
  "$schema": "https://lnav.org/schemas/format-v1.schema.json",
  "quarnel_log": {
    "title": "Quarnel log",
    "description": "What qnlog --json writes. Named fields are columns: \"fields/NAME\".",
    "json": true,
    "hide-extra": true,
    "timestamp-field": "time",
    "body-field": "text",
    "level-field": "priority",
    "level": {
      "info": "^0$",
      "notice": "^1$",
      "warning": "^2$",
      "error": "^3$",
      "critical": "^4$",
      "fatal": "^[5-9]$"
    },
)";

std::string lineFormat(const Catalogue &catalogue) {
    return "    \"line-format\": [\n"
           "      {\"field\": \"__timestamp__\"}, \" \",\n"
           "      {\"field\": \"producer\", \"min-width\": 10}, \" \",\n"
           "      {\"field\": \"symbol\", \"default-value\": \"?\", \"min-width\": " +
           std::to_string(symbolWidth(catalogue)) +
           "}, \" \",\n"
           "      {\"field\": \"text\", \"default-value\": \"\"}\n"
           "    ],\n";
}

} // namespace

std::string lnavFormat(const Catalogue &catalogue) {
    std::string json = HEAD + lineFormat(catalogue) + "    \"value\": {" + COMMON_VALUES;
    for (const auto &[name, number] : namesAndWhetherNumbers(catalogue)) {
        json += ",\n      ";
        appendJson(json, std::string_view("fields/" + name));
        json += std::string(": {\"kind\": \"") + (number ? "integer" : "string") +
                "\", \"hidden\": true}";
    }
    return json + "\n    }\n  }\n}\n";
}
