#!/usr/bin/env bash
# The test command: installs what is missing, checks formatting, then builds and runs every test
# twice, in a normal build (whose Debian package is then tested unpacked, scripts/package-test.sh)
# and under AddressSanitizer + UndefinedBehaviorSanitizer, runs the tests that involve threads
# under ThreadSanitizer, and finally fuzzes every reader of outside text for a bounded time
# (scripts/fuzz.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${JOBS:-$(nproc)}

bash scripts/deps.sh all

run_build() { # name, extra cmake options...
  local dir=$1; shift
  echo "== configure and build: $dir"
  cmake -S "$root" -B "$root/$dir" -DUDML_BUILD_TESTS=ON -DUDML_SERVER_TESTS=ON "$@" >/dev/null
  cmake --build "$root/$dir" -j "$jobs"
}

run_tests() { # dir, extra ctest options...
  local dir=$1; shift
  echo "== tests: $dir"
  (cd "$root/$dir" && ctest --output-on-failure -j "$jobs" --timeout 600 "$@")
}

run_build build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build --target check-format
run_tests build
# The Debian package, unpacked into a scratch folder and used from there.
JOBS=$jobs bash scripts/package-test.sh build

run_build build-asan -DCMAKE_BUILD_TYPE=Debug -DUDML_SANITIZE=ON
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 run_tests build-asan

# The ODBC source reads keys on a second connection while the first reads columns, and the
# generator can be aborted from another thread: the tests that reach either, under ThreadSanitizer.
run_build build-tsan -DCMAKE_BUILD_TYPE=Debug -DUDML_SANITIZE_THREAD=ON
TSAN_OPTIONS=halt_on_error=1 run_tests build-tsan -L 'servers|hardening'

# Every reader of outside text under libFuzzer, a bounded time each (FUZZ_SECONDS).
JOBS=$jobs bash scripts/fuzz.sh
echo "== all tests passed in every build, and every fuzzer ran clean"
