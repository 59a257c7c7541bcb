/* Cuts what comes through the pipe into frames, in bounded memory whatever comes.
 *
 * A frame up to the pipe's atomic size comes whole, so that one which is not there in full when the
 * pipe is empty never will be. A longer one can miss its end, too, and then has swallowed its
 * neighbours. So when the pipe is empty nothing is kept: what is no whole frame by then is damage,
 * in which whole frames may be found again. */
#ifndef TOOLS_QNLOGD_FRAMEREADER_H
#define TOOLS_QNLOGD_FRAMEREADER_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

constexpr size_t MAX_FRAME_BYTES = 1 << 20; // a body of more is not waited for

struct Piece {
    enum Kind { BODY, EMPTY, DAMAGE } kind;
    std::string_view bytes; // of the body, or what is damaged; valid until more is fed
};

class FrameReader {
  public:
    void feed(std::string_view bytes);
    /* The next piece; none when more bytes are needed. When the pipe is drained there will be no
       more, and what is left is damage. */
    std::optional<Piece> next(bool drained);

  private:
    std::string_view rest() const { return std::string_view(buffer_).substr(start_); }
    Piece take(Piece::Kind kind, size_t headerSize, size_t size);
    std::optional<Piece> unfinished(bool drained);
    std::optional<Piece> takeUnknown();
    std::optional<Piece> takeLine(bool drained);

    std::string buffer_;
    size_t start_ = 0;      // of what was not taken yet
    bool skipping_ = false; // within damage that a line feed ends
};

#endif
