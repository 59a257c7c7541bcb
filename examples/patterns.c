/* A compiled pattern, and what it captures. */
#include <regex/match.h>
#include <regex/regularExp.h>

#include <stdio.h>
#include <stdlib.h>

/* shown in regularExp(3) */
/* ([a-z]+)=([0-9]*), anywhere; from C a program is written down byte by byte */
static const char ASSIGNMENT[] = {
    MATCH_OPEN,
    0,
    MATCH_IN_CLASS + MATCH_ONE_OR_MORE,
    4, /* the class: this length, and one range */
    MATCH_RANGE,
    'a',
    'z',
    MATCH_CLOSE,
    0,
    0,
    MATCH_CHARACTER,
    '=',
    MATCH_OPEN,
    1,
    MATCH_IN_CLASS + MATCH_ZERO_OR_MORE,
    4,
    MATCH_RANGE,
    '0',
    '9',
    MATCH_CLOSE,
    1,
    1,
    MATCH_END,
};

static void findAssignments(const char *subject) {
    CaptureBlock *captured;
    const char *after;

    while ((after = regularExp(ASSIGNMENT, subject, &captured)) != NULL) {
        printf("%s is \"%s\", at %d\n", captured->group[0], captured->group[1],
               (int)(startPatMatch() - subject));
        free(captured);
        subject = after;
    }
}
/* end */

int main(void) {
    char name[16];
    char value[16];

    findAssignments("line=4, guard=60; trace=");
    if (regEx(ASSIGNMENT, "x=1", name, value) == NULL)
        return EXIT_FAILURE;
    printf("%s is \"%s\"\n", name, value);
    return EXIT_SUCCESS;
}
