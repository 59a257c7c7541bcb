#!/usr/bin/env python3
"""Fails unless layout.c shows every record of the public headers, with every field.

usage: records.py ROOT LAYOUT"""
import re
import sys
from pathlib import Path


def fields(body):
    text = re.sub(r"/\*.*?\*/", "", body, flags=re.S)
    for declaration in filter(None, (" ".join(part.split()) for part in text.split(";"))):
        named = re.match(r".*\(\*(\w+)\)\(", declaration) or re.match(r".*?(\w+)(?:\[\w*\])?$", declaration)
        yield named.group(1)


def main():
    root, layout = Path(sys.argv[1]), Path(sys.argv[2]).read_text()
    headers = re.findall(r'^#include "(.+)"', (root / "quarnel.h").read_text(), flags=re.M)
    missing, seen = [], 0
    for header in headers:
        text = (root / header).read_text()
        # A template is for C++ alone, and no record of the C interface.
        for name, body in re.findall(r"(?<!>\n)^(?:typedef )?struct (\w+) \{(.*?)^\}", text, flags=re.S | re.M):
            seen += 1
            if f"RECORD({name});" not in layout:
                missing.append(f"{header}: {name}")
            missing += [f"{header}: {name}.{field}" for field in fields(body)
                        if f"FIELD({name}, {field});" not in layout]
    for line in missing:
        print(f"not shown by the layout program: {line}")
    print(f"{seen} records in {len(headers)} headers")
    return 1 if missing or seen == 0 else 0


sys.exit(main())
