/* Receiving frames: any bytes, in whole, short and interrupted reads. A body is what the last read
   gave, nothing is read past it, and memory is touched by no more than what arrived, whatever
   length a header tells. In whole reads each call takes the frame that the bytes hold. */
#include "core/ipcComm.h"
#include "support/scratch.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

// ---- the pipe: its reads come from the input

static constexpr int PIPE = 1 << 30;

// What a byte of the input makes of a read; below WHOLE, one of at most a byte more than it tells.
static constexpr uint8_t INTERRUPTED = 0xFF, NOT_READY = 0xFE, FAILING = 0xFD, WHOLE = 0x80;

// What is still to be read, how each read behaves, and what the last call of ipcRecv was given.
static std::string_view stream;
static std::vector<uint8_t> behaviours;
static size_t reads;
static std::string given;

static ssize_t failWith(int error) {
    errno = error;
    return -1;
}

static ssize_t readPipe(void *place, size_t size) {
    const uint8_t behaviour = behaviours.empty() ? WHOLE : behaviours[reads % behaviours.size()];
    ++reads;
    if (behaviour == INTERRUPTED)
        return failWith(EINTR);
    if (behaviour == NOT_READY)
        return failWith(EAGAIN);
    if (behaviour == FAILING)
        return failWith(EIO);
    const size_t most = behaviour >= WHOLE ? size : std::min<size_t>(size, behaviour + 1U);
    const size_t count = std::min(most, stream.size());
    memcpy(place, stream.data(), count);
    given.append(stream, 0, count);
    stream.remove_prefix(count);
    return static_cast<ssize_t>(count);
}

// In place of the C library's, for the library as well.
extern "C" ssize_t read(int fd, void *place, size_t size) {
    return fd == PIPE ? readPipe(place, size) : syscall(SYS_read, fd, place, size);
}

// ---- memory: a large block is a mapping of its own, whose pages tell whether they were touched

static constexpr size_t LARGE = 1 << 16;

static void *mapping;
static size_t mappingSize;

static void *moveToMapping(void *block, size_t size) {
    void *larger = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (larger == MAP_FAILED)
        return nullptr;
    if (block != nullptr)
        memcpy(larger, block, std::min(size, malloc_usable_size(block)));
    free(block);
    mapping = larger;
    mappingSize = size;
    return larger;
}

static void *growMapping(size_t size) {
    void *larger = mremap(mapping, mappingSize, size, MREMAP_MAYMOVE);
    if (larger == MAP_FAILED)
        return nullptr;
    mapping = larger;
    mappingSize = size;
    return larger;
}

static void *moveBlock(void *block, size_t size) {
    void *larger = malloc(size);
    if (larger != nullptr && block != nullptr)
        memcpy(larger, block, std::min(size, malloc_usable_size(block)));
    if (larger != nullptr)
        free(block);
    return larger;
}

// The C library's and the sanitizer's copy all of a block, touched or not. Only the channel's
// buffer is ever large, one at a time.
extern "C" void *realloc(void *block, size_t size) {
    if (block != nullptr && block == mapping)
        return growMapping(size);
    return size >= LARGE && mapping == nullptr ? moveToMapping(block, size)
                                               : moveBlock(block, size);
}

static size_t touchedBytes() {
    if (mapping == nullptr)
        return 0;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> pages((mappingSize + page - 1) / page);
    FUZZ_CHECK(mincore(mapping, mappingSize, pages.data()) == 0);
    return page * static_cast<size_t>(std::count_if(pages.begin(), pages.end(),
                                                    [](unsigned char flags) { return flags & 1; }));
}

static void releaseBuffer(char *buffer) {
    if (buffer == nullptr || buffer != mapping) {
        free(buffer);
        return;
    }
    munmap(mapping, mappingSize);
    mapping = nullptr;
}

// ---- the frames of a stream that is read whole

static std::string_view take(std::string_view &bytes, size_t count) {
    const std::string_view taken = bytes.substr(0, count);
    bytes.remove_prefix(taken.size());
    return taken;
}

static bool areDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char ch) { return ch >= '0' && ch <= '9'; });
}

static std::string_view takeThroughNewline(std::string_view &bytes) {
    const size_t end = bytes.find('\n');
    return take(bytes, end == std::string_view::npos ? end : end + 1);
}

static bool isLine(std::string_view text) {
    return !text.empty() && text.back() == '\n';
}

