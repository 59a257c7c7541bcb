/* The source's grammar: TOML tables with known keys, each value of its type and within its range.
 * What several values say together is checkCatalogue's. This is the one unit that knows the TOML
 * library. */
#include "catalogue.h"

#include "../common/report.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <set>
#include <string_view>

#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

namespace {

struct Range {
    int64_t low;
    int64_t high;
};

constexpr Range NUMBERS = {0, MAX_NUMBER};
constexpr Range PRIORITIES = {0, MAX_PRIORITY};
constexpr Range MASKS = {0, 0xFFFF'FFFF};
constexpr Range SHORTS = {INT16_MIN, INT16_MAX};
constexpr Range WORDS = {INT32_MIN, INT32_MAX};
constexpr int64_t DEFAULT_DESTINATION = 1; // the log daemon

size_t lineOf(const toml::node &node) {
    return node.source().begin.line;
}

// One table of the source, read key by key; a key that nobody asked for is a mistake in the source.
class TableReader {
  public:
    TableReader(const toml::table &table, std::string title, Problems &problems)
        : table_(table), title_(std::move(title)), problems_(problems) {}

    size_t line() const { return lineOf(table_); }
    size_t lineOfKey(const char *key) const {
        const toml::node *node = table_.get(key);
        return node == nullptr ? line() : lineOf(*node);
    }
    void problem(const char *key, const std::string &what) {
        problems_.add(lineOfKey(key), title_ + ": " + what);
    }
    std::string text(const char *key, std::optional<std::string> fallback = std::nullopt) {
        const toml::node *node = ask(key, fallback.has_value());
        if (node == nullptr)
            return fallback.value_or("");
        if (!node->is_string())
            problem(key, std::string(key) + " must be a text");
        return node->value_or<std::string>("");
    }
    int64_t integer(const char *key, Range range, std::optional<int64_t> fallback = std::nullopt) {
        const toml::node *node = ask(key, fallback.has_value());
        return node == nullptr ? fallback.value_or(range.low) : checked(*node, key, range);
    }
    // An array's elements; none where the key is absent and may be.
    const toml::array *array(const char *key) {
        const toml::node *node = ask(key, true);
        if (node != nullptr && !node->is_array())
            problem(key, std::string(key) + " must be an array");
        return node == nullptr ? nullptr : node->as_array();
    }
    int64_t checked(const toml::node &node, const char *key, Range range) {
        const std::optional<int64_t> value = node.value_exact<int64_t>();
        if (value && *value >= range.low && *value <= range.high)
            return *value;
        problem(key, std::string(key) + " must be a number from " + std::to_string(range.low) +
                         " to " + std::to_string(range.high));
        return range.low;
    }
    void refuseOthers() {
        for (const auto &[key, value] : table_)
            if (!asked_.contains(std::string(key.str())))
                problems_.add(key.source().begin.line,
                              title_ + ": unknown key \"" + std::string(key.str()) + "\"");
    }

  private:
    const toml::node *ask(const char *key, bool optional) {
        asked_.insert(key);
        const toml::node *node = table_.get(key);
        if (node == nullptr && !optional)
            problem(key, std::string("no ") + key);
        return node;
    }

    const toml::table &table_;
    std::string title_;
    Problems &problems_;
    std::set<std::string> asked_;
};

// Calls with each table of an array, and tells the elements that are none.
template<typename Function>
void eachTable(TableReader &reader, const char *key, Problems &problems, Function function) {
    const toml::array *array = reader.array(key);
    if (array == nullptr)
        return;
    for (const toml::node &element : *array) {
        if (const toml::table *table = element.as_table())
            function(*table);
        else
            problems.add(lineOf(element), std::string(key) + ": each must be a table");
    }
}

bool isUpperName(const std::string &text) {
    const auto fits = [](unsigned char c) { return isupper(c) || isdigit(c) || c == '_'; };
    return !text.empty() && isupper(static_cast<unsigned char>(text[0])) &&
           std::all_of(text.begin(), text.end(), fits);
}

bool isFieldName(const std::string &text) {
    const auto fits = [](unsigned char c) { return (isalnum(c) && c < 0x80) || c == '_'; };
    return !text.empty() && !isdigit(static_cast<unsigned char>(text[0])) &&
           std::all_of(text.begin(), text.end(), fits);
}

// The readers of symbols take "class, three digits" apart again, and name a header by its class.
bool isClassName(const std::string &text) {
    return text.size() >= 2 && isUpperName(text) && text.back() != '_';
}

void readNumbers(TableReader &reader, Field &field) {
    const toml::array *pair = reader.array("numbers");
    if (pair == nullptr)
        return;
    if (pair->size() != 2) {
        reader.problem("numbers", "numbers must be two");
        return;
    }
    field.first = static_cast<int16_t>(reader.checked(*pair->get(0), "numbers", SHORTS));
    field.second = static_cast<int32_t>(reader.checked(*pair->get(1), "numbers", WORDS));
}

Field readField(const toml::table &table, const std::string &owner, Problems &problems) {
    TableReader reader(table, "a field of " + owner, problems);
    Field field;
    field.line = reader.line();
    field.name = reader.text("name");
    if (!field.name.empty() && !isFieldName(field.name))
        reader.problem("name", "\"" + field.name + "\" is no field name (letters, digits, \"_\")");
    const std::string type = reader.text("type", "S");
    field.type = type.size() == 1 ? type[0] : '?';
    const char *standard = defaultConversion(field.type);
    field.conversion = reader.text("conversion", standard == nullptr ? "" : standard);
    if (standard == nullptr)
        reader.problem("type", "\"" + type + "\" is no field type (S C D U X L M F)");
    else if (const std::string what = conversionProblem(field.type, field.conversion);
             !what.empty())
        reader.problem("conversion", what);
    readNumbers(reader, field);
    reader.refuseOthers();
    return field;
}

// What the messages of a class have where they name nothing else.
struct Defaults {
    std::optional<int64_t> priority;
    std::optional<int64_t> destination;
};

Message readMessage(const toml::table &table, const Defaults &defaults, Problems &problems) {
    const std::string title = table["symbol"].value_or<std::string>("a message");
    TableReader reader(table, title, problems);
    Message message;
    message.line = reader.line();
    message.symbol = reader.text("symbol");
    if (!message.symbol.empty() && !isUpperName(message.symbol))
        reader.problem("symbol", "a symbol is upper-case letters, digits and \"_\"");
    message.relative = reader.integer("number", {1, MAX_NUMBER});
    message.priority = reader.integer("priority", PRIORITIES, defaults.priority);
    message.destination = reader.integer("destination", MASKS, defaults.destination);
    message.text = reader.text("text");
    message.textLine = reader.lineOfKey("text");
    eachTable(reader, "fields", problems, [&](const toml::table &field) {
        message.fields.push_back(readField(field, title, problems));
    });
    reader.refuseOthers();
    return message;
}

MessageClass readClass(const toml::table &table, Problems &problems) {
    const std::string title = table["name"].value_or<std::string>("a class");
    TableReader reader(table, "class " + title, problems);
    MessageClass result;
    result.line = reader.line();
    result.name = reader.text("name");
    if (!result.name.empty() && !isClassName(result.name))
        reader.problem("name",
                       "a class's name is two or more upper-case letters, digits and \"_\", "
                       "and ends in a letter or digit");
    result.start = reader.integer("start", NUMBERS);
    Defaults defaults = {std::nullopt, DEFAULT_DESTINATION};
    if (table.contains("priority"))
        defaults.priority = reader.integer("priority", PRIORITIES);
    if (table.contains("destination"))
        defaults.destination = reader.integer("destination", MASKS);
    eachTable(reader, "message", problems, [&](const toml::table &message) {
        result.messages.push_back(readMessage(message, defaults, problems));
    });
    reader.refuseOthers();
    return result;
}

Catalogue readRoot(const toml::table &table, Problems &problems) {
    TableReader reader(table, "the catalogue", problems);
    Catalogue catalogue;
    eachTable(reader, "class", problems, [&](const toml::table &each) {
        catalogue.classes.push_back(readClass(each, problems));
    });
    if (catalogue.classes.empty())
        problems.add(1, "the catalogue has no [[class]]");
    reader.refuseOthers();
    return catalogue;
}

} // namespace

std::vector<Problems::Finding> Problems::byLine() const {
    std::vector<Finding> sorted = findings_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Finding &a, const Finding &b) { return a.line < b.line; });
    return sorted;
}

Catalogue readSource(const std::string &path, Problems &problems) {
    const std::string bytes = readWholeFile(path);
    try {
        const toml::table root = toml::parse(std::string_view(bytes), std::string_view(path));
        return readRoot(root, problems);
    } catch (const toml::parse_error &error) {
        problems.add(error.source().begin.line, std::string(error.description()));
        return {};
    }
}
