/* Room in a CharBuffer for what is written into it directly. Internal. */
#ifndef QUARNEL_BUFFERS_CHARBUFFERROOM_H
#define QUARNEL_BUFFERS_CHARBUFFERROOM_H

#include <stdint.h>

#include "charBuffer.h"

/* Makes room behind the content for so many bytes, in one growth to the size that growing by single
   increments would reach. False, the buffer as it was, when memory is exhausted. */
bool reserveCharBuffer(CharBuffer *buffer, uint64_t bytes);

#endif
