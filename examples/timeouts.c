/* Several timeouts on the process's one alarm. */
#include <quarnel/clock/clock.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

/* shown in clock(3x) */
static volatile sig_atomic_t warned;

/* Runs in the handler of SIGALRM: sets a flag, writes, no more. */
static void *warn(intptr_t call, uint32_t id) {
    static const char TEXT[] = "call 7 takes long\n";

    (void)id;
    if (call == 7)
        warned = write(STDOUT_FILENO, TEXT, sizeof TEXT - 1) > 0;
    return NULL;
}

static void guardCalls(void) {
    const uint32_t first = clkTimeout(warn, 7, 1);

    if (first == UINT32_MAX || clkTimeout(warn, 8, 60) == UINT32_MAX)
        fputs("no timeout to be had\n", stderr);

    deepSleep(2, NULL); /* both calls go on; callouts run meanwhile */

    printf("warned: %s\n", warned ? "yes" : "no");
    if (clkUntimeout(first) == -1)
        puts("the warning of call 7 has run");
    if (clkKillTimeout(warn, 8) > 0)
        puts("the warning of call 8 is cancelled");
}

/* No callout runs meanwhile; the time counts for them all the same. */
static void changeWithoutCallouts(void (*change)(void)) {
    clkHold();
    change();
    clkRelease();
}
/* end */

static void tellPending(void) {
    printf("pending: %s\n", activeCallouts.head == NULL ? "nothing" : "something");
}

int main(void) {
    if (clkinit(40) != 0)
        return EXIT_FAILURE;
    setvbuf(stdout, NULL, _IONBF, 0);
    guardCalls();
    clkTimeout(warn, 9, 30);
    changeWithoutCallouts(tellPending);
    clkKillTimeout(warn, 9);
    tellPending();
    return EXIT_SUCCESS;
}
