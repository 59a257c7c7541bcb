#include "recoverFrames.h"

#include "frameHeader.h"

#include "log/logMsg.h"

#include <algorithm>
#include <cctype>
#include <climits>

bool hasDestination(std::string_view body) {
    const std::string_view digits = body.substr(0, DESTINATION_BYTES);
    return body.size() > DESTINATION_BYTES && std::all_of(digits.begin(), digits.end(), [](char c) {
               return isxdigit(static_cast<unsigned char>(c)) != 0;
           });
}

// By its head alone: a bound on what hostile bytes cost, where a header can stand at each of them.
static bool isRecord(std::string_view body) {
    constexpr size_t HEAD_BYTES = 4096;
    if (!hasDestination(body))
        return false;
    const std::string text(body.substr(DESTINATION_BYTES, HEAD_BYTES));
    return typeOfCmpLog(text.c_str(), nullptr, nullptr, nullptr, nullptr) >= 0;
}

// The body of the frame that begins there, if its header is sound and all of it is there; else
// none.
static std::string_view frameBody(std::string_view bytes) {
    const FrameHeader header = readFrameHeader(bytes);
    const std::string_view behind = bytes.substr(std::min(header.size, bytes.size()));
    if (header.kind == FrameHeader::LINE)
        return behind.substr(0, behind.find('\n') + 1); // without its end: nothing
    if (header.kind != FrameHeader::COUNTED || behind.size() < header.length)
        return {};
    return behind.substr(0, header.length);
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
        // On to the next byte that a header can begin with.
        const size_t next = std::min(bytes.find_first_of("0123456789< ", at + 1), bytes.size());
        result.sample += bytes.substr(at, std::min(next - at, SAMPLE_BYTES - result.sample.size()));
        result.discarded += next - at;
        at = next;
    }
    return result;
}
