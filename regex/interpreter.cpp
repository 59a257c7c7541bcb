/* A backtracking interpreter that keeps what it may have to go back to on stacks of its own.

   Choices: a repetition of an item, or a group left behind, is one entry however long it ran; it
   holds where going on can still be tried. A retry takes the newest choice and puts the records
   back by undoing the changes made since.

   Frames: a group whose sub-program is being matched. Its sub-program starts on a fresh base of
   choices, and they are dropped when it succeeds (a repetition is not entered again), so only the
   places where repetitions ended outlive it.

   Whether going on from an instruction at some place fails depends on nothing else, captures
   included. Once a search has been through many retries, those failures are noted, a bit for each
   place of the subject, and not tried again: a few repetitions in a row would otherwise take time
   in the order of a power of the subject's length.

   Covered by tests/regex: opcode by opcode in regularExp_test, against a slow recursive matcher
   and regexec in reference_test. */
#include "interpreter.h"

#include <stdlib.h>
#include <string.h>

using Byte = unsigned char;

static constexpr uint32_t FRAME_STEP = 5;
static constexpr uint32_t PLACE_FIRST = 10;
static constexpr uint32_t RECORD_STEP = 10;
static constexpr uint32_t STACK_STEP = 50;

static constexpr uint32_t CLASS_BYTES_A_STEP = 4;

// Noting failures starts after this many: short searches never pay for it.
static constexpr uint32_t RETRIES_BEFORE_NOTES = 4096;
static constexpr size_t NOTES_MEMORY_LIMIT = 64U << 20;

static constexpr MatchMark NOTHING_YET = {0, 0, MATCH_UNSET, 0, 0, MATCH_UNSET};
static constexpr MatchRecord UNSET_RECORD = {nullptr, nullptr, MATCH_UNSET, MATCH_UNSET};

struct Repeat {
    uint32_t min;
    uint32_t max;
    bool unlimited; // max does not count
};

// A single-character instruction, taken apart.
struct Item {
    Byte kind;
    const Byte *operand;
    Repeat repeat;
    const Byte *rest; // the instruction after it
};

struct Frame {
    const Byte *code;       // the group's instruction
    const Byte *sub;        // its sub-program
    const Byte *subEnd;     // just past it
    const Byte *rest;       // where the program goes on after the group
    const Byte *outerLimit; // end of the sub-program around the group; null: the program itself
    Repeat repeat;
    uint32_t done;        // repetitions matched
    uint32_t choiceBase;  // choices below are the enclosing program's
    uint32_t reachedBase; // places below are of other groups
    uint32_t reachedTop;  // places above were left by groups inside the repetition under way
    const char *start;    // of the repetition under way
    MatchMark mark;       // as it began
};

// A place where a repetition of a group ended, and the counters there.
struct Reached {
    const char *at;
    MatchMark mark;
};

// Places where the rest of the program can be tried: those of an item reach down from the last
// one to `lowest`; those of a group lie on the stack of reached places from reachedBase up.
struct Choice {
    const Byte *code;   // the repetition's instruction
    const Byte *rest;   // where the program goes on
    const char *tried;  // the place tried last; null before the first
    const char *lowest; // null: a group
    size_t left;        // of an item: places from `lowest` up not tried yet
    uint32_t reachedBase;
    MatchMark mark; // of an item
};

struct Undo {
    uint32_t slot;
    MatchRecord record;
};

struct Run {
    MatchState *state;
    const Byte *program;
    const char *subject;
    const Byte *code;  // the next instruction
    const Byte *limit; // end of the sub-program it stands in; null: the program itself
    const char *at;    // place in the subject
    uint32_t steps;
    uint32_t retries;
    size_t subjectSize; // with the terminator; 0 until wanted
    Byte **notes;       // by offset of the instruction: a bit for each place that failed, or null
    size_t noteCount;
    size_t noteMemory;
};

enum class Step { GO_ON, FAIL, SUCCESS, EXHAUSTED };

