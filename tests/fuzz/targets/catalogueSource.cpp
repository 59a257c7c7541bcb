/* What the tools read: a catalogue's source, the rules for destinations, a compiled routing. A
   source that is accepted compiles into files in which the library and the tools find each message
   again, and its conversions are read alike by the log client's scan and by printf. A mistake is
   told with its line. */
#include "buffers/fmtCharBuf.h"
#include "log/logSyms.h"
#include "support/scratch.h"
#include "tools/common/report.h"
#include "tools/logDstPri/rules.h"
#include "tools/qncatalog/catalogue.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

// Each message of a catalogue costs a row in every table; the largest number is a million.
constexpr int64_t MAX_COMPILED = 4000;
constexpr size_t RULED_ROWS = 128;

// ---- in place of the tools' reports

static std::vector<size_t> linesReported;

void reportError(const std::string &, size_t line, const std::string &what) {
    FUZZ_CHECK(!what.empty());
    linesReported.push_back(line);
}

WorkFailed systemFailure(const std::string &what, int errorNumber) {
    return WorkFailed(what + ": " + strerror(errorNumber));
}

static size_t linesOf(const std::string &text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
}

// ---- a catalogue's source

// Whether the scan takes the conversion's argument: the "*" behind it gets the width meant for it.
static bool isScanned(const Field &field) {
    constexpr int WIDTH = 123456;
    const std::string format = field.conversion + "%*d";
    const char *text = format.c_str();
    int32_t bound = 0;
    switch (field.type) {
    case 'S':
        bound = maxFormatLength(text, "text", WIDTH, 1);
        break;
    case 'L':
    case 'M':
        bound = maxFormatLength(text, 7L, WIDTH, 1);
        break;
    case 'F':
        bound = maxFormatLength(text, 7.0, WIDTH, 1);
        break;
    default:
        bound = maxFormatLength(text, 7, WIDTH, 1);
    }
    return bound > WIDTH;
}

static void checkMessage(const MessageClass &each, const Message &message, const Routing &routing) {
    const int64_t number = each.number(message);
    FUZZ_CHECK(number >= 0 && static_cast<size_t>(number) < routing.size());
    const LogDstPri &row = routing[static_cast<size_t>(number)];
    FUZZ_CHECK(row.priority == message.priority && row.destination == message.destination);
    const LogSymbol *symbol = logFindDefineName(message.symbol.c_str());
    FUZZ_CHECK(symbol != nullptr && symbol->absIndex == number);
    FUZZ_CHECK(symbol->relIndex == message.relative && each.name == symbol->className);
    for (const Field &field : message.fields)
        FUZZ_CHECK(isScanned(field));
}

// The headers of one catalogue take the place of another's.
static void write(const std::vector<NamedBytes> &files, const std::string &root) {
    fs::remove_all(root + "/head");
    fs::create_directories(root + "/head");
    for (const NamedBytes &file : files)
        scratchFile(file.path.substr(scratchFolder().size() + 1).c_str(), file.bytes);
}

static void checkCompiled(const Catalogue &catalogue) {
    Problems problems;
    const std::string root = scratchFolder() + "/root";
    const std::vector<NamedBytes> files = compileCatalogue(catalogue, root, problems);
    if (problems.any()) // more formats than a table holds
        return;
    write(files, root);
    FUZZ_CHECK(logReadSymbols((root + "/head").c_str()) > 0);
    const Routing routing = readCompiledRouting(root + "/msgDstPri");
    FUZZ_CHECK(static_cast<int64_t>(routing.size()) == catalogue.end);
    for (const MessageClass &each : catalogue.classes)
        for (const Message &message : each.messages)
            checkMessage(each, message, routing);
}

static void checkSource(const std::string &text) {
    Problems problems;
    Catalogue catalogue = readSource(scratchFile("catalogue.toml", text), problems);
    if (!problems.any()) {
        addSystemErrors(catalogue);
        checkCatalogue(catalogue, problems);
    }
    for (const Problems::Finding &finding : problems.byLine())
        FUZZ_CHECK(finding.line <= linesOf(text) && !finding.what.empty());
    if (!problems.any() && catalogue.end <= MAX_COMPILED)
        checkCompiled(catalogue);
}

// ---- rules and routings

static const char SYMBOLS_SOURCE[] = "[[class]]\nname = \"NET\"\nstart = 100\npriority = 1\n"
                                     "[[class.message]]\nnumber = 1\nsymbol = \"NET_UP\"\n"
                                     "text = \"up\"\n"
                                     "[[class.message]]\nnumber = 3\nsymbol = \"NET_DOWN\"\n"
                                     "text = \"down\"\n";

static const std::string &symbolsFolder() {
    static const std::string folder = [] {
        Problems problems;
        Catalogue catalogue = readSource(scratchFile("symbols.toml", SYMBOLS_SOURCE), problems);
        checkCatalogue(catalogue, problems);
        const std::string root = scratchFolder() + "/symbols";
        fs::create_directories(root);
        write(compileCatalogue(catalogue, root, problems), root);
        FUZZ_CHECK(!problems.any());
        return root + "/head";
    }();
    return folder;
}

static bool isEqual(const Routing &one, const Routing &other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](const LogDstPri &a, const LogDstPri &b) {
                          return a.priority == b.priority && a.destination == b.destination;
                      });
}

static void checkRules(const std::string &text) {
    logSetHeaderDirName(symbolsFolder().c_str());
    const std::string path = scratchFile("rules", text);
    Routing routing(RULED_ROWS, {1, 1});
    linesReported.clear();
    const bool isSound = applyRules(path, routing);
    FUZZ_CHECK(isSound == linesReported.empty());
    for (const size_t line : linesReported)
        FUZZ_CHECK(line >= 1 && line <= linesOf(text));
    if (!isSound)
        return;
    for (const LogDstPri &row : routing)
        FUZZ_CHECK(row.priority >= 0 && row.priority <= 4);
    Routing again = routing; // the last rule for a message counts: once more changes nothing
    FUZZ_CHECK(applyRules(path, again) && isEqual(again, routing));
}

static void checkRouting(const std::string &bytes) {
    const std::string path = scratchFile("msgDstPri", bytes);
    try {
        FUZZ_CHECK(readCompiledRouting(path).size() == (bytes.size() - 4) / 8);
    } catch (const WorkFailed &failure) {
        FUZZ_CHECK(strlen(failure.what()) > path.size());
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    const uint8_t choice = pieces.byte() % 8;
    const std::string bytes = pieces.rest();
    if (choice == 6)
        checkRules(bytes);
    else if (choice == 7)
        checkRouting(bytes);
    else
        checkSource(bytes);
    logFreeSymbols(); // each input finds none
    return 0;
}
