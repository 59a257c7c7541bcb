#include "inbox.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

static_assert(std::atomic<uint32_t>::is_always_lock_free, "a signal handler must not meet a lock");
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "the system waits on the word");

bool Inbox::put(const PostedEvent &event) {
    uint32_t number = nextPut.load();
    for (;;) {
        Slot &slot = slots[number % SLOT_COUNT];
        const std::atomic_ref<uint32_t> turn(slot.turn);
        const uint32_t found = turn.load(std::memory_order_acquire);
        if (found == number) {
            if (!nextPut.compare_exchange_weak(number, number + 1))
                continue;
            slot.event = event;
            turn.store(number + 1, std::memory_order_release);
            return true;
        }
        if (static_cast<int32_t>(found - number) < 0)
            return false;
        number = nextPut.load();
    }
}

bool Inbox::take(PostedEvent &event) {
    Slot &slot = slots[nextTake % SLOT_COUNT];
    const std::atomic_ref<uint32_t> turn(slot.turn);
    if (turn.load(std::memory_order_acquire) != nextTake + 1)
        return false;
    event = slot.event;
    turn.store(nextTake + SLOT_COUNT, std::memory_order_release);
    ++nextTake;
    return true;
}

void Bell::ring() {
    const int kept = errno;
    ++rings;
    syscall(SYS_futex, &rings, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
    errno = kept;
}

void Bell::await(uint32_t seen, LineClock::duration limit) {
    // The kernel's own layout of this call's time limit, which follows the word size.
    struct {
        long seconds;
        long nanoseconds;
    } time;
    const int64_t count =
        std::max<int64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(limit).count(), 0);
    time.seconds = static_cast<long>(count / 1000000000);
    time.nanoseconds = static_cast<long>(count % 1000000000);
    syscall(SYS_futex, &rings, FUTEX_WAIT_PRIVATE, seen, &time, nullptr, 0);
}
