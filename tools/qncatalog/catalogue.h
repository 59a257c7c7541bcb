/* A message catalogue in memory: classes of messages, each message with its named fields. It is
 * read from its source (readSource), completed with the operating system's errors
 * (addSystemErrors), checked as a whole (checkCatalogue) and compiled into the files of a log root
 * (compileCatalogue). The numbers and limits that the compiled files impose stand here. */
#ifndef TOOLS_QNCATALOG_CATALOGUE_H
#define TOOLS_QNCATALOG_CATALOGUE_H

#include "../common/wholeFiles.h"

#include <cstdint>
#include <string>
#include <vector>

constexpr char FS = '\x1C'; // between the fields of a record
constexpr char GS = '\x1D'; // after the last of them

constexpr int64_t MAX_NUMBER =
    999'999;                        // of a message: the class readers take 1000000 for "unknown"
constexpr int64_t MAX_PRIORITY = 4; // the last one that has a mark
constexpr size_t MAX_FORMAT_OFFSET =
    0xFFFF; // of a compressed format: the table's entries have 16 bits
constexpr size_t MAX_TEXT_BYTES = 99'999; // of a message's text: five digits in its directory entry
constexpr size_t MAX_FIELDS = 256;        // of a message: a field's position has 8 bits
constexpr int32_t SYSTEM_ERROR_BASE = 1727; // an operating-system error is this number + errno

struct Field {
    std::string name;
    char type = 'S';        // a letter of the type table in conversions.cpp
    std::string conversion; // as printf takes it
    int16_t first = 0;      // two numbers for the readers of the field dictionary
    int32_t second = 0;
    size_t line = 0; // of the source
};

struct Message {
    std::string symbol;
    int64_t relative = 0; // within its class, from 1
    int64_t priority = 0;
    int64_t destination = 0; // a mask of 32 bits
    std::string text;        // "%s" stands for the next field, "%%" for a percent sign
    std::vector<Field> fields;
    size_t line = 0; // of the source: where the message begins, and its text
    size_t textLine = 0;
};

struct MessageClass {
    std::string name;
    int64_t start = 0; // the number of its message 1
    std::vector<Message> messages;
    size_t line = 0;
    bool generated = false; // the operating system's errors
    int64_t number(const Message &message) const { return start + message.relative - 1; }
};

struct Catalogue {
    std::vector<MessageClass> classes; // ascending by start once checked
    int64_t end = 0;                   // the number after the last one, once checked
};

/* What is wrong with a source; every finding names its line. */
class Problems {
  public:
    struct Finding {
        size_t line;
        std::string what;
    };
    void add(size_t line, std::string what) { findings_.push_back({line, std::move(what)}); }
    bool any() const { return !findings_.empty(); }
    std::vector<Finding> byLine() const;

  private:
    std::vector<Finding> findings_;
};

/* Reads a source. What does not fit the format's grammar joins the problems and is left out. Throws
   WorkFailed when the file cannot be read. */
Catalogue readSource(const std::string &path, Problems &problems);

/* Adds the class of the operating system's errors. */
void addSystemErrors(Catalogue &catalogue);

/* Sorts classes and messages, settles the end, and adds what breaks a rule to the problems. */
void checkCatalogue(Catalogue &catalogue, Problems &problems);

/* What is wrong with a conversion for a field of the type; empty when it fits. */
std::string conversionProblem(char type, const std::string &conversion);
/* The conversion of a field that names none, and the C type its caller passes; null for a letter
   that is no type. */
const char *defaultConversion(char type);
const char *argumentType(char type);

/* The compressed format: what a record holds after its source line, as a printf format. */
std::string compressedFormat(const Message &message);

/* The files of a log root, whole, under the root; readers' entry points last. Offsets that do not
   fit join the problems. */
std::vector<NamedBytes> compileCatalogue(const Catalogue &catalogue, const std::string &root,
                                         Problems &problems);

/* A format for lnav, the log viewer: how it reads what `qnlog --json` writes of this catalogue's
   messages, with each named field as a column of its tables. */
std::string lnavFormat(const Catalogue &catalogue);

/* The first line of every header that compileCatalogue makes. */
extern const char *const HEADER_MARK;

#endif
