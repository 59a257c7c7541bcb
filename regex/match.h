/* What a compiled pattern is made of, and the state of a thread's matcher.

   A program is read from its first byte. MATCH_ANCHOR there: it matches at the subject's start
   only, and the program proper follows. MATCH_CHARACTER there: only places that hold that
   character are tried. Anything else: every place is tried, that of the subject's terminator
   included. Constants only, apart from initSptr; in C++, programs can be put together at compile
   time with the functions of the namespace matchProgram, below. */
#ifndef QUARNEL_REGEX_MATCH_H
#define QUARNEL_REGEX_MATCH_H

#include <stddef.h>
#include <stdint.h>

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The instructions: one byte each, then the operands. Any other byte fails.

   Operands are bytes:
     class     a length (counting itself), then members: a character, or MATCH_RANGE and the lowest
               and highest character of a range. The subject's terminator is in no class and in no
               complement of one. A range cut short by the class's end holds nothing.
     min, max  a count each; max MATCH_NO_LIMIT is no limit, and a max below min counts as min
     slot      the capture record, signed; negative: an automatic one, from
               MATCH_FIRST_AUTOMATIC up in the order of opening
     length    the size in bytes of the sub-program that follows it, its MATCH_SUB_END included:
               the byte gives the low eight bits, the opcode's low two bits the two above
   All but the slot are unsigned. */
enum {
    /* Items: one character of the subject. The low two bits tell how often (MATCH_ZERO_OR_MORE and
       so on); longest first, given back one by one. */
    MATCH_NOT_IN_CLASS = 8, /* class: a character that is not in it */
    MATCH_CHARACTER = 20,   /* character: itself; never the terminator, whatever the operand */
    MATCH_IN_CLASS = 24,    /* class: a character in it */
    MATCH_ANY = 64,         /* any character */

    /* What is added to an item's opcode */
    MATCH_ONCE = 0,
    MATCH_ZERO_OR_MORE = 1,
    MATCH_ONE_OR_MORE = 2,
    MATCH_COUNTED = 3, /* min and max follow the item's own operands */
    MATCH_REPEAT_MASK = 3,

    /* Repeated groups: length, then the sub-program. A repetition is matched once and not entered
       again: going on fails back to where earlier repetitions ended. A repetition that takes
       nothing is the last. */
    MATCH_GROUP_COUNTED = 48,      /* to 51; min and max follow the sub-program */
    MATCH_GROUP_ZERO_OR_MORE = 56, /* to 59 */
    MATCH_GROUP_ONE_OR_MORE = 68,  /* to 71 */
    MATCH_LENGTH_HIGH_MASK = 3,

    /* Captures */
    MATCH_CLOSE = 12, /* slot, group: the record ends here and has that group's number. A negative
                         slot is the automatic record opened last of those still open (nothing
                         happens when none is), and its number is the next automatic one */
    MATCH_OPEN = 60,  /* slot: the record starts here */

    MATCH_SUBJECT_END = 28, /* the end of the subject */
    MATCH_SKIP = 40,        /* one byte, ignored */
    MATCH_SKIP_TOO = 44,    /* the same */

    /* Ends */
    MATCH_SUB_END_REPLACING = 45, /* as MATCH_SUB_END_SAVING, the place saved last dropped first */
    MATCH_SUB_END_SAVING = 46,    /* as MATCH_SUB_END; the place after it is saved with the state */
    MATCH_SUB_END = 47,           /* of a sub-program: success up to here */
    MATCH_END = 52,               /* of the whole program, wherever it stands: success */

    MATCH_ANCHOR = 32, /* as a program's first byte only */

    MATCH_RANGE = 0x10,
    MATCH_NO_LIMIT = 255,
    MATCH_FIRST_AUTOMATIC = 10, /* automatic slots and automatic group numbers */
    MATCH_UNSET = -1
};

/* Steps (instructions, characters run over by a repetition, retries) that one search may take: a
   few seconds. A character looked up in a class is a step more for every four bytes of the class;
   what is known to be hopeless and left out is none.
   Programs of the usual size come nowhere near it, on subjects of millions either. */
#define MATCH_STEP_LIMIT (1U << 28)

/* Zero bytes that make it safe to match a program that may not be well formed: the length of a
   sub-program of 1023 bytes can be the program's last byte; behind the sub-program two counts are
   read and then an instruction. */
#define MATCH_PADDING (1023 + 2 + 1)

/* A stack of one kind of entry, allocated when first pushed on. */
typedef struct MatchStack {
    void *entries;
    uint32_t count;    /* entries in use */
    uint32_t capacity; /* entries allocated */
} MatchStack;

/* A capture record: set when its group is not MATCH_UNSET and its start is known and not after its
 * end. */
typedef struct MatchRecord {
    const char *start; /* in the subject; null: never opened */
    const char *end;   /* null: never closed */
    int32_t group;     /* its number, or MATCH_UNSET */
    int32_t
        enclosing; /* of an automatic record: the slot that was open around it, or MATCH_UNSET */
} MatchRecord;

/* What a retry goes back to. */
typedef struct MatchMark {
    uint32_t undoCount;       /* changes of records that can be undone, since the search began */
    uint32_t placeCount;      /* places saved since the search began, replaced ones included */
    int32_t placeLast;        /* the place saved last of those not replaced, or MATCH_UNSET */
    int32_t automaticOpened;  /* automatic records opened */
    int32_t automaticClosed;  /* automatic group numbers given */
    int32_t automaticCurrent; /* the automatic slot opened last and still open, or MATCH_UNSET */
} MatchMark;

/* A place in the program, saved by opcode 45 or 46. No instruction goes on there: a group goes on
 * after its sub-program, wherever that ended. */
