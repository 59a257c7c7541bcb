#include "arguments.h"

#include "help.h"
#include "moment.h"

#include <algorithm>
#include <map>

namespace {

constexpr const char *FILTERS[] = {"--since",  "--until", "--priority", "--number", "--producer",
                                   "--symbol", "--class", "--field",    "--message"};

bool isTime(const FilterWord &word) {
    return word.option == "--since" || word.option == "--until";
}

// How an option's text becomes a condition. Several of one option: one must hold, or all.
struct Maker {
    Condition (*make)(const std::string &);
    Selection::Cost cost;
    bool anyOfThem;
};

const Maker &makerOf(const std::string &option) {
    using Cost = Selection::Cost;
    static const std::map<std::string, Maker> MAKERS = {
        {"--priority", {priorityIn, Cost::HEAD, true}},
        {"--number", {numberIn, Cost::HEAD, true}},
        {"--producer", {producerLike, Cost::HEAD, true}},
        {"--symbol", {symbolLike, Cost::CATALOGUE, true}},
        {"--class", {classLike, Cost::CATALOGUE, true}},
        {"--field", {fieldLike, Cost::CATALOGUE, false}},
        {"--message", {messageHolding, Cost::EXPANSION, false}},
    };
    return MAKERS.at(option);
}

// With the option's name before what is wrong with its text.
template<typename Make>
auto made(const FilterWord &word, Make make) {
    try {
        return make(word.value);
    } catch (const std::invalid_argument &error) {
        throw UsageMistake(word.option + ": " + error.what());
    }
}

void declareFilters(CLI::App &app) {
    const std::map<std::string, std::string> types = {
        {"--since", "TIME"},  {"--until", "TIME"},    {"--priority", "LIST"},
        {"--number", "LIST"}, {"--producer", "NAME"}, {"--symbol", "SYMBOL"},
        {"--class", "CLASS"}, {"--message", "TEXT"},  {"--field", "NAME=VALUE"},
    };
    for (const char *name : FILTERS)
        app.add_option(name)->type_name(types.at(name))->expected(1)->take_all();
    app.add_flag("--not");
}

void declareForms(CLI::App &app, Arguments &arguments) {
    CLI::Option *json = app.add_flag("--json", arguments.json);
    CLI::Option *csv = app.add_flag("--csv", arguments.csv)->excludes(json);
    CLI::Option *statistics =
        app.add_flag("--stats", arguments.statistics)->excludes(json)->excludes(csv);
    app.add_option("--template", arguments.fields)
        ->type_name("TEXT")
        ->excludes(json)
        ->excludes(csv)
        ->excludes(statistics);
    app.add_option("--last", arguments.last)->type_name("N")->excludes(statistics);
}

} // namespace

void declareOptions(CLI::App &app, Arguments &arguments) {
    app.add_option("files", arguments.files)->type_name("FILE");
    declareFilters(app);
    declareForms(app, arguments);
    app.add_option("--log-root", arguments.root)->type_name("DIR");
    app.add_option("--format", arguments.format)->type_name("TEXT");
    app.add_option("--width", arguments.width)
        ->type_name("N")
        ->check(CLI::Validator(CLI::NonNegativeNumber).description(""));
    app.add_option("--color,--colour", arguments.colour)
        ->type_name("auto|always|never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.add_flag("--no-pager", arguments.noPager);
    app.add_flag("-f,--follow", arguments.follow);
    app.add_flag("--visible", arguments.visible);
    app.add_flag("--raw", arguments.raw);
    app.add_flag("--only-records", arguments.onlyRecords);
}

void collectFilters(const CLI::App &app, Arguments &arguments) {
    std::map<const CLI::Option *, size_t> used;
    bool negated = false;
    for (const CLI::Option *option : app.parse_order()) {
        const std::string name = option->get_name();
        const bool filters =
            std::find(std::begin(FILTERS), std::end(FILTERS), name) != std::end(FILTERS);
        if (negated && !filters)
            break;
        if (filters)
            arguments.filters.push_back({name, option->results()[used[option]++], negated});
        negated = name == "--not";
    }
    if (negated)
        throw UsageMistake("--not: a filter must follow");
}

Selection selectionOf(const std::vector<FilterWord> &filters) {
    Selection selection;
    std::map<std::string, std::vector<Condition>> alternatives;
    for (const FilterWord &word : filters) {
        if (isTime(word))
            continue;
        const Maker &maker = makerOf(word.option);
        Condition condition = made(word, maker.make);
        if (word.negated)
            selection.require(noneOf(condition), maker.cost);
        else if (maker.anyOfThem)
            alternatives[word.option].push_back(condition);
        else
            selection.require(condition, maker.cost);
    }
    for (auto &[option, conditions] : alternatives)
        selection.require(conditions.size() == 1 ? conditions[0] : anyOf(conditions),
                          makerOf(option).cost);
    return selection;
}

TimeRange rangeOf(const std::vector<FilterWord> &filters, int64_t now) {
    TimeRange range;
    for (const FilterWord &word : filters) {
        if (!isTime(word))
            continue;
        const int64_t moment =
            made(word, [now](const std::string &text) { return parseMoment(text, now); });
        const bool isSince = word.option == "--since";
        if (isSince && !word.negated)
            range.since = std::max(range.since, moment);
        else if (isSince)
            range.until = std::min(range.until, moment - 1);
        else if (!word.negated)
            range.until = std::min(range.until, moment);
        else
            range.since = std::max(range.since, moment + 1);
    }
    return range;
}
