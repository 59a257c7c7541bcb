/* Arrays: the table, the life of a descriptor, puts and deletions on both types, damage and its
 * repair, exhausted memory, and threads. The table is never released, so each case has a process of
 * its own. */
#include "buffers/arrays.h"

#include "support/childProcess.h"
#include "support/failingAlloc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <malloc.h>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

static bool refusesPages;

// The library's: the table gets its memory through it.
extern "C" int mprotect(void *address, size_t size, int protection) noexcept {
    if (refusesPages) {
        errno = ENOMEM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_mprotect, address, size, protection));
}

namespace {

constexpr uint32_t INLINE_ARRAY = 0, INDIRECT_ARRAY = 1;
constexpr uint32_t INTS = sizeof(int);

#define ISOLATED(suite, name)                                                                      \
    void name();                                                                                   \
    TEST(suite, name) {                                                                            \
        expectChildPasses(name);                                                                   \
    }                                                                                              \
    void name()

const ArrayDescriptor &entry(uint32_t index) {
    return arrDescPtr[index];
}

int intAt(uint32_t index, uint32_t place) {
    return static_cast<const int *>(entry(index).storage)[place];
}

void *textAt(uint32_t index, uint32_t place) {
    return static_cast<void **>(entry(index).storage)[place];
}

void expectEntry(const ArrayDescriptor &found, const ArrayDescriptor &expected) {
    EXPECT_EQ(found.type, expected.type);
    EXPECT_EQ(found.storage, expected.storage);
    EXPECT_EQ(found.elemSize, expected.elemSize);
    EXPECT_EQ(found.count, expected.count);
    EXPECT_EQ(found.capacity, expected.capacity);
    EXPECT_EQ(found.increment, expected.increment);
    EXPECT_EQ(found.changes, expected.changes);
    EXPECT_EQ(found.nextFree, expected.nextFree);
}

void *putInt(uint32_t index, int value) {
    return arrayPut(index, &value);
}

uint32_t openInts(int count) {
    const uint32_t index = arrayOpen(INLINE_ARRAY, INTS);
    for (int value = 0; value < count; ++value)
        EXPECT_NE(putInt(index, value), nullptr);
    return index;
}

std::vector<uint32_t> freeList() {
    std::vector<uint32_t> list;
    for (uint32_t at = entry(0).nextFree; at != 0 && list.size() < 1000; at = entry(at).nextFree)
        list.push_back(at);
    return list;
}

using Indexes = std::vector<uint32_t>;

ISOLATED(ArrayTable, doesNotExistBeforeItsFirstUse) {
    EXPECT_EQ(arrDescPtr, nullptr);
    EXPECT_EQ(arrayCkDescriptor(1), nullptr);
    EXPECT_EQ(arrayValidDescriptor(1), nullptr);
    ArrayDescriptor own = {INLINE_ARRAY, nullptr, 4, 0, 0, 10, 0, 0};
    EXPECT_EQ(expandArray(&own, 1), nullptr);
    EXPECT_EQ(arrayClose(1), -1);
    arrayAudit();
    EXPECT_EQ(arrDescPtr, nullptr);
}

ISOLATED(ArrayTable, entryZeroDescribesTheTable) {
    ArrayDescriptor *table = arrayInit(4);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table, arrDescPtr);
    EXPECT_EQ(table->type, 0U);
    EXPECT_EQ(table->storage, table);
    EXPECT_EQ(table->elemSize, sizeof(void *) == 4 ? 32U : 40U);
    EXPECT_EQ(table->count, 1U);
    EXPECT_EQ(table->capacity, 4U);
    EXPECT_EQ(table->increment, 4U);
    EXPECT_EQ(table->changes, 0U);
    EXPECT_EQ(freeList(), (Indexes{1, 2, 3}));
}

ISOLATED(ArrayTable, isMadeOnce) {
    ArrayDescriptor *table = arrayInit(3);
    EXPECT_EQ(arrayInit(50), table);
    EXPECT_EQ(arrayInit(0), table);
    EXPECT_EQ(table->capacity, 3U);
}

ISOLATED(ArrayTable, refusesZeroAndMoreThanItCanHold) {
    EXPECT_EQ(arrayInit(0), nullptr);
    EXPECT_EQ(arrayInit(1048577), nullptr);
    EXPECT_EQ(arrayInit(0x10000000), nullptr);
    EXPECT_EQ(arrayInit(UINT32_MAX), nullptr);
    EXPECT_EQ(arrDescPtr, nullptr);
    ASSERT_NE(arrayInit(1048576), nullptr);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 1U);
}

ISOLATED(ArrayTable, ofOneDescriptorEndsItsFreeListAndGrows) {
    arrayInit(1);
    EXPECT_EQ(entry(0).nextFree, 0U);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 1U);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 2U);
    EXPECT_EQ(entry(0).capacity, 3U);
    EXPECT_EQ(entry(0).count, 3U);
}

ISOLATED(ArrayTable, growsByItsIncrementAndDoesNotMove) {
    for (uint32_t index = 1; index <= 9; ++index)
        EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), index);
    const ArrayDescriptor *table = arrDescPtr;
    EXPECT_EQ(entry(0).capacity, 10U);
    EXPECT_EQ(entry(0).count, 10U);
    EXPECT_EQ(entry(0).nextFree, 0U);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 10U);
    EXPECT_EQ(entry(0).capacity, 20U);
    EXPECT_EQ(entry(0).count, 11U);
    EXPECT_EQ(freeList(), (Indexes{11, 12, 13, 14, 15, 16, 17, 18, 19}));
    for (uint32_t index = 11; index < 5000; ++index)
        ASSERT_EQ(arrayOpen(INLINE_ARRAY, 1), index);
    EXPECT_EQ(arrDescPtr, table);
    EXPECT_EQ(entry(0).storage, table);
    EXPECT_EQ(arrayValidDescriptor(4999), table + 4999);
}

