#include "arrays.h"

#include "../core/panic.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>
#ifdef __has_feature // clang's way to tell
#if __has_feature(address_sanitizer)
#define LEAKS_CHECKED
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define LEAKS_CHECKED
#endif
#ifdef LEAKS_CHECKED
#include <sanitizer/lsan_interface.h>
#endif

static_assert(sizeof(void *) != 4 ||
              (offsetof(ArrayDescriptor, type) == 0 && offsetof(ArrayDescriptor, storage) == 4 &&
               offsetof(ArrayDescriptor, elemSize) == 8 && offsetof(ArrayDescriptor, count) == 12 &&
               offsetof(ArrayDescriptor, capacity) == 16 &&
               offsetof(ArrayDescriptor, increment) == 20 &&
               offsetof(ArrayDescriptor, changes) == 24 &&
               offsetof(ArrayDescriptor, nextFree) == 28 && sizeof(ArrayDescriptor) == 32));

static constexpr uint32_t INLINE_TYPE = 0;
static constexpr uint32_t INDIRECT_TYPE = 1;
static constexpr uint32_t ARRAY_INCREMENT = 10;
static constexpr uint32_t DEFAULT_TABLE_SIZE = 10;
static constexpr uint32_t QUICK_SIZE =
    sizeof(uint64_t); // elements of one to two of these are copied at once
// Address space is reserved for so many descriptors, and memory given to it as the table grows:
// growth never moves a descriptor from under a thread that uses it.
static constexpr uint32_t MAX_DESCRIPTORS = uint32_t{1} << 20;

ArrayDescriptor *arrDescPtr;
pthread_mutex_t arrAccessLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

// A thread may hold the access lock when it takes any of these, and takes no access lock while it
// holds one. Only freeListLock is ever taken while another of them, openLock, is held.
static pthread_mutex_t initLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_mutex_t openLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_mutex_t fatalLock = PTHREAD_MUTEX_INITIALIZER;
// Guards the free list, the table's count, changes and storage, and every change of a descriptor
// between free and open.
static pthread_mutex_t freeListLock = PTHREAD_MUTEX_INITIALIZER;

static ArrayFatalFunc fatalFunc; // null: the default
static uint32_t committed;       // descriptors that memory was given to

namespace {

struct Locked {
    explicit Locked(pthread_mutex_t *mutex) : mutex_(mutex) { pthread_mutex_lock(mutex_); }
    ~Locked() { pthread_mutex_unlock(mutex_); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

  private:
    pthread_mutex_t *mutex_;
};

} // namespace

static ArrayDescriptor *loadTable() {
    return __atomic_load_n(&arrDescPtr, __ATOMIC_ACQUIRE);
}

static bool isUsable(const ArrayDescriptor *table, uint32_t index) {
    return index < __atomic_load_n(&table->capacity, __ATOMIC_ACQUIRE) &&
           index < __atomic_load_n(&committed, __ATOMIC_ACQUIRE);
}

// Descriptors that exist, whatever a damaged table says.
static uint32_t usableCapacity(const ArrayDescriptor *table) {
    const uint32_t capacity = __atomic_load_n(&table->capacity, __ATOMIC_ACQUIRE);
    const uint32_t limit = __atomic_load_n(&committed, __ATOMIC_ACQUIRE);
    return capacity < limit ? capacity : limit;
}

static bool isOpen(const ArrayDescriptor *descriptor) {
    return __atomic_load_n(&descriptor->increment, __ATOMIC_ACQUIRE) != 0;
}

// arrayCkDescriptor itself, which is called through an address.
static inline ArrayDescriptor *lockOpen(uint32_t index) {
    ArrayDescriptor *table = loadTable();
    if (table == nullptr)
        return nullptr;
    pthread_mutex_lock(&arrAccessLock);
    if (index != 0 && isUsable(table, index) && isOpen(table + index)) [[likely]]
        return table + index;
    pthread_mutex_unlock(&arrAccessLock);
    return nullptr;
}

namespace {

// The descriptor of an open array, or null, and the access lock while it is in use.
struct OpenArray {
    explicit OpenArray(uint32_t index) : descriptor(lockOpen(index)) {}
    ~OpenArray() {
        if (descriptor != nullptr)
            pthread_mutex_unlock(&arrAccessLock);
    }
    OpenArray(const OpenArray &) = delete;
    OpenArray &operator=(const OpenArray &) = delete;

