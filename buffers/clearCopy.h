#ifndef QUARNEL_BUFFERS_CLEARCOPY_H
#define QUARNEL_BUFFERS_CLEARCOPY_H

#include <stdint.h>
#include "charBuffer.h"
#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    CLEAR_ESCAPE,
    CLEAR_DOT,
    CLEAR_BLANK,
    CLEAR_OCTAL,
    CLEAR_HEX,
    CLEAR_CARET,
    CLEAR_LOWER,
    CLEAR_UPPER,
    CLEAR_MODE_MASK = 0x0F,
    CLEAR_WHITE = 0x10,
    CLEAR_BACKSPACE = 0x20,
    CLEAR_KEEP_BS = 0x40,
    CLEAR_KEEP_WHITE = 0x80,
    CLEAR_SPACE = 0x400,
    CLEAR_TAB = 0x800
};
QN_API char *clearCopyBinaryCharBuffer(CharBuffer *buffer, const char *source, uint32_t length,
                                       int32_t flags);
QN_API char *clearCopyCharBuffer(CharBuffer *buffer, const char *text, int32_t flags);
QN_API char *clearCopyBinary(const char *source, uint32_t length, int32_t flags);
QN_API char *clearCopy(const char *text, int32_t flags);

#ifdef __cplusplus
}
#endif

#endif
