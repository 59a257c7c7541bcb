/* Cuts the bytes of a log into entries. An entry is one line, except for a record whose arguments
 * hold line feeds: lines are joined until the GS that ends the arguments. Nothing is ever lost: the
 * entries' bytes are the input's.
 *
 * Joining starts only where a line is the sound head of a record with arguments that no GS ends,
 * and gives up at the end of input, where the next line begins another record, and at 1 MiB. Then
 * the first line alone is an entry marked as cut (a writer that died, a disk that was full), and
 * the lines behind it are read as any others. What stands behind a record's GS on the same line is
 * an entry of its own. A line longer than 1 MiB comes in pieces. */
#ifndef TOOLS_COMMON_ENTRYREADER_H
#define TOOLS_COMMON_ENTRYREADER_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

constexpr size_t MAX_ENTRY_BYTES = 1 << 20;

struct LogEntry {
    std::string_view bytes;   // without the line feed that ends it; valid until more is fed
    bool cut = false;         // a record without its end
    bool hasLineFeed = false; // whether one ended it
};

/* Whether the text up to its first line feed begins as a record does. */
bool beginsRecord(std::string_view text);

class EntryReader {
  public:
    /* Where so many more bytes may be put, and how many were: a reader needs no block of its own.
     */
    char *room(size_t size);
    void filled(size_t count) { end_ += count; }
    void feed(std::string_view bytes);
    /* The next entry; none when more bytes are needed to tell where it ends. At the end of input
       what is left is an entry as it stands. */
    std::optional<LogEntry> next(bool atEnd);

  private:
    std::string_view rest() const { return {buffer_.data() + start_, end_ - start_}; }
    LogEntry take(size_t length, bool withLineFeed, bool cut);
    std::optional<LogEntry> takeThroughMark(size_t mark, bool atEnd);
    std::optional<LogEntry> takeRecord(size_t lineEnd, bool atEnd);
    std::optional<LogEntry> takeLine(size_t end, bool atEnd);

    std::string buffer_;
    size_t start_ = 0;   // of what was not taken yet
    size_t end_ = 0;     // of what was filled
    size_t scanned_ = 0; // bytes behind start_ that hold no line feed
};

#endif
