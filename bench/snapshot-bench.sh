#!/usr/bin/env bash
# Time and peak memory of the snapshot source: for each size, a synthetic snapshot (make-snapshot.py)
# with every table in one schema and spread over 100 schemas, captured once by `udmlgen snapshot`.
# Then, each in a process of its own:
#   source    bench_snapshot: open the capture and walk every table's columns and keys (no generator)
#   capture   `udmlgen snapshot` over the capture (reads through the source, writes as it reads;
#             the result must be byte for byte the capture)
#   generate  `udmlgen --snapshot` whole database to a file
# Prints one row per run: wall time, CPU time (user + system) and peak resident memory. Not part of
# the test suite.
#
#   bash bench/snapshot-bench.sh [BUILD_DIR] [SIZES...]    # defaults: build, 10000 100000
#   BENCH_DIR=/tmp/snapbench bash bench/snapshot-bench.sh   # keep the files for another run
#
# BUILD_DIR needs udmlgen and bench_snapshot (-DUDML_BUILD_BENCHMARKS=ON).
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:-$here/../build}" && pwd)
shift || true
sizes=(${@:-10000 100000})
dir=${BENCH_DIR:-$(mktemp -d)}
mkdir -p "$dir"

measure() { # label, command...: prints label, wall s, cpu s, peak MiB
    local label=$1
    shift
    /usr/bin/time -o "$dir/time.txt" -f '%e %U %S %M' "$@" >/dev/null
    read -r wall user sys kib <"$dir/time.txt"
    printf '| %-30s | %8.2f | %8.2f | %8.1f |\n' "$label" "$wall" "$(echo "$user + $sys" | bc)" \
        "$(echo "scale=1; $kib / 1024" | bc)"
}

echo "| run | wall s | cpu s | peak MiB |"
echo "|---|---:|---:|---:|"
for tables in "${sizes[@]}"; do
    for schemas in 1 100; do
        name=$tables-$schemas
        [ -s "$dir/gen-$name.json" ] || python3 "$here/make-snapshot.py" "$tables" "$schemas" "$dir/gen-$name.json"
        [ -s "$dir/cap-$name.json" ] || "$build/bin/udmlgen" snapshot --snapshot "$dir/gen-$name.json" -o "$dir/cap-$name.json"
        size=$(($(stat -c %s "$dir/cap-$name.json") / 1000000))
        UDML_SNAPSHOT_BENCH_DIR=$dir measure "source $tables t/$schemas s ($size MB)" \
            "$build/bin/bench_snapshot" --benchmark_filter="/$tables/$schemas/"
        measure "capture $tables t/$schemas s" "$build/bin/udmlgen" snapshot --snapshot "$dir/cap-$name.json" \
            -o "$dir/recap.json"
        cmp -s "$dir/cap-$name.json" "$dir/recap.json" || echo "the capture of $name differs" >&2
        measure "generate $tables t/$schemas s" "$build/bin/udmlgen" --snapshot "$dir/cap-$name.json" \
            --database Bench -o "$dir/out.udml"
        rm -f "$dir/recap.json" "$dir/out.udml"
    done
done
[ -n "${BENCH_DIR:-}" ] || rm -rf "$dir"
