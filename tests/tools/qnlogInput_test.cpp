/* Where qnlog's entries come from: several files as one by time, compressed files, ranges of time
   in files and pipes. Compressed files are made by gzip and zstd themselves. */
#include "toolRun.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

static const std::string PROGRAM = TOOLS_DIR "/qnlog";
static const std::string ROOT = SAMPLE_ROOT;
static const int64_t T0 = 1704067200; // 2024-01-01 00:00:00 UTC

// A record whose text is "Still alive"; the producer tells which it is.
static std::string record(int64_t seconds, const std::string &producer) {
    char head[32];
    snprintf(head, sizeof head, "509 \x1C%d%08X", 0, static_cast<unsigned>(T0 + seconds));
    return head + producer + " f.c:1\x1D\n";
}

static ToolResult run(std::vector<std::string> arguments, const std::string &input = "") {
    arguments.insert(arguments.begin(), {"--log-root", ROOT, "--format", "%N"});
    return runTool(PROGRAM, arguments, input);
}

static std::string shown(std::vector<std::string> arguments, const std::string &input = "") {
    const ToolResult result = run(std::move(arguments), input);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(0, result.exitCode);
    std::string text = result.out;
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// The command's output, which may hold any bytes.
static std::string outputOf(const std::string &command) {
    std::string bytes;
    FILE *stream = popen(command.c_str(), "r");
    for (int byte; (byte = getc(stream)) != EOF;)
        bytes += static_cast<char>(byte);
    EXPECT_EQ(0, pclose(stream)) << command;
    return bytes;
}

TEST(Merged, byTimeWhateverTheOrderOfTheFiles) {
    const TempDir dir;
    const std::string a = dir.write("a", record(1, "a1") + record(4, "a4") + record(5, "a5"));
    const std::string b = dir.write("b", record(2, "b2") + record(3, "b3") + record(9, "b9"));
    const std::string c = dir.write("c", record(0, "c0"));
    const std::string d = dir.write("d", "");
    EXPECT_EQ("c0 a1 b2 b3 a4 a5 b9 ", shown({a, b, c, d}));
    EXPECT_EQ("c0 a1 b2 b3 a4 a5 b9 ", shown({d, b, c, a}));
    EXPECT_EQ("c0 x0 a1 b2 b3 a4 a5 b9 ", shown({c, b, "-", a}, record(0, "x0")));
}

TEST(Merged, atEqualTimesTheFilesOrderDecides) {
    const TempDir dir;
    const std::string a = dir.write("a", record(1, "a1") + record(1, "a2") + record(1, "a3"));
    const std::string b = dir.write("b", record(1, "b1") + record(1, "b2"));
    EXPECT_EQ("a1 a2 a3 b1 b2 ", shown({a, b}));
    EXPECT_EQ("b1 b2 a1 a2 a3 ", shown({b, a}));
}

TEST(Merged, whatIsNoRecordStaysBehindItsRecord) {
    const TempDir dir;
    const std::string a =
        dir.write("a", "# a begins\n" + record(1, "a1") + "free\n" + record(5, "a5"));
    const std::string b = dir.write("b", record(0, "b0") + record(2, "b2") + "# b ends\n");
    EXPECT_EQ("# a begins\nb0\na1\n<not a record> free\nb2\n# b ends\na5\n", run({a, b}).out);
}

TEST(Merged, aClockThatWasSetBackLosesNothing) {
    const TempDir dir;
    const std::string a = dir.write("a", record(9, "a9") + record(1, "a1") + record(12, "a12"));
    const std::string b = dir.write("b", record(10, "b10") + record(11, "b11"));
    EXPECT_EQ("a9 a1 b10 b11 a12 ", shown({a, b}));
}

// As one file would come out: many short ones of random steps.
TEST(Merged, manyFilesAsOne) {
    const TempDir dir;
    std::vector<std::string> files;
    std::vector<std::pair<int64_t, std::string>> all;
    uint32_t random = 1;
    for (int i = 0; i < 60; i++) {
        std::string bytes;
        int64_t time = 0;
        for (int k = 0; k < 20; k++) {
            random = random * 1103515245 + 12345;
            time += random >> 16 & 15;
            const std::string name = "p" + std::to_string(i) + "." + std::to_string(k);
            bytes += record(time, name);
            all.emplace_back(time, name);
        }
        files.push_back(dir.write("log" + std::to_string(i), bytes));
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::string expected;
    for (const auto &[time, name] : all)
        expected += name + " ";
    EXPECT_EQ(expected, shown(files));
}

TEST(Merged, memoryDoesNotGrowWithTheFiles) {
    const TempDir dir;
    const std::string head = "101 \x1C"
                             "3659200BCivr f.c:40\x1C"
                             "7\x1C";
    for (const char *name : {"a", "b"}) {
        std::ofstream stream(dir.file(name), std::ios::binary);
        for (int i = 0; i < 300; i++)
            stream << head << std::string(200000, 'x') << "\x1D\n";
    }
#ifdef __SANITIZE_ADDRESS__
    const std::string limit; // the sanitizer's own maps are larger than any
#else
    const std::string limit = "ulimit -v 60000; "; // KiB: half of the files
#endif
    EXPECT_EQ("600\n", outputOf(limit + PROGRAM + " --log-root " + ROOT + " --format %N " +
                                dir.file("a") + " " + dir.file("b") + " | wc -l"));
}

class Ranges : public testing::Test {
  protected:
    // 2,000 records, ten a second, 200 seconds; every 40th second a line that is none.
    void SetUp() override {
        for (int i = 0; i < 2000; i++)
            bytes += record(i / 10, "p" + std::to_string(i)) + (i % 400 == 5 ? "free\n" : "");
        path = dir.write("log", bytes);
    }
    TempDir dir;
    std::string bytes, path;
};

TEST_F(Ranges, ofAFileAndOfAPipeAreTheSame) {
    const std::vector<std::vector<std::string>> RANGES = {
        {"--since", "@1704067300"},
        {"--until", "@1704067240"},
        {"--since", "2024-01-01 00:01:40", "--until", "2024-01-01 00:01:40"},
        {"--not", "--since", "@1704067250"},
        {"--not", "--until", "@1704067250"},
        {"--since", "@1704067399"},
        {"--since", "@1704067400"},
        {"--since", "@1704067160"},
    };
    const size_t LINES[] = {1002, 412, 10, 502, 1493, 10, 0, 2005};
    for (size_t i = 0; i < RANGES.size(); i++) {
        std::vector<std::string> arguments = RANGES[i];
        const std::string ofPipe = run(arguments, bytes).out;
        const std::string piped =
            outputOf("cat " + path + " | " + PROGRAM + " --log-root " + ROOT + " --format %N " +
                     [&] {
                         std::string words;
                         for (const std::string &each : arguments)
                             words += "'" + each + "' ";
                         return words;
                     }() +
                     "2>/dev/null");
        arguments.push_back(path);
        const std::string ofFile = run(arguments).out;
        EXPECT_EQ(ofPipe, ofFile) << i;
        EXPECT_EQ(piped, ofFile) << i;
        EXPECT_EQ(LINES[i], static_cast<size_t>(std::count(ofFile.begin(), ofFile.end(), '\n')))
            << i;
    }
}

// A hundred records a second, every other one 50 seconds ahead: more than is read through anyway.
TEST_F(Ranges, recordsOutOfOrderByLessThanAMinuteAreFound) {
    std::string disordered;
    for (int i = 0; i < 60000; i++)
        disordered += record(i / 100 + (i % 2 == 0 ? 0 : 50), "p");
    const std::string log = dir.write("disordered", disordered);
    for (int64_t since = T0 + 60; since < T0 + 540; since += 60) {
        const std::string out = run({"--since", "@" + std::to_string(since), "--until",
                                     "@" + std::to_string(since + 9), log})
                                    .out;
        EXPECT_EQ(1000, std::count(out.begin(), out.end(), '\n')) << since;
    }
}

// What the kernel says the tool had read when it ended.
static long bytesReadBy(const std::vector<std::string> &arguments) {
    ToolProcess tool(PROGRAM, arguments);
    siginfo_t info = {};
    EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(tool.pid()), &info, WEXITED | WNOWAIT));
    std::ifstream stream("/proc/" + std::to_string(tool.pid()) + "/io");
    std::string name;
    long count = -1;
    stream >> name >> count;
    EXPECT_EQ("rchar:", name);
    EXPECT_EQ(0, tool.finish().exitCode);
    return count;
}

