/* Which records are shown: every condition must hold. A condition looks at the parsed record only,
 * so that new ones need no change elsewhere. */
#ifndef TOOLS_QNLOG_SELECTION_H
#define TOOLS_QNLOG_SELECTION_H

#include "log/logMsg.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

using Condition = std::function<bool(const LogMsg &)>;

class Selection {
  public:
    void require(Condition condition) { conditions_.push_back(std::move(condition)); }
    bool accepts(const LogMsg &msg) const;

  private:
    std::vector<Condition> conditions_;
};

/* Numbers as people list them: "3", "2-4", "3-" (3 and above), and such with commas between. */
class NumberSet {
  public:
    /* Throws std::invalid_argument with the reason. */
    explicit NumberSet(const std::string &list);
    bool holds(int64_t number) const;

  private:
    struct Range {
        int64_t low, high;
    };
    std::vector<Range> ranges_;
};

/* A moment as people write it: "2026-03-01", "2026-03-01 12:30[:15]" (or with a "T"), "12:30[:15]"
   (of today), "@1760000000" (seconds since the epoch), "90s", "15m", "2h", "3d" (that long ago).
   Local time. Throws std::invalid_argument with the reason. */
time_t parseMoment(const std::string &text, time_t now);

Condition priorityIn(const std::string &list);
Condition numberIn(const std::string &list);
Condition
producerLike(const std::vector<std::string> &patterns);         // any of them; as file names match
Condition symbolLike(const std::vector<std::string> &patterns); // of the catalogue
Condition classLike(const std::vector<std::string> &patterns);
/* "NAME=PATTERN": a message with a field of that name whose value matches. Throws
   std::invalid_argument. */
Condition fieldLike(const std::string &text);
Condition messageHolding(const std::string &part); // the message's text with its arguments
Condition notBefore(time_t moment);
Condition notAfter(time_t moment);

#endif
