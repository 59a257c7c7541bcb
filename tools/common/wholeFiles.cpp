#include "wholeFiles.h"

#include "report.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A file on its way to its place; what was not placed when it goes out of scope is removed.
class Pending {
  public:
    explicit Pending(const NamedBytes &file);
    ~Pending();
    Pending(Pending &&other) noexcept
        : place_(std::move(other.place_)), temporary_(std::move(other.temporary_)) {
        other.temporary_.clear();
    }
    Pending(const Pending &) = delete;
    Pending &operator=(const Pending &) = delete;
    Pending &operator=(Pending &&) = delete;
    void place();

  private:
    std::string place_;
    std::string temporary_; // empty: nothing to remove
};

void writeAll(int fd, const std::string &bytes, const std::string &path) {
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = write(fd, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno != EINTR)
            throw systemFailure(path, errno);
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    if (fsync(fd) != 0)
        throw systemFailure(path, errno);
}

Pending::Pending(const NamedBytes &file) : place_(file.path) {
    const fs::path path(file.path);
    // Hidden, and without the ending that readers of the folder look for.
    const std::string name =
        (path.parent_path() / ("." + path.filename().string() + "." + std::to_string(getpid())))
            .string();
    unlink(name.c_str()); // left by a process of this number that was killed
    const int fd = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw systemFailure(file.path, errno);
    temporary_ = name;
    try {
        writeAll(fd, file.bytes, file.path);
    } catch (...) {
        close(fd);
        unlink(name.c_str()); // no destructor runs for what was not constructed
        throw;
    }
    close(fd);
}

Pending::~Pending() {
    if (!temporary_.empty())
        unlink(temporary_.c_str());
}

void Pending::place() {
    if (rename(temporary_.c_str(), place_.c_str()) != 0)
        throw systemFailure(place_, errno);
    temporary_.clear();
}

bool holds(const NamedBytes &file) {
    std::ifstream stream(file.path, std::ios::binary);
    const std::string found{std::istreambuf_iterator<char>(stream), {}};
    return stream.is_open() && found == file.bytes;
}

} // namespace

size_t writeWholeFiles(const std::vector<NamedBytes> &files) {
    std::vector<Pending> pending;
    for (const NamedBytes &file : files) {
        std::error_code error;
        fs::create_directories(fs::path(file.path).parent_path(), error);
        if (error)
            throw WorkFailed(file.path + ": " + error.message());
        if (!holds(file))
            pending.emplace_back(file);
    }
    for (Pending &file : pending)
        file.place();
    return pending.size();
}

std::string readWholeFile(const std::string &path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw systemFailure(path, errno);
    std::string bytes;
    char block[65536];
    ssize_t count;
    while ((count = read(fd, block, sizeof block)) > 0)
        bytes.append(block, static_cast<size_t>(count));
    const int failure = errno;
    close(fd);
    if (count < 0)
        throw systemFailure(path, failure);
    return bytes;
}
