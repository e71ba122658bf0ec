#!/usr/bin/env bash
# Builds the libFuzzer targets with clang under AddressSanitizer + UndefinedBehaviorSanitizer in a
# build folder of their own, then runs every target for a bounded time from its seed corpus
# (fuzz/corpus/<target>). Any crash, sanitizer report, leak or timeout fails the script; the input
# that caused it is kept in <build>/artifacts.
#
# Settings (environment): FUZZ_SECONDS (per target, default 30), FUZZ_BUILD_DIR (default
# build-fuzz), JOBS (targets run side by side, default 2), FUZZ_TARGETS (names, default all).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=${FUZZ_SECONDS:-30}
build=$root/${FUZZ_BUILD_DIR:-build-fuzz}
jobs=${JOBS:-2}
read -r -a targets <<<"${FUZZ_TARGETS:-snapshot udml_reader escaping text_conversion search_pattern}"

compiler=""
for candidate in clang++-14 clang++; do
  if command -v "$candidate" >/dev/null; then compiler=$(command -v "$candidate"); break; fi
done
[ -n "$compiler" ] || { echo "fuzz.sh: clang++ is not installed (scripts/deps.sh test)" >&2; exit 1; }

echo "== configure and build: ${build#"$root"/} (clang, libFuzzer, ASan + UBSan)"
cmake -S "$root" -B "$build" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DUDML_BUILD_FUZZERS=ON -DUDML_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$jobs" --target $(printf 'fuzz_%s ' "${targets[@]}") >/dev/null

mkdir -p "$build/artifacts" "$build/logs"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# New inputs go to a working corpus in the build folder; the committed seeds are only read.
run_target() { # name
  local name=$1 work=$build/corpus/$1
  mkdir -p "$work"
  "$build/bin/fuzz_$name" "$work" "$root/fuzz/corpus/$name" -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=2048 -max_len=8192 -print_final_stats=1 -artifact_prefix="$build/artifacts/$name-" \
    >"$build/logs/$name.log" 2>&1
}

failed=()
pids=()
names=()
finish_one() {
  local pid=${pids[0]} name=${names[0]}
  pids=("${pids[@]:1}")
  names=("${names[@]:1}")
  if wait "$pid"; then
    local runs
    runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/logs/$name.log" | grep -o '[0-9]*$' || echo "?")
    echo "fuzz_$name: ${runs} executions in ${seconds} s, no failure"
  else
    echo "fuzz_$name: FAILED (log: ${build#"$root"/}/logs/$name.log)" >&2
    grep -E -A 30 'ERROR|property broken|runtime error|Timeout|SUMMARY' "$build/logs/$name.log" | head -n 60 >&2 || true
    failed+=("$name")
  fi
}
echo "== fuzzing: ${#targets[@]} targets, ${seconds} s each, ${jobs} at a time"
for name in "${targets[@]}"; do
  run_target "$name" &
  pids+=($!)
  names+=("$name")
  if [ ${#pids[@]} -ge "$jobs" ]; then finish_one; fi
done
while [ ${#pids[@]} -gt 0 ]; do finish_one; done

if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz.sh: ${failed[*]} failed; the inputs are in ${build#"$root"/}/artifacts" >&2
  exit 1
fi
echo "== every fuzzer ran clean"
