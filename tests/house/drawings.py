#!/usr/bin/env python3
"""Fails where a drawing in docs/ does not show every line of every label in its source.

usage: drawings.py ROOT"""
import html
import re
import sys
from pathlib import Path

docs = Path(sys.argv[1]) / "docs"
stale = []
sources = sorted((docs / "drawings").glob("*.dot"))
for source in sources:
    text = re.sub(r"^\s*//.*$", "", source.read_text(), flags=re.M)
    drawn = html.unescape((docs / f"{source.stem}.svg").read_text()).replace("\u00a0", " ")
    shown = {line.strip() for line in re.findall(r"<text[^>]*>(.*?)</text>", drawn)}
    for label in re.findall(r'\blabel="(.*?)"', text):
        stale += [f"{source.name}: not drawn: {line}" for line in re.split(r"\\[nl]", label.removesuffix(r"\l")) if line.strip() not in shown]
for line in stale:
    print(line + " (docs/draw makes the drawings anew)")
sys.exit(1 if stale or not sources else 0)
