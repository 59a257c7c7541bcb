/* Clipboard files on a real disk, with real locks between real processes. What a file becomes is
 * compared byte for byte. */
#include "clipboard/clipboard.h"

#include "buffers/arrays.h"
#include "core/mkcopy.h"
#include "options/options.h"
#include "options/readInfo.h"
#include "support/childProcess.h"
#include "support/failingAlloc.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

// While positive, this many times a path names no file for who asks about it.
static int statsToFail;
static int statsAsked;

// The library's stat: it is built for large files.
extern "C" int stat64(const char *path, struct stat64 *result) noexcept {
    ++statsAsked;
    if (statsToFail > 0) {
        --statsToFail;
        errno = ENOENT;
        return -1;
    }
    return fstatat64(AT_FDCWD, path, result, 0);
}

static bool (*renameMay)(const char *from); // asked first

// The library's: it puts a file made anew in place of the old one.
extern "C" int rename(const char *from, const char *to) noexcept {
    if (renameMay != nullptr && !renameMay(from)) {
        errno = EPERM;
        return -1;
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

namespace {

struct Case {
    TempDir folder;
    std::string path = folder.file("clip");

    Clipboard *load(const std::string &content) {
        folder.write("clip", content);
        return reload();
    }
    Clipboard *reload() {
        Clipboard *clipboard = modifyClipboard(path.c_str());
        EXPECT_NE(clipboard, nullptr);
        EXPECT_NE(getClipboard(clipboard), 0U);
        return clipboard;
    }
    std::string content() const { return folder.read("clip"); }
};

const ArrayDescriptor &entriesOf(const Clipboard *clipboard) {
    return arrDescPtr[clipboard->entries];
}

const ClipEntry &entryAt(const Clipboard *clipboard, uint32_t position) {
    return static_cast<const ClipEntry *>(entriesOf(clipboard).storage)[position];
}

// What the file becomes when it is loaded, marked as changed and closed.
std::string rewritten(const std::string &content, int32_t *count = nullptr) {
    Case test;
    Clipboard *clipboard = test.load(content);
    addClipboardFlags(clipboard, CLIP_MODIFIED);
    const int32_t written = closeClipboard(clipboard);
    if (count != nullptr)
        *count = written;
    return test.content();
}

TEST(Clipboard, loadsNamesValuesCommentsAndTrailers) {
    Case test;
    Clipboard *clipboard = test.load("# head\n\nA=1 # one\nB='two words'\n  # tail\n");
    ASSERT_EQ(entriesOf(clipboard).count, 3U);
    EXPECT_STREQ(entryAt(clipboard, 0).comment, "# head\n\n");
    EXPECT_STREQ(entryAt(clipboard, 0).name, "A");
    EXPECT_STREQ(entryAt(clipboard, 0).value, "1");
    EXPECT_STREQ(entryAt(clipboard, 0).trailer, " # one");
    EXPECT_EQ(entryAt(clipboard, 1).comment, nullptr);
    EXPECT_STREQ(entryAt(clipboard, 1).value, "two words");
    EXPECT_EQ(entryAt(clipboard, 1).trailer, nullptr);
    EXPECT_STREQ(entryAt(clipboard, 2).comment, "  # tail\n");
    EXPECT_EQ(entryAt(clipboard, 2).name, nullptr);
    EXPECT_EQ(getClipEntry(clipboard, nullptr), &entryAt(clipboard, 2));
    EXPECT_EQ(getClipboardFlags(clipboard), 0U);
    closeClipboard(clipboard);
}

TEST(Clipboard, severalAssignmentsOnALineComeOutOneToALine) {
    Case test;
    Clipboard *clipboard = test.load("# c\nA=1 ; B=2 # note\n");
    ASSERT_EQ(entriesOf(clipboard).count, 2U);
    EXPECT_STREQ(entryAt(clipboard, 0).comment, "# c\n");
    EXPECT_EQ(entryAt(clipboard, 0).trailer, nullptr);
    EXPECT_EQ(entryAt(clipboard, 1).comment, nullptr);
    EXPECT_STREQ(entryAt(clipboard, 1).trailer, " # note");
    addClipboardFlags(clipboard, CLIP_MODIFIED);
    EXPECT_EQ(closeClipboard(clipboard), 2);
    EXPECT_EQ(test.content(), "# c\nA=1\nB=2 # note\n");
}

TEST(Clipboard, rewritingKeepsWhatTheFileHolds) {
    const struct {
        const char *before;
        const char *after;
    } cases[] = {
        {"A=1\n", "A=1\n"},
        {"A=1", "A=1\n"},
        {"A=\n", "A=\n"},
        {"A=''\n", "A=\n"},
        {"A='x y'\n", "A=\"x y\"\n"},
        {"A=a\\;b\n", "A=\"a;b\"\n"},
        {"A=\"q\\\"q\"\n", "A=\"q\\\"q\"\n"},
        {"A=1 ;# c\n", "A=1 ;# c\n"},
        {"A=1 B=2\n", "A=1 B=2\n"},
        {"A=1;\n", "A=1\n"},
        {"A='x\ny'\n", "A=\"x\ny\"\n"},
        {"A=x\\\ny\n", "A=xy\n"},
        {"A=1\r\n", "A=1\r\n"},
        {"# a\n\n  \nA=1\n# b\n", "# a\n\n  \nA=1\n# b\n"},
        {"no assignment\nA=1\n", "A=1\n"},
        {"# c\nno assignment\nA=1\n", "# c\nA=1\n"},
        {"# only\n# comments\n", ""},
        {"", ""},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(rewritten(row.before), row.after) << "before: " << row.before;
        EXPECT_EQ(rewritten(row.after), row.after) << "the second time, after: " << row.after;
    }
}

TEST(Clipboard, commentOnlyEntriesAreWrittenButNotCounted) {
    int32_t count;
    rewritten("A=1\nB=2\n# end\n", &count);
    EXPECT_EQ(count, 2);
}

TEST(Clipboard, unchangedFileIsNotTouched) {
    Case test;
    Clipboard *clipboard = test.load("A='1'   ;   B=2");
    EXPECT_EQ(closeClipboard(clipboard), 0);
    EXPECT_EQ(test.content(), "A='1'   ;   B=2");
}

TEST(Clipboard, addingReplacesTheValueAlwaysAndTheRestWhereGiven) {
    Case test;
    Clipboard *clipboard = test.load("# c\nA=1 # t\n");
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "A", "2", nullptr), 1);
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "B", "new", nullptr), 1);
    EXPECT_EQ(addClipEntry(clipboard, "# d\n", "C", nullptr, " # u"), 1);
    EXPECT_EQ(getClipboardFlags(clipboard), static_cast<uint32_t>(CLIP_MODIFIED));
    EXPECT_EQ(closeClipboard(clipboard), 3);
    EXPECT_EQ(test.content(), "# c\nA=2 # t\nB=new\n# d\nC= # u\n");
    clipboard = test.reload();
    EXPECT_EQ(addClipEntry(clipboard, "# x\n", "A", nullptr, " # y"), 1);
    EXPECT_EQ(findClipEntryValue(clipboard, "A"), nullptr);
    closeClipboard(clipboard);
    // The blanks behind an empty value belong to the "=".
    EXPECT_EQ(test.content(), "# x\nA= # y\nB=new\n# d\nC=# u\n");
}

