/* Logs a call. The daemon that reads the log root's pipe writes the records to its file. */
#include <quarnel/log/log.h>

#include "logCALL.h" /* the catalogue's messages, made by qncatalog */
#include "logLINE.h"

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

/* shown in logClient(3) */
#define HERE "logging.c", __LINE__

static void logOneCall(unsigned call) {
    if (logMsg(CALL_START, HERE, call, 1, "5551234") == NULL)
        fputs("a record was lost\n", stderr);

    /* To standard error alone, whatever the shared table says. */
    logEvent(LINE_DOWN, 2, 3, HERE, 4, "no carrier");

    if (access("voice/prompts", R_OK) != 0)
        logSysError(HERE, "opening %s", "voice/prompts");

    logMsg(CALL_END, HERE, call, "answered", 42L);
}
/* end */

int main(void) {
    if (loginit("logging", 1, 0, NULL) != 0) {
        fprintf(stderr, "no log daemon answers under %s\n", logRoot);
        return EXIT_FAILURE;
    }
    logOneCall(7);
    logOneCall(8);
    logend();
    return EXIT_SUCCESS;
}
