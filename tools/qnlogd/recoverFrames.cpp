#include "recoverFrames.h"

#include "log/logMsg.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>

constexpr size_t SHORT_HEADER = 3; // three digits, three blanks, or "<", a digit and ">"

static bool allDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](unsigned char c) { return c >= '0' && c <= '9'; });
}

bool hasDestination(std::string_view body) {
    const std::string_view digits = body.substr(0, DESTINATION_BYTES);
    return body.size() > DESTINATION_BYTES && std::all_of(digits.begin(), digits.end(), [](char c) {
               return isxdigit(static_cast<unsigned char>(c)) != 0;
           });
}

static bool isRecord(std::string_view body) {
    if (!hasDestination(body))
        return false;
    const std::string text(body.substr(DESTINATION_BYTES));
    return typeOfCmpLog(text.c_str(), nullptr, nullptr, nullptr, nullptr) >= 0;
}

// The body of the frame that begins there, if its header is sound and all of it is there; else
// none.
static std::string_view frameBody(std::string_view bytes) {
    std::string_view digits = bytes.substr(0, SHORT_HEADER);
    if (digits == "   ") { // a line, with its end
        const size_t end = bytes.find('\n');
        return end == std::string_view::npos ? std::string_view()
                                             : bytes.substr(SHORT_HEADER, end + 1 - SHORT_HEADER);
    }
    size_t header = SHORT_HEADER;
    if (bytes.size() > SHORT_HEADER && bytes[0] == '<' && allDigits(bytes.substr(1, 1)) &&
        bytes[2] == '>') {
        digits = bytes.substr(SHORT_HEADER, static_cast<size_t>(bytes[1] - '0'));
        header += digits.size();
    }
    size_t length = 0;
    if (digits.size() < SHORT_HEADER || !allDigits(digits))
        return {};
    std::from_chars(digits.data(), digits.data() + digits.size(), length);
    return bytes.size() - header < length ? std::string_view() : bytes.substr(header, length);
}

static bool framesReachTheEnd(std::string_view bytes) {
    bool first = true;
    while (!bytes.empty()) {
        const std::string_view body = frameBody(bytes);
        if (body.empty() || !(first ? isRecord(body) : hasDestination(body)))
            return false;
        bytes.remove_prefix(static_cast<size_t>(body.data() + body.size() - bytes.data()));
        first = false;
    }
    return !first;
}

// The bytes before the frames that reach the end, when they can be one frame cut short; else 0.
static size_t cutFrame(std::string_view bytes) {
    const size_t most = std::min<size_t>(bytes.size(), PIPE_BUF);
    for (size_t at = 0; at < most; at++)
        if (framesReachTheEnd(bytes.substr(at)))
            return at;
    return 0;
}

Recovered recoverFrames(std::string_view bytes, bool inStep) {
    Recovered result;
    result.discarded = inStep ? 0 : cutFrame(bytes);
    result.sample = bytes.substr(0, std::min(result.discarded, SAMPLE_BYTES));
    for (size_t at = result.discarded; at < bytes.size();) {
        const std::string_view body = frameBody(bytes.substr(at));
        inStep = !body.empty() && (inStep ? hasDestination(body) : isRecord(body));
        if (inStep) {
            result.bodies.push_back(body);
            at = static_cast<size_t>(body.data() + body.size() - bytes.data());
            continue;
        }
        if (result.discarded++ < SAMPLE_BYTES)
            result.sample += bytes[at];
        at++;
    }
    return result;
}
