#ifndef QUARNEL_LOG_LOGMSG_H
#define QUARNEL_LOG_LOGMSG_H

#include <stdint.h>
#include <time.h>
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LogMsgArg {
    char *value;
    char *spare;
} LogMsgArg;
typedef struct LogMsg {
    char *record;
    char *spare1;
    int32_t index;
    char *spare2;
    char *spare3;
    int32_t priority;
    int32_t time;
    struct tm tm;
    char *producer;
    char *spare4;
    char *file;
    char *spare5;
    int32_t line;
    int32_t argCount;
    LogMsgArg *args;
    char *expansion;
    char *spare6;
} LogMsg;
#define PARSE_KEEP_TEXT 0x200
#define PARSE_KEEP_COMMENTS 0x400
QN_API int32_t typeOfCmpLog(const char *text, int32_t *indexOut, int32_t *priorityOut,
                            int32_t *timeOut, char **restOut);
QN_API LogMsg *parseCmpLogEnhanced(char *text, int wantExpansion, uint32_t flags);
QN_API LogMsg *parseCmpLog(char *text, int wantExpansion);
QN_API void freeLogMsg(LogMsg *msg);
QN_API int32_t chgPriorityLogMsg(LogMsg *msg, int32_t priority);
QN_API int32_t chgTimeLogMsg(LogMsg *msg, int32_t time);
QN_API char *chgProducerLogMsg(LogMsg *msg, const char *producer);

#ifdef __cplusplus
}
#endif

#endif
