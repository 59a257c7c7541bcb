/* What could not be shown as it should: told at the end. */
#ifndef TOOLS_QNLOG_ACCOUNT_H
#define TOOLS_QNLOG_ACCOUNT_H

#include "../common/record.h"

#include <map>
#include <string>

class Account {
  public:
    /* Counts an entry that is no record. */
    void countOther(Record::Kind kind);
    void countUnexpanded(int32_t number) { unexpanded_[number]++; }
    bool allExpanded() const { return unexpanded_.empty(); }
    /* Empty when there was nothing. */
    std::string summary() const;

  private:
    std::map<int32_t, size_t> unexpanded_; // by number
    size_t foreign_ = 0;                   // lines that are neither records nor comments
    size_t cut_ = 0;                       // records without their end
};

#endif
