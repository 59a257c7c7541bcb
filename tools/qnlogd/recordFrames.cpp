#include "recordFrames.h"

#include "frameHeader.h"

#include "log/logMsg.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <string>

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

size_t wholeRecord(std::string_view bytes) {
    const std::string_view body = frameBody(bytes);
    return isRecord(body) ? static_cast<size_t>(body.data() + body.size() - bytes.data()) : 0;
}

bool beginsFrame(std::string_view bytes) {
    const FrameHeader header = readFrameHeader(bytes);
    const bool hasBody = header.kind == FrameHeader::LINE || header.length > 0;
    return hasBody && hasDestination(bytes.substr(header.size, DESTINATION_BYTES + 1));
}

// What a header can begin with.
static size_t nextPlace(std::string_view bytes, size_t from) {
    return std::min(bytes.find_first_of("0123456789< ", from), bytes.size());
}

std::optional<RecordPlace> findRecord(std::string_view bytes, size_t from, size_t before) {
    for (size_t at = nextPlace(bytes, from); at < before; at = nextPlace(bytes, at + 1)) {
        const FrameHeader header = readFrameHeader(bytes.substr(at));
        const std::string_view body = frameBody(bytes.substr(at));
        const bool hasBody = header.kind == FrameHeader::LINE || header.length > 0;
        if (!hasBody || !isRecord(body.empty() ? bytes.substr(at + header.size) : body))
            continue;
        if (header.kind != FrameHeader::TOO_LONG)
            return RecordPlace{at, header.size, !body.empty()};
        at += header.size - 1; // no digit of it begins another
    }
    return std::nullopt;
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

size_t cutFrame(std::string_view bytes) {
    const size_t most = std::min<size_t>(bytes.size(), PIPE_BUF);
    for (size_t at = 0; at < most; at++)
        if (framesReachTheEnd(bytes.substr(at)))
            return at;
    return std::string_view::npos;
}