// ---- stacks

void *roomOnMatchStack(MatchStack *stack, size_t entrySize, uint32_t step) {
    if (stack->count == stack->capacity) {
        const uint32_t half = stack->capacity / 2 / step * step;
        const uint32_t growth = half > step ? half : step;
        if (growth > UINT32_MAX - stack->capacity ||
            stack->capacity + growth > SIZE_MAX / 2 / entrySize)
            return nullptr;
        void *entries = realloc(stack->entries, (stack->capacity + growth) * entrySize);
        if (entries == nullptr)
            return nullptr;
        stack->entries = entries;
        stack->capacity += growth;
    }
    return static_cast<char *>(stack->entries) + stack->count * entrySize;
}

template<class Entry>
static bool push(MatchStack &stack, const Entry &entry, uint32_t step) {
    void *room = roomOnMatchStack(&stack, sizeof(Entry), step);
    if (room == nullptr)
        return false;
    *static_cast<Entry *>(room) = entry;
    ++stack.count;
    return true;
}

template<class Entry>
static Entry &entryAt(const MatchStack &stack, uint32_t index) {
    return static_cast<Entry *>(stack.entries)[index];
}

template<class Entry>
static Entry &topOf(const MatchStack &stack) {
    return entryAt<Entry>(stack, stack.count - 1);
}

static void restore(MatchState *state, const MatchMark &mark) {
    while (state->undo.count > mark.undoCount) {
        const Undo &undo = topOf<Undo>(state->undo);
        entryAt<MatchRecord>(state->records, undo.slot) = undo.record;
        --state->undo.count;
    }
    state->places.count = mark.placeCount;
    state->now = mark;
}

// ---- failures noted

static bool hasFailed(const Run &run, const Byte *code, const char *at) {
    const size_t offset = static_cast<size_t>(code - run.program);
    if (offset >= run.noteCount || run.notes[offset] == nullptr)
        return false;
    const size_t place = static_cast<size_t>(at - run.subject);
    return (run.notes[offset][place / 8] >> place % 8 & 1) != 0;
}

static bool coverOffset(Run &run, size_t offset) {
    if (offset < run.noteCount)
        return true;
    const size_t count = (offset + 1) * 2;
    Byte **notes = static_cast<Byte **>(realloc(run.notes, count * sizeof(Byte *)));
    if (notes == nullptr)
        return false;
    memset(notes + run.noteCount, 0, (count - run.noteCount) * sizeof(Byte *));
    run.notes = notes;
    run.noteCount = count;
    return true;
}

// Without memory for it a failure is merely not noted.
static void noteFailure(Run &run, const Byte *code, const char *at) {
    if (++run.retries < RETRIES_BEFORE_NOTES)
        return;
    if (run.subjectSize == 0)
        run.subjectSize = strlen(run.subject) + 1;
    const size_t offset = static_cast<size_t>(code - run.program);
    if (!coverOffset(run, offset))
        return;
    if (run.notes[offset] == nullptr) {
        const size_t size = run.subjectSize / 8 + 1;
        if (run.noteMemory + size > NOTES_MEMORY_LIMIT)
            return;
        run.notes[offset] = static_cast<Byte *>(calloc(1, size));
        if (run.notes[offset] == nullptr)
            return;
        run.noteMemory += size;
    }
    const size_t place = static_cast<size_t>(at - run.subject);
    run.notes[offset][place / 8] |= static_cast<Byte>(1U << place % 8);
}

static void freeNotes(Run &run) {
    for (size_t i = 0; i < run.noteCount; ++i)
        free(run.notes[i]);
    free(run.notes);
}

// ---- instructions taken apart

// Whether the bytes from that one on belong to the sub-program being matched.
static bool within(const Run &run, const Byte *from, ptrdiff_t count) {
    return run.limit == nullptr || run.limit - from >= count;
}

