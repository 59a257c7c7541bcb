#include "timeSearch.h"

#include "entryReader.h"

#include "log/logMsg.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr off_t NEAR_BYTES = 1 << 16; // what is as well read through
constexpr size_t PROBE_BYTES = 1 << 14;

struct Found {
    off_t offset = -1; // of the record; -1: none
    int32_t time = 0;
};

// The first record that begins a line of the text, behind the line that it starts in. Where the
// last line is not whole it may be one whose head is.
Found recordIn(std::string_view text, off_t offset) {
    for (size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at)) {
        at++;
        const std::string line(text.substr(at, text.find('\n', at) - at));
        Found found;
        if (typeOfCmpLog(line.c_str(), nullptr, nullptr, &found.time, nullptr) >= 0) {
            found.offset = offset + static_cast<off_t>(at);
            return found;
        }
    }
    return {};
}

// The first record that begins a line between the two offsets: a line there may be long.
Found recordBetween(int fd, off_t from, off_t end) {
    std::string text;
    while (from < end) {
        char block[PROBE_BYTES];
        const auto wanted =
            static_cast<size_t>(std::min<off_t>(end - from, static_cast<off_t>(PROBE_BYTES)));
        const ssize_t count = pread(fd, block, wanted, from);
        if (count <= 0)
            break;
        const off_t textAt = from - static_cast<off_t>(text.size());
        text.append(block, static_cast<size_t>(count));
        const Found found = recordIn(text, textAt);
        if (found.offset >= 0)
            return found;
        from += count;
        // A head that the block cut is looked at again with what follows.
        const size_t last = text.rfind('\n');
        text.erase(0, last == std::string::npos ? text.size() : last);
    }
    return {};
}

} // namespace

off_t findMoment(int fd, off_t from, off_t end, int64_t moment) {
    off_t low = from; // an older record begins here, or the search did
    off_t high = end;
    while (high - low > NEAR_BYTES) {
        const off_t middle = low + (high - low) / 2;
        const Found found = recordBetween(fd, middle, high);
        if (found.offset >= 0 && found.time < moment)
            low = found.offset;
        else
            high = middle;
    }
    return low;
}
