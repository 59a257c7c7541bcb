"""Which lines and branches of the library no test runs, compared with the list that docs/coverage.md explains.

A gap is a line that never runs, or a line some branch of which is never taken; it is named by its file, its function
and its source text, so that it survives edits elsewhere. The document names gaps in blocks that open with ```gaps.
A block that opens with ```gaps sometimes names what depends on the order of events in a run: it may be covered.
Lines of a block that begin with "# " say why for the lines up to the next empty one.

usage: coverage.py [--prune] SOURCE-TREE GCOVR-JSON DOCUMENT     --prune: drops from the document what is covered now
"""
import collections
import json
import os
import re
import sys

LINES_WANTED, BRANCHES_WANTED = 98.0, 90.0


class Count:
    """Covered and all, of one kind of thing."""

    def __init__(self):
        self.covered = self.all = 0

    def add(self, taken):
        self.all += 1
        self.covered += taken

    def share(self):
        return 100.0 * self.covered / self.all if self.all else 100.0

    def __str__(self):
        return f"{self.covered:6} of {self.all:5}  {self.share():5.1f} %"


def function_at(functions, line):
    """The name, without parameters, of the function that holds the line."""
    found = "(file)"
    for function in sorted(functions, key=lambda f: f["lineno"]):
        if function["lineno"] <= line:
            found = function["name"]
    found = re.sub(r"\(anonymous namespace\)::", "", found)
    found = re.sub(r"<.*>|\[.*\]", "", found.split("(")[0])
    return found.split(" ")[-1]


def read_report(tree, report):
    """Counts by folder, and the gaps: (file, function, text) with what is missing and where."""
    lines, branches = collections.defaultdict(Count), collections.defaultdict(Count)
    gaps = collections.defaultdict(list)
    for file in report["files"]:
        name = file["file"]
        folder = name.split("/")[0]
        source = open(os.path.join(tree, name)).read().splitlines()
        for line in file["lines"]:
            if line["gcovr/noncode"] or line["gcovr/excluded"]:
                continue
            number = line["line_number"]
            untaken = sum(branch["count"] == 0 for branch in line["branches"])
            for key in (folder, "all"):
                lines[key].add(line["count"] > 0)
                for branch in line["branches"]:
                    branches[key].add(branch["count"] > 0)
            if line["count"] == 0 or untaken:
                missing = "never runs" if line["count"] == 0 else f"{untaken} of {len(line['branches'])} branches"
                key = (name, function_at(file["functions"], number), source[number - 1].strip())
                gaps[key].append(f"{name}:{number} ({missing})")
    return lines, branches, gaps


def read_document(path):
    """The gaps that the document names, and those of them that may be covered."""
    always, sometimes, wanted = set(), set(), None
    for line in open(path):
        if line.startswith("```"):
            wanted = {"```gaps": always, "```gaps sometimes": sometimes}.get(line.strip()) if wanted is None else None
        elif wanted is not None and line.strip() and not line.startswith("# "):
            file, function, text = line.rstrip("\n").split(" ", 2)
            wanted.add((file, function.removesuffix(":"), text.strip()))
    return always, sometimes


def prune(path, covered):
    """Drops those gaps from the blocks, and each paragraph of a block that is left without any."""
    names = {f"{file} {function}: {text}" for file, function, text in covered}

    def pruned(block):
        paragraphs = [[line for line in paragraph.splitlines() if line.strip() not in names]
                      for paragraph in block[2].split("\n\n")]
        left = ["\n".join(lines) for lines in paragraphs if any(not line.startswith("# ") for line in lines)]
        return block[1] + "\n\n".join(left).rstrip("\n") + "\n```"

    text = open(path).read()
    open(path, "w").write(re.sub(r"^(```gaps(?: sometimes)?\n)(.*?)^```", pruned, text, flags=re.M | re.S))


def show(lines, branches):
    print(f"{'folder':10} {'lines':>25} {'branches':>27}")
    for folder in sorted(lines, key=lambda name: (name == "all", name)):
        print(f"{folder:10} {lines[folder]!s:>25}   {branches[folder]!s:>25}")


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--prune"]
    tree, report_path, document = arguments
    lines, branches, gaps = read_report(tree, json.load(open(report_path)))
    always, sometimes = read_document(document)
    if len(arguments) != len(sys.argv) - 1:
        prune(document, always - set(gaps))
        always &= set(gaps)
    print("what no test runs:")
    for key in sorted(gaps):
        print(f"  {key[0]} {key[1]}: {key[2]}\n      {', '.join(gaps[key])}")
    show(lines, branches)

    faults = [f"not explained in {document}: {' '.join(key[:2])}: {key[2]}"
              for key in sorted(set(gaps) - always - sometimes)]
    faults += [f"named in {document} but covered or gone: {' '.join(key[:2])}: {key[2]}"
               for key in sorted(always - set(gaps))]
    faults += [f"{kind}: {count['all'].share():.2f} %, wanted {wanted} %"
               for kind, count, wanted in (("lines", lines, LINES_WANTED), ("branches", branches, BRANCHES_WANTED))
               if count["all"].share() < wanted]
    print("\n".join(faults) if faults else f"{len(gaps)} lines with a gap, each explained in {document}")
    return 1 if faults else 0


sys.exit(main())
