#!/usr/bin/env bash
# The main job on the embedded default: builds the project and the sample sales database, then
# prints the sample's UDML through ODBC and the SQLite ODBC driver.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/deps.sh build
cmake -S "$root" -B "$root/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DUDML_BUILD_TESTS=OFF >/dev/null
cmake --build "$root/build" -j "$(nproc)" --target udmlgen >&2
connection=$(bash scripts/sample-db.sh "$root/build/sample/sales.db")
exec "$root/build/bin/udmlgen" --connect "$connection" --database Sales "$@"
