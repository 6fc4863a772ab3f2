#!/bin/sh
# Instructions per read (valgrind's callgrind), a cost figure that does not depend on the
# machine's load: median, 95th percentile and largest per frame class, and the heap of a read
# (massif). Usage: scripts/read_cost.sh [BUILD_DIR]
set -eu
build=${1:-build}
tool=$build/bench/qbcode_read_cost
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
export OPENCV_FOR_THREADS_NUM=1
valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$out/cg" "$tool" \
    >/dev/null 2>"$out/log"
# Each dump names its frame class ("desc: Trigger: Client Request: nominal") and its total.
for f in "$out"/cg.*; do
    awk '/^desc: Trigger: Client Request:/ {name = $5} /^totals:/ {print name, $2}' "$f"
done | sort -k1,1 -k2,2n | awk '
    { v[$1, ++n[$1]] = $2 }
    END {
        for (c in n) {
            k = n[c]
            printf "%-14s %6d %14d %14d %14d\n", c, k, v[c, int((k + 1) / 2)],
                   v[c, int(0.95 * k + 0.999)], v[c, k]
        }
    }' | sort >"$out/table"
printf "%-14s %6s %14s %14s %14s\n" "reads" "count" "median Ir" "p95 Ir" "max Ir"
cat "$out/table"
# The heap while one reader reads a stream of frames loaded from files (drawing them would hold
# the heap's peak): the peak is a read's, and the lowest snapshot after it the heap between
# reads (the tool ends without a teardown).
mkdir "$out/frames"
"$tool" --write-frames "$out/frames" >/dev/null 2>&1
valgrind --tool=massif --peak-inaccuracy=0 --max-snapshots=1000 --massif-out-file="$out/massif" "$tool" \
    --stream 96 "$out/frames" >/dev/null 2>&1
awk -F= '/^mem_heap_B=/ {h[++n] = $2} END {
    top = 1
    for (i = 1; i <= n; ++i) if (h[i] > h[top]) top = i
    lo = h[top]
    for (i = top + 1; i <= n; ++i) if (h[i] < lo) lo = h[i]
    printf "heap of a read above the heap between reads: %.2f MB (%.2f MB between reads)\n",
           (h[top] - lo) / 1e6, lo / 1e6
}' "$out/massif"