static Repeat countedRepeat(const Byte *pair) {
    const uint32_t max = pair[1] < pair[0] ? pair[0] : pair[1];
    return {pair[0], max, pair[1] == MATCH_NO_LIMIT};
}

// Sets the operand's size. False when it would leave the sub-program.
static bool operandSize(const Run &run, Byte kind, const Byte *operand, ptrdiff_t *size) {
    if (kind == MATCH_ANY)
        *size = 0;
    else if (kind == MATCH_CHARACTER)
        *size = 1;
    else if (within(run, operand, 1))
        *size = *operand;
    else
        return false;
    return within(run, operand, *size);
}

static bool decodeItem(const Run &run, Item *item) {
    static constexpr Repeat REPEATS[] = {{1, 1, false}, {0, 0, true}, {1, 1, true}};
    const int how = *run.code & MATCH_REPEAT_MASK;
    item->kind = static_cast<Byte>(*run.code - how);
    item->operand = run.code + 1;
    ptrdiff_t size;
    if (!operandSize(run, item->kind, item->operand, &size))
        return false;
    item->rest = item->operand + size;
    if (how != MATCH_COUNTED) {
        item->repeat = REPEATS[how];
        return true;
    }
    if (!within(run, item->rest, 2))
        return false;
    item->repeat = countedRepeat(item->rest);
    item->rest += 2;
    return true;
}

static bool decodeGroup(const Run &run, Frame *frame) {
    const Byte opcode = *run.code;
    if (!within(run, run.code, 2))
        return false;
    frame->code = run.code;
    frame->sub = run.code + 2;
    const ptrdiff_t length = (opcode & MATCH_LENGTH_HIGH_MASK) << 8 | run.code[1];
    const int kind = opcode & ~MATCH_LENGTH_HIGH_MASK;
    const ptrdiff_t counts = kind == MATCH_GROUP_COUNTED ? 2 : 0;
    if (!within(run, frame->sub, length + counts))
        return false;
    frame->subEnd = frame->sub + length;
    frame->rest = frame->subEnd + counts;
    if (kind == MATCH_GROUP_COUNTED)
        frame->repeat = countedRepeat(frame->subEnd);
    else
        frame->repeat = {kind == MATCH_GROUP_ONE_OR_MORE ? 1U : 0U, 0, true};
    frame->outerLimit = run.limit;
    return true;
}

// ---- single characters

static bool inClass(const Byte *operand, Byte character) {
    const Byte *end = operand + *operand;
    for (const Byte *member = operand + 1; member < end; ++member) {
        if (*member != MATCH_RANGE) {
            if (*member == character)
                return true;
            continue;
        }
        if (end - member < 3)
            return false;
        if (member[1] <= character && character <= member[2])
            return true;
        member += 2;
    }
    return false;
}

static bool matches(const Item &item, char at) {
    const Byte character = static_cast<Byte>(at);
    if (character == '\0')
        return false;
    switch (item.kind) {
    case MATCH_ANY:
        return true;
    case MATCH_CHARACTER:
        return character == *item.operand;
    default:
        return inClass(item.operand, character) == (item.kind == MATCH_IN_CLASS);
    }
}

// ---- choices

// Takes the next place off the choice; false when it is used up.
static bool nextPlace(Run &run, Choice &choice, Reached *place) {
    MatchStack &reached = run.state->reached;
    if (choice.lowest != nullptr) {
        if (choice.left == 0)
            return false;
        *place = {choice.lowest + --choice.left, choice.mark};
        return true;
    }
    if (reached.count == choice.reachedBase)
        return false;
    *place = topOf<Reached>(reached);
    --reached.count;
    return true;
}

// Goes on at the next place of the choice that is not known to fail; false, the choice dropped,
// when there is none.
static bool tryNext(Run &run) {
    MatchState *state = run.state;
    Choice &choice = topOf<Choice>(state->choices);
    if (choice.tried != nullptr)
        noteFailure(run, choice.code, choice.tried);
    Reached place;
    do {
        if (!nextPlace(run, choice, &place)) {
            state->reached.count = choice.reachedBase;
            --state->choices.count;
            return false;
        }
        ++run.steps;
    } while (hasFailed(run, choice.code, place.at));
    choice.tried = place.at;
    restore(state, place.mark);
    run.at = place.at;
    run.code = choice.rest;
    return true;
}

