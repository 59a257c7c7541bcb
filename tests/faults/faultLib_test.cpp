// The fault library itself: what it reaches, and that it reaches nothing else.
#include "faults/faultLib.h"

#include "core/ipcComm.h"
#include "core/mkcopy.h"

#include "support/childProcess.h"
#include "support/tempDir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// What the library takes from elsewhere and no fault is given to, by the reason.
const std::map<std::string, std::vector<const char *>> NOT_FAULTED = {
    {"computes, and has no failure",
     {"bsearch",
      "isalnum",
      "isalpha",
      "isgraph",
      "isprint",
      "isspace",
      "isxdigit",
      "memchr",
      "memcmp",
      "memcpy",
      "memmove",
      "memrchr",
      "memset",
      "strchr",
      "strchrnul",
      "strcmp",
      "strcspn",
      "strlen",
      "strncmp",
      "strnlen",
      "strpbrk",
      "strrchr",
      "strspn",
      "tolower",
      "toupper",
      "sigaddset",
      "sigemptyset",
      "sigismember",
      "strtol",
      "strtoll",
      "strtoull",
      "__ctype_b_loc",
      "__ctype_tolower_loc",
      "__ctype_toupper_loc"}},
    {"sorts in place where it gets no memory", {"qsort"}},
    {"fits: numbers and short texts into a block of the right size", {"snprintf", "strftime"}},
    {"has no failure for a time of 32 bits", {"asctime_r", "localtime_r", "tzset"}},
    {"asks for what always is there",
     {"alarm", "getenv", "getgid", "getpid", "getuid", "pthread_getspecific", "pthread_self",
      "sched_yield", "sysconf", "time", "umask"}},
    {"looks at a stream that is open, or has no result",
     {"clearerr", "feof", "ferror", "fileno", "rewind"}},
    {"has no result", {"endpwent", "free", "setpwent"}},
    {"fails for a bad argument alone, which the library does not give",
     {"kill", "pthread_kill", "pthread_mutex_lock", "pthread_mutex_trylock", "pthread_mutex_unlock",
      "pthread_sigmask", "sighold", "signal", "sigpause", "sigpending", "sigrelse", "sigset"}},
    {"locks a stream that is open", {"flockfile", "funlockfile"}},
    {"gives a stream the byte back that it has just given", {"ungetc"}},
    {"ends the process", {"abort", "__stack_chk_fail"}},
    {"is the platform's, which tests/dialer plays",
     {"vxCancelTimer", "vxDial", "vxStartTimer", "vxWCheck", "ensureUnique", "event_trace"}},
    {"belongs to the compiler",
     {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__cxa_finalize",
      "__errno_location", "__gmon_start__", "___tls_get_addr", "__tls_get_addr"}},
    {"is a variable of libc's", {"stderr", "__libc_single_threaded"}},
};

bool isSanitizers(const std::string &name) {
    for (const char *prefix : {"__asan_", "__ubsan_", "__lsan_", "__tsan_", "__sanitizer_"})
        if (name.starts_with(prefix))
            return true;
    return false;
}

// The name without what the compiler or the size of an address puts around it.
std::string plainName(std::string name) {
    if (name == "__xpg_sigpause")
        return "sigpause";
    for (const char *mangled : {"ensureUnique", "event_trace"})
        if (name.starts_with("_Z") && name.find(mangled) != std::string::npos)
            return mangled;
    return name;
}

std::set<std::string> notFaulted() {
    std::set<std::string> names;
    for (const auto &[reason, list] : NOT_FAULTED)
        names.insert(list.begin(), list.end());
    return names;
}

std::map<std::string, bool> imports() {
    std::map<std::string, bool> found;
    const auto note = [](void *context, const char *name, int isFaulted) {
        (*static_cast<std::map<std::string, bool> *>(context))[plainName(name)] = isFaulted != 0;
    };
    EXPECT_EQ(faultsEachImport(note, &found), 0);
    return found;
}

