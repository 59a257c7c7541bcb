// The clipboard, with every call failing in turn: no value is lost that the file had.
#include "buffers/arrays.h"
#include "clipboard/clipboard.h"

#include "faults/sweep.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char *FILE_TEXT =
    "# comment\none=1 # trailer\ntwo=\"2 2\"; three=$QN_CLIP\n# end\n";
constexpr const char *REWRITTEN =
    "# comment\none=1 # trailer\ntwo=\"2 2\"\nthree=\"$QN_CLIP\"\n# end\nfour=4\n";

struct ClipFile {
    ClipFile() : path(dir.write("clip", FILE_TEXT)) {}
    std::string text() const { return dir.read("clip"); }
    const TempDir dir;
    const std::string path;
};

// Ends a clipboard in any state.
void release(Clipboard *clipboard) {
    if (clipboard == nullptr)
        return;
    if (clipboard->entries == 0)
        getClipboard(clipboard);
    setClipboardFlags(clipboard, 0);
    EXPECT_EQ(closeClipboard(clipboard), 0);
}

uint32_t openArrays() {
    return arrDescPtr == nullptr ? 1 : arrDescPtr->count;
}

int openDescriptors() {
    int count = 0;
    for (int fd = 0; fd < 64; ++fd)
        count += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    return count;
}

// Whether the fault was one that is tried again, or not looked at.
bool isOverlooked(const Attempt &attempt, std::initializer_list<const char *> calls) {
    return !attempt.faulted() || attempt.atAny(calls);
}

// ---- opening

void expectOpens(const Attempt &attempt, const Clipboard *clipboard, bool isOpened) {
    EXPECT_EQ(clipboard != nullptr, isOpened);
    if (clipboard == nullptr) {
        EXPECT_EQ(attempt.error(), attempt.effect());
    }
}

void opensNew(Attempt &attempt) {
    const ClipFile file;
    const int before = openDescriptors();
    Clipboard *clipboard = attempt.under([&] { return newClipboard(file.path.c_str()); });
    // A lock that a signal interrupts is waited for anew; without the status the descriptor is
    // taken as it is in the end.
    const bool isOpened =
        (isOverlooked(attempt, {"stat", "fstat"}) && !(attempt.faulted() && attempt.isOnward())) ||
        (attempt.at("fcntl") && attempt.effect() == EINTR);
    expectOpens(attempt, clipboard, isOpened);
    if (attempt.atAny({"open", "fcntl", "ftruncate"}) && !isOpened) {
        EXPECT_EQ(file.text(), FILE_TEXT) << "not opened, but emptied";
    }
    release(clipboard);
    EXPECT_EQ(openDescriptors(), before);
    clipboard = newClipboard(file.path.c_str());
    ASSERT_NE(clipboard, nullptr);
    EXPECT_EQ(file.text(), "");
    release(clipboard);
}

// A file that cannot be opened for update is asked for once more, to be made.
void opensExisting(Attempt &attempt) {
    const ClipFile file;
    const int before = openDescriptors();
    Clipboard *clipboard = attempt.under([&] { return modifyClipboard(file.path.c_str()); });
    const bool isOpened = !attempt.faulted() ||
                          (attempt.at("fcntl") && attempt.effect() == EINTR) ||
                          (attempt.atAny({"open", "stat", "fstat"}) && !attempt.isOnward());
    expectOpens(attempt, clipboard, isOpened);
    EXPECT_EQ(file.text(), FILE_TEXT);
    release(clipboard);
    EXPECT_EQ(file.text(), FILE_TEXT);
    EXPECT_EQ(openDescriptors(), before);
}

// ---- loading

Clipboard *loaded(const ClipFile &file) {
    Clipboard *clipboard = modifyClipboard(file.path.c_str());
    EXPECT_NE(clipboard, nullptr);
    EXPECT_NE(getClipboard(clipboard), 0U);
    return clipboard;
}

