// The log client, with every call failing in turn: a record goes whole or the caller is told, and
// the next one goes.
#include "log/clientFixture.h"

#include "log/log.h"
#include "log/logDstPri.h"

#include "faults/sweep.h"

#include <sys/syscall.h>
#include <sys/uio.h>

static bool kernelRefuses; // to write without a SIGPIPE; the mask is what is left

// Beneath the faults. By both names, the second being that of large files on i386.
extern "C" ssize_t pwritev64v2(int fd, const iovec *parts, int count, off64_t, int flags) {
    if (!kernelRefuses)
        return syscall(SYS_pwritev2, fd, parts, count, -1L, -1L, flags);
    errno = EOPNOTSUPP;
    return -1;
}
extern "C" ssize_t pwritev2(int fd, const iovec *parts, int count, off_t at, int flags) {
    return pwritev64v2(fd, parts, count, at, flags);
}

namespace {

const std::string PLAIN_BODY = "12 \x1C"
                               "05F000000tst a:7";
const std::string BODY = "13 \x1C"
                         "05F000000tst a:7\x1C"
                         "42\x1Ctext\x1D";

// Whether the reader got the record, last; what a short write left lies before it.
bool isReceived(const ClientRoot &root, const std::string &record) {
    return root.received().ends_with(framed(record));
}

void expectLogs(const ClientRoot &root) {
    root.received();
    EXPECT_EQ(shown(logEvent(NUMBER_TEXT, 1, 0, "a", 7, 42, "text")), BODY);
    EXPECT_EQ(root.received(), framed("00000001" + BODY));
}

// ---- starting and ending

void settleEnvironment(const ClientRoot &root) {
    for (const char *name : {"LOGDSTRULES", "OLD_LOGPERROR", "MAXMSGSIZE"})
        unsetenv(name);
    setenv("LOGDSTPRISHMKEY", NO_TABLE_KEY, 1);
    setenv("LOGROOT", root.path().c_str(), 1);
}

template<typename Start>
void start(Attempt &attempt, Start operation) {
    ClientRoot root;
    settleEnvironment(root);
    root.openReader();
    const int32_t result = attempt.under([&] { return operation(root); });
    // No name, where there was no memory for it: there was none before.
    const bool isNamed = logProcName != nullptr;
    const bool succeeds = !attempt.faulted() || attempt.at("close") || !isNamed;
    if (!(attempt.faulted() && attempt.isOnward())) {
        EXPECT_EQ(result, succeeds ? 0 : -1);
    }
    if (result == -1) {
        // A pipe that could not be opened is tried again; without memory its path is not known.
        const bool isOpenedLater = fmtMax >= 1 && !attempt.isMemory();
        EXPECT_EQ(shown(logEvent(NUMBER_TEXT, 1, 0, "a", 7, 42, "text")),
                  isOpenedLater ? BODY : "(null)");
    }
    EXPECT_EQ(operation(root), 0);
    EXPECT_STREQ(logProcName, "tst");
    expectLogs(root);
}

void starts(Attempt &attempt) {
    start(attempt,
          [](const ClientRoot &root) { return loginit("tst", 1, 0, root.path().c_str()); });
}

void startsByDefault(Attempt &attempt) {
    start(attempt, [](const ClientRoot &) { return logInit("tst"); });
}

void ends(Attempt &attempt) {
    ClientRoot root;
    root.start();
    const int32_t result = attempt.under([] { return logend(); });
    EXPECT_EQ(result, attempt.faulted() ? -1 : 0);
    EXPECT_EQ(attempt.error(), attempt.effect());
    expectLogs(root);
}

// The offsets may be there where the rest is not; what is there is the caller's.
void loadsFormats(Attempt &attempt) {
    const ClientRoot root;
    const std::string path = root.dir().file("cmpLogFmt");
    uint16_t *table = nullptr;
    char *strings = nullptr;
    const int32_t count =
        attempt.under([&] { return getcmpLogFmt(path.c_str(), &table, &strings); });
    const bool succeeds = !attempt.faulted() || attempt.atAny({"close", "fprintf"});
    EXPECT_EQ(count, succeeds ? MESSAGES : -1);
    EXPECT_EQ(strings != nullptr, succeeds);
    if (attempt.at("open")) {
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(attempt.error(), attempt.effect());
    }
    free(table);
    free(strings);
    EXPECT_EQ(getcmpLogFmt(path.c_str(), &table, &strings), MESSAGES);
    EXPECT_STREQ(strings + table[NUMBER_TEXT], "\x1C%d\x1C%s\x1D");
    free(table);
    free(strings);
}

// ---- the process's name

void names(Attempt &attempt) {
    setLogProcName("one");
    setLogProcName("two");
    const char *previous = attempt.under([] { return setLogProcName("three"); });
    EXPECT_EQ(shown(previous), attempt.faulted() ? "(null)" : "two");
    EXPECT_STREQ(logProcName, attempt.faulted() ? "two" : "three");
    EXPECT_EQ(shown(setLogProcName(nullptr)), attempt.faulted() ? "two" : "three");
}

void givesName(Attempt &attempt) {
    setLogProcName("one");
    const char *name = attempt.under([] { return getLogProcName(); });
    EXPECT_EQ(shown(name), attempt.faulted() ? "(null)" : "one");
    EXPECT_EQ(shown(getLogProcName()), "one");
}

// ---- records

// The record before outlives the failure.
void formats(Attempt &attempt) {
    ClientRoot root;
    root.start();
    const char *earlier = fmtEvent(PLAIN, 1, 0, "a", 7);
    const std::string longer(200, 'z');
    const char *record =
        attempt.under([&] { return fmtEvent(NUMBER_TEXT, 1, 0, "a", 7, 42, longer.c_str()); });
    EXPECT_EQ(record == nullptr, attempt.faulted());
    EXPECT_EQ(earlier, "00000001" + PLAIN_BODY);
    EXPECT_EQ(shown(fmtEvent(NUMBER_TEXT, 1, 0, "a", 7, 42, "text")), "00000001" + BODY);
}

using Log = const char *(*)();

// A record that was given back was received, whole and last; else the caller has null. What was
// logged before stays readable.
void log(Attempt &attempt, const std::string &record, const std::string &changed, Log operation) {
    ClientRoot root;
    root.start();
    const char *earlier = logEvent(PLAIN, 1, 0, "a", 7);
    root.received();
    const char *body = attempt.under(operation);
    const bool isGiven = body != nullptr;
    if (!attempt.faulted()) {
        EXPECT_TRUE(isGiven);
        EXPECT_EQ(attempt.error(), 0);
    }
    if (isGiven) {
        // The text of an error that could not be formatted is empty.
        const bool isChanged = attempt.isMemory() && attempt.faulted() && body == changed;
        EXPECT_EQ(body, isChanged ? changed : record);
        EXPECT_TRUE(isReceived(root, "00000001" + (isChanged ? changed : record)));
    } else {
        EXPECT_EQ(shown(earlier), PLAIN_BODY);
    }
    expectLogs(root);
}

const char *logNumberText() {
    return logEvent(NUMBER_TEXT, 1, 0, "a", 7, 42, "text");
}

void logs(Attempt &attempt) {
    log(attempt, BODY, "", logNumberText);
}

// What is interrupted, or fails once, is sent anew after a reopening; what fails once more is given
// up.
void logsAgain(Attempt &attempt) {
    ClientRoot root;
    root.start();
    const char *body = attempt.under(logNumberText);
    const bool isSent = !attempt.faulted() || !attempt.isOnward();
    EXPECT_EQ(shown(body), isSent ? BODY : "(null)");
    EXPECT_EQ(attempt.error(), isSent ? 0 : attempt.effect());
    if (isSent) {
        EXPECT_TRUE(isReceived(root, "00000001" + BODY));
    }
    expectLogs(root);
}

// On a kernel that has to be helped with the mask.
template<void (*LOGS)(Attempt &)>
void masked(Attempt &attempt) {
    kernelRefuses = true;
    LOGS(attempt);
}

// The signal of a pipe without a reader does not get through, whatever interrupts its being taken.
void logsToNobody(Attempt &attempt) {
    ClientRoot root;
    root.start();
    root.closeReader();
    const char *body = attempt.under(logNumberText);
    EXPECT_EQ(body, nullptr);
    EXPECT_EQ(attempt.error(), ENXIO);
    root.openReader();
    expectLogs(root);
}

// Shown as well: a message that cannot be expanded, or written, is sent all the same.
void shows(Attempt &attempt) {
    ClientRoot root;
    std::string directory(16 * (NUMBER_TEXT + 1), ' ');
    const std::string place = std::to_string(directory.size()) + " 7";
    directory.replace(16 * NUMBER_TEXT, place.size(), place);
    root.dir().write("textLogFmt", directory + "%s: %s\n");
    root.start();
    const char *body =
        attempt.under([] { return logEvent(NUMBER_TEXT, 3, 0, "a", 7, 42, "text"); });
    if (!attempt.faulted() || body != nullptr) {
        EXPECT_EQ(shown(body), BODY);
        EXPECT_TRUE(isReceived(root, "00000003" + BODY));
    }
    if (attempt.atAny({"fputs", "pread"}) && !attempt.isOnward()) {
        EXPECT_NE(body, nullptr);
    }
    expectLogs(root);
}

// ---- routed records

// Without the table the defaults are used; that there is none is told once.
void logsWithoutTable(Attempt &attempt) {
    log(attempt, BODY, "",
        []() -> const char * { return logMsg(NUMBER_TEXT, "a", 7, 42, "text"); });
}

void logsByTable(Attempt &attempt) {
    ClientRoot root;
    const Segment table(14, std::vector<LogDstPri>(14, {2, 5}));
    root.start();
    table.name();
    const char *body = attempt.under([] { return logMsg(NUMBER_TEXT, "a", 7, 42, "text"); });
    const std::string routed = "13 \x1C"
                               "25F000000tst a:7\x1C"
                               "42\x1Ctext\x1D";
    const bool isFound = attempt.at("shmget") || attempt.at("shmctl") || attempt.at("shmat");
    if (!attempt.faulted() || body != nullptr) {
        EXPECT_EQ(shown(body), isFound ? BODY : routed);
        EXPECT_TRUE(isReceived(root, isFound ? "00000001" + BODY : "00000005" + routed));
    }
    EXPECT_EQ(shown(logMsg(NUMBER_TEXT, "a", 7, 42, "text")), routed)
        << "the table is looked for again";
}

void findsRow(Attempt &attempt) {
    const Segment table(14, std::vector<LogDstPri>(14, {2, 5}));
    table.name();
    const LogDstPri *row = attempt.under([] { return getLogMsgDstPri(3); });
    // The path of the rules is for whoever looks at a core: nothing depends on it.
    const bool isFound = !attempt.faulted() || attempt.isMemory();
    EXPECT_EQ(row != nullptr, isFound);
    if (!isFound) {
        EXPECT_EQ(attempt.error(), attempt.effect());
    }
    row = getLogMsgDstPri(3);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->destination, 5U);
}

