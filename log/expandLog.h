#ifndef QUARNEL_LOG_EXPANDLOG_H
#define QUARNEL_LOG_EXPANDLOG_H

#include <stdint.h>
#include "../buffers/charBuffer.h"
#include "logMsg.h"
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

QN_API char *getExpandFmt(int32_t index);
QN_API void endExpandFmt(void);
QN_API char *setExpandFmt(const char *path);
QN_API char *getExpansionFmt(void);
QN_API void chgExpansionFmt(const char *format);
QN_API int32_t getExpansionCutoff(void);
QN_API int32_t chgExpansionCutoff(int32_t column);
QN_API char *getContinuationPrefix(void);
QN_API int32_t chgContinuationPrefix(const char *prefix);
QN_API int getVisible(void);
QN_API int setVisible(int visible);
QN_API int32_t visualWidth(const char *text, int32_t start);
QN_API char *expandLogEnhanced(char *record, uint32_t flags, int32_t *indexOut);
QN_API char *expandLog(char *record);
QN_API char *postMsg(CharBuffer *buffer);
QN_API void expandCmpLog(LogMsg *msg);

#ifdef __cplusplus
}
#endif

#endif
