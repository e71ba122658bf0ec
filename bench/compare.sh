#!/usr/bin/env bash
# Times udmlgen against each DBMS's own dump tool and against a floor of plain catalog queries that
# fetch the same tables, columns, keys and foreign keys, on synthetic catalogs it builds on
# throwaway servers (scripts/db-servers.sh) and SQLite files. Rounds alternate the tools, so a
# disturbance hits them alike; medians of RUNS rounds, ratios and peak RSS go to one table.
# Usage: compare.sh [DBMS...]   DBMS: postgres mariadb sqlite (default: all three)
#
# Settings (environment): SIZES (table counts, default "1000 10000"), SCHEMAS (PostgreSQL schemas
# the tables are spread over, default 10; 1 gives the one-schema shape), RUNS (default 3),
# UDMLGEN (the udmlgen to time; default: built in build-bench), BENCH_DIR (scratch folder, default
# ${TMPDIR:-/tmp}/udml-bench), BENCH_PG_PORT (default 55492), BENCH_MARIADB_PORT (default 53392),
# RESULTS (default build-bench/compare-results.md; raw timings beside it), KEEP=1 keeps servers
# and catalogs for the next run (catalogs already built are reused).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

dbmses=("$@")
[ ${#dbmses[@]} -gt 0 ] || dbmses=(postgres mariadb sqlite)
read -r -a sizes <<<"${SIZES:-1000 10000}"
schemas=${SCHEMAS:-10}
runs=${RUNS:-3}
base=${BENCH_DIR:-${TMPDIR:-/tmp}/udml-bench}
results=${RESULTS:-$root/build-bench/compare-results.md}
raw=${results%.md}.raw.txt

die() {
  echo "compare.sh: $*" >&2
  exit 1
}
for dbms in "${dbmses[@]}"; do
  case $dbms in postgres | mariadb | sqlite) ;; *) die "unknown DBMS '$dbms' (postgres, mariadb or sqlite)" ;; esac
done
for value in "${sizes[@]}" "$schemas" "$runs"; do
  [[ $value =~ ^[1-9][0-9]*$ ]] || die "'$value' is not a positive number (SIZES, SCHEMAS, RUNS)"
done

bash scripts/deps.sh bench
bash scripts/deps.sh test
udmlgen=${UDMLGEN:-}
if [ -z "$udmlgen" ]; then
  echo "== building udmlgen (build-bench, RelWithDebInfo)" >&2
  cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$root/build-bench" -j "${JOBS:-2}" --target udmlgen >/dev/null
  udmlgen=$root/build-bench/bin/udmlgen
fi
[ -x "$udmlgen" ] || die "udmlgen not found at $udmlgen"

# The servers of the tests, moved to ports and a folder of the benchmark's own. pg_dump locks every
# table of the catalog in one transaction, hence the large lock table.
export UDML_DB_DIR=$base/servers UDML_PG_PORT=${BENCH_PG_PORT:-55492} UDML_MARIADB_PORT=${BENCH_MARIADB_PORT:-53392}
export UDML_PG_OPTIONS="-c max_locks_per_transaction=4096 -c shared_buffers=256MB"
set -a
eval "$(bash scripts/db-servers.sh env)"
set +a
pg_bin=/usr/lib/postgresql/15/bin
as_owner() { # account, command...
  local account=$1
  shift
  if [ "$(id -u)" -eq 0 ]; then runuser -u "$account" -- "$@"; else "$@"; fi
}
pg_admin() { as_owner postgres "$pg_bin/psql" -X -q -v ON_ERROR_STOP=1 -h "$UDML_DB_DIR/pg" -p "$UDML_PG_PORT" -U postgres "$@"; }
my_admin() { mariadb --no-defaults --socket="$UDML_MARIADB_SOCKET" -uroot "$@"; }
sqlite_driver=$(dpkg -L libsqliteodbc 2>/dev/null | grep '/libsqlite3odbc\.so$' | head -n 1)

