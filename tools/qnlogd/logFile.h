/* The log file, and what waits to be written to it. Records are added in memory and written
 * together.
 *
 * A write that fails (a full disk) is reported once and the records are kept; who flushes tries
 * again, each second at least while failing() tells so. The file never ends in part of a record:
 * what a failed write or a killed predecessor left of one is taken back, and another line without
 * its end is given one. Whoever adds asks full() first: that is the bound, which one read of the
 * pipe may pass, and at the start what the pipe held. */
#ifndef TOOLS_QNLOGD_LOGFILE_H
#define TOOLS_QNLOGD_LOGFILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class LogFile {
  public:
    LogFile(std::string path, size_t bound) : path_(std::move(path)), bound_(bound) {}
    ~LogFile(); // writes what it can of what is kept
    LogFile(const LogFile &) = delete;
    LogFile &operator=(const LogFile &) = delete;

    /* Opens it for appending, made with mode 0640 where there is none; throws WorkFailed. */
    void open();
    /* Opens what has the name now, after the old file took what is kept. Where that cannot be
       opened the old file stays and the reason is reported. */
    void reopen();
    /* Adds the record and its line feed to what is kept. */
    void add(std::string_view record);
    /* Whether the bound is reached: nothing may be added. */
    bool full() const { return kept_.size() + ends_.size() * sizeof ends_[0] >= bound_; }
    bool failing() const { return failing_; }
    /* Writes what is kept; false when some stays. */
    bool flush();
    /* Writes what is kept, at last, through to the disk; answers the records that are lost. */
    size_t end();
    uint64_t recordsWritten() const { return written_; }

  private:
    bool writeKept();
    void takeBackPart(size_t done);
    void reportFailure(int errorNumber);
    void mendTail();

    std::string path_;
    size_t bound_;
    int fd_ = -1;
    std::string kept_;         // records with their line feeds
    std::vector<size_t> ends_; // of each record in kept_
    uint64_t written_ = 0;
    bool tornTail_ = false; // the file ends in part of a line
    bool failing_ = false;
};

#endif
