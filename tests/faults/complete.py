"""Every public name is swept with faults, or listed with the reason why not; prints what is neither, or both.

usage: complete.py SOURCE-TREE
"""
import glob
import os
import re
import sys


def words_of(path):
    return {word for line in open(path) for word in line.split("#")[0].split()}


def main():
    tests = os.path.join(sys.argv[1], "tests")
    public = words_of(os.path.join(tests, "house", "public-names.txt"))
    listed = words_of(os.path.join(tests, "faults", "not-swept.txt"))
    swept = set()
    for path in glob.glob(os.path.join(tests, "faults", "*_test.cpp")):
        swept |= set(re.findall(r'\{\s*"([A-Za-z0-9]+)(?:_\w+)?",\s*Fresh::', open(path).read()))
    problems = [f"{name} is neither swept nor listed" for name in public - swept - listed]
    problems += [f"{name} is swept and listed" for name in swept & listed]
    problems += [f"{name} is not exported" for name in (swept | listed) - public]
    print("\n".join(sorted(problems)) or f"{len(swept)} names swept, {len(listed)} listed")
    return 1 if problems else 0


sys.exit(main())
