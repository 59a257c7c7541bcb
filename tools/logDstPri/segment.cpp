#include "segment.h"

#include "../common/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/shm.h>

// The alignment makes it one load or store on i386 too.
typedef uint64_t RowWord __attribute__((aligned(8)));
static_assert(sizeof(RowWord) == sizeof(LogDstPri));

static uint64_t wordOf(const LogDstPri &row) {
    uint64_t word;
    memcpy(&word, &row, sizeof word);
    return word;
}

static RowWord *wordAt(LogDstPriTable *table, size_t number) {
    void *address = &table->row[number];
    return static_cast<RowWord *>(address);
}

static std::string keyText() {
    char text[40];
    snprintf(text, sizeof text, "segment 0x%08x", logDstPriShmKey());
    return text;
}

static key_t key() {
    return static_cast<key_t>(logDstPriShmKey());
}

static LogDstPriTable *attach(int id, bool forWriting) {
    void *address = shmat(id, nullptr, forWriting ? 0 : SHM_RDONLY);
    if (reinterpret_cast<intptr_t>(address) == -1)
        throw systemFailure(keyText(), errno);
    return static_cast<LogDstPriTable *>(address);
}

Segment::Segment(bool forWriting) : id_(shmget(key(), 0, 0)) {
    if (id_ == -1) {
        if (errno != ENOENT)
            throw systemFailure(keyText(), errno);
        return;
    }
    struct shmid_ds status;
    if (shmctl(id_, IPC_STAT, &status) == -1)
        throw systemFailure(keyText(), errno);
    if (status.shm_segsz < sizeof(LogDstPriTable))
        throw WorkFailed(keyText() + ": too small for a table: another program's?");
    capacity_ = (status.shm_segsz - sizeof(LogDstPriTable)) / sizeof(LogDstPri);
    table_ = attach(id_, forWriting);
}

Segment::~Segment() {
    if (table_ != nullptr)
        shmdt(table_);
}

uint64_t Segment::users() const {
    struct shmid_ds status;
    return shmctl(id_, IPC_STAT, &status) == -1 ? 0 : status.shm_nattch - 1;
}

Routing Segment::rows() const {
    Routing routing;
    const int32_t told = __atomic_load_n(&table_->rowCount, __ATOMIC_ACQUIRE);
    const size_t count = std::min(capacity_, static_cast<size_t>(std::max(told, 0)));
    for (size_t number = 0; number < count; ++number) {
        const uint64_t word = __atomic_load_n(wordAt(table_, number), __ATOMIC_RELAXED);
        LogDstPri row;
        memcpy(&row, &word, sizeof row);
        routing.push_back(row);
    }
    return routing;
}

size_t Segment::update(const Routing &routing, bool *fits) {
    *fits = routing.size() <= capacity_;
    if (!*fits)
        return 0;
    size_t changed = 0;
    for (size_t number = 0; number < routing.size(); ++number) {
        RowWord *place = wordAt(table_, number);
        const uint64_t word = wordOf(routing[number]);
        if (__atomic_load_n(place, __ATOMIC_RELAXED) == word)
            continue;
        __atomic_store_n(place, word, __ATOMIC_RELAXED);
        ++changed;
    }
    // The count last: rows beyond it are not looked at.
    __atomic_store_n(&table_->rowCount, static_cast<int32_t>(routing.size()), __ATOMIC_RELEASE);
    return changed;
}

void Segment::remove() {
    if (shmctl(id_, IPC_RMID, nullptr) == -1)
        throw systemFailure(keyText(), errno);
}

void Segment::create(const Routing &routing) {
    const size_t size = sizeof(LogDstPriTable) + routing.size() * sizeof(LogDstPri);
    const int id = shmget(key(), size, IPC_CREAT | IPC_EXCL | 0644);
    if (id == -1)
        throw systemFailure(keyText(), errno);
    LogDstPriTable *table = attach(id, true);
    for (size_t number = 0; number < routing.size(); ++number)
        table->row[number] = routing[number];
    __atomic_store_n(&table->rowCount, static_cast<int32_t>(routing.size()), __ATOMIC_RELEASE);
    shmdt(table);
}
