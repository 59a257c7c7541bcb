#include "frameReader.h"

#include "frameHeader.h"
#include "recordFrames.h"

#include <algorithm>

constexpr size_t BETTER_WITHIN = 256; // of the first place: what a cut head can make up
constexpr size_t LONGEST_HEAD = 4096; // of a frame and its record, by which it is known

void FrameReader::feed(std::string_view bytes) {
    buffer_.erase(0, start_);
    start_ = 0;
    buffer_.append(bytes);
}

Piece FrameReader::take(Piece::Kind kind, size_t headerSize, size_t size) {
    const Piece piece = {kind, rest().substr(headerSize, size)};
    start_ += headerSize + size;
    return piece;
}

// By a frame, or the beginning of a header that was cut and then a frame.
bool FrameReader::isFollowed(size_t end) const {
    bool followed = rest().size() <= end;
    for (size_t at = end; !followed && at <= end + LONGEST_HEADER && at < rest().size(); at++)
        followed = beginsFrame(rest().substr(at));
    return followed;
}

/* The next frame: of those that are whole the first that another follows, else the first. The
   search for a better one ends soon, or hostile bytes could make each of them cost the whole
   buffer. One whose end, or what follows, is still to come is waited for, as its own header and
   text could pass for shorter ones. */
std::optional<RecordPlace> FrameReader::nextFrame(bool mayWait) const {
    constexpr size_t LOOK_AHEAD = 2 * LONGEST_HEADER + DESTINATION_BYTES + 1;
    std::optional<RecordPlace> first;
    for (size_t from = 0;;) {
        std::optional<RecordPlace> found = findRecord(rest(), from, rest().size());
        if (!found || (first && found->place > first->place + BETTER_WITHIN))
            return first;
        const size_t end = found->place + wholeRecord(rest().substr(found->place));
        const bool isKnown = found->isWhole && (!mayWait || rest().size() >= end + LOOK_AHEAD);
        if (isKnown && isFollowed(end))
            return found;
        if (!isKnown && mayWait) {
            found->isWhole = false;
            return found;
        }
        if (found->isWhole && !first)
            first = found;
        // Past all digits of a longer header; those of a short one may be another's behind a cut.
        from = found->place + (found->headerSize > HEADER_BYTES ? found->headerSize : 1);
    }
}

// The damage up to the next frame; none where that is here, or more is needed to tell.
std::optional<Piece> FrameReader::findStep(bool drained) {
    const bool mayWait = !drained && rest().size() <= 2 * MAX_FRAME_BYTES;
    const std::optional<RecordPlace> found = nextFrame(mayWait);
    inStep_ = drained || (found && found->isWhole);
    size_t damaged = rest().size() - (mayWait ? std::min(rest().size(), LONGEST_HEAD) : 0);
    if (found)
        damaged = found->place;
    return damaged == 0 ? std::nullopt : std::optional(take(Piece::DAMAGE, 0, damaged));
}

// Out of step, when what is missing will not come.
std::optional<Piece> FrameReader::unfinished(bool drained) {
    inStep_ = !drained && rest().size() <= 2 * MAX_FRAME_BYTES;
    return inStep_ ? std::nullopt : findStep(drained);
}

std::optional<Piece> FrameReader::takeLine(bool drained) {
    const size_t end = rest().find('\n', HEADER_BYTES);
    if (end == std::string_view::npos)
        return unfinished(drained);
    return take(Piece::BODY, HEADER_BYTES, end + 1 - HEADER_BYTES);
}

// Where in what seems to be a header another frame begins: the header was cut there. 0 for nowhere.
size_t FrameReader::frameWithin(size_t headerSize) const {
    for (size_t at = 1; at < headerSize; at++)
        if (const size_t size = wholeRecord(rest().substr(at)); size > 0 && isFollowed(at + size))
            return at;
    return 0;
}

/* Whole as its header tells. What it may have been cut for can begin at its very end, and be as
   long again: the try after the one that failed. */
std::optional<Piece> FrameReader::takeLong(size_t headerSize, size_t length, bool drained) {
    const size_t end = headerSize + length;
    if (!drained && rest().size() < 2 * end)
        return std::nullopt;
    const std::optional<RecordPlace> next = findRecord(rest(), headerSize, end);
    if (next || !isFollowed(end))
        if (const size_t within = frameWithin(headerSize); within > 0)
            return take(Piece::DAMAGE, 0, within);
    return next ? take(Piece::DAMAGE, 0, next->place) : take(Piece::BODY, headerSize, length);
}

std::optional<Piece> FrameReader::takeFrame(bool drained) {
    const FrameHeader header = readFrameHeader(rest());
    switch (header.kind) {
    case FrameHeader::CUT:
        return unfinished(drained);
    case FrameHeader::LINE:
        return takeLine(drained);
    case FrameHeader::UNKNOWN:
        inStep_ = false;
        return findStep(drained);
    case FrameHeader::TOO_LONG: // past its header, whose digits could pass for another
        inStep_ = false;
        return take(Piece::DAMAGE, 0, header.size);
    case FrameHeader::COUNTED:
        break;
    }
    if (header.length == 0)
        return take(Piece::EMPTY, header.size, 0);
    if (rest().size() - header.size < header.length)
        return unfinished(drained);
    if (header.size > HEADER_BYTES) // which the beginning of a longer one can pass for
        return takeLong(header.size, header.length, drained);
    return take(Piece::BODY, header.size, header.length);
}

std::optional<Piece> FrameReader::next(bool drained) {
    std::optional<Piece> piece;
    inStep_ = inStep_ || (drained && rest().empty());
    // In step again at the very place, it goes on with the frame there.
    for (bool again = true; again && !piece && !rest().empty();) {
        const bool wasInStep = inStep_;
        piece = wasInStep ? takeFrame(drained) : findStep(drained);
        again = !wasInStep && inStep_;
    }
    return piece;
}
