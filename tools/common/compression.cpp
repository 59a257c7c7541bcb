#include "compression.h"

#include "report.h"

#include <algorithm>

constexpr std::string_view GZIP_MARK = "\x1F\x8B";
constexpr std::string_view ZSTD_MARK = "\x28\xB5\x2F\xFD";
constexpr std::string_view SKIPPABLE_MARK = "\x2A\x4D\x18"; // behind a byte 50 to 5F

// Both as long as the shorter one.
static bool agree(std::string_view first, std::string_view mark) {
    const size_t length = std::min(first.size(), mark.size());
    return first.substr(0, length) == mark.substr(0, length);
}

// zstd's frames for other data may stand before the first one.
static bool mayBeSkippable(std::string_view first) {
    return (static_cast<unsigned char>(first[0]) & 0xF0) == 0x50 &&
           agree(first.substr(1), SKIPPABLE_MARK);
}

Compression compressionOf(std::string_view first) {
    if (first.empty())
        return Compression::UNTOLD;
    if (agree(first, GZIP_MARK))
        return first.size() < GZIP_MARK.size() ? Compression::UNTOLD : Compression::GZIP;
    if (agree(first, ZSTD_MARK) || mayBeSkippable(first))
        return first.size() < COMPRESSION_MARK_BYTES ? Compression::UNTOLD : Compression::ZSTD;
    return Compression::NONE;
}

size_t CompressedInput::fetch() {
    if (at_ == block_.size()) {
        block_.resize(BLOCK_BYTES);
        block_.resize(source_.read(block_.data(), BLOCK_BYTES));
        at_ = 0;
    }
    return block_.size() - at_;
}

static WorkFailed builtWithout(const std::string &name, const char *library, const char *program) {
    return WorkFailed(name + ": built without " + library + ": decompress it first, with " +
                      program);
}

std::unique_ptr<ByteSource> decompressed(Compression compression, ByteSource &source,
                                         const std::string &name) {
    std::unique_ptr<ByteSource> bytes;
    if (compression == Compression::GZIP && (bytes = fromGzip(source, name)) == nullptr)
        throw builtWithout(name, "zlib", "zcat");
    if (compression == Compression::ZSTD && (bytes = fromZstd(source, name)) == nullptr)
        throw builtWithout(name, "libzstd", "zstdcat");
    return bytes;
}
