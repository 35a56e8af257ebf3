#!/usr/bin/env python3
"""Prints which folder of desk/ includes which, lowest floor first, and fails on an arrow up or a cycle."""
import collections, os, re, sys
FLOORS = """desk/abi desk/base
desk/output desk/synth desk/measure desk/host/rules desk/gl/driver
desk/clip desk/host/services desk/gl/yuv
desk/warp desk/host desk/gl/egl
desk/dump desk/motion desk/gl
desk/report
desk/run
desk/options
desk/cli desk/peers"""
floor = {folder: n for n, line in enumerate(FLOORS.split("\n")) for folder in line.split()}
arrows = collections.defaultdict(list)
wrong = []
for root, _, names in os.walk("desk"):
    for name in sorted(names):
        if not name.endswith((".h", ".cpp")):
            continue
        folder, path = root, os.path.join(root, name)
        if folder not in floor:
            wrong.append(f"{path}: {folder} stands on no floor"); continue
        for number, line in enumerate(open(path), 1):
            match = re.match(r'#include "(desk/[^"]+)"', line)
            if not match:
                continue
            target = match.group(1)
            if not os.path.exists(target):
                wrong.append(f"{path}:{number}: {target} does not exist")
            to = os.path.dirname(target)
            if to == folder:
                continue
            arrows[folder].append(to)
            if to not in floor or floor[to] >= floor[folder]:
                wrong.append(f"{path}:{number}: {folder} includes {target}")
for folder in sorted(floor, key=lambda f: (floor[f], f)):
    counts = collections.Counter(arrows[folder])
    print(f"{floor[folder]} {folder:20} -> " + ", ".join(f"{to} ({n})" for to, n in sorted(counts.items())))
for line in wrong:
    print(f"include-graph: {line}", file=sys.stderr)
sys.exit(1 if wrong else 0)
