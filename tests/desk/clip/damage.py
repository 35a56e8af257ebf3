#!/usr/bin/env python3
"""Clips of every container of containers.txt, intact, cut off and with wrong bytes, and what a reader makes of them.

    damage.py READ_CLIP

A line of containers.txt is a clip's name, whether it opens when its end is missing, and what FFmpeg is told.
"""
import pathlib
import random
import re
import subprocess
import sys
import tempfile

FRAMES = 20
WIDTH, HEIGHT = 160, 96
READ_CLIP = sys.argv[1]
OFTEN = 8  # readings of one clip, on as many threads
failures = []


def expect(holds, what):
    if not holds:
        failures.append(what)
        print(f"damage.py: {what}", file=sys.stderr)


def raw_frames():
    """Luma that tells a frame's number by its mean, with noise that gives the decoder much to read; grey."""
    noise = random.Random(1)
    grey = bytes([128]) * (WIDTH * HEIGHT // 2)
    return b"".join(bytes(20 + 8 * n + level for level in noise.choices(range(40), k=WIDTH * HEIGHT)) + grey
                    for n in range(FRAMES))


def number_of(luma):
    return round((luma - 39.5) / 8)


class Outcome:
    """What one reading makes of a clip."""

    def __init__(self, frames, skipped, error):
        self.frames = [int(frame.split(":")[0]) for frame in frames.split()]
        self.are_right = all(number_of(float(frame.split(":")[1])) == int(frame.split(":")[0])
                             for frame in frames.split())
        self.digest, self.skipped, self.error = frames, skipped.strip(), error


def read(*clips, mode="stop", times=OFTEN, first=0, end=FRAMES + 1):
    """One outcome for each clip, all of which are read side by side. It has to be the same every time."""
    done = subprocess.run([READ_CLIP, mode, str(times), str(first), str(end), *clips], capture_output=True, text=True)
    expect(done.returncode == 0, f"reading {clips} ends with {done.returncode}: {done.stderr}")
    lines = done.stdout.splitlines()
    expect(len(lines) == 3 * len(clips), f"{clips} differ from time to time: {done.stdout}")
    return [Outcome(*lines[i:i + 3]) for i in range(0, 3 * len(clips), 3)]


def make_clips(folder, rows, pixels, pause=3):
    """Clips of FRAMES frames at 25 per second, with a pause of some frames in their middle, which AVI counts."""
    command = ["ffmpeg", "-v", "error", "-f", "rawvideo", "-s", f"{WIDTH}x{HEIGHT}", "-r", "25", "-pix_fmt", pixels,
               "-i", "-"]
    for name, _, *options in rows:
        command += ["-vf", f"setpts=N+{pause}*gte(N\\,{FRAMES // 2})", "-fps_mode", "passthrough", "-threads", "1",
                    "-fflags", "+bitexact", *options, folder / name]
    subprocess.run(command, input=raw_frames(), check=True)
    return {row[0]: Clip(folder / row[0], "ffv1" in row) for row in rows}


class Clip:
    def __init__(self, path, has_checksums):
        self.path = path
        self.has_checksums = has_checksums
        self.bytes = path.read_bytes()

    def with_bytes(self, name, data):
        path = self.path.with_name(f"{name}.{self.path.name}")
        path.write_bytes(data)
        return path

    def cut(self, share):
        return self.with_bytes(f"cut{share}", self.bytes[:int(share * len(self.bytes))])

    def flip(self, share):
        data = bytearray(self.bytes)
        data[int(share * len(data))] ^= 0x55
        return self.with_bytes(f"flip{share:.3f}", data)

    def harmed(self, words="at frame"):
        """The clip with a byte wrong for which the reader says this."""
        for share in range(400, 1000, 24):
            paths = [self.flip((share + more) / 1000) for more in range(0, 24, 3)]
            for path, outcome in zip(paths, read(*paths, times=1)):
                if words in outcome.error:
                    return path
        raise RuntimeError(f"no wrong byte in {self.path} makes the reader say \"{words}\"")


def check_container(clip, opens_when_cut):
    name = clip.path.name
    cut = {share: clip.cut(share) for share in (0.61, 0.97)}  # neither lies between two frames
    flipped = {share: clip.flip(share) for share in (.15, .25, .35, .45, .55, .65, .75, .85)}
    intact, *stopped = read(clip.path, *cut.values(), *flipped.values())
    expect(intact.error == "", f"{name} is intact: {intact.error}")
    expect(intact.frames == list(range(FRAMES)) and intact.are_right, f"{name} has frames {intact.frames}")
    for share, outcome in zip(cut, stopped):
        # The last packet of an AVI says that it is not whole.
        told = f"is damaged at frame {len(outcome.frames)}: {'it is cut off' if name.endswith('.avi') else ''}"
        expect((told if opens_when_cut else "is not a clip") in outcome.error, f"{name} cut, {share}: {outcome.error}")
    skipping, *skipped = read(clip.path, *(flipped.values() if clip.has_checksums else ()), mode="skip")
    expect(skipping.error + skipping.skipped == "" and skipping.digest == intact.digest,
           f"{name} is another clip when damage may be skipped: {skipping.error}{skipping.skipped}")
    if clip.has_checksums:
        for share, told, left in zip(flipped, stopped[len(cut):], skipped):
            expect(told.error != "", f"{name} has a wrong byte at {share}, which its checksums tell")
            expect(left.are_right, f"{name} with a wrong byte at {share} gives wrong frames")


def check_lost_frame(avi):
    """A frame that the index lists is gone."""
    packet = [found.start() for found in re.finditer(b"00dc", avi.bytes)][FRAMES // 2]
    lost = avi.with_bytes("lost", avi.bytes[:packet] + b"JUNK" + avi.bytes[packet + 4:])
    intact, outcome = read(avi.path, lost)
    expect(intact.error == "", f"{avi.path.name} is intact: {intact.error}")
    expect("it ends after 19 of the 20 frames that its header promises" in outcome.error, f"lost: {outcome.error}")


def check_others(intact):
    """Clips that are read at the same time are not blamed for one that is damaged."""
    harmed = intact.harmed("its data does not fit together")
    before, bad, after = read(intact.path, harmed, intact.path)
    expect(str(harmed) in bad.error, f"the damaged clip is to blame: {bad.error}")
    expect(before.digest == after.digest and len(before.frames) == FRAMES,
           f"the others are whole: {before.error}{after.error}")


def check_numbers(clip):
    """Other frames keep their numbers, and are right."""
    harmed = clip.harmed()
    name = harmed.name
    [stopped], [skipped] = read(harmed), read(harmed, mode="skip")
    first = len(stopped.frames)
    expect(f"is damaged at frame {first}: " in stopped.error, f"{name}: {stopped.error}")
    expect(skipped.skipped.startswith(f"{first}:"), f"{name} at frame {first}: {skipped.skipped}")
    # The group of the damaged frame is lost at most, and the one before it where it is shown late.
    expect(FRAMES - 8 <= len(skipped.frames) < FRAMES, f"{name} has frames {skipped.frames}")
    expect(skipped.frames[-1:] == [FRAMES - 1] and skipped.are_right, f"{name} has frames {skipped.frames}")


def check_end(clip):
    cut = clip.cut(0.6)
    [stopped], [rest] = read(cut), read(cut, mode="skip")
    expect(rest.skipped == f"{len(stopped.frames)}:{FRAMES}", f"{cut.name} skips {rest.skipped}")


def check_range(clip):
    """A range of damaged frames alone is refused; one that begins with them is not."""
    harmed = clip.harmed()
    [stopped], [skipped] = read(harmed), read(harmed, mode="skip")
    first = len(stopped.frames)
    after = skipped.frames[first]
    [within] = read(harmed, mode="skip", first=first, end=after)
    expect(f"has only damaged frames from frame {first} on" in within.error, f"{harmed.name}: {within.error}")
    [beyond] = read(harmed, mode="skip", first=first, end=after + 1)
    expect(beyond.frames == [after] and beyond.error == "", f"{harmed.name}: {beyond.frames} {beyond.error}")


def main():
    rows = [line.split() for line in pathlib.Path(__file__).with_name("containers.txt").read_text().splitlines()]
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        clips = make_clips(folder, [row for row in rows if "mjpeg" not in row], "yuv420p")
        clips |= make_clips(folder, [row for row in rows if "mjpeg" in row], "yuvj420p")
        for row in rows:
            check_container(clips[row[0]], row[1] == "yes")
        check_lost_frame(make_clips(folder, [["steady.avi", "", "-c:v", "mpeg4"]], "yuv420p", 0)["steady.avi"])
        check_others(clips["h264.mp4"])
        for row in ("h264.mp4", "h264.mkv", "ffv1.mkv", "mpeg4.mp4"):
            check_numbers(clips[row])
        check_end(clips["h264.mkv"])
        check_range(clips["ffv1.mkv"])
    sys.exit(1 if failures else 0)


main()
