#!/usr/bin/env python3
"""Types what the tutorial tells to type and compares what comes back with the page.

usage: tutorial.py PAGE COMPILER-FLAGS

A fence behind a line that ends in a name in backquotes and a colon is a file of that name. In a console fence, what stands
behind "$ " is typed into one shell, and what follows up to the next is its answer. The environment has the tools, the
compiler and pkg-config find the library."""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import threading

END = "--end of answer--"
PATIENCE = 30  # seconds for one command


def fences(page):
    """Each fence's language and text, with the name of the file that the line before it tells."""
    pattern = r"(?:^([^\n]*)\n\n)?^```(\w*)\n(.*?)^```$"
    for before, language, text in re.findall(pattern, page, re.M | re.S):
        named = re.search(r"`([^`]+)`:$", before)
        yield named.group(1) if named else None, language, text


def steps(text):
    """The commands of a console fence, each with the answer that the page has."""
    for part in re.split(r"^\$ ", text, flags=re.M)[1:]:
        command, _, answer = part.partition("\n")
        yield command, answer


class Shell:
    def __init__(self, folder):
        self.process = subprocess.Popen(["bash"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        cwd=folder, text=True, bufsize=1, start_new_session=True)

    def answer(self, command):
        self.process.stdin.write(f"{command}\necho '{END}'\n")
        self.process.stdin.flush()
        impatient = threading.Timer(PATIENCE, lambda: os.killpg(self.process.pid, signal.SIGKILL))
        impatient.start()
        lines = []
        for line in self.process.stdout:
            if line == END + "\n":
                impatient.cancel()
                return "".join(lines)
            lines.append(line)
        sys.exit(f"$ {command}\n{''.join(lines)}(no answer within {PATIENCE} seconds)")


def main():
    page, flags = pathlib.Path(sys.argv[1]).read_text(), sys.argv[2:]
    typed = wrong = 0
    with tempfile.TemporaryDirectory() as folder:
        shell = Shell(folder)
        for name, language, text in fences(page):
            if name:
                (pathlib.Path(folder) / name).write_text(text)
            if language != "console":
                continue
            for command, expected in steps(text):
                found = shell.answer(command.replace("cc ", " ".join(["cc", *flags, ""])) if command.startswith("cc ") else command)
                typed += 1
                if found != expected:
                    wrong += 1
                    print(f"$ {command}\nthe page has:\n{expected}it is:\n{found}")
        shell.process.stdin.close()
        shell.process.wait(30)
    print(f"{typed} commands typed, {wrong} answered otherwise")
    return 1 if wrong or typed == 0 else 0


sys.exit(main())
