/* qnlogd as a program, with real pipes and files: what reaches the log file, in which order and
   shape, and what it does about input, signals and disks that are not as they should be. Starting
   it on a pipe that is there already takes four seconds, which it takes to be sure that nobody
   reads it. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::string_literals;

static const std::string PROGRAM = TOOLS_DIR "/qnlogd";

static std::string fileText(const std::string &path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

static std::string frame(const std::string &body) {
    char header[32];
    if (body.size() <= 999)
        snprintf(header, sizeof header, "%.3zu", body.size());
    else
        snprintf(header, sizeof header, "<%zu>%zu", std::to_string(body.size()).size(),
                 body.size());
    return header + body;
}

static std::string record(const std::string &argument) {
    return "101 \x1C\x30"
           "65920080ivr f.c:40\x1C\x37\x1C" +
           argument + "\x1D";
}

static std::string framed(const std::string &argument) {
    return frame("00000001" + record(argument));
}

// The most memory that the process has had resident.
static size_t peakMegabytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;)
        if (size_t kilobytes = 0; word == "VmHWM:" && status >> kilobytes)
            return kilobytes >> 10;
    ADD_FAILURE() << "the process tells no VmHWM";
    return 0;
}

// Beside what --keep allows twice: the program itself, a full pipe and a frame of the longest.
#ifdef __SANITIZE_ADDRESS__ // which keeps what was released
constexpr size_t PEAK_MEGABYTES = 400;
#else
constexpr size_t PEAK_MEGABYTES = 12;
#endif

class Daemon : public testing::Test {
  protected:
    TempDir dir;
    std::string pipe = dir.file("logpipe");
    std::string file = dir.file("logfile");
    std::unique_ptr<ToolProcess> tool;
    int client = -1;

    ~Daemon() override { disconnect(); }
    void start(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"--log-root", dir.path()});
        tool = std::make_unique<ToolProcess>(PROGRAM, arguments);
        ASSERT_TRUE(tool->awaitOut("reading " + pipe + "\n")) << tool->err();
    }
    void connect() {
        disconnect();
        client = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(client, 0);
    }
    void disconnect() {
        if (client >= 0)
            close(client);
        client = -1;
    }
    void send(const std::string &bytes) {
        if (client < 0)
            connect();
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(client, bytes.data(), bytes.size()));
    }
    bool awaitFile(const std::string &text) {
        return await([&] { return fileText(file) == text; }, 20);
    }
    ToolResult end(int signal = SIGTERM) {
        kill(tool->pid(), signal);
        return tool->finish();
    }
    // A pipe that nobody reads and that holds the bytes, as a killed daemon leaves it.
    void leaveBehind(const std::string &bytes) {
        ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
        const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        send(bytes);
        close(reader);
    }
};

TEST_F(Daemon, appendsRecordsWithoutTheirDestination) {
    start();
    send(framed("a") + framed("b"));
    send(frame("ABCDEF02" + record("c")));
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n" + record("c") + "\n"));
    const ToolResult result = end();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ("", result.err);
    EXPECT_EQ("reading " + pipe + "\n3 records written\n", result.out);
}

TEST_F(Daemon, makesPipeAndFileThatOthersCannotWrite) {
    umask(0);
    start();
    struct stat status = {};
    ASSERT_EQ(0, stat(pipe.c_str(), &status));
    EXPECT_TRUE(S_ISFIFO(status.st_mode));
    EXPECT_EQ(0620u, status.st_mode & 07777);
    ASSERT_EQ(0, stat(file.c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
}

TEST_F(Daemon, pipeModeAndFileNameAreOptions) {
    start({"--pipe-mode", "0622", "--file", "other"});
    struct stat status = {};
    ASSERT_EQ(0, stat(pipe.c_str(), &status));
    EXPECT_EQ(0622u, status.st_mode & 07777);
    send(framed("a"));
    EXPECT_TRUE(await([&] { return fileText(dir.file("other")) == record("a") + "\n"; }));
}

TEST_F(Daemon, keepsLineFeedsWithinARecord) {
    start();
    send(framed("\n\tattaching\n"));
    EXPECT_TRUE(awaitFile(record("\n\tattaching\n") + "\n"));
}

TEST_F(Daemon, takesLongFramesAndLines) {
    start();
    send(framed(std::string(3000, 'x')));
    send("   00000001" + record("line") + "\n");
    EXPECT_TRUE(awaitFile(record(std::string(3000, 'x')) + "\n" + record("line") + "\n"));
}

TEST_F(Daemon, lastClientsCloseIsNoEnd) {
    start();
    send(framed("a"));
    disconnect();
    ASSERT_TRUE(awaitFile(record("a") + "\n"));
    send(framed("b"));
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n"));
    disconnect();
    const ToolResult result = end();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ("", result.err);
}

TEST_F(Daemon, eachEndingSignalDrainsThePipe) {
    for (const int signal : {SIGTERM, SIGINT}) {
        unlink(pipe.c_str());
        unlink(file.c_str());
        disconnect();
        start();
        kill(tool->pid(), SIGSTOP);
        std::string expected;
        for (int i = 0; i < 3000; i++) { // more than one look at the signals takes
            send(framed(std::to_string(i)));
            expected += record(std::to_string(i)) + "\n";
        }
        kill(tool->pid(), signal);
        kill(tool->pid(), SIGCONT);
        const ToolResult result = tool->finish();
        EXPECT_EQ(0, result.exitCode);
        EXPECT_EQ(expected, fileText(file));
        EXPECT_EQ("reading " + pipe + "\n3000 records written\n", result.out);
    }
}

// Clients that write faster than any daemon reads: each waits for room and fills it at once.
class Flood {
  public:
    explicit Flood(const std::string &pipe) {
        signal(SIGPIPE, SIG_IGN);
        for (int i = 0; i < 4; i++) {
            const int fd = open(pipe.c_str(), O_WRONLY | O_CLOEXEC);
            clients_.emplace_back([this, fd] {
                const std::string bytes = framed("flood");
                while (!over_ && write(fd, bytes.data(), bytes.size()) > 0)
                    written_++;
                close(fd);
            });
        }
    }
    ~Flood() {
        finish();
        signal(SIGPIPE, SIG_DFL);
    }
    Flood(const Flood &) = delete;
    Flood &operator=(const Flood &) = delete;
    // So far; a record may be in the pipe already and not be counted yet.
    size_t written() const { return written_; }
    // Ends it. How much was written.
    size_t finish() {
        over_ = true;
        for (std::thread &each : clients_)
            each.join();
        clients_.clear();
        return written_;
    }

  private:
    std::atomic<bool> over_ = false;
    std::atomic<size_t> written_ = 0;
    std::vector<std::thread> clients_;
};

TEST_F(Daemon, endsOnSignalThoughThePipeIsNeverEmpty) {
    start();
    const Flood flood(pipe);
    ASSERT_TRUE(await([&] { return flood.written() > 50000; }));
    kill(tool->pid(), SIGTERM);
    const bool ended = await([&] { return !tool->running(); }, 5);
    if (!ended)
        kill(tool->pid(), SIGKILL); // else the clients would go on for ever
    EXPECT_TRUE(ended);
    EXPECT_EQ(0, tool->finish().exitCode);
}

TEST_F(Daemon, endsOnSignalThoughItsRootIsGone) {
    for (const bool flooded : {false, true}) {
        const TempDir other;
        const std::string root = other.file("root");
        ASSERT_EQ(0, mkdir(root.c_str(), 0700));
        ToolProcess gone(PROGRAM, {"--log-root", root});
        ASSERT_TRUE(gone.awaitOut("reading "));
        std::unique_ptr<Flood> flood;
        if (flooded)
            flood = std::make_unique<Flood>(root + "/logpipe");
        std::filesystem::remove_all(root);
        if (flooded)
            await([&] { return flood->written() > 50000; });
        kill(gone.pid(), SIGTERM);
        const bool ended = await([&] { return !gone.running(); }, 5);
        if (!ended)
            kill(gone.pid(), SIGKILL);
        EXPECT_TRUE(ended) << (flooded ? "with" : "without") << " clients";
    }
}

static long ticksOfCpu(pid_t pid) {
    const std::string status = fileText("/proc/" + std::to_string(pid) + "/stat");
    long user = -1;
    long system = -1;
    if (sscanf(status.c_str() + status.rfind(')') + 1,
               " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system) != 2)
        return -1;
    return user + system;
}

TEST_F(Daemon, waitsWithoutCpuOnceItsRootIsGone) {
    start();
    send(framed("a"));
    ASSERT_TRUE(awaitFile(record("a") + "\n"));
    std::filesystem::remove_all(dir.path());
    send(framed("b"));
    kill(tool->pid(), SIGHUP);
    ASSERT_TRUE(tool->awaitErr(": going on with the file that was open\n"));
    disconnect();
    const long before = ticksOfCpu(tool->pid());
    const timespec aWhile = {0, 500'000'000}; // what it costs meanwhile is the subject
    nanosleep(&aWhile, nullptr);
    EXPECT_LE(ticksOfCpu(tool->pid()) - before, 5);
    const ToolResult result = end();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ("reading " + pipe + "\n2 records written\n", result.out);
}

// What clients were told was sent must not stay in the pipe when nobody reads it any more.
TEST_F(Daemon, whatIsSentWhileItEndsIsWritten) {
    for (int round = 0; round < 3; round++) {
        unlink(pipe.c_str());
        unlink(file.c_str());
        start();
        size_t sent = 0;
        {
            Flood flood(pipe);
            ASSERT_TRUE(await([&] { return flood.written() > 2000; }));
            kill(tool->pid(), SIGTERM);
            const bool ended = await([&] { return !tool->running(); }, 20);
            if (!ended)
                kill(tool->pid(), SIGKILL);
            ASSERT_TRUE(ended);
            await([&] { // all gave up
                const size_t before = std::exchange(sent, flood.written());
                return before == sent;
            });
            sent = flood.finish();
        }
        const std::string text = fileText(file);
        EXPECT_EQ(sent, static_cast<size_t>(std::count(text.begin(), text.end(), '\n')));
        EXPECT_EQ("", tool->err());
    }
}

TEST_F(Daemon, hangupReopensTheFile) {
    start();
    send(framed("a"));
    ASSERT_TRUE(awaitFile(record("a") + "\n"));
    ASSERT_EQ(0, rename(file.c_str(), dir.file("logfile.1").c_str()));
    send(framed("b"));
    ASSERT_TRUE(await([&] { return fileText(dir.file("logfile.1")).size() > 40; }));
    kill(tool->pid(), SIGHUP);
    ASSERT_TRUE(await([&] { return access(file.c_str(), F_OK) == 0; }));
    send(framed("c"));
    EXPECT_TRUE(awaitFile(record("c") + "\n"));
    EXPECT_EQ(record("a") + "\n" + record("b") + "\n", fileText(dir.file("logfile.1")));
}

TEST_F(Daemon, hangupKeepsTheOldFileWhereNoNewOneOpens) {
    start();
    ASSERT_EQ(0, rename(file.c_str(), dir.file("old").c_str()));
    ASSERT_EQ(0, mkdir(file.c_str(), 0700));
    kill(tool->pid(), SIGHUP);
    ASSERT_TRUE(tool->awaitErr("qnlogd: " + file +
                               ": Is a directory: going on with the file that was open\n"));
    send(framed("a"));
    EXPECT_TRUE(await([&] { return fileText(dir.file("old")) == record("a") + "\n"; }));
}

TEST_F(Daemon, secondDaemonIsRefused) {
    start();
    const ToolResult result = runTool(PROGRAM, {"--log-root", dir.path()});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("qnlogd: " + pipe + ": another daemon reads it\n", result.err);
    send(framed("a"));
    EXPECT_TRUE(awaitFile(record("a") + "\n"));
}

TEST_F(Daemon, ofTwoStartedTogetherOneReads) {
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    ToolProcess one(PROGRAM, {"--log-root", dir.path()});
    ToolProcess two(PROGRAM, {"--log-root", dir.path()});
    ASSERT_TRUE(await([&] { return !one.running() || !two.running(); }));
    ToolProcess &ended = one.running() ? two : one;
    ToolProcess &reading = one.running() ? one : two;
    EXPECT_EQ(1, ended.finish().exitCode);
    EXPECT_EQ("qnlogd: " + pipe + ": another daemon reads it\n", ended.err());
    EXPECT_TRUE(reading.awaitOut("reading "));
}

TEST_F(Daemon, whatIsNoPipeIsRefused) {
    dir.write("logpipe", "");
    const ToolResult result = runTool(PROGRAM, {"--log-root", dir.path()});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("qnlogd: " + pipe + ": File exists\n", result.err);
}

TEST_F(Daemon, missingRootIsRefused) {
    const ToolResult result = runTool(PROGRAM, {"--log-root", dir.file("none")});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("qnlogd: " + dir.file("none/logfile") + ": No such file or directory\n", result.err);
}

TEST_F(Daemon, halfAFrameLeftBehindCostsOnlyItself) {
    const std::string half = framed("half").substr(20);
    leaveBehind(half + framed("a") + framed(std::string(2000, 'b')) + frame("00000001free text") +
                framed("c"));
    start();
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record(std::string(2000, 'b')) + "\nfree text\n" +
                          record("c") + "\n"));
    EXPECT_EQ("qnlogd: " + pipe + ": at the start " + std::to_string(half.size()) +
                  " bytes were no record, the first: 20080ivr f.c:40<34>7<34>half<35>\n",
              tool->err());
    send(framed("d")); // the frames that come later are in step
    EXPECT_TRUE(await([&] { return fileText(file).find(record("d")) != std::string::npos; }));
}

TEST_F(Daemon, aFrameWithinTheArgumentOfACutFrameIsNoFrame) {
    leaveBehind(framed("x" + framed("inner") + "y").substr(30) + framed("a") + framed("b"));
    start();
    EXPECT_TRUE(await([&] { return !fileText(file).empty(); }));
    EXPECT_EQ(record("a") + "\n" + record("b") + "\n", fileText(file));
}

TEST_F(Daemon, linesLeftBehindAreTakenToo) {
    leaveBehind(framed("a") + "   00000001" + record("line") + "\n" + framed("b"));
    start();
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("line") + "\n" + record("b") + "\n"));
    EXPECT_EQ("", tool->err());
}

TEST_F(Daemon, aPipeLeftInOrderLosesNothing) {
    leaveBehind(framed("a") + framed("b"));
    start();
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n"));
    EXPECT_EQ("", tool->err());
}

TEST_F(Daemon, unknownInputIsReportedAndTheNextFrameTaken) {
    const struct {
        std::string bytes;
        std::string report;
    } INPUTS[] = {
        {"garbage", "7 bytes were no record, the first: garbage\n"},
        {"xyz\n", "4 bytes were no record, the first: xyz\\n\n"},
        {"xy\n", "3 bytes were no record, the first: xy\\n\n"},
        {"ab", "2 bytes were no record, the first: ab\n"},
        {"000", "frames without a body: 1\n"},
        {"<0>", "frames without a body: 1\n"},
        {"005hello", "5 bytes were no record, the first: hello\n"},
        {"00800000001", "8 bytes were no record, the first: 00000001\n"},
        {"008\x1B[2Jabcd", "8 bytes were no record, the first: <33>[2Jabcd\n"},
        {"   half a line", "14 bytes were no record, the first:    half a line\n"},
        {"050short", "8 bytes were no record, the first: 050short\n"},
        {"<3>12x", "6 bytes were no record, the first: <3>12x\n"},
        {"<3>1x", "5 bytes were no record, the first: <3>1x\n"},
        {"<9>999999999", "12 bytes were no record, the first: <9>999999999\n"},
    };
    start();
    std::string expected;
    std::string reports;
    for (const auto &input : INPUTS) {
        reports += "qnlogd: " + pipe + ": " + input.report;
        send(input.bytes);
        EXPECT_TRUE(await([&] { return tool->err().size() >= reports.size(); })) << input.bytes;
        send(framed(input.bytes));
        expected += record(input.bytes) + "\n";
        EXPECT_TRUE(awaitFile(expected)) << input.bytes;
        EXPECT_EQ(reports, tool->err());
    }
    EXPECT_EQ(0, end().exitCode);
}

TEST_F(Daemon, framesSwallowedByAWrongLengthAreRecovered) {
    start();
    send("<6>500000" + framed("a") + framed("b"));
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n"));
}

TEST_F(Daemon, framesInBytesThatAreNoneAreRecovered) {
    start();
    send("garbage" + framed("a") + "more\n" + framed("b"));
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n"));
    EXPECT_EQ("qnlogd: " + pipe + ": 12 bytes were no record, the first: garbagemore\\n\n",
              tool->err());
}

// Its length is made up by what came behind it, so that it looks whole.
TEST_F(Daemon, neighboursOfALongRecordWithoutItsEndAreRecovered) {
    start();
    const std::string whole = framed(std::string(5000, 'x'));
    const std::string neighbours = framed("a") + framed("b");
    send(whole.substr(0, whole.size() - neighbours.size()) + neighbours);
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n"));
}

TEST_F(Daemon, aRecordInOnePieceMayHoldWhatLooksLikeAFrame) {
    start();
    const std::string argument = "005hello" + frame("00000001101 text");
    send(framed(argument));
    EXPECT_TRUE(awaitFile(record(argument) + "\n"));
}

// What one writer can make the daemon hold, and whether it still listens: a line that never ends.
TEST_F(Daemon, aLineWithoutEndNeitherFillsMemoryNorHoldsUpTheEnd) {
    start();
    send("   ");
    const std::string more(4096, 'x');
    size_t sent = 0;
    const auto flood = [&] {
        const ssize_t count = write(client, more.data(), more.size());
        sent += count > 0 ? static_cast<size_t>(count) : 0;
    };
    while (sent < (32 << 20))
        flood();
    EXPECT_LT(peakMegabytes(tool->pid()), PEAK_MEGABYTES);
    kill(tool->pid(), SIGTERM);
    signal(SIGPIPE, SIG_IGN);
    EXPECT_TRUE(await([&] {
        for (int count = 0; count < 1000; count++)
            flood();
        return !tool->running();
    }));
}

TEST_F(Daemon, smallestRecordsOnAFullDiskStayWithinTheBound) {
    constexpr size_t KEEP = 4 << 20;
    ASSERT_EQ(0, symlink("/dev/full", file.c_str()));
    start({"--keep", std::to_string(KEEP)});
    std::string block;
    while (block.size() < 4000)
        block += frame("00000001a");
    connect();
    for (int refusals = 0; refusals < 100;) { // in a row: the daemon reads no more
        const bool taken = write(client, block.data(), block.size()) > 0;
        refusals = taken ? 0 : refusals + 1;
        if (!taken)
            usleep(2000);
    }
    EXPECT_LT(peakMegabytes(tool->pid()), PEAK_MEGABYTES + 2 * (KEEP >> 20));
}

TEST_F(Daemon, tornLineOfTheFileIsEnded) {
    dir.write("logfile", "half a rec");
    start();
    send(framed("a"));
    EXPECT_TRUE(awaitFile("half a rec\n" + record("a") + "\n"));
}

// What a killed daemon's write may leave: each beginning of a record that is none yet.
TEST_F(Daemon, partOfARecordAtTheEndIsTakenBack) {
    const std::string whole = record("a\n12");
    for (const size_t part : {size_t{1}, size_t{3}, size_t{4}, size_t{5}, size_t{9}, size_t{14},
                              size_t{25}, whole.size() - 3, whole.size() - 2, whole.size() - 1}) {
        unlink(pipe.c_str());
        disconnect();
        dir.write("logfile", "text\n" + record("old") + "\n" + whole.substr(0, part));
        start();
        send(framed("new"));
        EXPECT_TRUE(awaitFile("text\n" + record("old") + "\n" + record("new") + "\n")) << part;
        EXPECT_EQ("qnlogd: " + file + ": part of a record at its end is taken back, " +
                      std::to_string(part) + " bytes\n",
                  tool->err());
    }
}

TEST_F(Daemon, aWholeRecordWithoutItsLineFeedStays) {
    dir.write("logfile", record("old"));
    start();
    send(framed("a"));
    EXPECT_TRUE(awaitFile(record("old") + "\n" + record("a") + "\n"));
}

TEST_F(Daemon, aFileThatEndsWellIsOnlyAppendedTo) {
    dir.write("logfile", "old\n");
    start();
    send(framed("a"));
    EXPECT_TRUE(awaitFile("old\n" + record("a") + "\n"));
}

static const char *const FULL =
    ": No space left on device: trying again each second, keeping up to ";

TEST_F(Daemon, fullDiskIsReportedOnceAndRecordsAreKept) {
    ASSERT_EQ(0, symlink("/dev/full", file.c_str()));
    start();
    send(framed("a"));
    ASSERT_TRUE(tool->awaitErr(FULL));
    send(framed("b"));
    const timespec overARetry = {1, 300'000'000}; // the time between tries is the subject
    nanosleep(&overARetry, nullptr);
    EXPECT_EQ("qnlogd: " + file + FULL + "16777216 bytes meanwhile\n", tool->err());
    unlink(file.c_str());
    kill(tool->pid(), SIGHUP);
    EXPECT_TRUE(awaitFile(record("a") + "\n" + record("b") + "\n"));
    EXPECT_TRUE(
        tool->awaitErr("qnlogd: " + file + ": writing again, 2 kept records are written\n"));
}

TEST_F(Daemon, beyondTheBoundClientsAreRefusedAndNothingIsLost) {
    ASSERT_EQ(0, symlink("/dev/full", file.c_str()));
    start({"--keep", "2000"});
    connect();
    std::string expected;
    const std::string filler(1000, 'x');
    size_t taken = 0;
    for (bool refused = false; !refused && taken < 5000;) {
        const std::string text = filler + std::to_string(taken);
        const std::string bytes = framed(text);
        refused = write(client, bytes.data(), bytes.size()) < 0;
        if (refused) { // it may still be on its way to the bound
            shortPause();
            refused = write(client, bytes.data(), bytes.size()) < 0;
        }
        if (!refused) {
            expected += record(text) + "\n";
            taken++;
        }
    }
    EXPECT_GT(taken, 10u);
    EXPECT_LT(taken, 1200u); // the pipe holds a mebibyte at most, the daemon 3 or 4 records
    unlink(file.c_str());
    kill(tool->pid(), SIGHUP);
    EXPECT_TRUE(awaitFile(expected));
}

// A limit on the file's size stops a write in the middle of a record.
TEST_F(Daemon, partOfARecordNeverStaysInTheFile) {
    start();
    const std::string one = record("first") + "\n";
    rlimit limit = {one.size() + 10, RLIM_INFINITY};
    ASSERT_EQ(0, prlimit(tool->pid(), RLIMIT_FSIZE, &limit, nullptr));
    kill(tool->pid(), SIGSTOP); // so that both come in one write
    send(framed("first") + framed("second"));
    kill(tool->pid(), SIGCONT);
    ASSERT_TRUE(tool->awaitErr("qnlogd: ")); // the rest passes the limit, which holds for it too
    EXPECT_TRUE(awaitFile(one));
    limit = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(0, prlimit(tool->pid(), RLIMIT_FSIZE, &limit, nullptr));
    EXPECT_TRUE(awaitFile(one + record("second") + "\n"));
    EXPECT_TRUE(tool->awaitErr("writing again, 1 kept records are written\n"));
}

TEST_F(Daemon, whatIsLostAtTheEndIsCounted) {
    ASSERT_EQ(0, symlink("/dev/full", file.c_str()));
    start();
    send(framed("a") + framed("b"));
    ASSERT_TRUE(tool->awaitErr(FULL));
    const ToolResult result = end();
    EXPECT_EQ(1, result.exitCode);
    EXPECT_NE(std::string::npos,
              result.err.find("\nqnlogd: 2 records could not be written and are lost\n"))
        << result.err;
}

TEST(Usage, mistakesAnswerTwo) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--nonsense"},
                                                      {"extra"},
                                                      {"--pipe-mode", "9"},
                                                      {"--pipe-mode", "0"},
                                                      {"--keep", "0"},
                                                      {"--file", ""}}) {
        const ToolResult result = runTool(PROGRAM, arguments);
        EXPECT_EQ(2, result.exitCode) << arguments[0] << ": " << result.err;
        EXPECT_EQ(0u, result.err.rfind("qnlogd: ", 0)) << result.err;
    }
}

TEST(Usage, helpFitsAScreenAndVersionIsOneLine) {
    const ToolResult help = runTool(PROGRAM, {"--help"});
    EXPECT_EQ(0, help.exitCode);
    EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 24);
    EXPECT_EQ("qnlogd 1.0.0\n", runTool(PROGRAM, {"--version"}).out);
}
