/* The table of arrays and the formatting services, from several threads at once. The cases of
   arrays run each in a child, where the table begins. */
#include "buffers/arrays.h"
#include "buffers/clearCopy.h"
#include "buffers/fmtCharBuf.h"
#include "core/mkcopy.h"

#include "support/childProcess.h"
#include "together.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

namespace {

TEST(Threads, putsIntoOneArrayAreAllThere) {
    expectChildPasses([] {
        constexpr int PUTS = 30000;
        const uint32_t array = arrayOpen(0, sizeof(int));
        std::atomic<int> wrong{0};
        together([&](int number) {
            for (int round = 0; round < PUTS; ++round) {
                const int value = number * PUTS + round;
                wrong += arrayPut(array, &value) != nullptr ? 0 : 1;
            }
        });
        const ArrayDescriptor &entry = arrDescPtr[array];
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(entry.count, 120000U);
        EXPECT_EQ(entry.changes, 120000U);
        const int *values = static_cast<const int *>(entry.storage);
        EXPECT_EQ(std::set<int>(values, values + entry.count).size(), 120000U);
        arrayClose(array);
    });
}

TEST(Threads, elementsPutAndDeletedAtOnceLeaveNothing) {
    expectChildPasses([] {
        const uint32_t array = arrayOpen(1, 0);
        std::atomic<int> wrong{0};
        together([&](int number) {
            const auto size = static_cast<uint32_t>(number) * 10 + 1;
            for (int round = 0; round < 20000; ++round) {
                void *element = arrayVPut(array, nullptr, size);
                wrong += element != nullptr && arrayDel(array, element) == 0 ? 0 : 1;
            }
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(arrDescPtr[array].count, 0U);
        EXPECT_EQ(arrDescPtr[array].changes, 160000U);
        arrayClose(array);
    });
}

// Elements are pairs of equal numbers; the reader takes them under the lock that it is given.
TEST(Threads, readerThatHoldsTheLockSeesWholeElements) {
    expectChildPasses([] {
        struct Pair {
            int first, second;
        };
        const uint32_t array = arrayOpen(0, sizeof(Pair));
        std::atomic<int> wrong{0};
        together([&](int number) {
            for (int round = 0; round < 1500; ++round) {
                const Pair pair = {number * 10000 + round, number * 10000 + round};
                if (number < 2) {
                    wrong += arrayPut(array, &pair) != nullptr ? 0 : 1;
                    continue;
                }
                const ArrayDescriptor *entry = arrayCkDescriptor(array);
                const Pair *pairs = static_cast<const Pair *>(entry->storage);
                for (uint32_t index = 0; index < entry->count; ++index)
                    wrong += pairs[index].first == pairs[index].second ? 0 : 1;
                pthread_mutex_unlock(&arrAccessLock);
            }
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(arrDescPtr[array].count, 3000U);
        arrayClose(array);
    });
}

// The first opening makes the table: all threads come to it at once.
TEST(Threads, arraysOpenedAtOnceHaveIndexesOfTheirOwn) {
    expectChildPasses([] {
        constexpr size_t OPENINGS = 5000;
        uint32_t indexes[THREADS * OPENINGS] = {};
        together([&](int number) {
            for (size_t round = 0; round < OPENINGS; ++round)
                indexes[static_cast<size_t>(number) * OPENINGS + round] = arrayOpen(0, 4);
        });
        const std::set<uint32_t> different(std::begin(indexes), std::end(indexes));
        EXPECT_EQ(different.size(), 20000U);
        EXPECT_EQ(different.count(0), 0U);
        EXPECT_EQ(arrDescPtr->count, 20001U);
        together([&](int number) {
            for (size_t round = 0; round < OPENINGS; ++round)
                arrayClose(indexes[static_cast<size_t>(number) * OPENINGS + round]);
        });
        EXPECT_EQ(arrDescPtr->count, 1U);
        EXPECT_EQ(arrDescPtr->changes, 20000U);
    });
}

// A thread reads the entry of an array that it alone changes, without any lock, while others open
// and close theirs, look for one another's, and one audits the table.
int useOwnArrays(int number) {
    int wrong = 0;
    for (int round = 0; round < 3000; ++round) {
        const uint32_t array = arrayOpen(0, sizeof(int));
        for (int value = 0; value < 25; ++value) {
            const int put = number * 100 + value;
            arrayPut(array, &put);
        }
        const ArrayDescriptor &entry = arrDescPtr[array];
        const int *values = static_cast<const int *>(entry.storage);
        wrong += entry.count == 25 && values[0] == number * 100 && values[24] == number * 100 + 24
                     ? 0
                     : 1;
        arrayValidDescriptor(array % 8 + 1); // that another thread may be opening
        if (number == 0)
            arrayAudit();
        wrong += arrayClose(array) == 0 ? 0 : 1;
    }
    return wrong;
}

TEST(Threads, ownArraysAreReadWithoutALock) {
    expectChildPasses([] {
        std::atomic<int> wrong{0};
        together([&](int number) { wrong += useOwnArrays(number); });
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(arrDescPtr->count, 1U);
    });
}

TEST(Threads, tableIsWholeWhenItsAddressIsSeen) {
    for (int round = 0; round < 20; ++round)
        expectChildPasses([] {
            std::atomic<int> wrong{0};
            together([&](int number) {
                if (number == 0)
                    arrayInit(33);
                const ArrayDescriptor *table;
                do
                    table = __atomic_load_n(&arrDescPtr, __ATOMIC_ACQUIRE);
                while (table == nullptr);
                wrong += table->storage == table && table->capacity == 33 && table->count == 1 &&
                                 table[1].nextFree == 2
                             ? 0
                             : 1;
            });
            EXPECT_EQ(wrong, 0);
        });
}

template<int NUMBER>
void toldOf(const char *) {
    static std::atomic<int> calls; // no two of these functions are one
    calls = NUMBER;
}

TEST(Threads, exchangedFatalFunctionsAreNotLost) {
    const auto value = [](int number) {
        static constexpr ArrayFatalFunc FUNCTIONS[] = {toldOf<0>, toldOf<1>, toldOf<2>, toldOf<3>};
        return number < 0 ? ArrayFatalFunc{nullptr} : FUNCTIONS[number];
    };
    EXPECT_TRUE(exchangesLoseNothing(arraySetFatalFunc, value, 100000));
}

TEST(Threads, formattedTextsAreTheThreadsOwn) {
    std::atomic<int> wrong{0};
    together([&](int number) {
        const std::string padding(static_cast<size_t>(number) * 300,
                                  static_cast<char>('a' + number));
        for (int round = 0; round < 20000; ++round) {
            const char *text = fmtStr("%d:%s:%d", number, padding.c_str(), round);
            const std::string expected =
                std::to_string(number) + ":" + padding + ":" + std::to_string(round);
            wrong += expected == text ? 0 : 1;
        }
    });
    EXPECT_EQ(wrong, 0);
}

TEST(Threads, renderingsAreWhole) {
    const int flags[] = {CLEAR_ESCAPE, CLEAR_HEX, CLEAR_CARET, CLEAR_UPPER};
    const char *const expected[] = {"a<\\001>b", "a<01>b", "a<^A>b", "a<SOH>b"};
    std::atomic<int> wrong{0};
    together([&](int number) {
        for (int round = 0; round < 30000; ++round) {
            char *copy = clearCopy("a\001b", flags[number]);
            wrong += copy != nullptr && strcmp(copy, expected[number]) == 0 ? 0 : 1;
            freecopy(copy);
        }
    });
    EXPECT_EQ(wrong, 0);
}

} // namespace
