#!/usr/bin/env bash
# Builds the embedded sample sales database (SQLite) from examples/sample/sales.sql, from scratch,
# and prints the ODBC connection string that reaches it through the SQLite3 ODBC driver.
# Usage: sample-db.sh OUTPUT.db
set -euo pipefail

if [ $# -ne 1 ] || [ -z "$1" ]; then
  echo "usage: sample-db.sh OUTPUT.db" >&2
  exit 2
fi
here=$(cd "$(dirname "$0")" && pwd)
sql="$here/../examples/sample/sales.sql"

command -v sqlite3 >/dev/null || { echo "sample-db.sh: sqlite3 is not installed (scripts/deps.sh build)" >&2; exit 1; }

# The driver is named by its library path, so no odbcinst registration is needed.
driver=""
for candidate in $(dpkg -L libsqliteodbc 2>/dev/null | grep '/libsqlite3odbc\.so$') \
                 /usr/lib/x86_64-linux-gnu/odbc/libsqlite3odbc.so /usr/lib/odbc/libsqlite3odbc.so \
                 /usr/local/lib/libsqlite3odbc.so; do
  if [ -e "$candidate" ]; then driver=$candidate; break; fi
done
if [ -z "$driver" ]; then
  echo "sample-db.sh: the SQLite3 ODBC driver (libsqlite3odbc.so) is not installed (package libsqliteodbc)" >&2
  exit 1
fi

case "$1" in
  *";"*) echo "sample-db.sh: the output path must not contain \";\" (it goes into a connection string): $1" >&2; exit 2 ;;
esac
out_dir=$(dirname "$1")
mkdir -p "$out_dir"
out="$(cd "$out_dir" && pwd)/$(basename "$1")"

# Build beside the target and move it into place, so that a failed build leaves no half database
# and a reader never sees one.
tmp="$out.tmp.$$"
trap 'rm -f "$tmp"' EXIT
rm -f "$tmp"
sqlite3 -bail "$tmp" <"$sql" >/dev/null
mv -f "$tmp" "$out"
trap - EXIT

echo "Driver=$driver;Database=$out"
