#!/usr/bin/env python3
"""Holds the table of records in docs/i386-to-x86_64.md against the layouts of both word sizes.

usage: page.py ROOT [--write]      --write puts the table into the page"""
import re
import sys
from pathlib import Path

BEGIN, END = "<!-- records: tests/abi/page.py --write -->\n", "<!-- end of records -->\n"


def layout(path):
    """Each record's size, and its fields' places."""
    records = {}
    for line in path.read_text().splitlines():
        record = re.match(r"(\w+): (\d+) bytes", line)
        if record:
            fields = {}
            records[record.group(1)] = (record.group(2), fields)
            continue
        field = re.match(r" +(\w+) +at +(\d+), (?:(\d+) bytes|open)", line)
        fields[field.group(1)] = f"{field.group(2)} / {field.group(3) or 'open'}"
    return records


def table(root):
    small, large = (layout(root / f"tests/abi/layout.{word_size}.txt") for word_size in ("i386", "x86_64"))
    lines = ["| record | field | i386 | x86_64 |", "| --- | --- | --- | --- |"]
    for name, (size, fields) in small.items():
        other, places = large[name]
        lines.append(f"| `{name}` | | {size} bytes | {other} bytes{'' if size != other else ', the same'} |")
        lines += [f"| | `{field}` | {place} | {places[field]} |" for field, place in fields.items() if fields != places]
    return "\n".join(lines) + "\n"


def main():
    root = Path(sys.argv[1])
    page = root / "docs/i386-to-x86_64.md"
    before, rest = page.read_text().split(BEGIN)
    shown, after = rest.split(END)
    if "--write" in sys.argv:
        page.write_text(before + BEGIN + table(root) + END + after)
        return 0
    if shown == table(root):
        return 0
    print(f"{page}: its table of records is not what the layouts say; tests/abi/page.py {root} --write renews it")
    return 1


sys.exit(main())
