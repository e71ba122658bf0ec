#!/usr/bin/env bash
# End-to-end comparison on PostgreSQL: builds synthetic catalogs on a throwaway server and times
# udmlgen (through psqlODBC) against pg_dump --schema-only and SQLAlchemy reflection, alternating.
# Usage: pg-e2e.sh [TABLES...]   (default: 1000 10000)
#
# Settings (environment): PG_E2E_DIR (scratch folder, default ${TMPDIR:-/tmp}/udml-pg-e2e),
# PG_E2E_PORT (default 55491), RUNS (timed runs per tool and size, default 3), UDMLGEN (the
# udmlgen to time; default: built in build-bench), PG_E2E_RESULTS (the results table, default
# build-bench/pg-e2e-results.md, raw timings beside it), KEEP=1 keeps the server and its data,
# TOOLS (the tools to time, default "udmlgen pg_dump sqlalchemy").
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

sizes=("$@")
[ ${#sizes[@]} -gt 0 ] || sizes=(1000 10000)
base=${PG_E2E_DIR:-${TMPDIR:-/tmp}/udml-pg-e2e}
port=${PG_E2E_PORT:-55491}
runs=${RUNS:-3}
tools=${TOOLS:-udmlgen pg_dump sqlalchemy}
pg_bin=/usr/lib/postgresql/15/bin
user=bench
# A blank and a semicolon, so that the connection string must brace it.
password='bench pw;9'
pg_data=$base/data
pg_log=$base/server.log
results=${PG_E2E_RESULTS:-$root/build-bench/pg-e2e-results.md}

die() {
  echo "pg-e2e.sh: $*" >&2
  exit 1
}

for size in "${sizes[@]}"; do
  [[ $size =~ ^[1-9][0-9]*$ ]] || die "table count '$size' is not a positive number"
done
[[ $runs =~ ^[1-9][0-9]*$ ]] || die "RUNS='$runs' is not a positive number"

bash scripts/deps.sh bench

udmlgen=${UDMLGEN:-}
if [ -z "$udmlgen" ]; then
  echo "== building udmlgen (build-bench, RelWithDebInfo)" >&2
  cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$root/build-bench" -j "${JOBS:-2}" --target udmlgen >/dev/null
  udmlgen=$root/build-bench/bin/udmlgen
fi
[ -x "$udmlgen" ] || die "udmlgen not found at $udmlgen"
driver=$(dpkg -L odbc-postgresql 2>/dev/null | grep '/psqlodbcw\.so$' | head -n 1 || true)
[ -n "$driver" ] || die "psqlodbcw.so not found (package odbc-postgresql)"
[ -x "$pg_bin/initdb" ] || die "PostgreSQL 15 is not installed ($pg_bin)"

# The server refuses to run as root, so as root it runs under the package's account.
pg_owner=""
[ "$(id -u)" -ne 0 ] || pg_owner=postgres
as_pg() {
  if [ -n "$pg_owner" ]; then runuser -u "$pg_owner" -- "$@"; else "$@"; fi
}
admin_sql() { # database, then psql arguments
  local db=$1
  shift
  as_pg "$pg_bin/psql" -X -q -v ON_ERROR_STOP=1 -h "$base" -p "$port" -U postgres -d "$db" "$@"
}

stop_server() {
  if [ -f "$pg_data/postmaster.pid" ]; then
    as_pg "$pg_bin/pg_ctl" -D "$pg_data" -m fast -w -t 60 stop >/dev/null 2>&1 || true
  fi
  if [ "${KEEP:-0}" != 1 ]; then
    rm -rf "$base"
  fi
}

start_server() {
  mkdir -p "$base"
  [ -z "$pg_owner" ] || chown "$pg_owner" "$base"
  if [ ! -f "$pg_data/PG_VERSION" ]; then
    as_pg "$pg_bin/initdb" -D "$pg_data" -U postgres -E UTF8 --locale=C.UTF-8 --no-sync \
      --auth-local=trust --auth-host=scram-sha-256 >"$base/initdb.log" 2>&1 ||
      die "initdb failed; see $base/initdb.log"
  fi
  # Every table of a 10,000-table catalog is locked in one transaction, by the build below and
  # by pg_dump, hence the large lock table.
  as_pg "$pg_bin/pg_ctl" -D "$pg_data" -l "$pg_log" -w -t 60 \
    -o "-c listen_addresses=127.0.0.1 -p $port -c unix_socket_directories='$base' -c fsync=off \
        -c max_locks_per_transaction=4096 -c shared_buffers=256MB" \
    start >/dev/null 2>&1 || {
    tail -n 20 "$pg_log" >&2 || true
    die "PostgreSQL did not start on 127.0.0.1:$port"
  }
  admin_sql postgres <<SQL
DO \$\$
BEGIN
  IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = '$user') THEN
    CREATE ROLE $user LOGIN PASSWORD '${password//\'/\'\'}';
  END IF;
END
\$\$;
SQL
}

# The synthetic catalog: ten schemas, tables spread over them with ~12 columns of mixed types,
# a primary key (every fourth one composite), one foreign key per table (but the first) to an
# earlier table of any schema, and comments on every table and two of its columns.
build_catalog() { # database, tables
  local db=$1 tables=$2
  if admin_sql postgres -tAc "SELECT 1 FROM pg_database WHERE datname = '$db'" | grep -q 1; then
    return 0
  fi
  echo "== building $db ($tables tables)" >&2
  admin_sql postgres -c "CREATE DATABASE $db OWNER $user TEMPLATE template0"
  sed "s/@TABLES@/$tables/" <<'SQL' | admin_sql "$db"
SET ROLE bench;
DO $$
DECLARE
  schemas text[] := ARRAY['sales','inventory','finance','hr','crm','logistics','billing','support',
                          'marketing','analytics'];
  nouns text[] := ARRAY['customer','order','invoice','product','shipment','employee','account',
                        'payment','ticket','campaign','supplier','warehouse'];
  quals text[] := ARRAY['history','detail','line','summary','archive','staging'];
  n int := @TABLES@;
  sch text; tname text; rsch text; rname text; j int;
BEGIN
  FOREACH sch IN ARRAY schemas LOOP
    EXECUTE format('CREATE SCHEMA %I', sch);
  END LOOP;
  FOR i IN 0 .. n - 1 LOOP
    sch := schemas[i % 10 + 1];
    tname := format('%s_%s_%s', nouns[i % 12 + 1], quals[(i / 7) % 6 + 1], lpad(i::text, 5, '0'));
    EXECUTE format(
      'CREATE TABLE %I.%I (id integer NOT NULL, %s ref_id integer, ref_line integer, '
      'name varchar(120) NOT NULL, amount numeric(12,2), created_at timestamp NOT NULL DEFAULT now(), '
      'is_active boolean, notes text, valid_from date, ratio double precision, quantity smallint, '
      'code char(3), PRIMARY KEY (%s))',
      sch, tname, CASE WHEN i % 4 = 3 THEN 'line_no integer NOT NULL,' ELSE '' END,
      CASE WHEN i % 4 = 3 THEN 'id, line_no' ELSE 'id' END);
    EXECUTE format('COMMENT ON TABLE %I.%I IS %L', sch, tname,
                   'Rows of ' || tname || ', kept for the "' || sch || '" {reporting} area');
    EXECUTE format('COMMENT ON COLUMN %I.%I.name IS %L', sch, tname, 'Display name as entered by the clerk');
    EXECUTE format('COMMENT ON COLUMN %I.%I.amount IS %L', sch, tname, 'Übersicht: amount in the account''s currency');
    IF i > 0 THEN
      j := (i * 7919) % i;
      rsch := schemas[j % 10 + 1];
      rname := format('%s_%s_%s', nouns[j % 12 + 1], quals[(j / 7) % 6 + 1], lpad(j::text, 5, '0'));
      EXECUTE format('ALTER TABLE %I.%I ADD CONSTRAINT %I FOREIGN KEY (%s) REFERENCES %I.%I (%s)',
                     sch, tname, 'fk_' || tname,
                     CASE WHEN j % 4 = 3 THEN 'ref_id, ref_line' ELSE 'ref_id' END, rsch, rname,
                     CASE WHEN j % 4 = 3 THEN 'id, line_no' ELSE 'id' END);
    END IF;
  END LOOP;
END
$$;
SQL
  admin_sql "$db" -c "VACUUM ANALYZE"
}

connection() { # database
  echo "Driver=$driver;Server=127.0.0.1;Port=$port;Database=$1"
}

run_udmlgen() { # database
  UDMLGEN_PASSWORD=$password "$udmlgen" --connect "$(connection "$1")" --user "$user" --database PG \
    --request database --depth -1 >/dev/null
}

run_pg_dump() { # database
  PGPASSWORD=$password "$pg_bin/pg_dump" --schema-only -h 127.0.0.1 -p "$port" -U "$user" -d "$1" -f /dev/null
}

# Reflects every table of every user schema, foreign keys included, and says how much it found.
# Debian's own interpreter, which the Debian SQLAlchemy and psycopg2 packages belong to.
run_sqlalchemy() { # database
  PG_E2E_PASSWORD=$password PG_E2E_PORT=$port PG_E2E_DB=$1 PG_E2E_USER=$user /usr/bin/python3 - <<'PY'
import os, sys
import sqlalchemy as sa

url = sa.engine.URL.create("postgresql+psycopg2", username=os.environ["PG_E2E_USER"],
                           password=os.environ["PG_E2E_PASSWORD"], host="127.0.0.1",
                           port=int(os.environ["PG_E2E_PORT"]), database=os.environ["PG_E2E_DB"])
engine = sa.create_engine(url)
schemas = [s for s in sa.inspect(engine).get_schema_names()
           if s != "information_schema" and not s.startswith("pg_")]
metadata = sa.MetaData()
for schema in schemas:
    metadata.reflect(bind=engine, schema=schema, resolve_fks=True)
keys = sum(len(t.foreign_key_constraints) for t in metadata.tables.values())
print("sqlalchemy: %d tables, %d foreign keys" % (len(metadata.tables), keys), file=sys.stderr)
PY
}

# Runs one tool under /usr/bin/time (a function, so through bash: the shell's few milliseconds
# are counted, and the peak is that of the largest process) and records "size tool seconds peak-kB".
timed() { # size, tool, database
  local size=$1 tool=$2 db=$3 stats=$base/time.out
  if ! /usr/bin/time -f '%e %M' -o "$stats" bash -c "run_$tool \"\$1\"" _ "$db" 2>"$base/$tool.err"; then
    cat "$base/$tool.err" >&2
    die "$tool failed on $db"
  fi
  local seconds peak
  read -r seconds peak <"$stats"
  echo "$size $tool $seconds $peak" >>"$raw"
  [ "$tool" != sqlalchemy ] || tail -n 1 "$base/$tool.err" | sed 's/^/   /' >&2
  awk -v t="$tool" -v s="$seconds" -v p="$peak" 'BEGIN {printf "   %-10s %8.2f s %8.1f MB\n", t, s, p / 1024}' >&2
}
export -f run_udmlgen run_pg_dump run_sqlalchemy connection
export udmlgen driver port user password pg_bin

# Checks once, untimed, that udmlgen declares every table and foreign key of the catalog, so a
# fast run cannot be a run that stopped early.
check_udmlgen() { # database, tables
  local db=$1 tables=$2 out=$base/check.udml
  UDMLGEN_PASSWORD=$password "$udmlgen" --connect "$(connection "$db")" --user "$user" --database PG \
    --request database --depth -1 >"$out" || die "udmlgen failed on $db"
  local declared keys
  declared=$(grep -c '^DECLARE TABLE "' "$out" || true)
  keys=$(grep -c '^DECLARE FOREIGN KEY ' "$out" || true)
  [ "$declared" -eq "$tables" ] && [ "$keys" -eq $((tables - 1)) ] ||
    die "udmlgen declared $declared tables and $keys foreign keys on $db; expected $tables and $((tables - 1))"
  rm -f "$out"
}

median() { sort -n | awk '{v[NR] = $1} END {if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2}'; }

trap stop_server EXIT
start_server
raw=${results%.md}.raw.txt
mkdir -p "$(dirname "$results")"
: >"$raw"
for size in "${sizes[@]}"; do
  db=bench_$size
  build_catalog "$db" "$size"
  check_udmlgen "$db" "$size"
  for run in $(seq 1 "$runs"); do
    echo "== $db, run $run of $runs" >&2
    for tool in $tools; do
      timed "$size" "$tool" "$db"
    done
  done
done

{
  echo "| tables | tool | median s | ratio to pg_dump | median peak RSS MB | runs |"
  echo "|---:|---|---:|---:|---:|---:|"
  for size in "${sizes[@]}"; do
    dump=$(awk -v s="$size" '$1 == s && $2 == "pg_dump" {print $3}' "$raw" | median)
    for tool in $tools; do
      secs=$(awk -v s="$size" -v t="$tool" '$1 == s && $2 == t {print $3}' "$raw" | median)
      peak=$(awk -v s="$size" -v t="$tool" '$1 == s && $2 == t {print $4}' "$raw" | median)
      awk -v n="$size" -v t="$tool" -v s="$secs" -v d="$dump" -v p="$peak" -v r="$runs" \
        'BEGIN {printf "| %s | %s | %.2f | %.2f | %.1f | %s |\n", n, t, s, (d > 0 ? s / d : 0), p / 1024, r}'
    done
  done
} | tee "$results"
echo "pg-e2e.sh: results in $results, raw timings in $raw" >&2
[ "${KEEP:-0}" != 1 ] || echo "pg-e2e.sh: server and data kept in $base" >&2
