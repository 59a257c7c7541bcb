#include "localTime.h"

#include <stdlib.h>
#include <string.h>

static constexpr size_t LONGEST_KEPT_ZONE = 63; // of "TZ"; a longer one is computed each time

// The last second broken down, and what "TZ" was then. The zone's name in it is never released.
struct KeptTime {
    bool isInUse; // by a thread: another one does not wait for it
    bool isFilled;
    bool hasZone; // false: "TZ" was unset
    char zone[LONGEST_KEPT_ZONE + 1];
    int32_t seconds;
    struct tm tm;
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
    const bool isKept = kept.isFilled && kept.seconds == seconds && isOfZone(zone);
    if (isKept)
        *out = kept.tm;
    giveBack();
    return isKept;
}

static void keep(int32_t seconds, const char *zone, const struct tm &tm) {
    const size_t length = zone == nullptr ? 0 : strlen(zone);
    if (length > LONGEST_KEPT_ZONE || !take())
        return;
    kept.isFilled = true;
    kept.seconds = seconds;
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
