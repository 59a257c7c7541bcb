/* What the catalogue of the log root knows of messages: symbols, classes, fields and formats. */
#include <quarnel/buffers/clearCopy.h>
#include <quarnel/core/mkcopy.h>
#include <quarnel/log/dataDict.h>
#include <quarnel/log/log.h>
#include <quarnel/log/logFields.h>
#include <quarnel/log/logStartCl.h>
#include <quarnel/log/logSyms.h>
#include <stdio.h>
#include <stdlib.h>

/* shown in logSyms(3) */
static void tellSymbol(const char *told) {
    const LogSymbol *symbol = logFindSymbol(told);

    if (symbol == NULL)
        printf("%s: unknown\n", told);
    else
        printf("%s: %s, message %d, is number %d of class %s\n",
               told, symbol->name, symbol->absIndex, symbol->relIndex,
               symbol->className);
}
/* end */

/* shown in logStartCl(3) */
static void tellClasses(void) {
    for (int32_t i = 0; i < logTotalClasses(); ++i) {
        const char *name = logGetClass(i);

        printf("class %s begins at %d and has room for %d\n",
               name, logStartClass(name), logClassSize(name));
    }
}
/* end */

/* shown in logFields(3) */
static void tellFields(int32_t number) {
    const LogFieldList *list = getLogFormatFields(number);

    for (uint32_t i = 0; list != NULL && i < list->count; ++i)
        printf("field %u of message %d: %s, type %c\n",
               i, number, list->fields[i].name, list->fields[i].type);
    printf("\"seconds\" is field %d\n",
           cvtLogFieldNameToIndex(number, "seconds"));
}
/* end */

/* shown in getcmpLogFmt(3) */
static int tellFormat(const char *path, int32_t number) {
    uint16_t *table = NULL;
    char *formats = NULL;
    const int32_t count = getcmpLogFmt(path, &table, &formats);

    if (number < count) {
        char *shown = clearCopy(formats + table[number], CLEAR_HEX);

        if (shown != NULL)
            printf("format of message %d: %s\n", number, shown);
        freecopy(shown);
    }
    free(table);
    free(formats);
    return number < count;
}
/* end */

int main(void) {
    const int found = tellFormat("cmpLogFmt", 211); /* of the log root */

    tellSymbol("CALL_END");
    tellSymbol("logLINE(2)");
    tellSymbol("DB007");
    tellSymbol("CALL_LOST");
    tellClasses();
    tellFields(210);
    logFreeSymbols();
    endDdMapLog();
    return found ? EXIT_SUCCESS : EXIT_FAILURE;
}
