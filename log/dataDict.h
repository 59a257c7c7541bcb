/* The files of the field catalogue, and which ones are read.

   "ddMapLog", the index: records of 8 bytes, integers big-endian.

       offset 0, 2 bytes   not used by the library
       offset 2, 2 bytes   not used by the library
       offset 4, 4 bytes   unsigned value

   Record 0 is the header: its value is the index's size in bytes, so the messages are a record
   fewer than it holds. Record n + 1 belongs to message n: its value is the byte offset of the
   message's line in the dictionary.

   "dataDictLog", the dictionary: a line of text for each message.

       the message number in decimal
       one separator, whatever it is; 0x1C in practice
       the fields: name, or name,T or name,T,N or name,T,N,M
           each ended by 0x1C; T one character, N and M numbers, 0x hexadecimal, leading 0 octal
       0x1D, which ends the fields; the rest of the line is not read

   A field is what 0x1C ends, or a non-empty text that 0x1D ends. Example, the separators shown as |
   and the end as #: message 7 with a field host of type S and one port of type D,

       7|host,S,0,16|port,D|#

   The functions share the state of logFields.h: one thread at a time, and no signal handler. */
#ifndef QUARNEL_LOG_DATADICT_H
#define QUARNEL_LOG_DATADICT_H

#include "../core/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The index */
#define DD_MAP_FILE "ddMapLog"
#define DD_MAP_RECORD_SIZE 8
#define DD_MAP_VALUE_OFFSET 4

/* The dictionary */
#define DATA_DICT_FILE "dataDictLog"
#define DATA_DICT_FIELD_END '\x1C'
#define DATA_DICT_LIST_END '\x1D'
#define DATA_DICT_PART ','         /* between the parts of a field */
#define DATA_DICT_DEFAULT_TYPE 'S' /* of a field that gives none */

/* Sets the path of the index (or of the dictionary) for the next time the catalogue is opened; null
   leaves it unset, which is then the file of the usual name in the log root. Returns the path that
   was set before, null when none was, the library's until the next call of the same function. Where
   memory is exhausted nothing changes. */
QN_API char *setDdMapLogName(const char *name);
QN_API char *setDataDictLogName(const char *name);

/* Closes both files and releases all field lists. The paths stay: the next lookup opens the same
 * files again. */
QN_API void endDdMapLog(void);

#ifdef __cplusplus
}
#endif

#endif
