"""Each synopsis of section 3 declares what the headers declare: every public name once, with the header's own return
type and parameters, under the include line of its header; and each record and function type that a page shows is the header's.

usage: synopses.py SOURCE-TREE
"""
import os
import re
import sys

from page import macro, pages, section, text_of


def tokens(declaration):
    """The declaration in one spelling: no attribute, single blanks, none where C needs none."""
    declaration = re.sub(r"__attribute__\s*\(\(.*?\)\)|\bQN_API\b|\b__extension__\b", "", declaration)
    return " ".join(re.findall(r"\w+|\.\.\.|[^\w\s]", declaration))


def declared_name(declaration):
    """What a declaration declares: the word before its parameters, its array's size or its end."""
    return re.match(r"[^(\[;]*?(\w+)\s*(?:[(\[;]|$)", declaration).group(1)


def without_comments(source):
    return re.sub(r"//[^\n]*", "", re.sub(r"/\*.*?\*/", "", source, flags=re.DOTALL))


def headers(tree):
    return re.findall(r'#include "([^"]+)"', text_of(tree, "quarnel.h"))


def exports(tree):
    """Every exported declaration: name to (header, declaration)."""
    found = {}
    for header in headers(tree):
        for declaration in re.findall(r"\bQN_API\b([^;]*);", without_comments(text_of(tree, header))):
            found[declared_name(declaration)] = (header, tokens(declaration))
    return found


def records(source):
    """The records and function types that a text declares: name to declaration."""
    source = without_comments(source)
    found = re.findall(r"^((?:typedef )?struct (\w+) \{[^{}]*\}[^;]*;)", source, re.MULTILINE)
    found += re.findall(r"^(typedef [^;{}]*\(\*(\w+)\)[^;]*;)", source, re.MULTILINE)
    return {what: tokens(declaration) for declaration, what in found}


def public_names(tree):
    names = [line.split("#")[0].strip() for line in open(os.path.join(tree, "tests/house/public-names.txt"))]
    # The C++ names are mangled: the plain one stands between the length and the parameters.
    return {re.sub(r"^_Z\d+(QN_[a-z0-9]+)P9chan_info.*", r"\1", name) for name in names if name}


def synopsis(lines):
    """What a synopsis declares: the include line above, and the declaration as C would have it."""
    header, result, parameters, function = None, "", None, None
    for words in filter(None, map(macro, lines)):
        if words[0] == "In":
            header = words[1].removeprefix("quarnel/") # as it lies in the tree
        elif words[0] == "Vt":
            yield header, tokens(" ".join(words[1:]).rstrip(";"))
        elif words[0] == "Ft":
            result = " ".join(words[1:])
        elif words[0] == "Fn":
            yield header, tokens(f"{result} {words[1]}({', '.join(words[2:])})")
        elif words[0] == "Fo":
            function, parameters = words[1], []
        elif words[0] == "Fa" and parameters is not None:
            parameters.append(" ".join(words[1:]))
        elif words[0] == "Fc":
            yield header, tokens(f"{result} {function}({', '.join(parameters)})")
            parameters = None


def check_page(name, text, declared, seen):
    """The faults of one page; seen learns which page has which name."""
    named = {word for line in section(text, "NAME") for word in macro(line)[1:] if macro(line)[0] == "Nm"}
    functions = set()
    for header, declaration in synopsis(section(text, "SYNOPSIS")):
        what = declared_name(declaration)
        if what not in declared:
            yield f"{name}: {what} is no public name"
            continue
        if what in seen:
            yield f"{name}: {what} is in {seen[what]} too"
        seen[what] = name
        if "(" in declaration:
            functions.add(what)
        if (header, declaration) != declared[what]:
            yield f"{name}: <{header}> {declaration}\n    is not <{declared[what][0]}> {declared[what][1]}"
    yield from (f"{name}: NAME does not list {what}" for what in sorted(functions - named))
    yield from (f"{name}: NAME lists {what}, which the synopsis lacks" for what in sorted(named & declared.keys() - seen.keys()))


def check_records(name, text, of_headers):
    for block in re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed", "\n".join(section(text, "SYNOPSIS")) + "\n", re.M | re.S):
        for what, declaration in records(block).items():
            if of_headers.get(what) != declaration:
                yield f"{name}: {what} is\n    {declaration}\n    and not\n    {of_headers.get(what)}"


def main():
    tree = sys.argv[1]
    declared, seen, faults = exports(tree), {}, []
    of_headers = {what: text for header in headers(tree) for what, text in records(text_of(tree, header)).items()}
    for name, path in pages(tree).items():
        if name.endswith(("(3)", "(3x)")):
            faults += check_page(name, text_of(tree, path), declared, seen)
            faults += check_records(name, text_of(tree, path), of_headers)
    wanted = public_names(tree)
    faults += [f"{what}: in no page" for what in sorted(wanted - seen.keys())]
    faults += [f"{what}: not found in the headers" for what in sorted(wanted - declared.keys())]
    print("\n".join(faults) if faults else f"{len(seen)} public names, each in one page as its header declares it")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
