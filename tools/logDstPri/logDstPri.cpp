/* logDstPri: fills the shared table of priorities and destinations that every logging process
 * reads. */
#include "rules.h"
#include "segment.h"

#include "../common/commandLine.h"
#include "../common/report.h"

#include "log/logSyms.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <unistd.h>

namespace {

constexpr const char *USES = R"(Uses:
  logDstPri --log-root /var/log/voice
      fill the table from catalogue and msgDst.rules, at boot and after changes
  logDstPri --show | grep ' CALL_'
      how the calls' messages are routed now

logDstPri(5) describes the rules.)";

struct Arguments {
    std::string root = defaultLogRoot();
    std::optional<std::string> rules;
    bool show = false, remove = false, check = false, quiet = false;
};

// As the client finds it.
std::string defaultRules(const std::string &root) {
    const char *named = getenv("LOGDSTRULES");
    return named != nullptr && *named != '\0' ? named : root + "/msgDst.rules";
}

const char *symbolOf(size_t number) {
    const char *symbol = logAbsIndexToSymbol(static_cast<int32_t>(number));
    return symbol == nullptr ? "-" : symbol;
}

void printRow(size_t number, const LogDstPri &row) {
    printf("%6zu %-24s %d 0x%08x\n", number, symbolOf(number), row.priority, row.destination);
}

int show() {
    const Segment segment(false);
    if (!segment.exists())
        throw WorkFailed("there is no table");
    const Routing routing = segment.rows();
    for (size_t number = 0; number < routing.size(); ++number)
        if (logAbsIndexToSymbol(static_cast<int32_t>(number)) != nullptr)
            printRow(number, routing[number]);
    return EXIT_FINE;
}

int removeTable(const Arguments &arguments) {
    Segment segment(false);
    if (!segment.exists())
        throw WorkFailed("there is no table");
    const uint64_t users = segment.users();
    segment.remove();
    if (!arguments.quiet)
        printf("table removed; %llu processes keep it until they end\n",
               static_cast<unsigned long long>(users));
    return EXIT_FINE;
}

// No rules file is no rules, unless somebody named it.
std::optional<Routing> wantedRouting(const Arguments &arguments) {
    Routing routing = readCompiledRouting(arguments.root + "/msgDstPri");
    const std::string rules = arguments.rules.value_or(defaultRules(arguments.root));
    const bool named = arguments.rules || getenv("LOGDSTRULES") != nullptr;
    if (!named && access(rules.c_str(), F_OK) != 0)
        return routing;
    if (!applyRules(rules, routing))
        return std::nullopt;
    return routing;
}

int check(const Routing &wanted) {
    const Segment segment(false);
    if (!segment.exists())
        throw WorkFailed("there is no table");
    const Routing present = segment.rows();
    bool same = present.size() == wanted.size();
    if (!same)
        reportError("the table has " + std::to_string(present.size()) + " rows instead of " +
                    std::to_string(wanted.size()));
    for (size_t number = 0; number < wanted.size() && number < present.size(); ++number) {
        const LogDstPri &have = present[number], &want = wanted[number];
        if (have.priority == want.priority && have.destination == want.destination)
            continue;
        printRow(number, have);
        same = false;
    }
    return same ? EXIT_FINE : EXIT_FAILED;
}

void fill(const Arguments &arguments, const Routing &wanted) {
    Segment segment(true);
    bool fits = false;
    const size_t changed = segment.exists() ? segment.update(wanted, &fits) : 0;
    const size_t users = segment.exists() ? static_cast<size_t>(segment.users()) : 0;
    if (!fits) {
        if (segment.exists())
            segment.remove();
        Segment::create(wanted);
    }
    if (arguments.quiet)
        return;
    if (fits)
        printf("%zu of %zu rows changed in place\n", changed, wanted.size());
    else if (!segment.exists())
        printf("a new table of %zu rows\n", wanted.size());
    else
        printf("a new table of %zu rows, as the old one was too small; the %zu processes that have "
               "the old one see it "
               "when they start anew\n",
               wanted.size(), users);
}

int run(const Arguments &arguments) {
    setenv("LOGROOT", arguments.root.c_str(), 1); // where the library looks symbols up
    if (arguments.show)
        return show();
    if (arguments.remove)
        return removeTable(arguments);
    const std::optional<Routing> wanted = wantedRouting(arguments);
    if (!wanted)
        return EXIT_FAILED;
    if (arguments.check)
        return check(*wanted);
    fill(arguments, *wanted);
    return EXIT_FINE;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Fills the shared table of the messages' priorities and destinations.");
    Arguments arguments;
    describeTool(app, "logDstPri", USES);
    app.add_option("--log-root", arguments.root, "Where the compiled catalogue is (LOGROOT)")
        ->type_name("DIR");
    app.add_option("--rules", arguments.rules, "The rules (LOGDSTRULES, msgDst.rules of the root)")
        ->type_name("FILE");
    app.add_flag("-q,--quiet", arguments.quiet, "Do not tell what was done");
    CLI::Option *showFlag = app.add_flag("--show", arguments.show, "Print the table");
    CLI::Option *removeFlag =
        app.add_flag("--remove", arguments.remove, "Remove the table")->excludes(showFlag);
    app.add_flag("--check", arguments.check, "Change nothing, print the rows that differ")
        ->excludes(showFlag)
        ->excludes(removeFlag);
    return runTool(app, argc, argv, [&] { return run(arguments); });
}
