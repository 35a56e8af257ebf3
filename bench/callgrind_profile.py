"""Reads what callgrind wrote for bench-instructions: one dump per scenario, named after it."""

import collections
import glob
import os
import re

FRAMES = 100  # per dump


class Profile:
    """Counts of one scenario, per frame."""

    def __init__(self, path):
        self.scenario = None
        self.instructions = 0.0
        self.system_calls = 0.0
        self.self_cost = collections.Counter()  # instructions by function
        self.calls = collections.Counter()  # by called function
        function = called = None
        events = []
        with open(path, encoding="utf-8", errors="replace") as lines:
            for line in lines:
                line = line.rstrip("\n")
                if line.startswith("desc: Trigger: Client Request: "):
                    self.scenario = line.split(": ", 3)[3]
                elif line.startswith("events: "):
                    events = line.split()[1:]
                elif line.startswith("summary: "):
                    totals = dict(zip(events, map(int, line.split()[1:])))
                    self.instructions = totals["Ir"] / FRAMES
                    self.system_calls = totals.get("sysCount", 0) / FRAMES
                elif line.startswith("fn="):
                    function = line[3:]
                elif line.startswith("cfn="):
                    called = line[4:]
                elif line.startswith("calls="):
                    self.calls[called] += int(line[6:].split()[0]) / FRAMES
                    next(lines)  # the callee's inclusive cost
                elif re.match(r"[+*\-0-9]", line):
                    self.self_cost[function] += int(line.split()[1]) / FRAMES


def load(folder):
    """Profiles by scenario, of all dumps in the folder."""
    profiles = [Profile(path) for path in glob.glob(os.path.join(folder, "callgrind.out*"))]
    return {profile.scenario: profile for profile in profiles if profile.scenario}
