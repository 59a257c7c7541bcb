/* How far long work has come: one line on standard error, where that is a terminal, from the end of
 * its first second on. It is wiped before anything else is written there. */
#ifndef TOOLS_COMMON_PROGRESS_H
#define TOOLS_COMMON_PROGRESS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class Progress {
  public:
    /* The files whose sizes make the whole; where one has none ("-", a pipe), bytes are counted. */
    explicit Progress(const std::vector<std::string> &files);
    ~Progress() { stop(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    /* So many more bytes are done. */
    void advance(size_t bytes);
    /* Wipes the line; nothing is shown any more. */
    void stop();

  private:
    void show() const;

    bool wanted_;
    bool shown_ = false;
    uint64_t whole_ = 0; // bytes; 0: not known
    uint64_t done_ = 0;
    int64_t next_; // when to show it, in milliseconds of the steady clock
};

#endif
