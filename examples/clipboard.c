/* A counter that processes share, in a clipboard. */
#include <quarnel/clipboard/clipboard.h>

#include <stdio.h>
#include <stdlib.h>

/* shown in clipboard(3) */
/* Counts one more call. Returns how many there are now, or -1. */
static int countCall(const char *path) {
    Clipboard *clipboard = modifyClipboard(path); /* may wait */
    const char *value;
    char text[16];
    int calls;

    if (getClipboard(clipboard) == 0) {
        perror(path);
        return -1;
    }
    value = findClipEntryValue(clipboard, "calls");
    calls = (value == NULL ? 0 : atoi(value)) + 1;
    snprintf(text, sizeof text, "%d", calls);
    addClipEntry(clipboard, NULL, "calls", text, NULL);
    addClipEntry(clipboard, "# who counted last\n", "last",
                 "line 1; \"north\"", NULL);
    return closeClipboard(clipboard) < 1 ? -1 : calls;
}
/* end */

int main(void) {
    FILE *file;
    int ch;

    printf("%d\n", countCall("counter"));
    printf("%d\n", countCall("counter"));
    file = fopen("counter", "r");
    while (file != NULL && (ch = fgetc(file)) != EOF)
        putchar(ch);
    if (file != NULL)
        fclose(file);
    return removeClipboard("counter") == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