static Step addChoice(Run &run, const Choice &choice) {
    if (!push(run.state->choices, choice, STACK_STEP))
        return Step::EXHAUSTED;
    return tryNext(run) ? Step::GO_ON : Step::FAIL;
}

// ---- items

// The end of the longest run from that place, of at most that many characters unless unlimited. It
// ends early where going on with the repetition is known to fail: all that lies beyond is too.
static const char *endOfRun(const Run &run, const Item &item, const char *from, uint32_t most) {
    const char *at = from;
    if (item.repeat.unlimited) {
        while (matches(item, *at) && !hasFailed(run, run.code, at + 1))
            ++at;
        return at;
    }
    for (uint32_t taken = 0; taken < most && matches(item, *at); ++taken)
        ++at;
    return at;
}

// So many characters were taken. A class costs by its length, for the character that it refuses
// too, or a search of long ones would take hours within the limit; the short ones of usual programs
// cost hardly more than any other item.
static void countSteps(Run &run, const Item &item, size_t characters) {
    const bool isClass = item.kind == MATCH_IN_CLASS || item.kind == MATCH_NOT_IN_CLASS;
    const uint32_t each = isClass ? 1 + *item.operand / CLASS_BYTES_A_STEP : 1;
    const size_t refused = isClass ? 1 : 0;
    run.steps += characters < MATCH_STEP_LIMIT / each - refused
                     ? static_cast<uint32_t>(characters + refused) * each
                     : MATCH_STEP_LIMIT;
}

static bool matchMinimum(Run &run, const Item &item) {
    uint32_t taken = 0;
    while (taken < item.repeat.min && matches(item, run.at[taken]))
        ++taken;
    run.at += taken;
    countSteps(run, item, taken);
    return taken == item.repeat.min;
}

static Step matchItem(Run &run) {
    Item item;
    if (!decodeItem(run, &item) || !matchMinimum(run, item))
        return Step::FAIL;
    const char *lowest = run.at;
    if (item.repeat.unlimited && hasFailed(run, run.code, lowest))
        return Step::FAIL;
    const char *end = endOfRun(run, item, lowest, item.repeat.max - item.repeat.min);
    const size_t length = static_cast<size_t>(end - lowest);
    countSteps(run, item, length);
    if (length > 0)
        return addChoice(run, {run.code, item.rest, nullptr, lowest, length + 1,
                               run.state->reached.count, run.state->now});
    run.code = item.rest;
    return Step::GO_ON;
}

// ---- groups

// Goes on after the group, from the last place reached.
static Step leaveGroup(Run &run) {
    const Frame frame = topOf<Frame>(run.state->frames);
    --run.state->frames.count;
    run.limit = frame.outerLimit;
    return addChoice(run,
                     {frame.code, frame.rest, nullptr, nullptr, 0, frame.reachedBase, NOTHING_YET});
}

// Begins the next repetition, or leaves the group when this was the last.
static Step goOnWithGroup(Run &run, bool tookNothing) {
    MatchState *state = run.state;
    Frame &frame = topOf<Frame>(state->frames);
    const Repeat &repeat = frame.repeat;
    // What is still mandatory after a repetition that took nothing would take nothing either.
    if (frame.done >= repeat.min || tookNothing) {
        const bool hopeless = repeat.unlimited && hasFailed(run, frame.code, run.at);
        if (!hopeless && !push(state->reached, Reached{run.at, state->now}, STACK_STEP))
            return Step::EXHAUSTED;
        if (hopeless || tookNothing || (!repeat.unlimited && frame.done >= repeat.max))
            return leaveGroup(run);
    }
    frame.reachedTop = state->reached.count;
    frame.start = run.at;
    frame.mark = state->now;
    run.code = frame.sub;
    run.limit = frame.subEnd;
    return Step::GO_ON;
}

