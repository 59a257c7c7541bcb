/* Line scripts, from text to blocks of events. The format is told in linescript(5). Keeps no
   state: safe from any thread, each with a script of its own; not from a signal handler. */
#ifndef PLATFORM_SCRIPTPARSER_H
#define PLATFORM_SCRIPTPARSER_H

#include <stdint.h>

#include <array>
#include <deque>
#include <string>
#include <vector>

#define VX_API __attribute__((visibility("default")))

struct ScriptedEvent {
    int32_t delay; // milliseconds after what the block waits for
    int32_t code;
    int32_t subcode; // 0 when the script gives none
};

struct ScriptBlock {
    int32_t result = 1; // what the start call returns; other than 1: refused, and no events
    std::vector<ScriptedEvent> events;
};

// What a block waits for, in the order of the words in the script.
enum ScriptTrigger { TRIGGER_OPEN, TRIGGER_TIMER, TRIGGER_DIAL, TRIGGER_COUNT };

// The blocks not used yet, by what they wait for, in the script's order.
using LineScript = std::array<std::deque<ScriptBlock>, TRIGGER_COUNT>;

/* Parses the text, which the name stands for in faults. True and the script replaced, or false, the
   script as it was and the fault set to "name:line: reason". */
VX_API bool parseLineScript(const std::string &name, const std::string &text, LineScript &script,
                            std::string &fault);

/* As parseLineScript, on the content of a file of at most 1 MiB. A file that cannot be read is
   refused with "path: reason". */
VX_API bool readLineScript(const std::string &path, LineScript &script, std::string &fault);

#endif
