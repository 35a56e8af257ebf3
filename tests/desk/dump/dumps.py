#!/usr/bin/env python3
"""Dumps with one defect each, written here anew from docs/DUMPS.md, and what dewarp-desk says of them.

    dumps.py DEWARP_DESK [--store]

Everything that is said has to be as in said.txt; --store writes that file.
"""
import gzip
import math
import os
import pathlib
import subprocess
import sys
import tempfile

SAID = pathlib.Path(__file__).with_name("said.txt")
MESH_COLUMNS, MESH_ROWS = 33, 25


def line(request, numbers):
    return f"Frame {request}, {', '.join(numbers)} \n"


def grid(request, x, y=0.0, width=400, height=300, zoom=1.0):
    """The line of a grid that shows the input moved by x and y pixels."""
    points = [((width * (column / 32 - 0.5)) * zoom + x, (height * (row / 24 - 0.5)) * zoom + y)
              for row in range(-1, MESH_ROWS + 1) for column in range(-1, MESH_COLUMNS + 1)]
    return line(request, [str(width), str(height)] + [f"{value:.4f}" for point in points for value in point])


def mesh(request, first):
    """The line of a mesh whose first vertex lies at `first`, its neighbours 1/32 further."""
    floats = [first + at / 32 for i in range(413) for at in (i % MESH_COLUMNS, i // MESH_COLUMNS)]
    return line(request, [f"{floats[i + more]:.4f}" for i in range(825) for more in (0, 1)])


def clean():
    """20 lines that sway by a few pixels."""
    return [grid(n + 1, 5 * math.sin(0.4 * n), 2.5 * math.sin(0.4 * n)) for n in range(20)]


def path(*shifts):
    return [grid(n + 1, x) for n, x in enumerate(shifts)]


def put(number, n, text, lines=None):
    """The lines with the n-th number after the request id, from 0, of line `number`, from 1, another text."""
    lines = lines or clean()
    parts = lines[number - 1].split(", ")
    parts[n + 1] = text
    lines[number - 1] = ", ".join(parts)
    return lines


def replaced(number, text, lines=None):
    lines = lines or clean()
    lines[number - 1] = text
    return lines


def x_of(column, row):
    """Where x of a grid's point stands among the numbers of its line."""
    return 2 + 2 * (35 * row + column)


FIRST = grid(1, 3, 2)
INSPECTED = {
    "clean": clean(),
    "no-number": put(5, x_of(7, 3), "1x2"),
    "no-header": put(5, 1, "300.5"),
    "short": replaced(7, clean()[6].rsplit(", ", 1)[0] + " \n"),
    "long": replaced(7, clean()[6][:-2] + ", 0.0000 \n"),
    "no-frame": replaced(2, "Frame x\n"),
    "empty-line": replaced(2, "\n"),
    "nan": put(9, x_of(10, 10), "nan"),
    "infinite": put(10, x_of(11, 10) + 1, "-inf"),
    "far": put(3, x_of(20, 5), "43750000.0000"),
    "limit": put(3, x_of(0, 0), "-65536.0000"),
    "beyond-limit": put(3, x_of(0, 0), "-65536.0001"),
    "border-folds": put(12, x_of(0, 0), "9999.0000"),
    "fold": put(12, x_of(12, 8), "0.0000"),
    "no-area": put(12, x_of(1, 1), f"{400 * (1 / 32 - 0.5) + 5 * math.sin(4.4):.4f}"),
    "upside-down": [grid(1, 0, zoom=-1)],
    "jump": replaced(20, grid(20, 30, 20)),
    "six-times": path(0, 3, 6, 9, 26.99),
    "more-than-six-times": path(0, 3, 6, 9, 27.05),
    "percent": path(0, 0.1, 0.2, 4.19),
    "more-than-percent": path(0, 0.1, 0.2, 4.21),
    "gap": [grid(1, 0), grid(2, 3), grid(3, 6), grid(4, 9), grid(11, 30)],
    "late-gap": [grid(1, 0), grid(2, 0.1), grid(3, 0.2), grid(10, 29)],
    "back": [grid(2, 0), grid(1, 1), grid(3, 2)],
    "repeated": replaced(14, clean()[13].replace("Frame 14", "Frame 13")),
    "cut-off": replaced(20, clean()[19][:-1]),
    "reach": path(39, 40.0009, 40.0011, 41, 40.5),
    "reach-all": [grid(1, 41, 31), grid(2, -42, -33), grid(3, 40, 30.5), grid(4, 0, -30.25)],
    "other-header": put(1, 0, "402", path(41)),
    "vertices": [mesh(1, -0.5), mesh(2, -0.5), mesh(3, -0.5001)],
    "vertices-move": [mesh(1, -0.5), mesh(2, -0.5), mesh(3, -0.501)],
    "texture": [mesh(7, 0), mesh(8, 0.125), mesh(9, 0.0)],
    "copies-differ": put(2, 10, "0.0001", [mesh(7, 0), mesh(8, 0)]),
    "mesh-nan": put(2, 0, "nan", [mesh(7, 0), mesh(8, 0)]),
    "most-id": [grid(18446744073709551615, 0)],
    "id-too-large": [grid(1, 0), grid(18446744073709551616, 0)],
    "swapped": clean()[:4] + clean()[5:3:-1] + clean()[6:],
    "missing-and-swapped": clean()[:4] + [clean()[8], clean()[6]],
    "one-line-ends-crlf": replaced(3, clean()[2].replace("\n", "\r\n")),
    "control": replaced(3, "Frame 3, \33[31mred\7\n"),
    "many": clean()[:1] + ["Frame x\n"] * 1000 + clean()[1::2],
}
ZIPPED = gzip.compress("".join(clean()).encode(), mtime=0)
NO_DUMPS = {
    "empty": b"",
    "other": b"RIFF",
    "half-word": b"Frame",
    "no-lines": b"\n\n",
    "bom": b"\xef\xbb\xbf" + FIRST.encode(),
    "utf-16": FIRST.encode("utf-16"),
    "all-lines-end-crlf": "".join(clean()[:3]).replace("\n", "\r\n").encode(),
    "endless": b"Frame " + bytes(3 << 20),
    "gzip": ZIPPED,
    "gzip-cut-off": ZIPPED[:-100],
    "gzip-damaged": ZIPPED[:200] + b"    " + ZIPPED[204:],
    "gzip-of-bom": gzip.compress(b"\xef\xbb\xbf" + FIRST.encode()),
}
COMPARED = {
    "same": clean(),
    "lacks-three-times": clean()[1:3] + clean()[6:9] + clean()[10:],
    "has-one-more": clean() + [grid(21, 0)],
    "turned-round": clean()[::-1],
    "repeats": clean()[:3] + clean()[2:],
    "fourth-decimal": replaced(7, clean()[6].replace("8 \n", "9 \n")),
    "thousandth": [grid(n + 1, 5 * math.sin(0.4 * n) + 0.001, 2.5 * math.sin(0.4 * n)) for n in range(20)],
    "third-decimal": [grid(n + 1, 5 * math.sin(0.4 * n) + 0.0011, 2.5 * math.sin(0.4 * n)) for n in range(20)],
    "header": put(4, 1, "301"),
    "every-second": [grid(100 + 2 * n, 0) for n in range(30)],
    "vertices-last-decimal": [mesh(1, -0.5), mesh(2, -0.5001), mesh(3, -0.5001)],
    "vertices-apart": [mesh(1, -0.5), mesh(2, -0.5002), mesh(3, -0.5001)],
}
TOLERATED = [item for item in COMPARED.items() if item[0] in ("fourth-decimal", "thousandth", "vertices-apart")]
REPLAYED = {
    "fits": (FIRST, (400, 300)),
    "fits-more-or-less": (FIRST, (404, 304)),
    "quarter-smaller": (grid(1, 0, zoom=0.806), (402, 302)),
    "more-than-a-quarter-smaller": (grid(1, 0, zoom=0.8), (402, 302)),
    "quarter-larger": (grid(1, 0, zoom=1.256), (402, 302)),
    "more-than-a-quarter-larger": (grid(1, 0, zoom=1.26), (402, 302)),
    "says-its-size": (grid(1, 0, zoom=2), (400, 300)),
    "wider": (FIRST, (640, 300)),
    "lower": (FIRST, (400, 200)),
    "twice": (FIRST + FIRST, (400, 300)),
    "not-texture": (mesh(1, 0), (400, 300)),
    "not-vertices": (mesh(1, -0.5), (400, 300)),
    "cut-off-line": (FIRST[:-1], (400, 300)),
    "cut-off-value": (FIRST[:40], (400, 300)),
    "far": (grid(1, 4e6), (400, 300)),
    "mesh-is-nan": ("".join(put(1, 9, "nan", [FIRST])), (400, 300)),
    "gap": (grid(1, 0) + grid(3, 0), (400, 300)),
    "swapped": (grid(2, 0) + grid(1, 0), (400, 300)),
}
TIES = [], ["--first-request", "1"], ["--gaps", "skip"]


def main():
    said = ""
    with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as no_gl:
        # What is refused is refused before there is a GL.
        pathlib.Path(no_gl, "libEGL.so.1").touch()
        environment = os.environ | {"LD_LIBRARY_PATH": no_gl}

        def desk(*words):
            done = subprocess.run([sys.argv[1], *words], cwd=folder, capture_output=True, text=True, env=environment)
            return done.stdout + done.stderr

        def inspect(names, *options):
            return f"== {' '.join(options)}\n" + desk("inspect", *names, *options)

        for name, lines in INSPECTED.items():
            pathlib.Path(folder, name).write_text("".join(lines))
        said += inspect(INSPECTED, "--size", "320x240")
        said += inspect(["clean", "reach", "reach-all"], "--size", "320x240", "--margin", "0.26,0.3")
        said += inspect(["clean"], "--size", "394x296") + inspect(["clean"])
        said += desk("inspect", "gap", "nan", "reach-all", "--size", "320x240", "--json", "-")
        for name, data in NO_DUMPS.items():
            pathlib.Path(folder, name).write_bytes(data)
            said += desk("inspect", name)
        for tolerance in [], ["--tolerance", "0.00005"], ["--tolerance", "0.0005"]:
            said += f"== diff {' '.join(tolerance)}\n"
            for name, lines in COMPARED.items() if not tolerance else TOLERATED:
                pathlib.Path(folder, name).write_text("".join(lines))
                said += f"{name}: " + desk("diff", "clean" if name[0] != "v" else "vertices", name, *tolerance)
        said += "== replay\n"
        for name, (text, (width, height)) in REPLAYED.items():
            pathlib.Path(folder, name).write_text(text)
            pathlib.Path(folder, "a.y4m").write_bytes(f"YUV4MPEG2 W{width} H{height} F25:1 C420jpeg\nFRAME\n".encode() +
                                                      bytes(width * height * 3 // 2))
            for tie in TIES if name in ("twice", "gap", "swapped") else TIES[:1]:
                answer = desk("replay", "a.y4m", "--grids", name, "--size", "320x200", "-o", "b.y4m", *tie)
                said += f"{' '.join([name] + tie)} is taken\n" if "give no context" in answer else answer
        # A camera that stands still needs the grids that change nothing.
        pathlib.Path(folder, "photo.ppm").write_bytes(b"P6 160 120 255\n" + bytes(160 * 120 * 3))
        said += desk("synth", "photo.ppm", "-o", "a.mkv", "--grids", "made", "--truth", "b.mkv", "--size", "64x48",
                     "--margin", "0.5", "--length", "2", "--shake", "0", "--progress", "none")
        if pathlib.Path(folder, "made").read_text() != grid(1, 0, 0, 96, 72) + grid(2, 0, 0, 96, 72):
            sys.exit("dumps.py: synth writes another dump than the one of a camera that stands still")
    if sys.argv[2:] == ["--store"]:
        SAID.write_text(said)
    elif said != SAID.read_text():
        subprocess.run(["diff", SAID, "-"], input=said, text=True)
        sys.exit("dumps.py: other things are said of the dumps than said.txt holds")


main()
