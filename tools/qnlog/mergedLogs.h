/* Several logs as one, in order of time. Where times are equal the files' order decides; what is no
 * record stays behind the record that it follows. Memory holds a block of each file, however long
 * they are. */
#ifndef TOOLS_QNLOG_MERGEDLOGS_H
#define TOOLS_QNLOG_MERGEDLOGS_H

#include "../common/input.h"
#include "../common/record.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

/* Both ends belong to it. Files are in order of time, to within DISORDER_SECONDS: so far around the
   range a file is read to find its records. */
struct TimeRange {
    int64_t since = std::numeric_limits<int64_t>::min();
    int64_t until = std::numeric_limits<int64_t>::max();
};
constexpr int64_t DISORDER_SECONDS = 60;

/* One log, and the entry of it that is next. */
class TimedInput {
  public:
    TimedInput(const std::string &path, Input::Mode mode, const TimeRange &range,
               Progress *progress)
        : input(path, mode, progress), range_(range) {}

    /* Goes on to the next entry within the range; false at the (present) end. Failures are reported
       and end the input. */
    bool advance();
    /* False, with errno, when it cannot be opened. */
    bool open();

    Input input;
    Record record;
    bool failed = false;
    int64_t time() const { return time_; } // of the entry, or of the record that it follows

  private:
    void goToRange();
    bool findNext();
    bool isPastRange() const;

    TimeRange range_;
    bool atRange_ = false;
    int64_t time_ = std::numeric_limits<int64_t>::min();
};

class MergedLogs {
  public:
    MergedLogs(const std::vector<std::string> &paths, Input::Mode mode, const TimeRange &range,
               Progress *progress);
    /* The next entry of all; null at the (present) end. Valid until the next call. */
    Record *next();

    std::vector<std::unique_ptr<TimedInput>> inputs; // in the files' order
    bool anyFailed() const;

  private:
    struct Later;
    void open(TimedInput &input);
    void openAll();

    Input::Mode mode_;
    std::vector<size_t> waiting_; // a heap of positions in inputs, the earliest first
    bool opened_ = false;
    bool given_ = false; // the first of the heap was given out and has to advance
};

#endif