servers_started=0
finish() {
  if [ "$servers_started" = 1 ] && [ "${KEEP:-0}" != 1 ]; then
    bash scripts/db-servers.sh stop >/dev/null 2>&1 || true
    rm -rf "$base"
  fi
}
trap finish EXIT
mkdir -p "$base"
for dbms in "${dbmses[@]}"; do
  if [ "$dbms" != sqlite ] && [ "$servers_started" = 0 ]; then
    bash scripts/db-servers.sh start >&2
    servers_started=1
  fi
done

build_catalog() { # dbms, tables
  local dbms=$1 tables=$2 ddl=$base/ddl.sql
  case $dbms in
    postgres)
      if pg_admin -d postgres -tAc "SELECT 1 FROM pg_database WHERE datname = 'bench_$tables'" | grep -q 1; then return; fi
      python3 bench/synthetic_catalog.py postgres "$tables" "$schemas" >"$ddl"
      pg_admin -d postgres -c "CREATE DATABASE bench_$tables OWNER $UDML_DB_USER TEMPLATE template0"
      PGPASSWORD=$UDML_DB_PASSWORD "$pg_bin/psql" -X -q -v ON_ERROR_STOP=1 -h 127.0.0.1 -p "$UDML_PG_PORT" \
        -U "$UDML_DB_USER" -d "bench_$tables" -f "$ddl" >/dev/null
      pg_admin -d "bench_$tables" -c "VACUUM ANALYZE"
      ;;
    mariadb)
      if my_admin -N -e "SHOW DATABASES LIKE 'udml_bench_$tables'" | grep -q .; then return; fi
      python3 bench/synthetic_catalog.py mariadb "$tables" 1 >"$ddl"
      my_admin -e "CREATE DATABASE udml_bench_$tables"
      my_admin "udml_bench_$tables" <"$ddl"
      ;;
    sqlite)
      [ -f "$base/bench_$tables.db" ] && return
      python3 bench/synthetic_catalog.py sqlite "$tables" 1 >"$ddl"
      sqlite3 -bail "$base/bench_$tables.db.tmp" <"$ddl" && mv "$base/bench_$tables.db.tmp" "$base/bench_$tables.db"
      ;;
  esac
  rm -f "$ddl"
}

# Each tool reads the whole catalog and writes it to /dev/null. The floors ask the catalog for the
# same four things udmlgen reads, with constant filters, and nothing else.
run_tool() { # dbms, tables, tool
  local dbms=$1 tables=$2 tool=$3
  case $dbms/$tool in
    postgres/udmlgen)
      UDMLGEN_PASSWORD=$UDML_DB_PASSWORD "$udmlgen" --connect \
        "${UDML_PG_CONNECT%;Database=*};Database=bench_$tables" --user "$UDML_DB_USER" --database PG ;;
    postgres/dump)
      PGPASSWORD=$UDML_DB_PASSWORD "$pg_bin/pg_dump" --schema-only -h 127.0.0.1 -p "$UDML_PG_PORT" \
        -U "$UDML_DB_USER" -d "bench_$tables" ;;
    postgres/floor)
      PGPASSWORD=$UDML_DB_PASSWORD "$pg_bin/psql" -X -q -A -t -h 127.0.0.1 -p "$UDML_PG_PORT" \
        -U "$UDML_DB_USER" -d "bench_$tables" <<'SQL' ;;
SELECT n.nspname, c.relname, c.relkind, obj_description(c.oid, 'pg_class') FROM pg_class c
  JOIN pg_namespace n ON n.oid = c.relnamespace
  WHERE c.relkind IN ('r', 'v', 'm', 'f', 'p') AND n.nspname NOT IN ('pg_catalog', 'information_schema');
