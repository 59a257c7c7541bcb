#include "log.h"

// A unit of its own: the log client sets it, and so does the reader of the text format file where
// no client was initialised.
char *logRoot;
