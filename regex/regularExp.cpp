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

MatchState *initSptr(void) {
    MatchState *state = static_cast<MatchState *>(fetchStaticObj(&threadState));
    if (state != nullptr)
        return state;
    state = static_cast<MatchState *>(calloc(1, sizeof(MatchState)));
    if (state == nullptr || storeStaticObj(&threadState, state) == 0)
        return state;
    free(state);
    return nullptr;
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

// One more than the highest group number set that is below the limit.
static int32_t groupCount(const MatchState *state, int32_t limit) {
    int32_t count = 0;
    for (const MatchRecord *record = firstRecord(state); record != endOfRecords(state); ++record)
        if (isSet(record) && record->group >= count && record->group < limit)
            count = record->group + 1;
    return count;
}

// The block's size for that many groups; 0 when it would exceed the address space.
static size_t blockSize(const MatchState *state, int32_t count) {
    uint64_t size = sizeof(CaptureBlock) + static_cast<uint64_t>(count) * sizeof(char *);
    for (const MatchRecord *record = firstRecord(state); record != endOfRecords(state); ++record)
        if (isSet(record))
            size += static_cast<uint64_t>(textLength(record)) + 1;
    return size > SIZE_MAX / 2 ? 0 : static_cast<size_t>(size);
}

// Makes the block of the groups set, null when none is. False when memory is exhausted.
static bool makeBlock(const MatchState *state, CaptureBlock **block) {
    const int32_t count = groupCount(state, INT32_MAX);
    if (count == 0)
        return true;
    const size_t size = blockSize(state, count);
    CaptureBlock *made = size == 0 ? nullptr : static_cast<CaptureBlock *>(malloc(size));
    if (made == nullptr)
        return false;
    made->count = count;
    memset(made->group, 0, static_cast<size_t>(count) * sizeof(char *));
    char *text = reinterpret_cast<char *>(made->group + count);
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
    MatchState *state = initSptr();
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

static const MatchRecord *findGroup(const MatchState *state, int32_t group) {
    for (const MatchRecord *record = endOfRecords(state); record != firstRecord(state);)
        if (isSet(--record) && record->group == group)
            return record;
    return nullptr;
}

char *regEx(const char *pattern, const char *subject, ...) {
    MatchState *state = initSptr();
    char *end = state == nullptr ? nullptr : match(state, pattern, subject);
    if (end == nullptr)
        return nullptr;
    const int32_t count = groupCount(state, CALLER_GROUPS);
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
    const MatchState *state = initSptr();
    return state == nullptr || state->succeeded == 0 ? nullptr : const_cast<char *>(state->start);
}