TEST(Clipboard, textsOfTheEntryItselfMayBePassedIn) {
    Case test;
    Clipboard *clipboard = test.load("# c\nA=one # t\n");
    const ClipEntry *entry = getClipEntry(clipboard, "A");
    EXPECT_EQ(addClipEntry(clipboard, entry->value, entry->name, entry->trailer, entry->comment),
              1);
    EXPECT_STREQ(entry->comment, "one");
    EXPECT_STREQ(entry->value, " # t");
    EXPECT_STREQ(entry->trailer, "# c\n");
    closeClipboard(clipboard);
}

TEST(Clipboard, insertingPutsTheEntryBeforeTheOneNamed) {
    Case test;
    Clipboard *clipboard = test.load("A=1\nC=3\n# end\n");
    EXPECT_EQ(insertClipEntry(clipboard, "C", nullptr, "B", "2", nullptr), 1);
    EXPECT_EQ(insertClipEntry(clipboard, nullptr, nullptr, "D", "4", nullptr), 1);
    EXPECT_EQ(insertClipEntry(clipboard, "A", "# first\n", "_", "0", nullptr), 1);
    EXPECT_EQ(closeClipboard(clipboard), 5);
    EXPECT_EQ(test.content(), "# first\n_=0\nA=1\nB=2\nC=3\nD=4\n# end\n");
}

TEST(Clipboard, insertingWhereTheArrayGrowsFindsThePlaceByPosition) {
    Case test;
    Clipboard *clipboard = test.load("A=1\nB=2\n");
    for (int number = 0; number < 30; ++number)
        EXPECT_EQ(insertClipEntry(clipboard, "B", nullptr, ("N" + std::to_string(number)).c_str(),
                                  "x", nullptr),
                  1);
    EXPECT_STREQ(entryAt(clipboard, 0).name, "A");
    EXPECT_STREQ(entryAt(clipboard, 1).name, "N0");
    EXPECT_STREQ(entryAt(clipboard, 30).name, "N29");
    EXPECT_STREQ(entryAt(clipboard, 31).name, "B");
    closeClipboard(clipboard);
}

TEST(Clipboard, insertingIsRefusedWithoutAPlaceANameOrForAValueThatExists) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    EXPECT_EQ(insertClipEntry(clipboard, "X", nullptr, "B", "2", nullptr), 0);
    EXPECT_EQ(insertClipEntry(clipboard, nullptr, nullptr, "B", "2", nullptr), 0);
    EXPECT_EQ(insertClipEntry(clipboard, "A", nullptr, nullptr, "2", nullptr), 0);
    EXPECT_EQ(insertClipEntry(clipboard, "A", nullptr, "", "2", nullptr), 0);
    EXPECT_EQ(insertClipEntry(clipboard, "A", nullptr, "A", "2", nullptr), 0);
    EXPECT_EQ(getClipboardFlags(clipboard), 0U);
    closeClipboard(clipboard);
}

TEST(Clipboard, entryWithoutValueDoesNotBlockAnInsertion) {
    Case test;
    Clipboard *clipboard = test.load("A=\nB=2\n");
    ASSERT_EQ(getClipEntry(clipboard, "A")->value, nullptr);
    EXPECT_EQ(insertClipEntry(clipboard, "B", nullptr, "A", "2", nullptr), 1);
    closeClipboard(clipboard);
    EXPECT_EQ(test.content(), "A=\nA=2\nB=2\n");
}

TEST(Clipboard, deletingRemovesTheFirstOfThatName) {
    Case test;
    Clipboard *clipboard = test.load("A=1\nB=2\nA=3\n# end\n");
    EXPECT_EQ(deleteClipEntry(clipboard, "A"), 1);
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "3");
    EXPECT_EQ(deleteClipEntry(clipboard, nullptr), 1);
    EXPECT_EQ(deleteClipEntry(clipboard, nullptr), 0);
    EXPECT_EQ(deleteClipEntry(clipboard, "X"), 0);
    EXPECT_EQ(closeClipboard(clipboard), 2);
    EXPECT_EQ(test.content(), "B=2\nA=3\n");
}

TEST(Clipboard, lookupsOfNothingFindNothing) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "1");
    EXPECT_EQ(findClipEntryValue(clipboard, "a"), nullptr);
    EXPECT_EQ(findClipEntryValue(clipboard, ""), nullptr);
    EXPECT_EQ(findClipEntryValue(clipboard, nullptr), nullptr);
    EXPECT_EQ(getClipEntry(clipboard, nullptr), nullptr);
    closeClipboard(clipboard);
}

TEST(Clipboard, expandedValuesNeverReachTheFile) {
    expectChildPasses([] {
        setenv("CLIP_TEST", "value", 1);
        Case test;
        Clipboard *clipboard = test.load("A=\\$CLIP_TEST\nB=plain\nC=\n");
        EXPECT_EQ(expandClipEntries(clipboard), 1);
        EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "value");
        EXPECT_EQ(getClipboardFlags(clipboard), static_cast<uint32_t>(CLIP_EXPANDED));
        EXPECT_EQ(addClipEntry(clipboard, nullptr, "D", "4", nullptr), 1);
        EXPECT_EQ(closeClipboard(clipboard), 0);
        EXPECT_EQ(test.content(), "A=\\$CLIP_TEST\nB=plain\nC=\n");
    });
}

TEST(Clipboard, flagsForceAndSuppressTheRewriting) {
    Case test;
    Clipboard *clipboard = test.load("A='1'\n");
    EXPECT_EQ(setClipboardFlags(clipboard, CLIP_MODIFIED | 8), 0U);
    EXPECT_EQ(removeClipboardFlags(clipboard, CLIP_MODIFIED), CLIP_MODIFIED | 8U);
    EXPECT_EQ(addClipboardFlags(clipboard, CLIP_MODIFIED), 8U);
    EXPECT_EQ(getClipboardFlags(clipboard), CLIP_MODIFIED | 8U);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "A=1\n");
    clipboard = test.reload();
    addClipEntry(clipboard, nullptr, "A", "2", nullptr);
    removeClipboardFlags(clipboard, CLIP_MODIFIED);
    EXPECT_EQ(closeClipboard(clipboard), 0);
    EXPECT_EQ(test.content(), "A=1\n");
}

TEST(Clipboard, newClipboardEmptiesTheFileAndStartsWithoutFlags) {
    Case test;
    test.folder.write("clip", "A=1\n");
    Clipboard *clipboard = newClipboard(test.path.c_str());
    EXPECT_EQ(getClipboardFlags(clipboard), 0U);
    EXPECT_NE(getClipboard(clipboard), 0U);
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "B", "2", nullptr), 1);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "B=2\n");
}

TEST(Clipboard, shrinkingFileLeavesNoTail) {
    Case test;
    Clipboard *clipboard = test.load("A=" + std::string(5000, 'x') + "\n");
    addClipEntry(clipboard, nullptr, "A", "1", nullptr);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "A=1\n");
}

TEST(Clipboard, modifyMakesAMissingFile) {
    Case test;
    Clipboard *clipboard = modifyClipboard(test.path.c_str());
    ASSERT_NE(clipboard, nullptr);
    getClipboard(clipboard);
    addClipEntry(clipboard, nullptr, "A", "1", nullptr);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "A=1\n");
}

