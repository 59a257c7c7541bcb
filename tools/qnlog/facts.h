/* What the catalogue and the clock say of a record, for the forms that other programs read. */
#ifndef TOOLS_QNLOG_FACTS_H
#define TOOLS_QNLOG_FACTS_H

#include "../common/record.h"

#include <string>
#include <string_view>
#include <vector>

/* "2026-03-01T14:00:30+01:00": local time and its zone. */
std::string momentText(int32_t time);
/* "2026-03-01 14:00:30": the same for people. */
std::string clockText(int32_t time);

struct NamedValue {
    std::string name;
    std::string_view value;
    bool isNumber = false; // by the catalogue's type for the field, and by its digits for JSON
};

/* The arguments by the names of the catalogue's fields; one without a name, or with that of an
   earlier one, by its place, from "0" on. */
std::vector<NamedValue> namedArguments(const Record &record);

/* Appends them as a JSON object. */
void appendJson(std::string &json, const std::vector<NamedValue> &values);

#endif
