/* Text buffers: appending, inserting, formatting, and showing control characters. */
#include <quarnel/buffers/charBuffer.h>
#include <quarnel/buffers/clearCopy.h>
#include <quarnel/buffers/fmtCharBuf.h>
#include <quarnel/core/mkcopy.h>

#include <stdio.h>
#include <stdlib.h>

/* shown in charBuffer(3) */
/* The words, a comma between them; to be released with freecopy(). */
static char *joinWords(const char *const *words) {
    CharBuffer *buffer = mkCharBuffer(64);
    int complete = buffer != NULL;

    for (; complete && *words != NULL; ++words) {
        if (buffer->next != buffer->text)
            complete = fputCharBuffer(buffer, ',') == ',';
        complete = complete && putStrCharBuffer(buffer, *words) != NULL;
    }
    if (complete)
        return detachCharBuffer(buffer);
    freeCharBuffer(buffer);
    return NULL;
}
/* end */

/* shown in fmtCharBuf(3) */
static void report(CharBuffer *out, int line, int calls, double busy) {
    fmtCharBuffer(out, "line %d: %d calls", line, calls);
    if (busy > 0.5)
        fmtCharBuffer(out, ", %s", fmtStr("%.0f%% busy", 100 * busy));
    putStrCharBuffer(out, "\n");
}
/* end */

/* shown in clearCopy(3) */
static void showEachMode(const char *text) {
    for (int32_t mode = CLEAR_ESCAPE; mode <= CLEAR_UPPER; ++mode) {
        char *shown = clearCopy(text, mode | CLEAR_WHITE | CLEAR_TAB);

        if (shown != NULL)
            printf("mode %d: %s\n", mode, shown);
        freecopy(shown);
    }
}
/* end */

int main(void) {
    const char *const words[] = {"one", "two", "three", NULL};
    char *joined = joinWords(words);
    CharBuffer *out = mkCharBuffer(0);

    if (joined == NULL || out == NULL)
        return EXIT_FAILURE;
    puts(joined);
    freecopy(joined);
    report(out, 1, 12, 0.75);
    report(out, 2, 3, 0.25);
    insertStrIntoCharBuffer(out, "report\n", 0);
    fputs(out->text, stdout);
    freeCharBuffer(out);
    showEachMode("a\tb\x01\x1B");
    return EXIT_SUCCESS;
}