TEST(Clipboard, unopenablePathGivesNullWithErrno) {
    errno = 0;
    EXPECT_EQ(newClipboard("/nonexistent/folder/clip"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(modifyClipboard("/nonexistent/folder/clip"), nullptr);
    EXPECT_EQ(newClipboard(nullptr), nullptr);
    EXPECT_EQ(modifyClipboard(nullptr), nullptr);
}

TEST(Clipboard, nullClipboardsGiveTheFailureValues) {
    EXPECT_EQ(getClipboard(nullptr), 0U);
    EXPECT_EQ(getClipEntry(nullptr, "A"), nullptr);
    EXPECT_EQ(findClipEntryValue(nullptr, "A"), nullptr);
    EXPECT_EQ(addClipEntry(nullptr, nullptr, "A", "1", nullptr), 0);
    EXPECT_EQ(insertClipEntry(nullptr, nullptr, nullptr, "A", "1", nullptr), 0);
    EXPECT_EQ(deleteClipEntry(nullptr, "A"), 0);
    EXPECT_EQ(expandClipEntries(nullptr), -1);
    EXPECT_EQ(getClipboardFlags(nullptr), 0U);
    EXPECT_EQ(setClipboardFlags(nullptr, 1), 0U);
    EXPECT_EQ(addClipboardFlags(nullptr, 1), 0U);
    EXPECT_EQ(removeClipboardFlags(nullptr, 1), 0U);
    EXPECT_EQ(closeClipboard(nullptr), 0);
}

TEST(Clipboard, unloadedClipboardRefusesEntriesAndIsNotReleased) {
    expectChildPasses([] {
        Case test;
        static Clipboard *clipboard; // still reachable when the process ends
        clipboard = newClipboard(test.path.c_str());
        EXPECT_EQ(addClipEntry(clipboard, nullptr, "A", "1", nullptr), 0);
        EXPECT_EQ(insertClipEntry(clipboard, nullptr, nullptr, "A", "1", nullptr), 0);
        EXPECT_EQ(expandClipEntries(clipboard), 0);
        EXPECT_EQ(closeClipboard(clipboard), 0);
        const pid_t child = fork();
        if (child == 0) {
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            const int fd = open(test.path.c_str(), O_RDWR);
            _exit(fcntl(fd, F_SETLK, &lock) == -1 ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << "the file is no longer locked";
    });
}

TEST(Clipboard, loadingTwiceReplacesTheEntries) {
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        addClipEntry(clipboard, nullptr, "B", "2", nullptr);
        const uint32_t open = arrDescPtr->count;
        EXPECT_NE(getClipboard(clipboard), 0U);
        EXPECT_EQ(arrDescPtr->count, open);
        EXPECT_EQ(entriesOf(clipboard).count, 1U);
        EXPECT_EQ(getClipboardFlags(clipboard), 0U);
        closeClipboard(clipboard);
    });
}

TEST(Clipboard, readersNestedInAnotherReadingDisturbNothing) {
    Case test;
    const std::string outer = test.folder.write("outer", "first\nsecond\n");
    FILE *stream = fopen(outer.c_str(), "r");
    setReadLineModes(1);
    const char *line = readLine(stream);
    Clipboard *clipboard = test.load("A='1\n2'\n");
    EXPECT_STREQ(line, "first");
    EXPECT_EQ(ri_modes, 1U);
    EXPECT_STREQ(readLine(stream), "second");
    closeClipboard(clipboard);
    fclose(stream);
    resetReadLine(nullptr);
}

TEST(Clipboard, unwritableFileIsMadeAnewWithItsModeAndOwner) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to change its identity";
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        chmod(test.path.c_str(), 0440);
        ASSERT_EQ(chown(test.path.c_str(), 12345, 54321), 0);
        ASSERT_EQ(chmod(test.folder.path().c_str(), 0777), 0);
        struct stat before, after;
        stat(test.path.c_str(), &before);
        ASSERT_EQ(setegid(54321), 0);
        ASSERT_EQ(seteuid(12345), 0); // the owner, but without the right to write
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        EXPECT_EQ(closeClipboard(clipboard), 1);
        ASSERT_EQ(seteuid(0), 0);
        ASSERT_EQ(setegid(0), 0);
        EXPECT_EQ(test.content(), "A=2\n");
        stat(test.path.c_str(), &after);
        EXPECT_NE(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mode & 07777, 0440U);
        EXPECT_EQ(after.st_uid, 12345U);
        EXPECT_EQ(after.st_gid, 54321U);
    });
}

TEST(Clipboard, fileThatCannotBeHadAtAllGivesMinusOne) {
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        unlink(test.path.c_str());
        ASSERT_EQ(mkdir(test.path.c_str(), 0755), 0);
        EXPECT_EQ(closeClipboard(clipboard), -1);
    });
}

TEST(Clipboard, removingUnlinksTheFile) {
    Case test;
    test.folder.write("clip", "");
    EXPECT_EQ(removeClipboard(test.path.c_str()), 0);
    EXPECT_EQ(removeClipboard(test.path.c_str()), -1);
    EXPECT_EQ(removeClipboard(nullptr), -1);
}

std::string quoted(const char *text, int *result) {
    FILE *stream = tmpfile();
    *result = quotePuts(text, stream);
    rewind(stream);
    char bytes[100] = "";
    const size_t count = fread(bytes, 1, sizeof bytes - 1, stream);
    fclose(stream);
    return std::string(bytes, count);
}

TEST(QuotePuts, quotesOnlyWhatNeedsIt) {
    const struct {
        const char *text;
        const char *expected;
    } cases[] = {{"", ""},
                 {"plain", "plain"},
                 {"a/b=c.d", "a/b=c.d"},
                 {"a b", "\"a b\""},
                 {"a\tb", "\"a\tb\""},
                 {"a'b", "\"a'b\""},
                 {"a\"b", "\"a\\\"b\""},
                 {"a\\b", "a\\b"},
                 {"a\\ b", "\"a\\\\ b\""},
                 {"a\nb", "\"a\nb\""},
                 {"a\rb", "\"a\rb\""},
                 {"a\vb", "a\vb"}};
    int result;
    for (const auto &row : cases) {
        EXPECT_EQ(quoted(row.text, &result), row.expected);
        EXPECT_EQ(result, 1);
    }
    for (const char ch : std::string(" \t'\"`|^<>;#&[]{}()$\n\r\f\b"))
        EXPECT_EQ(quoted((std::string("x") + ch).c_str(), &result).front(), '"')
            << static_cast<int>(ch);
    EXPECT_EQ(quoted(nullptr, &result), "");
    EXPECT_EQ(result, 0);
}

TEST(QuotePuts, streamErrorGivesZero) {
    FILE *stream = fopen("/dev/full", "w");
    setvbuf(stream, nullptr, _IONBF, 0);
    EXPECT_EQ(quotePuts("text", stream), 0);
    fclose(stream);
}

TEST(Clipboard, fileThatCannotGrowCountsOnlyWhatWasWrittenWhole) {
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("");
        addClipEntry(clipboard, nullptr, "A", "1", nullptr);
        addClipEntry(clipboard, nullptr, "B", std::string(5000, 'x').c_str(), nullptr);
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {1000, 1000};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(closeClipboard(clipboard), 1);
    });
}

void raiseCounter(const std::string &path) {
    Clipboard *clipboard = modifyClipboard(path.c_str());
    getClipboard(clipboard);
    const char *value = findClipEntryValue(clipboard, "counter");
    const int next = (value == nullptr ? 0 : atoi(value)) + 1;
    addClipEntry(clipboard, nullptr, "counter", std::to_string(next).c_str(), nullptr);
    closeClipboard(clipboard);
}

