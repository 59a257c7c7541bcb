/* What a process that logs weighs, against the same one linked with the platform library alone: the
   KiB resident of each, round by round, in the form of the other programs' figures (real_time is
   no time then). Takes a log root with the sample catalogue and makes the pipe and the table of
   destinations there. */
#include "log/logDstPri.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int ROWS = 2000; // those of the sample and of the system's errors

// A copy of the sample root with what a running system adds: the pipe and the table.
class RunningRoot {
  public:
    RunningRoot() {
        if (mkdtemp(path_.data()) == nullptr)
            abort();
        std::filesystem::copy(QN_SAMPLE_ROOT, path_, std::filesystem::copy_options::recursive);
        if (mkfifo((path_ + "/logpipe").c_str(), 0600) != 0)
            abort();
        makeTable();
    }
    ~RunningRoot() {
        shmctl(segment_, IPC_RMID, nullptr);
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    RunningRoot(const RunningRoot &) = delete;
    RunningRoot &operator=(const RunningRoot &) = delete;
    const std::string &path() const { return path_; }

  private:
    void makeTable() {
        const auto key = static_cast<uint32_t>(0x53000000 + getpid());
        setenv("LOGDSTPRISHMKEY", std::to_string(key).c_str(), 1);
        const size_t size = sizeof(LogDstPriTable) + ROWS * sizeof(LogDstPri);
        segment_ = shmget(static_cast<key_t>(key), size, IPC_CREAT | IPC_EXCL | 0600);
        void *const address = shmat(segment_, nullptr, 0);
        if (segment_ < 0 || reinterpret_cast<intptr_t>(address) == -1)
            abort();
        auto *const table = static_cast<LogDstPriTable *>(address);
        table->rowCount = ROWS;
        for (int number = 0; number < ROWS; ++number)
            table->row[number] = {0, 1};
        shmdt(address);
    }

    std::string path_ = "/tmp/qnbench.XXXXXX";
    int segment_ = -1;
};

long weigh(const char *program, const std::string &root) {
    FILE *out = popen((std::string(program) + " " + root).c_str(), "r");
    long weight = 0;
    if (out == nullptr || fscanf(out, "%ld", &weight) != 1 || pclose(out) != 0)
        abort();
    return weight;
}

} // namespace

int main(int argc, char **argv) {
    int rounds = 9;
    for (int i = 1; i < argc; ++i)
        if (strncmp(argv[i], "--benchmark_repetitions=", 24) == 0)
            rounds = atoi(argv[i] + 24);
    const RunningRoot root;
    printf("{\"benchmarks\": [");
    for (int round = 0; round < rounds; ++round)
        printf("%s\n{\"name\": \"residentMemory/library\", \"run_type\": \"iteration\", "
               "\"real_time\": %ld},\n{\"name\": \"residentMemory/platform\", "
               "\"run_type\": \"iteration\", \"real_time\": %ld}",
               round == 0 ? "" : ",", weigh(QN_RESIDENT_LOGGING, root.path()),
               weigh(QN_RESIDENT_PLATFORM, root.path()));
    printf("\n]}\n");
    return 0;
}
