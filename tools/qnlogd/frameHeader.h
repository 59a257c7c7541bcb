/* The header that a frame on the pipe begins with (logframe(5)). */
#ifndef TOOLS_QNLOGD_FRAMEHEADER_H
#define TOOLS_QNLOGD_FRAMEHEADER_H

#include <cstddef>
#include <string_view>

constexpr size_t HEADER_BYTES = 3;          // that every header begins with
constexpr size_t LONGEST_HEADER = 12;       // "<9>" and nine digits
constexpr size_t MAX_FRAME_BYTES = 1 << 20; // a body of more is not waited for: no pipe holds it

struct FrameHeader {
    enum Kind {
        CUT,     // the bytes end within it
        UNKNOWN, // these bytes begin no frame
        LINE,    // the body ends with its first line feed
        COUNTED, // the body has the length
        TOO_LONG // the body is told to have more than MAX_FRAME_BYTES
    } kind;
    size_t size = 0;   // of the header, where it is whole
    size_t length = 0; // of the body, when counted
};

/* What header the bytes begin with. */
FrameHeader readFrameHeader(std::string_view bytes);

#endif