std::string valuesOf(Clipboard *clipboard) {
    std::string values;
    for (const char *name : {"zero", "one", "two", "three", "four"}) {
        const ClipEntry *entry = getClipEntry(clipboard, name);
        if (entry != nullptr)
            values += std::string(name) + "=" + shown(entry->value) + ";";
    }
    return values;
}

constexpr const char *VALUES = "one=1;two=2 2;three=$QN_CLIP;";

// The whole file or nothing of it.
void loads(Attempt &attempt) {
    const ClipFile file;
    Clipboard *clipboard = modifyClipboard(file.path.c_str());
    const uint32_t before = openArrays();
    const uint32_t entries = attempt.under([&] { return getClipboard(clipboard); });
    // A key that could not be made is made by the store that follows.
    const bool isWhole = !attempt.faulted() || (attempt.at("getc") && attempt.effect() == EINTR) ||
                         (attempt.isMemory() && !attempt.isOnward() && entries != 0 &&
                          attempt.atAny({"pthread_key_create", "pthread_setspecific"}));
    EXPECT_EQ(entries != 0, isWhole);
    EXPECT_EQ(valuesOf(clipboard), isWhole ? VALUES : "");
    EXPECT_EQ(openArrays(), isWhole ? before + 1 : before);
    EXPECT_NE(getClipboard(clipboard), 0U);
    EXPECT_EQ(valuesOf(clipboard), VALUES);
    release(clipboard);
    EXPECT_EQ(file.text(), FILE_TEXT);
}

// ---- changing

// Runs the change on a loaded clipboard; a failure changes neither entries nor flags.
template<typename Change>
void change(Attempt &attempt, const char *changed, Change operation) {
    const ClipFile file;
    Clipboard *clipboard = loaded(file);
    const int done = attempt.under([&] { return operation(clipboard); });
    EXPECT_EQ(done, attempt.faulted() ? 0 : 1);
    EXPECT_EQ(valuesOf(clipboard), attempt.faulted() ? VALUES : changed);
    EXPECT_EQ(getClipboardFlags(clipboard), attempt.faulted() ? 0U : 1U);
    if (attempt.faulted()) {
        EXPECT_EQ(operation(clipboard), 1);
    }
    EXPECT_EQ(valuesOf(clipboard), changed);
    release(clipboard);
}

void adds(Attempt &attempt) {
    change(attempt, "one=1;two=2 2;three=$QN_CLIP;four=4;", [](Clipboard *clipboard) {
        return addClipEntry(clipboard, "# new\n", "four", "4", "# behind");
    });
}

// So many entries that the array has to grow.
void addsTenth(Attempt &attempt) {
    const ClipFile file;
    Clipboard *clipboard = loaded(file);
    while (arrayValidDescriptor(clipboard->entries)->count < 10)
        ASSERT_EQ(
            addClipEntry(clipboard, nullptr,
                         std::to_string(arrayValidDescriptor(clipboard->entries)->count).c_str(),
                         "x", nullptr),
            1);
    const int added =
        attempt.under([&] { return addClipEntry(clipboard, nullptr, "zero", "0", nullptr); });
    EXPECT_EQ(added, attempt.faulted() ? 0 : 1);
    EXPECT_EQ(shown(findClipEntryValue(clipboard, "zero")), attempt.faulted() ? "(null)" : "0");
    EXPECT_EQ(addClipEntry(clipboard, nullptr, "zero", "0", nullptr), 1);
    release(clipboard);
}

void replaces(Attempt &attempt) {
    change(attempt, "one=1;two=new;three=$QN_CLIP;", [](Clipboard *clipboard) {
        return addClipEntry(clipboard, "# new\n", "two", "new", "# behind");
    });
}

void insertsBefore(Attempt &attempt) {
    change(attempt, "zero=0;one=1;two=2 2;three=$QN_CLIP;", [](Clipboard *clipboard) {
        return insertClipEntry(clipboard, "two", "# new\n", "zero", "0", "# behind");
    });
}

