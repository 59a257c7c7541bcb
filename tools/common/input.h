/* Where a log's bytes come from: a file, or standard input ("-"). When followed, a file is read on
 * as it grows, and from its beginning again when another one has taken its name or it has become
 * shorter. */
#ifndef TOOLS_COMMON_INPUT_H
#define TOOLS_COMMON_INPUT_H

#include "entryReader.h"

#include <functional>
#include <string>
#include <sys/types.h>

class Input {
  public:
    using Consumer = std::function<void(const LogEntry &)>;

    explicit Input(std::string path) : path_(std::move(path)) {}
    ~Input();
    Input(Input &&other) noexcept;
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;
    Input &operator=(Input &&) = delete;

    const std::string &path() const { return path_; }
    /* False, with errno, when it cannot be opened. */
    bool open();
    bool isOpen() const { return fd_ >= 0; }
    bool isStandardInput() const { return path_ == "-"; }
    /* Reads to the present end and hands over the entries; true when there was anything. Where it
       may not wait, standard input is read only while something is there. Throws WorkFailed on a
       read error. */
    bool read(const Consumer &consume, bool mayWait);
    /* Whether standard input has come to its end. A file may always grow. */
    bool ended() const { return ended_; }
    /* Hands over what is left as it stands: nothing more will come. */
    void finish(const Consumer &consume);
    /* Whether the name now means another file, or this one has become shorter. */
    bool replaced() const;
    void close();

  private:
    std::string path_;
    int fd_ = -1;
    off_t position_ = 0;
    bool ended_ = false;
    EntryReader entries_;
};

#endif