typedef struct MatchPlace {
    const char *place;
    int32_t below; /* the one saved before it and not replaced, or MATCH_UNSET */
} MatchPlace;

/* The calling thread's matcher. */
typedef struct MatchState {
    MatchStack frames;  /* groups whose sub-program is being matched: 5 at first, growing by 5 */
    MatchStack reached; /* where repetitions of groups ended: 50 at first */
    MatchStack choices; /* repetitions that can still give something back: 50 at first */
    MatchStack places;  /* MatchPlace: 10 at first */
    MatchStack records; /* MatchRecord by slot: 10 at first, growing by 10 */
    MatchStack undo;    /* records as they were before each change that may be undone: 50 at first;
                           an anchored program's with nothing to go back to leaves no entry */
    MatchMark now;      /* the counters as they are */
    const char *start;  /* of the last match; null when the last call failed */
    int emptyMatchCounts; /* the program came to its MATCH_END */
    int succeeded;        /* the last call did */
} MatchState;

/* The calling thread's state, made zero-filled on first use; null when memory is exhausted. It
 * belongs to the thread and goes with it. */
QN_API MatchState *initSptr(void);

#ifdef __cplusplus
}

/* Programs as tables that read like patterns:

     constexpr auto NAME = program(ANCHORED, oneOrMore(in(range('a', 'z'), one('_'))), AT_END);
     regularExp(NAME.bytes, subject, nullptr); */
namespace matchProgram {

template<size_t N>
struct Bytes {
    char bytes[N];
};

template<size_t... N>
constexpr auto join(const Bytes<N> &...parts) {
    Bytes<(N + ... + 0)> all{};
    size_t size = 0;
    const auto append = [&](const auto &part) {
        for (const char byte : part.bytes)
            all.bytes[size++] = byte;
    };
    (append(parts), ...);
    return all;
}

constexpr Bytes<1> byte(int value) {
    return {{static_cast<char>(value)}};
}

inline constexpr Bytes<1> ANCHORED = byte(MATCH_ANCHOR);
inline constexpr Bytes<1> AT_END = byte(MATCH_SUBJECT_END);

/* Members of a class: single characters and ranges. */
constexpr Bytes<1> one(char character) {
    return byte(character);
}
constexpr Bytes<3> range(char low, char high) {
    return {{MATCH_RANGE, low, high}};
}
template<size_t... N>
constexpr auto classOperand(const Bytes<N> &...members) {
    constexpr size_t LENGTH = 1 + (N + ... + 0);
    static_assert(LENGTH <= UINT8_MAX, "a class has a length of one byte");
    return join(byte(static_cast<int>(LENGTH)), members...);
}

/* Items, each matching one character. */
inline constexpr Bytes<1> ANY = byte(MATCH_ANY);
constexpr auto character(char value) {
    return join(byte(MATCH_CHARACTER), byte(value));
}
template<size_t... N>
constexpr auto in(const Bytes<N> &...members) {
    return join(byte(MATCH_IN_CLASS), classOperand(members...));
}
template<size_t... N>
constexpr auto notIn(const Bytes<N> &...members) {
    return join(byte(MATCH_NOT_IN_CLASS), classOperand(members...));
}

/* Items repeated. */
template<size_t N>
constexpr Bytes<N> repeated(Bytes<N> item, int how) {
    item.bytes[0] = static_cast<char>(item.bytes[0] + how);
    return item;
}
template<size_t N>
constexpr auto zeroOrMore(const Bytes<N> &item) {
    return repeated(item, MATCH_ZERO_OR_MORE);
}
template<size_t N>
constexpr auto oneOrMore(const Bytes<N> &item) {
    return repeated(item, MATCH_ONE_OR_MORE);
}
template<size_t N>
constexpr auto times(const Bytes<N> &item, int min, int max) {
    return join(repeated(item, MATCH_COUNTED), byte(min), byte(max));
}

/* Each character of a literal, one after the other. */
template<size_t N>
constexpr auto text(const char (&literal)[N]) {
    Bytes<2 * (N - 1)> all{};
    for (size_t i = 0; i + 1 < N; ++i) {
        all.bytes[2 * i] = MATCH_CHARACTER;
        all.bytes[2 * i + 1] = literal[i];
    }
    return all;
}

/* The parts, captured as the group of that number, in the record of that number. */
template<size_t... N>
constexpr auto capture(int group, const Bytes<N> &...parts) {
    return join(byte(MATCH_OPEN), byte(group), parts..., byte(MATCH_CLOSE), byte(group),
                byte(group));
}

/* The parts as a repeated group. */
template<size_t... N>
constexpr auto subProgram(int opcode, const Bytes<N> &...parts) {
    constexpr size_t LENGTH = 1 + (N + ... + 0);
    static_assert(LENGTH < 1024, "a sub-program has a length of ten bits");
    return join(byte(opcode + static_cast<int>(LENGTH / 256)), byte(static_cast<int>(LENGTH % 256)),
                parts..., byte(MATCH_SUB_END));
}
template<size_t... N>
constexpr auto groupZeroOrMore(const Bytes<N> &...parts) {
    return subProgram(MATCH_GROUP_ZERO_OR_MORE, parts...);
}
template<size_t... N>
constexpr auto groupOneOrMore(const Bytes<N> &...parts) {
    return subProgram(MATCH_GROUP_ONE_OR_MORE, parts...);
}
template<size_t... N>
constexpr auto groupTimes(int min, int max, const Bytes<N> &...parts) {
    return join(subProgram(MATCH_GROUP_COUNTED, parts...), byte(min), byte(max));
}

/* A whole program: the parts and its end. */
template<size_t... N>
constexpr auto program(const Bytes<N> &...parts) {
    return join(parts..., byte(MATCH_END));
}

} // namespace matchProgram
#endif

#endif