// What cannot be expanded stays.
void expandsValues(Attempt &attempt) {
    setenv("QN_CLIP", "expanded", 1);
    const ClipFile file;
    Clipboard *clipboard = loaded(file);
    const int32_t changed = attempt.under([&] { return expandClipEntries(clipboard); });
    EXPECT_TRUE(changed == 1 || (attempt.faulted() && changed == 0)) << changed;
    EXPECT_EQ(valuesOf(clipboard), changed == 1 ? "one=1;two=2 2;three=expanded;" : VALUES);
    EXPECT_EQ(getClipboardFlags(clipboard), changed == 1 ? 2U : 0U);
    expandClipEntries(clipboard);
    EXPECT_EQ(valuesOf(clipboard), "one=1;two=2 2;three=expanded;");
    release(clipboard);
}

// ---- closing

std::string temporariesIn(const TempDir &dir) {
    std::string names;
    FILE *stream = popen(("ls -A " + dir.path() + " | grep '^.clip' || true").c_str(), "r");
    for (int ch; (ch = getc(stream)) != EOF;)
        names += static_cast<char>(ch);
    pclose(stream);
    return names;
}

// How many of the four named entries stand whole in what was written.
int wholeEntries(const std::string &text) {
    int count = 0;
    for (const char *entry :
         {"# comment\none=1 # trailer\n", "two=\"2 2\"\n", "three=\"$QN_CLIP\"\n", "four=4\n"})
        count += text.find(entry) != std::string::npos ? 1 : 0;
    return count;
}

void close(Attempt &attempt, const ClipFile &file) {
    const int before = openDescriptors();
    Clipboard *clipboard = loaded(file);
    ASSERT_EQ(addClipEntry(clipboard, nullptr, "four", "4", nullptr), 1);
    const int32_t written = attempt.under([&] { return closeClipboard(clipboard); });
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(temporariesIn(file.dir), attempt.at("unlink") ? temporariesIn(file.dir) : "");
    const std::string text = file.text();
    if (written == -1) {
        EXPECT_TRUE(attempt.faulted());
        EXPECT_EQ(text, FILE_TEXT) << "the file is not as it was";
    } else {
        EXPECT_EQ(written, wholeEntries(text));
        EXPECT_EQ(text, std::string(REWRITTEN).substr(0, text.size()))
            << "not a part of the new text";
    }
    if (!attempt.faulted() || attempt.isShort() || attempt.atAny({"close", "fclose"})) {
        EXPECT_EQ(written, 4);
        EXPECT_EQ(text, REWRITTEN);
    }
    if (attempt.at("write")) {
        EXPECT_EQ(text, attempt.isShort() || attempt.effect() == EINTR ? REWRITTEN : "");
    }
    if (attempt.isMemory() && attempt.faulted()) {
        EXPECT_EQ(written, -1);
    }
}

void closes(Attempt &attempt) {
    const ClipFile file;
    close(attempt, file);
}

// A new clipboard's file is written to where it is open.
void closesNew(Attempt &attempt) {
    const ClipFile file;
    Clipboard *clipboard = newClipboard(file.path.c_str());
    ASSERT_NE(getClipboard(clipboard), 0U);
    ASSERT_EQ(addClipEntry(clipboard, nullptr, "four", "4", nullptr), 1);
    const int32_t written = attempt.under([&] { return closeClipboard(clipboard); });
    EXPECT_EQ(file.text(), written == 1 ? "four=4\n" : "");
    if (isOverlooked(attempt, {"lseek", "fstat", "fclose"}) && !attempt.isOnward()) {
        EXPECT_EQ(written, 1) << "else the file is opened once more";
    }
}

