/* What the tests of the log client share: a log root with its format file and a real pipe, the
   reader's end in the client's own process, real shared memory, and a clock that stands still. Each
   case runs the client in a child process. To be included once in a program. */
#ifndef TESTS_LOG_CLIENTFIXTURE_H
#define TESTS_LOG_CLIENTFIXTURE_H

#include "log/log.h"
#include "log/logDstPri.h"

#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <map>
#include <string>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace std::string_literals;

// The client's clock, in place of the system's.
inline time_t timeNow = 0x5F000000;
extern "C" time_t time(time_t *out) noexcept {
    if (out != nullptr)
        *out = timeNow;
    return timeNow;
}

// A key that no segment has.
constexpr const char *NO_TABLE_KEY = "0x7E57C1E0";

// Messages of every client root, by number; 1727 + errno take one text, as the catalogue has it.
constexpr int PLAIN = 12;       // no arguments
constexpr int NUMBER_TEXT = 13; // %d, %s
constexpr int WIDE = 14;        // %ld, %.8lX
constexpr int MESSAGES = 1900;  // numbers 0 to 1899

inline std::string bigEndian(uint32_t value, int width) {
    std::string bytes;
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

// The file "cmpLogFmt": messages that are not given have the empty format.
inline std::string formatFile(const std::map<int, std::string> &formats) {
    std::string offsets, strings = "\0"s;
    for (int number = 0; number < MESSAGES; ++number) {
        const auto found = formats.find(number);
        offsets += bigEndian(found == formats.end() ? 0 : static_cast<uint32_t>(strings.size()), 2);
        if (found != formats.end())
            strings += found->second + "\0"s;
    }
    return bigEndian(MESSAGES, 4) + offsets + strings;
}

inline std::map<int, std::string> clientFormats() {
    std::map<int, std::string> formats = {{NUMBER_TEXT, "\x1C%d\x1C%s\x1D"},
                                          {WIDE, "\x1C%ld\x1C%.8lX\x1D"}};
    for (int error = 0; error < 134; ++error)
        formats[1727 + error] = "\x1C%s\x1D";
    return formats;
}

// The frame that a short record travels in.
inline std::string framed(const std::string &record) {
    const std::string digits = std::to_string(record.size());
    return std::string(3 - digits.size(), '0') + digits + record;
}

class ClientRoot {
  public:
    ClientRoot() {
        dir_.write("cmpLogFmt", formatFile(clientFormats()));
        EXPECT_EQ(mkfifo(pipe().c_str(), 0600), 0);
    }
    const TempDir &dir() const { return dir_; }
    const std::string &path() const { return dir_.path(); }
    std::string pipe() const { return dir_.file("logpipe"); }

    void openReader() { reader_ = open(pipe().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }
    void closeReader() { close(reader_); }
    int reader() const { return reader_; }
    // What waits in the pipe, which is empty then.
    std::string received() const {
        std::string bytes;
        char block[65536];
        for (ssize_t count; (count = read(reader_, block, sizeof block)) > 0;)
            bytes.append(block, static_cast<size_t>(count));
        return bytes;
    }
    // Process "tst", destination 1, priority 0; a settled environment, no table.
    void start() {
        for (const char *name : {"LOGROOT", "LOGDSTRULES", "OLD_LOGPERROR", "LOGFORMAT",
                                 "LOGCOLUMN", "LOGCONTPREFIX", "TEXTLOGFMT", "MAXMSGSIZE"})
            unsetenv(name);
        setenv("LOGDSTPRISHMKEY", NO_TABLE_KEY, 1);
        openReader();
        ASSERT_EQ(loginit("tst", 1, 0, path().c_str()), 0);
    }

  private:
    TempDir dir_;
    int reader_ = -1;
};

// Runs the body in a child whose client is started; it must pass, and what it wrote to standard
// error comes back.
inline std::string withClient(const std::function<void(ClientRoot &)> &body) {
    ClientRoot root;
    const ChildResult result = runInChild([&] {
        root.start();
        body(root);
    });
    EXPECT_TRUE(result.exited && result.exitCode == 0)
        << "exit code " << result.exitCode << ", signal " << result.signal << "\n"
        << result.out << result.err;
    return result.err;
}

// A shared table with a key of its own, removed again by the process that made it.
class Segment {
  public:
    // The size is that of the rows unless given, and so is the key unique.
    Segment(int32_t rowCount, const std::vector<LogDstPri> &rows, size_t size = 0, int mode = 0600,
            uint32_t key = 0)
        : owner_(getpid()), key_(key != 0 ? key : ownKey()) {
        const size_t needed = sizeof(LogDstPriTable) + rows.size() * sizeof(LogDstPri);
        id_ = shmget(static_cast<key_t>(key_), size == 0 ? needed : size,
                     IPC_CREAT | IPC_EXCL | 0600);
        table_ = static_cast<LogDstPriTable *>(shmat(id_, nullptr, 0));
        if (id_ == -1 || table_ == reinterpret_cast<LogDstPriTable *>(-1)) {
            ADD_FAILURE() << "no shared memory";
            abort();
        }
        table_->rowCount = rowCount;
        for (size_t index = 0; index < rows.size(); ++index)
            table_->row[index] = rows[index];
        setMode(mode);
    }
    ~Segment() {
        if (getpid() == owner_) {
            shmdt(table_);
            shmctl(id_, IPC_RMID, nullptr);
        }
    }
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    // Makes it the process's table, as far as the key is not settled yet.
    void name() const { setenv("LOGDSTPRISHMKEY", std::to_string(key_).c_str(), 1); }
    uint32_t key() const { return key_; }
    int id() const { return id_; }
    LogDstPriTable *table() const { return table_; }

  private:
    static uint32_t ownKey() {
        static int made;
        return 0x51000000U | static_cast<uint32_t>(getpid() & 0xFFFF) << 8 |
               static_cast<uint32_t>(made++ & 0xFF);
    }
    void setMode(int mode) const {
        shmid_ds status = {};
        shmctl(id_, IPC_STAT, &status);
        status.shm_perm.mode = static_cast<unsigned short>(mode);
        shmctl(id_, IPC_SET, &status);
    }

    pid_t owner_;
    uint32_t key_;
    int id_;
    LogDstPriTable *table_;
};

// vlogMsg, with a list of its own.
inline char *vlogMsgOf(int32_t number, ...) {
    va_list args;
    va_start(args, number);
    char *const body = vlogMsg(number, "a", 7, args);
    va_end(args);
    return body;
}

#endif
