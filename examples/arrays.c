/* An array whose elements lie one after another, and one of texts, each with a size of its own. */
#include <quarnel/buffers/arrays.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* shown in arrays(3) */
struct Call {
    int32_t number;
    int32_t seconds;
};

static void inlineArray(void) {
    const uint32_t calls = arrayOpen(0, sizeof(struct Call));
    const ArrayDescriptor *array = &arrDescPtr[calls];

    for (int32_t number = 1; number <= 3; ++number) {
        const struct Call call = {number, 60 * number};

        if (arrayPut(calls, &call) == NULL)
            perror("arrayPut");
    }
    arrayDel(calls, array->storage); /* the first */

    const struct Call *call = array->storage;
    for (uint32_t i = 0; i < array->count; ++i)
        printf("call %d: %d seconds\n", call[i].number, call[i].seconds);
    arrayClose(calls);
}

static void arrayOfTexts(void) {
    const uint32_t words = arrayOpen(1, 0);
    const char *const source[] = {"dial", "wait", "answer"};
    char **text;

    for (size_t i = 0; i < sizeof source / sizeof source[0]; ++i)
        arrayVPut(words, source[i], (uint32_t)strlen(source[i]) + 1);
    /* A null pointer stands behind the last element. */
    for (text = arrDescPtr[words].storage; *text != NULL; ++text)
        puts(*text);
    arrayClose(words);
}
/* end */

int main(void) {
    inlineArray();
    arrayOfTexts();
    return EXIT_SUCCESS;
}
