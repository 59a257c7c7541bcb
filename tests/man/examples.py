"""The code that a page shows is the example's own: the part that the example's source marks for that page, literally.

A part begins behind a line "/* shown in PAGE(3) */" and ends before the line "/* end */". The page has it between .Bd
and .Ed, behind a comment that names the source. --update writes the parts into the pages. An example that has a part is
under 80 lines long.

usage: examples.py [--update] SOURCE-TREE
"""
import glob
import os
import re
import sys

from page import pages, text_of

WIDTH = 73  # what is left of a terminal's 80 columns
BLOCK = re.compile(r'^(\.\\" (examples/\S+)\n\.Bd -literal[^\n]*\n)(.*?)(^\.Ed\n)', re.MULTILINE | re.DOTALL)
PART = re.compile(r"^(?:/\*|//) shown in (\S+\(\w+\))(?: \*/)?\n(.*?)^(?:/\* end \*/|// end)\n", re.MULTILINE | re.DOTALL)


def roff(code):
    """The code as roff source that shows it unchanged, its quotes, minus signs and tildes too."""
    for sign, escape in (("\\", "\\e"), ("'", "\\(aq"), ("`", "\\(ga"), ("-", "\\-"), ("^", "\\(ha"), ("~", "\\(ti")):
        code = code.replace(sign, escape)
    return re.sub(r"^\.", r"\\&.", code, flags=re.MULTILINE)


def parts(tree):
    """What the examples mark: (page, source) to code."""
    found = {}
    for path in sorted(glob.glob(os.path.join(tree, "examples", "*.c")) + glob.glob(os.path.join(tree, "examples", "*.cpp"))):
        source = os.path.relpath(path, tree)
        for name, code in PART.findall(text_of(tree, source)):
            found[name, source] = code
    return found


def check_page(name, text, found):
    for _, source, shown, _ in BLOCK.findall(text):
        code = found.pop((name, source), None)
        if code is None:
            yield f"{name}: {source} marks no part for it"
        elif shown != roff(code):
            yield f"{name}: does not show the part of {source} as it is now"
        else:
            yield from (f"{name}: too wide to show: {line}" for line in code.splitlines() if len(line) > WIDTH)


def updated(name, text, found):
    return BLOCK.sub(lambda block: block[1] + roff(found.get((name, block[2]), "")) + block[4], text)


def main():
    update = sys.argv[1] == "--update"
    tree = sys.argv[1 + update]
    found, faults = parts(tree), []
    sizes = {source: text_of(tree, source).count("\n") for _, source in found}
    for name, path in pages(tree).items():
        text = text_of(tree, path)
        if update:
            text = updated(name, text, found)
            with open(os.path.join(tree, path), "w", encoding="utf-8") as page:
                page.write(text)
        if name.endswith(("(3)", "(3x)")) and ".Sh SYNOPSIS" in text and not BLOCK.search(text):
            faults.append(f"{name}: shows no example")
        faults += check_page(name, text, found)
    faults += [f"{source}: no page {name} shows its part" for name, source in found]
    faults += [f"{source}: {lines} lines" for source, lines in sizes.items() if lines >= 80]
    print("\n".join(faults) if faults else "each page shows its example as it is")
    return 1 if faults else 0


sys.exit(main())
