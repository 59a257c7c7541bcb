#include "messageText.h"

#include "log/expandLog.h"

#include <string>

// The message alone is had by a layout that holds nothing else. The layout set before is put back:
// there is none only before the first expansion, and then LOGFORMAT counts, so one is made.
const char *messageText(Record &record) {
    const char *current = getExpansionFmt();
    if (current == nullptr) {
        expandLog(record.text());
        current = getExpansionFmt();
    }
    const std::string layout = current == nullptr ? "" : current;
    chgExpansionFmt("%M");
    const char *message = expandLog(record.text());
    if (!layout.empty())
        chgExpansionFmt(layout.c_str());
    return message;
}
