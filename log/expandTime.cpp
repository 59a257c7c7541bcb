#include "expandTime.h"

#include "../buffers/fmtCharBuf.h"
#include "localTime.h"
#include "textOut.h"
#include "timeDefs.h"

#include <string.h>
#include <time.h>

const char *const fullMonthNames[] = {"January",  "February", "March",  "April",     "May",
                                      "June",     "July",     "August", "September", "October",
                                      "November", "December", nullptr};
const char *const abbrvMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",  "Jul",
                                       "Aug", "Sep", "Oct", "Nov", "Dec", nullptr};
const char *const fullWeekdayNames[] = {"Sunday",   "Monday", "Tuesday",  "Wednesday",
                                        "Thursday", "Friday", "Saturday", nullptr};
const char *const abbrvWeekdayNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat", nullptr};

static constexpr const char *HALF_DAYS[] = {"AM", "PM"};
static constexpr size_t ASCTIME_LENGTH = 25; // with its line feed
static constexpr size_t LONGEST_ZONE = 38;

// The week of the year for d, the day of the year less the weekday. Kept: the constants differ from
// strftime's week numbers, and readers compare with weeks already printed.
static int weekOf(int d) {
    if (d < -3)
        return 52;
    const int weeks = (d + 1) / 7;
    const int daysOver = d - 7 * (d / 7);
    return weeks + (daysOver >= 4 ? 2 : 1);
}

// What a directive shows, in numbers.

static int twelveHour(const struct tm &t) {
    if (t.tm_hour == 0)
        return 12;
    return t.tm_hour > 12 ? t.tm_hour - 12 : t.tm_hour;
}

static int weekFromSunday(const struct tm &t) {
    return weekOf(t.tm_yday - t.tm_wday);
}

static int weekFromMonday(const struct tm &t) {
    return weekOf(t.tm_wday == 0 ? t.tm_yday - 6 : t.tm_yday - t.tm_wday + 1);
}

struct NumberDirective {
    char letter;
    int width;
    char padding;
    int (*value)(const struct tm &t);
};

static constexpr NumberDirective NUMBERS[] = {
    {'d', 2, '0', [](const struct tm &t) { return t.tm_mday; }},
    {'e', 2, ' ', [](const struct tm &t) { return t.tm_mday; }},
    {'H', 2, '0', [](const struct tm &t) { return t.tm_hour; }},
    {'I', 2, '0', twelveHour},
    {'j', 3, '0', [](const struct tm &t) { return t.tm_yday + 1; }},
    {'M', 2, '0', [](const struct tm &t) { return t.tm_min; }},
    {'m', 2, '0', [](const struct tm &t) { return t.tm_mon + 1; }},
    {'S', 2, '0', [](const struct tm &t) { return t.tm_sec; }},
    {'U', 2, '0', weekFromSunday},
    {'W', 2, '0', weekFromMonday},
    {'w', 1, '0', [](const struct tm &t) { return t.tm_wday; }},
    {'Y', 4, '0', [](const struct tm &t) { return t.tm_year + 1900; }},
    {'y', 2, '0', [](const struct tm &t) { return t.tm_year % 100; }},
};

struct NameDirective {
    char letter;
    const char *const *names;
    int (*value)(const struct tm &t);
};

static constexpr NameDirective NAMES[] = {
    {'A', fullWeekdayNames, [](const struct tm &t) { return t.tm_wday; }},
    {'a', abbrvWeekdayNames, [](const struct tm &t) { return t.tm_wday; }},
    {'B', fullMonthNames, [](const struct tm &t) { return t.tm_mon; }},
    {'b', abbrvMonthNames, [](const struct tm &t) { return t.tm_mon; }},
    {'h', abbrvMonthNames, [](const struct tm &t) { return t.tm_mon; }},
    {'p', HALF_DAYS, [](const struct tm &t) { return t.tm_hour >= 12 ? 1 : 0; }},
};

struct LayoutDirective {
    char letter;
    const char *layout;
};

static constexpr LayoutDirective LAYOUTS[] = {
    {'D', "%m/%d/%y"}, {'n', "\n"}, {'R', "%H:%M"}, {'T', "%H:%M:%S"}, {'t', "\t"},
};

struct OtherDirective {
    char letter;
    void (*put)(TextOut &out, const LogMsg *msg);
};

static void appendCtime(TextOut &out, const LogMsg *msg, bool withLineFeed);
static void appendLayout(TextOut &out, const LogMsg *msg, const char *layout, const char *end);

static void putNumber(TextOut &out, int value, int width, char padding) {
    char digits[16];
    char *first = digits + sizeof digits;
    unsigned rest = value < 0 ? 0 : static_cast<unsigned>(value);
    *--first = '\0';
    do
        *--first = static_cast<char>('0' + rest % 10);
    while ((rest /= 10) != 0);
    while (first > digits && digits + sizeof digits - 1 - first < width)
        *--first = padding;
    putText(out, first);
}

