#!/usr/bin/env python3
"""Holds the bytes that the pages of section 5 show against what the tools write and read.

usage: formats.py SOURCE TOOLS

Rows of a literal block that begin with pairs of hexadecimal digits are bytes; what stands behind two blanks tells them."""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

PAGES, TOOLS = pathlib.Path(sys.argv[1]) / "man/man5", pathlib.Path(sys.argv[2])
BYTES = re.compile(r"^((?:[0-9A-F]{2})(?: [0-9A-F]{2})*)(?: {2,}.*| \.\.\..*)?$")
ENVIRONMENT = {"PATH": os.environ["PATH"], "TZ": "UTC"}
failures = []


def require(page, what, expected, found):
    if expected != found:
        failures.append(f"{page}: {what}: the page has {expected!r}, it is {found!r}")


def blocks(page):
    """The literal blocks of a page, as people read them."""
    text = (PAGES / page).read_text()
    found = re.findall(r"^\.Bd -literal.*?\n(.*?)^\.Ed$", text, re.M | re.S)
    return [block.replace("\\(aq", "'").replace("\\&", "").replace("\\e", "\\") for block in found]


def rows(page):
    """The bytes of each row, all blocks of the page in one list."""
    lines = [line for block in blocks(page) for line in block.splitlines()]
    return [bytes.fromhex(found.group(1)) for found in map(BYTES.match, lines) if found]


def plain(text):
    """<1C> in a text is that byte."""
    return re.sub(rb"<([0-9A-F]{2})>", lambda found: bytes.fromhex(found.group(1).decode()), text.encode())


def run(tool, *arguments, **options):
    return subprocess.run([TOOLS / tool, *arguments], stdout=subprocess.PIPE, check=True, env=ENVIRONMENT, **options).stdout


def compiled(source, folder):
    path = pathlib.Path(folder) / "source.toml"
    path.write_text(source)
    run("qncatalog", "--quiet", "--log-root", folder, path)
    return pathlib.Path(folder)


def big_endian(data, offset, width=4):
    return int.from_bytes(data[offset:offset + width], "big")


def records():
    page = "logrecord.5"
    text = plain(blocks(page)[0].strip())
    require(page, "the record in a log file", b"".join(rows(page)), text[8:] + b"\n")


def frames():
    page = "logframe.5"
    short, long, line = rows(page)
    require(page, "the short frame", short, b"005hello")
    require(page, "the long frame's header", long, b"<4>1234")
    require(page, "the line", line, b"   on\n")


def compressed_formats():
    page = "cmpLogFmt.5"
    shown = rows(page)
    table = b"".join(shown[:5])
    require(page, "the count", big_endian(table, 0), 2)
    formats = table[4 + 2 * 2:]
    require(page, "the formats", [formats[big_endian(table, 4 + 2 * i, 2):].split(b"\0")[0] for i in range(2)], [b"%d", b"%s"])


def texts():
    page = "textLogFmt.5"
    file = plain(blocks(page)[0].strip("\n"))
    for entry, expected in enumerate((b"line %s is up", b"%s%% done")):
        offset, length = map(int, file[16 * entry:16 * entry + 16].split())
        require(page, f"text {entry}", file[offset:offset + length], expected)
    require(page, "the first entry", b"".join(rows(page)), file[:16])


def catalogue():
    page = "catalogue.5"
    source, offsets, _, record = blocks(page)
    with tempfile.TemporaryDirectory() as folder:
        root = compiled(source, folder)
        files = {name: (root / name).read_bytes() for name in ("cmpLogFmt", "textLogFmt", "dataDictLog", "ddMapLog", "msgDstPri")}
        require(page, "the dictionary's line", re.search(r"102\|.*#", offsets).group(),
                files["dataDictLog"].split(b"\n")[1].decode().replace("\x1C", "|").replace("\x1D", "#"))
        name, held = "", 0
        for line in offsets.splitlines():
            name = line if line in files else name
            at = re.match(r"^  ([0-9 +x]+?) {2,}((?:[0-9A-F]{2} ?)+)(?: {2,}|$)", line)
            if not at:
                continue
            offset = sum(int(part.split("x")[0]) * int((part.split("x") + ["1"])[1]) for part in at.group(1).split("+"))
            expected = bytes.fromhex(at.group(2))
            require(page, f"{name} at {offset}", expected, files[name][offset:offset + len(expected)])
            held += 1
        require(page, "rows held", 9, held)
        entry = re.search(r'16 x 102 +"(.*)", 0A', offsets).group(1)
        require(page, "textLogFmt at 16 x 102", entry.encode() + b"\n", files["textLogFmt"][16 * 102:16 * 103])
        headers = blocks("logSymbols.5")
        for name, block in zip(("head/systemLog.h", "head/logNET.h"), headers):
            inside = re.search(r"#define QN_.*?\n\n(.*)\n#endif", (root / name).read_text(), re.S).group(1)
            require("logSymbols.5", name, block, inside)
        require("logSymbols.5", "the line's bytes", b"".join(rows("logSymbols.5")), b"#define NET_DOWN logNET(3)")
        shown = run("qnlog", "--log-root", folder, "--format", "%M", "-", input=plain(record.strip()))
        require(page, "the record's text", b"Host alpha: port    80 is down\n", shown.replace(b"\n\n", b"\n"))