// A file that may not be written to any more is made anew.
void closesReadOnly(Attempt &attempt) {
    const ClipFile file;
    const int before = openDescriptors();
    Clipboard *clipboard = loaded(file);
    ASSERT_EQ(addClipEntry(clipboard, nullptr, "four", "4", nullptr), 1);
    // As root every file can be opened: a path that now leads through nothing cannot.
    const std::string folder = file.dir.file("folder"), gone = file.dir.file("folder/gone");
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    ASSERT_EQ(symlink("/proc/no-such-thing", gone.c_str()), 0);
    free(clipboard->path);
    clipboard->path = strdup(gone.c_str());
    const int32_t written = attempt.under([&] { return closeClipboard(clipboard); });
    EXPECT_EQ(openDescriptors(), before);
    struct stat status;
    const bool isMade = lstat(gone.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    EXPECT_EQ(written != -1, isMade);
    const bool isOverlookedCall =
        isOverlooked(attempt, {"close", "fclose", "fchown", "fchmod", "fstat", "lseek"}) ||
        attempt.isShort();
    if (isMade) {
        EXPECT_EQ(written, wholeEntries(file.dir.read("folder/gone")));
    }
    if (isOverlookedCall && !attempt.isOnward()) {
        EXPECT_EQ(written, 4);
        EXPECT_EQ(file.dir.read("folder/gone"), REWRITTEN);
    }
    EXPECT_EQ(file.text(), FILE_TEXT);
    unlink(gone.c_str());
    // What cannot be removed either stays, as where a process dies in between.
    const bool mayStay = attempt.at("unlink") || (attempt.faulted() && attempt.isOnward());
    EXPECT_TRUE(rmdir(folder.c_str()) == 0 || mayStay) << "something was left in the folder";
}

void removes(Attempt &attempt) {
    const ClipFile file;
    const int result = attempt.under([&] { return removeClipboard(file.path.c_str()); });
    EXPECT_EQ(result, attempt.faulted() ? -1 : 0);
    EXPECT_EQ(attempt.error(), attempt.effect());
    EXPECT_EQ(access(file.path.c_str(), F_OK) == 0, attempt.faulted());
}

void quotes(Attempt &attempt) {
    const TempDir dir;
    FILE *stream = fopen(dir.file("out").c_str(), "w");
    const int result = attempt.under([&] { return quotePuts("a \"b\"", stream); });
    EXPECT_EQ(result, attempt.faulted() ? 0 : 1);
    fclose(stream);
    EXPECT_EQ(dir.read("out"), attempt.faulted() ? "" : "\"a \\\"b\\\"\"");
}

const Kinds FILES = {INTERRUPTED, NO_SPACE, IO_ERROR, IO_GONE};

const std::vector<Rows> rows = {
    {"newClipboard", Fresh::IN_PLACE, opensNew, MEMORY + FILES},
    {"modifyClipboard", Fresh::IN_PLACE, opensExisting, MEMORY + FILES},
    {"getClipboard", Fresh::IN_THREAD, loads, MEMORY + FILES},
    {"addClipEntry", Fresh::IN_PLACE, adds, MEMORY},
    {"addClipEntry_growing", Fresh::IN_PLACE, addsTenth, MEMORY},
    {"addClipEntry_existing", Fresh::IN_PLACE, replaces, MEMORY},
    {"insertClipEntry", Fresh::IN_PLACE, insertsBefore, MEMORY},
    {"expandClipEntries", Fresh::IN_PLACE, expandsValues, MEMORY},
    {"closeClipboard", Fresh::IN_PLACE, closes, MEMORY + FILES + Kinds{WOULD_BLOCK} + TRANSFERS},
    {"closeClipboard_ofNew", Fresh::IN_PLACE, closesNew, FILES},
    {"closeClipboard_madeAnew", Fresh::IN_PLACE, closesReadOnly, MEMORY + FILES + TRANSFERS},
    {"removeClipboard", Fresh::IN_PLACE, removes, FILES},
    {"quotePuts", Fresh::IN_PLACE, quotes, MEMORY + FILES},
};

QN_SWEEPS(rows);

} // namespace
