#!/usr/bin/env python3
"""Compare two builds of qbcode_bench in one interleaved run.

Each round runs every binary once (the order alternates), so load from elsewhere on the machine
falls on both alike. Prints the median time per benchmark and binary, the ratio of each to the
first binary, the ratio of each benchmark to a reference benchmark of the same binary, and the
medians of the stage counters.

  scripts/bench_compare.py /tmp/bench_before build/bench/qbcode_bench --rounds 7
"""
import argparse
import json
import statistics
import subprocess


TIME = "cpu_time"


def run(binary, pattern, min_time):
    out = subprocess.run(
        [binary, "--benchmark_filter=" + pattern, "--benchmark_min_time=%g" % min_time,
         "--benchmark_format=json"],
        check=True, capture_output=True, text=True).stdout
    rows = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("error_occurred"):
            raise SystemExit("%s: %s: %s" % (binary, b["name"], b.get("error_message")))
        skip = {"real_time", "cpu_time", "iterations", "repetitions", "repetition_index",
                "threads", "family_index", "per_family_instance_index"}
        counters = {k: v for k, v in b.items() if isinstance(v, float) and k not in skip}
        rows[b["name"]] = (b[TIME], b["time_unit"], counters)
    return rows


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("binaries", nargs="+")
    ap.add_argument("--rounds", type=int, default=7)
    ap.add_argument("--filter", default="WholeCall|Anchor")
    ap.add_argument("--min-time", type=float, default=0.5)
    ap.add_argument("--reference", default="BM_WholeCall_C")
    ap.add_argument("--time", choices=["cpu", "real"], default="cpu",
                    help="CPU time (default) or wall time of the calling thread")
    args = ap.parse_args()
    global TIME
    TIME = args.time + "_time"

    times = {b: {} for b in args.binaries}
    counters = {b: {} for b in args.binaries}
    units = {}
    for r in range(args.rounds):
        order = args.binaries if r % 2 == 0 else list(reversed(args.binaries))
        for b in order:
            for name, (t, unit, c) in run(b, args.filter, args.min_time).items():
                times[b].setdefault(name, []).append(t)
                units[name] = unit
                for k, v in c.items():
                    counters[b].setdefault(name + " " + k, []).append(v)

    first = args.binaries[0]
    # Each round ran every binary back to back: the ratio within a round cancels slow drifts of
    # the machine's load, so its median is the steadier figure.
    print("median of per-round ratios to the first binary")
    for name in sorted(times[first]):
        for b in args.binaries[1:]:
            pairs = list(zip(times[first][name], times[b].get(name, [])))
            if pairs:
                ratios = [t / f for f, t in pairs]
                print("  %-26s %s x%.3f" % (name, b, statistics.median(ratios)))
    med = {b: {n: statistics.median(v) for n, v in times[b].items()} for b in args.binaries}
    print("%d rounds, median %s per benchmark" % (args.rounds, TIME))
    for name in sorted(med[first]):
        line = "%-28s" % name
        for b in args.binaries:
            t = med[b].get(name)
            line += "  %10.3f %s" % (t, units[name]) if t is not None else "  %13s" % "-"
            if b != first and t is not None:
                line += " (x%.3f of first)" % (t / med[first][name])
        print(line)
    for b in args.binaries:
        ref = med[b].get(args.reference)
        if not ref:
            continue
        print("%s: anchors / %s" % (b, args.reference))
        for name in sorted(med[b]):
            if "Anchor" in name:
                print("  %-26s %.4f" % (name, med[b][name] / ref))
    print("stage counters (ms per call, median)")
    for key in sorted(counters[first]):
        line = "%-34s" % key
        for b in args.binaries:
            v = counters[b].get(key)
            line += "  %8.3f" % statistics.median(v) if v else "  %8s" % "-"
        print(line)


if __name__ == "__main__":
    main()
