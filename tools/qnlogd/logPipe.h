/* The named pipe that clients log through, as its one reader. It reads blocks, not frames, as the
 * library's channel would: that costs a fraction, and bounds the memory that a hostile writer can
 * have, which a frame's own announcement would not. */
#ifndef TOOLS_QNLOGD_LOGPIPE_H
#define TOOLS_QNLOGD_LOGPIPE_H

#include "frameReader.h"

#include <cstddef>
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
    /* One block of what is there, never waiting; answers its size in bytes, 0 when the pipe is
       empty. What is no record behind a destination is reported, once for a block, and discarded;
       consume sees only bodies that have one. */
    size_t receive(const Consumer &consume);
    int fd() const { return fd_; }
    /* Whether the last read found it empty: only then nothing of a frame is kept. */
    bool isDrained() const { return isDrained_; }
    /* Bytes that it holds at this moment. */
    size_t waiting() const;

  private:
    std::string readWaiting() const;
    void noteDamage(std::string_view bytes);
    void takePieces(bool drained, const Consumer &consume);
    void reportDamage(const char *when);

    std::string path_;
    int fd_ = -1;
    int writer_ = -1; // held so that the last client's close is no end of file; locked
    bool isDrained_ = true;
    FrameReader frames_;
    size_t damaged_ = 0;     // bytes that were no record and are not reported yet
    std::string sample_;     // the first of these
    size_t emptyFrames_ = 0; // likewise
};

#endif
