#include "catalogue.h"

#include "../buffers/fmtCharBuf.h"
#include "../options/parseln.h"
#include "../options/readInfo.h"

#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

static constexpr const char *DEFAULT_ROOT = "/usr/spool/log";

const char *catalogueRoot(void) {
    const char *root = getenv("LOGROOT");
    return root == nullptr ? DEFAULT_ROOT : root;
}

const char *formatAnew(CharBuffer **buffer, const char *format, ...) {
    if (*buffer == nullptr)
        *buffer = mkCharBuffer(0);
    if (*buffer == nullptr)
        return nullptr;
    (*buffer)->next = (*buffer)->text;
    va_list args;
    va_start(args, format);
    const int32_t length = vfmtCharBuffer(*buffer, format, args);
    va_end(args);
    return length < 0 ? nullptr : (*buffer)->text;
}

int32_t leadingNumber(const char *text, int base, const char **end) {
    char *after;
    const long number = strtol(text, &after, base);
    if (end != nullptr)
        *end = after;
    return number > INT32_MAX   ? INT32_MAX
           : number < INT32_MIN ? INT32_MIN
                                : static_cast<int32_t>(number);
}

bool readDefines(FILE *stream, DefineHandler handler, void *context) {
    ReadInfo saved;
    resetReadLine(&saved);
    for (char *line; (line = readLine(stream)) != nullptr && ferror(stream) == 0;) {
        char *words[DEFINE_MAX_WORDS];
        if (*line != '#')
            continue;
        const int32_t count = parseln(line, words, DEFINE_MAX_WORDS);
        if (count > 2 && strcmp(words[0], "#define") == 0)
            handler(context, words, count);
    }
    // Kept: a folder opens like a file and reads as an empty one.
    const bool isWhole = ferror(stream) != 0 ? errno == EISDIR : feof(stream) != 0;
    setReadLine(&saved);
    return isWhole;
}
