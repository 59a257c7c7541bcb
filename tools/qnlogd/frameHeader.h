/* The header that a frame on the pipe begins with (docs/formats.md). */
#ifndef TOOLS_QNLOGD_FRAMEHEADER_H
#define TOOLS_QNLOGD_FRAMEHEADER_H

#include <cstddef>
#include <string_view>

constexpr size_t HEADER_BYTES = 3;    // that every header begins with
constexpr size_t LONGEST_HEADER = 12; // "<9>" and nine digits

struct FrameHeader {
    enum Kind {
        CUT,     // the bytes end within it
        UNKNOWN, // these bytes begin no frame
        LINE,    // the body ends with its first line feed
        COUNTED  // the body has the length
    } kind;
    size_t size = 0;   // of the header, where it is whole
    size_t length = 0; // of the body, when counted
};

/* What header the bytes begin with. */
FrameHeader readFrameHeader(std::string_view bytes);

#endif