ISOLATED(ArrayTable, growthMendsEntryZerosStorage) {
    arrayInit(2);
    openInts(0);
    arrDescPtr[0].storage = nullptr;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 2U);
    EXPECT_EQ(entry(0).capacity, 4U);
    EXPECT_EQ(entry(0).storage, arrDescPtr);
    arrayAudit(); // would end the process
}

ISOLATED(ArrayTable, endsGrowingAtItsMaximum) {
    arrayInit(1048575);
    arrDescPtr[0].nextFree = 0;
    arrDescPtr[0].count = 1048575;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 0U);
    EXPECT_EQ(entry(0).capacity, 1048575U);
    arrDescPtr[0].increment = 1;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 1048575U);
}

ISOLATED(ArrayTable, growthWithoutMemoryRefusesTheOpen) {
    arrayInit(1000);
    for (uint32_t index = 1; index < 1000; ++index)
        ASSERT_EQ(arrayOpen(INLINE_ARRAY, 1), index);
    refusesPages = true;
    const uint32_t refused = arrayOpen(INLINE_ARRAY, 1);
    refusesPages = false;
    EXPECT_EQ(refused, 0U);
    EXPECT_EQ(entry(0).capacity, 1000U);
    EXPECT_EQ(entry(0).count, 1000U);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 1000U);
}

ISOLATED(ArrayTable, withoutMemoryIsNotMade) {
    refusesPages = true;
    const ArrayDescriptor *table = arrayInit(10);
    const uint32_t refused = arrayOpen(INLINE_ARRAY, 1);
    refusesPages = false;
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(refused, 0U);
    EXPECT_EQ(arrDescPtr, nullptr);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), 1U);
}

ISOLATED(ArrayOpen, fillsTheDescriptor) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 12);
    ASSERT_EQ(index, 1U);
    expectEntry(entry(1), {INDIRECT_ARRAY, nullptr, 12, 0, 0, 10, 0, 0});
    EXPECT_EQ(arrayOpen(INDIRECT_ARRAY, 0), 2U);
}

ISOLATED(ArrayOpen, inlineArrayOfNoElementSizeTakesNothing) {
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 0), 0U);
    EXPECT_EQ(arrDescPtr, nullptr);
    arrayInit(5);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 0), 0U);
    EXPECT_EQ(entry(0).count, 1U);
    EXPECT_EQ(entry(0).nextFree, 1U);
}

ISOLATED(ArrayOpen, refusedTypeTakesAZeroDescriptorUntilTheAudit) {
    EXPECT_EQ(arrayOpen(2, 8), 0U);
    EXPECT_EQ(entry(0).count, 2U);
    EXPECT_EQ(entry(0).nextFree, 2U);
    expectEntry(entry(1), {});
    EXPECT_EQ(arrayValidDescriptor(1), nullptr);
    arrayAudit();
    EXPECT_EQ(entry(0).count, 1U);
    EXPECT_EQ(freeList(), (Indexes{9, 8, 7, 6, 5, 4, 3, 2, 1}));
}

// The refused descriptor still counts, so the count equals the capacity and the table grows.
ISOLATED(ArrayOpen, refusedTypesCountWhenTheTableGrows) {
    arrayInit(3);
    EXPECT_EQ(arrayOpen(UINT32_MAX, 8), 0U);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 2U);
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 3U);
    EXPECT_EQ(entry(0).capacity, 6U);
}

ISOLATED(ArrayOpen, wrongCountWithAnEmptyFreeListIsAudited) {
    arrayInit(4);
    openInts(0);
    arrDescPtr[0].nextFree = 0;
    arrDescPtr[0].changes = 77;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 3U);
    EXPECT_EQ(entry(0).capacity, 4U);
    EXPECT_EQ(entry(0).count, 3U);
    EXPECT_EQ(entry(0).changes, 0U);
    EXPECT_EQ(freeList(), (Indexes{2}));
}

ISOLATED(ArrayOpen, auditThatFindsNothingFreeIsFollowedByGrowth) {
    arrayInit(3);
    openInts(0);
    openInts(0);
    arrDescPtr[0].count = 2;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 3U);
    EXPECT_EQ(entry(0).capacity, 6U);
    EXPECT_EQ(entry(0).count, 4U);
}

ISOLATED(ArrayOpen, damagedFreeListIsRebuiltInsteadOfFollowed) {
    openInts(0);
    arrDescPtr[0].nextFree = 4000000000U;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 9U);
    arrDescPtr[0].nextFree = 1;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 8U);
}

std::string told;

void noteFatal(const char *message) {
    told += message;
}

ISOLATED(ArrayOpen, damagedIncrementOfZeroFailsWithZero) {
    arraySetFatalFunc(noteFatal);
    arrayInit(2);
    openInts(0);
    arrDescPtr[0].increment = 0;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 0U);
    arrDescPtr[0].count = 1;
    EXPECT_EQ(arrayOpen(INLINE_ARRAY, 8), 0U);
    EXPECT_EQ(told, "Dynamic Arrays Size or Increment 0\n");
    EXPECT_EQ(entry(0).capacity, 2U);
}

