#include "ledger.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <sys/mman.h>

Ledger::Ledger(uint32_t recordsPerWriter)
    : bytes_(sizeof(LedgerHead) + size_t{WRITERS} * recordsPerWriter * sizeof(LedgerLine)),
      records_(recordsPerWriter) {
    void *memory = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        perror("fire: mmap");
        exit(1);
    }
    head_ = new (memory) LedgerHead();
    lines_ = reinterpret_cast<LedgerLine *>(head_ + 1); // the system gives zeros
}

Ledger::~Ledger() {
    munmap(head_, bytes_);
}

LedgerLine &Ledger::line(uint32_t writer, uint32_t number) const {
    return lines_[size_t{writer} * records_ + number];
}

uint32_t Ledger::sum(std::atomic<uint32_t> WriterCounts::*count) const {
    uint32_t total = 0;
    for (const WriterCounts &each : head_->writer)
        total += each.*count;
    return total;
}

uint32_t Ledger::sum(std::atomic<uint32_t> Refusals::*count) const {
    uint32_t total = 0;
    for (const WriterCounts &each : head_->writer)
        total += each.refused.*count;
    return total;
}

uint32_t Ledger::refused() const {
    return sum(&Refusals::full) + sum(&Refusals::noReader) + sum(&Refusals::noPipe) +
           sum(&Refusals::part) + sum(&Refusals::unknown);
}
