/* Prints the size of every record of the public headers, and each field's offset and size. The
   output is compared with the table of the word size: a record never changes its shape. */
#include "quarnel.h"

#include <stddef.h>
#include <stdio.h>

#define RECORD(type) printf("%s: %zu bytes\n", #type, sizeof(type))
#define FIELD(type, field)                                                                         \
    printf("    %-18s at %3zu, %zu bytes\n", #field, offsetof(type, field),                        \
           sizeof(((type *)0)->field))
/* A field without an end of its own: the record goes on with as many as it has. */
#define OPEN_FIELD(type, field) printf("    %-18s at %3zu, open\n", #field, offsetof(type, field))

static void coreRecords(void) {
    RECORD(IpcChannel);
    FIELD(IpcChannel, fd);
    FIELD(IpcChannel, flags);
    FIELD(IpcChannel, length);
    FIELD(IpcChannel, capacity);
    FIELD(IpcChannel, buffer);
    RECORD(ListItem);
    FIELD(ListItem, i_next);
    RECORD(ListHeader);
    FIELD(ListHeader, head);
    FIELD(ListHeader, tail);
    FIELD(ListHeader, count);
    RECORD(StaticObj);
    FIELD(StaticObj, destructor);
    FIELD(StaticObj, initial);
    FIELD(StaticObj, guard);
    FIELD(StaticObj, key);
    FIELD(StaticObj, created);
}

static void buffersRecords(void) {
    RECORD(ArrayDescriptor);
    FIELD(ArrayDescriptor, type);
    FIELD(ArrayDescriptor, storage);
    FIELD(ArrayDescriptor, elemSize);
    FIELD(ArrayDescriptor, count);
    FIELD(ArrayDescriptor, capacity);
    FIELD(ArrayDescriptor, increment);
    FIELD(ArrayDescriptor, changes);
    FIELD(ArrayDescriptor, nextFree);
    RECORD(CharBuffer);
    FIELD(CharBuffer, text);
    FIELD(CharBuffer, limit);
    FIELD(CharBuffer, next);
    FIELD(CharBuffer, size);
    FIELD(CharBuffer, increment);
}

static void clockRecords(void) {
    RECORD(Callout);
    FIELD(Callout, next);
    FIELD(Callout, increment);
    FIELD(Callout, ID);
    FIELD(Callout, argument);
    FIELD(Callout, function);
    RECORD(HoldInfo);
    FIELD(HoldInfo, secondsLeft);
    FIELD(HoldInfo, startTime);
    RECORD(Suspension);
    FIELD(Suspension, active);
    FIELD(Suspension, disposition);
    FIELD(Suspension, secondsLeft);
    FIELD(Suspension, startTime);
    FIELD(Suspension, foreignHandler);
    FIELD(Suspension, foreignSecondsLeft);
    FIELD(Suspension, hold);
    FIELD(Suspension, foreignTime);
    FIELD(Suspension, handlerInstalled);
}

static void logRecords(void) {
    RECORD(LogDstPri);
    FIELD(LogDstPri, priority);
    FIELD(LogDstPri, destination);
    RECORD(LogDstPriTable);
    FIELD(LogDstPriTable, rowCount);
    FIELD(LogDstPriTable, reserved);
    OPEN_FIELD(LogDstPriTable, row);
    RECORD(LogField);
    FIELD(LogField, name);
    FIELD(LogField, position);
    FIELD(LogField, type);
    FIELD(LogField, first);
    FIELD(LogField, second);
    RECORD(LogFieldList);
    FIELD(LogFieldList, count);
    FIELD(LogFieldList, fields);
    FIELD(LogFieldList, number);
    RECORD(LogMsgArg);
    FIELD(LogMsgArg, value);
    FIELD(LogMsgArg, spare);
    RECORD(LogMsg);
    FIELD(LogMsg, record);
    FIELD(LogMsg, spare1);
    FIELD(LogMsg, index);
    FIELD(LogMsg, spare2);
    FIELD(LogMsg, spare3);
    FIELD(LogMsg, priority);
    FIELD(LogMsg, time);
    FIELD(LogMsg, tm);
    FIELD(LogMsg, producer);
    FIELD(LogMsg, spare4);
    FIELD(LogMsg, file);
    FIELD(LogMsg, spare5);
    FIELD(LogMsg, line);
    FIELD(LogMsg, argCount);
    FIELD(LogMsg, args);
    FIELD(LogMsg, expansion);
    FIELD(LogMsg, spare6);
    RECORD(LogStartClass);
    FIELD(LogStartClass, name);
    FIELD(LogStartClass, start);
    RECORD(LogSymbol);
    FIELD(LogSymbol, name);
    FIELD(LogSymbol, absIndex);
    FIELD(LogSymbol, className);
    FIELD(LogSymbol, relIndex);
}

static void optionsRecords(void) {
    RECORD(OptionEntry);
    FIELD(OptionEntry, name);
    FIELD(OptionEntry, defaultValue);
    FIELD(OptionEntry, handler);
    FIELD(OptionEntry, destination);
    RECORD(ReadInfo);
    FIELD(ReadInfo, inlineCnt);
    FIELD(ReadInfo, virtLineCnt);
    FIELD(ReadInfo, modes);
    FIELD(ReadInfo, buffer);
    FIELD(ReadInfo, capacity);
}

static void clipboardRecords(void) {
    RECORD(Clipboard);
    FIELD(Clipboard, path);
    FIELD(Clipboard, flags);
    FIELD(Clipboard, stream);
    FIELD(Clipboard, entries);
    RECORD(ClipEntry);
    FIELD(ClipEntry, comment);
    FIELD(ClipEntry, name);
    FIELD(ClipEntry, value);
    FIELD(ClipEntry, trailer);
}

static void regexRecords(void) {
    RECORD(MatchStack);
    FIELD(MatchStack, entries);
    FIELD(MatchStack, count);
    FIELD(MatchStack, capacity);
    RECORD(MatchRecord);
    FIELD(MatchRecord, start);
    FIELD(MatchRecord, end);
    FIELD(MatchRecord, group);
    FIELD(MatchRecord, enclosing);
    RECORD(MatchMark);
    FIELD(MatchMark, undoCount);
    FIELD(MatchMark, placeCount);
    FIELD(MatchMark, placeLast);
    FIELD(MatchMark, automaticOpened);
    FIELD(MatchMark, automaticClosed);
    FIELD(MatchMark, automaticCurrent);
    RECORD(MatchPlace);
    FIELD(MatchPlace, place);
    FIELD(MatchPlace, below);
    RECORD(MatchState);
    FIELD(MatchState, frames);
    FIELD(MatchState, reached);
    FIELD(MatchState, choices);
    FIELD(MatchState, places);
    FIELD(MatchState, records);
    FIELD(MatchState, undo);
    FIELD(MatchState, now);
    FIELD(MatchState, start);
    FIELD(MatchState, emptyMatchCounts);
    FIELD(MatchState, succeeded);
    RECORD(CaptureBlock);
    FIELD(CaptureBlock, count);
    OPEN_FIELD(CaptureBlock, group);
}

int main(void) {
    coreRecords();
    buffersRecords();
    clockRecords();
    logRecords();
    optionsRecords();
    clipboardRecords();
    regexRecords();
    return 0;
}