ISOLATED(ArrayDescriptorCheck, acceptsOnlyOpenArrays) {
    const uint32_t index = openInts(0);
    EXPECT_EQ(arrayValidDescriptor(index), arrDescPtr + index);
    for (const uint32_t wrong :
         {0U, index + 1, 9U, 10U, 11U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(arrayValidDescriptor(wrong), nullptr) << wrong;
}

bool accessLockIsFree() {
    bool isFree = false;
    std::thread([&isFree] {
        isFree = pthread_mutex_trylock(&arrAccessLock) == 0;
        if (isFree)
            pthread_mutex_unlock(&arrAccessLock);
    }).join();
    return isFree;
}

ISOLATED(ArrayDescriptorCheck, successHoldsTheAccessLockAndFailureDoesNot) {
    const uint32_t index = openInts(0);
    EXPECT_EQ(arrayCkDescriptor(index + 1), nullptr);
    EXPECT_TRUE(accessLockIsFree());
    EXPECT_EQ(arrayCkDescriptor(index), arrDescPtr + index);
    EXPECT_FALSE(accessLockIsFree());
    EXPECT_NE(putInt(index, 1), nullptr);
    EXPECT_FALSE(accessLockIsFree());
    pthread_mutex_unlock(&arrAccessLock);
    EXPECT_TRUE(accessLockIsFree());
}

ISOLATED(ArrayDescriptorCheck, operationsReleaseTheAccessLock) {
    const uint32_t index = openInts(1), indirect = arrayOpen(INDIRECT_ARRAY, 0);
    arrayValidDescriptor(index);
    putInt(index, 1);
    arrayPut(indirect, "x");
    arrayVPut(indirect, "x", 0);
    arrayVPut(indirect, "x", 2);
    arrayDel(index, nullptr);
    arrayDel(index, entry(index).storage);
    expandArray(arrDescPtr + index, 0);
    expandArray(arrDescPtr + index, 1);
    arrayAudit();
    arrayClose(99);
    arrayClose(indirect);
    free(arrayDone(index));
    EXPECT_TRUE(accessLockIsFree());
}

ISOLATED(ArrayDescriptorCheck, accessLockIsRecursiveBeforeTheTableExists) {
    EXPECT_EQ(pthread_mutex_lock(&arrAccessLock), 0);
    EXPECT_EQ(pthread_mutex_trylock(&arrAccessLock), 0);
    const uint32_t index = openInts(1);
    EXPECT_NE(index, 0U);
    EXPECT_FALSE(accessLockIsFree());
    pthread_mutex_unlock(&arrAccessLock);
    EXPECT_FALSE(accessLockIsFree());
    pthread_mutex_unlock(&arrAccessLock);
    EXPECT_TRUE(accessLockIsFree());
}

ISOLATED(ExpandArray, addsWholeIncrementsOfZeroSlots) {
    const struct {
        int32_t slots;
        uint32_t added;
    } rows[] = {{1, 10}, {9, 10}, {10, 10}, {11, 20}, {15, 20}, {20, 20}};
    for (const auto &row : rows) {
        const uint32_t index = openInts(0);
        EXPECT_EQ(expandArray(arrDescPtr + index, row.slots), entry(index).storage);
        EXPECT_EQ(entry(index).capacity, row.added) << row.slots;
        for (uint32_t place = 0; place < row.added; ++place)
            EXPECT_EQ(intAt(index, place), 0);
        arrayClose(index);
    }
}

ISOLATED(ExpandArray, addsPointerSlotsToAnIndirectArray) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 3);
    void *element = arrayPut(index, "ab");
    EXPECT_EQ(expandArray(arrDescPtr + index, 15), entry(index).storage);
    EXPECT_EQ(lastAllocSize(), 30 * sizeof(void *));
    EXPECT_EQ(entry(index).capacity, 30U);
    EXPECT_EQ(entry(index).count, 1U);
    EXPECT_EQ(textAt(index, 0), element);
    for (uint32_t place = 1; place < 30; ++place)
        EXPECT_EQ(textAt(index, place), nullptr);
}

ISOLATED(ExpandArray, keepsContentAndCounts) {
    const uint32_t index = openInts(10);
    EXPECT_EQ(expandArray(arrDescPtr + index, 15), entry(index).storage);
    EXPECT_EQ(entry(index).capacity, 30U);
    EXPECT_EQ(entry(index).count, 10U);
    EXPECT_EQ(entry(index).changes, 10U);
    EXPECT_EQ(intAt(index, 9), 9);
    EXPECT_EQ(intAt(index, 10), 0);
    EXPECT_EQ(intAt(index, 29), 0);
}

ISOLATED(ExpandArray, refusesWhatIsNoOpenArraysDescriptor) {
    const uint32_t index = openInts(0);
    ArrayDescriptor *table = arrDescPtr;
    char *inside = reinterpret_cast<char *>(table + index) + 4;
    EXPECT_EQ(expandArray(nullptr, 1), nullptr);
    EXPECT_EQ(expandArray(table, 1), nullptr);
    EXPECT_EQ(expandArray(table - 1, 1), nullptr);
    EXPECT_EQ(expandArray(static_cast<ArrayDescriptor *>(static_cast<void *>(inside)), 1), nullptr);
    EXPECT_EQ(expandArray(table + index + 1, 1), nullptr);
    EXPECT_EQ(expandArray(table + 10, 1), nullptr);
    EXPECT_EQ(expandArray(table + 100000, 1), nullptr);
    EXPECT_EQ(table->storage, table);
}

ISOLATED(ExpandArray, refusesNoAndNegativeSlots) {
    const uint32_t index = openInts(1);
    for (const int32_t slots : {0, -1, -10, INT32_MIN})
        EXPECT_EQ(expandArray(arrDescPtr + index, slots), nullptr) << slots;
    EXPECT_EQ(entry(index).capacity, 10U);
}

