#!/usr/bin/python3
"""Tells how far the background of clips moves from frame to frame, from patches that a person picked.

    scripts/track-background.py NAME CLIP...

NAME is a row of BACKGROUND, CLIP the clip itself or one that was steadied from it. A clip smaller than its source is
taken for its middle. Within the rectangles corners are followed by the pyramidal Lucas-Kanade method into the next
frame and back; those that do not return are dropped, and where fewer than 4 are left the frame is not counted. The
median of the others, x and y apart, is the background's step. Prints one line a clip: name, the root of the mean
square of the steps in pixels per frame, the 95th percentile of their lengths, the frames that were not counted.
Needs Debian's python3-opencv. It shares nothing with the desk.
"""

import sys

import cv2
import numpy

# The source's size, and in it rectangles x, y, width, height where nothing but the background is to be seen, or little.
BACKGROUND = {
    "box": ((640, 480), [(80, 200, 60, 60), (56, 240, 100, 100), (470, 320, 110, 90)]),
    "cup": ((640, 480), [(225, 405, 200, 75)]),
    "vtest": ((768, 576), [(64, 48, 640, 120), (64, 300, 290, 228), (440, 340, 100, 140)]),
}
CLOSE = 0.5  # pixels that a corner may be off when it comes back


def steps(clip, source, rectangles):
    """Yields for every frame after the first the median step (x, y), or None."""
    video = cv2.VideoCapture(clip)
    before = None
    while True:
        more, frame = video.read()
        if not more:
            return
        frame = cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)
        if before is None:
            mask = numpy.zeros(frame.shape, numpy.uint8)
            left, top = (source[0] - frame.shape[1]) // 2, (source[1] - frame.shape[0]) // 2
            for x, y, width, height in rectangles:
                mask[max(y - top, 0) : max(y - top + height, 0), max(x - left, 0) : max(x - left + width, 0)] = 255
        else:
            yield step(before, frame, mask)
        before = frame


def step(before, after, mask):
    corners = cv2.goodFeaturesToTrack(before, 200, 0.02, 8, mask=mask)
    if corners is None:
        return None
    follow = dict(winSize=(31, 31), maxLevel=3, criteria=(3, 40, 0.003))
    there, found, _ = cv2.calcOpticalFlowPyrLK(before, after, corners, None, **follow)
    back, found_back, _ = cv2.calcOpticalFlowPyrLK(after, before, there, None, **follow)
    close = (numpy.linalg.norm(back - corners, axis=2) < CLOSE) & (found == 1) & (found_back == 1)
    moved = (there - corners)[close]
    return numpy.median(moved, axis=0) if len(moved) >= 4 else None


def main():
    if len(sys.argv) < 3 or sys.argv[1] not in BACKGROUND:
        sys.exit(f"expected: track-background.py NAME CLIP..., NAME one of {', '.join(BACKGROUND)}")
    for clip in sys.argv[2:]:
        found = list(steps(clip, *BACKGROUND[sys.argv[1]]))
        lengths = numpy.array([numpy.linalg.norm(step) for step in found if step is not None])
        if len(lengths) == 0:
            sys.exit(f"{clip}: no background could be followed; expected a clip made of {sys.argv[1]}")
        print(f"{clip} {numpy.sqrt(numpy.mean(lengths**2)):.3f} {numpy.percentile(lengths, 95):.3f} {len(found) - len(lengths)}")


if __name__ == "__main__":
    main()
