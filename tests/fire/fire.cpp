/* The pipe under fire: writing processes, the daemon, a real pipe, and everything that happens to
   them. Each record carries its writer, its number and a checksum; what the clients were told is
   sent is held against what the log file says. */
#include "scenarios.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <map>
#include <unistd.h>

using Scenario = int (*)(const Settings &);

static const std::map<std::string, Scenario> SCENARIOS = {{"pipe", underLoad},
                                                          {"restart", restarted},
                                                          {"kill", killed},
                                                          {"full", diskFull},
                                                          {"long", longRecords}};

static int run(const std::string &which, Settings &settings) {
    const char *temporary = getenv("TMPDIR");
    std::string folder = std::string(temporary == nullptr ? "/tmp" : temporary) + "/qnfireXXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        perror("fire: mkdtemp");
        return 1;
    }
    settings.folder = folder;
    int broken = 0;
    printf("seed %llu\n", static_cast<unsigned long long>(settings.seed));
    for (const char *each : {"pipe", "restart", "kill", "full", "long"})
        if (which == "all" || which == each)
            broken += SCENARIOS.at(each)(settings);
    std::filesystem::remove_all(folder);
    printf("%s: %d promises broken (seed %llu)\n", which.c_str(), broken,
           static_cast<unsigned long long>(settings.seed));
    return broken == 0 ? 0 : 1;
}

int main(int argc, char **argv) {
    CLI::App app{"Puts the log pipe under fire: pipe, restart, kill, full, long or all."};
    Settings settings;
    std::string which = "all";
    settings.seed = static_cast<uint64_t>(getpid());
    app.add_option("scenario", which)
        ->check(CLI::IsMember({"pipe", "restart", "kill", "full", "long", "all"}));
    app.add_option("--records", settings.records, "Of all writers")
        ->check(CLI::Range(8000, 8000000))
        ->capture_default_str();
    app.add_option("--kills", settings.kills, "Of the daemon")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    app.add_option("--lanes", settings.lanes, "Runs of killed daemons side by side")
        ->check(CLI::Range(1, 16))
        ->capture_default_str();
    app.add_option("--seed", settings.seed, "Repeats sizes and moments, as far as a machine can");
    app.add_option("--means", settings.means, "Of filling the disk: tmpfs, limit or any")
        ->check(CLI::IsMember({"tmpfs", "limit", "any"}));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return run(which, settings);
}
