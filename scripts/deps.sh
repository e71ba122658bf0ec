#!/usr/bin/env bash
# Installs the Debian packages the project needs, only those missing.
# Usage: deps.sh [build|test|all|bench] (all is build and test; bench is build and benchmarks)
set -euo pipefail

build_pkgs=(g++ make cmake unixodbc unixodbc-dev odbcinst nlohmann-json3-dev libcli11-dev
            libsqliteodbc sqlite3 help2man dpkg-dev)
# The package test also needs pkg-config and man, and python3-jsonschema checks captured snapshots.
test_pkgs=(libgtest-dev libgmock-dev clang-format postgresql odbc-postgresql mariadb-server odbc-mariadb
           clang-14 libclang-rt-14-dev python3-jsonschema pkg-config man-db)
# The benchmarks: Google Benchmark, and what bench/pg-e2e.sh compares udmlgen with.
bench_pkgs=(libbenchmark-dev postgresql odbc-postgresql python3-sqlalchemy python3-psycopg2 time)

case "${1:-all}" in
  build) wanted=("${build_pkgs[@]}") ;;
  test|all) wanted=("${build_pkgs[@]}" "${test_pkgs[@]}") ;;
  bench) wanted=("${build_pkgs[@]}" "${bench_pkgs[@]}") ;;
  *) echo "deps.sh: unknown set '$1' (build, test, bench or all)" >&2; exit 2 ;;
esac

missing=()
for pkg in "${wanted[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$pkg")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "deps.sh: installing ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
# Keep package installs from starting services: the tests start their own servers. The file goes
# again on every exit, failure included, or every service apt installed later would never start;
# one that was there before is someone else's and stays.
if [ ! -e /usr/sbin/policy-rc.d ]; then
  trap '$SUDO rm -f /usr/sbin/policy-rc.d' EXIT
  printf '#!/bin/sh\nexit 101\n' | $SUDO tee /usr/sbin/policy-rc.d >/dev/null
  $SUDO chmod +x /usr/sbin/policy-rc.d
fi
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