static Step enterGroup(Run &run) {
    MatchState *state = run.state;
    Frame frame = {};
    if (!decodeGroup(run, &frame))
        return Step::FAIL;
    frame.choiceBase = state->choices.count;
    frame.reachedBase = state->reached.count;
    if (!push(state->frames, frame, FRAME_STEP))
        return Step::EXHAUSTED;
    return goOnWithGroup(run, false);
}

static Step endSubProgram(Run &run) {
    MatchState *state = run.state;
    if (state->frames.count == 0)
        return Step::SUCCESS;
    Frame &frame = topOf<Frame>(state->frames);
    state->choices.count = frame.choiceBase;
    state->reached.count = frame.reachedTop;
    ++frame.done;
    return goOnWithGroup(run, run.at == frame.start);
}

// ---- captures

// The record of that slot for a change, its present value kept for a retry; null when memory is
// exhausted.
static MatchRecord *recordToChange(MatchState *state, uint32_t slot) {
    while (state->records.count <= slot)
        if (!push(state->records, UNSET_RECORD, RECORD_STEP))
            return nullptr;
    MatchRecord *record = &entryAt<MatchRecord>(state->records, slot);
    if (!push(state->undo, Undo{slot, *record}, STACK_STEP))
        return nullptr;
    ++state->now.undoCount;
    return record;
}

static Step openRecord(Run &run) {
    if (!within(run, run.code, 2))
        return Step::FAIL;
    MatchMark &now = run.state->now;
    const int8_t slot = static_cast<int8_t>(run.code[1]);
    const int32_t automatic = MATCH_FIRST_AUTOMATIC + now.automaticOpened;
    MatchRecord *record =
        recordToChange(run.state, static_cast<uint32_t>(slot < 0 ? automatic : slot));
    if (record == nullptr)
        return Step::EXHAUSTED;
    record->start = run.at;
    if (slot < 0) {
        record->enclosing = now.automaticCurrent;
        now.automaticCurrent = automatic;
        ++now.automaticOpened;
    }
    run.code += 2;
    return Step::GO_ON;
}

static Step closeRecord(Run &run) {
    if (!within(run, run.code, 3))
        return Step::FAIL;
    MatchMark &now = run.state->now;
    const int8_t operand = static_cast<int8_t>(run.code[1]);
    const int32_t slot = operand < 0 ? now.automaticCurrent : operand;
    const int32_t group = operand < 0 ? MATCH_FIRST_AUTOMATIC + now.automaticClosed : run.code[2];
    run.code += 3;
    if (slot == MATCH_UNSET)
        return Step::GO_ON;
    MatchRecord *record = recordToChange(run.state, static_cast<uint32_t>(slot));
    if (record == nullptr)
        return Step::EXHAUSTED;
    record->end = run.at;
    record->group = group;
    if (operand < 0) {
        now.automaticCurrent = record->enclosing;
        ++now.automaticClosed;
    }
    return Step::GO_ON;
}

static Step savePlace(Run &run) {
    MatchState *state = run.state;
    int32_t below = state->now.placeLast;
    if (*run.code == MATCH_SUB_END_REPLACING && below != MATCH_UNSET)
        below = entryAt<MatchPlace>(state->places, static_cast<uint32_t>(below)).below;
    const MatchPlace place = {reinterpret_cast<const char *>(run.code + 1), below};
    if (!push(state->places, place, state->places.capacity == 0 ? PLACE_FIRST : STACK_STEP))
        return Step::EXHAUSTED;
    state->now.placeLast = static_cast<int32_t>(state->now.placeCount++);
    return endSubProgram(run);
}

// ---- the program