const std::string ERROR_HEAD = "1727 \x1C"
                               "05F000000tst a:7\x1C";

void logsError(Attempt &attempt) {
    log(attempt, ERROR_HEAD + "x 9\x1D", ERROR_HEAD + "\x1D",
        []() -> const char * { return logperror(1, 0, "a", 7, "%s %d", "x", 9); });
}

void logsSystemError(Attempt &attempt) {
    log(attempt, ERROR_HEAD + "x 9\x1D", ERROR_HEAD + "\x1D",
        []() -> const char * { return logSysError("a", 7, "%s %d", "x", 9); });
}

void relogs(Attempt &attempt) {
    static char body[] = "13 \x1C"
                         "05F000000tst a:7\x1C"
                         "42\x1Ctext\x1D";
    log(attempt, body, "", []() -> const char * { return relogCmpMsg(body, 1); });
}

const Kinds FILES = {INTERRUPTED, NO_SPACE, IO_ERROR, IO_GONE};
// Of either call that a record is written with.
const Kinds REFUSED_WRITES = {{"EAGAINOnce", "transfers", EAGAIN, 0},
                              {"EAGAINGone", "transfers", EAGAIN, 1},
                              {"EINTR", "transfers", EINTR, 0},
                              {"EIOGone", "transfers", EIO, 1}};
