// A program that knows nothing of faults: copies its argument, twice, with the library.
#include "core/mkcopy.h"

#include <cstdio>

int main(int, char **words) {
    for (int round = 0; round < 2; ++round) {
        char *copy = mkcopy(words[1]);
        puts(copy == nullptr ? "no memory" : copy);
        freecopy(copy);
    }
    return 0;
}
