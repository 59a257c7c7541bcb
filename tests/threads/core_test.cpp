/* Copies, keywords, per-thread objects and channels, from several threads at once. */
#include "core/exactMatch.h"
#include "core/ipcComm.h"
#include "core/mkcopy.h"
#include "core/panic.h"
#include "core/staticObj.h"

#include "support/childProcess.h"
#include "support/tempDir.h"
#include "together.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A text of its own for each thread and round.
std::string textOf(int number, int round) {
    return std::string(static_cast<size_t>(round % 700), static_cast<char>('a' + number)) +
           std::to_string(round);
}

TEST(Threads, copiesAreWhole) {
    std::atomic<int> wrong{0};
    together([&](int number) {
        for (int round = 0; round < 50000; ++round) {
            const std::string text = textOf(number, round);
            char *copy = mkcopy(text.c_str());
            wrong += copy != nullptr && text == copy ? 0 : 1;
            freecopy(copy);
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, oneListServesAllSearches) {
    const char *const list[] = {"zero", "one", "two", "three", nullptr};
    std::atomic<int> wrong{0};
    together([&](int number) {
        for (int round = 0; round < 300000; ++round)
            wrong += exactMatch(list[number], list) == static_cast<uint32_t>(number) + 1 ? 0 : 1;
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, panicsAtOnceAreEachToldWhole) {
    for (int round = 0; round < 20; ++round) {
        const ChildResult result = runInChild([] { together([](int) { panic("boom"); }); });
        EXPECT_EQ(result.signal, SIGABRT);
        std::string told;
        while (told.size() < result.err.size())
            told += "\r\nPANIC: boom\r\n";
        EXPECT_EQ(result.err, told);
        EXPECT_FALSE(told.empty());
    }
}

TEST(Threads, oneOfTheRacingFirstFetchesGetsTheInitialValue) {
    int initial = 0;
    for (int round = 0; round < 200; ++round) {
        StaticObj descriptor = {nullptr, &initial, PTHREAD_MUTEX_INITIALIZER, 0, 0};
        std::atomic<int> given{0}, wrong{0};
        together([&](int) {
            int own = 0;
            const void *first = fetchStaticObj(&descriptor);
            given += first == &initial ? 1 : 0;
            wrong += first == &initial || first == nullptr ? 0 : 1;
            wrong += storeStaticObj(&descriptor, &own) == 0 ? 0 : 1;
            wrong += fetchStaticObj(&descriptor) == &own ? 0 : 1;
        });
        EXPECT_EQ(given, 1);
        EXPECT_EQ(wrong, 0);
        pthread_key_delete(descriptor.key);
    }
}

// Sends itself frames through a pipe; returns how many came back otherwise.
int echoFrames(int number) {
    int ends[2];
    if (pipe(ends) != 0)
        return 1;
    IpcChannel out = {ends[1], 0, 0, 0, nullptr}, in = {ends[0], 0, 0, 0, nullptr};
    int wrong = 0;
    for (int round = 0; round < 15000; ++round) {
        const std::string text = textOf(number, round);
        const auto length = static_cast<int32_t>(text.size());
        if (ipcSend(&out, text.c_str()) != length || ipcRecv(&in) != length || text != in.buffer)
            ++wrong;
    }
    wrong += in.capacity % 200 == 0 ? 0 : 1; // the granule that all found at their first growth
    close(ends[0]);
    close(ends[1]);
    free(out.buffer);
    free(in.buffer);
    return wrong;
}

TEST(Threads, channelsAreIndependentFromTheFirstGrowthOn) {
    expectChildPasses([] {
        setenv("MAXMSGSIZE", "200", 1);
        std::atomic<int> wrong{0};
        together([&](int number) { wrong += echoFrames(number); });
        EXPECT_EQ(wrong, 0);
    });
}

TEST(Threads, discardedBytesAreTheThreadsOwn) {
    std::atomic<int> wrong{0};
    together([&](int number) {
        int ends[2];
        if (pipe(ends) != 0) {
            ++wrong;
            return;
        }
        const char letter = static_cast<char>('a' + number);
        const std::string sent = std::string(3, 'x') + letter + "\n001!";
        const std::string shown = std::string(1, letter) + "  \\n ";
        IpcChannel channel = {ends[0], 0, 0, 0, nullptr};
        for (int round = 0; round < 10000; ++round) {
            const bool whole = write(ends[1], sent.data(), sent.size()) == 9 &&
                               ipcRecv(&channel) == 1 && shown == ipcBadData(43);
            wrong += whole ? 0 : 1;
        }
        close(ends[0]);
        close(ends[1]);
        free(channel.buffer);
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, pipesMadeAtOnceHaveTheirModesAndLeaveTheUmask) {
    expectChildPasses([] {
        const TempDir folder;
        umask(027);
        std::atomic<int> wrong{0};
        together([&](int number) {
            const std::string path = folder.file("pipe" + std::to_string(number));
            const mode_t mode = 0666 - static_cast<mode_t>(number);
            for (int round = 0; round < 1000; ++round) {
                struct stat status;
                const bool made = ipcInit(path.c_str(), mode) == 0 &&
                                  stat(path.c_str(), &status) == 0 &&
                                  status.st_mode == (S_IFIFO | mode);
                wrong += made ? 0 : 1;
                unlink(path.c_str());
            }
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(umask(0), 027U);
    });
}

} // namespace
