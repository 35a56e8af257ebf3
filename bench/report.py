"""Puts the figures of one run of scripts/bench.sh together: prints the table and writes the document.

  report.py RESULTS DOCUMENT
"""

import json
import os
import platform
import re
import subprocess
import sys
import textwrap

import callgrind_profile

ALLOCATORS = ("malloc", "calloc", "realloc", "posix_memalign", "aligned_alloc", "operator new")

# What a function's instructions belong to; the first word found in its name decides.
STEPS = (
    ("mesh", ("UpdateRows", "UpdateMesh", "UpdateVertexAndTextureCoordinates")),
    ("grid copy", ("LumDewarpNode::DewarpImage", "memcpy", "memmove")),
    ("cache lookup", ("FindCached", "GetSourceTexture", "GetOutputFrameBuffer")),
    ("lock", ("Mutex", "pthread_mutex")),
    ("metadata", ("GetMetaData", "RenderRequest", "IsPreviewStreamPresent")),
    ("dependencies (first pass)", ("DeclareDependencies", "SetSequentialExecution", "QueryRequestWindow")),
    ("record checks", ("DewarpNodeProcRequest", "ProcessRequest", "CheckRecord")),
    ("GL calls, probes and arguments", ("",)),
)

TEMPLATE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "performance.md.in")


class Table:
    def __init__(self):
        self.rows = []
        self.missed = []

    def add(self, what, value, target="", is_met=None, why=""):
        verdict = "" if is_met is None else ("yes" if is_met else "**no**")
        self.rows.append((what, value, target, verdict))
        if is_met is False:
            self.missed.append(f"- {what}: {value}, wanted {target}. {why}".rstrip())

    def section(self, title):
        self.rows.append((f"**{title}**", "", "", ""))

    def text(self):
        return markdown(("figure", "measured", "target", "met"), self.rows)


