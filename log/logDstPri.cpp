#include "logDstPri.h"

#include "../buffers/charBuffer.h"
#include "../buffers/fmtCharBuf.h"
#include "logDstTable.h"

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>

static_assert(sizeof(LogDstPri) == 8 && offsetof(LogDstPri, destination) == 4);
static_assert(sizeof(LogDstPriTable) == 16 && offsetof(LogDstPriTable, row) == 16);

static constexpr uint32_t DEFAULT_KEY = 0x4C474450; // the bytes "PDGL", least significant first
static constexpr int KEY_BYTES = 4;

struct TableContext {
    uint32_t key;
    bool keyKnown;
    const LogDstPriTable *table; // in the segment; null until attached
    int32_t rowsHeld;            // rows that the segment has room for
    CharBuffer *rulesPath;       // the table's source, for whoever debugs a wrong route
};

static TableContext context;

// False unless the text is a number from its first byte to its last.
static bool numericKey(const char *text, uint32_t *key) {
    if (*text < '0' || *text > '9')
        return false;
    const int error = errno;
    char *end;
    const unsigned long long number = strtoull(text, &end, 0);
    errno = error;
    *key = number > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(number);
    return *end == '\0';
}

static uint32_t packedKey(const char *text) {
    uint32_t key = 0;
    for (int index = 0; index < KEY_BYTES && text[index] != '\0'; ++index)
        key = key << 8 | static_cast<uint32_t>(static_cast<signed char>(text[index]));
    return key;
}

uint32_t logDstPriShmKey(void) {
    if (context.keyKnown)
        return context.key;
    const char *const text = getenv("LOGDSTPRISHMKEY");
    uint32_t key = 0;
    if (text != nullptr && !numericKey(text, &key))
        key = packedKey(text);
    context.key = key == 0 ? DEFAULT_KEY : key;
    context.keyKnown = true;
    return context.key;
}

static void settleRulesPath() {
    if (context.rulesPath != nullptr)
        return;
    context.rulesPath = mkCharBuffer(0);
    const char *const rules = getenv("LOGDSTRULES");
    const char *const root = getenv("LOGROOT");
    if (rules != nullptr && *rules != '\0')
        putStrCharBuffer(context.rulesPath, rules);
    else
        fmtCharBuffer(context.rulesPath, "%s/%s", root == nullptr ? "/usr/spool/log" : root,
                      "msgDst.rules");
}

static int32_t rowsIn(size_t segmentSize) {
    if (segmentSize < sizeof(LogDstPriTable))
        return 0;
    const size_t rows = (segmentSize - sizeof(LogDstPriTable)) / sizeof(LogDstPri);
    return rows > INT32_MAX ? INT32_MAX : static_cast<int32_t>(rows);
}

bool attachDstPri(int32_t *segment) {
    *segment = -1;
    if (context.table != nullptr)
        return true;
    settleRulesPath();
    *segment = shmget(static_cast<key_t>(logDstPriShmKey()), 0, 0);
    struct shmid_ds status;
    if (*segment == -1 || shmctl(*segment, IPC_STAT, &status) == -1)
        return false;
    const void *const address = shmat(*segment, nullptr, SHM_RDONLY);
    if (reinterpret_cast<intptr_t>(address) == -1)
        return false;
    context.table = static_cast<const LogDstPriTable *>(address);
    context.rowsHeld = rowsIn(status.shm_segsz);
    return true;
}

int32_t dstPriRowCount(void) {
    if (context.table == nullptr)
        return 0;
    const int32_t told = __atomic_load_n(&context.table->rowCount, __ATOMIC_RELAXED);
    return told < context.rowsHeld ? told : context.rowsHeld;
}

bool readDstPri(int32_t number, LogDstPri *row) {
    if (number < 0 || number >= context.rowsHeld)
        return false;
    // The alignment makes it one load on i386 too, without the help of a library.
    typedef uint64_t RowWord __attribute__((aligned(8)));
    static_assert(sizeof(RowWord) == sizeof(LogDstPri));
    const void *const address = &context.table->row[number];
    const uint64_t word = __atomic_load_n(static_cast<const RowWord *>(address), __ATOMIC_RELAXED);
    memcpy(row, &word, sizeof *row);
    return true;
}

const LogDstPri *getLogMsgDstPri(int32_t number) {
    int32_t segment;
    if (!attachDstPri(&segment) || number < 0 || number >= dstPriRowCount())
        return nullptr;
    return &context.table->row[number];
}
