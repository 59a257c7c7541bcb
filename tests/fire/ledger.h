/* What the writers say they sent, in memory that all processes of a run share. Each writer alone
   writes its own lines; the run reads them once the writers have ended, but for the counters. */
#ifndef TESTS_FIRE_LEDGER_H
#define TESTS_FIRE_LEDGER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

constexpr uint32_t WRITERS = 8;

/* One record of a writer, by its number. The epoch is that of the daemon that was running: it goes
   up while none is. */
struct LedgerLine {
    uint16_t epochBefore; // when the call began
    uint16_t epochAfter;  // when it had returned
    uint32_t frameBytes;  // on the pipe; 0: the client did not say that it was sent
};

struct Refusals {
    std::atomic<uint32_t> full;     // EAGAIN
    std::atomic<uint32_t> noReader; // ENXIO or EPIPE
    std::atomic<uint32_t> noPipe;   // ENOENT
    std::atomic<uint32_t> part;     // 0: the pipe took only part of the record
    std::atomic<uint32_t> unknown;  // of calls that leave errno as it was
};

struct alignas(64) WriterCounts {
    std::atomic<uint32_t> sent;
    std::atomic<uint32_t> calls;
    Refusals refused;
    std::atomic<uint32_t> wrongErrno; // not as documented for the call
    std::atomic<uint32_t> sigpipes;
    std::atomic<uint32_t> longestMicroseconds; // of one call
    std::atomic<uint32_t> gaveUp;              // no record was taken for a minute
};

struct LedgerHead {
    std::atomic<uint32_t> epoch;
    std::atomic<uint32_t> stop; // the writers are to end
    WriterCounts writer[WRITERS];
};

class Ledger {
  public:
    explicit Ledger(uint32_t recordsPerWriter); // ends the process without memory
    ~Ledger();
    Ledger(const Ledger &) = delete;
    Ledger &operator=(const Ledger &) = delete;
    LedgerHead &head() const { return *head_; }
    uint32_t records() const { return records_; } // for each writer
    LedgerLine &line(uint32_t writer, uint32_t number) const;
    uint32_t sum(std::atomic<uint32_t> WriterCounts::*count) const;
    uint32_t sum(std::atomic<uint32_t> Refusals::*count) const;
    uint32_t refused() const;

  private:
    size_t bytes_;
    uint32_t records_;
    LedgerHead *head_;
    LedgerLine *lines_;
};

#endif