TEST(FaultLib, everyImportIsFaultedOrListedWithItsReason) {
    const std::set<std::string> listed = notFaulted();
    int faulted = 0;
    for (const auto &[name, isFaulted] : imports()) {
        faulted += isFaulted ? 1 : 0;
        EXPECT_TRUE(isFaulted || isSanitizers(name) || listed.count(name) == 1)
            << name << " is neither given faults nor listed";
        EXPECT_FALSE(isFaulted && listed.count(name) == 1) << name << " is both";
    }
    EXPECT_EQ(faulted, 48);
}

TEST(FaultLib, failsTheCallThatIsToldAndNoOther) {
    ASSERT_EQ(faultsArm("malloc", 2, ENOMEM, 0), 0);
    char *copies[3];
    for (char *&copy : copies)
        copy = mkcopy("text");
    EXPECT_EQ(faultsDisarm(), 1);
    EXPECT_EQ(faultsCounted(), 3);
    EXPECT_STREQ(faultsGiven(), "malloc");
    EXPECT_STREQ(copies[0], "text");
    EXPECT_EQ(copies[1], nullptr);
    EXPECT_STREQ(copies[2], "text");
    for (char *copy : copies)
        freecopy(copy);
}

TEST(FaultLib, onwardFailsAllThatFollow) {
    ASSERT_EQ(faultsArm("memory", 2, ENOMEM, 1), 0);
    char *first = mkcopy("text");
    EXPECT_EQ(mkcopy("text"), nullptr);
    EXPECT_EQ(mkcopy("text"), nullptr);
    EXPECT_EQ(faultsDisarm(), 2);
    freecopy(first);
}

TEST(FaultLib, leavesEverybodyElseAlone) {
    ASSERT_EQ(faultsArm("memory,transfers", 1, EIO, 1), 0);
    void *block = malloc(7);
    int ends[2];
    const bool made = pipe(ends) == 0;
    const bool written = made && write(ends[1], "x", 1) == 1;
    EXPECT_EQ(faultsDisarm(), 0);
    EXPECT_TRUE(block != nullptr && written);
    free(block);
    close(ends[0]);
    close(ends[1]);
}

TEST(FaultLib, shortensTransfers) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    IpcChannel channel = {ends[1], 0, 0, 0, nullptr};
    ASSERT_EQ(faultsArm("write", 1, FAULT_SHORT_HALF, 0), 0);
    EXPECT_EQ(ipcSend(&channel, "hello"), -1);
    EXPECT_EQ(ipcSend(&channel, "hello"), 5);
    EXPECT_EQ(faultsDisarm(), 1);
    char bytes[32];
    ASSERT_EQ(read(ends[0], bytes, sizeof bytes), 12);
    EXPECT_EQ(std::string(bytes, 12), "005h005hello");
    free(channel.buffer);
    close(ends[0]);
    close(ends[1]);
}

TEST(FaultLib, refusesUnknownCalls) {
    EXPECT_EQ(faultsArm("malloc,mallocs", 1, ENOMEM, 0), -1);
    EXPECT_EQ(faultsArm("", 1, ENOMEM, 0), -1);
}

// The sanitizer's runtime that this process runs with, and a colon; it must be preloaded first.
std::string runtimeFirst() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find("/libasan.so") != std::string::npos)
            return line.substr(line.find('/')) + ":";
    return "";
}

std::string copiedWith(const std::string &faults) {
    const std::string command = "LD_PRELOAD=" + runtimeFirst() + FAULT_LIBRARY +
                                " FAULTS=" + faults + " exec " + COPIER + " text 2>&1";
    FILE *stream = popen(command.c_str(), "r");
    std::string out;
    for (int ch; (ch = getc(stream)) != EOF;)
        out += static_cast<char>(ch);
    pclose(stream);
    return out;
}

TEST(Preloaded, isRuledByTheEnvironment) {
    EXPECT_EQ(copiedWith("malloc:1:ENOMEM"), "no memory\ntext\n");
    EXPECT_EQ(copiedWith("memory:1:ENOMEM:onward"), "no memory\nno memory\n");
    EXPECT_EQ(copiedWith("malloc:3:ENOMEM"), "text\ntext\n");
}

TEST(Preloaded, refusesWhatItDoesNotKnow) {
    EXPECT_EQ(copiedWith("mallocs:1:ENOMEM"), "faults: cannot arm \"mallocs:1:ENOMEM\"\n");
}

} // namespace