void expectNoLostUpdate(const std::string &first) {
    constexpr int PROCESSES = 8, ROUNDS = 50;
    Case test;
    if (!first.empty())
        test.folder.write("clip", first);
    pid_t children[PROCESSES];
    for (pid_t &child : children) {
        child = fork();
        if (child == 0) {
            for (int round = 0; round < ROUNDS; ++round)
                raiseCounter(test.path);
            _exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    Clipboard *clipboard = test.reload();
    EXPECT_STREQ(findClipEntryValue(clipboard, "counter"),
                 std::to_string(PROCESSES * ROUNDS).c_str());
    closeClipboard(clipboard);
}

TEST(Clipboard, eightProcessesLoseNoUpdate) {
    expectNoLostUpdate("# shared\ncounter=0\nother='x y'\n");
}

TEST(Clipboard, eightProcessesLoseNoUpdateOfAFileThatIsNotThereYet) {
    expectNoLostUpdate("");
}

void waitMilliseconds(long milliseconds) {
    const timespec pause = {0, milliseconds * 1000000};
    nanosleep(&pause, nullptr);
}

TEST(Clipboard, processKilledWhileItWaitsForTheLockChangesNothing) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    const pid_t child = fork();
    if (child == 0) {
        newClipboard(test.path.c_str());
        _exit(0);
    }
    waitMilliseconds(100);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(test.content(), "A=1\n");
    addClipEntry(clipboard, nullptr, "A", "2", nullptr);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "A=2\n");
}

TEST(Clipboard, lockWaitGoesOnAfterASignal) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    const pid_t child = fork();
    if (child == 0) {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        Clipboard *waiting = modifyClipboard(test.path.c_str());
        getClipboard(waiting);
        const char *value = findClipEntryValue(waiting, "A");
        _exit(value != nullptr && value[0] == '2' ? 0 : 1);
    }
    for (int round = 0; round < 5; ++round) {
        waitMilliseconds(30);
        kill(child, SIGUSR1);
    }
    addClipEntry(clipboard, nullptr, "A", "2", nullptr);
    closeClipboard(clipboard);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(Clipboard, waiterOnAFileMadeAnewSeesTheNewOne) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    const pid_t child = fork();
    if (child == 0) {
        Clipboard *waiting = modifyClipboard(test.path.c_str());
        getClipboard(waiting);
        const char *value = findClipEntryValue(waiting, "A");
        _exit(value != nullptr && value[0] == '9' ? 0 : 1);
    }
    waitMilliseconds(100);
    unlink(test.path.c_str());
    test.folder.write("clip", "A=9\n");
    closeClipboard(clipboard);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

int statusOf(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// One direction of talk between a process and its child.
struct Channel {
    int ends[2];
    Channel() { EXPECT_EQ(pipe(ends), 0); }
    ~Channel() {
        close(ends[0]);
        close(ends[1]);
    }
    void tell() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void await() const {
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
};

int filesIn(const std::string &folder) {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(folder))
        ++count;
    return count;
}

TEST(Clipboard, newClipboardWaitsForTheLockBeforeItEmpties) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    const pid_t child = fork();
    if (child == 0) {
        Clipboard *fresh = newClipboard(test.path.c_str());
        _exit(fresh != nullptr && test.content().empty() ? 0 : 1);
    }
    waitMilliseconds(100);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "it still waits";
    EXPECT_EQ(test.content(), "A=1\n"); // last: closing the file here drops the lock
    closeClipboard(clipboard);
    EXPECT_EQ(statusOf(child), 0);
}

TEST(Clipboard, closingWaitsForWhoHoldsTheFileMadeAnewMeanwhile) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    unlink(test.path.c_str());
    const Channel isHeld;
    const pid_t child = fork();
    if (child == 0) {
        test.folder.write("clip", "B=9\n");
        Clipboard *other = modifyClipboard(test.path.c_str());
        isHeld.tell();
        waitMilliseconds(100);
        const bool isIntact = test.content() == "B=9\n";
        _exit(other != nullptr && isIntact ? 0 : 1);
    }
    isHeld.await();
    addClipEntry(clipboard, nullptr, "A", "2", nullptr);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(statusOf(child), 0) << "its file was emptied under its lock";
    EXPECT_EQ(test.content(), "A=2\n");
}

// The child holds the file "other" and waits for "clip", which this process holds: whoever waits
// for "other" now would wait for ever, and the system refuses it.
template<typename Body>
void whileWaitingIsRefused(Case &test, const Body &body) {
    const std::string other = test.folder.write("other", "B=9\n");
    ASSERT_EQ(link(test.path.c_str(), test.folder.file("held").c_str()), 0);
    const Channel isHeld;
    const pid_t child = fork();
    if (child == 0) {
        Clipboard *clipboard = modifyClipboard(other.c_str());
        isHeld.tell();
        _exit(clipboard != nullptr && modifyClipboard(test.folder.file("held").c_str()) != nullptr
                  ? 0
                  : 1);
    }
    isHeld.await();
    waitMilliseconds(100);
    body(other);
    EXPECT_EQ(statusOf(child), 0);
}

TEST(Clipboard, refusedLockGivesNullWithErrno) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    whileWaitingIsRefused(test, [&](const std::string &other) {
        errno = 0;
        EXPECT_EQ(modifyClipboard(other.c_str()), nullptr);
        EXPECT_EQ(errno, EDEADLK);
        EXPECT_EQ(newClipboard(other.c_str()), nullptr);
        EXPECT_EQ(test.folder.read("other"), "B=9\n");
        closeClipboard(clipboard);
    });
}

TEST(Clipboard, refusedLockAtTheClosingWritesNothing) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    whileWaitingIsRefused(test, [&](const std::string &other) {
        ASSERT_EQ(rename(other.c_str(), test.path.c_str()), 0);
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        EXPECT_EQ(closeClipboard(clipboard), -1);
        EXPECT_EQ(test.content(), "B=9\n");
        EXPECT_EQ(test.folder.read("held"), "A=1\n");
    });
}

TEST(Clipboard, fileReplacedForEverIsTakenAsItIsInTheEnd) {
    Case test;
    test.folder.write("clip", "A=1\n");
    statsToFail = 1000000;
    statsAsked = 0;
    Clipboard *clipboard = modifyClipboard(test.path.c_str());
    statsToFail = 0;
    ASSERT_NE(clipboard, nullptr);
    EXPECT_EQ(statsAsked, 100);
    getClipboard(clipboard);
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "1");
    closeClipboard(clipboard);
}

TEST(Clipboard, deviceCanBeAClipboardThoughItHasNoLength) {
    Clipboard *clipboard = newClipboard("/dev/null");
    ASSERT_NE(clipboard, nullptr);
    EXPECT_NE(getClipboard(clipboard), 0U);
    addClipEntry(clipboard, nullptr, "A", "1", nullptr);
    EXPECT_EQ(closeClipboard(clipboard), 1);
}

TEST(Clipboard, fileMadeAnewIsFoundLockedOrWritten) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to change its identity";
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        chmod(test.path.c_str(), 0440);
        ASSERT_EQ(chmod(test.folder.path().c_str(), 0777), 0);
        const pid_t child = fork();
        if (child == 0) { // as root it may still open the file
            Clipboard *waiting = modifyClipboard(test.path.c_str());
            getClipboard(waiting);
            const char *value = findClipEntryValue(waiting, "A");
            _exit(value != nullptr && value[0] == '2' ? 0 : 1);
        }
        waitMilliseconds(100);
        ASSERT_EQ(seteuid(12345), 0);
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        EXPECT_EQ(closeClipboard(clipboard), 1);
        ASSERT_EQ(seteuid(0), 0);
        EXPECT_EQ(statusOf(child), 0);
        EXPECT_EQ(filesIn(test.folder.path()), 1) << "a temporary file is left";
    });
}

