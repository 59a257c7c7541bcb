"""Each manual page is well formed: mandoc's lint has nothing to say, the title is the file's, and every page that it
refers to is one of ours or listed in other-pages.txt.

usage: form.py SOURCE-TREE
"""
import os
import re
import subprocess
import sys

from page import pages, text_of

# The section that a message of the library names; mandoc knows no 3x.
TOLERATED = "unknown manual section: Dt ... 3x"


def lint(tree, paths):
    done = subprocess.run(["mandoc", "-Tlint", "-Wwarning", *paths], cwd=tree, capture_output=True, text=True, timeout=60)
    return [line for line in (done.stdout + done.stderr).splitlines() if TOLERATED not in line]


def other_pages(tree):
    names = [line.split("#")[0].strip() for line in open(os.path.join(tree, "tests/man/other-pages.txt"))]
    return {name for name in names if name}


def check_page(name, text, known):
    title = re.search(r"^\.Dt (\S+) (\S+)$", text, re.MULTILINE)
    if not title or f"{title[1]}({title[2]})" != name.upper().replace("X)", "x)"):
        yield f"{name}: has another title, {title and title[0]}"
    for referred in re.findall(r"^\.Xr (\S+ \S+)", text, re.MULTILINE):
        reference = "{}({})".format(*referred.split())
        if reference not in known:
            yield f"{name}: refers to {reference}, which is no page"


def main():
    tree = sys.argv[1]
    found = pages(tree)
    others = other_pages(tree)
    known = found.keys() | others
    faults = lint(tree, found.values()) if found else ["no pages at all"]
    faults += [f"other-pages.txt: {name} is a page of ours" for name in sorted(found.keys() & others)]
    for name, path in found.items():
        faults += check_page(name, text_of(tree, path), known)
    print("\n".join(faults) if faults else f"{len(found)} pages are well formed")
    return 1 if faults else 0


sys.exit(main())
