"""Runs a small example in a folder of its own and compares what it prints, byte for byte, with the file beside its
source. The folder is its log root, with the sample catalogue; where a daemon is given, that reads the pipe meanwhile,
and what it has logged follows the example's own output, without the times.

usage: run.py [--update] PROGRAM EXPECTED SAMPLE-ROOT [DAEMON LOG-VIEWER]
"""
import difflib
import os
import shutil
import subprocess
import sys
import tempfile


LAYOUT = "%P%N %S:%L %M"


def environment(folder, **more):
    keep = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS") or name.startswith("LD_")}
    own = {"PATH": "/usr/bin:/bin", "TZ": "UTC", "LC_ALL": "C", "LOGROOT": folder,
           "LOGDSTPRISHMKEY": "0x5155AAAB"}  # a table that is not there
    return {**keep, **own, **more}


def run(command, folder, **more):
    return subprocess.run(command, cwd=folder, env=environment(folder, **more), stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)


def run_with_daemon(command, folder, daemon, viewer):
    with subprocess.Popen([daemon], cwd=folder, env=environment(folder), stdout=subprocess.PIPE) as logging:
        logging.stdout.readline()  # it reads the pipe now
        done = run(command, folder, LOGFORMAT=LAYOUT + "\n")
        logging.terminate()
        logging.stdout.read()
    view = run([viewer, "--color=never", "--format", LAYOUT, "logfile"], folder)
    done.stdout += b"-- the log --\n" + view.stdout
    return done


def main():
    update = sys.argv[1] == "--update"
    program, expected_file, sample_root, *tools = map(os.path.abspath, sys.argv[1 + update:])
    with tempfile.TemporaryDirectory() as parent:
        folder = os.path.join(parent, "root")
        shutil.copytree(sample_root, folder)
        done = run_with_daemon([program], folder, *tools) if tools else run([program], folder)
    if update:
        open(expected_file, "wb").write(done.stdout)
        return 0
    expected = open(expected_file, "rb").read()
    if done.returncode != 0:
        print(f"{program} ended with {done.returncode}")
    if done.stdout != expected:
        lines = [text.decode("latin-1").splitlines(keepends=True) for text in (expected, done.stdout)]
        sys.stdout.writelines(difflib.unified_diff(*lines, expected_file, program))
    return 1 if done.returncode != 0 or done.stdout != expected else 0


sys.exit(main())
