/* Whole frames among bytes whose beginning is not known to be one: what a pipe holds when its last
 * reader was killed in the middle of a frame. */
#ifndef TOOLS_QNLOGD_RECOVERFRAMES_H
#define TOOLS_QNLOGD_RECOVERFRAMES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct Recovered {
    std::vector<std::string_view>
        bodies;           // of the frames, in their order; they lie in the bytes given
    size_t discarded = 0; // bytes that belong to no frame
    std::string sample;   // the first of these
};

constexpr size_t SAMPLE_BYTES = 43; // as many as the library shows of what it discards

/* A place counts as a frame where a header announces a body that is there whole and that is a log
   record behind eight hexadecimal digits. Right behind such a frame the digits are enough; inStep
   tells that this holds of the first byte. Where frames follow one another from some place within
   the first PIPE_BUF bytes to the very end, what is before that place is one frame cut short, and
   nothing in it is taken for another, even if an argument holds a frame. */
Recovered recoverFrames(std::string_view bytes, bool inStep);

/* Whether a frame's body is a destination and something behind it. */
bool hasDestination(std::string_view body);

constexpr size_t DESTINATION_BYTES = 8;

#endif
