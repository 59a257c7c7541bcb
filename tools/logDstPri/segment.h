/* The shared segment that clients read their messages' priority and destination from. A row of a
 * table in use is changed by one 8-byte store, as clients take it with one 8-byte load. */
#ifndef TOOLS_LOGDSTPRI_SEGMENT_H
#define TOOLS_LOGDSTPRI_SEGMENT_H

#include "rules.h"

#include <cstdint>

class Segment {
  public:
    /* Attaches the segment of the library's key, if there is one. Throws WorkFailed when there is
       one that cannot be used. */
    explicit Segment(bool forWriting);
    ~Segment();
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    bool exists() const { return table_ != nullptr; }
    /* Processes that have it attached, this one not counted. */
    uint64_t users() const;
    Routing rows() const;
    /* Changes the rows that differ, in place; answers how many. False in *fits, nothing changed,
       when the segment has no room for so many rows. */
    size_t update(const Routing &routing, bool *fits);
    /* Removes it: processes that have it attached keep it until they end. */
    void remove();
    /* Makes a new one with these rows. */
    static void create(const Routing &routing);

  private:
    int id_ = -1;
    size_t capacity_ = 0; // rows
    LogDstPriTable *table_ = nullptr;
};

#endif
