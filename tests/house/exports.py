"""The built library exports the public names, all of them and no other, needs libc and the platform's library
alone, carries its own name, and runs nothing when it is loaded.

usage: exports.py LIBRARY NAMES-FILE
"""
import re
import subprocess
import sys


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def main():
    library, names_file = sys.argv[1:]
    wanted = {line.split("#")[0].strip() for line in open(names_file)} - {""}
    exported = {line.split()[-1] for line in run("nm", "-D", "--defined-only", library).splitlines()}
    faults = [f"exported but not public: {name}" for name in sorted(exported - wanted)]
    faults += [f"public but not exported: {name}" for name in sorted(wanted - exported)]

    dynamic = run("readelf", "-dW", library)
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
    faults += [f"needs {name}" for name in sorted(needed - {"libc.so.6", "libvxAPI.so"})]
    if "[libquarnelBE.so.1]" not in "".join(re.findall(r"\(SONAME\).*", dynamic)):
        faults.append("SONAME is not libquarnelBE.so.1")
    if "SYMBOLIC" in dynamic:
        faults.append("linked -Bsymbolic: executables could not replace the platform's operations")
    if "BIND_NOW" not in dynamic and "NOW" not in dynamic:
        faults.append("not bound at load time")
    if "GNU_RELRO" not in run("readelf", "-lW", library):
        faults.append("no RELRO")
    # One entry is the compiler's own frame_dummy; a second would be a constructor of ours.
    pointer = 4 if "ELF32" in run("readelf", "-h", library) else 8
    array = re.search(r"\(INIT_ARRAYSZ\)\s+(\d+)", dynamic)
    if array and int(array.group(1)) > pointer:
        faults.append("runs constructors when it is loaded")

    print("\n".join(faults) if faults else f"{len(wanted)} public names, all exported and no other")
    return 1 if faults else 0


sys.exit(main())
