#!/usr/bin/env python3
"""Makes the inputs of cases.txt, and looks at what a row's runs have left.
  look.py photo >FILE           a photograph of noise at two scales, in which every movement shows
  look.py inputs                what the rows need beside what the program itself makes
  look.py harm CLIP TO          the clip with some of its bytes overwritten
  look.py terminal N PROGRAM... the program on a terminal of so many columns, and what it says there
  look.py check EXPRESSION WORK whether the expression is true in the row's folder"""
import fcntl
import glob
import json
import math
import os
import random
import re
import struct
import subprocess
import sys
import termios
import zlib


def photo(width=480, height=360):
    rng = random.Random(3)
    planes = []
    for _ in range(3):
        plane = [0.0] * (width * height)
        for cell, share in ((24, 0.6), (8, 0.4)):
            knots = [[rng.random() for _ in range(width // cell + 2)] for _ in range(height // cell + 2)]
            for y in range(height):
                row, v = divmod(y, cell)
                line = [a + (b - a) * v / cell for a, b in zip(knots[row], knots[row + 1])]
                for x in range(width):
                    column, u = divmod(x, cell)
                    plane[y * width + x] += share * (line[column] + (line[column + 1] - line[column]) * u / cell)
        planes.append(bytes(int(255 * value) for value in plane))
    return b"P6\n%d %d\n255\n" % (width, height) + bytes(v for rgb in zip(*planes) for v in rgb)


class Picture:
    """A frame of 8-bit 4:2:0."""

    def __init__(self, width, height, samples):
        self.width, self.height = width, height
        self.luma, self.chroma = samples[: width * height], samples[width * height :]

    def part(self, x, y, width, height):
        """The rows of its three planes."""
        half = len(self.chroma) // 2
        planes = [(self.luma, 1), (self.chroma[:half], 2), (self.chroma[half:], 2)]
        at = lambda n, by: n * self.width // by + x // by
        return [p[at(n, by) : at(n, by) + width // by] for p, by in planes for n in range(y // by, (y + height) // by)]

    def __eq__(self, other):
        return (self.luma, self.chroma) == (other.luma, other.chroma)


def header(name):
    return open(name, "rb").readline().decode().split()


def clip(name):
    data = open(name, "rb").read()
    start = data.index(b"\n") + 1
    width, height = (int(word[1:]) for word in header(name)[1:3])
    size = len(b"FRAME\n") + width * height * 3 // 2
    assert (len(data) - start) % size == 0, name
    return [Picture(width, height, data[at + 6 : at + size]) for at in range(start, len(data), size)]


def squares(ones, others):
    return sum((a - b) ** 2 for a, b in zip(ones, others)) / len(ones)


def psnr(ones, others, plane="luma"):
    """Over all frames, and of the worst one."""
    errors = [squares(getattr(a, plane), getattr(b, plane)) for a, b in zip(ones, others)]
    return [10 * math.log10(255 * 255 / error) for error in (sum(errors) / len(errors), max(errors))]


def near(value, wanted, tolerance=0.01):
    return all(abs(a - b) <= tolerance for a, b in zip(value, wanted))


def results(name="out.json"):
    return json.load(open(name))


def numbers(name="out.json"):
    return [frame["frame"] for frame in results(name)["frames"]]


def left():
    """The files, and the folders with nothing in them."""
    names = (name for name in glob.glob("**/*", recursive=True) if not name.startswith("in"))
    return sorted(name for name in names if os.path.isfile(name) or (os.path.isdir(name) and not os.listdir(name)))


def jpeg(name):
    """Its width and height, as its frame header has them."""
    data = open(name, "rb").read()
    at = data.index(b"\xff\xc0") + 5
    return int.from_bytes(data[at + 2 : at + 4], "big"), int.from_bytes(data[at : at + 2], "big")


def documented():
    """The JSON's names in docs/DESK.md."""
    text = open(os.path.join(os.path.dirname(__file__), "../../../docs/DESK.md")).read()
    rows = re.findall(r"^\| (`.*?) \|", text[text.index("The JSON's names:") :].split("\n## ")[0], re.M)
    return {name for row in rows for name in re.findall(r"`(\w+)`", row)}


def inputs():
    shaky = open("shaky.y4m", "rb").read()
    still, grids = open("still.txt").read(), open("grids.txt").read()
    frame = len(b"FRAME\n") + 192 * 144 * 3 // 2
    start = shaky.index(b"\n") + 1

    def write(name, data):
        open(name, "wb").write(data if isinstance(data, bytes) else data.encode())

    def y4m(width, height, frames):
        return b"YUV4MPEG2 W%d H%d F30:1 Ip A1:1 C420jpeg\n" % (width, height) + b"".join(b"FRAME\n" + f for f in frames)

    def moved(line, x, y, scale=1):
        words = line.strip().split(", ")
        points = ["%.4f" % (float(word) * scale + (x, y)[n % 2]) for n, word in enumerate(words[3:])]
        return ", ".join(words[:1] + [str(int(word) * scale) for word in words[1:3]] + points) + " \n"

    def barred(number, by):
        """The frame between black bars of 22 and 24 columns, every sample `by` times as wide and as high."""
        at, samples = start + number * frame + len(b"FRAME\n"), b""
        for width, height, pixels in ((192, 144, 1), (96, 72, 2), (96, 72, 2)):
            for at in range(at, at + width * height, width):
                row = bytes(22 // pixels) + shaky[at : at + width] + bytes(24 // pixels)
                samples += bytes(v for v in row for _ in range(by)) * by
            at += width
        return samples

    for by in 1, 2:
        write(f"barred{by}.y4m", y4m(238 * by, 144 * by, [barred(number, by) for number in range(2)]))
    write("text.mp4", "hello")
    os.mkdir("pictures")  # brighter and brighter in natural order, between files that are none
    for name, level in (("1.png", 60), ("2.PNG", 90), ("10.png", 120), (".3.png", 0), ("notes.txt", 0)):
        row = b"\0" + bytes([level]) * 3 * 64
        chunks = ((b"IHDR", struct.pack(">IIBBBBB", 64, 48, 8, 2, 0, 0, 0)), (b"IDAT", zlib.compress(row * 48)), (b"IEND", b""))
        write("pictures/" + name, b"\x89PNG\r\n\x1a\n" + b"".join(
            struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data)) for kind, data in chunks))
    write("empty.y4m", y4m(192, 144, []))
    write("odd.y4m", b"YUV4MPEG2 W193 H145 F30:1 Ip A1:1 C444\nFRAME\n" + bytes(3 * 193 * 145))
    write("sound.wav", b"RIFF\x2c\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x40\x1f\0\0\x40\x1f\0\0\1\0\x08\0data\x08\0\0\0abcdefgh")
    write("cut.y4m", shaky[: start + 5 * frame + 99])
    write("late.y4m", shaky[:start] + shaky[start + 4 * frame :])  # from its fifth frame on
    header = b"YUV4MPEG2 W192 H144 F24000:1001 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n"
    write("full.y4m", header + shaky[start : start + frame])
    write("a<b&c.y4m", shaky[: start + 2 * frame])
    lines = grids.splitlines(True)
    write("cut.txt", grids[: len(grids) * 3 // 4])
    write("short.txt", lines[0])
    write("twice.txt", grids + grids)
    write("far.txt", re.sub(r", -\d+\.\d+", ", -230000000.0", grids, count=1))
    write("nan.txt", re.sub(r", -\d+\.\d+", ", -nan", lines[0], count=1))
    write("other.txt", moved(lines[0], 0, 0, 3))
    rng = random.Random(3)
    write("bent.txt", re.sub(r"-?\d+\.\d+", lambda value: "%.4f" % (float(value[0]) + rng.uniform(-2, 2)), "".join(lines[:2])))
    write("changed.txt", lines[0] + re.sub(r", [-.0-9]+ $", ", 9.0000 ", lines[1]) + "".join(lines[2:]))
    # The node of tests/desk/rules wants an input as large as the output.
    write("flat.txt", "".join(re.sub(r", 160, 120, ", ", 128, 96, ", line) for line in still.splitlines(True)))
    # A still camera, but for the first frame: 3 pixels to the right, 2 up.
    lines = still.splitlines(True)
    write("moved.txt", moved(lines[0], 3, -2) + "".join(lines[1:]))


def terminal(columns, command):
    ours, theirs = os.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("4H", 24, columns, 0, 0))
    program = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=theirs)
    os.close(theirs)
    try:
        while said := os.read(ours, 4096):
            sys.stdout.buffer.write(said)
    except OSError:  # the terminal has no other end any more
        return program.wait()


def check(expression, work):
    out, err = (open(os.path.join(work, name), errors="replace", newline="").read() for name in ("out", "err"))
    value = eval(expression, {**globals(), "out": out, "err": err})
    if not value:
        print(f"it is {value!r}")
    return 0 if value else 1


if sys.argv[1] == "photo":
    sys.stdout.buffer.write(photo())
elif sys.argv[1] == "inputs":
    inputs()
elif sys.argv[1] == "harm":
    data = open(sys.argv[2], "rb").read()
    open(sys.argv[3], "wb").write(data[: len(data) // 4] + b"\x55" * 64 + data[len(data) // 4 + 64 :])
elif sys.argv[1] == "terminal":
    sys.exit(terminal(int(sys.argv[2]), sys.argv[3:]))
else:
    sys.exit(check(sys.argv[2], sys.argv[3]))
