#include "parseln.h"

#include <ctype.h>
#include <string.h>

// Characters are removed by copying the line onto itself: what is written never gets ahead of what
// is read.
struct Cursor {
    const char *from; // the next character to look at
    char *to;         // where the next character kept goes
};

static bool isBlank(char ch) {
    return isspace(static_cast<unsigned char>(ch)) != 0;
}

static void keep(Cursor *cursor) {
    *cursor->to++ = *cursor->from++;
}

static void skipBlanks(Cursor *cursor) {
    while (isBlank(*cursor->from))
        keep(cursor);
}

// From behind the opening quote to behind the closing one, or to the end.
static void scanQuoted(Cursor *cursor) {
    while (*cursor->from != '\0' && *cursor->from != '"') {
        if (*cursor->from == '\\' && *++cursor->from == '\0')
            return;
        keep(cursor);
    }
    if (*cursor->from == '"')
        ++cursor->from;
}

static void scanWord(Cursor *cursor) {
    while (*cursor->from != '\0') {
        const bool escaped = *cursor->from == '\\' && *++cursor->from != '\0';
        if (*cursor->from == '\0')
            return;
        if (!escaped && *cursor->from == '"') {
            ++cursor->from;
            scanQuoted(cursor);
        } else if (escaped ? *cursor->from == '\n' : isBlank(*cursor->from)) {
            ++cursor->from;
            *cursor->to++ = '\0';
            return;
        } else {
            keep(cursor);
        }
    }
}

int32_t parseln(char *line, char **words, int32_t maximum) {
    if (line == nullptr || words == nullptr || maximum < 1)
        return 0;
    Cursor cursor = {line, line};
    int32_t count = 0;
    skipBlanks(&cursor);
    while (count < maximum && *cursor.from != '\0') {
        words[count++] = cursor.to;
        scanWord(&cursor);
        skipBlanks(&cursor);
    }
    memmove(cursor.to, cursor.from, strlen(cursor.from) + 1);
    return count;
}
