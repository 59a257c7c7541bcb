/* An application in C that only links the library: it names no platform. */
#include <quarnel/buffers/fmtCharBuf.h>
#include <quarnel/core/mkcopy.h>
#include <quarnel/options/parseln.h>

#include <stdio.h>

int main(void) {
    char *line = mkcopy("ring \"the far end\" twice");
    char *words[4];
    const int32_t count = parseln(line, words, 4);
    puts(fmtStr("%d words, the second is %s", count, words[1]));
    freecopy(line);
    return 0;
}
