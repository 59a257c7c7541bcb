/* What qnlog --help shows: 24 lines of 80 columns. tests/tools/qnlog_test.cpp holds it against the
 * options. */
#ifndef TOOLS_QNLOG_HELP_H
#define TOOLS_QNLOG_HELP_H

constexpr const char *HELP =
    R"(Usage: qnlog [OPTION]... [FILE]...
Shows logs as text, several merged by time; plain, gzip, zstd. "-" or no FILE:
standard input. What is no record is shown marked, and counted at the end.
Which records:
  --since TIME, --until TIME   15m, 2h ago, yesterday 14:00, 2026-03-01 12:30
  --priority LIST, --number LIST                such as 3, 2- or 0,2-4
  --producer NAME, --symbol NAME, --class NAME  * and ? allowed; any of several
  --field NAME=VALUE, --message TEXT            all of several
  --not                       turns the next one of these round
  --last N, --only-records    the last N entries; no lines that are no records
How they are shown:
  --format TEXT, --template TEXT  a record's layout; a line of @fields@ of each
  --json, --csv, --stats    an object a line; a table; counts with bars
  --width N, --visible, --raw     columns, 0: no wrapping; controls: all, as is
  --color auto|always|never, --no-pager   by priority; not through PAGER
  -f, --follow              go on as the files grow or are replaced
  -h, --help, --version, --log-root DIR   where the catalogue is (LOGROOT)
Uses:
  qnlog --since 15m --priority 2- /var/log/voice/logfile
      what was worth a look in the last quarter of an hour
  qnlog --json --not --class SYS logfile.1.gz logfile | jq .text
      two files as one, but for what the system says, for other programs
Times are local. A file is taken to be in order of time, to within a minute.
)";

#endif
