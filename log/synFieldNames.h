/* The parts that a template's fields are made of, for the translator and the checker of
   synLogFlds.h. Internal, C++ only. */
#ifndef QUARNEL_LOG_SYNFIELDNAMES_H
#define QUARNEL_LOG_SYNFIELDNAMES_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus

enum class SynFieldKind {
    UNKNOWN, // no name of the table
    NONE,    // a name without a value
    INDEX,
    PRIORITY,
    TIME,
    PROGRAM,
    FILE,
    LINE,
    FIELD,
    MESSAGE,
    RECORD,
    SYMBOL,
    CLASS,
    CLASS_INDEX,
    KEY,
};

/* A field name at an "@". */
struct SynField {
    SynFieldKind kind;
    const char *end; /* behind the closing "@"; null when there is none */
};

SynField findSynField(const char *text);

/* A part of "@time@". */
struct SynTimePart {
    const char *name;
    int (*value)(const struct tm &tm);
};

/* The part of that name, given by its first and past its last character; null for others. */
const SynTimePart *findSynTimePart(const char *name, const char *end);

/* Behind the letters, digits and "_" that start the text. */
const char *skipName(const char *text);

/* Reads an argument's number, which starts with a digit: decimal, octal behind "0", hexadecimal
 * behind "0x". What does not fit is INT32_MAX. *end is behind the digits. */
int32_t readArgumentNumber(const char *text, const char **end);

#define NO_MEMORY_FOR_NAME (-2)

/* The position of the message's argument of that name, given by its first and past its last
 * character; -1 for an unknown one, NO_MEMORY_FOR_NAME where it could not be looked up. */
int32_t findArgumentName(int32_t index, const char *name, const char *end);

#endif

#endif
