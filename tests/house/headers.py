"""Each public header compiles alone, pedantically, as C11 and as C++17, from the tree and from an installed layout.

usage: headers.py SOURCE-TREE C-COMPILER C++-COMPILER -m32|-m64
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

WARNINGS = ["-fsyntax-only", "-pedantic", "-Wall", "-Wextra", "-Wstrict-prototypes", "-Werror"]


def public_headers(tree):
    text = open(os.path.join(tree, "quarnel.h")).read()
    return ["quarnel.h"] + re.findall(r'#include "([^"]+)"', text)


def declared_elsewhere(tree, headers):
    """Headers of the library's folders that quarnel.h leaves out must be internal: they export nothing."""
    for folder in ("core", "buffers", "clock", "log", "dialer", "clipboard", "options", "regex"):
        for name in sorted(os.listdir(os.path.join(tree, folder))):
            path = f"{folder}/{name}"
            if name.endswith(".h") and path not in headers and path != "core/export.h":
                if "QN_API" in open(os.path.join(tree, path)).read():
                    yield f"{path} exports names, but quarnel.h does not include it"


def compile_alone(compiler, language, standard, word_size, include_dir, header):
    source = f'#include "{header}"\n'
    command = [compiler, "-x", language, f"-std={standard}", word_size, *WARNINGS, "-I", include_dir, "-"]
    if language == "c++":
        command.remove("-Wstrict-prototypes")
    done = subprocess.run(command, input=source, capture_output=True, text=True)
    return None if done.returncode == 0 else f"{header} as {standard}:\n{done.stderr}"


def main():
    tree, c_compiler, cxx_compiler, word_size = sys.argv[1:]
    headers = public_headers(tree)
    faults = list(declared_elsewhere(tree, headers))
    with tempfile.TemporaryDirectory() as installed:
        for header in headers + ["core/export.h", "platform/vxAPI.h", "platform/String.h"]:
            target = os.path.join(installed, "quarnel", header)
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(os.path.join(tree, header), target)
        for header in headers:
            for compiler, language, standard in ((c_compiler, "c", "c11"), (cxx_compiler, "c++", "c++17")):
                for include_dir, name in ((tree, header), (installed, "quarnel/" + header)):
                    faults.append(compile_alone(compiler, language, standard, word_size, include_dir, name))
    faults = [fault for fault in faults if fault]
    print("\n".join(faults) if faults else f"{len(headers)} headers compile alone")
    return 1 if faults else 0


sys.exit(main())
