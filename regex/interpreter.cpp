/* A backtracking interpreter that keeps what it may have to go back to on stacks of its own.

   Choices: a repetition of an item, or a group left behind, is one entry however long it ran; it
   holds where going on can still be tried. A retry takes the newest choice and puts the records
   back by undoing the changes made since.

   Frames: a group whose sub-program is being matched. Its sub-program starts on a fresh base of
   choices, and they are dropped when it succeeds (a repetition is not entered again), so only the
   places where repetitions ended outlive it.

   Cost: a character of a run costs a look into a set (items.cpp). Of what an item gives back only
   the places are tried where the instruction behind it can match (ahead.cpp), and what has failed
   is not tried again once a search has been through many failures (failureNotes.cpp). A short run
   that need not be given back, and a record that nothing can put back, leave no entry at all.

   Covered by tests/regex: opcode by opcode in regularExp_test, against a slow recursive matcher
   and regexec in reference_test. */
#include "interpreter.h"

#include "ahead.h"
#include "failureNotes.h"
#include "items.h"

#include <stdlib.h>
#include <string.h>

static constexpr uint32_t FRAME_STEP = 5;
static constexpr uint32_t PLACE_FIRST = 10;
static constexpr uint32_t RECORD_STEP = 10;
static constexpr uint32_t STACK_STEP = 50;

static constexpr uint32_t CLASS_BYTES_A_STEP = 4;

// A run up to this long, taken again by each try that comes to it, costs no more than as many
// single items; of a longer one the failures must be noted, so it is a choice always. So is each
// in a search that has gone on for this many steps: in the long run noting is cheaper.
static constexpr ptrdiff_t SHORT_RUN = 16;
static constexpr uint32_t STEPS_OF_SHORT_SEARCH = 1U << 16;

