#include "mergedLogs.h"

#include "../common/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

bool TimedInput::open() {
    time_ = std::numeric_limits<int64_t>::min();
    atRange_ = false;
    return input.open();
}

// Whether nothing of the range can follow. What is followed goes on: its end is not here yet.
bool TimedInput::isPastRange() const {
    return input.mode() == Input::Mode::TO_END && time_ > range_.until &&
           time_ - range_.until > DISORDER_SECONDS;
}

void TimedInput::goToRange() {
    if (input.isOpen() && range_.since > std::numeric_limits<int32_t>::min())
        input.skipTo(range_.since - DISORDER_SECONDS);
    atRange_ = true;
}

bool TimedInput::findNext() {
    if (!atRange_)
        goToRange();
    while (const std::optional<LogEntry> entry = input.next()) {
        record.read(*entry);
        if (record.kind() == Record::Kind::RECORD)
            time_ = record.time();
        if (isPastRange())
            return false;
        if (range_.since <= time_ && time_ <= range_.until)
            return true;
    }
    return false;
}

bool TimedInput::advance() {
    try {
        return findNext();
    } catch (const WorkFailed &error) {
        reportError(error.what());
        failed = true;
        input.finish();
        return findNext(); // what is left of it
    }
}

// Heaps of the standard library have the greatest first.
struct MergedLogs::Later {
    const MergedLogs &logs;
    bool operator()(size_t a, size_t b) const {
        const int64_t timeOfA = logs.inputs[a]->time();
        const int64_t timeOfB = logs.inputs[b]->time();
        return timeOfA != timeOfB ? timeOfA > timeOfB : a > b;
    }
};

MergedLogs::MergedLogs(const std::vector<std::string> &paths, Input::Mode mode,
                       const TimeRange &range, Progress *progress)
    : mode_(mode) {
    for (const std::string &path : paths)
        inputs.push_back(std::make_unique<TimedInput>(path, mode, range, progress));
}

void MergedLogs::open(TimedInput &input) {
    if (input.open())
        return;
    const bool awaited = mode_ == Input::Mode::FOLLOWED;
    reportError(input.input.path(), 0,
                std::string(strerror(errno)) + (awaited ? ": waiting for it" : ""));
    input.failed = !awaited;
}

void MergedLogs::openAll() {
    for (size_t i = 0; i < inputs.size(); i++) {
        open(*inputs[i]);
        if (inputs[i]->advance())
            waiting_.push_back(i);
    }
    std::make_heap(waiting_.begin(), waiting_.end(), Later{*this});
    opened_ = true;
}

Record *MergedLogs::next() {
    const Later later = {*this};
    if (!opened_)
        openAll();
    if (given_) {
        std::pop_heap(waiting_.begin(), waiting_.end(), later);
        if (inputs[waiting_.back()]->advance())
            std::push_heap(waiting_.begin(), waiting_.end(), later);
        else
            waiting_.pop_back();
    }
    given_ = !waiting_.empty();
    return given_ ? &inputs[waiting_.front()]->record : nullptr;
}

bool MergedLogs::anyFailed() const {
    return std::any_of(inputs.begin(), inputs.end(),
                       [](const std::unique_ptr<TimedInput> &input) { return input->failed; });
}
