/* The line reader as its rules tell it: a byte at a time, each by getc, and one test for each rule.
   Slow and plainly right; the library's, which takes what it can in one piece, is held against it.
 */
#ifndef TESTS_OPTIONS_PLAINREADER_H
#define TESTS_OPTIONS_PLAINREADER_H

#include "options/readInfo.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>

class PlainReader {
  public:
    enum Joining { NOTHING, BACKSLASH, QUOTED };

    uint32_t inlineCnt = 0, virtLineCnt = 0, modes = 0;
    uint32_t capacity = 0;
    std::string buffer;   // one byte more than the capacity, as soon as there is one
    int growthsLeft = -1; // how many more there is memory for; below 0: no limit

    // As readLine, readContLine and readQuotedLine; true for a line, which then stands in the
    // buffer.
    bool read(FILE *stream, Joining joining) {
        uint32_t length = 0;
        int previous = '\n', quote = 0;
        bool any = false, isEnded = false;
        for (int byte; !isEnded && (byte = next(stream)) != EOF; any = true) {
            inlineCnt += previous == '\n' ? 1 : 0;
            if (!store(length++, byte))
                return false;
            const bool isEscaped = joining != NOTHING && previous == '\\';
            const bool isQuote = byte == '\'' || byte == '"' || byte == '`';
            if (joining == QUOTED && isQuote && !isEscaped && (quote == 0 || quote == byte))
                quote = quote == 0 ? byte : 0;
            previous = isEscaped && byte == '\\' ? 0 : byte;
            if (byte == '\n' && isEscaped && (modes & READ_KEEP_JOINT) == 0)
                length -= 2;
            isEnded = byte == '\n' && !isEscaped && quote == 0;
        }
        if (!any)
            return false;
        if (isEnded && (modes & READ_DROP_NEWLINE) != 0)
            --length;
        buffer[length] = '\0';
        ++virtLineCnt;
        return true;
    }

  private:
    static int next(FILE *stream) {
        for (;;) {
            const int byte = getc(stream);
            if (byte != EOF || ferror(stream) == 0 || errno != EINTR)
                return byte;
            clearerr(stream);
        }
    }

    bool store(uint32_t length, int byte) {
        if (length == capacity) {
            if (growthsLeft == 0) {
                errno = ENOMEM;
                return false;
            }
            growthsLeft -= growthsLeft > 0 ? 1 : 0;
            capacity += 80;
            buffer.resize(length);
            buffer.resize(capacity + 1, '\0');
        }
        buffer[length] = static_cast<char>(byte);
        return true;
    }
};

#endif