static constexpr MatchMark NOTHING_YET = {0, 0, MATCH_UNSET, 0, 0, MATCH_UNSET};
static constexpr MatchRecord UNSET_RECORD = {nullptr, nullptr, MATCH_UNSET, MATCH_UNSET};

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
    const Byte *ahead;  // of an item: what decides there by one character; null: nothing
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
    const Byte *code;   // the next instruction
    const Byte *limit;  // end of the sub-program it stands in; null: the program itself
    const char *at;     // place in the subject
    uint32_t stepsLeft; // of MATCH_STEP_LIMIT
    bool hasMoreStarts; // the program is not anchored
    FailureNotes notes;
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
static inline bool push(MatchStack &stack, const Entry &entry, uint32_t step) {
    if (stack.count == stack.capacity && roomOnMatchStack(&stack, sizeof(Entry), step) == nullptr)
        return false;
    static_cast<Entry *>(stack.entries)[stack.count++] = entry;
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

static void unsetRecords(MatchState *state) {
    state->records.count = state->undo.count = state->places.count = 0;
    state->now = NOTHING_YET;
}

// ---- groups taken apart

static bool decodeGroup(const Run &run, Frame *frame) {
    const Byte opcode = *run.code;
    if (!within(run.limit, run.code, 2))
        return false;
    frame->code = run.code;
    frame->sub = run.code + 2;
    const ptrdiff_t length = (opcode & MATCH_LENGTH_HIGH_MASK) << 8 | run.code[1];
    const int kind = opcode & ~MATCH_LENGTH_HIGH_MASK;
    const ptrdiff_t counts = kind == MATCH_GROUP_COUNTED ? 2 : 0;
    if (!within(run.limit, frame->sub, length + counts))
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

// ---- steps

static void spend(Run &run, uint64_t steps) {
    run.stepsLeft -= steps < run.stepsLeft ? static_cast<uint32_t>(steps) : run.stepsLeft;
}

// A class costs by its length, or a search of long ones would take hours within the limit; the
// short ones of usual programs cost hardly more than any other item.
static uint64_t stepsOfClass(const Byte *operand) {
    return 1 + *operand / CLASS_BYTES_A_STEP;
}

// So many characters were taken, one after them was refused: that costs with a class only.
static void spendOnRun(Run &run, const Item &item, size_t taken) {
    const uint64_t characters = taken;
    spend(run, isClass(item.kind) ? (characters + 1) * stepsOfClass(item.operand) : characters);
}

// What so many places given back cost that the instruction behind them refuses: a retry each, and
// an instruction or what a class costs.
static void spendOnRefused(Run &run, const Byte *refusing, size_t places) {
    const uint64_t each = isClass(kindOf(*refusing)) ? stepsOfClass(refusing + 1) : 1;
    spend(run, (1 + each) * places);
}

// ---- choices

// What decides at the places of the choice. Those of a counted item lie in the runs of many tries;
// once failures are noted each is looked at by itself, as one that is noted costs a step and no
// more.
static const Byte *decidingAhead(const Run &run, const Choice &choice) {
    const bool isCounted = (*choice.code & MATCH_REPEAT_MASK) == MATCH_COUNTED;
    return isCounted && failuresOf(&run.notes, choice.code) != nullptr ? nullptr : choice.ahead;
}

// Takes the next place of an item off the choice, those passed over that the instruction behind it
// refuses. Null when it is used up.
static const char *nextPlaceOfItem(Run &run, Choice &choice) {
    const char *end = choice.lowest + choice.left;
    const char *place = lastAccepted(decidingAhead(run, choice), choice.lowest, end);
    const char *refused = place == nullptr ? choice.lowest : place + 1;
    choice.left = static_cast<size_t>(place == nullptr ? 0 : place - choice.lowest);
    if (refused != end) {
        spendOnRefused(run, choice.ahead, static_cast<size_t>(end - refused));
        noteFailures(&run.notes, choice.code, refused, end);
    }
    return place;
}

// Takes the next place off the choice; false when it is used up.
static bool nextPlace(Run &run, Choice &choice, Reached *place) {
    if (choice.lowest != nullptr) {
        *place = {nextPlaceOfItem(run, choice), choice.mark};
        return place->at != nullptr;
    }
    MatchStack &reached = run.state->reached;
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
        noteFailures(&run.notes, choice.code, choice.tried, choice.tried + 1);
    Reached place;
    do {
        if (!nextPlace(run, choice, &place)) {
            state->reached.count = choice.reachedBase;
            --state->choices.count;
            return false;
        }
        spend(run, 1);
    } while (hasFailed(&run.notes, choice.code, place.at));
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

static Step matchCharacter(Run &run) {
    if (!within(run.limit, run.code, 2) || !matches(MATCH_CHARACTER, run.code + 1, *run.at))
        return Step::FAIL;
    ++run.at;
    run.code += 2;
    return Step::GO_ON;
}

static Step matchOne(Run &run) {
    const Byte kind = *run.code;
    const Byte *operand = run.code + 1;
    ptrdiff_t size;
    if (!operandSize(kind, operand, run.limit, &size))
        return Step::FAIL;
    spend(run, kind == MATCH_ANY ? *run.at != '\0' : stepsOfClass(operand));
    if (!matches(kind, operand, *run.at))
        return Step::FAIL;
    ++run.at;
    run.code = operand + size;
    return Step::GO_ON;
}

// The end of a run without limit. It ends early where going on with the repetition is known to
// fail: all that lies beyond is too. Null when even its lowest place is.
static const char *endOfNotedRun(const Run &run, const Item &item, const Byte *failures) {
    const char *at = endOfItems(item.kind, item.operand, run.at, item.repeat.min);
    if (isNoted(&run.notes, failures, at))
        return nullptr;
    while (matches(item.kind, item.operand, *at) && !isNoted(&run.notes, failures, at + 1))
        ++at;
    return at;
}

static const char *endOfRun(const Run &run, const Item &item) {
    if (!item.repeat.unlimited)
        return endOfItems(item.kind, item.operand, run.at, item.repeat.max);
    const Byte *failures = failuresOf(&run.notes, run.code);
    return failures != nullptr ? endOfNotedRun(run, item, failures)
                               : endOfItems(item.kind, item.operand, run.at, SIZE_MAX);
}

// Whether going on from a run's end is the only way: what is behind it refuses each character that
// the item matches.
static bool onlyEndSuits(const Item &item, const Byte *ahead) {
    if (ahead == nullptr)
        return false;
    return *ahead == MATCH_SUBJECT_END ||
           (kindOf(*ahead) == MATCH_CHARACTER &&
            !matches(item.kind, item.operand, static_cast<char>(ahead[1])));
}

static bool mayBeTakenAgain(const Run &run, ptrdiff_t length) {
    return length <= SHORT_RUN && run.stepsLeft > MATCH_STEP_LIMIT - STEPS_OF_SHORT_SEARCH;
}

static Step matchRepeated(Run &run) {
    Item item;
    if (!decodeItem(run.code, run.limit, &item))
        return Step::FAIL;
    const char *end = endOfRun(run, item);
    const size_t taken = end == nullptr ? 0 : static_cast<size_t>(end - run.at);
    spendOnRun(run, item, taken);
    if (end == nullptr || taken < item.repeat.min)
        return Step::FAIL;
    const char *lowest = run.at + item.repeat.min;
    const Byte *ahead = itemAhead(item.rest, run.limit);
    if (end != lowest && !(mayBeTakenAgain(run, end - lowest) && onlyEndSuits(item, ahead)))
        return addChoice(run, {run.code, item.rest, ahead, nullptr, lowest,
                               static_cast<size_t>(end - lowest) + 1, run.state->reached.count,
                               run.state->now});
    run.at = end;
    run.code = item.rest;
    return Step::GO_ON;
}

// ---- groups

// Goes on after the group, from the last place reached.
static Step leaveGroup(Run &run) {
    const Frame frame = topOf<Frame>(run.state->frames);
    --run.state->frames.count;
    run.limit = frame.outerLimit;
    return addChoice(run, {frame.code, frame.rest, nullptr, nullptr, nullptr, 0, frame.reachedBase,
                           NOTHING_YET});
}

// Begins the next repetition, or leaves the group when this was the last.
static Step goOnWithGroup(Run &run, bool tookNothing) {
    MatchState *state = run.state;
    Frame &frame = topOf<Frame>(state->frames);
    const Repeat &repeat = frame.repeat;
    // What is still mandatory after a repetition that took nothing would take nothing either.
    if (frame.done >= repeat.min || tookNothing) {
        const bool hopeless = repeat.unlimited && hasFailed(&run.notes, frame.code, run.at);
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

// The record of that slot for a change; null when memory is exhausted. Its present value is kept
// for a retry and the next start, unless there is nothing to go back to: a failure is then that of
// the whole search.
static inline MatchRecord *recordToChange(Run &run, uint32_t slot) {
    MatchState *state = run.state;
    while (state->records.count <= slot)
        if (!push(state->records, UNSET_RECORD, RECORD_STEP))
            return nullptr;
    MatchRecord *record = &entryAt<MatchRecord>(state->records, slot);
    if (run.hasMoreStarts || (state->choices.count | state->frames.count) != 0) {
        if (!push(state->undo, Undo{slot, *record}, STACK_STEP))
            return nullptr;
        ++state->now.undoCount;
    }
    return record;
}

static Step openRecord(Run &run) {
    if (!within(run.limit, run.code, 2))
        return Step::FAIL;
    MatchMark &now = run.state->now;
    const int8_t slot = static_cast<int8_t>(run.code[1]);
    const int32_t automatic = MATCH_FIRST_AUTOMATIC + now.automaticOpened;
    MatchRecord *record = recordToChange(run, static_cast<uint32_t>(slot < 0 ? automatic : slot));
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
    if (!within(run.limit, run.code, 3))
        return Step::FAIL;
    MatchMark &now = run.state->now;
    const int8_t operand = static_cast<int8_t>(run.code[1]);
    const int32_t slot = operand < 0 ? now.automaticCurrent : operand;
    const int32_t group = operand < 0 ? MATCH_FIRST_AUTOMATIC + now.automaticClosed : run.code[2];
    run.code += 3;
    if (slot == MATCH_UNSET)
        return Step::GO_ON;
    MatchRecord *record = recordToChange(run, static_cast<uint32_t>(slot));
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
    if (!within(run.limit, run.code, 1))
        return Step::FAIL;
    const Byte opcode = *run.code;
    switch (opcode) {
    case MATCH_CHARACTER:
        return matchCharacter(run);
    case MATCH_NOT_IN_CLASS:
    case MATCH_IN_CLASS:
    case MATCH_ANY:
        return matchOne(run);
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
    switch (kindOf(opcode)) {
    case MATCH_NOT_IN_CLASS:
    case MATCH_CHARACTER:
    case MATCH_IN_CLASS:
    case MATCH_ANY:
        return matchRepeated(run);
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

// Matches the program at one place of the subject. The records are unset: those that earlier starts
// came to stay in the table.
static Step matchAt(Run &run, const Byte *program, const char *start) {
    MatchState *state = run.state;
    state->frames.count = state->choices.count = state->reached.count = 0;
    run.code = program;
    run.limit = nullptr;
    run.at = start;
    for (;;) {
        if (run.stepsLeft == 0)
            return Step::EXHAUSTED;
        --run.stepsLeft;
        Step step = execute(run);
        if (step == Step::FAIL)
            step = retry(run);
        if (step != Step::GO_ON)
            return step;
    }
}

static bool mayMatchAt(const Byte *program, const char *subject) {
    return accepts(itemAhead(program, nullptr), *subject) &&
           hopelessFrom(program, subject) != subject;
}

static Step searchAnywhere(Run &run, const Byte *program, const char **start) {
    const Byte *ahead = itemAhead(program, nullptr);
    const char *at = firstAccepted(ahead, run.at);
    const char *hopeless = at == nullptr ? nullptr : hopelessFrom(program, at);
    for (; at != nullptr; at = firstAccepted(ahead, at + 1)) {
        if (hopeless != nullptr && at >= hopeless)
            break;
        *start = at;
        restore(run.state, NOTHING_YET);
        const Step step = matchAt(run, program, at);
        if (step != Step::FAIL || *at == '\0')
            return step;
    }
    return Step::FAIL;
}

const char *searchSubject(MatchState *state, const char *pattern, const char *subject,
                          const char **start) {
    const Byte *program = reinterpret_cast<const Byte *>(pattern);
    const bool isAnchored = *program == MATCH_ANCHOR;
    state->emptyMatchCounts = 0;
    unsetRecords(state);
    if (isAnchored && !mayMatchAt(program + 1, subject))
        return nullptr;
    Run run = {state,
               program,
               nullptr,
               subject,
               MATCH_STEP_LIMIT,
               !isAnchored,
               {program, subject, 0, 0, nullptr, 0, 0}};
    *start = subject;
    const Step step =
        isAnchored ? matchAt(run, program + 1, subject) : searchAnywhere(run, program, start);
    if (run.notes.count != 0)
        freeFailureNotes(&run.notes);
    if (step == Step::SUCCESS && (run.at != subject || state->emptyMatchCounts != 0))
        return run.at;
    unsetRecords(state);
    return nullptr;
}
