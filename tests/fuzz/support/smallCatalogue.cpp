#include "support/smallCatalogue.h"

#include "support/scratch.h"

#include <cstdlib>
#include <sys/stat.h>

static void appendBigEndian(std::string &file, size_t value) {
    for (int shift = 56; shift >= 0; shift -= 8)
        file += static_cast<char>(shift < 32 ? value >> shift & 0xFF : 0);
}

static void writeFields() {
    static constexpr const char *LINES[SMALL_CATALOGUE_MESSAGES] = {
        "0\x1c\x1d\n",
        "1\x1chost\x1c\x1d\n",
        "2\x1chost,S,0,16\x1cport,D\x1c\x1d\n",
        "3\x1c_a\x1cx2\x1chost\x1c\x1d\n",
    };
    std::string index, dictionary;
    appendBigEndian(index, 8 * (SMALL_CATALOGUE_MESSAGES + 1));
    for (const char *line : LINES) {
        appendBigEndian(index, dictionary.size());
        dictionary += line;
    }
    scratchFile("ddMapLog", index);
    scratchFile("dataDictLog", dictionary);
}

static void writeTexts() {
    static constexpr size_t ENTRY = 16;
    std::string directory, texts;
    for (int message = 0; message < SMALL_CATALOGUE_MESSAGES; ++message) {
        std::string text = "message " + std::to_string(message);
        for (int argument = 0; argument < message; ++argument)
            text += " %s";
        const size_t offset = SMALL_CATALOGUE_MESSAGES * ENTRY + texts.size();
        std::string entry = std::to_string(offset) + ' ' + std::to_string(text.size());
        entry.resize(ENTRY, ' ');
        directory += entry;
        texts += text;
    }
    scratchFile("textLogFmt", directory + texts);
}

static bool writeAll() {
    FUZZ_CHECK(mkdir((scratchFolder() + "/head").c_str(), 0700) == 0);
    scratchFile("head/systemLog.h", "#define _NETMSG_START 1\n#define __MAX_LOGMSG 4\n");
    scratchFile("head/logNET.h", "#define NET_DOWN logNET(1)\n#define NET_UP logNET(2)\n");
    writeFields();
    writeTexts();
    setenv("LOGROOT", scratchFolder().c_str(), 1);
    setenv("TZ", "UTC0", 1);
    return true;
}

void useSmallCatalogue() {
    static const bool written = writeAll();
    FUZZ_CHECK(written);
}
