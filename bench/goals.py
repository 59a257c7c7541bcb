"""The table of goals: each row of the benchmarks against a floor or a peer."""

# (work, row, variant it is held against, what that is, goal as a ratio, program)
GOALS = [
    ("logMsg, 120 bytes, three arguments, into a drained pipe", "logMsg", "write", "one write(2) of the same bytes", 1.6, "logging"),
    ("logMsg", "logMsg", "spdlog", "spdlog, synchronous file sink, flushed", 1.0, "logging"),
    ("logMsg", "logMsg", "fprintf", "fprintf and fflush", 1.0, "logging"),
    ("logMsg", "logMsg", "syslog", "syslog(3) to a local datagram socket", 1 / 3, "logging"),
    ("logMsg, the kernel without a write that leaves SIGPIPE out", "logMsgMasked", "write", "one write(2) of the same bytes", 3.0, "masked"),
    ("the same", "logMsgMasked", "calls", "its three system calls alone", 1.2, "masked"),
    ("ipcRecv of one frame of 120 bytes", "ipcRecv", "read", "its two read(2) calls", 1.15, "ipc"),
    ("fmtEvent: the record alone", "fmtEvent", "snprintf", "two snprintf passes", 0.5, "logging"),
    ("fmtEvent: the record alone", "fmtEvent", "fmt", "{fmt}, run-time format, one line", 0.8, "logging"),
    ("expandLog, default format, parsing included", "expandLog", "snprintf", "snprintf of the line, the time text kept", 1.5, "logging"),
    ("parseCmpLog and freeLogMsg", "parseCmpLog", "sscanf", "sscanf of the fields, localtime_r", 0.8, "logging"),
    ("expansion with symbol, class and field, 20,000 symbols", "expandSymbols", "few", "the same with 100 symbols", 1.1, "catalogue"),
    ("load of cmpLogFmt, 20,000 messages", "getcmpLogFmt", "read", "reading the same bytes", 3.0, "catalogue"),
    ("load of 20,000 symbols", "logReadSymbols", "getline", "getline, strtok_r, qsort by name", 2.0, "catalogue"),
    ("resident memory of a process that logs", "residentMemory", "platform", "the same by hand, the platform library alone", 300, "memory"),
    ("qnlog: 2,000,000 records as text", "qnlogAll", "cat", "cat -v of the text", 4.0, "qnlog"),
    ("qnlog: a filter that keeps 1 % of them", "qnlogFiltered", "grep", "grep over the same file", 2.0, "qnlog"),
    ("fputCharBuffer, 11 bytes, 1,000 pieces", "fputCharBuffer", "GString", "GString", 1.0, "buffers"),
    ("fputCharBuffer, 11 bytes, 1,000 pieces", "fputCharBuffer", "string", "std::string", 2.0, "buffers"),
    ("putStrCharBuffer, 11 bytes, 1,000 pieces", "putStrCharBuffer", "GString", "GString", 1.0, "buffers"),
    ("putStrCharBuffer, 11 bytes, 1,000 pieces", "putStrCharBuffer", "string", "std::string", 2.0, "buffers"),
    ("fmtCharBuffer of \"%s=%d \"", "fmtCharBuffer", "snprintf", "snprintf into a fixed buffer", 1.2, "buffers"),
    ("arrayPut", "arrayPut", "mutex", "a recursive mutex pair and the copy", 1.5, "buffers"),
    ("clearCopy of 1 KiB, no control bytes", "clearCopyPlain", "g_strescape", "g_strescape", 0.25, "buffers"),
    ("clearCopy of 1 KiB, no control bytes", "clearCopyPlain", "strvis", "strvis", 0.05, "buffers"),
    ("clearCopy of 1 KiB, 10 % control bytes", "clearCopyControls", "g_strescape", "g_strescape", 0.6, "buffers"),
    ("clearCopy of 1 KiB, 10 % control bytes", "clearCopyControls", "strvis", "strvis", 0.05, "buffers"),
    ("clipboard: open, load, change, close, 100 entries", "clipboard", "stdio", "lock, read, rewrite the same bytes with stdio", 1.5, "clipboard"),
    ("clipboard: open, load, change, close, 100 entries", "clipboard", "copies", "the same, each text copied into a block of its own", 1.5, "clipboard"),
    ("readLine over 10 MB", "readLine", "getline", "getline(3)", 1.2, "text"),
    ("readQuotedLine over 10 MB", "readQuotedLine", "readLine/getline", "getline(3)", 2.0, "text"),
    ("shellVariable of a plain word", "shellVariablePlain", "wordexp", "wordexp", 0.5, "text"),
    ("shellVariable of ${HOME:-/tmp}/x", "shellVariableDefault", "wordexp", "wordexp", 0.5, "text"),
    ("processOptionsFile, 100 lines", "processOptionsFile", "GKeyFile", "GLib's key file", 1.0, "text"),
    ("processOptionsFile, 100 lines", "processOptionsFile", "confuse", "libconfuse", 1.0, "text"),
    ("clkTimeout and clkUntimeout, 20 pending of 64", "clkTimeout", "systemCalls", "the system calls of their steps", 1.15, "clock"),
]
for _name, _row in (("an identifier", "identifier"), ("the log form, captures", "logForm")):
    for _length in ("Short", "Long", "Failing"):
        _work = f"regularExp: {_name}, {_length.lower()}"
        GOALS.append((_work, _row + _length, "pcre2", "PCRE2 interpreter", 1.0, "text"))
        GOALS.append((_work, _row + _length, "pcre2jit", "PCRE2 JIT", 3.0, "text"))

# Rows whose goal is a difference, by the unit that their figures are in.
DIFFERENCES = {"residentMemory": "KiB"}
