#!/usr/bin/env python3
"""Fails where a tool's page and its --help know different options, or a tool has no page.

usage: options.py SOURCE TOOLS TOOL..."""
import pathlib
import re
import subprocess
import sys

source, tools, names = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3:]
SUBCOMMANDS = {"qnclip": ("get", "set", "insert", "delete", "list", "expand")}


def told(tool):
    """The long options that the tool tells of."""
    found = set()
    for subcommand in ((), *((name,) for name in SUBCOMMANDS.get(tool, ()))):
        file = ("file",) if subcommand else ()
        text = subprocess.run([tools / tool, *file, *subcommand, "--help"], stdout=subprocess.PIPE, text=True, check=True).stdout
        options = text.split("\nUses:")[0]
        for line in re.findall(r"^ +(-.*?)(?:  |$)", options, re.M):
            found |= set(re.findall(r"--[a-z][a-z-]*", line))
    return found


def documented(tool):
    pages = [page for page in (source / f"man/man1/{tool}.1", source / f"man/man8/{tool}.8") if page.exists()]
    if len(pages) != 1:
        return None
    listed = re.findall(r"^\.It (Fl .*)", pages[0].read_text(), re.M)
    return {"-" + name for line in listed for name in re.findall(r"(?:Fl |, )(-[a-z][a-z-]*)", line)}


mistakes = []
for name in names:
    page = documented(name)
    if page is None:
        mistakes.append(f"{name}: one page in man1 or man8 is wanted")
        continue
    mistakes += [f"{name}: {option} is not in its page" for option in sorted(told(name) - page)]
    mistakes += [f"{name}: {option} is in its page, not in --help" for option in sorted(page - told(name))]
print("\n".join(mistakes) or f"{len(names)} pages tell their tools' options")
sys.exit(1 if mistakes or not names else 0)
