#include "verify.h"

#include "fireText.h"
#include "log/logMsg.h"
#include "tools/common/entryReader.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

class Verifier {
  public:
    explicit Verifier(const Ledger &ledger)
        : ledger_(ledger), seen_(size_t{WRITERS} * ledger.records()) {}

    void take(const LogEntry &entry) {
        uint32_t writer = 0;
        uint32_t number = 0;
        std::string bytes(entry.bytes);
        if (!entry.cut && isOurs(bytes, writer, number)) {
            takeRecord(writer, number);
            return;
        }
        verdict_.cut += entry.cut ? 1 : 0;
        verdict_.strange += entry.cut ? 0 : 1;
        if (verdict_.example.empty())
            verdict_.example = bytes.substr(0, 200);
    }

    Verdict finish() {
        for (uint32_t writer = 0; writer < WRITERS; writer++)
            for (uint32_t number = 0; number < ledger_.records(); number++)
                settle(writer, number);
        return verdict_;
    }

  private:
    bool isOurs(std::string &bytes, uint32_t &writer, uint32_t &number) const {
        LogMsg *msg = parseCmpLogEnhanced(bytes.data(), 0, 0);
        const bool ours =
            msg != nullptr && msg->argCount == 1 && bytes.size() == strlen(msg->record) &&
            bytes.back() == '\x1D' && msg->line == 1000 && strcmp(msg->file, "fire.cpp") == 0 &&
            readText(msg->args[0].value, writer, number) && writer < WRITERS &&
            number < ledger_.records() && msg->producer == "fire" + std::to_string(writer);
        freeLogMsg(msg);
        return ours;
    }

    void takeRecord(uint32_t writer, uint32_t number) {
        std::vector<bool>::reference seen = seen_[size_t{writer} * ledger_.records() + number];
        const uint32_t frame = ledger_.line(writer, number).frameBytes;
        verdict_.read++;
        verdict_.readFrameBytes += frame;
        verdict_.neverSent += frame == 0 ? 1 : 0;
        if (seen)
            verdict_.doubled++;
        else if (number < next_[writer])
            verdict_.disordered++;
        seen = true;
        next_[writer] = std::max(next_[writer], number + 1);
    }

    void settle(uint32_t writer, uint32_t number) {
        const LedgerLine &line = ledger_.line(writer, number);
        if (line.frameBytes == 0)
            return;
        verdict_.sent++;
        verdict_.sentFrameBytes += line.frameBytes;
        if (seen_[size_t{writer} * ledger_.records() + number])
            return;
        verdict_.lostOf[writer]++;
        if (line.epochBefore != line.epochAfter) {
            verdict_.lostAmbiguous++;
            return;
        }
        if (verdict_.lost.size() <= line.epochBefore)
            verdict_.lost.resize(line.epochBefore + 1U);
        verdict_.lost[line.epochBefore].push_back(line.frameBytes);
    }

    const Ledger &ledger_;
    Verdict verdict_;
    std::vector<bool> seen_;
    uint32_t next_[WRITERS] = {};
};

} // namespace

uint32_t Verdict::lostRecords() const {
    uint32_t total = 0;
    for (const uint32_t each : lostOf)
        total += each;
    return total;
}

Verdict verify(const std::string &logFile, const Ledger &ledger) {
    Verifier verifier(ledger);
    EntryReader reader;
    std::vector<char> block(1 << 20);
    const int fd = open(logFile.c_str(), O_RDONLY | O_CLOEXEC);
    for (bool atEnd = fd < 0; !atEnd;) {
        const ssize_t count = read(fd, block.data(), block.size());
        atEnd = count <= 0;
        if (count > 0)
            reader.feed({block.data(), static_cast<size_t>(count)});
        for (std::optional<LogEntry> entry; (entry = reader.next(atEnd)).has_value();)
            verifier.take(*entry);
    }
    if (fd >= 0)
        close(fd);
    return verifier.finish();
}
