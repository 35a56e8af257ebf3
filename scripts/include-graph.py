#!/usr/bin/env python3
"""Prints which folder of desk/ includes which, the lowest floor first. Fails on an arrow that does not go down, on a
folder without a floor, and on what a header declares and another file than its own source defines.

    scripts/include-graph.py
"""
import collections
import os
import re
import sys

# A folder includes those of lower floors alone; folders of one floor do not know one another, nor do host and gl, which
# are libraries of their own.
FLOORS = """desk/abi desk/base
desk/output desk/synth desk/measure desk/host/rules desk/gl/driver
desk/clip desk/host/services desk/gl/yuv
desk/warp desk/host desk/gl/egl
desk/dump desk/motion desk/gl
desk/report
desk/run
desk/options
desk/cli desk/peers"""

INCLUDE = re.compile(r'#include "(desk/[^"]+)"')
# A declaration or definition of a function in a namespace, and the definition of a member.
FUNCTION = re.compile(r"^(?!using |namespace |class |struct |extern )\w[\w:<>,&*\[\] ]*[ &*](\w+)\([^;{]*?\)[^;{}]*?([;{])", re.M)
MEMBER = re.compile(r"^(?:\w[\w:<>,&*\[\]\" ]*[ &*])?(\w+)::~?\w+\(", re.M)
CLASS = re.compile(r"^ *(?:class|struct) (?:\w+\(.*?\) )?(\w+)(?= *[:{]| final)", re.M)


def read_sources():
    sources = {}
    for folder, _, names in os.walk("desk"):
        for name in names:
            if name.endswith((".h", ".cpp")):
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    sources[os.path.join(folder, name)] = file.read()
    return sources


def check_floors(sources, floor_of):
    """The arrows by folder, and a sentence for each that does not go down."""
    arrows = collections.defaultdict(collections.Counter)
    wrong = []
    for path, text in sorted(sources.items()):
        folder = os.path.dirname(path)
        if folder not in floor_of:
            wrong.append(f"{path}: {folder} stands on no floor")
            continue
        for number, line in enumerate(text.split("\n"), 1):
            match = INCLUDE.match(line)
            to = os.path.dirname(match.group(1)) if match else folder
            if to == folder:
                continue
            arrows[folder][to] += 1
            pair = {folder.split("/")[1], to.split("/")[1]}
            if floor_of.get(to, len(floor_of)) >= floor_of[folder] or pair == {"host", "gl"}:
                wrong.append(f"{path}:{number}: {folder} includes {match.group(1)}, which does not stand below it")
    return arrows, wrong


def check_places(sources):
    """A sentence for each thing that one file declares and another defines."""
    wrong = []
    for path, text in sorted(sources.items()):
        other = path[:-2] + ".cpp" if path.endswith(".h") else path[:-4] + ".h"
        if path.endswith(".h") and other in sources:
            defined = {name for name, end in FUNCTION.findall(sources[other] + text) if end == "{"}
            missing = [name for name, end in FUNCTION.findall(text) if end == ";" and name not in defined]
            wrong += [f"{path}: {name} is not defined in {other}" for name in missing]
        elif path.endswith(".cpp"):
            declared = set(CLASS.findall(text + sources.get(other, "")))
            for name in sorted(set(MEMBER.findall(text)) - declared):
                for header in sorted(sources):
                    if header.endswith(".h") and name in CLASS.findall(sources[header]):
                        wrong.append(f"{path}: defines members of {name}, which {header} declares")
    return wrong


def main():
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    floor_of = {folder: floor for floor, line in enumerate(FLOORS.split("\n")) for folder in line.split()}
    sources = read_sources()
    arrows, wrong = check_floors(sources, floor_of)
    for folder in sorted(floor_of, key=lambda name: (floor_of[name], name)):
        to = ", ".join(f"{name} ({count})" for name, count in sorted(arrows[folder].items()))
        print(f"{floor_of[folder]} {folder:19} {'-> ' + to if to else ''}".rstrip())
    wrong += check_places(sources)
    for sentence in wrong:
        print(f"include-graph: {sentence}", file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