// The hour modulo 12, so that noon shows as 00, and as AM. Kept, unlike %I and %p.
static void putTwelveHourTime(TextOut &out, const LogMsg *msg) {
    static constexpr char REST[] = ":%M:%S ";
    putNumber(out, msg->tm.tm_hour % 12, 2, '0');
    appendLayout(out, msg, REST, REST + strlen(REST));
    putText(out, HALF_DAYS[msg->tm.tm_hour > 12 ? 1 : 0]);
}

static void putCtimeLine(TextOut &out, const LogMsg *msg) {
    appendCtime(out, msg, true);
}

static void putHexTime(TextOut &out, const LogMsg *msg) {
    // Through 32 unsigned bits: a negative time must not widen to 16 digits.
    const unsigned long time = static_cast<uint32_t>(msg->time);
    noteAppend(out, fmtCharBuffer(out.buffer, "%8.8lx", time) >= 0);
}

static void putZone(TextOut &out, const LogMsg *msg) {
    char zone[LONGEST_ZONE + 1];
    if (strftime(zone, sizeof zone, "%Z", &msg->tm) > 0)
        putText(out, zone);
}

static constexpr OtherDirective OTHERS[] = {
    {'C', putCtimeLine}, {'c', putCtimeLine}, {'r', putTwelveHourTime},
    {'u', putHexTime},   {'Z', putZone},
};

template<typename Directive, size_t count>
static const Directive *find(const Directive (&table)[count], char letter) {
    for (const Directive &entry : table)
        if (entry.letter == letter)
            return &entry;
    return nullptr;
}

static void putTimeDirective(TextOut &out, const LogMsg *msg, char letter) {
    if (const NumberDirective *number = find(NUMBERS, letter))
        putNumber(out, number->value(msg->tm), number->width, number->padding);
    else if (const NameDirective *name = find(NAMES, letter))
        putText(out, name->names[name->value(msg->tm)]);
    else if (const LayoutDirective *layout = find(LAYOUTS, letter))
        appendLayout(out, msg, layout->layout, layout->layout + strlen(layout->layout));
    else if (const OtherDirective *other = find(OTHERS, letter))
        other->put(out, msg);
    else
        putChar(out, letter);
}

static void writeTwoDigits(char *place, int value) {
    place[0] = static_cast<char>('0' + value / 10);
    place[1] = static_cast<char>('0' + value % 10);
}

// As asctime_r, "Tue Nov 14 16:39:09 2017" and a line feed, of a time that localtime gave: 32 bits
// of seconds lie in years of four digits.
static void writeAsctime(char *text, const struct tm &tm) {
    memcpy(text, "Ddd Mmm  0 00:00:00 0000\n", ASCTIME_LENGTH);
    memcpy(text, abbrvWeekdayNames[tm.tm_wday], 3);
    memcpy(text + 4, abbrvMonthNames[tm.tm_mon], 3);
    writeTwoDigits(text + 8, tm.tm_mday);
    if (text[8] == '0')
        text[8] = ' ';
    writeTwoDigits(text + 11, tm.tm_hour);
    writeTwoDigits(text + 14, tm.tm_min);
    writeTwoDigits(text + 17, tm.tm_sec);
    writeTwoDigits(text + 20, (tm.tm_year + 1900) / 100);
    writeTwoDigits(text + 22, (tm.tm_year + 1900) % 100);
}

static void appendAsctime(TextOut &out, const struct tm &tm, bool withLineFeed) {
    char text[ASCTIME_LENGTH];
    writeAsctime(text, tm);
    putSpan(out, text, text + sizeof text - (withLineFeed ? 0 : 1));
}

static void appendCtime(TextOut &out, const LogMsg *msg, bool withLineFeed) {
    struct tm tm = msg->tm;
    // A record that was kept after a short time has no broken-down time.
    if (tm.tm_mday == 0 && !readLocalTime(msg->time, &tm))
        return;
    appendAsctime(out, tm, withLineFeed);
}

static void appendLayout(TextOut &out, const LogMsg *msg, const char *layout, const char *end) {
    while (layout < end) {
        const char ch = *layout++;
        if (ch != '%')
            putChar(out, ch);
        else if (layout < end)
            putTimeDirective(out, msg, *layout++);
    }
}

int putCtime(CharBuffer *buffer, const LogMsg *msg, int withLineFeed) {
    TextOut out = {buffer, false};
    appendCtime(out, msg, withLineFeed != 0);
    return out.failed ? 0 : 1;
}

int putCtimeOfSeconds(CharBuffer *buffer, int32_t seconds) {
    TextOut out = {buffer, false};
    struct tm tm;
    if (readLocalTime(seconds, &tm))
        appendAsctime(out, tm, false);
    return out.failed ? 0 : 1;
}

int putTimeLayout(CharBuffer *buffer, const LogMsg *msg, const char *layout, const char *end) {
    TextOut out = {buffer, false};
    appendLayout(out, msg, layout, end);
    return out.failed ? 0 : 1;
}
