#!/usr/bin/env python3
"""Clips of every sort, made by FFmpeg's program, and what dewarp-desk makes of them: a table of what is equal before
and after, or the sentence that was said. Fails where something else comes out than clips.txt has.

    as_they_came.py DEWARP_DESK [NAME...]

A line of clips.txt: the row's name | how FFmpeg makes the clip | the command | what differs | what is said.
"""
import concurrent.futures
import json
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
DESK, WANTED = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2:]
# Four quarters of different colours tell how a picture lies; the noise gives the estimate corners to follow.
QUARTERS = ("-f lavfi -i color=gray:s=160x96:r=25:d=0.32,noise=alls=20:all_seed=1,drawbox=0:0:iw/2:ih/2:red@.7:fill,"
            "drawbox=iw/2:0:iw/2:ih/2:green@.7:fill,drawbox=0:ih/2:iw/2:ih/2:blue@.7:fill,format=yuv420p")
X264 = "-c:v libx264 -preset ultrafast -bf 2 -threads 1"
SOUND = "-f lavfi -i sine=440:r=48000:d=0.32"
MATRICES = {"0": (1, 0, 0, 1), "90": (0, 1, -1, 0), "180": (-1, 0, 0, -1), "270": (0, -1, 1, 0),
            "mirrored": (-1, 0, 0, 1), "flipped": (1, 0, 0, -1), "transposed": (0, 1, 1, 0), "across": (0, -1, -1, 0)}


def run(*command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=100, **options)


def ffmpeg(*words):
    done = run("ffmpeg", "-v", "error", "-nostdin", "-y", *words)
    if done.returncode != 0:
        sys.exit(f"ffmpeg {' '.join(map(str, words))}: {done.stderr}")


def turn(clip, name):
    """Has the clip's video track say that it is turned so."""
    data = clip.read_bytes()
    at = data.index(b"tkhd") + 44
    a, b, c, d = (value * 65536 for value in MATRICES[name])
    clip.write_bytes(data[:at] + struct.pack(">9i", a, b, 0, c, d, 0, 0, 0, 1 << 30) + data[at + 36:])


def probe(clip):
    words = "-v error -show_streams -show_format -show_packets -show_chapters -show_data_hash md5 -of json".split()
    return json.loads(run("ffprobe", *words, clip).stdout)


def looks(clip):
    """A number for each quarter of the first picture, as a player shows it."""
    colours = subprocess.run(["ffmpeg", "-v", "error", "-i", clip, "-frames:v", "1", "-vf", "format=rgb24,scale=2:2:flags=area",
                              "-f", "rawvideo", "-pix_fmt", "rgb24", "-"], capture_output=True).stdout
    return [max(range(3), key=lambda n: colours[at + n]) if max(colours[at:at + 3]) - min(colours[at:at + 3]) > 40 else 3
            for at in range(0, len(colours), 3)]


def seen(clip, looked):
    """What is compared of a clip, by its name in clips.txt."""
    if clip.is_dir():
        return {"frames": len(list(clip.iterdir()))}
    told = probe(clip)
    of = lambda kind: [s for s in told["streams"] if s["codec_type"] == kind and not s["disposition"]["attached_pic"]]
    [video] = of("video")
    mine = sorted((p for p in told["packets"] if p["stream_index"] == video["index"]), key=lambda p: float(p["pts_time"]))
    others = [s for s in told["streams"] if s is not video]
    begin = float(told["format"]["start_time"]) if clip.suffix == ".ts" else 0  # a broadcast's clock
    packets = lambda s: [(float(p.get("pts_time", -9)) - begin, p["data_hash"]) for p in told["packets"] if p["stream_index"] == s["index"]]
    tags = lambda t: {k.lower(): v for k, v in t.get("tags", {}).items()
                      if not re.match("(?i)encoder|major_|minor_|compat|vendor|handler|duration|language", k)}
    return {
        "frames": len(mine),
        "times": [float(p["pts_time"]) - begin for p in mine],
        "lengths": [float(p.get("duration_time", 0)) for p in mine],
        "duration": float(told["format"].get("duration", 0)),
        "rate": video["r_frame_rate"],
        "streams": [(s["codec_type"], s.get("codec_name"), s["disposition"]["default"], s.get("tags", {}).get("language", "und"))
                    for s in others],
        "packets": [packets(s) for s in others],
        "chapters": [(float(c["start_time"]), float(c["end_time"]), c.get("tags")) for c in told["chapters"]],
        "tags": tags(told["format"]),
        "colours": [video.get(name) for name in ("color_range", "color_space", "color_primaries", "color_transfer")],
        "chroma": video.get("chroma_location"),
        "aspect": video.get("sample_aspect_ratio", "1:1"),
        "matrix": [d.get("displaymatrix") for d in video.get("side_data_list", []) if "displaymatrix" in d],
        "light": [d for d in video.get("side_data_list", []) if "max_content" in d or "max_luminance" in d],
        **({"looks": looks(clip)} if looked else {}),
    }


