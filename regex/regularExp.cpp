#include "regularExp.h"

#include "interpreter.h"

#include "../core/staticObj.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

static_assert(sizeof(void *) != 4 || offsetof(CaptureBlock, group) == 4);

static constexpr int32_t CALLER_GROUPS = 10;

static void releaseState(void *value) {
    MatchState *state = static_cast<MatchState *>(value);
    MatchStack *const stacks[] = {&state->frames, &state->reached, &state->choices,
                                  &state->places, &state->records, &state->undo};
    for (MatchStack *stack : stacks)
        free(stack->entries);
    free(state);
}

static StaticObj threadState = {releaseState, nullptr, PTHREAD_MUTEX_INITIALIZER, 0, 0};

// Set with the first state that is stored: the key exists from then on, and a thread's state is
// found without the descriptor's guard.
static int keyExists;

static MatchState *newState() {
    MatchState *state = static_cast<MatchState *>(calloc(1, sizeof(MatchState)));
    if (state == nullptr || storeStaticObj(&threadState, state) != 0) {
        free(state);
        return nullptr;
    }
    __atomic_store_n(&keyExists, 1, __ATOMIC_RELEASE);
    return state;
}

static inline MatchState *ownState() {
    void *state = __atomic_load_n(&keyExists, __ATOMIC_ACQUIRE) != 0
                      ? pthread_getspecific(threadState.key)
                      : nullptr;
    return state != nullptr ? static_cast<MatchState *>(state) : newState();
}

MatchState *initSptr(void) {
    return ownState();
}

static const MatchRecord *firstRecord(const MatchState *state) {
    return static_cast<const MatchRecord *>(state->records.entries);
}

static const MatchRecord *endOfRecords(const MatchState *state) {
    return firstRecord(state) + state->records.count;
}

static bool isSet(const MatchRecord *record) {
    return record->group != MATCH_UNSET && record->start != nullptr && record->start <= record->end;
}

static size_t textLength(const MatchRecord *record) {
    return static_cast<size_t>(record->end - record->start);
}

static void copyText(char *target, const MatchRecord *record) {
    memcpy(target, record->start, textLength(record));
    target[textLength(record)] = '\0';
}

// What a block must hold.
struct BlockShape {
    int32_t groups;     // one more than the highest group number set
    uint64_t textBytes; // of all records set, terminated
};

static BlockShape shapeOfBlock(const MatchState *state) {
    BlockShape shape = {0, 0};
    for (const MatchRecord *record = firstRecord(state); record != endOfRecords(state); ++record)
        if (isSet(record)) {
            shape.textBytes += textLength(record) + 1;
            if (record->group >= shape.groups)
                shape.groups = record->group + 1;
        }
    return shape;
}

// Makes the block of the groups set, null when none is. False when memory is exhausted.
static bool makeBlock(const MatchState *state, CaptureBlock **block) {
    const BlockShape shape = shapeOfBlock(state);
    if (shape.groups == 0)
        return true;
    const size_t pointers = static_cast<size_t>(shape.groups) * sizeof(char *);
    const uint64_t size = sizeof(CaptureBlock) + pointers + shape.textBytes;
    if (size > SIZE_MAX / 2) // more than the address space
        return false;
    CaptureBlock *made = static_cast<CaptureBlock *>(malloc(static_cast<size_t>(size)));
    if (made == nullptr)
        return false;
    made->count = shape.groups;
    memset(made->group, 0, pointers);
    char *text = reinterpret_cast<char *>(made->group + shape.groups);
    for (const MatchRecord *record = firstRecord(state); record != endOfRecords(state); ++record)
        if (isSet(record)) {
            copyText(text, record);
            made->group[record->group] = text;
            text += textLength(record) + 1;
        }
    *block = made;
    return true;
}

// What both operations do but for handing out the groups.
static char *match(MatchState *state, const char *pattern, const char *subject) {
    state->succeeded = 0;
    state->start = nullptr;
    if (pattern == nullptr || subject == nullptr)
        return nullptr;
    const char *start;
    const char *end = searchSubject(state, pattern, subject, &start);
    if (end == nullptr)
        return nullptr;
    state->succeeded = 1;
    state->start = start;
    return const_cast<char *>(end);
}

char *regularExp(const char *pattern, const char *subject, CaptureBlock **block) {
    if (block != nullptr)
        *block = nullptr;
    MatchState *state = ownState();
    if (state == nullptr)
        return nullptr;
    char *end = match(state, pattern, subject);
    if (end != nullptr && block != nullptr && !makeBlock(state, block)) {
        state->succeeded = 0;
        state->start = nullptr;
        return nullptr;
    }
    return end;
}

// One more than the highest group number set of those that the caller may have a buffer for.
static int32_t callerGroups(const MatchState *state) {
    int32_t count = 0;
    for (const MatchRecord *record = firstRecord(state); record != endOfRecords(state); ++record)
        if (isSet(record) && record->group >= count && record->group < CALLER_GROUPS)
            count = record->group + 1;
    return count;
}

static const MatchRecord *findGroup(const MatchState *state, int32_t group) {
    for (const MatchRecord *record = endOfRecords(state); record != firstRecord(state);)
        if (isSet(--record) && record->group == group)
            return record;
    return nullptr;
}

char *regEx(const char *pattern, const char *subject, ...) {
    MatchState *state = ownState();
    char *end = state == nullptr ? nullptr : match(state, pattern, subject);
    if (end == nullptr)
        return nullptr;
    const int32_t count = callerGroups(state);
    va_list args;
    va_start(args, subject);
    for (int32_t group = 0; group < count; ++group) {
        char *buffer = va_arg(args, char *);
        const MatchRecord *record = findGroup(state, group);
        if (buffer != nullptr && record != nullptr)
            copyText(buffer, record);
    }
    va_end(args);
    return end;
}

char *startPatMatch(void) {
    const MatchState *state = ownState();
    return state == nullptr || state->succeeded == 0 ? nullptr : const_cast<char *>(state->start);
}
