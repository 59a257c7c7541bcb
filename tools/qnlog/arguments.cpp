#include "arguments.h"

#include "help.h"
#include "moment.h"

#include <algorithm>
#include <map>

namespace {

// In the order of the help.
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
    const struct {
        const char *name, *type, *what;
    } options[] = {
        {"--since", "TIME", "from then on"},
        {"--until", "TIME", "up to then"},
        {"--priority", "LIST", "such as 3, 2- or 0,2-4"},
        {"--number", "LIST", "message numbers"},
        {"--producer", "NAME", "process names"},
        {"--symbol", "SYMBOL", "message symbols"},
        {"--class", "CLASS", "message classes"},
        {"--field", "NAME=VALUE", "a named field's value"},
        {"--message", "TEXT", "messages that hold the text"},
    };
    for (const auto &each : options)
        app.add_option(each.name)
            ->description(each.what)
            ->type_name(each.type)
            ->expected(1)
            ->take_all();
    app.add_flag("--not")->description("turn the next filter round");
}

void declareForms(CLI::App &app, Arguments &arguments) {
    CLI::Option *json = app.add_flag("--json", arguments.json, "an object a line");
    CLI::Option *csv = app.add_flag("--csv", arguments.csv, "a table")->excludes(json);
    CLI::Option *statistics = app.add_flag("--stats", arguments.statistics, "counts with bars")
                                  ->excludes(json)
                                  ->excludes(csv);
    app.add_option("--template", arguments.fields, "a line of @fields@ of each record")
        ->type_name("TEXT")
        ->excludes(json)
        ->excludes(csv)
        ->excludes(statistics);
    app.add_option("--last", arguments.last, "only the last entries")
        ->type_name("N")
        ->excludes(statistics);
}

} // namespace

void declareOptions(CLI::App &app, Arguments &arguments) {
    app.add_option("files", arguments.files, "log files")->type_name("FILE");
    declareFilters(app);
    declareForms(app, arguments);
    app.add_option("--log-root", arguments.root, "where the catalogue is")->type_name("DIR");
    app.add_option("--format", arguments.format, "layout of a record")->type_name("TEXT");
    app.add_option("--width", arguments.width, "columns to wrap at, 0 for none")
        ->type_name("N")
        ->check(CLI::Validator(CLI::NonNegativeNumber).description(""));
    app.add_option("--color,--colour", arguments.colour, "colours by priority")
        ->type_name("auto|always|never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.add_flag("--no-pager", arguments.noPager, "not through PAGER");
    app.add_flag("-f,--follow", arguments.follow, "go on as the files grow");
    app.add_flag("--visible", arguments.visible, "show all controls");
    app.add_flag("--raw", arguments.raw, "controls as they are");
    app.add_flag("--only-records", arguments.onlyRecords, "no lines that are no records");
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
