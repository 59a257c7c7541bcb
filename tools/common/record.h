/* An entry of a log taken apart where it lies, cheaply enough to be done before any filter. What is
 * a record, and its fields, are exactly what the library's parser says (tests/tools/record_test.cpp
 * holds the two against each other). */
#ifndef TOOLS_COMMON_RECORD_H
#define TOOLS_COMMON_RECORD_H

#include "entryReader.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class Record {
  public:
    enum class Kind {
        RECORD,
        COMMENT, // or a blank line
        CUT,     // a record without its end
        FOREIGN, // none of these
    };

    /* Takes another entry. Its bytes are looked at where they lie, and have to stay. */
    void read(const LogEntry &entry);

    Kind kind() const { return kind_; }
    /* The entry's bytes, as in the log. */
    std::string_view bytes() const { return bytes_; }
    /* A copy with the line feed, as the library's readers take a record, valid until the next one.
       They never change it. */
    char *text();

    /* Of a record alone. */
    int32_t number() const { return number_; }
    int32_t priority() const { return priority_; }
    int32_t time() const { return time_; }
    std::string_view producer() const { return producer_; }
    std::string_view file() const { return file_; }
    int32_t line() const { return line_; }
    std::vector<std::string_view> arguments() const;

  private:
    Kind kindOf(const LogEntry &entry);
    Kind readRecord();

    std::string_view bytes_;
    std::string text_; // made when it is asked for
    Kind kind_ = Kind::FOREIGN;
    int32_t number_ = 0;
    int32_t priority_ = 0;
    int32_t time_ = 0;
    std::string_view producer_, file_;
    int32_t line_ = 0;
    std::string_view rest_; // from the separator behind the line on
};

#endif
