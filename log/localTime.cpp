#include "localTime.h"

#include <stdlib.h>
#include <string.h>

static constexpr int LAST_OF_MINUTE = 59;
static constexpr size_t LONGEST_KEPT_ZONE = 63; // of "TZ"; a longer one is computed each time

// A second broken down, the seconds behind it of the same minute, and what "TZ" was then. The
// zone's name in it is never released.
struct KeptTime {
    bool isInUse; // by a thread: another one does not wait for it
    bool isFilled;
    bool hasZone; // false: "TZ" was unset
    char zone[LONGEST_KEPT_ZONE + 1];
    int32_t first;
    int32_t last;
    struct tm tm; // of the first; of the others but for tm_sec
};

static KeptTime kept;

static bool take() {
    return !__atomic_exchange_n(&kept.isInUse, true, __ATOMIC_ACQUIRE);
}

static void giveBack() {
    __atomic_store_n(&kept.isInUse, false, __ATOMIC_RELEASE);
}

static bool isOfZone(const char *zone) {
    return zone == nullptr ? !kept.hasZone : kept.hasZone && strcmp(kept.zone, zone) == 0;
}

static bool findKept(int32_t seconds, const char *zone, struct tm *out) {
    if (!take())
        return false;
    const bool isKept =
        kept.isFilled && kept.first <= seconds && seconds <= kept.last && isOfZone(zone);
    if (isKept) {
        *out = kept.tm;
        out->tm_sec += seconds - kept.first;
    }
    giveBack();
    return isKept;
}

static bool isSameMinute(const struct tm &a, const struct tm &b) {
    return a.tm_min == b.tm_min && a.tm_hour == b.tm_hour && a.tm_mday == b.tm_mday &&
           a.tm_mon == b.tm_mon && a.tm_year == b.tm_year && a.tm_isdst == b.tm_isdst &&
           a.tm_gmtoff == b.tm_gmtoff && a.tm_zone == b.tm_zone;
}

// The last second up to which time runs as it does in this one: that of its minute, where both read
// alike. No zone that is in use changes twice within a minute. Rules behind a comma in TZ can be
// made up, so their seconds are kept one by one; a compiled zone file that somebody made up is not
// known from a real one, and would show the minute as it began.
static int32_t lastAlike(int32_t seconds, const char *zone, const struct tm &tm) {
    const int64_t last = int64_t{seconds} + LAST_OF_MINUTE - tm.tm_sec;
    if (last <= seconds || last > INT32_MAX || (zone != nullptr && strchr(zone, ',') != nullptr))
        return seconds;
    const time_t time = static_cast<time_t>(last);
    struct tm end;
    if (localtime_r(&time, &end) == nullptr)
        return seconds;
    return end.tm_sec == LAST_OF_MINUTE && isSameMinute(tm, end) ? static_cast<int32_t>(last)
                                                                 : seconds;
}

static void keep(int32_t seconds, const char *zone, const struct tm &tm) {
    const size_t length = zone == nullptr ? 0 : strlen(zone);
    if (length > LONGEST_KEPT_ZONE)
        return;
    const int32_t last = lastAlike(seconds, zone, tm);
    if (!take())
        return;
    kept.isFilled = true;
    kept.first = seconds;
    kept.last = last;
    kept.tm = tm;
    kept.hasZone = zone != nullptr;
    if (zone != nullptr)
        memcpy(kept.zone, zone, length + 1);
    giveBack();
}

bool readLocalTime(int32_t seconds, struct tm *out) {
    const char *zone = getenv("TZ");
    if (findKept(seconds, zone, out))
        return true;
    const time_t time = seconds; // the record's 32 bits are signed
    struct tm local;
    tzset(); // a zone changed meanwhile is to be seen, and localtime_r alone does not look
    if (localtime_r(&time, &local) == nullptr)
        return false;
    keep(seconds, zone, local);
    *out = local;
    return true;
}
