#include "mkcopy.h"

#include <stdlib.h>
#include <string.h>

char *mkcopy(const char *text) {
    if (text == nullptr)
        return nullptr;
    const size_t size = strlen(text) + 1;
    char *copy = static_cast<char *>(malloc(size));
    if (copy != nullptr)
        memcpy(copy, text, size);
    return copy;
}

void freecopy(char *copy) {
    free(copy);
}