ISOLATED(ExpandArray, overflowingSizesFail) {
    const uint32_t index = arrayOpen(INLINE_ARRAY, 0xFFFFFFFF);
    EXPECT_EQ(expandArray(arrDescPtr + index, INT32_MAX), nullptr);
    const uint32_t ints = openInts(1);
    arrDescPtr[ints].increment = 0xFFFFFFFE;
    EXPECT_EQ(expandArray(arrDescPtr + ints, 1), nullptr);
    EXPECT_EQ(entry(ints).capacity, 10U);
    if (sizeof(void *) == 4) {
        arrDescPtr[ints].increment = 0x40000000;
        EXPECT_EQ(expandArray(arrDescPtr + ints, 1), nullptr);
        EXPECT_EQ(arrayPut(index, nullptr), nullptr);
    }
    EXPECT_EQ(intAt(ints, 0), 0);
}

ISOLATED(ExpandArray, exhaustedMemoryChangesNothing) {
    const uint32_t index = openInts(10);
    const ArrayDescriptor before = entry(index);
    {
        const FailingAlloc failing;
        EXPECT_EQ(expandArray(arrDescPtr + index, 1), nullptr);
        EXPECT_EQ(putInt(index, 10), nullptr);
    }
    expectEntry(entry(index), before);
    EXPECT_EQ(intAt(index, 9), 9);
    EXPECT_NE(putInt(index, 10), nullptr);
}

ISOLATED(InlineArray, growsWithTheEleventhElement) {
    const uint32_t index = openInts(0);
    EXPECT_EQ(entry(index).capacity, 0U);
    EXPECT_EQ(putInt(index, 0), entry(index).storage);
    EXPECT_EQ(entry(index).capacity, 10U);
    for (int value = 1; value < 10; ++value)
        putInt(index, value);
    EXPECT_EQ(entry(index).capacity, 10U);
    const void *stored = putInt(index, 10);
    EXPECT_EQ(stored, static_cast<int *>(entry(index).storage) + 10);
    EXPECT_EQ(entry(index).capacity, 20U);
    EXPECT_EQ(entry(index).count, 11U);
    EXPECT_EQ(entry(index).changes, 11U);
    for (uint32_t place = 0; place < 11; ++place)
        EXPECT_EQ(intAt(index, place), static_cast<int>(place));
}

ISOLATED(InlineArray, nullSourcePutsZeros) {
    const uint32_t index = openInts(1);
    static_cast<int *>(arrDescPtr[index].storage)[1] = 99;
    EXPECT_NE(arrayPut(index, nullptr), nullptr);
    EXPECT_EQ(intAt(index, 1), 0);
}

ISOLATED(InlineArray, sourceInItsOwnStorageSurvivesTheGrowth) {
    const uint32_t index = arrayOpen(INLINE_ARRAY, 4096);
    char block[4096];
    for (char fill = 'a'; fill < 'k'; ++fill) {
        memset(block, fill, sizeof block);
        arrayPut(index, block);
    }
    ASSERT_EQ(entry(index).capacity, 10U);
    const char *third = static_cast<const char *>(entry(index).storage) + 3 * 4096;
    const char *stored = static_cast<const char *>(arrayPut(index, third));
    EXPECT_EQ(std::string(stored, 4096), std::string(4096, 'd'));
}

ISOLATED(InlineArray, deletionClosesTheGapAndZeroesTheLast) {
    const uint32_t index = openInts(4);
    int *storage = static_cast<int *>(entry(index).storage);
    storage[3] = 33;
    EXPECT_EQ(arrayDel(index, storage + 1), 0);
    EXPECT_EQ(entry(index).count, 3U);
    EXPECT_EQ(entry(index).changes, 5U);
    EXPECT_EQ(intAt(index, 0), 0);
    EXPECT_EQ(intAt(index, 1), 2);
    EXPECT_EQ(intAt(index, 2), 33);
    EXPECT_EQ(intAt(index, 3), 0);
    EXPECT_EQ(arrayDel(index, storage + 2), 0);
    EXPECT_EQ(arrayDel(index, storage), 0);
    EXPECT_EQ(arrayDel(index, storage), 0);
    EXPECT_EQ(entry(index).count, 0U);
    EXPECT_EQ(arrayDel(index, storage), -1);
}

ISOLATED(InlineArray, deletionWantsAnElementsExactAddress) {
    const uint32_t index = openInts(3);
    char *storage = static_cast<char *>(entry(index).storage);
    for (const int offset : {-4, -1, 1, 2, 3, 5, 11, 12, 16, 40})
        EXPECT_EQ(arrayDel(index, storage + offset), -1) << offset;
    EXPECT_EQ(arrayDel(index, nullptr), -1);
    EXPECT_EQ(arrayDel(index + 1, storage), -1);
    EXPECT_EQ(entry(index).count, 3U);
    EXPECT_EQ(entry(index).changes, 3U);
    const uint32_t fresh = openInts(0);
    EXPECT_EQ(arrayDel(fresh, nullptr), -1);
}

ISOLATED(InlineArray, isNoArrayOfElementsOfTheirOwnSize) {
    const uint32_t index = openInts(0);
    const int value = 1;
    EXPECT_EQ(arrayVPut(index, &value, INTS), nullptr);
    EXPECT_EQ(entry(index).capacity, 0U);
}

