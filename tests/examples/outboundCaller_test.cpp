/* The sample caller on every sample line: its verdict, its exit code, the messages that it sends
 * into a real log pipe and the events that it traces. */
#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

struct Call {
    ChildResult result;
    std::string records; // the messages' numbers, each followed by a blank
    std::string pipe;    // what went through the log pipe, byte for byte
};

// The numbers of the records in the pipe's frames, which are all shorter than 1000 bytes: three
// digits of length, eight of destination, the number. Reports of the system's errors (there is no
// destination table here) are left out.
std::string numbersIn(const std::string &pipe) {
    std::string numbers;
    for (size_t at = 0; at + 11 < pipe.size();) {
        const std::string number = pipe.substr(at + 11, pipe.find(' ', at + 11) - at - 11);
        if (atoi(number.c_str()) < 1727)
            numbers += number + " ";
        at += 3 + static_cast<size_t>(atoi(pipe.substr(at, 3).c_str()));
    }
    return numbers;
}

std::string drain(int pipe) {
    std::string bytes;
    char part[4096];
    for (ssize_t count; (count = read(pipe, part, sizeof part)) > 0;)
        bytes.append(part, static_cast<size_t>(count));
    return bytes;
}

// Runs the caller under a log root with a pipe that this process reads.
Call call(const std::string &line, const std::vector<const char *> &options) {
    const TempDir root;
    std::ifstream formats(SAMPLE_ROOT "/cmpLogFmt", std::ios::binary);
    root.write("cmpLogFmt", {std::istreambuf_iterator<char>(formats), {}});
    mkfifo(root.file("logpipe").c_str(), 0600);
    const int pipe = open(root.file("logpipe").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    Call call;
    call.result = runInChild([&] {
        setenv("VX_LINE_SCRIPT", (LINES_DIR "/" + line).c_str(), 1);
        setenv("LOGROOT", root.path().c_str(), 1);
        setenv("LOGDSTPRISHMKEY", "0x5155AAAA", 1); // a table that is not there
        std::vector<char *> words = {const_cast<char *>("outboundCaller")};
        for (const char *option : options)
            words.push_back(const_cast<char *>(option));
        words.push_back(nullptr);
        execv(OUTBOUND_CALLER, words.data());
        _exit(127);
    });
    call.pipe = drain(pipe);
    call.records = numbersIn(call.pipe);
    close(pipe);
    return call;
}

TEST(OutboundCaller, saysOnEachLineHowTheCallEnded) {
    struct {
        const char *line;
        std::vector<const char *> options;
        const char *verdict;
        int exitCode;
        const char *records; // started, call, seized, waiting, ... released, end
        const char *lastEvent;
    } const rows[] = {
        {"answered.line",
         {},
         "answered, status 0",
         0,
         "500 200 102 201 104 202 203 103 210 ",
         "event 11, sub-code 0\n"},
        {"busy.line",
         {},
         "busy-or-failed, status -11",
         1,
         "500 200 102 201 104 202 205 103 210 ",
         "event 65, sub-code 5\n"},
        {"refused.line",
         {},
         "refused, status -1",
         1,
         "500 200 102 201 104 202 106 103 210 ",
         "event 4, sub-code 8\n"},
        {"no-dial-tone.line",
         {"--dialtone-wait", "1"},
         "no dial tone, status -5",
         1,
         "500 200 102 201 105 103 210 ",
         "event 7, sub-code 0\n"},
        {"silent.line",
         {"--guard", "2"},
         "given up, status -2",
         1,
         "500 200 102 201 104 202 206 103 210 ",
         "event 38, sub-code 0\n"},
    };
    for (const auto &row : rows) {
        const Call made = call(row.line, row.options);
        const auto sent = std::count(made.records.begin(), made.records.end(), ' ');
        EXPECT_EQ(made.result.out, std::string("verdict: ") + row.verdict +
                                       "\nrecords sent: " + std::to_string(sent) + "\n");
        EXPECT_EQ(made.result.exitCode, row.exitCode);
        EXPECT_EQ(made.records, row.records) << row.line;
        const std::string &trace = made.result.err;
        const std::string last = trace.substr(trace.find_last_of('\n', trace.size() - 2) + 1);
        EXPECT_NE(last.find(row.lastEvent), std::string::npos) << row.line << ":\n" << trace;
    }
}

TEST(OutboundCaller, recordsCarryNameSourceAndArguments) {
    const Call made =
        call("refused.line", {"--name", "caller7", "--number", "0800", "--line", "7"});
    EXPECT_NE(made.pipe.find("caller7 outboundCaller.cpp:"), std::string::npos);
    EXPECT_NE(made.pipe.find("\x1C"
                             "dialling\x1C"
                             "7\x1D"),
              std::string::npos);
}

TEST(OutboundCaller, tracesToAFileWhenTold) {
    const TempDir dir;
    const std::string file = dir.file("trace");
    const Call made = call("refused.line", {"--trace", file.c_str()});
    EXPECT_EQ(made.result.err, "");
    EXPECT_NE(dir.read("trace").find("event 4, sub-code 8\n"), std::string::npos);
}

TEST(OutboundCaller, callsWithoutALogWhereNoDaemonAnswers) {
    const Call made = call("refused.line", {"--log-root", "/nonexistent", "--trace-level", "0"});
    EXPECT_EQ(made.result.out, "verdict: refused, status -1\nrecords sent: 0\n");
    EXPECT_EQ(made.result.err, "getcmpLogFmt: can't open /nonexistent/cmpLogFmt.\n"
                               "outboundCaller: no log daemon answers under /nonexistent: calling "
                               "without a log\n");
}

TEST(OutboundCaller, settingsComeFromTheFileAndTheCommandLineOverridesThem) {
    const TempDir dir;
    const std::string options = dir.write("options", "NUMBER=0800; GUARD=7 # seconds\nLINE=x\n");
    const Call made =
        call("refused.line", {"--options", options.c_str(), "--guard", "9", "--show-settings"});
    EXPECT_EQ(made.result.out.substr(0, made.result.out.find('\n')),
              "settings: number 0800, dial tone 5 s, guard 9 s, line 1, counter none");
}

TEST(OutboundCaller, callersShareACounter) {
    const TempDir dir;
    const std::string counter = dir.write("counter", "# calls made\ncalls=40 # so far\n");
    const std::string options = dir.write("options", "COUNTER=" + counter + "\n");
    call("refused.line", {"--options", options.c_str()});
    call("refused.line", {"--options", options.c_str()});
    EXPECT_EQ(dir.read("counter"), "# calls made\ncalls=42 # so far\n");
}

TEST(OutboundCaller, wrongUsageIsExitCode2WithNothingDone) {
    for (const char *option : {"--bogus", "--guard=-1", "--guard=x", "--dialtone-wait=3601"}) {
        const Call made = call("answered.line", {option});
        EXPECT_EQ(made.result.exitCode, 2) << option;
        EXPECT_EQ(made.result.out, "");
        EXPECT_EQ(made.pipe, "");
    }
    EXPECT_EQ(call("answered.line", {"--help"}).result.exitCode, 0);
}

} // namespace
