#include "entryReader.h"

#include "log/logMsg.h"

#include <algorithm>
#include <cstring>

constexpr char GS = '\x1D';

bool beginsRecord(std::string_view line) {
    const std::string text(line.substr(0, line.find('\n')));
    return typeOfCmpLog(text.c_str(), nullptr, nullptr, nullptr, nullptr) >= 0;
}

// Whether the line, which holds no GS, is a record's head with arguments that go on: it would be
// whole if they ended here.
static bool goesOn(std::string_view line) {
    if (!beginsRecord(line) || line.find('\0') != std::string_view::npos)
        return false;
    std::string ended = std::string(line) + GS;
    LogMsg *msg = parseCmpLogEnhanced(ended.data(), 0, 0);
    const bool sound = msg != nullptr && msg->argCount > 0;
    freeLogMsg(msg);
    return sound;
}

char *EntryReader::room(size_t size) {
    if (start_ > 0) {
        memmove(buffer_.data(), buffer_.data() + start_, end_ - start_);
        end_ -= start_;
        start_ = 0;
    }
    if (buffer_.size() < end_ + size)
        buffer_.resize(end_ + size);
    return buffer_.data() + end_;
}

void EntryReader::feed(std::string_view bytes) {
    bytes.copy(room(bytes.size()), bytes.size());
    filled(bytes.size());
}

LogEntry EntryReader::take(size_t length, bool withLineFeed, bool cut) {
    const LogEntry entry = {rest().substr(0, length), cut, withLineFeed};
    start_ += length + (withLineFeed ? 1 : 0);
    scanned_ = 0;
    return entry;
}

std::optional<LogEntry> EntryReader::takeThroughMark(size_t mark, bool atEnd) {
    const std::string_view behind = rest().substr(mark + 1, 1);
    if (behind.empty() && !atEnd)
        return std::nullopt;
    return take(mark + 1, behind == "\n", false);
}

// The record whose first line ends there; its arguments may go on behind it.
std::optional<LogEntry> EntryReader::takeRecord(size_t lineEnd, bool atEnd) {
    const std::string_view text = rest();
    for (size_t from = lineEnd + 1;;) {
        const size_t end = text.find('\n', from);
        const std::string_view line = from < text.size() ? text.substr(from, end - from) : "";
        const size_t mark = line.find(GS);
        // A line that is not here whole tells what it is once it holds a GS.
        const bool told = end != std::string_view::npos || mark != std::string_view::npos || atEnd;
        const bool another = told && beginsRecord(line);
        const bool tooLong = from + std::min(mark, line.size()) >= MAX_ENTRY_BYTES;
        if (another || tooLong || (atEnd && end == mark)) // both nowhere
            return take(lineEnd, lineEnd < text.size(), true);
        if (mark != std::string_view::npos)
            return takeThroughMark(from + mark, atEnd);
        if (end == std::string_view::npos)
            return std::nullopt;
        from = end + 1;
    }
}

// The line that ends there, or what it begins.
std::optional<LogEntry> EntryReader::takeLine(size_t end, bool atEnd) {
    const std::string_view line = rest().substr(0, end);
    const size_t mark = line.find(GS);
    if (mark == std::string_view::npos && goesOn(line))
        return takeRecord(end, atEnd);
    if (mark != std::string_view::npos && mark + 1 < line.size() && beginsRecord(line))
        return takeThroughMark(mark, atEnd);
    return take(end, end < rest().size(), false);
}

std::optional<LogEntry> EntryReader::next(bool atEnd) {
    const std::string_view text = rest();
    size_t end = text.find('\n', scanned_);
    if (end == std::string_view::npos) {
        scanned_ = text.size();
        if (text.size() >= MAX_ENTRY_BYTES)
            return take(MAX_ENTRY_BYTES, false, false);
        if (!atEnd || text.empty())
            return std::nullopt;
        end = text.size();
    } else if (end > MAX_ENTRY_BYTES) {
        return take(MAX_ENTRY_BYTES, false, false);
    }
    return takeLine(end, atEnd);
}
