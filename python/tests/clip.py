"""A rendered camera clip: codes moving in and out of view, frames without a code, two codes.

Run as a script it writes a clip for measuring: clip.py OUT.avi [--frames N].
"""
import argparse

import numpy as np

import qbcode

A = bytes.fromhex("c0ffee5eedba5eba11")
B = bytes.fromhex("f00dfacecafebeef77")
SIZE = (640, 480)  # width, height


def tile(payload, rotation):
    return qbcode.render(payload=payload, rotation=rotation, spacing=16, dot=9.6, size=(220, 220))


def place(frame, code, x, y):
    """Lays the code tile centred at (x, y), cut where it leaves the frame."""
    h, w = code.shape
    x0, y0 = int(x) - w // 2, int(y) - h // 2
    fx0, fy0 = max(x0, 0), max(y0, 0)
    fx1, fy1 = min(x0 + w, frame.shape[1]), min(y0 + h, frame.shape[0])
    if fx0 < fx1 and fy0 < fy1:
        np.maximum(frame[fy0:fy1, fx0:fx1], code[fy0 - y0:fy1 - y0, fx0 - x0:fx1 - x0],
                   out=frame[fy0:fy1, fx0:fx1])


def codes_in(f, period):
    """(payload, x, y, rotation) of each code in frame f; the clip repeats every `period`."""
    f %= period
    out = []
    if f < 20:
        out.append((A, 140 + 8 * f, 200, 10 + f))
    elif 22 <= f < 28:
        out.append((A, 520 + 30 * (f - 22), 200, 30))
    if f >= 28:
        out.append((B, max(470, 700 - 50 * (f - 28)), 240, 200))
    if f >= 44:
        out.append((A, 170, 300, 40))
    return out


def frame(f, period=56, seed=0):
    """Frame f as BGR: the codes on a dark ground, softened and with sensor noise."""
    import cv2
    grey = np.full((SIZE[1], SIZE[0]), 30, np.uint8)
    for payload, x, y, rotation in codes_in(f, period):
        place(grey, tile(payload, rotation), x, y)
    grey = cv2.GaussianBlur(grey, (0, 0), 0.8)
    noise = np.random.default_rng(seed + f).normal(0, 4, grey.shape)
    grey = np.clip(grey + noise, 0, 255).astype(np.uint8)
    return cv2.cvtColor(grey, cv2.COLOR_GRAY2BGR)


def write(path, frames=56, fps=10):
    import cv2
    out = cv2.VideoWriter(path, cv2.VideoWriter_fourcc(*"MJPG"), fps, SIZE)
    for f in range(frames):
        out.write(frame(f))
    out.release()


if __name__ == "__main__":
    args = argparse.ArgumentParser(description=__doc__)
    args.add_argument("out")
    args.add_argument("--frames", type=int, default=300)
    a = args.parse_args()
    write(a.out, a.frames, fps=30)
