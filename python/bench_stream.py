"""Frames per second on the rendered clip: qbcode scan on one core, qbcode read on a folder of
the same frames with one and two jobs, the Python reader handle, and zxing-cpp's Python reader
(QR only) on the same frames as the anchor.

    PYTHONPATH=build/python/site python3 python/bench_stream.py build/tools/qbcode [--frames 300]
"""
import argparse
import os
import re
import statistics
import subprocess
import sys
import tempfile
import time

import cv2

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "tests"))
import clip  # noqa: E402
import qbcode  # noqa: E402


def run(cmd):
    t0 = time.perf_counter()
    p = subprocess.run(cmd, capture_output=True, text=True)
    return time.perf_counter() - t0, p.stdout, p.stderr


def per_frame(read, frames):
    costs = []
    t0 = time.perf_counter()
    for f in frames:
        s = time.perf_counter()
        read(f)
        costs.append(1000 * (time.perf_counter() - s))
    return len(frames) / (time.perf_counter() - t0), statistics.median(costs)


def main():
    a = argparse.ArgumentParser(description=__doc__)
    a.add_argument("qbcode")
    a.add_argument("--frames", type=int, default=300)
    args = a.parse_args()
    work = tempfile.mkdtemp(prefix="qbcode_bench_")
    video, folder = os.path.join(work, "clip.avi"), os.path.join(work, "frames")
    clip.write(video, args.frames, fps=30)
    os.mkdir(folder)
    frames = []
    capture = cv2.VideoCapture(video)
    while True:
        ok, frame = capture.read()
        if not ok:
            break
        frames.append(cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY))
        cv2.imwrite(os.path.join(folder, "f%04d.png" % len(frames)), frames[-1])
    rows = []
    _, out, _ = run(["taskset", "-c", "0", args.qbcode, "scan", video, "--json"])
    s = dict(re.findall(r'"(\w+)": ([0-9.]+)', out.splitlines()[-1]))
    rows.append(("qbcode scan, one core (decoding included)", float(s["fps"]),
                 float(s["ms_median"])))
    for jobs, cores in ((1, "0"), (2, "0,1")):
        seconds, _, err = run(["taskset", "-c", cores, args.qbcode, "read", folder, "--jobs",
                               str(jobs)])
        rows.append(("qbcode read FOLDER --jobs %d (PNG loading included)" % jobs,
                     len(frames) / seconds, None))
    reader = qbcode.Reader()
    fps, median = per_frame(reader.read_all, frames)
    rows.append(("Python qbcode.Reader.read_all, frames in memory", fps, median))
    try:
        import zxingcpp
        fps, median = per_frame(
            lambda f: zxingcpp.read_barcodes(f, formats=zxingcpp.BarcodeFormat.QRCode), frames)
        rows.append(("zxing-cpp Python read_barcodes, QR only, same frames", fps, median))
    except ImportError:
        print("zxing-cpp's Python reader not installed (python3-zxing-cpp)", file=sys.stderr)
    print("%d frames of %dx%d" % (len(frames), frames[0].shape[1], frames[0].shape[0]))
    print("| | frames/s | median ms a frame |\n|---|---|---|")
    for name, fps, median in rows:
        print("| %s | %.0f | %s |" % (name, fps, "%.2f" % median if median else ""))


if __name__ == "__main__":
    main()
