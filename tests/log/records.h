/* Records, text format files and a fixed time zone for the cases that expand. */
#ifndef TESTS_LOG_RECORDS_H
#define TESTS_LOG_RECORDS_H

#include "log/expandLog.h"

#include "support/childProcess.h"
#include "support/tempDir.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

constexpr char FS[] = "\x1c";
constexpr char GS[] = "\x1d";

// 0x5A0B1C2D: Tuesday, 14 November 2017, 16:39:09 UTC.
constexpr char SAMPLE_TIME[] = "5A0B1C2D";
constexpr int32_t SAMPLE_SECONDS = 0x5A0B1C2D;

inline std::string argumentsOf(const std::vector<std::string> &arguments) {
    std::string text;
    for (const std::string &argument : arguments)
        text += FS + argument;
    return text + GS;
}

// "12 FS 3 5A0B1C2D prog f.c:40 ...", as a log file holds it.
inline std::string recordOf(int index, int priority, const std::vector<std::string> &arguments,
                            const std::string &time = SAMPLE_TIME) {
    return std::to_string(index) + FS + std::to_string(priority) + time + "prog f.c:40" +
           argumentsOf(arguments);
}

inline std::string hexTime(int32_t seconds) {
    char text[16];
    snprintf(text, sizeof text, "%08X", static_cast<unsigned>(seconds));
    return text;
}

// The bytes of a text format file: the directory, then the texts.
inline std::string textFormatFile(const std::map<int, std::string> &texts) {
    const size_t entries = texts.empty() ? 0 : static_cast<size_t>(texts.rbegin()->first) + 1;
    std::string directory(16 * entries, ' '), area;
    for (const auto &[index, text] : texts) {
        char entry[32];
        snprintf(entry, sizeof entry, "%zu %zu", directory.size() + area.size(), text.size());
        const std::string bytes = entry;
        directory.replace(16 * static_cast<size_t>(index), bytes.size(), bytes);
        area += text;
    }
    return directory + area;
}

// Runs the body in a child process, in UTC, with the texts as its text format file and nothing else
// of the environment that an expansion reads.
inline void withTexts(const std::map<int, std::string> &texts, const std::function<void()> &body) {
    const TempDir folder;
    const std::string path = folder.write("texts", textFormatFile(texts));
    expectChildPasses([&] {
        setenv("TZ", "UTC0", 1);
        for (const char *name : {"LOGFORMAT", "LOGCOLUMN", "LOGCONTPREFIX", "LOGROOT"})
            unsetenv(name);
        setenv("TEXTLOGFMT", path.c_str(), 1);
        body();
    });
}

// What expandLog makes of the record, "(null)" for null.
inline std::string expanded(std::string record) {
    const char *text = expandLog(record.data());
    return text == nullptr ? "(null)" : text;
}

// The same under a format.
inline std::string expandedAs(const std::string &format, const std::string &record) {
    chgExpansionFmt(format.c_str());
    return expanded(record);
}

#endif
