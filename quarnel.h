/* Every public header of the library at once. Its C++ only parts are empty for a C compiler. */
#ifndef QUARNEL_QUARNEL_H
#define QUARNEL_QUARNEL_H

#include "core/exactMatch.h"
#include "core/ipcComm.h"
#include "core/list.h"
#include "core/mkcopy.h"
#include "core/panic.h"
#include "core/staticObj.h"

#include "buffers/arrays.h"
#include "buffers/charBuffer.h"
#include "buffers/clearCopy.h"
#include "buffers/cntlchrs.h"
#include "buffers/fmtCharBuf.h"

#include "clock/clock.h"

#include "log/dataDict.h"
#include "log/expandLog.h"
#include "log/log.h"
#include "log/logDstPri.h"
#include "log/logFields.h"
#include "log/logMsg.h"
#include "log/logStartCl.h"
#include "log/logSyms.h"
#include "log/synLogFlds.h"
#include "log/timeDefs.h"

#include "options/options.h"
#include "options/parseln.h"
#include "options/readInfo.h"

#include "clipboard/clipboard.h"

#include "regex/match.h"
#include "regex/regularExp.h"

#include "dialer/dialer.h"

#endif
