/* The text of a record's message alone. */
#ifndef TOOLS_QNLOG_MESSAGETEXT_H
#define TOOLS_QNLOG_MESSAGETEXT_H

#include "../common/record.h"

/* The message with its arguments, whatever the layout is set to, valid until the next expansion;
   null where the catalogue has no text that fits the record. */
const char *messageText(Record &record);

#endif