def markdown(head, rows):
    """A table whose columns line up in plain text too."""
    rows = [head, *rows]
    widths = [max(len(str(row[i])) for row in rows) for i in range(len(head))]
    lines = ["| " + " | ".join(str(cell).ljust(width) for cell, width in zip(row, widths)) + " |" for row in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(lines)


def load(*path):
    with open(os.path.join(*path), encoding="utf-8") as file:
        return json.load(file)


def benchmarks(run):
    """Entries by name; of repeated ones the medians."""
    entries = [entry for entry in run["benchmarks"]
               if entry["repetitions"] == 1 or entry.get("aggregate_name") == "median"]
    return {re.sub(r"/(iterations|min_time):[^/]*|/manual_time", "", entry["run_name"]): entry for entry in entries}


def output_of(*command):
    return subprocess.run(command, check=False, stdout=subprocess.PIPE, text=True).stdout.strip()


def machine(renderer):
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = [line.split(": ", 1)[1].strip() for line in file if line.startswith("model name")]
    package = output_of("dpkg-query", "-W", "-f", "${Version}", "libgl1-mesa-dri")
    return "\n".join((
        f"- {models[0] if models else platform.machine()}, {os.cpu_count()} cores, Linux {platform.release()}",
        f"- {output_of('g++', '--version').splitlines()[0]}; {output_of('valgrind', '--version')}",
        f"- GL: {renderer}, Mesa {package}",
        f"- load over the last 5 and 15 minutes: {os.getloadavg()[1]:.1f} and {os.getloadavg()[2]:.1f}; above 1.5 on "
        "two cores the milliseconds are too high, the ratios less so, the counts not at all",
    ))


def add_instructions(table, counts, node):
    grid, floor = counts["grid"], counts["floor"]
    table.section("Steady frame on a null GL, 1920 x 1080")
    table.add("grid mode, both passes, instructions", f"{grid.instructions:,.0f}", "<= 12,000",
              grid.instructions <= 12000)
    first = counts["first pass"].instructions
    table.add("... of which first pass / second pass", f"{first:,.0f} / {grid.instructions - first:,.0f}")
    table.add("unity, instructions", f"{counts['unity'].instructions:,.0f}")
    allocations = sum(calls for name, calls in grid.calls.items() if name.startswith(ALLOCATORS))
    table.add("allocations", f"{allocations:g}", "0", allocations == 0)
    table.add("system calls", f"{grid.system_calls:g}", "0", grid.system_calls == 0)
    table.add("floor, instructions", f"{floor.instructions:,.0f}")
    ratio = grid.instructions / floor.instructions
    table.add("node / floor, instructions", f"{ratio:.3f}", "<= 1.25", ratio <= 1.25)
    times = [node[name]["cpu_time"] for name in ("SteadyFrame/grid", "FloorFrame")]
    table.add("node / floor, nanoseconds", f"{times[0]:,.0f} / {times[1]:,.0f} = {times[0] / times[1]:.2f}", "<= 1.25",
              times[0] <= 1.25 * times[1], "The steps below say where the time is.")
    ratio = counts["dumps"].instructions / counts["dump calls"].instructions
    table.add("dumps on, instructions", f"{counts['dumps'].instructions:,.0f}")
    table.add("dumps on / formatting calls alone", f"{ratio:.3f}", "<= 1.05", ratio <= 1.05)


def add_growth(table, counts):
    table.section("Growth, instructions a frame")
    for what, values, limit in (
            ("size", ("640x480", "1280x720", "1920x1080", "3840x2160"), 1),
            ("nodes", ("1", "2", "4", "8"), None),
            ("buffers", ("1", "2", "4", "8", "16", "32", "64"), 5)):
        figures = [counts[f"{what} {value}"].instructions for value in values]
        growth = 100.0 * (figures[-1] / figures[0] - 1.0)
        name = f"{what} {', '.join(values)}"
        measured = f"{', '.join(f'{figure:,.0f}' for figure in figures)}: {growth:+.2f} %"
        table.add(name, measured, f"<= {limit} %" if limit else "", growth <= limit if limit else None)


def same_picture(psnr):
    """Says so only when it is not: below this, pixels differ by more than roundings."""
    return "" if psnr >= 50.0 else ": not the same picture"


def add_pictures(table, desks):
    for threads, desk in enumerate(desks, start=1):
        table.section(f"Real pictures, threads: {threads}")
        for name in ("bare loop", "OpenCV remap", "vidstab transform"):
            for width, height in ((1280, 720), (1920, 1080), (3840, 2160)):
                entry = desk[f"PeerFrame/{name}/{width}"]
                measured = (f"{entry['desk_ms']:.1f} / {entry['peer_ms']:.1f} ms = {entry['ratio']:.2f}, "
                            f"{entry['psnr']:.0f} dB{same_picture(entry['psnr'])}")
                is_target = name == "bare loop" and width == 1920
                table.add(f"desk frame / {name}, {width} x {height}", measured, "<= 1.10" if is_target else "",
                          entry["ratio"] <= 1.10 if is_target else None)


def peer_sentence(desks):
    """Who is faster, from the figures: the remap of a CPU or the GL that the same CPU has to be."""
    ratios = [desk[f"PeerFrame/OpenCV remap/{width}"]["ratio"] for desk in desks for width in (1280, 1920, 3840)]
    bare = [desk[f"PeerFrame/bare loop/{width}"]["ratio"] for desk in desks for width in (1280, 1920, 3840)]
    verdict = "slower" if min(ratios) > 1.0 else ("faster" if max(ratios) < 1.0 else "slower or faster")
    return (f"The desk's frame is {verdict} than OpenCV's remap here, {min(ratios):.2f} to {max(ratios):.2f} of its "
            f"time. This machine has no GPU: its GL is software, which runs the shaders on the CPU that OpenCV has to "
            f"itself. Against the bare loop on the same GL, without node and desk, it takes {min(bare):.2f} to "
            f"{max(bare):.2f}: the rest is the GL's. On a GPU the draw leaves the CPU.")


def add_once(table, node, desk):
    table.section("Now and then, 1920 x 1080, threads: 2")
    for benchmark, name in (("Create", "creation"), ("FirstFrame", "first frame"),
                            ("ImportFrame", "frame with new buffers"), ("Destroy", "destruction")):
        whole = desk[benchmark]["real_time"]
        own = node[benchmark]["real_time"] / 1e6
        table.add(name, f"{whole:.2f} ms, of which the node {own:.4f} ms ({100.0 * own / whole:.2f} %)")


def add_aarch64(table, counted):
    """No storm of copies: beside the grid copy a frame calls none of these."""
    copies = sum(counted["calls"].get(name, 0) for name in ("memcpy", "memmove", "memset"))
    calls = ", ".join(f"{name} {count:g}" for name, count in sorted(counted["calls"].items()))
    table.section("AArch64, under the emulator")
    table.add("grid mode, both passes, instructions", f"{counted['instructions']:,.0f}", "<= 12,000",
              counted["instructions"] <= 12000)
    table.add("calls of memcpy, memmove and memset a frame", f"{copies:g}", "<= 1", copies <= 1)
    table.add("calls of imported functions a frame", calls)
    table.add("soft-float routines in the library", ", ".join(counted["soft_float"]) or "0", "0",
              not counted["soft_float"])


def step_of(function):
    return next(step for step, words in STEPS if any(word in function for word in words))


def step_rows(profile):
    sums = {step: 0.0 for step, _ in STEPS}
    for function, cost in profile.self_cost.items():
        sums[step_of(function)] += cost
    ordered = sorted(sums.items(), key=lambda row: -row[1])
    return [(step, f"{cost:,.0f}", f"{100.0 * cost / profile.instructions:.1f} %") for step, cost in ordered]


def nanosecond_rows(node):
    names = {"SteadyFrame/grid": "node, grid", "SteadyFrame/unity": "node, unity", "SteadyFrame/dumps": "node, dumps on",
             "SteadyFrame/640x480": "node, grid, 640 x 480", "SteadyFrame/3840x2160": "node, grid, 3840 x 2160",
             "SteadyFrame/64 buffers": "node, grid, 64 buffers", "FloorFrame": "floor",
             "DumpCallsFrame": "formatting calls alone"}
    return [(name, f"{node[benchmark]['cpu_time']:,.0f}") for benchmark, name in names.items()]


def nanosecond_steps(node):
    """Steps of the node's frame that can be timed alone; the rest is what the frame takes beyond them."""
    frame = node["SteadyFrame/grid"]["cpu_time"]
    names = {"Mesh": "mesh", "GridCopy": "grid copy", "FirstPass": "first pass: dependencies, its record checks",
             "LockAndUnlock": "lock and unlock, free"}
    steps = [(name, node[benchmark]["cpu_time"]) for benchmark, name in names.items()]
    rest = frame - sum(time for _, time in steps)
    steps.append(("the rest: GL calls and probes, cache lookup, metadata, record checks", rest))
    return [(name, f"{time:,.0f}", f"{100.0 * time / frame:.1f} %") for name, time in steps]


def main():
    results, document = sys.argv[1:]
    counts = callgrind_profile.load(os.path.join(results, "counts"))
    node = benchmarks(load(results, "node.json"))
    runs = [load(results, f"desk{threads}.json") for threads in (1, 2)]
    desks = [benchmarks(run) for run in runs]
    table = Table()
    add_instructions(table, counts, node)
    add_growth(table, counts)
    add_pictures(table, desks)
    add_once(table, node, desks[1])
    add_aarch64(table, load(results, "aarch64.json"))
    print(table.text())
    grid = counts["grid"]
    functions = [(f"`{name.replace('(anonymous namespace)::', '').split('(')[0]}`", f"{cost:,.0f}", step_of(name))
                 for name, cost in grid.self_cost.most_common(16)]
    missed = "\nMissed:\n\n" + "\n".join(table.missed) + "\n" if table.missed else ""
    with open(TEMPLATE, encoding="utf-8") as file:
        template = file.read()
    with open(document, "w", encoding="utf-8") as file:
        file.write(template.format(
            machine=machine(runs[0]["context"]["renderer"]), table=table.text(), notes=missed,
            steps=markdown(("step", "instructions", "share"), step_rows(grid)),
            functions=markdown(("function", "instructions", "step"), functions),
            nanoseconds=markdown(("a frame of", "ns"), nanosecond_rows(node)),
            nanosecond_steps=markdown(("step of the node's frame, timed alone", "ns", "share"),
                                      nanosecond_steps(node)),
            peers=textwrap.fill(peer_sentence(desks), 114)))


main()
