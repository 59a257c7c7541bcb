/* Reads a log file as every reader of logs does, and holds it against the ledger. */
#ifndef TESTS_FIRE_VERIFY_H
#define TESTS_FIRE_VERIFY_H

#include "ledger.h"

#include <string>
#include <vector>

struct Verdict {
    uint32_t read = 0;       // records that are whole and the writers'
    uint32_t doubled = 0;    // of these, those read before
    uint32_t disordered = 0; // of these, those behind a later one of the same writer
    uint32_t neverSent = 0;  // of these, those that the client did not say it sent
    uint32_t cut = 0;        // beginnings of records
    uint32_t strange = 0;    // entries that are neither
    std::string example;     // the first of these, or of the cut
    uint32_t sent = 0;       // records that the clients said they sent
    uint64_t readFrameBytes = 0;
    uint64_t sentFrameBytes = 0;
    std::vector<std::vector<uint32_t>> lost; // by epoch, the frames' sizes; see ambiguous
    uint32_t lostAmbiguous = 0; // sent while one daemon was killed and the next started
    uint32_t lostOf[WRITERS] = {};
    uint32_t lostRecords() const;
    bool sound() const { // but for what is lost
        return doubled == 0 && disordered == 0 && neverSent == 0 && cut == 0 && strange == 0;
    }
};

Verdict verify(const std::string &logFile, const Ledger &ledger);

#endif