bool isLockedByAnother(const char *path) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    const int fd = open(path, O_RDWR);
    return fd != -1 && fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type == F_WRLCK;
}

TEST(Clipboard, fileMadeAnewIsLockedBeforeItTakesThePath) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to change its identity";
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        chmod(test.path.c_str(), 0440);
        ASSERT_EQ(chmod(test.folder.path().c_str(), 0777), 0);
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        renameMay = [](const char *from) {
            const pid_t child = fork();
            if (child == 0)
                _exit(seteuid(0) == 0 && isLockedByAnother(from) ? 0 : 1);
            return statusOf(child) == 0;
        };
        ASSERT_EQ(seteuid(12345), 0);
        EXPECT_EQ(closeClipboard(clipboard), 1);
        ASSERT_EQ(seteuid(0), 0);
        EXPECT_EQ(test.content(), "A=2\n");
    });
}

TEST(Clipboard, fileMadeAnewKeepsItsModeWhereTheOwnerCannotBeKept) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to change its identity";
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        ASSERT_EQ(chown(test.path.c_str(), 12345, 54321), 0);
        ASSERT_EQ(chmod(test.path.c_str(), 06440), 0);
        ASSERT_EQ(chmod(test.folder.path().c_str(), 0777), 0);
        ASSERT_EQ(setgroups(0, nullptr), 0);
        ASSERT_EQ(setegid(12345), 0);
        ASSERT_EQ(seteuid(12345), 0); // may not give a file to the group 54321
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        EXPECT_EQ(closeClipboard(clipboard), 1);
        ASSERT_EQ(seteuid(0), 0);
        ASSERT_EQ(setegid(0), 0);
        struct stat after;
        ASSERT_EQ(stat(test.path.c_str(), &after), 0);
        EXPECT_EQ(after.st_mode & 07777, 0440U) << "without the bits that change the identity";
        EXPECT_EQ(after.st_uid, 12345U);
        EXPECT_EQ(after.st_gid, 12345U);
    });
}

TEST(Clipboard, fileThatCannotBeMadeAnewStaysAsItWas) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to change its identity";
    expectChildPasses([] {
        Case test;
        Clipboard *clipboard = test.load("A=1\n");
        chmod(test.path.c_str(), 0444);
        ASSERT_EQ(chmod(test.folder.path().c_str(), 0755), 0);
        ASSERT_EQ(seteuid(12345), 0);
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        EXPECT_EQ(closeClipboard(clipboard), -1);
        ASSERT_EQ(seteuid(0), 0);
        EXPECT_EQ(test.content(), "A=1\n");
        EXPECT_EQ(filesIn(test.folder.path()), 1);
    });
}

constexpr char MIXED[] = "# head\n\nA='1 2' # t\nB=2; C=3\nno assignment\n# tail\n";
constexpr char MIXED_REWRITTEN[] = "# head\n\nA=\"1 2\" # t\nB=2\nC=3\n# tail\n";
constexpr int ALLOCATIONS = 60; // more than anything here asks for

TEST(Clipboard, exhaustedMemoryLoadsAllOrNothing) {
    Case test;
    test.folder.write("clip", MIXED);
    arrayClose(arrayOpen(0, 4));
    int failures = 0;
    for (int successes = 0; successes < ALLOCATIONS; ++successes) {
        Clipboard *clipboard = modifyClipboard(test.path.c_str());
        const uint32_t open = arrDescPtr->count;
        setReadLineModes(2);
        uint32_t array;
        {
            const FailingAlloc failing(successes);
            array = getClipboard(clipboard);
        }
        EXPECT_EQ(setReadLineModes(0), 2U);
        EXPECT_EQ(array, clipboard->entries);
        if (array == 0) {
            ++failures;
            EXPECT_EQ(arrDescPtr->count, open) << "the array is closed again";
            EXPECT_EQ(addClipEntry(clipboard, nullptr, "D", "4", nullptr), 0);
            EXPECT_NE(getClipboard(clipboard), 0U) << "the next try may succeed";
        }
        addClipboardFlags(clipboard, CLIP_MODIFIED);
        EXPECT_EQ(closeClipboard(clipboard), 3);
        EXPECT_EQ(test.content(), MIXED_REWRITTEN) << successes;
        test.folder.write("clip", MIXED);
    }
    EXPECT_GT(failures, 10);
    EXPECT_LT(failures, ALLOCATIONS);
}

TEST(Clipboard, simpleLineIsLoadedWholeOrNotAtAll) {
    Case test;
    test.folder.write("clip", "FIRST=1\nNAME=value\n"); // the second takes a slot that is there
    int failures = 0;
    for (int successes = 0; successes < ALLOCATIONS; ++successes) {
        Clipboard *clipboard = modifyClipboard(test.path.c_str());
        uint32_t array;
        {
            const FailingAlloc failing(successes);
            array = getClipboard(clipboard);
        }
        if (array == 0) {
            ++failures;
            EXPECT_NE(getClipboard(clipboard), 0U) << "the next try may succeed";
        }
        EXPECT_STREQ(findClipEntryValue(clipboard, "NAME"), "value") << successes;
        closeClipboard(clipboard);
    }
    EXPECT_GT(failures, 2);
    EXPECT_LT(failures, ALLOCATIONS);
}

TEST(Clipboard, exhaustedMemoryChangesAllOrNothing) {
    int failures = 0;
    for (int successes = 0; successes < ALLOCATIONS; ++successes) {
        Case test;
        Clipboard *clipboard = test.load(MIXED);
        std::string expected = MIXED_REWRITTEN;
        int added, inserted, replaced;
        {
            const FailingAlloc failing(successes);
            replaced = addClipEntry(clipboard, "# new\n", "A", "3", " # u");
            inserted = insertClipEntry(clipboard, "A", "# i\n", "I", "0", "");
            added = addClipEntry(clipboard, nullptr, "D", "4", nullptr);
        }
        failures += 3 - added - inserted - replaced;
        if (replaced == 1)
            expected = "# new\nA=3 # u\nB=2\nC=3\n# tail\n";
        if (inserted == 1)
            expected.insert(0, "# i\nI=0\n");
        if (added == 1)
            expected += "D=4\n";
        addClipboardFlags(clipboard, CLIP_MODIFIED);
        EXPECT_EQ(closeClipboard(clipboard), 3 + added + inserted);
        EXPECT_EQ(test.content(), expected) << successes;
    }
    EXPECT_GT(failures, 10);
}

TEST(Clipboard, exhaustedMemoryAtTheClosingLeavesTheFileAsItWas) {
    int failures = 0;
    for (int successes = 0; successes < ALLOCATIONS; ++successes) {
        Case test;
        Clipboard *clipboard = test.load(MIXED);
        addClipboardFlags(clipboard, CLIP_MODIFIED);
        int32_t written;
        {
            const FailingAlloc failing(successes);
            written = closeClipboard(clipboard);
        }
        failures += written == -1 ? 1 : 0;
        EXPECT_EQ(test.content(), written == -1 ? MIXED : MIXED_REWRITTEN) << successes;
    }
    EXPECT_GT(failures, 1);
    EXPECT_LT(failures, ALLOCATIONS);
}

