/* The named pipe that clients log through, as its one reader. */
#ifndef TOOLS_QNLOGD_LOGPIPE_H
#define TOOLS_QNLOGD_LOGPIPE_H

#include "core/ipcComm.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <sys/types.h>

class LogPipe {
  public:
    using Consumer = std::function<void(std::string_view body)>; // a frame's body

    explicit LogPipe(std::string path) : path_(std::move(path)) {}
    ~LogPipe();
    LogPipe(const LogPipe &) = delete;
    LogPipe &operator=(const LogPipe &) = delete;

    /* Makes the pipe with that mode where there is none, and opens it; throws WorkFailed where
       another daemon reads it. Finding that out takes up to four seconds where the pipe is there
       already. */
    void open(mode_t mode);
    /* Takes what the pipe holds at this moment, raw, and hands over the whole frames in it. To be
       done once, before the first receive. */
    void recover(const Consumer &consume);
    /* Hands over what the pipe holds and stops reading, so that clients are refused. False when
       they wrote in between, which is still in the pipe: to be called again, until it is true. */
    bool close(const Consumer &consume);
    enum class Received { SOMETHING, NOTHING };
    /* One frame, if there is one: never waits. Readable tells that bytes are known to be there:
       when they give nothing they were discarded, and that is reported too. What is no record
       behind a destination is reported and discarded; consume sees only bodies that have one. */
    Received receive(bool readable, const Consumer &consume);
    int fd() const { return channel_.fd; }
    /* Bytes that it holds at this moment. */
    size_t waiting() const;

  private:
    void takeWaiting(bool inStep, const char *when, const Consumer &consume) const;
    void salvage(std::string_view bytes, bool inStep, const char *when,
                 const Consumer &consume) const;
    void takeBody(std::string_view body, const Consumer &consume);
    bool reportDiscarded() const; // whether there was anything
    void reportFailure(int failure);

    std::string path_;
    IpcChannel channel_ = {-1, 0, 0, 0, nullptr};
    int writer_ = -1; // held so that the last client's close is no end of file; locked
};

#endif
