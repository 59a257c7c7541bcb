/* Written by qncatalog: change the catalogue's source instead. */
/* The first number of each class, and the end of the numbering. */
#ifndef QN_SYSTEM_LOG_H
#define QN_SYSTEM_LOG_H

#define _NETMSG_START 100
#define _OSERRMSG_START 1728
#define __MAX_LOGMSG 1861

#endif
