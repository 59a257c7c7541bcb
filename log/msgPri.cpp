#include "log.h"

const char *const msgPri[] = {"  ", "M ", "* ", "**", "*C", nullptr};