SELECT n.nspname, c.relname, a.attname, format_type(a.atttypid, a.atttypmod), a.attnotnull,
       col_description(c.oid, a.attnum), pg_get_expr(d.adbin, d.adrelid) FROM pg_attribute a
  JOIN pg_class c ON c.oid = a.attrelid JOIN pg_namespace n ON n.oid = c.relnamespace
  LEFT JOIN pg_attrdef d ON d.adrelid = a.attrelid AND d.adnum = a.attnum
  WHERE a.attnum > 0 AND NOT a.attisdropped AND c.relkind IN ('r', 'v', 'm', 'f', 'p')
    AND n.nspname NOT IN ('pg_catalog', 'information_schema') ORDER BY 1, 2, a.attnum;
SELECT n.nspname, c.relname, k.conname, a.attname, u.ord FROM pg_constraint k
  JOIN pg_class c ON c.oid = k.conrelid JOIN pg_namespace n ON n.oid = c.relnamespace
  CROSS JOIN LATERAL unnest(k.conkey) WITH ORDINALITY u(attnum, ord)
  JOIN pg_attribute a ON a.attrelid = k.conrelid AND a.attnum = u.attnum WHERE k.contype = 'p';
SELECT k.conname, k.conrelid::regclass, k.confrelid::regclass, k.conkey, k.confkey, k.confupdtype,
       k.confdeltype FROM pg_constraint k WHERE k.contype = 'f';
SQL
    mariadb/udmlgen)
      UDMLGEN_PASSWORD=$UDML_DB_PASSWORD "$udmlgen" --connect "$UDML_MARIADB_CONNECT;Database=udml_bench_$tables" \
        --user "$UDML_DB_USER" --database MY --request catalog --catalog "udml_bench_$tables" ;;
    mariadb/dump)
      mariadb-dump --no-defaults --no-data -h 127.0.0.1 -P "$UDML_MARIADB_PORT" -u "$UDML_DB_USER" \
        "-p$UDML_DB_PASSWORD" "udml_bench_$tables" ;;
    mariadb/floor)
      mariadb --no-defaults -N -h 127.0.0.1 -P "$UDML_MARIADB_PORT" -u "$UDML_DB_USER" "-p$UDML_DB_PASSWORD" \
        "udml_bench_$tables" <<SQL ;;
SELECT TABLE_NAME, TABLE_TYPE, TABLE_COMMENT FROM INFORMATION_SCHEMA.TABLES WHERE TABLE_SCHEMA = 'udml_bench_$tables';
SELECT TABLE_NAME, COLUMN_NAME, ORDINAL_POSITION, COLUMN_TYPE, IS_NULLABLE, NUMERIC_PRECISION, NUMERIC_SCALE,
       CHARACTER_MAXIMUM_LENGTH, COLUMN_DEFAULT, COLUMN_COMMENT FROM INFORMATION_SCHEMA.COLUMNS
  WHERE TABLE_SCHEMA = 'udml_bench_$tables';
SELECT TABLE_NAME, COLUMN_NAME, ORDINAL_POSITION FROM INFORMATION_SCHEMA.KEY_COLUMN_USAGE
  WHERE TABLE_SCHEMA = 'udml_bench_$tables' AND CONSTRAINT_NAME = 'PRIMARY';
SELECT k.TABLE_NAME, k.CONSTRAINT_NAME, k.COLUMN_NAME, k.ORDINAL_POSITION, k.REFERENCED_TABLE_NAME,
       k.REFERENCED_COLUMN_NAME, r.UPDATE_RULE, r.DELETE_RULE FROM INFORMATION_SCHEMA.KEY_COLUMN_USAGE k
  JOIN INFORMATION_SCHEMA.REFERENTIAL_CONSTRAINTS r ON r.CONSTRAINT_SCHEMA = k.TABLE_SCHEMA
   AND r.CONSTRAINT_NAME = k.CONSTRAINT_NAME AND r.TABLE_NAME = k.TABLE_NAME
  WHERE k.TABLE_SCHEMA = 'udml_bench_$tables' AND k.REFERENCED_TABLE_NAME IS NOT NULL;