// Puts of every source there may be: a text, nothing, bytes of the storage (the slot's own, too).
void putRandomly(uint32_t array, uint32_t size, std::mt19937 &random) {
    std::string list; // what the storage holds
    for (uint32_t count = 0; count < 35; ++count) {
        std::string text(size, '\0');
        for (char &ch : text)
            ch = static_cast<char>(random());
        const void *source = text.data();
        const uint32_t bytes = entry(array).capacity * size;
        if (random() % 4 == 0) {
            source = nullptr;
            text.assign(size, '\0');
        } else if (bytes > 0 && random() % 2 == 0) {
            const size_t place = random() % (bytes - size + 1);
            source = static_cast<const char *>(entry(array).storage) + place;
            text.assign(static_cast<const char *>(source), size);
        }
        const char *put = static_cast<const char *>(arrayPut(array, source));
        list += text;
        ASSERT_EQ(put, static_cast<const char *>(entry(array).storage) + count * size);
        ASSERT_EQ(std::string(put - count * size, list.size()), list) << size << ' ' << count;
    }
    EXPECT_EQ(entry(array).capacity, 40U);
    EXPECT_EQ(entry(array).changes, 35U);
}

ISOLATED(InlineArray, elementsOfEverySizeAndSourceArePutWhole) {
    std::mt19937 random(20261);
    for (uint32_t size = 1; size <= 40; ++size)
        for (int round = 0; round < 10; ++round) {
            const uint32_t array = arrayOpen(INLINE_ARRAY, size);
            putRandomly(array, size, random);
            arrayClose(array);
        }
}

ISOLATED(IndirectArray, growsWithTheTenthElementToKeepTheEndMark) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    for (uint32_t place = 0; place < 9; ++place) {
        const void *element = arrayPut(index, "x");
        EXPECT_EQ(element, textAt(index, place));
        EXPECT_EQ(textAt(index, place + 1), nullptr);
    }
    EXPECT_EQ(entry(index).capacity, 10U);
    void *first = textAt(index, 0);
    EXPECT_NE(arrayPut(index, "y"), nullptr);
    EXPECT_EQ(entry(index).capacity, 20U);
    EXPECT_EQ(textAt(index, 10), nullptr);
    EXPECT_EQ(textAt(index, 0), first);
    EXPECT_STREQ(static_cast<char *>(textAt(index, 9)), "y");
    EXPECT_EQ(entry(index).changes, 10U);
    EXPECT_EQ(arrayClose(index), 0);
}

ISOLATED(IndirectArray, elementsOfEverySizeArePutWhole) {
    for (uint32_t size = 1; size <= 40; ++size) {
        const uint32_t array = arrayOpen(INDIRECT_ARRAY, size);
        for (uint32_t count = 0; count < 25; ++count) {
            const std::string text(size, static_cast<char>('a' + count));
            const char *put = static_cast<const char *>(arrayPut(array, text.data()));
            ASSERT_EQ(textAt(array, count), put);
            ASSERT_EQ(textAt(array, count + 1), nullptr);
            ASSERT_EQ(std::string(put, size), text) << size << ' ' << count;
        }
        arrayClose(array);
    }
}

ISOLATED(IndirectArray, elementsOfTheirOwnSize) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 0);
    EXPECT_EQ(arrayPut(index, "x"), nullptr);
    EXPECT_EQ(arrayVPut(index, "x", 0), nullptr);
    EXPECT_EQ(entry(index).capacity, 0U);
    EXPECT_STREQ(static_cast<char *>(arrayVPut(index, "longer", 7)), "longer");
    EXPECT_EQ(lastAllocSize(), 7U);
    const char *zeros = static_cast<char *>(arrayVPut(index, nullptr, 3));
    EXPECT_EQ(memcmp(zeros, "\0\0\0", 3), 0);
    EXPECT_EQ(entry(index).count, 2U);
    EXPECT_EQ(entry(index).changes, 2U);
    EXPECT_EQ(textAt(index, 2), nullptr);
    const uint32_t fixed = arrayOpen(INDIRECT_ARRAY, 3);
    EXPECT_EQ(arrayVPut(fixed, "ab", 3), nullptr);
    EXPECT_EQ(memcmp(arrayPut(fixed, nullptr), "\0\0\0", 3), 0);
}

ISOLATED(IndirectArray, sourceInItsOwnPointersSurvivesTheGrowth) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, sizeof(void *));
    for (int round = 0; round < 9; ++round)
        arrayPut(index, nullptr);
    void *fourth = textAt(index, 4);
    const void *stored = arrayPut(index, static_cast<void **>(entry(index).storage) + 4);
    EXPECT_EQ(memcmp(stored, &fourth, sizeof fourth), 0);
}

ISOLATED(IndirectArray, sourceOfItsOwnSizeInItsOwnPointersSurvivesTheGrowth) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 0);
    for (int round = 0; round < 9; ++round)
        arrayVPut(index, nullptr, 1);
    void *slots[2] = {textAt(index, 4), textAt(index, 5)};
    const void *stored =
        arrayVPut(index, static_cast<void **>(entry(index).storage) + 4, sizeof slots);
    EXPECT_EQ(entry(index).capacity, 20U);
    EXPECT_EQ(memcmp(stored, slots, sizeof slots), 0);
}

// One increment would be taken by the element itself.
ISOLATED(IndirectArray, incrementOfOneGrowsForTheEndMarkToo) {
    const uint32_t fixed = arrayOpen(INDIRECT_ARRAY, 2), own = arrayOpen(INDIRECT_ARRAY, 0);
    arrDescPtr[fixed].increment = arrDescPtr[own].increment = 1;
    for (uint32_t place = 0; place < 3; ++place) {
        EXPECT_NE(arrayPut(fixed, "x"), nullptr);
        EXPECT_NE(arrayVPut(own, "y", 2), nullptr);
        for (const uint32_t index : {fixed, own}) {
            EXPECT_EQ(entry(index).count, place + 1);
            EXPECT_EQ(entry(index).capacity, place + 2);
            EXPECT_EQ(textAt(index, place + 1), nullptr);
        }
    }
}

