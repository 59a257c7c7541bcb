"""Every public name is used by some test; prints each with the test files that use it.

usage: tested.py SOURCE-TREE NAMES-FILE
"""
import glob
import os
import re
import sys


def main():
    tree, names_file = sys.argv[1:]
    names = [line.split("#")[0].strip() for line in open(names_file)]
    # The C++ names are mangled: the plain one stands between the length and the parameters.
    plain = {name: re.sub(r"^_Z\d+(QN_[a-z0-9]+)P9chan_info.*", r"\1", name) for name in names if name}
    words = {}
    for path in sorted(glob.glob(os.path.join(tree, "tests", "*", "*_test.cpp"))):
        words[os.path.relpath(path, os.path.join(tree, "tests"))] = set(re.findall(r"\w+", open(path).read()))
    untested = []
    for name in plain.values():
        files = [path for path, used in words.items() if name in used]
        print(f"{name}: {' '.join(files) or 'no test'}")
        if not files:
            untested.append(name)
    return 1 if untested else 0


sys.exit(main())
