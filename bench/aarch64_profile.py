"""Puts together what count-aarch64.sh counted: a steady frame's instructions, its calls out of the library, and the
soft-float routines in the library.

  aarch64_profile.py FOLDER LIBRARY
"""

import glob
import json
import os
import re
import subprocess
import sys

FEW, MANY = 5, 105  # frames of the two runs
SOFT_FLOAT = re.compile(
    r"__(add|sub|mul|div|neg|pow|cmp|unord|eq|ne|lt|le|gt|ge|fix|fixuns|float|floatun|floatuns|extend|trunc)"
    r"([hsdt]f|[sdt]i)+\d?$")


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def base_of(folder, frames, library):
    """Where the loader put the library in that run."""
    (path,) = glob.glob(os.path.join(folder, f"loaded{frames}.*"))
    with open(path, encoding="utf-8") as file:
        text = file.read()
    found = re.search(re.escape(library) + r" \[0\];\s+generating link map.*?base: 0x([0-9a-f]+)", text, re.DOTALL)
    if not found:
        raise SystemExit(f"aarch64_profile.py: expected {path} to tell where {library} was loaded")
    return int(found.group(1), 16)


def counts(folder, frames):
    with open(os.path.join(folder, f"addresses{frames}"), encoding="utf-8") as file:
        return {int(address, 16): int(count) for address, count in map(str.split, file)}


def main():
    folder, library = sys.argv[1:]
    runs = {frames: (base_of(folder, frames, library), counts(folder, frames)) for frames in (FEW, MANY)}
    total = {frames: sum(run.values()) for frames, (_, run) in runs.items()}
    stubs = re.findall(r"^([0-9a-f]+) <(.+)@plt>:",
                       output_of("aarch64-linux-gnu-objdump", "-dC", "--section=.plt", library), re.MULTILINE)
    calls = {}
    for address, name in stubs:
        entered = {frames: run.get(base + int(address, 16), 0) for frames, (base, run) in runs.items()}
        if entered[MANY] != entered[FEW]:
            calls[name.split("(")[0]] = (entered[MANY] - entered[FEW]) / (MANY - FEW)
    names = {line.split()[-1] for line in output_of("aarch64-linux-gnu-nm", library).splitlines()}
    soft = sorted(name for name in names if SOFT_FLOAT.match(name.split("@")[0]))
    json.dump({"instructions": (total[MANY] - total[FEW]) / (MANY - FEW), "calls": calls, "soft_float": soft},
              sys.stdout)


main()