static Step execute(Run &run) {
    if (!within(run, run.code, 1))
        return Step::FAIL;
    const Byte opcode = *run.code;
    switch (opcode) {
    case MATCH_OPEN:
        return openRecord(run);
    case MATCH_CLOSE:
        return closeRecord(run);
    case MATCH_SUBJECT_END:
        ++run.code;
        return *run.at == '\0' ? Step::GO_ON : Step::FAIL;
    case MATCH_SKIP:
    case MATCH_SKIP_TOO:
        run.code += 2;
        return Step::GO_ON;
    case MATCH_SUB_END_REPLACING:
    case MATCH_SUB_END_SAVING:
        return savePlace(run);
    case MATCH_SUB_END:
        return endSubProgram(run);
    case MATCH_END:
        run.state->emptyMatchCounts = 1;
        return Step::SUCCESS;
    default:
        break;
    }
    switch (opcode & ~MATCH_REPEAT_MASK) {
    case MATCH_NOT_IN_CLASS:
    case MATCH_CHARACTER:
    case MATCH_IN_CLASS:
    case MATCH_ANY:
        return matchItem(run);
    case MATCH_GROUP_COUNTED:
    case MATCH_GROUP_ZERO_OR_MORE:
    case MATCH_GROUP_ONE_OR_MORE:
        return enterGroup(run);
    default:
        return Step::FAIL;
    }
}

// Goes back to the newest choice of the sub-program being matched. When it has none left, its
// repetition failed: the group goes on from the places reached before, and fails if there are none.
static Step retry(Run &run) {
    MatchState *state = run.state;
    for (;;) {
        Frame *frame = state->frames.count == 0 ? nullptr : &topOf<Frame>(state->frames);
        if (state->choices.count > (frame == nullptr ? 0 : frame->choiceBase)) {
            if (tryNext(run))
                return Step::GO_ON;
            continue;
        }
        if (frame == nullptr)
            return Step::FAIL;
        restore(state, frame->mark);
        state->reached.count = frame->reachedTop;
        const Step step = leaveGroup(run);
        if (step != Step::FAIL)
            return step;
    }
}

// Matches the program at one place of the subject.
static Step matchAt(Run &run, const Byte *program, const char *start) {
    MatchState *state = run.state;
    state->frames.count = state->choices.count = state->reached.count = 0;
    restore(state, NOTHING_YET);
    run.code = program;
    run.limit = nullptr;
    run.at = start;
    for (;;) {
        if (++run.steps > MATCH_STEP_LIMIT)
            return Step::EXHAUSTED;
        Step step = execute(run);
        if (step == Step::FAIL)
            step = retry(run);
        if (step != Step::GO_ON)
            return step;
    }
}

// The next place at or after that one where the program may match; null when there is none.
static const char *nextStart(const Byte *program, const char *at) {
    return *program == MATCH_CHARACTER ? strchr(at, program[1]) : at;
}

static Step search(Run &run, const char **start) {
    if (*run.program == MATCH_ANCHOR) {
        *start = run.subject;
        return matchAt(run, run.program + 1, run.subject);
    }
    for (*start = nextStart(run.program, run.subject); *start != nullptr;
         *start = nextStart(run.program, *start + 1)) {
        const Step step = matchAt(run, run.program, *start);
        if (step != Step::FAIL || **start == '\0')
            return step;
    }
    return Step::FAIL;
}

static void unsetRecords(MatchState *state) {
    state->records.count = state->undo.count = state->places.count = 0;
    state->now = NOTHING_YET;
}

const char *searchSubject(MatchState *state, const char *pattern, const char *subject,
                          const char **start) {
    Run run = {};
    run.state = state;
    run.program = reinterpret_cast<const Byte *>(pattern);
    run.subject = subject;
    state->emptyMatchCounts = 0;
    unsetRecords(state);
    const Step step = search(run, start);
    freeNotes(run);
    if (step == Step::SUCCESS && (run.at != subject || state->emptyMatchCounts != 0))
        return run.at;
    unsetRecords(state);
    return nullptr;
}
