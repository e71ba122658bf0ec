#!/usr/bin/env bash
# Time and peak memory of the snapshot source: for each size, a synthetic snapshot (make-snapshot.py)
# with every table in one schema and spread over 100 schemas; `udmlgen snapshot` captures it again
# (reading it through the snapshot source and writing as it reads), then the whole database is
# generated from the capture. Prints one row per run: wall time, CPU time (user + system) and peak
# resident memory. Not part of the test suite.
#
#   bash bench/snapshot-bench.sh [UDMLGEN] [SIZES...]      # defaults: build/bin/udmlgen, 10000 100000
#   BENCH_DIR=/tmp/snapbench OTHER_UDMLGEN=/path/to/older/udmlgen bash bench/snapshot-bench.sh
#
# With OTHER_UDMLGEN, the same runs are made with that build too (to compare two versions).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
udmlgen=${1:-$here/../build/bin/udmlgen}
shift || true
sizes=("${@:-10000 100000}")
sizes=(${sizes[*]})
dir=${BENCH_DIR:-$(mktemp -d)}
mkdir -p "$dir"

measure() { # label, command...: prints label, wall s, cpu s, peak MiB
    local label=$1
    shift
    /usr/bin/time -o "$dir/time.txt" -f '%e %U %S %M' "$@" >/dev/null
    read -r wall user sys kib <"$dir/time.txt"
    printf '| %-34s | %8.2f | %8.2f | %8.1f |\n' "$label" "$wall" "$(echo "$user + $sys" | bc)" "$(echo "scale=1; $kib / 1024" | bc)"
}

echo "| run | wall s | cpu s | peak MiB |"
echo "|---|---:|---:|---:|"
for tables in "${sizes[@]}"; do
    for schemas in 1 100; do
        name=$tables-$schemas
        [ -s "$dir/gen-$name.json" ] || python3 "$here/make-snapshot.py" "$tables" "$schemas" "$dir/gen-$name.json"
        "$udmlgen" snapshot --snapshot "$dir/gen-$name.json" -o "$dir/cap-$name.json"
        size=$(($(stat -c %s "$dir/cap-$name.json") / 1000000))
        for build in "$udmlgen" ${OTHER_UDMLGEN:-}; do
            tag=$([ "$build" = "$udmlgen" ] && echo "" || echo " (other)")
            measure "capture $tables t/$schemas s, $size MB$tag" "$build" snapshot --snapshot "$dir/cap-$name.json" -o "$dir/recap.json"
            cmp -s "$dir/cap-$name.json" "$dir/recap.json" || echo "capture of $name differs${tag}" >&2
            measure "generate $tables t/$schemas s$tag" "$build" --snapshot "$dir/cap-$name.json" --database Bench -o "$dir/out.udml"
        done
    done
done
[ -n "${BENCH_DIR:-}" ] || rm -rf "$dir"
