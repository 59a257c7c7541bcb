/* Which records are shown: every condition must hold. A condition looks at the record as it lies in
 * the log, so that what is left out costs nearly nothing. */
#ifndef TOOLS_QNLOG_SELECTION_H
#define TOOLS_QNLOG_SELECTION_H

#include "../common/record.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

using Condition = std::function<bool(Record &)>;

class Selection {
  public:
    /* What a condition costs decides when it is asked. */
    enum class Cost { HEAD, CATALOGUE, EXPANSION };
    void require(Condition condition, Cost cost);
    bool accepts(Record &record) const;

  private:
    struct Entry {
        Condition condition;
        Cost cost;
    };
    std::vector<Entry> conditions_; // cheap ones first
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

/* A condition by an option's text; they throw std::invalid_argument with the reason. */
Condition priorityIn(const std::string &list);
Condition numberIn(const std::string &list);
Condition producerLike(const std::string &pattern); // as file names match
Condition symbolLike(const std::string &pattern);   // of the catalogue, likewise
Condition classLike(const std::string &pattern);
/* "NAME=PATTERN": a message with a field of that name whose value matches. */
Condition fieldLike(const std::string &text);
Condition messageHolding(const std::string &part); // the message's text with its arguments

Condition anyOf(std::vector<Condition> conditions);
Condition noneOf(Condition condition);

#endif