def dictionary():
    page = "dataDictLog.5"
    shown = rows(page)
    line = blocks(page)[0].strip().replace("|", "\x1C").replace("#", "\x1D").encode() + b"\n"
    require(page, "the line's bytes", b"".join(shown[:5]), line)
    index = b"".join(shown[5:])
    require(page, "the index's size", big_endian(index, 4), len(index))


def destinations():
    page = "logDstPri.5"
    shown = rows(page)
    table, compiled_rows = b"".join(shown[:4]), b"".join(shown[4:])
    words = [int.from_bytes(table[i:i + 4], "little") for i in range(0, len(table), 4)]
    require(page, "the compiled file", compiled_rows, b"".join(word.to_bytes(4, "big") for word in words[:1] + words[4:]))
    with tempfile.TemporaryDirectory() as folder:
        compiled(blocks("catalogue.5")[0].replace('name = "NET"', 'name = "CALL"').replace("NET_UP", "DB_UP"), folder)
        rules = pathlib.Path(folder) / "msgDst.rules"
        rules.write_text(blocks(page)[0])
        key = {"LOGDSTPRISHMKEY": str(0x53000000 + os.getpid())}
        environment = ENVIRONMENT | key
        subprocess.run([TOOLS / "logDstPri", "--quiet", "--log-root", folder], check=True, env=environment)
        subprocess.run([TOOLS / "logDstPri", "--quiet", "--log-root", folder, "--remove"], check=True, env=environment)


def clipboards():
    page = "clipboard.5"
    file = blocks(page)[1]
    require(page, "the second line's bytes", b"".join(rows(page)).decode(), file.splitlines()[1] + "\n")
    with tempfile.NamedTemporaryFile("w+") as clipboard:
        clipboard.write(file)
        clipboard.flush()
        require(page, "its value", b"span 2\n", run("qnclip", clipboard.name, "get", "TRUNK"))
        run("qnclip", clipboard.name, "set", "CALLS", "17")
        require(page, "the file rewritten", file, open(clipboard.name).read())


def options():
    page = "optionsfile.5"
    require(page, "the second line's bytes", b"".join(rows(page)).decode(), blocks(page)[0].splitlines()[1] + "\n")


def line_scripts():
    page = "linescript.5"
    words = re.sub(r"#.*", "", blocks(page)[0]).split()
    require(page, "the first block", b"".join(rows(page)).decode().split(), words[:6])


def layouts():
    page = "logformat.5"
    shown = rows(page)
    expected = blocks(page)[0].strip().splitlines()[-1].split("  ")[0]
    with tempfile.TemporaryDirectory() as folder:
        compiled('[[class]]\nname = "XX"\nstart = 12\npriority = 0\n[[class.message]]\nnumber = 1\nsymbol = "CALL"\n'
                 'text = "call %s"\nfields = [{ name = "it" }]\n', folder)
        found = run("qnlog", "--log-root", folder, "--format", "%T(%H:%M:%S) %N %M", "-", input=b"".join(shown) + b"\n")
        require(page, "the expansion", expected, found.decode().strip())


for check in (records, frames, compressed_formats, texts, catalogue, dictionary, destinations, clipboards, options,
              line_scripts, layouts):
    check()
print("\n".join(failures) or "every byte shown is as it is")
sys.exit(1 if failures else 0)
