/* Copies, the fatal exit and per-thread objects, with real threads. */
#include "core/mkcopy.h"
#include "core/panic.h"
#include "core/staticObj.h"

#include "support/childProcess.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace {

StaticObj makeDescriptor(void (*destructor)(void *), void *initial) {
    return {destructor, initial, PTHREAD_MUTEX_INITIALIZER, 0, 0};
}

void *inNewThread(StaticObj *descriptor) {
    void *value = nullptr;
    std::thread([&] { value = fetchStaticObj(descriptor); }).join();
    return value;
}

TEST(StaticObj, creatingFetchGivesTheInitialValue) {
    int initial = 0;
    StaticObj descriptor = makeDescriptor(nullptr, &initial);
    EXPECT_EQ(fetchStaticObj(&descriptor), &initial);
    EXPECT_EQ(descriptor.created, 1);
    EXPECT_EQ(fetchStaticObj(&descriptor), &initial);
    EXPECT_EQ(inNewThread(&descriptor), nullptr);
}

TEST(StaticObj, storeBeforeFetchCreatesTheKeyWithoutTheInitialValue) {
    int initial = 0, own = 0;
    StaticObj descriptor = makeDescriptor(nullptr, &initial);
    EXPECT_EQ(storeStaticObj(&descriptor, &own), 0);
    EXPECT_EQ(descriptor.created, 1);
    EXPECT_EQ(fetchStaticObj(&descriptor), &own);
    EXPECT_EQ(inNewThread(&descriptor), nullptr);
}

std::atomic<int> destroyed;

TEST(StaticObj, destructorRunsForEachThreadWithAValue) {
    destroyed = 0;
    StaticObj descriptor = makeDescriptor([](void *) { ++destroyed; }, nullptr);
    int value = 0;
    std::thread([&] { storeStaticObj(&descriptor, &value); }).join();
    EXPECT_EQ(destroyed, 1);
    inNewThread(&descriptor);
    EXPECT_EQ(destroyed, 1);
}

TEST(StaticObj, valuesOfRacingThreadsStayApart) {
    StaticObj descriptor = makeDescriptor(nullptr, nullptr);
    std::thread threads[4];
    std::atomic<int> wrong{0};
    for (std::thread &thread : threads)
        thread = std::thread([&] {
            int own = 0;
            for (int round = 0; round < 1000; ++round)
                if (storeStaticObj(&descriptor, &own) != 0 || fetchStaticObj(&descriptor) != &own)
                    ++wrong;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST(StaticObj, exhaustedKeysGiveNullAndAnError) {
    expectChildPasses([] {
        pthread_key_t key;
        while (pthread_key_create(&key, nullptr) == 0) {
        }
        int value = 0;
        StaticObj descriptor = makeDescriptor(nullptr, &value);
        EXPECT_EQ(fetchStaticObj(&descriptor), nullptr);
        EXPECT_EQ(storeStaticObj(&descriptor, &value), EAGAIN);
        EXPECT_EQ(descriptor.created, 0);
        pthread_key_delete(key);
    });
}

TEST(Mkcopy, copiesAreEqualAndApart) {
    const char text[] = "text";
    char *copy = mkcopy(text);
    EXPECT_STREQ(copy, "text");
    EXPECT_NE(copy, text);
    freecopy(copy);
    freecopy(nullptr);
}

TEST(Mkcopy, emptyTextIsABlockAndNullIsNone) {
    char *copy = mkcopy("");
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(*copy, '\0');
    freecopy(copy);
    EXPECT_EQ(mkcopy(nullptr), nullptr);
}

TEST(Mkcopy, blockHasExactlyTheTextsLengthAndOneByte) {
    for (const char *text : {"", "x", "sixteen letters.", "\xFF\x80"}) {
        char *copy = mkcopy(text);
        EXPECT_EQ(lastAllocSize(), strlen(text) + 1);
        freecopy(copy);
    }
}

TEST(Mkcopy, exhaustedMemoryGivesNull) {
    const FailingAlloc failing;
    EXPECT_EQ(mkcopy("text"), nullptr);
}

TEST(Panic, writesTheMessageBetweenCarriageReturnsAndAborts) {
    const ChildResult result = runInChild([] { panic("boom"); });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err, "\r\nPANIC: boom\r\n");
}

TEST(Panic, nullMessageIsAnEmptyOne) {
    const ChildResult result = runInChild([] { panic(nullptr); });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err, "\r\nPANIC: \r\n");
}

TEST(Panic, runsNoExitHandler) {
    const ChildResult result = runInChild([] {
        atexit([] {
            const ssize_t written = write(STDERR_FILENO, "handler", 7);
            static_cast<void>(written);
        });
        panic("boom");
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err, "\r\nPANIC: boom\r\n");
}

} // namespace
