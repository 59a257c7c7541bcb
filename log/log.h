#ifndef QUARNEL_LOG_LOG_H
#define QUARNEL_LOG_LOG_H

#include <stdarg.h>
#include <stdint.h>
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

QN_API extern uint32_t _destination;
QN_API extern int32_t _priority;
QN_API extern char *logProcName;
QN_API extern char *logRoot;
QN_API extern uint16_t *FmtTbl;
QN_API extern char *Fmt;
QN_API extern int32_t fmtMax;
QN_API extern const char *const msgPri[]; /* five marks, then null */
QN_API int32_t getcmpLogFmt(const char *path, uint16_t **table, char **strings);
QN_API int32_t loginit(const char *name, uint32_t destination, int32_t priority, const char *root);
QN_API int32_t logInit(const char *name);
QN_API int32_t logend(void);
QN_API char *setLogProcName(const char *name);
QN_API char *getLogProcName(void);
QN_API char *vfmtEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                       int32_t line, va_list args);
QN_API char *fmtEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                      int32_t line, ...);
QN_API char *vlogEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                       int32_t line, va_list args);
QN_API char *logEvent(int32_t number, uint32_t destination, int32_t priority, const char *file,
                      int32_t line, ...);
QN_API char *vlogMsg(int32_t number, const char *file, int32_t line, va_list args);
QN_API char *logMsg(int32_t number, const char *file, int32_t line, ...);
QN_API char *logperror(uint32_t destination, int32_t priority, const char *file, int32_t line,
                       const char *format, ...);
QN_API char *logSysError(const char *file, int32_t line, const char *format, ...);
QN_API char *relogCmpMsg(char *body, uint32_t destination);
QN_API char *getCmpFmt(int32_t number);

#ifdef __cplusplus
}
#endif

#endif
