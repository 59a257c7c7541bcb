/* A form in which a log is shown. Entries come one by one; what is to be written for each is
 * appended to the text. Only one form may be in use: the expansion's settings and buffers are the
 * process's. */
#ifndef TOOLS_QNLOG_FORM_H
#define TOOLS_QNLOG_FORM_H

#include "account.h"

#include <memory>
#include <string>

class Form {
  public:
    explicit Form(Account &account) : account_(account) {}
    virtual ~Form() = default;
    Form(const Form &) = delete;
    Form &operator=(const Form &) = delete;

    /* What stands before the first entry, and behind the last one. */
    virtual void begin(std::string &) {}
    virtual void end(std::string &) {}
    virtual void showRecord(Record &record, std::string &text) = 0;
    /* An entry that is no record: left out, and counted where it is not a comment. */
    virtual void showOther(const Record &entry, std::string &) {
        account_.countOther(entry.kind());
    }

  protected:
    Account &account_;
};

/* Text for people: the expansion, wrapped and coloured. */
struct TextStyle {
    int width = 0;            // columns; 0: lines are not wrapped
    bool visible = false;     // control characters shown by the expansion itself
    bool colour = false;      // by priority
    bool raw = false;         // control characters of records as they are: never for a terminal
    bool onlyRecords = false; // other lines are counted only
};
std::unique_ptr<Form> textForm(Account &account, const TextStyle &style);

/* A line for each record, a template with its synthetic fields filled in. */
std::unique_ptr<Form> templateForm(Account &account, const std::string &fields, bool raw);

/* For other programs, UTF-8 whatever the bytes: a byte that belongs to no character stands for the
   character of its number. An object a line; a table as RFC 4180 has it. */
std::unique_ptr<Form> jsonForm(Account &account);
std::unique_ptr<Form> csvForm(Account &account, bool forTerminal);

/* No records, but how many there are of each kind. */
struct StatisticsStyle {
    int width = 80; // columns
    bool colour = false;
    bool blocks = false; // bars of block characters, in UTF-8
};
std::unique_ptr<Form> statisticsForm(Account &account, const StatisticsStyle &style);

#endif
