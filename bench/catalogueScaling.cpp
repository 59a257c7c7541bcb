/* Expanding a record with "@symbol@ @class@ @field@[name]": what it costs with a catalogue of 100
   symbols and with one of 20,000. Each size runs in a process of its own, since the catalogue is
   the process's; the rounds of the two alternate, so that the machine's other work falls on both.
 */
#include "log/expandLog.h"
#include "log/logSyms.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int ROUNDS = 9;
constexpr int EXPANSIONS = 20000; // a round
constexpr int FIRST = 1000;       // the class's start

void putBigEndian(std::ofstream &out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.put(static_cast<char>(value >> shift & 0xFF));
}

// A log root of its own with so many symbols, their texts and their fields.
void writeRoot(const std::string &root, int symbols) {
    std::filesystem::create_directories(root + "/head");
    std::ofstream starts(root + "/head/systemLog.h");
    starts << "#define _NETMSG_START " << FIRST << "\n#define __MAX_LOGMSG " << FIRST + symbols
           << "\n";
    std::ofstream header(root + "/head/logNET.h");
    std::ofstream lines(root + "/dataDictLog"), index(root + "/ddMapLog", std::ios::binary);
    std::ofstream texts(root + "/textLogFmt", std::ios::binary);
    const int end = FIRST + symbols;
    putBigEndian(index, 0);
    putBigEndian(index, static_cast<uint32_t>(8 * (end + 1)));
    for (int number = 0; number < end; ++number) {
        putBigEndian(index, 0);
        putBigEndian(index, static_cast<uint32_t>(lines.tellp()));
        char entry[32];
        snprintf(entry, sizeof entry, "%9d %5d\n", 16 * end, 2);
        texts << entry;
        if (number >= FIRST)
            header << "#define NET_" << number << " logNET(" << number - FIRST + 1 << ")\n";
        lines << number
              << "\x1C"
                 "host,S\x1C\x1D\n";
    }
    texts << "%s";
}

// Every record is of another message, so that no single lookup stays warm.
double secondsForRound(int symbols) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < EXPANSIONS; ++i) {
        const int number =
            FIRST + static_cast<int>(int64_t{i} * 7919 % std::min(symbols, 100) * (symbols / 100));
        std::string record = std::to_string(number) + " \x1C"
                                                      "05F000000prog f.c:40\x1C"
                                                      "alpha\x1D";
        if (expandLog(record.data()) == nullptr)
            abort();
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A process that runs a round for each byte that it is sent, and answers its seconds.
struct Worker {
    int ask[2], answer[2];
    Worker(const std::string &root, int symbols) {
        if (pipe(ask) != 0 || pipe(answer) != 0)
            abort();
        if (fork() != 0)
            return;
        setenv("LOGROOT", root.c_str(), 1);
        chgExpansionFmt("@symbol@ @class@ @field@[host]");
        logReadSymbols(nullptr);
        secondsForRound(symbols); // the files are read once, outside the measure
        for (char byte; read(ask[0], &byte, 1) == 1;) {
            const double seconds = secondsForRound(symbols);
            if (write(answer[1], &seconds, sizeof seconds) != sizeof seconds)
                break;
        }
        _exit(0);
    }
    double round() {
        double seconds = 0;
        if (write(ask[1], "", 1) != 1 ||
            read(answer[0], &seconds, sizeof seconds) != sizeof seconds)
            abort();
        return seconds;
    }
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main() {
    char pattern[] = "/tmp/catalogueScalingXXXXXX";
    const std::string folder = mkdtemp(pattern);
    writeRoot(folder + "/small", 100);
    writeRoot(folder + "/large", 20000);
    Worker small(folder + "/small", 100), large(folder + "/large", 20000);
    std::vector<double> smallSeconds, largeSeconds, ratios;
    for (int round = 0; round < ROUNDS; ++round) {
        smallSeconds.push_back(small.round());
        largeSeconds.push_back(large.round());
        ratios.push_back(largeSeconds.back() / smallSeconds.back());
    }
    printf("expansion with 100 symbols     %7.0f ns\n", median(smallSeconds) / EXPANSIONS * 1e9);
    printf("expansion with 20,000 symbols  %7.0f ns\n", median(largeSeconds) / EXPANSIONS * 1e9);
    printf("ratio (median of %d interleaved rounds) %.2f\n", ROUNDS, median(ratios));
    std::filesystem::remove_all(folder);
    return 0;
}
