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
    CharBuffer *rulesPath; // the table's source, for whoever debugs a wrong route
};

static TableContext context;
DstPriTable dstPriTable;

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
    if (dstPriTable.table != nullptr)
        return true;
    settleRulesPath();
    *segment = shmget(static_cast<key_t>(logDstPriShmKey()), 0, 0);
    struct shmid_ds status;
    if (*segment == -1 || shmctl(*segment, IPC_STAT, &status) == -1)
        return false;
    const void *const address = shmat(*segment, nullptr, SHM_RDONLY);
    if (reinterpret_cast<intptr_t>(address) == -1)
        return false;
    dstPriTable.table = static_cast<const LogDstPriTable *>(address);
    dstPriTable.rowsHeld = rowsIn(status.shm_segsz);
    return true;
}

const LogDstPri *getLogMsgDstPri(int32_t number) {
    int32_t segment;
    if (!attachDstPri(&segment) || number < 0 || number >= dstPriRowCount())
        return nullptr;
    return &dstPriTable.table->row[number];
}
