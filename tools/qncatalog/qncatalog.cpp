/* qncatalog: compiles the source of a message catalogue into the files of a log root. */
#include "catalogue.h"

#include "../common/commandLine.h"
#include "../common/report.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

constexpr const char *USES = R"(Uses:
  qncatalog --log-root /var/log/voice catalogue.toml
      compile, then build applications with -I/var/log/voice/head
  qncatalog --lnav catalogue.toml > ~/.lnav/formats/installed/quarnel.json
      then: qnlog --json logfile | lnav

catalogue(5) describes the source.)";

struct Arguments {
    std::string source;
    std::string root = defaultLogRoot();
    bool checkOnly = false;
    bool lnav = false;
    bool quiet = false;
};

int reportProblems(const std::string &source, const Problems &problems) {
    for (const Problems::Finding &finding : problems.byLine())
        reportError(source, finding.line, finding.what);
    return EXIT_FAILED;
}

bool isOurs(const fs::path &header) {
    std::ifstream stream(header);
    std::string first;
    return std::getline(stream, first) && first == HEADER_MARK;
}

// Headers that this tool wrote for classes that are gone: readers would take their symbols for
// ever.
std::vector<std::string> staleHeaders(const std::string &folder,
                                      const std::vector<NamedBytes> &files) {
    std::vector<std::string> stale;
    std::error_code error; // no folder, no headers
    for (const fs::directory_entry &entry : fs::directory_iterator(folder, error)) {
        const std::string path = folder + "/" + entry.path().filename().string();
        const bool current = std::any_of(files.begin(), files.end(),
                                         [&](const NamedBytes &file) { return file.path == path; });
        if (!current && entry.is_regular_file() && isOurs(entry.path()))
            stale.push_back(path);
    }
    return stale;
}

int reportDifferences(const std::vector<NamedBytes> &files, const std::vector<std::string> &stale) {
    int result = EXIT_FINE;
    const auto tell = [&](const std::string &path, const char *what) {
        reportError(path, 0, what);
        result = EXIT_FAILED;
    };
    for (const NamedBytes &file : files) {
        if (!fs::exists(file.path))
            tell(file.path, "missing");
        else if (readWholeFile(file.path) != file.bytes)
            tell(file.path, "stale or damaged: not what the source compiles to");
    }
    for (const std::string &path : stale)
        tell(path, "stale: its class is gone from the source");
    return result;
}

size_t countMessages(const Catalogue &catalogue) {
    size_t count = 0;
    for (const MessageClass &each : catalogue.classes)
        count += each.messages.size();
    return count;
}

int compile(const Arguments &arguments) {
    Problems problems;
    Catalogue catalogue = readSource(arguments.source, problems);
    // A source that cannot be read whole would be blamed for what is only missing.
    if (problems.any())
        return reportProblems(arguments.source, problems);
    addSystemErrors(catalogue);
    checkCatalogue(catalogue, problems);
    if (problems.any())
        return reportProblems(arguments.source, problems);
    const std::vector<NamedBytes> files = compileCatalogue(catalogue, arguments.root, problems);
    if (problems.any())
        return reportProblems(arguments.source, problems);
    if (arguments.lnav) {
        fputs(lnavFormat(catalogue).c_str(), stdout);
        return EXIT_FINE;
    }
    const std::vector<std::string> stale = staleHeaders(arguments.root + "/head", files);
    if (arguments.checkOnly)
        return reportDifferences(files, stale);
    const size_t written = writeWholeFiles(files);
    for (const std::string &path : stale)
        fs::remove(path);
    if (!arguments.quiet)
        printf("%s: %zu messages in %zu classes, %zu of %zu files written\n",
               arguments.root.c_str(), countMessages(catalogue), catalogue.classes.size(), written,
               files.size());
    return EXIT_FINE;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Compiles the source of a message catalogue into the files of a log root.");
    Arguments arguments;
    describeTool(app, "qncatalog", USES);
    app.add_option("source", arguments.source, "The catalogue's source")
        ->required()
        ->type_name("FILE");
    app.add_option("--log-root", arguments.root, "Where the files go (LOGROOT, /usr/spool/log)")
        ->type_name("DIR");
    CLI::Option *check =
        app.add_flag("--check", arguments.checkOnly, "Write nothing, compare with the log root");
    app.add_flag("--lnav", arguments.lnav, "Print a format for lnav, to read qnlog --json")
        ->excludes(check);
    app.add_flag("-q,--quiet", arguments.quiet, "Do not tell what was written");
    return runTool(app, argc, argv, [&] { return compile(arguments); });
}
