/* The line reader, option processing and clipboards, from several threads at once. */
#include "buffers/arrays.h"
#include "clipboard/clipboard.h"
#include "core/mkcopy.h"
#include "options/options.h"
#include "options/parseln.h"
#include "options/readInfo.h"

#include "support/tempDir.h"
#include "together.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <string>

namespace {

constexpr int LINES = 2000;

// Lines of one letter, a long one now and then.
std::string linesOf(int number) {
    std::string text;
    for (int line = 0; line < LINES; ++line)
        text += std::string(line % 50 == 49 ? 400U : 20U, static_cast<char>('a' + number)) + "\n";
    return text;
}

std::vector<std::string> writeFiles(const TempDir &folder) {
    std::vector<std::string> paths;
    for (int number = 0; number < THREADS; ++number)
        paths.push_back(folder.write("lines" + std::to_string(number), linesOf(number)));
    return paths;
}

// One thread looks at the counter without the lock, the others read.
TEST(Threads, linesReadAtOnceAreAllCounted) {
    const TempDir folder;
    const std::vector<std::string> paths = writeFiles(folder);
    resetReadLine(nullptr);
    std::atomic<int> lines{0}, wrong{0};
    const auto watch = [&] {
        for (uint32_t before = 0, now = 0; now < THREADS * LINES; before = now) {
            now = __atomic_load_n(&virtLineCnt, __ATOMIC_RELAXED);
            wrong += now >= before && now <= THREADS * LINES ? 0 : 1;
        }
    };
    const auto read = [&](int number) {
        FILE *stream = fopen(paths[static_cast<size_t>(number)].c_str(), "r");
        while (readLine(stream) != nullptr)
            ++lines;
        fclose(stream);
    };
    together([&](int number) { number == THREADS ? watch() : read(number); }, THREADS + 1);
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(lines, 8000);
    EXPECT_EQ(inlineCnt, 8000U);
    EXPECT_EQ(virtLineCnt, 8000U);
}

TEST(Threads, exchangedModesAreNotLost) {
    const auto value = [](int number) { return static_cast<uint32_t>(number + 1); };
    EXPECT_TRUE(exchangesLoseNothing(setReadLineModes, value, 100000));
    EXPECT_EQ(ri_modes, 0U);
}

// How many elements of the array are not lines of the letter.
int strangeLines(uint32_t array, char letter) {
    const ArrayDescriptor *descriptor = arrayValidDescriptor(array);
    if (descriptor == nullptr || descriptor->count != LINES)
        return 1;
    int strange = 0;
    char *const *texts = static_cast<char *const *>(descriptor->storage);
    for (int line = 0; line < LINES; ++line)
        strange += std::string(line % 50 == 49 ? 400U : 20U, letter) == texts[line] ? 0 : 1;
    return strange;
}

TEST(Threads, filesReadAtOnceAreWhole) {
    const TempDir folder;
    const std::vector<std::string> paths = writeFiles(folder);
    std::atomic<int> wrong{0};
    together([&](int number) {
        for (int round = 0; round < 10; ++round) {
            const uint32_t array =
                readFileIntoArray(paths[static_cast<size_t>(number)].c_str(), 0, READ_DROP_NEWLINE);
            wrong += strangeLines(array, static_cast<char>('a' + number));
            arrayClose(array);
            setReadLineModes(0); // another's settings, and another's reading
            resetReadLine(nullptr);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, statementsAndWordsAreTheThreadsOwn) {
    std::atomic<int> wrong{0};
    together([&](int number) {
        const std::string own(static_cast<size_t>(number) * 100 + 1,
                              static_cast<char>('a' + number));
        const std::string line = "NAME=\"" + own + " " + own + "\"; REST=" + own;
        for (int round = 0; round < 3000; ++round) {
            char *name, *value, *rest;
            parseXeqY(0, 0, line.c_str(), &name, &value, &rest);
            wrong += value == own + " " + own && rest == "; REST=" + own ? 0 : 1;
            std::string copy = own + " " + own;
            char *words[3];
            wrong += parseln(copy.data(), words, 3) == 2 && words[1] == own ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}

std::atomic<int> handled, torn;

// Of a default option whose name and default value are the same text.
void checkEntry(OptionEntry *entry, char *, char *) {
    ++handled;
    torn += strcmp(entry->name, entry->defaultValue) == 0 ? 0 : 1;
}

TEST(Threads, defaultOptionIsReplacedWhole) {
    handled = torn = 0;
    char line[] = "UNKNOWN=1";
    char *lines[] = {line, nullptr};
    char names[][4] = {"one", "two", "six", "ten"};
    OptionEntry first = {names[0], names[0], checkEntry, nullptr};
    setDefaultOption(&first);
    together([&](int number) {
        OptionEntry own = {names[number], names[number], checkEntry, nullptr};
        for (int round = 0; round < 20000; ++round) {
            setDefaultOption(&own);
            processOptions(lines, nullptr);
        }
    });
    setDefaultOption(nullptr);
    EXPECT_EQ(handled, 80000);
    EXPECT_EQ(torn, 0);
}

TEST(Threads, primaryFileIsReplacedWhileProgramsReadTheirs) {
    const TempDir folder;
    std::string paths[THREADS];
    for (int number = 0; number < THREADS; ++number)
        paths[number] = folder.write("options" + std::to_string(number),
                                     "FIRST=" + std::to_string(number) +
                                         "\nSECOND=" + std::to_string(number) + "\n");
    setPrimaryOptionsFile(paths[0].c_str());
    std::atomic<int> wrong{0};
    together([&](int number) {
        char firstName[] = "FIRST", secondName[] = "SECOND";
        for (int round = 0; round < 1000; ++round) {
            int32_t first = -1, second = -2;
            OptionEntry table[] = {{firstName, nullptr, optInteger, &first},
                                   {secondName, nullptr, optInteger, &second},
                                   {nullptr, nullptr, nullptr, nullptr}};
            setPrimaryOptionsFile(paths[number].c_str());
            processProgramOptions("program", table);
            wrong += first >= 0 && first == second ? 0 : 1;
        }
    });
    setPrimaryOptionsFile(nullptr);
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, homesAndCommandsAreEachThreadsOwn) {
    const char *const users[THREADS] = {"root", "daemon", "bin", "nobody"};
    std::string homes[THREADS];
    for (int number = 0; number < THREADS; ++number) {
        const passwd *entry = getpwnam(users[number]);
        homes[number] = entry == nullptr ? std::string("~") + users[number] : entry->pw_dir;
    }
    std::atomic<int> wrong{0};
    together([&](int number) {
        for (int round = 0; round < 300; ++round) {
            const std::string letter(1, static_cast<char>('a' + number));
            const bool runs = round % 50 == 0;
            std::string text = std::string("~") + users[number];
            text += runs ? " `echo " + letter + "`" : " " + letter;
            char *expanded = shellVariable(text.data());
            wrong += expanded != nullptr && homes[number] + " " + letter == expanded ? 0 : 1;
            freecopy(expanded);
        }
    });
    EXPECT_EQ(wrong, 0);
}

// Adds one to the number under the name, as a process that shares the file does.
bool countUp(const std::string &path, const char *name) {
    Clipboard *clipboard = modifyClipboard(path.c_str());
    if (getClipboard(clipboard) == 0)
        return false;
    const char *value = findClipEntryValue(clipboard, name);
    const int count = value == nullptr ? 0 : atoi(value);
    addClipEntry(clipboard, nullptr, name, std::to_string(count + 1).c_str(), nullptr);
    return closeClipboard(clipboard) >= 1;
}

TEST(Threads, clipboardsOfDifferentFilesAreIndependent) {
    const TempDir folder;
    std::string paths[THREADS];
    for (int number = 0; number < THREADS; ++number)
        paths[number] = folder.write("clip" + std::to_string(number),
                                     "# " + std::string(300, static_cast<char>('a' + number)) +
                                         "\nOTHER=" + std::to_string(number) + "\n");
    std::atomic<int> wrong{0};
    together([&](int number) {
        for (int round = 0; round < 100; ++round)
            wrong += countUp(paths[number], "COUNT") ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0);
    for (int number = 0; number < THREADS; ++number)
        EXPECT_EQ(folder.read("clip" + std::to_string(number)),
                  "# " + std::string(300, static_cast<char>('a' + number)) +
                      "\nOTHER=" + std::to_string(number) + "\nCOUNT=100\n");
}

} // namespace