TEST_F(Ranges, aLargeFileIsNotReadWhole) {
    std::ofstream stream(dir.file("large"), std::ios::binary);
    for (int i = 0; i < 400000; i++)
        stream << record(i, "some-producer-of-some-length");
    stream.close();
    const std::vector<std::string> all = {"--log-root", ROOT, "--number", "1", dir.file("large")};
    std::vector<std::string> some = all;
    some.insert(some.end(), {"--since", "@1704367200", "--until", "@1704367260"});
    EXPECT_GT(bytesReadBy(all), 20'000'000);
    EXPECT_LT(bytesReadBy(some), 2'000'000);
}

class Compressed : public testing::Test {
  protected:
    void SetUp() override {
        for (int i = 0; i < 30000; i++)
            bytes += record(i, "p" + std::to_string(i));
        path = dir.write("log", bytes);
        expected = run({path}).out;
        ASSERT_EQ(30000, std::count(expected.begin(), expected.end(), '\n'));
    }
    // A file that the command writes.
    std::string made(const std::string &name, const std::string &command) const {
        const std::string file = dir.file(name);
        EXPECT_EQ(0, system(("cd " + dir.path() + " && { " + command + "; } > " + name).c_str()));
        return file;
    }
    static std::string slurp(const std::string &file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    TempDir dir;
    std::string bytes, path, expected;
};

struct Packer {
    const char *name, *command, *library, *unpacker, *early;
    bool builtIn;
};

#ifdef QN_HAVE_ZLIB
constexpr bool HAVE_ZLIB = true;
#else
constexpr bool HAVE_ZLIB = false;
#endif
#ifdef QN_HAVE_ZSTD
constexpr bool HAVE_ZSTD = true;
#else
constexpr bool HAVE_ZSTD = false;
#endif
constexpr Packer PACKERS[] = {
    {"gz", "gzip -c", "zlib", "zcat", "the gzip data end too early", HAVE_ZLIB},
    {"zst", "zstd -qc --no-check", "libzstd", "zstdcat", "the zstd data end too early", HAVE_ZSTD},
};

TEST_F(Compressed, whereTheLibraryIsMissingTheWayRoundIsTold) {
    for (const Packer &packer : PACKERS) {
        const std::string file = made(packer.name, std::string(packer.command) + " log");
        const ToolResult result = run({file, path});
        const std::string refusal = "qnlog: " + file + ": built without " + packer.library +
                                    ": decompress it first, with " + packer.unpacker + "\n";
        EXPECT_EQ(packer.builtIn ? "" : refusal, result.err);
        EXPECT_EQ(packer.builtIn ? 0 : 1, result.exitCode);
        EXPECT_EQ(packer.builtIn ? 60000 : 30000,
                  std::count(result.out.begin(), result.out.end(), '\n'));
    }
}

#ifdef QN_I386
// Debian has neither library for both word sizes at once on these machines.
TEST_F(Compressed, neitherLibraryIsFoundForThisWordSizeByMistake) {
    for (const Packer &packer : PACKERS)
        EXPECT_EQ(packer.builtIn,
                  run({made(packer.name, std::string(packer.command) + " log")}).exitCode == 0);
}
#endif

TEST_F(Compressed, filesAndStandardInputAreReadByTheirFirstBytes) {
    for (const Packer &packer : PACKERS) {
        if (!packer.builtIn)
            continue;
        const std::string file = made("no.suffix", std::string(packer.command) + " log");
        EXPECT_EQ(expected, run({file}).out) << packer.name;
        EXPECT_EQ(expected, run({}, slurp(file)).out) << packer.name;
        EXPECT_EQ(expected, outputOf("cat " + file + " | " + PROGRAM + " --log-root " + ROOT +
                                     " --format %N"));
    }
}

TEST_F(Compressed, partsOneBehindAnotherAreOneLog) {
    for (const Packer &packer : PACKERS) {
        if (!packer.builtIn)
            continue;
        const std::string pack = packer.command;
        const std::string file =
            made("parts", "head -n 10000 log | " + pack + "; tail -n +10001 log | " + pack);
        EXPECT_EQ(expected, run({file}).out) << packer.name;
    }
    if (HAVE_ZLIB) {
        const std::string padded = made("padded", "gzip -c log; head -c 10240 /dev/zero");
        EXPECT_EQ(expected, run({padded}).out);
    }
    if (HAVE_ZSTD) {
        const std::string skipped =
            made("skipped", "printf 'P*M\\030\\004\\000\\000\\000abcd'; zstd -qc log");
        EXPECT_EQ(expected, run({skipped}).out);
    }
}

// The packed bytes are all taken while the last block waits for room: it crosses a multiple of the
// reader's 262144 bytes, and nothing follows it.
TEST_F(Compressed, whatWaitsForRoomAtTheEndIsNotLost) {
    std::ofstream stream(dir.file("same"), std::ios::binary);
    for (int i = 0; i < 14395; i++)
        stream << record(1, "p"); // 331,085 bytes in all
    stream.close();
    for (const Packer &packer : PACKERS) {
        if (!packer.builtIn)
            continue;
        const std::string pack = packer.command;
        const ToolResult result = run(
            {made("little", "head -c 100000 same | " + pack + "; tail -c +100001 same | " + pack)});
        EXPECT_EQ("", result.err);
        EXPECT_EQ(28790U, result.out.size());
    }
}

TEST_F(Compressed, whatStandsBeforeTheEndOfACutFileIsShown) {
    for (const Packer &packer : PACKERS) {
        if (!packer.builtIn)
            continue;
        const std::string file = made("cut", std::string(packer.command) + " log | head -c 60000");
        const ToolResult result = run({"--only-records", file});
        EXPECT_EQ(1, result.exitCode) << packer.name;
        EXPECT_EQ(0U, result.err.find("qnlog: " + file + ": " + packer.early)) << result.err;
        EXPECT_GT(result.out.size(), 20000U) << packer.name;
        EXPECT_EQ(expected.substr(0, result.out.size()), result.out) << packer.name;
    }
}

TEST_F(Compressed, damageIsToldAndOtherFilesAreShown) {
    for (const Packer &packer : PACKERS) {
        if (!packer.builtIn)
            continue;
        const std::string file = made("bad", std::string(packer.command) + " log");
        std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(40000)
            << "XXXXXXXXXXXX";
        const ToolResult result = run({"--only-records", file, path});
        EXPECT_EQ(1, result.exitCode) << packer.name;
        EXPECT_EQ(0U, result.err.find("qnlog: " + file + ": damaged ")) << result.err;
        EXPECT_GE(std::count(result.out.begin(), result.out.end(), '\n'), 30000) << packer.name;
    }
}

// A file that only begins like a compressed one is text.
TEST_F(Compressed, fewBytesAreText) {
    for (const std::string start : {"\x1F", "\x28", "\x28\xB5", "\x28\xB5\x2F", "\x50\x2A", "P"})
        EXPECT_EQ("qnlog: 1 line is no record\n", run({}, start).err) << start.size();
}

TEST_F(Compressed, aFollowedPipeMayCarryThem) {
    if (!HAVE_ZLIB)
        return;
    EXPECT_EQ(expected, outputOf("(cat " + made("gz", "gzip -c log") + "; sleep 0.2) | " + PROGRAM +
                                 " --follow --log-root " + ROOT + " --format %N"));
}
