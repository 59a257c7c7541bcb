#ifndef QUARNEL_BUFFERS_FMTCHARBUF_H
#define QUARNEL_BUFFERS_FMTCHARBUF_H

#include <stdarg.h>
#include <stdint.h>
#include "charBuffer.h"
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

QN_API int32_t vmaxFormatLength(const char *format, va_list args);
QN_API int32_t maxFormatLength(const char *format, ...);
QN_API int32_t vfmtCharBuffer(CharBuffer *buffer, const char *format, va_list args);
QN_API int32_t fmtCharBuffer(CharBuffer *buffer, const char *format, ...);
QN_API char *vfmtStr(const char *format, va_list args);
QN_API char *fmtStr(const char *format, ...);

#ifdef __cplusplus
}
#endif

#endif
