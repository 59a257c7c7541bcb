/* A log's entries, from a file or standard input ("-"), plain or compressed by gzip or zstd (told
 * by the first bytes).
 *
 * Read to its end, an input waits for bytes and gives what is left at the end as it stands.
 * Followed, it never waits and has no end until finish(): a file is read on as it grows, and from
 * its beginning again when another one has taken its name or it has become shorter. */
#ifndef TOOLS_COMMON_INPUT_H
#define TOOLS_COMMON_INPUT_H

#include "byteSource.h"
#include "entryReader.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

class Progress;

class Input {
  public:
    enum class Mode { TO_END, FOLLOWED };

    Input(std::string path, Mode mode, Progress *progress = nullptr);
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    const std::string &path() const { return path_; }
    Mode mode() const { return mode_; }
    /* False, with errno, when it cannot be opened. */
    bool open();
    bool isOpen() const { return file_.fd >= 0; }
    bool isStandardInput() const { return path_ == "-"; }
    /* Where the file is a plain one: goes on at the records of the moment, by bisection. The file
       is taken to be in order of time. To be called before the first entry is asked for. */
    void skipTo(int64_t moment);
    /* The next entry, valid until the call after; none at the (present) end. Throws WorkFailed on a
       read error and on damaged data, the present file's last word. */
    std::optional<LogEntry> next();
    /* Whether standard input has come to its end. A file may always grow. */
    bool ended() const { return file_.ended; }
    /* Nothing more will come: from now on next() hands over what is left as it stands. */
    void finish() { finished_ = true; }
    /* Whether the name now means another file, or this one has become shorter. */
    bool replaced() const;
    void close();

  private:
    // The bytes as the file has them.
    struct File : ByteSource {
        size_t read(char *block, size_t size) override;
        std::string path;
        int fd = -1;
        bool mayWait = true;
        bool ended = false;
        std::string first; // read for a look at them, not taken yet
        off_t position = 0;
        Progress *progress = nullptr;
    };
    bool detect();
    bool fill();
    bool more();

    std::string path_;
    Mode mode_;
    File file_;
    Compression compression_ = Compression::UNTOLD;
    std::unique_ptr<ByteSource> decompressed_;
    bool finished_ = false;
    EntryReader entries_;
};

#endif
