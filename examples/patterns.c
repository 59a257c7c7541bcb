/* A compiled pattern, and what it captures. */
#include <quarnel/regex/match.h>
#include <quarnel/regex/regularExp.h>

#include <stdio.h>
#include <stdlib.h>

/* shown in regularExp(3) */
/* ([a-z]+)=([0-9]*), anywhere in the subject */
#define LETTER 4, MATCH_RANGE, 'a', 'z' /* a class: length, a range */
#define DIGIT 4, MATCH_RANGE, '0', '9'
static const char ASSIGNMENT[] = {
    MATCH_OPEN, 0,                              // group 0
    MATCH_IN_CLASS + MATCH_ONE_OR_MORE, LETTER, // longest first
    MATCH_CLOSE, 0, 0,                          // its end: record, group
    MATCH_CHARACTER, '=',                       // itself
    MATCH_OPEN, 1,                              // group 1
    MATCH_IN_CLASS + MATCH_ZERO_OR_MORE, DIGIT, // or none
    MATCH_CLOSE, 1, 1,                          // its end
    MATCH_END};

static void findAssignments(const char *subject) {
    CaptureBlock *captured;
    const char *after;

    while ((after = regularExp(ASSIGNMENT, subject, &captured))) {
        printf("%s is \"%s\", at %d\n",
               captured->group[0], captured->group[1],
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
