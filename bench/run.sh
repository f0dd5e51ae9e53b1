#!/usr/bin/env bash
# run.sh BUILD_FOLDER_OF_BENCH: all benchmarks, then morva and gltfpack side by side on one file.
set -euo pipefail

programs=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for program in "$programs"/bench_*; do
    [ "$(basename "$program")" != bench_merge_threads ] || continue
    echo "== $(basename "$program")"
    "$program" --benchmark_counters_tabular=true
done

echo "== picks in optimised scenes: how many tell the part that they tell in the file, in percent"
"$programs/morva_pick_equivalence"

# Times and peaks of first calls: in turn, so that a slow minute of the machine meets all alike.
echo "== bench_merge_threads, five processes for each row"
for _ in 1 2 3 4 5; do
    for engines in 16 100; do
        for threads in 1 2; do
            for by_tree in 0 1; do
                [ "$engines$by_tree" != 1001 ] || continue
                row="engines:$engines/threads:$threads/by_tree:$by_tree/"
                "$programs/bench_merge_threads" --benchmark_filter="$row" 2>/dev/null |
                    grep mergeEngines
            done
        done
    done
done

# Best of five runs of a command, in seconds.
best_of_five() {
    local best="" round start end took
    for round in 1 2 3 4 5; do
        start=$(date +%s%N)
        "$@" >/dev/null
        end=$(date +%s%N)
        took=$((end - start))
        if [ -z "$best" ] || [ "$took" -lt "$best" ]; then
            best=$took
        fi
    done
    awk -v nanoseconds="$best" 'BEGIN { printf "%.3f", nanoseconds / 1e9 }'
}

echo "== 16 engines written out: read, optimise, write"
"$programs/morva_make_engines" 16 "$work/engines.glb"
ours=$(best_of_five "$programs/../host/morva" optimize "$work/engines.glb" \
    -o "$work/ours.glb" --quiet)
theirs=$(best_of_five gltfpack -noq -i "$work/engines.glb" -o "$work/theirs.glb")
awk -v ours="$ours" -v theirs="$theirs" \
    'BEGIN { printf "morva %s s, gltfpack -noq %s s, ratio %.2f\n", ours, theirs, ours / theirs }'
automatic=$(best_of_five "$programs/../host/morva" auto "$work/engines.glb" -o "$work/auto.glb" --quiet)
awk -v ours="$automatic" -v theirs="$theirs" \
    'BEGIN { printf "morva auto %s s, gltfpack -noq %s s, ratio %.2f\n", ours, theirs, ours / theirs }'
echo "where the time goes:"
"$programs/../host/morva" optimize "$work/engines.glb" -o "$work/ours.glb" | sed -n '/^stage/,/^all/p'
