#include "catalogue.h"

#include "../buffers/fmtCharBuf.h"
#include "../options/parseln.h"
#include "../options/readInfo.h"
#include "byteClass.h"

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

// Bytes of words, that is, of ASCII's graphic characters all but quotes and backslashes.
struct PlainTable {
    constexpr PlainTable() {
        for (int byte = '!'; byte <= '~'; ++byte)
            isPlain[byte] = byte != '"' && byte != '\\';
    }
    bool isPlain[256] = {};
};
static constexpr PlainTable PLAIN;

// The end of the word that starts there; null when it holds a quote or a backslash.
static char *plainWordEnd(char *at) {
    for (;; ++at) {
        while (PLAIN.isPlain[static_cast<unsigned char>(*at)])
            ++at;
        if (*at == '\0' || isSpaceByte(*at))
            return at;
        if (*at == '"' || *at == '\\')
            return nullptr;
    }
}

// The first words of a line that holds neither quotes nor backslashes among them, as parseln splits
// it; -1, the line as it was, for any other.
static int32_t splitPlain(char *line, char **words) {
    char *ends[DEFINE_MAX_WORDS];
    int32_t count = 0;
    for (char *at = line; count < DEFINE_MAX_WORDS; ++count) {
        while (isSpaceByte(*at))
            ++at;
        if (*at == '\0')
            break;
        words[count] = at;
        ends[count] = at = plainWordEnd(at);
        if (at == nullptr)
            return -1;
    }
    for (int32_t i = 0; i < count; ++i)
        *ends[i] = '\0';
    return count;
}

static int32_t splitLine(char *line, char **words) {
    const int32_t count = splitPlain(line, words);
    return count >= 0 ? count : parseln(line, words, DEFINE_MAX_WORDS);
}

bool readDefines(FILE *stream, DefineHandler handler, void *context) {
    ReadInfo saved;
    resetReadLine(&saved);
    for (char *line; (line = readLine(stream)) != nullptr && ferror(stream) == 0;) {
        char *words[DEFINE_MAX_WORDS];
        if (*line != '#')
            continue;
        const int32_t count = splitLine(line, words);
        if (count > 2 && strcmp(words[0], "#define") == 0)
            handler(context, words, count);
    }
    // Kept: a folder opens like a file and reads as an empty one.
    const bool isWhole = ferror(stream) != 0 ? errno == EISDIR : feof(stream) != 0;
    setReadLine(&saved);
    return isWhole;
}
