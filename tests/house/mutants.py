"""Breaks the library in one place at a time, as mutants.txt tells, and sees to it that a test fails each time.

The tree is copied, built and its tests run once as they are; then each mutation is put in, the library alone is built
anew (the test programs load it), and the programs named for it are run until one fails. A program that goes on past
its time limit has failed, too.

usage: mutants.py check TABLE SOURCE-TREE          only whether each text to replace stands there exactly once
       mutants.py run TABLE SOURCE-TREE [WORD...]  the mutations whose file or texts hold one of the words; all without
"""
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

FEWEST = 60
TEST_SECONDS = 60


class Mutation:
    def __init__(self, file, programs):
        self.file, self.programs = file, programs
        self.old, self.new = [], []

    def texts(self):
        return "\n".join(self.old), "\n".join(self.new)

    def __str__(self):
        changed = [line.strip() for line in self.old if line not in self.new] or [""]
        instead = [line.strip() for line in self.new if line not in self.old] or ["(nothing)"]
        return f"{self.file}: {changed[0]}  ->  {instead[0]}"


def read_table(path):
    """A paragraph each: "file: program[=filter] ...", then the lines of the source with "-" and those instead with
    "+" in front."""
    mutations = []
    for number, line in enumerate(open(path).read().splitlines(), 1):
        heading = re.fullmatch(r"(\w+/\w+\.\w+): (.+)", line)
        if heading:
            mutations.append(Mutation(heading[1], heading[2].split()))
        elif line.startswith("-"):
            mutations[-1].old.append(line[1:])
        elif line.startswith("+"):
            mutations[-1].new.append(line[1:])
        elif line.strip() and not line.startswith("#"):
            sys.exit(f"{path}:{number}: neither a heading nor a line of source")
    return mutations


def faults_of(mutations, tree):
    for mutation in mutations:
        old, new = mutation.texts()
        count = open(os.path.join(tree, mutation.file)).read().count(old) if old else 0
        if count != 1 or old == new:
            yield f"{mutation.file}: stands there {count} times, or is not changed: {old.strip()}"
    if len(mutations) < FEWEST:
        yield f"only {len(mutations)} mutations, {FEWEST} wanted"


def build(tree, *targets):
    """The build's output where it fails, else null."""
    done = subprocess.run(["cmake", "--build", os.path.join(tree, "build/debug"), "--target", *targets],
                          capture_output=True, text=True)
    return None if done.returncode == 0 else done.stdout + done.stderr


def failure_of(tree, program):
    """What fails in the program, or null where all of it passes."""
    name, _, wanted = program.partition("=")
    folder = name.split("_")[0]
    command = [os.path.join(tree, "build/debug/tests", folder, name), "--gtest_fail_fast", "--gtest_brief=1"]
    if wanted:
        command.append("--gtest_filter=" + wanted)
    with tempfile.TemporaryFile() as output:
        running = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   cwd=os.path.dirname(command[0]), start_new_session=True)
        try:
            code = running.wait(timeout=TEST_SECONDS)
        except subprocess.TimeoutExpired:
            code = None
        try: # the children that a case left, and the program itself where it goes on
            os.killpg(running.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        running.wait()
        output.seek(0)
        text = output.read().decode(errors="replace")
    if code == 0:
        return "ran no test" if "[  PASSED  ] 0 tests" in text else None
    failed = re.findall(r"^\[  FAILED  \] (\w+\.\w+)", text, re.M)
    return failed[0] if failed else f"{name} went on for {TEST_SECONDS} s" if code is None else f"{name} ended by {code}"


def expect_sound(tree, programs):
    targets = sorted({program.partition("=")[0] for program in programs})
    fault = build(tree, "quarnelBE", *targets)
    if fault:
        sys.exit(f"the tree does not build:\n{fault}")
    for program in sorted(programs):
        failed = failure_of(tree, program)
        if failed:
            sys.exit(f"{program} fails without any mutation: {failed}")


def try_one(tree, mutation):
    """What finds the mutation, or a text that begins with "no test"."""
    path = os.path.join(tree, mutation.file)
    source = open(path).read()
    old, new = mutation.texts()
    open(path, "w").write(source.replace(old, new))
    try:
        fault = build(tree, "quarnelBE")
        if fault:
            return "no test: DOES NOT BUILD\n" + fault
        for program in mutation.programs:
            failed = failure_of(tree, program)
            if failed:
                return failed
        return "no test of " + " ".join(mutation.programs)
    finally:
        open(path, "w").write(source)


def run(mutations, source_tree):
    begin = time.monotonic()
    bad = 0
    with tempfile.TemporaryDirectory(prefix="qnmutants") as folder:
        tree = os.path.join(folder, "tree")
        shutil.copytree(source_tree, tree, symlinks=True, ignore=shutil.ignore_patterns("build", ".git"))
        # Without warnings, which are errors: a mutation may leave a variable unused.
        subprocess.run(["cmake", "--preset", "debug", "-DCMAKE_CXX_FLAGS=-w"], cwd=tree, check=True, stdout=subprocess.DEVNULL)
        expect_sound(tree, {program for mutation in mutations for program in mutation.programs})
        print(f"built, and {len(mutations)} mutations to go", flush=True)
        for mutation in mutations:
            found = try_one(tree, mutation)
            missed = found.startswith("no test")
            bad += missed
            print(f"{'MISSED' if missed else 'found '} {mutation}\n           by {found}", flush=True)
    print(f"{len(mutations) - bad} of {len(mutations)} mutations found by a test, {bad} not, "
          f"in {time.monotonic() - begin:.0f} s")
    return 1 if bad else 0


def main():
    what, table, tree, *words = sys.argv[1:]
    mutations = read_table(table)
    faults = list(faults_of(mutations, tree))
    if faults or what == "check":
        print("\n".join(faults) if faults else f"{len(mutations)} mutations, each text found once")
        return 1 if faults else 0
    chosen = [m for m in mutations if not words or any(word in m.file + "".join(m.old + m.new) for word in words)]
    return run(chosen, tree)


sys.exit(main())
