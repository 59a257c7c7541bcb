/* The line reader against the plain one (plainReader.h), on the same bytes out of the same reads:
   short ones, interrupted ones and failing ones, with stream buffers of all sizes and without,
   bytes pushed back in between, and memory that runs out. After each line everything that can be
   seen is compared: the whole buffer, the counters, what the stream has read and still holds, its
   flags and errno. */
#include "plainReader.h"

#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using Random = std::mt19937;

int below(Random &random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

// ---- streams

// What the reads of a stream give, one after the other.
struct Step {
    size_t most; // so many bytes at most
    int error;   // or this error, unless it is 0
};

struct Source {
    std::string text;
    std::vector<Step> steps; // and whole reads behind them
    size_t taken = 0, reads = 0;

    ssize_t read(char *to, size_t size) {
        const Step step = reads < steps.size() ? steps[reads] : Step{size, 0};
        ++reads;
        if (step.error != 0) {
            errno = step.error;
            return -1;
        }
        const size_t count = std::min({size, step.most, text.size() - taken});
        memcpy(to, text.data() + taken, count);
        taken += count;
        return static_cast<ssize_t>(count);
    }
};

// A stream over a source of its own, whose buffer has that size; 0: it has none.
class Stream {
  public:
    Stream(const Source &source, size_t bufferSize) : source_(source), buffer_(bufferSize + 1) {
        cookie_io_functions_t functions = {};
        functions.read = [](void *cookie, char *to, size_t size) {
            return static_cast<Source *>(cookie)->read(to, size);
        };
        file = fopencookie(&source_, "r", functions);
        setvbuf(file, buffer_.data(), bufferSize == 0 ? _IONBF : _IOFBF, bufferSize);
    }
    ~Stream() { fclose(file); }
    Stream(const Stream &) = delete;
    Stream &operator=(const Stream &) = delete;

    // What a caller can find out about it.
    std::vector<size_t> looks() const {
        return {source_.taken, source_.reads,
                static_cast<size_t>(file->_IO_read_end - file->_IO_read_ptr),
                static_cast<size_t>(feof(file) != 0), static_cast<size_t>(ferror(file) != 0)};
    }

    FILE *file;

  private:
    Source source_;
    std::vector<char> buffer_;
};

// ---- the two readers

constexpr char *(*READERS[])(FILE *) = {readLine, readContLine, readQuotedLine};

// One reading of a source by both; the process's reader is given back as it was.
class Both {
  public:
    Both(const Source &source, size_t bufferSize, PlainReader::Joining joining, uint32_t modes)
        : library_(source, bufferSize), plain_(source, bufferSize), joining_(joining) {
        resetReadLine(&outer_);
        setReadLineModes(modes);
        rules_.modes = modes;
    }
    ~Both() { setReadLine(&outer_); }
    Both(const Both &) = delete;
    Both &operator=(const Both &) = delete;

    // Reads a line with both, memory being there for so many growths of the buffer; below 0:
    // always. False where they differ.
    bool readsAlike(int growths) {
        rules_.growthsLeft = growths;
        errno = 0;
        const bool isExpected = rules_.read(plain_.file, joining_);
        const int expectedError = errno;
        errno = 0;
        const char *line = readWith(growths);
        const int error = errno;
        got_ = line != nullptr;
        return got_ == isExpected && error == expectedError && library_.looks() == plain_.looks() &&
               stateIsExpected(line);
    }

    bool got() const { return got_; }
    bool isAtEnd() const { return feof(plain_.file) != 0; }

    void giveBack(int byte) {
        ungetc(byte, library_.file);
        ungetc(byte, plain_.file);
    }

    void clearErrors() {
        clearerr(library_.file);
        clearerr(plain_.file);
    }

  private:
    const char *readWith(int growths) {
        const FailingAlloc limit(growths);
        return READERS[joining_](library_.file);
    }

    bool stateIsExpected(const char *line) {
        ReadInfo now;
        resetReadLine(&now);
        setReadLine(&now);
        return now.inlineCnt == rules_.inlineCnt && now.virtLineCnt == rules_.virtLineCnt &&
               now.modes == rules_.modes && now.capacity == rules_.capacity &&
               (line == nullptr || line == now.buffer) &&
               std::string(now.buffer == nullptr ? "" : now.buffer,
                           now.buffer == nullptr ? 0 : now.capacity + 1) == rules_.buffer;
    }

    Stream library_, plain_;
    PlainReader rules_;
    PlainReader::Joining joining_;
    ReadInfo outer_;
    bool got_ = false;
};

// ---- what they are given

std::string randomText(Random &random) {
    static constexpr char BYTES[] = {'\n', '\n', '\\', '\\', '\'',  '"',
                                     '`',  'a',  ' ',  '\0', '\xFF'};
    std::string text;
    for (int parts = below(random, 40); parts > 0; --parts)
        if (below(random, 3) == 0)
            text.append(static_cast<size_t>(below(random, below(random, 10) == 0 ? 400 : 20)), 'x');
        else
            text += BYTES[below(random, sizeof BYTES)];
    return text;
}

std::vector<Step> randomSteps(Random &random) {
    static constexpr int ERRORS[] = {EINTR, EINTR, EIO, EAGAIN};
    std::vector<Step> steps(static_cast<size_t>(below(random, 30)));
    for (Step &step : steps)
        step = below(random, 6) == 0 ? Step{0, ERRORS[below(random, 4)]}
                                     : Step{static_cast<size_t>(1 + below(random, 60)), 0};
    return steps;
}

size_t randomBufferSize(Random &random) {
    static constexpr size_t SIZES[] = {0, 1, 2, 3, 5, 16, 100, 4096};
    return SIZES[below(random, sizeof SIZES / sizeof *SIZES)];
}

// ---- the cases

// All lines, and the end twice over.
void expectAlike(const Source &source, size_t bufferSize, uint32_t modes) {
    for (const auto joining : {PlainReader::NOTHING, PlainReader::BACKSLASH, PlainReader::QUOTED}) {
        Both both(source, bufferSize, joining, modes);
        for (int ends = 0; ends < 2; ends += both.got() ? 0 : 1)
            ASSERT_TRUE(both.readsAlike(-1)) << testing::PrintToString(source.text);
    }
}

TEST(PlainReader, textCutAtEveryByteIsReadAlike) {
    const std::string text = "one\n\\\n\n'a\\'\nb\"'\\\\\n\"c`\\\nd\"`\n`'\n" +
                             std::string(85, 'y') + "\\\n" + std::string(75, 'z') +
                             "'\n\\\\\\\n'\n" + std::string(1, '\0') + "\\" + std::string(1, '\0') +
                             "\n";
    for (size_t length = 0; length <= text.size(); ++length)
        for (const size_t bufferSize : {0U, 1U, 3U, 4096U})
            for (const uint32_t modes : {0U, 1U, 8U, 9U})
                expectAlike({text.substr(0, length), {}}, bufferSize, modes);
}

TEST(PlainReader, marksAtEveryDistanceAreReadAlike) {
    for (const char mark : {'\n', '\\', '\'', '"', '`', 'x'})
        for (size_t before = 0; before < 10; ++before)
            for (size_t behind = 0; behind < 10; ++behind) {
                const std::string line =
                    std::string(before, 'p') + mark + std::string(behind, 'q') + "\nnext\n";
                expectAlike({line, {}}, 4096, 1);
            }
}

TEST(PlainReader, randomTextsOutOfRandomReadsAreReadAlike) {
    Random random(20260101);
    for (int round = 0; round < 3000; ++round) {
        const Source source = {randomText(random), randomSteps(random)};
        const auto joining = static_cast<PlainReader::Joining>(below(random, 3));
        Both both(source, randomBufferSize(random), joining, random() % 16);
        for (int lines = 0; lines < 200 && !(both.isAtEnd() && !both.got()); ++lines) {
            const int growths = below(random, 4) == 0 ? below(random, 3) : -1;
            ASSERT_TRUE(both.readsAlike(growths)) << "round " << round << ", line " << lines;
            if (below(random, 5) == 0)
                both.giveBack("\n\\'xy"[below(random, 5)]);
            if (below(random, 3) == 0 && !both.isAtEnd())
                both.clearErrors();
        }
    }
}

} // namespace
