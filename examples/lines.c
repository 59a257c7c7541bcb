/* Logical lines of a file, and their words. */
#include <quarnel/buffers/arrays.h>
#include <quarnel/options/parseln.h>
#include <quarnel/options/readInfo.h>

#include <stdio.h>
#include <stdlib.h>

/* shown in readInfo(3) */
static void readLogicalLines(FILE *stream) {
    ReadInfo saved;
    const char *line;

    resetReadLine(&saved); /* somebody may be reading another file */
    setReadLineModes(READ_DROP_NEWLINE);
    while ((line = readContLine(stream)) != NULL)
        printf("line %u of the file, %u in all: %s\n",
               inlineCnt, virtLineCnt, line);
    setReadLine(&saved);
}

static void readWholeFile(const char *path) {
    const uint32_t index = readFileIntoArray(path, 0, READ_DROP_NEWLINE);

    if (index == 0) {
        perror(path);
        return;
    }
    printf("%u lines\n", arrDescPtr[index].count);
    arrayClose(index);
}
/* end */

/* shown in parseln(3) */
static void splitLine(void) {
    char line[] = "dial \"line 1\" 555\\ 1234";
    char *words[8];
    const int32_t count = parseln(line, words, 8);

    for (int32_t i = 0; i < count; ++i)
        printf("[%s]\n", words[i]);
}
/* end */

int main(void) {
    FILE *file = fopen("lines.txt", "w+");

    if (file == NULL)
        return EXIT_FAILURE;
    fputs("one\ntwo, \\\nthree\nfour", file);
    rewind(file);
    readLogicalLines(file);
    fclose(file);
    readWholeFile("lines.txt");
    readWholeFile("no such file");
    splitLine();
    return EXIT_SUCCESS;
}
