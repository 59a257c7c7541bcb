/* A table of counts with a bar for each, in so many columns. */
#ifndef TOOLS_QNLOG_PANEL_H
#define TOOLS_QNLOG_PANEL_H

#include "form.h"

#include <cstdint>
#include <string>
#include <vector>

struct Count {
    std::string label; // of printable characters
    uint64_t count = 0;
    const char *colour = "";
    bool hasBar = true;
};

using Lines = std::vector<std::string>;

/* The heading and a line for each count in the order given. Shares are of the whole. Each line has
   the style's width, filled up with blanks, and no line feed. */
Lines panelOf(const std::string &heading, const std::vector<Count> &counts, uint64_t whole,
              const StatisticsStyle &style);

/* "1234567" as "1,234,567". */
std::string grouped(uint64_t number);

#endif
