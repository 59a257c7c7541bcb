/* Finds a moment in a log file by bisection: a few blocks are read however large it is. */
#ifndef TOOLS_COMMON_TIMESEARCH_H
#define TOOLS_COMMON_TIMESEARCH_H

#include <cstdint>
#include <sys/types.h>

/* Where, between from and end, to begin reading so that no record of the moment or later is missed:
   `from`, or the beginning of a record that is older, a block or so before the first that is not.
   The records are taken to be in order of time. A file that cannot be read is to be read from
   `from`, which will tell why. */
off_t findMoment(int fd, off_t from, off_t end, int64_t moment);

#endif
