#include "support/largeRoot.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

static void putBigEndian(std::ostream &out, uint32_t value, int width) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        out.put(static_cast<char>(value >> shift & 0xFF));
}

static int argumentsOf(int number) {
    const int counted = number - LargeRoot::TEXT;
    return counted >= 1 && counted <= LargeRoot::MOST_ARGUMENTS ? counted : 1;
}

static std::string repeated(const char *text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

// The formats by their number of arguments; messages with as many share one.
static std::string formatOf(int arguments) {
    return "\x1C%s" + repeated("\x1C%d", arguments - 1) + "\x1D";
}

void LargeRoot::writeFormats(int messages) const {
    std::string strings;
    uint32_t offsets[MOST_ARGUMENTS + 1] = {};
    for (int arguments = 1; arguments <= MOST_ARGUMENTS; ++arguments) {
        offsets[arguments] = static_cast<uint32_t>(strings.size());
        strings += formatOf(arguments) + '\0';
    }
    std::ofstream out(file("cmpLogFmt"), std::ios::binary);
    putBigEndian(out, static_cast<uint32_t>(messages), 4);
    for (int number = 0; number < messages; ++number)
        putBigEndian(out, offsets[argumentsOf(number)], 2);
    out << strings;
}

void LargeRoot::writeTexts(int messages) const {
    std::ofstream out(file("textLogFmt"), std::ios::binary);
    std::string texts;
    for (int number = 0; number < messages; ++number) {
        const std::string text = "message:" + repeated(" %s", argumentsOf(number));
        char entry[32];
        snprintf(entry, sizeof entry, "%9zu %5zu\n",
                 16 * static_cast<size_t>(messages) + texts.size(), text.size());
        out << entry;
        texts += text;
    }
    out << texts;
}

void LargeRoot::writeSymbols(int messages) const {
    std::filesystem::create_directories(file("head"));
    std::ofstream starts(file("head/systemLog.h"));
    starts << "#define _NETMSG_START 0\n#define __MAX_LOGMSG " << messages << "\n";
    std::ofstream symbols(file("head/logNET.h"));
    for (int number = 0; number < messages; ++number)
        symbols << "#define NET_" << number << " logNET(" << number + 1 << ")\n";
}

void LargeRoot::writeFields(int messages) const {
    std::ofstream lines(file("dataDictLog")), map(file("ddMapLog"), std::ios::binary);
    putBigEndian(map, 0, 4);
    putBigEndian(map, static_cast<uint32_t>(8 * (messages + 1)), 4);
    for (int number = 0; number < messages; ++number) {
        putBigEndian(map, 0, 4);
        putBigEndian(map, static_cast<uint32_t>(lines.tellp()), 4);
        lines << number << "\x1Chost,S\x1C\x1D\n";
    }
}

LargeRoot::LargeRoot(int messages) {
    if (mkdtemp(path_.data()) == nullptr)
        abort();
    writeFormats(messages);
    writeTexts(messages);
    writeSymbols(messages);
    writeFields(messages);
}

LargeRoot::~LargeRoot() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}
