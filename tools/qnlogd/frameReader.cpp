#include "frameReader.h"

#include "frameHeader.h"

#include <algorithm>

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

std::optional<Piece> FrameReader::unfinished(bool drained) {
    if (!drained && rest().size() <= MAX_FRAME_BYTES)
        return std::nullopt;
    return take(Piece::DAMAGE, 0, rest().size());
}

// Up to the next line feed, as every reader of such a pipe finds its feet again.
std::optional<Piece> FrameReader::takeUnknown() {
    const size_t end = rest().find('\n');
    skipping_ = end == std::string_view::npos;
    return take(Piece::DAMAGE, 0, skipping_ ? rest().size() : end + 1);
}

std::optional<Piece> FrameReader::takeLine(bool drained) {
    const size_t end = rest().find('\n', HEADER_BYTES);
    if (end == std::string_view::npos)
        return unfinished(drained);
    return take(Piece::BODY, HEADER_BYTES, end + 1 - HEADER_BYTES);
}

std::optional<Piece> FrameReader::next(bool drained) {
    if (drained && rest().empty())
        skipping_ = false;
    if (rest().empty())
        return std::nullopt;
    if (skipping_)
        return takeUnknown();
    const FrameHeader header = readFrameHeader(rest());
    switch (header.kind) {
    case FrameHeader::CUT:
        return unfinished(drained);
    case FrameHeader::UNKNOWN:
        return takeUnknown();
    case FrameHeader::LINE:
        return takeLine(drained);
    case FrameHeader::COUNTED:
        break;
    }
    if (header.length == 0)
        return take(Piece::EMPTY, header.size, 0);
    if (header.length > MAX_FRAME_BYTES)
        return take(Piece::DAMAGE, 0, header.size);
    if (rest().size() - header.size < header.length)
        return unfinished(drained);
    return take(Piece::BODY, header.size, header.length);
}
