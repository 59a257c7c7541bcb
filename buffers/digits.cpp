#include "digits.h"

size_t decimalDigits(unsigned long value) {
    size_t count = 1;
    for (; value >= 10; value /= 10)
        ++count;
    return count;
}

char *putLongDecimal(char *at, unsigned long value) {
    char *const end = at + decimalDigits(value);
    for (char *digit = end; digit != at; value /= 10)
        *--digit = static_cast<char>('0' + value % 10);
    return end;
}
