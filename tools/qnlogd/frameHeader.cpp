#include "frameHeader.h"

#include <algorithm>
#include <charconv>

static bool allDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

static FrameHeader counted(std::string_view digits, size_t size) {
    if (!allDigits(digits))
        return {FrameHeader::UNKNOWN};
    size_t length = 0; // of nine digits at most
    std::from_chars(digits.data(), digits.data() + digits.size(), length);
    return {length > MAX_FRAME_BYTES ? FrameHeader::TOO_LONG : FrameHeader::COUNTED, size, length};
}

FrameHeader readFrameHeader(std::string_view bytes) {
    if (bytes.size() < HEADER_BYTES)
        return {FrameHeader::CUT};
    const std::string_view begin = bytes.substr(0, HEADER_BYTES);
    if (begin == "   ")
        return {FrameHeader::LINE, HEADER_BYTES};
    if (begin[0] != '<' || begin[2] != '>' || !allDigits(begin.substr(1, 1)))
        return counted(begin, HEADER_BYTES);
    const std::string_view digits = bytes.substr(HEADER_BYTES, static_cast<size_t>(begin[1] - '0'));
    if (digits.size() < static_cast<size_t>(begin[1] - '0'))
        return allDigits(digits) ? FrameHeader{FrameHeader::CUT}
                                 : FrameHeader{FrameHeader::UNKNOWN};
    return counted(digits, HEADER_BYTES + digits.size());
}
