/* Copies of texts, keywords, queues and values of a thread's own. */
#include <quarnel/core/exactMatch.h>
#include <quarnel/core/list.h>
#include <quarnel/core/mkcopy.h>
#include <quarnel/core/staticObj.h>

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

/* shown in exactMatch(3) */
static void findKeyword(const char *word) {
    static const char *const keywords[] = {"busy", "answered", NULL};

    printf("%s is keyword %u\n", word, exactMatch(word, keywords));
}
/* end */

/* shown in itemList(3) */
struct Call {
    ListItem link; /* the first field: an item is its link */
    int number;
};

static void serveCalls(void) {
    struct Call calls[] = {{{NULL}, 7}, {{NULL}, 8}};
    ListHeader waiting = {NULL, NULL, 0};
    ListItem *item;

    queue(&waiting, &calls[0].link);
    queue(&waiting, &calls[1].link);
    while ((item = dequeue(&waiting)) != NULL)
        printf("call %d\n", ((struct Call *)item)->number);
}
/* end */

/* shown in mkcopy(3) */
static void release(void *value) {
    freecopy(value);
}

static StaticObj line = {release, NULL, PTHREAD_MUTEX_INITIALIZER, 0, 0};

/* The thread's own line, released when the thread ends. */
static const char *lineName(void) {
    char *name = fetchStaticObj(&line);

    if (name == NULL) {
        name = mkcopy("line 1");
        if (storeStaticObj(&line, name) != 0) {
            freecopy(name);
            return "no line";
        }
    }
    return name;
}
/* end */

static void *inThread(void *unused) {
    printf("in a thread: %s\n", lineName());
    return unused;
}

int main(void) {
    pthread_t thread;

    findKeyword("answered");
    findKeyword("engaged");
    serveCalls();
    if (pthread_create(&thread, NULL, inThread, NULL) != 0)
        return EXIT_FAILURE;
    pthread_join(thread, NULL);
    return EXIT_SUCCESS;
}