    ArrayDescriptor *const descriptor;
};

} // namespace

// Gives memory to the first so many descriptors, in whole pages.
static bool commit(ArrayDescriptor *table, uint64_t capacity) {
    if (capacity > MAX_DESCRIPTORS)
        return false;
    if (capacity <= committed)
        return true;
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t bytes =
        (static_cast<size_t>(capacity) * sizeof(ArrayDescriptor) + page - 1) / page * page;
    if (mprotect(table, bytes, PROT_READ | PROT_WRITE) != 0)
        return false;
    __atomic_store_n(&committed, static_cast<uint32_t>(bytes / sizeof(ArrayDescriptor)),
                     __ATOMIC_RELEASE);
    return true;
}

static ArrayDescriptor *makeTable(uint32_t count) {
    constexpr size_t bytes = MAX_DESCRIPTORS * sizeof(ArrayDescriptor);
    void *space =
        mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (space == MAP_FAILED)
        return nullptr;
    ArrayDescriptor *table = static_cast<ArrayDescriptor *>(space);
    if (!commit(table, count)) {
        munmap(space, bytes);
        return nullptr;
    }
#ifdef LEAKS_CHECKED
    // The leak check looks for pointers to blocks in the heap and in globals only.
    __lsan_register_root_region(space, bytes);
#endif
    return table;
}

// Chains the descriptors from first to last - 1, in ascending order, in front of the free list.
static void chainFree(ArrayDescriptor *table, uint32_t first, uint32_t last) {
    if (first >= last)
        return;
    for (uint32_t index = first; index < last - 1; ++index)
        table[index].nextFree = index + 1;
    table[last - 1].nextFree = table->nextFree;
    table->nextFree = first;
}

ArrayDescriptor *arrayInit(uint32_t count) {
    const Locked lock(&initLock);
    if (arrDescPtr != nullptr)
        return arrDescPtr;
    ArrayDescriptor *table = count == 0 ? nullptr : makeTable(count);
    if (table == nullptr)
        return nullptr;
    *table = {INLINE_TYPE, table, sizeof(ArrayDescriptor), 1, count, count, 0, 0};
    chainFree(table, 1, count);
    __atomic_store_n(&arrDescPtr, table, __ATOMIC_RELEASE);
    return table;
}

static bool growTable(ArrayDescriptor *table) {
    const uint32_t capacity = usableCapacity(table);
    const uint64_t grown = uint64_t{capacity} + table->increment;
    // A damaged table may have no increment.
    if (grown == capacity || !commit(table, grown))
        return false;
    const Locked lock(&freeListLock);
    table->storage = table; // it did not move, but a damaged entry is mended here
    memset(table + capacity, 0, table->increment * sizeof(ArrayDescriptor));
    chainFree(table, capacity, static_cast<uint32_t>(grown));
    __atomic_store_n(&table->capacity, static_cast<uint32_t>(grown), __ATOMIC_RELEASE);
    return true;
}

// Whether the head of the free list can be taken: not so at the list's end, and in a damaged list.
static bool hasFree(const ArrayDescriptor *table) {
    const uint32_t head = table->nextFree;
    return head != 0 && head < usableCapacity(table) && !isOpen(table + head);
}

// Takes the head of the free list and opens it as told; 0 when the list is empty or the type is
// refused.
static uint32_t takeFree(ArrayDescriptor *table, uint32_t type, uint32_t elemSize) {
    const uint32_t index = table->nextFree;
    ArrayDescriptor *descriptor = table + index;
    table->nextFree = descriptor->nextFree;
    descriptor->nextFree = 0;
    ++table->count;
    // Only now. Kept: callers rely on a refused type taking a descriptor until the next audit.
    if (type > INDIRECT_TYPE)
        return 0;
    descriptor->type = type;
    descriptor->elemSize = elemSize;
    descriptor->count = descriptor->capacity = descriptor->changes = 0;
    // Last: it makes the descriptor visible to arrayCkDescriptor.
    __atomic_store_n(&descriptor->increment, ARRAY_INCREMENT, __ATOMIC_RELEASE);
    return index;
}

namespace {
enum class Opening { DONE, LIST_EMPTY, COUNT_WRONG };
}

static Opening tryOpen(ArrayDescriptor *table, uint32_t type, uint32_t elemSize, uint32_t *index) {
    const Locked lock(&freeListLock);
    if (!hasFree(table))
        return table->count == table->capacity ? Opening::LIST_EMPTY : Opening::COUNT_WRONG;
    *index = takeFree(table, type, elemSize);
    return Opening::DONE;
}

static Opening openGrowing(ArrayDescriptor *table, uint32_t type, uint32_t elemSize, bool audited,
                           uint32_t *index) {
    const Locked lock(&openLock);
    const Opening opening = tryOpen(table, type, elemSize, index);
    if (opening == Opening::DONE || (opening == Opening::COUNT_WRONG && !audited))
        return opening;
    return growTable(table) ? tryOpen(table, type, elemSize, index) : opening;
}

uint32_t arrayOpen(uint32_t type, uint32_t elemSize) {
    if (type == INLINE_TYPE && elemSize == 0)
        return 0;
    ArrayDescriptor *table = loadTable();
    if (table == nullptr)
        table = arrayInit(DEFAULT_TABLE_SIZE);
    if (table == nullptr)
        return 0;
    uint32_t index = 0;
    if (openGrowing(table, type, elemSize, false, &index) == Opening::COUNT_WRONG) {
        // Outside openLock: a thread that holds the access lock may wait for that one.
        arrayAudit();
        openGrowing(table, type, elemSize, true, &index);
    }
    return index;
}

ArrayDescriptor *arrayCkDescriptor(uint32_t index) {
    return lockOpen(index);
}

ArrayDescriptor *arrayValidDescriptor(uint32_t index) {
    const OpenArray array(index);
    return array.descriptor;
}

// Whether the pointer is that of an open array's descriptor; entry 0 is none.
static bool isArrayDescriptor(const ArrayDescriptor *descriptor) {
    const ArrayDescriptor *table = loadTable();
    if (table == nullptr || descriptor <= table)
        return false;
    const uintptr_t distance =
        reinterpret_cast<uintptr_t>(descriptor) - reinterpret_cast<uintptr_t>(table);
    return distance % sizeof(ArrayDescriptor) == 0 &&
           distance / sizeof(ArrayDescriptor) < usableCapacity(table) && isOpen(descriptor);
}

static uint32_t slotSize(const ArrayDescriptor *descriptor) {
    return descriptor->type == INDIRECT_TYPE ? sizeof(void *) : descriptor->elemSize;
}

void *expandArray(ArrayDescriptor *descriptor, int32_t slots) {
    const Locked lock(&arrAccessLock);
    if (slots <= 0 || !isArrayDescriptor(descriptor))
        return nullptr;
    const uint64_t increment = descriptor->increment;
    const uint64_t grow = (static_cast<uint64_t>(slots) + increment - 1) / increment * increment;
    const uint64_t capacity = descriptor->capacity + grow;
    const uint64_t size = slotSize(descriptor);
    if (capacity > UINT32_MAX || size == 0 || capacity > PTRDIFF_MAX / size)
        return nullptr;
    char *storage =
        static_cast<char *>(realloc(descriptor->storage, static_cast<size_t>(capacity * size)));
    if (storage == nullptr)
        return nullptr;
    memset(storage + descriptor->capacity * size, 0, static_cast<size_t>(grow * size));
    descriptor->storage = storage;
    descriptor->capacity = static_cast<uint32_t>(capacity);
    return storage;
}

// Makes room for the element to be put and its followers' slots. A source inside the storage is
// followed to where the growth moves it.
static bool makeRoom(ArrayDescriptor *descriptor, uint32_t followers, const void **source) {
    const uint64_t needed = uint64_t{descriptor->count} + followers + 1;
    if (needed <= descriptor->capacity)
        return true;
    // More than one slot may be missing: an increment of 1 leaves no room for the end mark.
    const uint64_t missing = needed - descriptor->capacity;
    if (missing > INT32_MAX)
        return false;
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(*source) - reinterpret_cast<uintptr_t>(descriptor->storage);
    const uint64_t size = uint64_t{descriptor->capacity} * slotSize(descriptor);
    const char *storage =
        static_cast<const char *>(expandArray(descriptor, static_cast<int32_t>(missing)));
    if (storage == nullptr)
        return false;
    if (*source != nullptr && offset < size)
        *source = storage + offset;
    return true;
}

static void *countPut(ArrayDescriptor *descriptor, void *element) {
    ++descriptor->count;
    ++descriptor->changes;
    return element;
}

static void *putInline(ArrayDescriptor *descriptor, const void *source) {
    if (!makeRoom(descriptor, 0, &source))
        return nullptr;
    const size_t size = descriptor->elemSize;
    char *element = static_cast<char *>(descriptor->storage) + descriptor->count * size;
    if (source == nullptr)
        memset(element, 0, size);
    else
        memmove(element, source, size);
    return countPut(descriptor, element);
}

static void *putIndirect(ArrayDescriptor *descriptor, const void *source, uint32_t size) {
    if (!makeRoom(descriptor, 1, &source))
        return nullptr;
    void **slot = static_cast<void **>(descriptor->storage) + descriptor->count;
    void *element = calloc(1, size);
    if (element != nullptr && source != nullptr)
        memcpy(element, source, size);
    slot[0] = element;
    slot[1] = nullptr;
    return element == nullptr ? nullptr : countPut(descriptor, element);
}

// Whether the element is a small one of an inline array that has room for it.
static inline bool isQuick(const ArrayDescriptor *descriptor) {
    return descriptor->elemSize - QUICK_SIZE <= QUICK_SIZE && descriptor->type == INLINE_TYPE &&
           descriptor->count < descriptor->capacity;
}

// What putInline does with such an element, in a few instructions: all of it is read before any is
// written, since the two may overlap.
static inline void *putQuick(ArrayDescriptor *descriptor, const void *source) {
    const size_t size = descriptor->elemSize;
    char *element = static_cast<char *>(descriptor->storage) + descriptor->count * size;
    uint64_t first, last;
    memcpy(&first, source, QUICK_SIZE);
    memcpy(&last, static_cast<const char *>(source) + size - QUICK_SIZE, QUICK_SIZE);
    memcpy(element, &first, QUICK_SIZE);
    memcpy(element + size - QUICK_SIZE, &last, QUICK_SIZE);
    return countPut(descriptor, element);
}

// As arrayPut, of an open array.
[[gnu::noinline]] static void *putAny(ArrayDescriptor *descriptor, const void *source) {
    if (descriptor->elemSize == 0)
        return nullptr;
    return descriptor->type == INDIRECT_TYPE ? putIndirect(descriptor, source, descriptor->elemSize)
                                             : putInline(descriptor, source);
}

void *arrayPut(uint32_t index, const void *source) {
    const OpenArray array(index);
    if (array.descriptor == nullptr)
        return nullptr;
    return source != nullptr && isQuick(array.descriptor) ? putQuick(array.descriptor, source)
                                                          : putAny(array.descriptor, source);
}

void *arrayVPut(uint32_t index, const void *source, uint32_t size) {
    const OpenArray array(index);
    ArrayDescriptor *descriptor = array.descriptor;
    if (descriptor == nullptr || size == 0 || descriptor->elemSize != 0 ||
        descriptor->type != INDIRECT_TYPE)
        return nullptr;
    return putIndirect(descriptor, source, size);
}

static bool deleteIndirect(ArrayDescriptor *descriptor, void *element) {
    void **slots = static_cast<void **>(descriptor->storage);
    uint32_t place = 0;
    while (place < descriptor->count && slots[place] != element)
        ++place;
    if (place >= descriptor->count)
        return false;
    free(element);
    memmove(slots + place, slots + place + 1, (descriptor->count - place - 1) * sizeof(void *));
    slots[descriptor->count - 1] = nullptr;
    return true;
}

static bool deleteInline(ArrayDescriptor *descriptor, void *element) {
    char *storage = static_cast<char *>(descriptor->storage);
    const size_t size = descriptor->elemSize;
    const size_t used = descriptor->count * size;
    const uintptr_t offset =
        reinterpret_cast<uintptr_t>(element) - reinterpret_cast<uintptr_t>(storage);
    if (offset >= used || offset % size != 0)
        return false;
    memmove(storage + offset, storage + offset + size, used - offset - size);
    memset(storage + used - size, 0, size);
    return true;
}

int32_t arrayDel(uint32_t index, void *element) {
    const OpenArray array(index);
    ArrayDescriptor *descriptor = array.descriptor;
    if (descriptor == nullptr || descriptor->storage == nullptr)
        return -1;
    if (!(descriptor->type == INDIRECT_TYPE ? deleteIndirect : deleteInline)(descriptor, element))
        return -1;
    ++descriptor->changes;
    --descriptor->count;
    return 0;
}

// Every slot, not only those in use: an expanded vector may have been filled by its user.
static void freeElements(const ArrayDescriptor *descriptor) {
    void **slots = static_cast<void **>(descriptor->storage);
    for (uint32_t place = 0; place < descriptor->capacity; ++place) {
        free(slots[place]);
        slots[place] = nullptr;
    }
}

static void pushFree(ArrayDescriptor *table, ArrayDescriptor *descriptor) {
    *descriptor = {};
    descriptor->nextFree = table->nextFree;
    table->nextFree = static_cast<uint32_t>(descriptor - table);
}

static void releaseDescriptor(ArrayDescriptor *descriptor) {
    ArrayDescriptor *table = loadTable();
    const Locked lock(&freeListLock);
    pushFree(table, descriptor);
    --table->count;
    ++table->changes;
}

int32_t arrayClose(uint32_t index) {
    const OpenArray array(index);
    if (array.descriptor == nullptr)
        return -1;
    if (array.descriptor->storage != nullptr) {
        if (array.descriptor->type == INDIRECT_TYPE)
            freeElements(array.descriptor);
        free(array.descriptor->storage);
    }
    releaseDescriptor(array.descriptor);
    return 0;
}

void *arrayDone(uint32_t index) {
    const OpenArray array(index);
    if (array.descriptor == nullptr)
        return nullptr;
    void *storage = array.descriptor->storage;
    releaseDescriptor(array.descriptor);
    return storage;
}

ArrayFatalFunc arraySetFatalFunc(ArrayFatalFunc function) {
    const Locked lock(&fatalLock);
    const ArrayFatalFunc previous = fatalFunc;
    fatalFunc = function;
    return previous;
}

static void tellFatal(const char *message) {
    pthread_mutex_lock(&fatalLock);
    const ArrayFatalFunc function = fatalFunc;
    pthread_mutex_unlock(&fatalLock);
    if (function == nullptr)
        panic(message);
    function(message);
}

static ArrayDescriptor copyEntry0(const ArrayDescriptor *table) {
    const Locked lock(&freeListLock);
    return *table;
}

// Each check looks anew: the function told of a damage may have mended it.
static void checkTable(const ArrayDescriptor *table) {
    ArrayDescriptor entry = copyEntry0(table);
    if (entry.storage != table)
        tellFatal("Dynamic Arrays Base Address Wrong\n");
    entry = copyEntry0(table);
    if (entry.capacity == 0 || entry.increment == 0)
        tellFatal("Dynamic Arrays Size or Increment 0\n");
    entry = copyEntry0(table);
    if (entry.capacity < entry.count)
        tellFatal("Dynamic Arrays descriptor array < # of active arrays\n");
}

static void rebuildTable(ArrayDescriptor *table) {
    table->type = INLINE_TYPE;
    table->elemSize = sizeof(ArrayDescriptor);
    table->count = 1;
    if (table->capacity == 0)
        __atomic_store_n(&table->capacity, DEFAULT_TABLE_SIZE, __ATOMIC_RELEASE);
    table->changes = 0;
    table->nextFree = 0;
    const uint32_t capacity = usableCapacity(table);
    for (uint32_t index = 1; index < capacity; ++index)
        if (isOpen(table + index))
            ++table->count;
        else
            pushFree(table, table + index);
}

void arrayAudit() {
    ArrayDescriptor *table = loadTable();
    if (table == nullptr)
        return;
    const Locked access(&arrAccessLock);
    checkTable(table);
    const Locked lock(&freeListLock);
    rebuildTable(table);
}
