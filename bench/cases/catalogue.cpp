/* The catalogue: what its files cost to load against the plain reading of the same bytes, and what
   an expansion costs that looks everything up in it, with 20,000 symbols and with 100. */
#include "support/bench.h"
#include "support/largeRoot.h"

#include "log/dataDict.h"
#include "log/expandLog.h"
#include "log/log.h"
#include "log/logSyms.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int FEW = 100, MANY = 20000;

// Made when first asked for, removed when the program ends.
const LargeRoot &rootOf(int messages) {
    static const LargeRoot few(FEW), many(MANY);
    return messages == FEW ? few : many;
}

std::string fileOf(int messages, const char *name) {
    return std::string(rootOf(messages).path()) + "/" + name;
}

// ---- loading

void loadFormats(benchmark::State &state) {
    const std::string path = fileOf(MANY, "cmpLogFmt");
    for (auto _ : state) {
        uint16_t *table;
        char *strings;
        if (getcmpLogFmt(path.c_str(), &table, &strings) != MANY)
            state.SkipWithError("the formats were refused");
        benchmark::DoNotOptimize(table);
        free(table);
        free(strings);
    }
}
QN_BENCHMARK("getcmpLogFmt/library", loadFormats);

void readFormats(benchmark::State &state) {
    const std::string path = fileOf(MANY, "cmpLogFmt");
    const size_t size = std::filesystem::file_size(path);
    for (auto _ : state) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        char *bytes = static_cast<char *>(malloc(size));
        if (read(fd, bytes, size) != static_cast<ssize_t>(size))
            state.SkipWithError("the formats were not read");
        benchmark::DoNotOptimize(bytes);
        free(bytes);
        close(fd);
    }
}
QN_BENCHMARK("getcmpLogFmt/read", readFormats);

void loadSymbols(benchmark::State &state) {
    const std::string folder = fileOf(MANY, "head");
    logSetHeaderDirName(folder.c_str());
    for (auto _ : state)
        if (logReadSymbols(nullptr) != MANY)
            state.SkipWithError("symbols are missing");
    logFreeSymbols();
}
QN_BENCHMARK("logReadSymbols/library", loadSymbols);

int compareNames(const void *left, const void *right) {
    return strcmp(*static_cast<char *const *>(left), *static_cast<char *const *>(right));
}

void splitAndSort(benchmark::State &state) {
    const std::string path = fileOf(MANY, "head/logNET.h");
    for (auto _ : state) {
        FILE *file = fopen(path.c_str(), "r");
        char *line = nullptr, *rest;
        size_t size = 0;
        std::vector<char *> names;
        while (getline(&line, &size, file) > 0) {
            strtok_r(line, " \n", &rest);
            names.push_back(strdup(strtok_r(nullptr, " \n", &rest)));
            while (strtok_r(nullptr, " \n", &rest) != nullptr) {
            }
        }
        fclose(file);
        qsort(names.data(), names.size(), sizeof(char *), compareNames);
        benchmark::DoNotOptimize(names.data());
        for (char *name : names)
            free(name);
        free(line);
    }
}
QN_BENCHMARK("logReadSymbols/getline", splitAndSort);

// ---- looking up

// The records are of so many messages, spread over all there are: no single lookup stays warm, and
// a large catalogue's messages are no more than a small one's.
std::vector<std::string> recordsOf(int messages) {
    std::vector<std::string> records;
    for (int turn = 0; turn < FEW; ++turn) {
        const int number = turn * 79 % FEW * (messages / FEW);
        records.push_back(std::to_string(number) + " \x1C"
                                                   "05F000000prog f.c:40\x1C"
                                                   "alpha\x1D");
    }
    return records;
}

// The catalogue belongs to the process: each row makes its own the one in use.
void useCatalogue(int messages) {
    logReadSymbols(fileOf(messages, "head").c_str());
    endDdMapLog();
    setDdMapLogName(fileOf(messages, "ddMapLog").c_str());
    setDataDictLogName(fileOf(messages, "dataDictLog").c_str());
    setExpandFmt(fileOf(messages, "textLogFmt").c_str());
    chgExpansionFmt("@symbol@ @class@ @field@[host]");
}

void expandWith(benchmark::State &state, int messages) {
    useCatalogue(messages);
    std::vector<std::string> records = recordsOf(messages);
    for (std::string &record : records) { // read here, once for each message
        const char *text = expandLog(record.data());
        if (text == nullptr || strncmp(text, "NET_", 4) != 0 || strstr(text, "alpha") == nullptr)
            state.SkipWithError("a record was not looked up");
    }
    size_t turn = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(expandLog(records[turn].data()));
        turn = turn + 1 < records.size() ? turn + 1 : 0;
    }
}

void expandWithMany(benchmark::State &state) {
    expandWith(state, MANY);
}
QN_BENCHMARK("expandSymbols/library", expandWithMany);

void expandWithFew(benchmark::State &state) {
    expandWith(state, FEW);
}
QN_BENCHMARK("expandSymbols/few", expandWithFew);

} // namespace

BENCHMARK_MAIN();
