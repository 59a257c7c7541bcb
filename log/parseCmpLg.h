/* A record taken apart for the library's own eyes. Internal, C++ only; safe from any thread, not
   from a signal handler. */
#ifndef QUARNEL_LOG_PARSECMPLG_H
#define QUARNEL_LOG_PARSECMPLG_H

#include "logMsg.h"

#ifdef __cplusplus

/* As parseCmpLogEnhanced without an expansion, but all texts and the arguments lie in the block of
   the LogMsg itself: an expansion makes and drops one for each record. To be read, not changed, and
   released with free. */
LogMsg *parseIntoOneBlock(const char *text, uint32_t flags);

#endif

#endif