SQL
    sqlite/udmlgen)
      "$udmlgen" --connect "Driver=$sqlite_driver;Database=$base/bench_$tables.db" --database SQ ;;
    sqlite/dump)
      sqlite3 "$base/bench_$tables.db" .schema ;;
    sqlite/floor)
      sqlite3 "$base/bench_$tables.db" <<'SQL' ;;
SELECT m.name, m.type, p.cid, p.name, p.type, p."notnull", p.dflt_value, p.pk, f.id, f.seq, f."table", f."to",
       f.on_update, f.on_delete
  FROM sqlite_schema m JOIN pragma_table_info(m.name) p
  LEFT JOIN pragma_foreign_key_list(m.name) f ON f."from" = p.name WHERE m.type IN ('table', 'view');
SQL
  esac
}
export -f run_tool
export udmlgen pg_bin base sqlite_driver

# Once, untimed: udmlgen declares every table and foreign key, so that a fast run is not a run
# that stopped early.
check_udmlgen() { # dbms, tables
  local out=$base/check.udml declared keys
  run_tool "$1" "$2" udmlgen >"$out" || die "udmlgen failed on $1 with $2 tables"
  declared=$(grep -c '^DECLARE TABLE "' "$out" || true)
  keys=$(grep -c '^DECLARE FOREIGN KEY ' "$out" || true)
  [ "$declared" -eq "$2" ] && [ "$keys" -eq $(($2 - 1)) ] ||
    die "udmlgen declared $declared tables and $keys foreign keys on $1; expected $2 and $(($2 - 1))"
  rm -f "$out"
}

timed() { # dbms, tables, tool
  local stats=$base/time.out seconds peak
  /usr/bin/time -f '%e %M' -o "$stats" bash -c 'run_tool "$@" >/dev/null' _ "$@" 2>"$base/tool.err" ||
    { cat "$base/tool.err" >&2; die "$3 failed on $1 with $2 tables"; }
  read -r seconds peak <"$stats"
  echo "$1 $2 $3 $seconds $peak" >>"$raw"
  printf '   %-8s %-8s %8.2f s %8.1f MB\n' "$1" "$3" "$seconds" "$(echo "$peak" | awk '{print $1 / 1024}')" >&2
}

median() { sort -n | awk '{v[NR] = $1} END {if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

mkdir -p "$(dirname "$results")"
: >"$raw"
for dbms in "${dbmses[@]}"; do
  for size in "${sizes[@]}"; do
    echo "== $dbms, $size tables: building the catalog" >&2
    build_catalog "$dbms" "$size"
    check_udmlgen "$dbms" "$size"
    for run in $(seq 1 "$runs"); do
      echo "== $dbms, $size tables, round $run of $runs" >&2
      for tool in udmlgen dump floor; do timed "$dbms" "$size" "$tool"; done
    done
  done
done

{
  echo "| DBMS | tables | tool | median s | ratio to dump | ratio to floor | median peak RSS MB |"
  echo "|---|---:|---|---:|---:|---:|---:|"
  for dbms in "${dbmses[@]}"; do
    for size in "${sizes[@]}"; do
      pick() { awk -v d="$dbms" -v s="$size" -v t="$1" -v c="$2" '$1 == d && $2 == s && $3 == t {print $c}' "$raw" | median; }
      dump=$(pick dump 4)
      floor=$(pick floor 4)
      for tool in udmlgen dump floor; do
        awk -v d="$dbms" -v n="$size" -v t="$tool" -v s="$(pick "$tool" 4)" -v p="$(pick "$tool" 5)" \
          -v du="$dump" -v fl="$floor" \
          'BEGIN {printf "| %s | %s | %s | %.2f | %.2f | %.2f | %.1f |\n", d, n, t, s, (du > 0 ? s / du : 0), (fl > 0 ? s / fl : 0), p / 1024}'
      done
    done
  done
} | tee "$results"
echo "compare.sh: results in $results, raw timings in $raw" >&2