const Kinds SENDING = MEMORY + FILES + TRANSFERS;

const std::vector<Rows> rows = {
    {"loginit", Fresh::IN_CHILD, starts, MEMORY + FILES + TRANSFERS},
    {"logInit", Fresh::IN_CHILD, startsByDefault, MEMORY + FILES},
    {"logend", Fresh::IN_CHILD, ends, {INTERRUPTED, IO_ERROR}},
    {"getcmpLogFmt", Fresh::IN_PLACE, loadsFormats, MEMORY + FILES + TRANSFERS},
    {"setLogProcName", Fresh::IN_PLACE, names, MEMORY},
    {"getLogProcName", Fresh::IN_PLACE, givesName, MEMORY},
    {"fmtEvent", Fresh::IN_CHILD, formats, MEMORY},
    {"logEvent", Fresh::IN_CHILD, logs, SENDING},
    {"logEvent_masked", Fresh::IN_CHILD, masked<logs>, FILES + TRANSFERS},
    {"logEvent_again", Fresh::IN_CHILD, logsAgain, REFUSED_WRITES},
    {"logEvent_againMasked", Fresh::IN_CHILD, masked<logsAgain>, REFUSED_WRITES},
    {"logEvent_withoutReader",
     Fresh::IN_CHILD,
     masked<logsToNobody>,
     {{"EINTR", "sigtimedwait", EINTR, 0}}},
    {"logEvent_shown", Fresh::IN_CHILD, shows, MEMORY + Kinds{IO_ERROR, IO_GONE}},
    {"logMsg_withoutTable", Fresh::IN_CHILD, logsWithoutTable, {MEMORY_ONCE, IO_ERROR}},
    {"logMsg_byTable", Fresh::IN_CHILD, logsByTable, {MEMORY_ONCE, INTERRUPTED, IO_GONE}},
    {"getLogMsgDstPri", Fresh::IN_CHILD, findsRow, MEMORY + FILES},
    {"logperror", Fresh::IN_CHILD, logsError, MEMORY},
    {"logSysError", Fresh::IN_CHILD, logsSystemError, MEMORY},
    {"relogCmpMsg", Fresh::IN_CHILD, relogs, MEMORY + Kinds{NO_SPACE}},
};

QN_SWEEPS(rows);

} // namespace