// What a call returns: -1 for the end within something, 0 for the end of file or an empty body.
struct Frame {
    int32_t result;
    std::string_view body;
};

static Frame frameOf(std::string_view body) {
    return {static_cast<int32_t>(body.size()), body};
}

static Frame nextFrame(std::string_view &bytes) {
    while (true) {
        const std::string_view head = take(bytes, 3);
        if (head.size() < 3)
            return {head.empty() ? 0 : -1, {}};
        if (areDigits(head))
            return frameOf(take(bytes, std::stoul(std::string(head))));
        if (head == "   ") {
            const std::string_view line = takeThroughNewline(bytes);
            return isLine(line) ? frameOf(line) : Frame{-1, {}};
        }
        if (head[0] == '<' && areDigits(head.substr(1, 1)) && head[2] == '>') {
            const size_t count = static_cast<size_t>(head[1] - '0');
            const std::string_view digits = take(bytes, count);
            if (digits.size() < count || count == 0)
                return {digits.empty() ? 0 : -1, {}};
            if (areDigits(digits))
                return frameOf(take(bytes, std::stoul(std::string(digits))));
        }
        if (head[2] != '\n' && !isLine(takeThroughNewline(bytes)))
            return {-1, {}};
    }
}

// ---- what holds of each call

static void checkDiscarded() {
    const char *shown = ipcBadData(43);
    const size_t length = strlen(shown);
    FUZZ_CHECK(length % 3 == 0 && length <= 129);
    FUZZ_CHECK(std::all_of(shown, shown + length, [](char ch) { return ch >= ' ' && ch <= '~'; }));
    FUZZ_CHECK(strlen(ipcBadData(1)) == std::min<size_t>(length, 3));
}

static void checkBody(const IpcChannel &channel, int32_t length) {
    const auto size = static_cast<size_t>(length);
    FUZZ_CHECK(channel.buffer != nullptr && length <= channel.capacity);
    FUZZ_CHECK((channel.flags & IPC_HEADER_READ) == 0 && length <= channel.length);
    FUZZ_CHECK(channel.buffer[size] == '\0' && given.size() >= size);
    FUZZ_CHECK(given.compare(given.size() - size, size, channel.buffer, size) == 0);
    if ((channel.flags & IPC_LINE_BODY) != 0)
        FUZZ_CHECK(memchr(channel.buffer, '\n', size) == channel.buffer + size - 1);
}

// What the failed growth left, which is the caller's; elsewhere the buffer is never lost.
static void releaseLost(const IpcChannel &channel, char *before) {
    if (channel.buffer != nullptr || before == nullptr)
        return;
    FUZZ_CHECK(channel.capacity == 0 && errno == ENOMEM);
    releaseBuffer(before);
}

static int32_t receive(IpcChannel &channel) {
    char *const before = channel.buffer;
    given.clear();
    errno = 77;
    const int32_t length = ipcRecv(&channel);
    FUZZ_CHECK(length >= -1 && channel.fd == PIPE && channel.flags <= 3);
    FUZZ_CHECK(length != -1 || (errno != 0 && errno != 77));
    releaseLost(channel, before);
    if (length > 0)
        checkBody(channel, length);
    checkDiscarded();
    return length;
}

static void receiveWhole(IpcChannel &channel) {
    std::string_view left = stream;
    const Frame frame = nextFrame(left);
    const int32_t length = receive(channel);
    const bool exhausted = length == -1 && errno == ENOMEM;
    FUZZ_CHECK(exhausted || (length == frame.result && stream.size() == left.size()));
    FUZZ_CHECK(length <= 0 || frame.body.compare({channel.buffer, frame.body.size()}) == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Pieces pieces(data, size);
    const size_t count = pieces.byte() % 32;
    behaviours.clear();
    for (size_t i = 0; i < count; ++i)
        behaviours.push_back(pieces.byte());
    const std::string input = pieces.rest();
    stream = input;
    reads = 0;

    IpcChannel channel = {PIPE, 0, 0, 0, nullptr};
    const size_t most = input.size() + 2 * count + 8; // failing reads take nothing
    for (size_t calls = 0; calls < most && !stream.empty(); ++calls) {
        if (count == 0)
            receiveWhole(channel);
        else
            receive(channel);
    }
    receive(channel);
    // A page in part at either end, and what the block held before it became large.
    FUZZ_CHECK(touchedBytes() <= input.size() + LARGE + 2 * 4096);
    releaseBuffer(channel.buffer);
    return 0;
}
