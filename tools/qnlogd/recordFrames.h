/* Whole frames with log records in them, among bytes whose beginning is not known to be one: behind
 * damage, and in what a pipe holds when its last reader was killed in the middle of a frame. */
#ifndef TOOLS_QNLOGD_RECORDFRAMES_H
#define TOOLS_QNLOGD_RECORDFRAMES_H

#include <cstddef>
#include <optional>
#include <string_view>

constexpr size_t DESTINATION_BYTES = 8;

/* Whether a frame's body is a destination and something behind it. */
bool hasDestination(std::string_view body);

struct RecordPlace {
    size_t place;
    size_t headerSize;
    bool isWhole; // the frame is there to its end
};

/* The first place from one on and before another where a frame begins whose body begins as a log
   record does, behind a destination. */
std::optional<RecordPlace> findRecord(std::string_view bytes, size_t from, size_t before);

/* The size of the whole frame that begins there, when its body is a log record; else 0. */
size_t wholeRecord(std::string_view bytes);

/* Whether a header and a destination stand there. */
bool beginsFrame(std::string_view bytes);

/* The bytes before the first place, of the first PIPE_BUF, from which frames follow one another to
   the very end: one frame cut short, in which nothing is taken for another, even if an argument
   holds a frame. npos where there is no such place. */
size_t cutFrame(std::string_view bytes);

#endif