def same(before, after):
    if isinstance(before, (list, tuple)) and isinstance(after, (list, tuple)):
        return len(before) == len(after) and all(map(same, before, after))
    return abs(before - after) < 0.00101 if isinstance(before, float) else before == after


def check(row, folder):
    name, make, command, differs, says = row
    clip = folder / f"{name}.{make.split()[0]}"
    if make.split()[0] == "dir":
        clip = folder / name
        clip.mkdir()
    place = {"pictures": QUARTERS, "long": QUARTERS.replace("d=0.32", "d=2"), "x264": X264, "sound": SOUND, "clip": clip, "folder": folder, "here": HERE,
             "grids": next(folder.glob("in/*_Grid_*"), "")}
    for step in make.partition(" ")[2].format(**place).split(" ; "):
        words = step.split()
        turn(clip, words[1]) if words[0] == "turn" else ffmpeg(*[word.replace("~", " ") for word in words])
    words = command.format(**place).split()
    out = folder / f"out-{name}{words[0]}"
    done = run(DESK, *words[1:], "-o", out, "--progress", "none", "--log-level", "none", "-y", cwd=folder)
    said = [line for line in done.stderr.splitlines() if " input " not in line]
    if done.returncode != 0 or not out.exists():
        return said, [f"ends with {done.returncode}: {done.stderr}"] if says == "" or done.returncode != 2 else []
    before, after = seen(clip, "turn" in make), seen(out, "turn" in make)
    if cut := re.search(r"--frames (\d+):(\d+)", command):
        first, end = map(int, cut.groups())
        begin = before["times"][first]
        within = lambda time: begin - 1e-4 <= time < before["times"][end] - 1e-4
        before["packets"] = [[(time - begin, data) for time, data in stream if within(time)] for stream in before["packets"]]
        before["times"] = [time - begin for time in before["times"][first:end]]
        before.update(frames=end - first, lengths=before["lengths"][first:end], duration=(end - first) / 25)
    different = {key for key in after if key in before and not same(before[key], after[key])}
    wrong = [f"{key}: {before[key]} -> {after[key]}" for key in different - set(differs.split())]
    wrong += [f"{key} is equal, and expected to differ" for key in set(differs.split()) - different]
    return said, wrong


def main():
    failures = 0
    rows = (HERE / "clips.txt").read_text().splitlines()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        rows = [[part.strip() for part in line.split("|")] for line in rows if not line.startswith("#")]
        rows = [row for row in rows if not WANTED or row[0] in ["in", *WANTED]]
        first = [check(rows[0], folder)]  # its grids are for others
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            seen_rows = first + list(pool.map(lambda row: check(row, folder), rows[1:]))
        for row, (said, wrong) in zip(rows, seen_rows):
            text = " ".join(said).replace(str(folder) + "/", "")
            if not re.search(row[4], text) or (row[4] == "" and text):
                wrong.append(f'says "{text}"')
            failures += len(wrong)
            print(f"{row[0]:<16}{'differs: ' + row[3] if row[3] else 'equal':<28} {text}")
            for what in wrong:
                print(f"    WRONG {what[:300]}")
    sys.exit(1 if failures else 0)


main()