TEST(Clipboard, exhaustedMemoryAtTheOpeningGivesNullAndLeavesNothingOpen) {
    Case test;
    test.folder.write("clip", MIXED);
    const int before = dup(0);
    close(before);
    int failures = 0;
    for (int successes = 0; successes < ALLOCATIONS; ++successes) {
        Clipboard *clipboard;
        {
            const FailingAlloc failing(successes);
            clipboard = modifyClipboard(test.path.c_str());
        }
        if (clipboard == nullptr) {
            ++failures;
        } else {
            getClipboard(clipboard);
            closeClipboard(clipboard);
        }
        const int after = dup(0);
        close(after);
        EXPECT_EQ(after, before);
    }
    EXPECT_EQ(test.content(), MIXED);
    EXPECT_GT(failures, 1);
    EXPECT_LT(failures, ALLOCATIONS);
}

TEST(Clipboard, fileThatCannotBeReadIsNotLoaded) {
    Case test;
    test.folder.write("clip", "A=1\n");
    Clipboard *clipboard = modifyClipboard(test.path.c_str());
    const int readable = dup(fileno(clipboard->stream));
    const int unreadable = open("/dev/null", O_WRONLY);
    dup2(unreadable, fileno(clipboard->stream));
    EXPECT_EQ(getClipboard(clipboard), 0U);
    EXPECT_EQ(clipboard->entries, 0U);
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "B", "2", nullptr), 0);
    dup2(readable, fileno(clipboard->stream));
    close(readable);
    close(unreadable);
    EXPECT_NE(getClipboard(clipboard), 0U);
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "1");
    closeClipboard(clipboard);
}

// A file whose reading fails once, in its second line, and then comes to its end.
FILE *failingStream() {
    static int reads;
    reads = 0;
    const cookie_io_functions_t functions = {[](void *, char *buffer, size_t) -> ssize_t {
                                                 if (++reads == 1) {
                                                     memcpy(buffer, "A=1\nB=2", 7);
                                                     return 7;
                                                 }
                                                 errno = EIO;
                                                 return reads == 2 ? -1 : 0;
                                             },
                                             nullptr, nullptr, nullptr};
    return fopencookie(nullptr, "r", functions);
}

TEST(Clipboard, fileWhoseReadingFailedBeforeItsEndIsNotLoaded) {
    Case test;
    test.folder.write("clip", "A=1\nB=2\n");
    Clipboard *clipboard = modifyClipboard(test.path.c_str());
    FILE *const own = clipboard->stream;
    FILE *const failing = clipboard->stream = failingStream();
    EXPECT_EQ(getClipboard(clipboard), 0U);
    EXPECT_NE(ferror(failing), 0);
    EXPECT_NE(feof(failing), 0);
    fclose(failing);
    clipboard->stream = own;
    EXPECT_NE(getClipboard(clipboard), 0U);
    EXPECT_STREQ(findClipEntryValue(clipboard, "B"), "2");
    closeClipboard(clipboard);
}

TEST(Clipboard, clipboardWithoutAStreamIsNeitherLoadedNorClosed) {
    char path[] = "path";
    Clipboard clipboard = {path, CLIP_MODIFIED, nullptr, 0};
    EXPECT_EQ(getClipboard(&clipboard), 0U);
    EXPECT_EQ(getClipboardFlags(&clipboard), static_cast<uint32_t>(CLIP_MODIFIED));
    EXPECT_EQ(closeClipboard(&clipboard), 0);
    clipboard.entries = arrayOpen(0, sizeof(ClipEntry));
    EXPECT_EQ(closeClipboard(&clipboard), 0);
    EXPECT_EQ(arrayClose(clipboard.entries), 0) << "it is still open";
}

TEST(Clipboard, bothFlagBitsWriteNothing) {
    Case test;
    Clipboard *clipboard = test.load("A='1'\n");
    setClipboardFlags(clipboard, CLIP_MODIFIED | CLIP_EXPANDED);
    EXPECT_EQ(closeClipboard(clipboard), 0);
    EXPECT_EQ(test.content(), "A='1'\n");
}

TEST(Clipboard, entryCanBeDeletedByItsOwnNameText) {
    Case test;
    Clipboard *clipboard = test.load("A=1\nB=2\n");
    EXPECT_EQ(deleteClipEntry(clipboard, entryAt(clipboard, 0).name), 1);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "B=2\n");
}

TEST(Clipboard, firstOfTwoEntriesWithoutANameIsMeant) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n# one\n");
    const ClipEntry second = {mkcopy("# two\n"), nullptr, nullptr, nullptr};
    ASSERT_NE(arrayPut(clipboard->entries, &second), nullptr);
    EXPECT_STREQ(getClipEntry(clipboard, nullptr)->comment, "# one\n");
    EXPECT_EQ(insertClipEntry(clipboard, nullptr, nullptr, "B", "2", nullptr), 1);
    EXPECT_EQ(closeClipboard(clipboard), 2);
    EXPECT_EQ(test.content(), "A=1\nB=2\n# one\n# two\n");
    clipboard = test.load("A=1\n# one\n");
    const ClipEntry again = {mkcopy("# two\n"), nullptr, nullptr, nullptr};
    ASSERT_NE(arrayPut(clipboard->entries, &again), nullptr);
    EXPECT_EQ(deleteClipEntry(clipboard, nullptr), 1);
    EXPECT_EQ(closeClipboard(clipboard), 1);
    EXPECT_EQ(test.content(), "A=1\n# two\n");
}

std::string withEntryAdded(const std::string &content) {
    Case test;
    Clipboard *clipboard = test.load(content);
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "NEW", "1", nullptr), 1);
    closeClipboard(clipboard);
    clipboard = test.reload();
    EXPECT_STREQ(findClipEntryValue(clipboard, "NEW"), "1");
    closeClipboard(clipboard);
    return test.content();
}

TEST(Clipboard, valueThatEndsInABackslashAtTheEndSurvivesAnAddition) {
    EXPECT_EQ(withEntryAdded("A=b\\"), "A=b\nNEW=1\n");
    EXPECT_EQ(withEntryAdded("A='b\\"), "A=b\nNEW=1\n");
}

TEST(Clipboard, openQuoteInACommentOrTrailerSwallowsWhatFollows) {
    Case test;
    Clipboard *clipboard = test.load("# don't\nA=1\n");
    EXPECT_EQ(entriesOf(clipboard).count, 0U);
    closeClipboard(clipboard);
    clipboard = test.load("A=1 # don't\nB=2\n# won't\nC=3\n");
    ASSERT_EQ(entriesOf(clipboard).count, 2U);
    EXPECT_STREQ(entryAt(clipboard, 0).trailer, " # don't\nB=2\n# won't");
    EXPECT_STREQ(entryAt(clipboard, 1).name, "C");
    addClipboardFlags(clipboard, CLIP_MODIFIED);
    closeClipboard(clipboard);
    EXPECT_EQ(test.content(), "A=1 # don't\nB=2\n# won't\nC=3\n") << "but it is kept";
}

TEST(Clipboard, backslashAtTheEndOfATrailerTakesTheNextLine) {
    Case test;
    Clipboard *clipboard = test.load("A=1 # x\\\nB=2\n");
    ASSERT_EQ(entriesOf(clipboard).count, 1U);
    EXPECT_STREQ(entryAt(clipboard, 0).trailer, " # xB=2");
    closeClipboard(clipboard);
}

TEST(Clipboard, bareBackslashAndEmptyValueDoNotSurviveARewriting) {
    Case test;
    Clipboard *clipboard = test.load("");
    addClipEntry(clipboard, nullptr, "A", "b\\c", nullptr);
    addClipEntry(clipboard, nullptr, "B", "b\\ c", nullptr);
    addClipEntry(clipboard, nullptr, "C", "", nullptr);
    closeClipboard(clipboard);
    EXPECT_EQ(test.content(), "A=b\\c\nB=\"b\\\\ c\"\nC=\n");
    clipboard = test.reload();
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "bc");
    EXPECT_STREQ(findClipEntryValue(clipboard, "B"), "b\\ c") << "inside quotes it is escaped";
    ASSERT_NE(getClipEntry(clipboard, "C"), nullptr);
    EXPECT_EQ(findClipEntryValue(clipboard, "C"), nullptr);
    closeClipboard(clipboard);
}

