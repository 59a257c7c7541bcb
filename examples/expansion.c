/* Expands a record into text: in the format wanted, with long lines wrapped. */
#include <quarnel/log/expandLog.h>

#include <stdio.h>
#include <stdlib.h>

/* Message 205, CALL_FAILED, with its three arguments. */
#define RECORD                      \
    "205 \x1C"                      \
    "25F000000caller call.c:40\x1C" \
    "7\x1C"                         \
    "dialling\x1C"                  \
    "-11\x1D"

static void show(const char *text) {
    puts(text == NULL ? "no expansion" : text);
}

/* shown in expandLog(3) */
static void expandInSeveralWays(char *record) {
    int32_t number;

    show(expandLog(record)); /* in LOGFORMAT, or the default format */

    chgExpansionFmt("%P(%d) %T(%Y-%m-%d %R) %N %S:%L: %M");
    show(expandLog(record));

    /* synthetic fields, see synLogFlds(3) */
    chgExpansionFmt("@symbol@ @field@[step]: %M(%r=;)");
    show(expandLog(record));

    chgExpansionFmt("%M");
    chgExpansionCutoff(20);
    chgContinuationPrefix("    ");
    show(expandLogEnhanced(record, 0x100, &number));
    printf("message %d\n", number);

    record[0] = 'x'; /* no record any more */
    show(expandLog(record));
}
/* end */

int main(void) {
    char record[] = RECORD;

    expandInSeveralWays(record);
    endExpandFmt();
    return EXIT_SUCCESS;
}
