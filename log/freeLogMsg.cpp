#include "logMsg.h"

#include "../core/mkcopy.h"

#include <stddef.h>
#include <stdlib.h>

static_assert(sizeof(void *) != 4 || sizeof(struct tm) == 44);
static_assert(sizeof(void *) != 4 ||
              (offsetof(LogMsg, index) == 8 && offsetof(LogMsg, priority) == 20 &&
               offsetof(LogMsg, tm) == 28 && offsetof(LogMsg, producer) == 72 &&
               offsetof(LogMsg, line) == 88 && offsetof(LogMsg, args) == 96 &&
               offsetof(LogMsg, spare6) == 104 && sizeof(LogMsg) == 108));
static_assert(sizeof(LogMsgArg) == 2 * sizeof(void *));

static void freeArguments(LogMsg *msg) {
    if (msg->args == nullptr)
        return;
    for (int32_t i = 0; i < msg->argCount; ++i) {
        freecopy(msg->args[i].value);
        if (msg->args[i].spare != nullptr)
            freecopy(msg->args[i].spare);
    }
    freecopy(reinterpret_cast<char *>(msg->args));
}

void freeLogMsg(LogMsg *msg) {
    if (msg == nullptr)
        return;
    char *const texts[] = {msg->record, msg->spare1, msg->spare2, msg->spare3,    msg->producer,
                           msg->spare4, msg->file,   msg->spare5, msg->expansion, msg->spare6};
    for (char *text : texts)
        if (text != nullptr) // most of them are
            freecopy(text);
    freeArguments(msg);
    free(msg);
}
