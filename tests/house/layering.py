"""A unit includes only what layers.txt allows it, and no file includes itself in a circle.

A unit is a header and source of one name in one folder: core/list is core/list.h and core/list.cpp. Its own header,
and core/export, are always allowed.

usage: layering.py SOURCE-TREE LAYERS-FILE
"""
import os
import re
import sys

FOLDERS = ("core", "buffers", "clock", "log", "dialer", "clipboard", "options", "regex")


def read_layers(path):
    layers = {}
    for line in open(path):
        line = line.split("#")[0].strip()
        if line:
            unit, uses = line.split(":")
            layers[unit.strip()] = set(uses.split())
    return layers


def includes(tree, path):
    """The files of the tree that this one includes, as paths from its top."""
    folder = os.path.dirname(path)
    for name in re.findall(r'^\s*#\s*include\s+"([^"]+)"', open(os.path.join(tree, path)).read(), re.M):
        yield os.path.normpath(os.path.join(folder, name))


def circle_through(path, graph, trail=()):
    if path in trail:
        return trail[trail.index(path):] + (path,)
    for target in graph.get(path, ()):
        found = circle_through(target, graph, trail + (path,))
        if found:
            return found
    return None


def main():
    tree, layers_file = sys.argv[1:]
    layers = read_layers(layers_file)
    files = [f"{folder}/{name}" for folder in FOLDERS for name in sorted(os.listdir(os.path.join(tree, folder)))
             if name.endswith((".h", ".cpp"))]
    graph = {path: list(includes(tree, path)) for path in files}
    faults, seen = [], set()
    for path, targets in graph.items():
        unit = os.path.splitext(path)[0]
        seen.add(unit)
        if unit not in layers and unit != "core/export":
            faults.append(f"{unit} has no line in {os.path.basename(layers_file)}")
            continue
        allowed = layers.get(unit, set()) | {unit, "core/export"}
        for target in targets:
            if os.path.splitext(target)[0] not in allowed:
                faults.append(f"{path} includes {target}, which layers.txt does not allow")
    faults += [f"layers.txt names {unit}, which does not exist" for unit in sorted(set(layers) - seen)]
    circle = next(filter(None, (circle_through(path, graph) for path in files)), None)
    if circle:
        faults.append("includes in a circle: " + " -> ".join(circle))
    print("\n".join(faults) if faults else f"{len(files)} files keep to {len(layers)} layers")
    return 1 if faults else 0


sys.exit(main())