// What an entry "A" of that value and trailer, with an entry "B" behind it, is after a rewriting.
struct Reloaded {
    std::string content, value, trailer, valueOfB;
};

std::string shown(const char *text) {
    return text == nullptr ? "(null)" : text;
}

Reloaded reloaded(const char *value, const char *trailer = nullptr) {
    Case test;
    Clipboard *clipboard = test.load("");
    addClipEntry(clipboard, nullptr, "A", value, trailer);
    addClipEntry(clipboard, nullptr, "B", "2", nullptr);
    closeClipboard(clipboard);
    clipboard = test.reload();
    const ClipEntry *entry = getClipEntry(clipboard, "A");
    Reloaded found = {test.content(), "no entry", "", shown(findClipEntryValue(clipboard, "B"))};
    if (entry != nullptr) {
        found.value = shown(entry->value);
        found.trailer = shown(entry->trailer);
    }
    closeClipboard(clipboard);
    return found;
}

TEST(Clipboard, bareBackslashIsDroppedAndOfAPairOneStays) {
    EXPECT_EQ(reloaded("b\\c").value, "bc");
    EXPECT_EQ(reloaded("b\\\\c").value, "b\\c");
    EXPECT_EQ(reloaded("b\\ c").value, "b\\ c") << "inside quotes it is escaped";
}

TEST(Clipboard, bareBackslashAtTheEndTakesTheNextLine) {
    const Reloaded taken = reloaded("b\\");
    EXPECT_EQ(taken.content, "A=b\\\nB=2\n");
    EXPECT_EQ(taken.value, "bB=2");
    EXPECT_EQ(taken.valueOfB, "(null)");
    EXPECT_EQ(reloaded("b\\\\").valueOfB, "2");
    EXPECT_EQ(reloaded("b \\").value, "b \\") << "inside quotes it is escaped";
}

TEST(Clipboard, bareVerticalTabEndsTheValue) {
    EXPECT_EQ(reloaded("a\vb").value, "a");
    EXPECT_EQ(reloaded("a\vb").trailer, "\vb");
    EXPECT_EQ(reloaded("\va").value, "a");
    EXPECT_EQ(reloaded("a \vb").value, "a \vb") << "inside quotes it is kept";
}

TEST(Clipboard, emptyValueIsNoneUnlessItsTrailerBeginsWithASignThatEndsValues) {
    EXPECT_EQ(reloaded("").value, "(null)");
    EXPECT_EQ(reloaded("", "# t").value, "");
    EXPECT_EQ(reloaded("", "# t").trailer, "# t");
}

TEST(Clipboard, trailerBehindNoValueIsReadForOne) {
    EXPECT_EQ(reloaded(nullptr, " # t").value, "");
    EXPECT_EQ(reloaded(nullptr, " # t").trailer, "# t");
    EXPECT_EQ(reloaded(nullptr, " x=1").value, "x=1");
    EXPECT_EQ(reloaded("", " x=1").value, "x=1");
}

TEST(Clipboard, nameThatNoStatementHasIsLostWithItsEntry) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "1st", "x", nullptr), 1);
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "two words", "x", nullptr), 1);
    closeClipboard(clipboard);
    EXPECT_EQ(rewritten(test.content()), "A=1\n");
}

TEST(Clipboard, openQuoteAtTheFilesEndGathersALineFeedAtEachRewriting) {
    EXPECT_EQ(rewritten("A=1 # don't\n"), "A=1 # don't\n\n");
    EXPECT_EQ(rewritten("A=1 # don't\n\n"), "A=1 # don't\n\n\n");
}

bool isLockedForOthers(const std::string &path) {
    const pid_t child = fork();
    if (child == 0) {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        const int fd = open(path.c_str(), O_RDWR);
        _exit(fcntl(fd, F_SETLK, &lock) == -1 ? 1 : 0);
    }
    return statusOf(child) != 0;
}

TEST(Clipboard, anotherOpenAndCloseInTheProcessDropsTheLock) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    EXPECT_TRUE(isLockedForOthers(test.path));
    fclose(fopen(test.path.c_str(), "r"));
    EXPECT_FALSE(isLockedForOthers(test.path));
    closeClipboard(clipboard);
}

TEST(Clipboard, addingNeedsAName) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    EXPECT_EQ(addClipEntry(clipboard, nullptr, nullptr, "1", nullptr), 0);
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "", "1", nullptr), 0);
    EXPECT_EQ(entriesOf(clipboard).count, 1U);
    EXPECT_EQ(getClipboardFlags(clipboard), 0U);
    closeClipboard(clipboard);
}

TEST(Clipboard, emptyValueIsNotExpanded) {
    Case test;
    Clipboard *clipboard = test.load("");
    addClipEntry(clipboard, nullptr, "A", "", nullptr);
    EXPECT_EQ(expandClipEntries(clipboard), 0);
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "");
    EXPECT_EQ(getClipboardFlags(clipboard), static_cast<uint32_t>(CLIP_MODIFIED));
    closeClipboard(clipboard);
}

TEST(Clipboard, valueThatCannotBeExpandedStays) {
    Case test;
    Clipboard *clipboard = test.load("A=\\$HOME\n");
    int32_t changed;
    {
        const FailingAlloc failing;
        changed = expandClipEntries(clipboard);
    }
    EXPECT_EQ(changed, 0);
    EXPECT_STREQ(findClipEntryValue(clipboard, "A"), "$HOME");
    EXPECT_EQ(getClipboardFlags(clipboard), 0U);
    closeClipboard(clipboard);
}

TEST(Clipboard, insertionWithoutMemoryForAFurtherEntryChangesNothing) {
    Case test;
    Clipboard *clipboard = test.load("A=1\n");
    while (entriesOf(clipboard).count < entriesOf(clipboard).capacity) {
        const std::string name = "N" + std::to_string(entriesOf(clipboard).count);
        ASSERT_EQ(addClipEntry(clipboard, nullptr, name.c_str(), "1", nullptr), 1);
    }
    const uint32_t count = entriesOf(clipboard).count;
    for (int successes = 0; successes < 4; ++successes) { // three texts, then the entries
        const FailingAlloc failing(successes);
        EXPECT_EQ(insertClipEntry(clipboard, "A", "#\n", "I", "0", nullptr), 0) << successes;
        EXPECT_EQ(entriesOf(clipboard).count, count);
        EXPECT_STREQ(entryAt(clipboard, 0).name, "A");
    }
    for (int successes = 0; successes < 3; ++successes) { // two texts, then the entries
        const FailingAlloc failing(successes);
        EXPECT_EQ(addClipEntry(clipboard, nullptr, "I", "0", nullptr), 0) << successes;
        EXPECT_EQ(entriesOf(clipboard).count, count);
    }
    EXPECT_EQ(insertClipEntry(clipboard, "A", "#\n", "I", "0", nullptr), 1);
    EXPECT_STREQ(entryAt(clipboard, 0).name, "I");
    closeClipboard(clipboard);
}

