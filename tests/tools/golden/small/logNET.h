/* Written by qncatalog: change the catalogue's source instead. */
/* Messages of class NET: symbol, number, what the log call passes, text. */
#ifndef QN_LOG_NET_H
#define QN_LOG_NET_H

#include "systemLog.h"

#define logNET(n) (_NETMSG_START + (n) - 1)

#define NET_UP logNET(1) /* () Network is up */
#define NET_DOWN logNET(3) /* (const char *host, unsigned port) Host %s: port %s is down */

#endif
