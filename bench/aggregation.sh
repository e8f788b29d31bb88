#!/usr/bin/env bash
# Times a whole file aggregation of a tree of about 200,000 files in 20,000
# folders beside GNU find on the same tree, in the same run, with memory; the
# last line is the row of the performance table, with its target.
# Usage: bench/aggregation.sh [BUILD_DIR] [RUNS]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
runs=${2:-5}
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

echo "Building the tree in $tree ..."
python3 - "$tree" <<'PY'
import os, sys
root = sys.argv[1]
for a in range(20):
    for b in range(1000):
        folder = os.path.join(root, f"d{a:02}", f"s{b:03}")
        os.makedirs(folder)
        for f in range(10):
            open(os.path.join(folder, f"file{f}.dat"), "w").close()
PY
find "$tree" ! -type d > /dev/null # warm the caches

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
find_ms=() find_kib=() ours_ms=() walk_ms=() ours_kib=() ratio=()
for _ in $(seq "$runs"); do
    start=$(date +%s%N)
    kib=$(/usr/bin/time -f %M find "$tree" ! -type d 2>&1 >/dev/null | tail -n 1)
    find_ms+=($(( ($(date +%s%N) - start) / 1000000 )))
    find_kib+=("$kib")
    start=$(date +%s%N)
    line=$("$build/bench/zq-aggregate" "$tree")
    ours_ms+=($(( ($(date +%s%N) - start) / 1000000 )))
    read -r _ files _ walk _ before _ with _ peak <<< "$line"
    ours_kib+=("$peak")
    walk_ms+=("$walk")
    # Peak above the start, against what the result alone occupies.
    ratio+=("$(awk -v p="$peak" -v b="$before" -v w="$with" 'BEGIN { printf "%.2f", (p - b) / (w - b) }')")
done
echo "files: $files"
echo "GNU find ! -type d : median $(printf '%s\n' "${find_ms[@]}" | median) ms, peak $(printf '%s\n' "${find_kib[@]}" | median) KiB"
echo "zq aggregation     : median $(printf '%s\n' "${walk_ms[@]}" | median) ms from the call to the completion, $(printf '%s\n' "${ours_ms[@]}" | median) ms whole process, peak $(printf '%s\n' "${ours_kib[@]}" | median) KiB"
echo "peak memory above start / result list size: median $(printf '%s\n' "${ratio[@]}" | median)"
awk -v ours="$(printf '%s\n' "${walk_ms[@]}" | median)" -v find="$(printf '%s\n' "${find_ms[@]}" | median)" \
    'BEGIN { r = ours / find; printf "| aggregation of %s files | %d ms | GNU find %d ms | %.2f%s | ≤ 0.60 |\n", \
             "200,000", ours, find, r, (r <= 0.60 ? "" : " (over)") }'
