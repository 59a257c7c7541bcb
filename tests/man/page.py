"""What the checks of the manual pages share: where the pages are, and how to read one."""
import glob
import os
import re
import shlex


def pages(tree):
    """Each page's path in the tree, by its name as people write it: mkcopy(3)."""
    found = {}
    for path in sorted(glob.glob(os.path.join(tree, "man", "man*", "*"))):
        name, section = os.path.basename(path).rsplit(".", 1)
        found[f"{name}({section})"] = os.path.relpath(path, tree)
    return found


def text_of(tree, path):
    with open(os.path.join(tree, path), encoding="utf-8") as page:
        return page.read()


def section(text, title):
    """The lines of a section, without its heading."""
    match = re.search(rf"^\.Sh {title}\n(.*?)(?=^\.Sh |\Z)", text, re.MULTILINE | re.DOTALL)
    return match.group(1).splitlines() if match else []


def macro(line):
    """The words of a macro's line, its name first; none for a line of text."""
    return shlex.split(line[1:].replace("'", "\\'")) if line.startswith(".") and not line.startswith('.\\"') else []
