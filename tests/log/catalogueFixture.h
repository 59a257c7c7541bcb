/* What the tests of the catalogue readers share: logperror replaced by one that writes down what it
   is told, and a check that the line reader is given back. To be included once in a program. */
#ifndef TESTS_LOG_CATALOGUEFIXTURE_H
#define TESTS_LOG_CATALOGUEFIXTURE_H

#include "log/log.h"
#include "options/readInfo.h"

#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

struct Report {
    uint32_t destination;
    int32_t priority;
    std::string file;
    int32_t line;
    std::string format, text;
    int error;
};

inline std::vector<Report> reports;
inline bool keepsReports = true; // false where there is no memory for them

// In place of the log client's.
extern "C" char *logperror(uint32_t destination, int32_t priority, const char *file, int32_t line,
                           const char *format, ...) {
    if (!keepsReports)
        return nullptr;
    char text[4096];
    const int error = errno;
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    reports.push_back({destination, priority, file, line, format, text, error});
    errno = error;
    return nullptr;
}

// Runs the action between two lines of a file that is being read with its own modes and counters,
// and expects the reader to be as it was.
inline void expectReaderGivenBack(const std::function<void()> &action) {
    const TempDir dir;
    FILE *stream = fopen(dir.write("outer", "first line\nsecond line\n").c_str(), "r");
    ASSERT_NE(stream, nullptr);
    resetReadLine(nullptr);
    setReadLineModes(1);
    const char *line = readLine(stream);
    ASSERT_STREQ(line, "first line");
    inlineCnt = 41;
    virtLineCnt = 17;
    action();
    EXPECT_STREQ(line, "first line");
    EXPECT_EQ(ri_modes, 1U);
    EXPECT_EQ(inlineCnt, 41U);
    EXPECT_EQ(virtLineCnt, 17U);
    EXPECT_STREQ(readLine(stream), "second line");
    fclose(stream);
}

inline int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 256; ++fd) {
        char path[32];
        snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
        FILE *stream = fopen(path, "r");
        count += stream != nullptr || errno != ENOENT;
        if (stream != nullptr)
            fclose(stream);
    }
    return count;
}

#endif
