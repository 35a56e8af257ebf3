"""Times FFmpeg's remap filter on the picture and the warp of bench-desk, 1920 x 1080.

  filter_peer.py BENCH_DESK THREADS    prints {"ms": ..., "psnr": ...}
"""

import json
import re
import subprocess
import sys
import tempfile
import time

SIZE = "1920x1080"
FEW, MANY = 5, 35


def raw(pixel_format, path, *options):
    return [*options, "-f", "rawvideo", "-pix_fmt", pixel_format, "-s", SIZE, "-i", path]


def command(folder, threads, frames, *output):
    """Warps `frames` frames. The maps are video of their own, so that every frame comes with its own."""
    inputs = []
    for pixel_format, name in (("nv12", "input.nv12"), ("gray16le", "x.gray16"), ("gray16le", "y.gray16")):
        inputs += raw(pixel_format, f"{folder}/{name}", "-stream_loop", "-1")
    graph = "[0:v]format=yuv444p[picture];[picture][1:v][2:v]remap,format=nv12"
    return ["ffmpeg", "-v", "error", "-y", "-filter_complex_threads", threads, "-threads", threads, *inputs,
            "-filter_complex", graph, "-frames:v", str(frames), *output]


def seconds(arguments):
    start = time.monotonic()
    subprocess.run(arguments, check=True)
    return time.monotonic() - start


def psnr(folder):
    """Of the filter's picture against the desk's, dB."""
    arguments = ["ffmpeg", "-v", "info", *raw("nv12", f"{folder}/filter.nv12"), *raw("nv12", f"{folder}/desk.nv12"),
                 "-lavfi", "psnr", "-f", "null", "-"]
    log = subprocess.run(arguments, check=True, stderr=subprocess.PIPE, text=True).stderr
    return float(re.search(r"average:([0-9.]+)", log).group(1))


def main():
    program, threads = sys.argv[1:]
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        subprocess.run([program, "--filter-files", folder], check=True)
        subprocess.run(command(folder, threads, 1, "-f", "rawvideo", f"{folder}/filter.nv12"), check=True)
        # What starting costs is in both numbers of frames and leaves their difference.
        times = [min(seconds(command(folder, threads, frames, "-f", "null", "-")) for _ in range(3))
                 for frames in (FEW, MANY)]
        print(json.dumps({"ms": 1000.0 * (times[1] - times[0]) / (MANY - FEW), "psnr": psnr(folder)}))


main()
