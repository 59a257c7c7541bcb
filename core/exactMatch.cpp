#include "exactMatch.h"

#include <string.h>

uint32_t exactMatch(const char *text, const char *const *list) {
    if (text == nullptr || list == nullptr)
        return 0;
    for (uint32_t position = 1; *list != nullptr; ++list, ++position)
        if (strcmp(*list, text) == 0)
            return position;
    return 0;
}
