/* A program's settings: a table of options, and a file that says otherwise. */
#include <quarnel/core/mkcopy.h>
#include <quarnel/options/options.h>

#include <stdio.h>
#include <stdlib.h>

/* shown in options(3) */
static char *number;
static int32_t lines;
static int32_t trace;

static void show(OptionEntry *entry, char *name, char *value) {
    printf("%s: %s\n", name, value ? value : entry->defaultValue);
}

static void settle(const char *program) {
    char NUMBER[] = "NUMBER", LINES[] = "LINES";
    char TRACE[] = "TRACE", PROMPT[] = "PROMPT";
    char four[] = "4", on[] = "ON", hello[] = "hello";
    OptionEntry table[] = {{NUMBER, NULL, optStr, &number},
                           {LINES, four, optInteger, &lines},
                           {TRACE, on, optBool, &trace},
                           {PROMPT, hello, show, NULL},
                           {NULL, NULL, NULL, NULL}};

    makeDfltOptionEnv(); /* other names go to the environment */
    processProgramOptions(program, table);
}
/* end */

static int writeFile(const char *path) {
    FILE *file = fopen(path, "w");

    if (file == NULL)
        return -1;
    fputs("# settings of this machine\n"
          "NUMBER=555'1234'; TRACE=off\n"
          "PROMPT=\"good evening\"\n"
          "GREETING='\"${LANGUAGE:-en}/evening\"'\n",
          file);
    return fclose(file);
}

int main(void) {
    char *expanded;

    if (writeFile("settings.options") != 0)
        return EXIT_FAILURE;
    setPrimaryOptionsFile("settings.options");
    settle("settings");
    printf("number %s, %d lines, trace %d\n", number, lines, trace);
    printf("GREETING=%s\n", getenv("GREETING"));
    expanded = shellVariable((char[]){"$GREETING by `echo a command`"});
    puts(expanded);
    freecopy(expanded);
    freecopy(number);
    return EXIT_SUCCESS;
}