ISOLATED(IndirectArray, deletionOfAPointerStoredTwiceTakesTheFirst) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    void *a = arrayPut(index, "a"), *b = arrayPut(index, "b");
    free(arrayPut(index, "c"));
    void **slots = static_cast<void **>(arrDescPtr[index].storage);
    slots[2] = a;
    EXPECT_EQ(arrayDel(index, a), 0);
    EXPECT_EQ(entry(index).count, 2U);
    EXPECT_EQ(slots[0], b);
    EXPECT_EQ(slots[1], a);
    EXPECT_EQ(slots[2], nullptr);
    slots[1] = nullptr; // released with the first
    EXPECT_EQ(arrayClose(index), 0);
}

ISOLATED(IndirectArray, deletionReleasesTheFirstEqualAndMovesTheRest) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    void *a = arrayPut(index, "a"), *b = arrayPut(index, "b"), *c = arrayPut(index, "c");
    EXPECT_EQ(arrayDel(index, static_cast<char *>(b) + 1), -1);
    EXPECT_EQ(arrayDel(index, nullptr), -1);
    EXPECT_EQ(arrayDel(index, b), 0);
    EXPECT_EQ(textAt(index, 0), a);
    EXPECT_EQ(textAt(index, 1), c);
    EXPECT_EQ(textAt(index, 2), nullptr);
    EXPECT_EQ(entry(index).count, 2U);
    EXPECT_EQ(entry(index).changes, 4U);
    EXPECT_EQ(arrayDel(index, c), 0);
    EXPECT_EQ(arrayDel(index, a), 0);
    EXPECT_EQ(textAt(index, 0), nullptr);
    EXPECT_EQ(arrayDel(index, nullptr), -1);
}

ISOLATED(IndirectArray, exhaustedMemoryForTheElementKeepsTheEndMark) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    {
        const FailingAlloc failing(1);
        EXPECT_EQ(arrayPut(index, "x"), nullptr);
    }
    EXPECT_EQ(entry(index).capacity, 10U);
    EXPECT_EQ(entry(index).count, 0U);
    EXPECT_EQ(entry(index).changes, 0U);
    EXPECT_EQ(textAt(index, 0), nullptr);
    EXPECT_NE(arrayPut(index, "x"), nullptr);
}

// Blocks in slots past the count are released too: the leak check of the sanitizers sees them.
ISOLATED(ArrayClose, releasesEveryAllocatedSlot) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    arrayPut(index, "a");
    static_cast<void **>(arrDescPtr[index].storage)[9] = malloc(5);
    EXPECT_EQ(arrayClose(index), 0);
    EXPECT_EQ(entry(index).storage, nullptr);
}

