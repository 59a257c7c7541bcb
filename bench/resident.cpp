/* A process whose memory is weighed (bench/memory): told a log root, it sends records of the sample
   catalogue through the pipe there, by the table of destinations. Built without the library it does
   the same by libc alone, as text: what libc itself keeps resident is then in both. Prints how many
   KiB of it are resident. */
#ifdef QN_LOGS
#include "log/log.h"
#include "logCALL.h"
#endif

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

// The pipe, drained by the process itself, so that each record has room.
class Pipe {
  public:
    explicit Pipe(const std::string &path) : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK)) {}
    ~Pipe() { close(fd_); }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    void drain() {
        char block[4096];
        while (read(fd_, block, sizeof block) > 0) {
        }
    }

  private:
    int fd_;
};

#ifdef QN_LOGS
void require(const char *sent) {
    if (sent == nullptr)
        abort();
}

void start(const char *root) {
    if (loginit("resident", 1, 0, root) != 0)
        abort();
}

void work(unsigned call) {
    require(logMsg(CALL_START, "resident.cpp", __LINE__, call, 7, "5551234"));
    require(logMsg(CALL_FAILED, "resident.cpp", __LINE__, call, "dialling", -3));
    require(logMsg(CALL_END, "resident.cpp", __LINE__, call, "busy", 45L));
}
#else
int pipeEnd = -1;

void start(const char *root) {
    const char *spool = getenv("LOGROOT");
    const std::string path = std::string(spool != nullptr ? spool : root) + "/logpipe";
    pipeEnd = open(path.c_str(), O_WRONLY | O_NONBLOCK);
}

void send(const char *format, ...) {
    char line[512];
    const time_t now = time(nullptr);
    int length = snprintf(line, sizeof line, "%.24s resident ", ctime(&now));
    va_list args;
    va_start(args, format);
    length += vsnprintf(line + length, sizeof line - static_cast<size_t>(length), format, args);
    va_end(args);
    if (write(pipeEnd, line, static_cast<size_t>(length)) != length)
        abort();
}

void work(unsigned call) {
    send("call %u started on line %d to %s\n", call, 7, "5551234");
    send("call %u failed while %s: %d\n", call, "dialling", -3);
    send("call %u ended %s after %ld\n", call, "busy", 45L);
}
#endif

long residentKiB() {
    FILE *file = fopen("/proc/self/smaps_rollup", "r");
    char line[256];
    while (file != nullptr && fgets(line, sizeof line, file) != nullptr)
        if (strncmp(line, "Rss:", 4) == 0)
            return strtol(line + 4, nullptr, 10);
    abort();
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 2)
        return 2;
    Pipe pipe(std::string(argv[1]) + "/logpipe");
    start(argv[1]);
    for (unsigned call = 0; call < 1000; ++call) {
        work(call);
        pipe.drain();
    }
    printf("%ld\n", residentKiB());
    return 0;
}
