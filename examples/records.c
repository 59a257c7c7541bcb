/* Takes records apart, changes one, and fills a template from it. */
#include <quarnel/log/logMsg.h>
#include <quarnel/log/synLogFlds.h>

#include <stdio.h>
#include <stdlib.h>

#define CALL_FAILED                 \
    "205 \x1C"                      \
    "25F000000caller call.c:40\x1C" \
    "7\x1C"                         \
    "waiting for dial tone\x1C"     \
    "-11\x1D"

/* shown in parseCmpLog(3) */
static void tellRecord(char *line) {
    LogMsg *msg = parseCmpLogEnhanced(
        line, 0, PARSE_KEEP_TEXT | PARSE_KEEP_COMMENTS);

    if (msg == NULL)
        return;
    if (msg->index < 0) {
        printf("%s: %s\n", msg->index == -2 ? "comment" : "text", line);
    } else {
        printf("message %d of %s, %s:%d\n",
               msg->index, msg->producer, msg->file, msg->line);
        for (int32_t i = 0; i < msg->argCount; ++i)
            printf("  argument %d: %s\n", i, msg->args[i].value);
    }
    freeLogMsg(msg);
}
/* end */

/* shown in chgLogMsg(3) */
static void raisePriority(LogMsg *msg) {
    if (msg->priority < 4) {
        const int32_t before = chgPriorityLogMsg(msg, msg->priority + 1);

        printf("priority was %d, is %d\n", before, msg->priority);
    }
    printf("producer was %s", chgProducerLogMsg(msg, "replay"));
    printf(", is %s\n", msg->producer);
}
/* end */

/* shown in synLogFlds(3) */
static void fill(const char *text, LogMsg *msg) {
    CharBuffer *out = mkCharBuffer(0);
    char *error;

    if (vfySynFields(msg->index, text, &error, 1))
        printf("%s\n", translateSynFields(out, text, msg, "k 1"));
    else
        printf("refused: %s\n", error);
    freeCharBuffer(out);
}
/* end */

int main(void) {
    char lines[][80] = {CALL_FAILED, "# restarted", "free text"};
    LogMsg *msg = parseCmpLog(lines[0], 0);

    for (int i = 0; i < 3; ++i)
        tellRecord(lines[i]);
    if (msg == NULL)
        return EXIT_FAILURE;
    raisePriority(msg);
    fill("@symbol@ by @program@: @field@[step] @field@[2] (@key@)", msg);
    fill("@time@.year @nothing@", msg);
    freeLogMsg(msg);
    return EXIT_SUCCESS;
}