ISOLATED(ArrayClose, putsTheDescriptorInFrontOfTheFreeList) {
    openInts(1);
    openInts(1);
    openInts(0);
    EXPECT_EQ(arrayClose(2), 0);
    EXPECT_EQ(arrayClose(1), 0);
    EXPECT_EQ(entry(0).count, 2U);
    EXPECT_EQ(entry(0).changes, 2U);
    EXPECT_EQ(freeList(), (Indexes{1, 2, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(entry(1).increment, 0U);
    EXPECT_EQ(entry(1).elemSize, 0U);
    EXPECT_EQ(arrayClose(1), -1);
    EXPECT_EQ(arrayClose(0), -1);
    EXPECT_EQ(arrayClose(0xFFFFFFFF), -1);
    EXPECT_EQ(entry(0).count, 2U);
    EXPECT_EQ(openInts(0), 1U);
}

ISOLATED(ArrayDone, handsTheStorageOver) {
    const uint32_t index = openInts(2);
    int *storage = static_cast<int *>(arrayDone(index));
    EXPECT_EQ(storage[1], 1);
    EXPECT_EQ(arrayCkDescriptor(index), nullptr);
    EXPECT_EQ(entry(0).count, 1U);
    EXPECT_EQ(entry(0).changes, 1U);
    EXPECT_EQ(entry(0).nextFree, index);
    EXPECT_EQ(arrayDone(index), nullptr);
    EXPECT_EQ(entry(0).changes, 1U);
    free(storage);
    EXPECT_EQ(arrayDone(openInts(0)), nullptr);
    EXPECT_EQ(entry(0).changes, 2U);
}

ISOLATED(ArrayDone, handsTheElementsOverToo) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    arrayPut(index, "a");
    void **slots = static_cast<void **>(arrayDone(index));
    EXPECT_STREQ(static_cast<char *>(slots[0]), "a");
    EXPECT_EQ(slots[1], nullptr);
    free(slots[0]);
    free(slots);
}

void otherFatal(const char *) {}

ISOLATED(ArrayFatal, changerReturnsWhatItReplaced) {
    EXPECT_EQ(arraySetFatalFunc(nullptr), nullptr);
    EXPECT_EQ(arraySetFatalFunc(noteFatal), nullptr);
    EXPECT_EQ(arraySetFatalFunc(otherFatal), noteFatal);
    EXPECT_EQ(arraySetFatalFunc(nullptr), otherFatal);
    EXPECT_EQ(arraySetFatalFunc(nullptr), nullptr);
}

TEST(ArrayFatal, defaultEndsTheProcessThroughPanic) {
    const ChildResult result = runInChild([] {
        arrayInit(2);
        arrDescPtr[0].increment = 0;
        arrayAudit();
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.err, "\r\nPANIC: Dynamic Arrays Size or Increment 0\n\r\n");
}

ISOLATED(ArrayFatal, isToldOfEachDamage) {
    arraySetFatalFunc(noteFatal);
    ArrayDescriptor *table = arrayInit(2);
    table->storage = nullptr;
    table->capacity = 0;
    table->count = 5;
    arrayAudit();
    EXPECT_EQ(told, "Dynamic Arrays Base Address Wrong\n"
                    "Dynamic Arrays Size or Increment 0\n"
                    "Dynamic Arrays descriptor array < # of active arrays\n");
    EXPECT_EQ(table->capacity, 10U);
    EXPECT_EQ(table->storage, nullptr);
}

bool lockWasFree = true;

void noteAccessLock(const char *) {
    lockWasFree = accessLockIsFree();
}

ISOLATED(ArrayFatal, isToldUnderTheAccessLock) {
    arraySetFatalFunc(noteAccessLock);
    arrayInit(2)->increment = 0;
    arrayAudit();
    EXPECT_FALSE(lockWasFree);
    EXPECT_TRUE(accessLockIsFree());
}

void closeOneAndSpoilTheCount(const char *message) {
    noteFatal(message);
    arrayClose(1);
    arrDescPtr[0].count = 2;
}

ISOLATED(ArrayFatal, mayUseArraysItself) {
    arraySetFatalFunc(closeOneAndSpoilTheCount);
    arrayInit(2);
    openInts(3);
    arrDescPtr[0].count = 9;
    arrayAudit();
    EXPECT_EQ(told, "Dynamic Arrays descriptor array < # of active arrays\n");
    EXPECT_EQ(entry(0).count, 1U);
    EXPECT_EQ(openInts(0), 1U);
}

ISOLATED(ArrayAudit, rebuildsCountAndFreeListDamageOrNot) {
    for (int round = 0; round < 5; ++round)
        openInts(1);
    arrayClose(2);
    arrayClose(4);
    arrDescPtr[0].type = 7;
    arrDescPtr[0].elemSize = 7;
    arrDescPtr[7].elemSize = 3;
    arrayAudit();
    EXPECT_EQ(entry(0).type, 0U);
    EXPECT_EQ(entry(0).elemSize, sizeof(ArrayDescriptor));
    EXPECT_EQ(entry(0).count, 4U);
    EXPECT_EQ(entry(0).changes, 0U);
    EXPECT_EQ(freeList(), (Indexes{9, 8, 7, 6, 4, 2}));
    EXPECT_EQ(entry(7).elemSize, 0U);
    EXPECT_EQ(intAt(5, 0), 0);
    EXPECT_NE(putInt(5, 1), nullptr);
}

ISOLATED(ArrayAudit, capacityBeyondTheTableIsNotWalked) {
    arrayInit(2);
    arrDescPtr[0].capacity = 0xFFFFFFFF;
    EXPECT_EQ(arrayValidDescriptor(1000000), nullptr);
    arrayAudit();
    EXPECT_EQ(entry(0).count, 1U);
}

// The leak check of the sanitizers sees storage that only the table points at.
ISOLATED(ArrayTable, mayBeLeftWithOpenArrays) {
    openInts(25);
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 2);
    for (int round = 0; round < 25; ++round)
        arrayPut(index, "x");
}

template<typename Body>
void runThreads(int count, Body body) {
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back([body, number] { body(number); });
    for (std::thread &thread : threads)
        thread.join();
}

ISOLATED(ArrayThreads, racingFirstOpensShareOneTable) {
    std::atomic<int> ready{0};
    std::atomic<uint32_t> sum{0};
    runThreads(4, [&](int) {
        for (++ready; ready < 4;) {
        }
        sum += arrayOpen(INLINE_ARRAY, 4);
    });
    EXPECT_EQ(sum, 1U + 2U + 3U + 4U);
    EXPECT_EQ(entry(0).count, 5U);
}

ISOLATED(ArrayThreads, eachHasItsArraysToItselfWhileTheTableGrows) {
    std::atomic<int> wrong{0};
    runThreads(4, [&](int number) {
        std::vector<uint32_t> mine;
        for (int round = 0; round < 200; ++round) {
            const uint32_t index = arrayOpen(INLINE_ARRAY, INTS);
            const int value = number * 1000 + round;
            for (int put = 0; put < 12; ++put)
                putInt(index, value);
            mine.push_back(index);
            if (round % 3 == 0) {
                arrayClose(mine.front());
                mine.erase(mine.begin());
            }
        }
        for (const uint32_t index : mine) {
            ArrayDescriptor *descriptor = arrayCkDescriptor(index);
            if (descriptor == nullptr || descriptor->count != 12 ||
                intAt(index, 0) / 1000 != number || intAt(index, 0) != intAt(index, 11))
                ++wrong;
            if (descriptor != nullptr)
                pthread_mutex_unlock(&arrAccessLock);
            arrayClose(index);
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(entry(0).count, 1U);
    EXPECT_EQ(freeList().size(), entry(0).capacity - 1);
}

ISOLATED(ArrayThreads, auditsDoNotHandADescriptorOutTwice) {
    std::atomic<int> running{3}, wrong{0};
    std::thread auditor([&] {
        while (running > 0)
            arrayAudit();
    });
    runThreads(3, [&](int number) {
        for (int round = 0; round < 1000; ++round) {
            if (round % 10 == 0)
                arrayOpen(2, 1);
            const uint32_t index = arrayOpen(INLINE_ARRAY, INTS);
            putInt(index, number);
            ArrayDescriptor *descriptor = arrayCkDescriptor(index);
            if (descriptor == nullptr || descriptor->count != 1 || intAt(index, 0) != number)
                ++wrong;
            if (descriptor != nullptr)
                pthread_mutex_unlock(&arrAccessLock);
            if (arrayClose(index) != 0)
                ++wrong;
        }
        --running;
    });
    auditor.join();
    EXPECT_EQ(wrong, 0);
    arrayAudit();
    EXPECT_EQ(entry(0).count, 1U);
}

ISOLATED(ArrayThreads, putsIntoOneArrayAllArrive) {
    const uint32_t index = openInts(0);
    runThreads(4, [&](int number) {
        for (int round = 0; round < 1000; ++round)
            putInt(index, number);
    });
    EXPECT_EQ(entry(index).count, 4000U);
    int sum = 0;
    for (uint32_t place = 0; place < 4000; ++place)
        sum += intAt(index, place);
    EXPECT_EQ(sum, 6000);
}

ISOLATED(ArrayThreads, openAndGrowthDoNotWaitForTheAccessLock) {
    const uint32_t index = openInts(1);
    ArrayDescriptor *held = arrayCkDescriptor(index);
    std::thread([] {
        for (uint32_t opened = 2; opened < 300; ++opened)
            EXPECT_EQ(arrayOpen(INLINE_ARRAY, 1), opened);
    }).join();
    EXPECT_EQ(held, arrDescPtr + index);
    EXPECT_EQ(held->count, 1U);
    EXPECT_NE(expandArray(held, 1), nullptr);
    pthread_mutex_unlock(&arrAccessLock);
}

// One thread opens while it holds the access lock, the other's open has to audit: neither may wait
// for what the other holds.
ISOLATED(ArrayThreads, openUnderTheAccessLockDoesNotBlockAnAuditingOpen) {
    arrayInit(4);
    const uint32_t index = openInts(1);
    std::atomic<bool> done{false};
    std::thread auditing([&] {
        for (int round = 0; round < 300; ++round) {
            arrayOpen(2, 1);
            arrayClose(arrayOpen(INLINE_ARRAY, 1));
        }
        done = true;
    });
    while (!done) {
        ArrayDescriptor *held = arrayCkDescriptor(index);
        arrayOpen(2, 1);
        arrayClose(arrayOpen(INLINE_ARRAY, 1));
        EXPECT_EQ(held->count, 1U);
        pthread_mutex_unlock(&arrAccessLock);
        arrayAudit();
    }
    auditing.join();
}

ISOLATED(ArrayPut, arraysThatAreNotOpenOrOfTheOtherKindAreRefused) {
    const int value = 5;
    EXPECT_EQ(arrayPut(7, &value), nullptr);
    EXPECT_EQ(arrayVPut(7, &value, INTS), nullptr);
    const uint32_t ownSizes = arrayOpen(INDIRECT_ARRAY, 0);
    const uint32_t oneSize = arrayOpen(INDIRECT_ARRAY, INTS);
    const uint32_t inLine = arrayOpen(INLINE_ARRAY, INTS);
    EXPECT_EQ(arrayPut(ownSizes, &value), nullptr);
    EXPECT_EQ(arrayVPut(ownSizes, &value, 0), nullptr);
    EXPECT_EQ(arrayVPut(oneSize, &value, INTS), nullptr);
    EXPECT_EQ(arrayVPut(inLine, &value, INTS), nullptr);
    for (const uint32_t index : {ownSizes, oneSize, inLine})
        EXPECT_EQ(entry(index).count, 0U);
}

ISOLATED(ArrayDamage, putsAndGrowthAreRefusedByRecordsThatCannotBe) {
    const int value = 5;
    const uint32_t array = arrayOpen(INLINE_ARRAY, INTS);
    arrDescPtr[array].elemSize = 0;
    EXPECT_EQ(arrayVPut(array, &value, INTS), nullptr) << "no list of texts";
    EXPECT_EQ(expandArray(&arrDescPtr[array], 1), nullptr) << "elements of no size";
    arrDescPtr[array].elemSize = INTS;
    arrDescPtr[array].count = UINT32_MAX;
    EXPECT_EQ(arrayPut(array, &value), nullptr) << "more slots than an array can grow by";
    arrDescPtr[array].count = 0;
    arrDescPtr[array].capacity = UINT32_MAX;
    EXPECT_EQ(expandArray(&arrDescPtr[array], 1), nullptr) << "more slots than 32 bits count";
    arrDescPtr[array].capacity = 0;
    EXPECT_EQ(entry(array).storage, nullptr);
    EXPECT_NE(arrayPut(array, &value), nullptr);
    EXPECT_EQ(intAt(array, 0), 5);
}

#ifndef __SANITIZE_ADDRESS__ // whose own check finds them, and which counts no memory
ISOLATED(ArrayClose, releasesWhatItsUserPutIntoExpandedSlots) {
    const uint32_t index = arrayOpen(INDIRECT_ARRAY, 0);
    ASSERT_NE(expandArray(arrDescPtr + index, 5), nullptr);
    const size_t before = mallinfo2().uordblks;
    for (uint32_t place = 0; place < 10; ++place)
        static_cast<void **>(entry(index).storage)[place] = malloc(5000);
    EXPECT_EQ(entry(index).count, 0U);
    EXPECT_GT(mallinfo2().uordblks, before + 49000);
    EXPECT_EQ(arrayClose(index), 0);
    EXPECT_LT(mallinfo2().uordblks, before + 5000);
}
#endif

} // namespace
