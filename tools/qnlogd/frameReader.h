/* Cuts what comes through the pipe into frames, in bounded memory whatever comes.
 *
 * A frame up to the pipe's atomic size comes whole: one that is not there in full when the pipe is
 * empty never will be. A longer one may lack its end, and then what it announces reaches into its
 * neighbours. So a long body in which another record begins, or behind which no frame does, is
 * looked at twice; and what is no whole frame when the pipe is empty is damage. Behind damage the
 * reader is out of step until a place where a header announces a body that is there whole and
 * begins as a log record does. */
#ifndef TOOLS_QNLOGD_FRAMEREADER_H
#define TOOLS_QNLOGD_FRAMEREADER_H

#include "recordFrames.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

struct Piece {
    enum Kind { BODY, EMPTY, DAMAGE } kind;
    std::string_view bytes; // of the body, or what is damaged; valid until more is fed
};

class FrameReader {
  public:
    void feed(std::string_view bytes);
    /* What comes next need not begin with a frame. */
    void loseStep() { inStep_ = false; }
    /* The next piece; none when more bytes are needed. When the pipe is drained there will be no
       more, and what is left is damage. */
    std::optional<Piece> next(bool drained);

  private:
    std::string_view rest() const { return std::string_view(buffer_).substr(start_); }
    Piece take(Piece::Kind kind, size_t headerSize, size_t size);
    bool isFollowed(size_t end) const;
    std::optional<RecordPlace> nextFrame(bool mayWait) const;
    std::optional<Piece> findStep(bool drained);
    std::optional<Piece> takeFrame(bool drained);
    size_t frameWithin(size_t headerSize) const;
    std::optional<Piece> takeLong(size_t headerSize, size_t length, bool drained);
    std::optional<Piece> takeLine(bool drained);
    std::optional<Piece> unfinished(bool drained);

    std::string buffer_;
    size_t start_ = 0;   // of what was not taken yet
    bool inStep_ = true; // a frame begins there
};

#endif