// Its texts are larger than what the new text of the file begins with: growth is refused in each.
TEST(Clipboard, exhaustedMemoryInAnyPartOfALongEntryLeavesTheFileAsItWas) {
    const std::string filler(4079, '#');
    Case test;
    int failures = 0;
    for (size_t length = 0; length < 24; ++length) {
        const std::string before =
            "#" + filler.substr(0, 4060 + length - 4) + "\nNAME='a \"b' # trailer\nEND=\n";
        const std::string after =
            "#" + filler.substr(0, 4060 + length - 4) + "\nNAME=\"a \\\"b\" # trailer\nEND=\n";
        int32_t written = -1;
        for (int successes = 0; written == -1 && successes < 20; ++successes) {
            Clipboard *clipboard = test.load(before);
            addClipboardFlags(clipboard, CLIP_MODIFIED);
            {
                const FailingAlloc failing(successes);
                written = closeClipboard(clipboard);
            }
            failures += written == -1 ? 1 : 0;
            EXPECT_EQ(test.content(), written == -1 ? before : after) << length;
        }
        EXPECT_EQ(written, 2) << length;
    }
    EXPECT_GT(failures, 24 * 3);
}

TEST(Clipboard, fileThatMayNotShrinkIsNotANewClipboard) {
    const int file = memfd_create("clip", MFD_ALLOW_SEALING);
    ASSERT_EQ(write(file, "A=1\n", 4), 4);
    ASSERT_EQ(fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    const int before = dup(0);
    close(before);
    errno = 0;
    EXPECT_EQ(newClipboard(path.c_str()), nullptr);
    EXPECT_EQ(errno, EPERM);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before) << "a descriptor is left open";
    char bytes[5] = "";
    EXPECT_EQ(pread(file, bytes, 4, 0), 4);
    EXPECT_STREQ(bytes, "A=1\n");
    close(file);
}

TEST(Clipboard, pathWithoutAFolderIsMadeAnewInThisOne) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to change its identity";
    expectChildPasses([] {
        Case test;
        test.folder.write("clip", "A=1\n");
        ASSERT_EQ(chdir(test.folder.path().c_str()), 0);
        Clipboard *clipboard = modifyClipboard("clip");
        getClipboard(clipboard);
        chmod("clip", 0440);
        ASSERT_EQ(chown("clip", 12345, 12345), 0);
        ASSERT_EQ(chmod(".", 0777), 0);
        ASSERT_EQ(seteuid(12345), 0);
        addClipEntry(clipboard, nullptr, "A", "2", nullptr);
        EXPECT_EQ(closeClipboard(clipboard), 1);
        ASSERT_EQ(seteuid(0), 0);
        EXPECT_EQ(test.content(), "A=2\n");
        EXPECT_EQ(filesIn(test.folder.path()), 1);
    });
}

TEST(QuotePuts, exhaustedMemoryWritesNothing) {
    const std::string text = "two words" + std::string(300, ' ');
    int failures = 0;
    for (int successes = 0; successes < 10; ++successes) {
        FILE *stream = tmpfile();
        int result;
        {
            const FailingAlloc failing(successes);
            result = quotePuts(text.c_str(), stream);
        }
        failures += 1 - result;
        EXPECT_EQ(ftell(stream), result == 0 ? 0 : static_cast<long>(text.size() + 2));
        fclose(stream);
    }
    EXPECT_GT(failures, 0);
    EXPECT_LT(failures, 10);
}

TEST(QuotePuts, randomTextsAreQuotedAsCharacterByCharacter) {
    static constexpr char ALPHABET[] = "abcxyz019/._-\"\"\\\\ \t'`|^<>;#&[]{}()$\n\r\f\b\v\xFF";
    std::mt19937 random(20263);
    for (int round = 0; round < 2000; ++round) {
        const size_t plain = random() % 2 == 0 ? 13 : sizeof ALPHABET - 1;
        std::string text(random() % 40, ' '), inQuotes;
        bool isQuoted = false;
        for (char &ch : text) {
            ch = ALPHABET[random() % plain];
            isQuoted = isQuoted || strchr(" \t'\"`|^<>;#&[]{}()$\n\r\f\b", ch) != nullptr;
            inQuotes += ch == '"' || ch == '\\' ? std::string("\\") + ch : std::string(1, ch);
        }
        int result;
        ASSERT_EQ(quoted(text.c_str(), &result), isQuoted ? "\"" + inQuotes + "\"" : text);
        ASSERT_EQ(result, 1);
    }
}

TEST(QuotePuts, earlierErrorOfTheStreamGivesZero) {
    EXPECT_EQ(quotePuts("text", nullptr), 0);
    FILE *stream = fopen("/dev/full", "w");
    fputs("lost", stream);
    EXPECT_EQ(fflush(stream), EOF);
    EXPECT_EQ(quotePuts("text", stream), 0);
    fclose(stream);
}

// ---- lines of every shape

std::string shownText(const char *text) {
    return text == nullptr ? "-" : std::string("[") + text + "]";
}

// What parseXeqY makes of the line, as the format of the file tells.
std::string parsed(const std::string &text) {
    std::string entries, line = text;
    char *name, *value, *rest;
    while (parseXeqY(0, 0, line.c_str(), &name, &value, &rest) != 0) {
        std::string behind = rest == nullptr ? "" : rest;
        const std::string kept = shownText(rest);
        entries += shownText(name) + shownText(value);
        const size_t sign = behind.find_first_not_of(" \t");
        const size_t next =
            sign == std::string::npos ? sign : behind.find_first_not_of(" \t", sign + 1);
        const bool goesOn = sign != std::string::npos && behind[sign] == ';' &&
                            (next == std::string::npos || behind[next] != '#');
        entries += (goesOn ? "-" : kept) + "\n";
        if (!goesOn)
            break;
        line = next == std::string::npos ? "" : behind.substr(next);
    }
    return entries;
}

std::string loadedFrom(Case &test, const std::string &text) {
    Clipboard *clipboard = test.load(text);
    std::string entries;
    for (uint32_t position = 0; position < entriesOf(clipboard).count; ++position) {
        const ClipEntry &entry = entryAt(clipboard, position);
        entries += shownText(entry.name) + shownText(entry.value) + shownText(entry.trailer) + "\n";
    }
    closeClipboard(clipboard);
    return entries;
}

// Of pieces that leave no quote open, so that it is a line of its own.
std::string randomLine(std::mt19937 &random) {
    static const std::vector<std::string> names = {"a", "NAME", "_x9",  "9",
                                                   "",  "a-b",  "\xE4", " b"};
    static const std::vector<std::string> pieces = {
        "plain",    "/a:b,c",     "$HOME",    "9",     "=",    "\"two words\"", "\"\"",
        "\"#;'`\"", "\"a\\\"b\"", "'single'", "`cmd`", "\\\"", "\\a",           "\\ ",
        " ",        "\t",         "\v",       "#",     ";",    "; x=y",         "\xE4",
        "\"\xE4\"", "\x7F",       "~",        "\xA0",  "\x01"};
    std::string line = names[random() % names.size()] + (random() % 8 != 0 ? "=" : " = ");
    for (size_t count = random() % 4; count > 0; --count)
        line += pieces[random() % pieces.size()];
    return line;
}

TEST(Clipboard, randomLinesAreLoadedAsTheOptionsFilesHaveThem) {
    Case test;
    std::mt19937 random(20264);
    for (int round = 0; round < 20; ++round) {
        std::string lines, expected;
        for (int count = 0; count < 200; ++count) {
            const std::string line = randomLine(random);
            lines += line + "\n";
            expected += parsed(line);
        }
        ASSERT_EQ(loadedFrom(test, lines), expected);
        EXPECT_GT(expected.size(), 500U);
    }
}

} // namespace
