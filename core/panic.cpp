#include "panic.h"

#include <stdio.h>
#include <stdlib.h>

void panic(const char *message) {
    // The carriage returns are kept: the message must stand alone on a terminal in raw mode too.
    fprintf(stderr, "\r\nPANIC: %s\r\n", message == nullptr ? "" : message);
    fflush(stderr);
    abort();
}
