/* Where posted events wait until a thread in vxWCheck looks: a bounded first-in-first-out queue for
   many putters, signal handlers among them, and one taker at a time.

   Each slot carries a turn. It is free for the put number n when its turn is n, and filled by it
   when its turn is n + 1; taking it makes it free for put n + SLOT_COUNT. A putter stopped between
   claiming and filling holds back only the taker, who is woken when the slot is filled. */
#ifndef PLATFORM_INBOX_H
#define PLATFORM_INBOX_H

#include <stdint.h>

#include <atomic>
#include <chrono>

struct chan_info;

using LineClock = std::chrono::steady_clock;

struct PostedEvent {
    LineClock::time_point posted;
    const chan_info *channel; // null: none in particular
    int32_t code;
    int32_t subcode;
};

class Inbox {
  public:
    constexpr Inbox() {
        for (uint32_t index = 0; index < SLOT_COUNT; ++index)
            slots[index].turn = index;
    }

    // False when full. Async-signal-safe.
    bool put(const PostedEvent &event);

    // False when empty. The caller sees to it that one thread at a time takes.
    bool take(PostedEvent &event);

  private:
    static constexpr uint32_t SLOT_COUNT = 1024; // a power of two: the put numbers wrap
    struct Slot {
        alignas(std::atomic_ref<uint32_t>::required_alignment) uint32_t turn = 0;
        PostedEvent event = {};
    };
    Slot slots[SLOT_COUNT] = {};
    std::atomic<uint32_t> nextPut = 0;
    uint32_t nextTake = 0;
};

/* Wakes threads that wait for something to look at. A waiter reads the count, looks, and sleeps
   only while the count is still the one that it read, so no change is missed. */
class Bell {
  public:
    uint32_t count() const { return rings.load(); }

    // Async-signal-safe; errno is kept.
    void ring();

    // Returns when the bell has rung since the count was read, at the time limit, or early.
    void await(uint32_t seen, LineClock::duration limit);

  private:
    std::atomic<uint32_t> rings = 0;
};

#endif
