/* Moments as people write them. */
#ifndef TOOLS_QNLOG_MOMENT_H
#define TOOLS_QNLOG_MOMENT_H

#include <cstdint>
#include <string>

/* Seconds since the epoch, of a text in one of the forms
     15m  -15m  2h ago  1h30m  3 days ago  2w     that long before now
     now  today  yesterday  yesterday 14:00       days begin at midnight, local time
     14:00  14:00:30                              of today
     2026-03-01  2026-03-01 14:00[:30]            also with a "T" between
     2026-03-01T14:00:30+01:00                    with a zone: as --json and --csv write it
     Sun Mar  1 14:00:30 2026                     as the default layout writes it
     1760000000  @5                               as it is; without "@" from nine digits on
   Throws std::invalid_argument with the reason. */
int64_t parseMoment(const std::string &text, int64_t now);

#endif
