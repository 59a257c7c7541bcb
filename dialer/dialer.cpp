#include "dialer.h"

#include <iterator>
#include <stddef.h>

static_assert(offsetof(vx_event, code) == 4 && offsetof(vx_event, subcode) == 12);

// What an operation does about an event. The platform gives the codes their meaning; only the
// reactions are fixed here.
struct Reaction {
    int32_t code;
    int32_t subcode; // ANY where the sub-code does not matter
    int32_t status;  // the outcome, or KEEP_WAITING
    bool cancel;     // the operation's timer is cancelled first
};

static constexpr int32_t ANY = INT32_MIN;
static constexpr int32_t KEEP_WAITING = 1;
static constexpr int32_t STARTED = 1;

// In each table the first row that fits counts. No row cancels for event 7, where the timer has run
// out, nor for event 38: kept, the platform owns the timer then.

static constexpr Reaction DELAY_REACTIONS[] = {
    {7, ANY, DIALER_REACHED, false}, {12, ANY, DIALER_FAILED, true},
    {34, ANY, DIALER_FAILED, true},  {38, ANY, DIALER_INTERRUPTED, false},
    {54, ANY, DIALER_FAILED, true},  {65, 8, KEEP_WAITING, false},
    {65, 32, KEEP_WAITING, false},   {65, 38, KEEP_WAITING, false},
    {65, ANY, DIALER_FAILED, true},
};

// Dialling starts no timer, so nothing is ever cancelled.
static constexpr Reaction DIAL_REACTIONS[] = {
    {11, ANY, DIALER_REACHED, false}, {12, ANY, DIALER_FAILED, false},
    {34, ANY, DIALER_FAILED, false},  {38, ANY, DIALER_INTERRUPTED, false},
    {54, ANY, DIALER_FAILED, false},  {65, 8, KEEP_WAITING, false},
    {65, 32, KEEP_WAITING, false},    {65, 38, KEEP_WAITING, false},
    {65, ANY, DIALER_FAILED, false},
};

// Kept: event 65 with sub-code 8 or 38 is dial tone here, and nothing at all in a delay.
static constexpr Reaction DIALTONE_REACTIONS[] = {
    {4, 32, KEEP_WAITING, false},    {4, 8, DIALER_REACHED, true},
    {4, 38, DIALER_REACHED, true},   {4, ANY, DIALER_OTHER_TONE, true},
    {7, ANY, DIALER_NO_TONE, false}, {12, ANY, DIALER_FAILED, true},
    {34, ANY, DIALER_FAILED, true},  {38, ANY, DIALER_INTERRUPTED, false},
    {54, ANY, DIALER_FAILED, true},  {65, 32, KEEP_WAITING, false},
    {65, 8, DIALER_REACHED, true},   {65, 38, DIALER_REACHED, true},
    {65, ANY, DIALER_FAILED, true},
};

struct ReactionTable {
    const Reaction *rows;
    size_t count;
};

static const Reaction *findReaction(ReactionTable table, const vx_event &event) {
    for (const Reaction *row = table.rows; row != table.rows + table.count; ++row)
        if (row->code == event.code && (row->subcode == ANY || row->subcode == event.subcode))
            return row;
    return nullptr;
}

static int32_t awaitOutcome(chan_info *channel, ReactionTable table, std::ofstream &trace,
                            int32_t level) {
    vx_event event = {};
    for (;;) {
        vxWCheck(&event);
        event_trace(&event, trace, level);
        const Reaction *reaction = findReaction(table, event);
        if (reaction == nullptr || reaction->status == KEEP_WAITING)
            continue;
        if (reaction->cancel)
            vxCancelTimer(channel, 0);
        return reaction->status;
    }
}

// Kept: the product wraps in 32 bits, as the platform's timer takes it.
static int32_t toMilliseconds(int32_t seconds) {
    return static_cast<int32_t>(static_cast<uint32_t>(seconds) * 1000U);
}

static bool startTimer(chan_info *channel, int32_t seconds) {
    return vxStartTimer(channel, toMilliseconds(seconds), 0, 0) == STARTED;
}

// Terminates the number's characters in place: kept, though the caller's string is constant. Null
// when the platform has no larger representation to give.
static const char *terminate(const stdComponents::String &number) {
    stdComponents::StringRep *rep = number.rep;
    if (rep->length >= rep->capacity && rep->length != 0) {
        rep = stdComponents::String::ensureUnique(rep, rep->length + 1, true, 0);
        if (rep == nullptr)
            return nullptr;
        number.rep = rep;
    }
    rep->chars[rep->length] = '\0';
    return rep->chars;
}

int32_t QN_delay(chan_info *channel, int32_t &seconds, std::ofstream &trace, int32_t level) {
    if (!startTimer(channel, seconds))
        return DIALER_REFUSED;
    const int32_t status =
        awaitOutcome(channel, {DELAY_REACTIONS, std::size(DELAY_REACTIONS)}, trace, level);
    if (status == DIALER_REACHED)
        seconds = 0;
    return status;
}

int32_t QN_dial(chan_info *channel, const stdComponents::String &number, std::ofstream &trace,
                int32_t level) {
    const char *digits = terminate(number);
    if (digits == nullptr || vxDial(channel, 0, digits) != STARTED)
        return DIALER_REFUSED;
    return awaitOutcome(channel, {DIAL_REACTIONS, std::size(DIAL_REACTIONS)}, trace, level);
}

int32_t QN_wait4dialtone(chan_info *channel, int32_t seconds, std::ofstream &trace, int32_t level) {
    if (!startTimer(channel, seconds))
        return DIALER_REFUSED;
    return awaitOutcome(channel, {DIALTONE_REACTIONS, std::size(DIALTONE_REACTIONS)}, trace, level);
}
