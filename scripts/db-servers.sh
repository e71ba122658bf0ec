#!/usr/bin/env bash
# Throwaway PostgreSQL 15 and MariaDB servers for the tests against real databases: each listens on
# 127.0.0.1 at a port of its own, keeps its data under one scratch folder and never touches the
# system's services. Usage: db-servers.sh start|stop|env
#
# Settings (environment): UDML_DB_DIR (scratch folder, default ${TMPDIR:-/tmp}/udml-db-servers),
# UDML_PG_PORT (default 55432), UDML_MARIADB_PORT (default 53306), UDML_PG_OPTIONS (further
# server settings, such as "-c max_locks_per_transaction=4096").
#
# `samples` (after start) loads the public sample schemas of UDML_SAMPLES_DIR (default
# /work/shared/real-schemas) once: into PostgreSQL databases udml_<sample>, into MariaDB databases
# sample_<sample> that only the account udml_sample (the test password) sees, so that they stay
# out of the test account's listings, and into SQLite files under $UDML_DB_DIR/sqlite.
set -euo pipefail

base=${UDML_DB_DIR:-${TMPDIR:-/tmp}/udml-db-servers}
pg_port=${UDML_PG_PORT:-55432}
my_port=${UDML_MARIADB_PORT:-53306}
pg_bin=/usr/lib/postgresql/15/bin

# The test account of both servers. The password holds a blank and a semicolon so that the
# connection string must brace it: a source that appends it unquoted cannot log in.
test_user=udml
test_password='udml pw;1'
pg_database=udml_test

pg_dir=$base/pg
pg_data=$pg_dir/data
pg_log=$pg_dir/server.log
my_dir=$base/mariadb
my_data=$my_dir/data
my_socket=$my_dir/mysqld.sock
my_pid=$my_dir/mysqld.pid
my_log=$my_dir/server.log

die() {
  echo "db-servers.sh: $*" >&2
  exit 1
}

# Prints a server's log to standard error, then fails with the message.
die_with_log() { # message, log file
  if [ -f "$2" ]; then
    echo "---- $2 (last 40 lines)" >&2
    tail -n 40 "$2" >&2 || true
    echo "----" >&2
  fi
  die "$1"
}

driver_path() { # package, library name
  local path
  path=$(dpkg -L "$1" 2>/dev/null | grep "/$2\$" | head -n 1 || true)
  [ -n "$path" ] || die "the ODBC driver $2 is not installed (package $1; run scripts/deps.sh test)"
  echo "$path"
}

# The servers refuse to run as root, so as root they run under their packages' accounts.
pg_owner=""
my_owner=""
if [ "$(id -u)" -eq 0 ]; then
  pg_owner=postgres
  my_owner=mysql
fi

as_pg() {
  if [ -n "$pg_owner" ]; then runuser -u "$pg_owner" -- "$@"; else "$@"; fi
}

# SQL as the PostgreSQL superuser through the server's private socket.
pg_admin_sql() {
  as_pg "$pg_bin/psql" -X -q -v ON_ERROR_STOP=1 -h "$pg_dir" -p "$pg_port" -U postgres -d postgres
}

pg_running() {
  [ -f "$pg_data/PG_VERSION" ] && as_pg "$pg_bin/pg_ctl" -D "$pg_data" status >/dev/null 2>&1
}

start_pg() {
  [ -x "$pg_bin/initdb" ] || die "PostgreSQL 15 is not installed ($pg_bin; run scripts/deps.sh test)"
  if pg_running; then
    return 0
  fi
  mkdir -p "$pg_dir"
  [ -z "$pg_owner" ] || chown "$pg_owner" "$pg_dir"
  if [ ! -f "$pg_data/PG_VERSION" ]; then
    rm -rf "$pg_data"
    # Local socket connections are trusted (only the superuser setup uses them); TCP needs the
    # password, so a wrong one fails as it would against a real server.
    as_pg "$pg_bin/initdb" -D "$pg_data" -U postgres -E UTF8 --locale=C.UTF-8 --no-sync \
      --auth-local=trust --auth-host=scram-sha-256 >"$pg_dir/initdb.log" 2>&1 ||
      die_with_log "PostgreSQL initdb failed" "$pg_dir/initdb.log"
  fi
  as_pg "$pg_bin/pg_ctl" -D "$pg_data" -l "$pg_log" -w -t 30 \
    -o "-c listen_addresses=127.0.0.1 -p $pg_port -c unix_socket_directories='$pg_dir' -c fsync=off ${UDML_PG_OPTIONS:-}" \
    start >/dev/null 2>&1 || die_with_log "PostgreSQL did not start on 127.0.0.1:$pg_port" "$pg_log"
  local quoted_password=${test_password//\'/\'\'}
  pg_admin_sql <<SQL || die_with_log "PostgreSQL test account setup failed" "$pg_log"
DO \$\$
BEGIN
  IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = '$test_user') THEN
    CREATE ROLE $test_user LOGIN PASSWORD '$quoted_password';
  END IF;
END
\$\$;
SELECT 'CREATE DATABASE $pg_database OWNER $test_user ENCODING ''UTF8'' TEMPLATE template0'
WHERE NOT EXISTS (SELECT FROM pg_database WHERE datname = '$pg_database') \gexec
SQL
}

stop_pg() {
  if pg_running; then
    as_pg "$pg_bin/pg_ctl" -D "$pg_data" -m immediate -w -t 30 stop >/dev/null 2>&1 || true
  fi
  rm -rf "$pg_dir"
}

# A killed server may linger as a zombie until whoever inherited it reaps it: that counts as gone.
pid_running() {
  local state
  state=$(ps -o stat= -p "$1" 2>/dev/null || true)
  [ -n "$state" ] && [ "${state#Z}" = "$state" ]
}

my_alive() {
  [ -f "$my_pid" ] && pid_running "$(cat "$my_pid")"
}

my_ping() {
  mariadb-admin --no-defaults --socket="$my_socket" -uroot --connect-timeout=2 ping >/dev/null 2>&1
}

start_mariadb() {
  command -v mariadbd >/dev/null || [ -x /usr/sbin/mariadbd ] ||
    die "MariaDB is not installed (mariadbd; run scripts/deps.sh test)"
  local mariadbd=/usr/sbin/mariadbd
  [ -x "$mariadbd" ] || mariadbd=$(command -v mariadbd)
  if my_alive && my_ping; then
    return 0
  fi
  mkdir -p "$my_dir"
  [ -z "$my_owner" ] || chown "$my_owner" "$my_dir"
  local user_opt=()
  [ -z "$my_owner" ] || user_opt=(--user="$my_owner")
  if [ ! -d "$my_data/mysql" ]; then
    rm -rf "$my_data"
    # root keeps an empty password, reachable only through the private socket.
    mariadb-install-db --no-defaults "${user_opt[@]}" --datadir="$my_data" --skip-test-db \
      --auth-root-authentication-method=normal >"$my_dir/install.log" 2>&1 ||
      die_with_log "MariaDB mariadb-install-db failed" "$my_dir/install.log"
  fi
  rm -f "$my_socket" "$my_pid"
  # setsid detaches the server from the caller's terminal and process group, so that a test runner
  # that ends its children does not take the server with it.
  setsid "$mariadbd" --no-defaults "${user_opt[@]}" --datadir="$my_data" --socket="$my_socket" \
    --port="$my_port" --bind-address=127.0.0.1 --skip-name-resolve --pid-file="$my_pid" --log-error="$my_log" \
    --skip-log-bin --innodb-buffer-pool-size=32M --innodb-flush-log-at-trx-commit=0 \
    --character-set-server=utf8mb4 --collation-server=utf8mb4_bin </dev/null >/dev/null 2>&1 &
  local i
  for i in $(seq 1 120); do
    if my_ping; then break; fi
    if [ "$i" -gt 4 ] && ! my_alive && ! pid_running $!; then
      die_with_log "MariaDB exited while starting on 127.0.0.1:$my_port" "$my_log"
    fi
    sleep 0.25
  done
  my_ping || die_with_log "MariaDB did not answer within 30 seconds on 127.0.0.1:$my_port" "$my_log"
  local quoted_password=${test_password//\'/\'\'}
  # The test account sees only the fixture databases (named udml...), so that a listing of every
  # catalog does not depend on the server's own databases.
  mariadb --no-defaults --socket="$my_socket" -uroot <<SQL || die_with_log "MariaDB test account setup failed" "$my_log"
CREATE USER IF NOT EXISTS '$test_user'@'127.0.0.1' IDENTIFIED BY '$quoted_password';
CREATE USER IF NOT EXISTS '$test_user'@'localhost' IDENTIFIED BY '$quoted_password';
GRANT ALL PRIVILEGES ON \`udml%\`.* TO '$test_user'@'127.0.0.1';
GRANT ALL PRIVILEGES ON \`udml%\`.* TO '$test_user'@'localhost';
SQL
}

stop_mariadb() {
  # The data is thrown away, so the server need not shut down cleanly: that would take seconds.
  if my_alive; then
    local pid i
    pid=$(cat "$my_pid")
    kill -KILL "$pid" 2>/dev/null || true
    for i in $(seq 1 40); do
      pid_running "$pid" || break
      sleep 0.25
    done
  fi
  rm -rf "$my_dir"
}

samples_dir=${UDML_SAMPLES_DIR:-/work/shared/real-schemas}

# Loads each sample into a fresh database. The dumps create and enter databases of their own
# names: those lines are dropped so that each lands in udml_<sample>. PostgreSQL samples load as
# the superuser (they set owners and create extensions); the test account only reads them.
load_samples() {
  [ -d "$samples_dir" ] || die "no sample schemas in $samples_dir (set UDML_SAMPLES_DIR)"
  pg_running || die "PostgreSQL is not running: run db-servers.sh start first"
  my_ping || die "MariaDB is not running: run db-servers.sh start first"
  # Each server's folder goes with the server, so the markers say what this server run holds.
  if [ -f "$pg_dir/samples.loaded" ] && [ -f "$my_dir/samples.loaded" ]; then
    return 0
  fi
  local start=$SECONDS name file
  for name in pagila chinook northwind adventureworks; do
    case $name in
      pagila) file=pagila-schema.sql ;;
      *) file=$name-pg.sql ;;
    esac
    pg_admin_sql <<SQL || die "creating the PostgreSQL database udml_$name failed"
SET client_min_messages = warning;
DROP DATABASE IF EXISTS udml_$name;
CREATE DATABASE udml_$name ENCODING 'UTF8' TEMPLATE template0;
SQL
    grep -v -i -E '^(DROP DATABASE|CREATE DATABASE|\\c )' "$samples_dir/$file" |
      as_pg "$pg_bin/psql" -X -q -v ON_ERROR_STOP=1 -h "$pg_dir" -p "$pg_port" -U postgres -d "udml_$name" \
        >/dev/null 2>"$base/load-$name.log" || die_with_log "loading $file into PostgreSQL failed" "$base/load-$name.log"
  done
  local quoted_password=${test_password//\'/\'\'}
  mariadb --no-defaults --socket="$my_socket" -uroot <<SQL || die_with_log "MariaDB sample account setup failed" "$my_log"
CREATE USER IF NOT EXISTS 'udml_sample'@'127.0.0.1' IDENTIFIED BY '$quoted_password';
GRANT ALL PRIVILEGES ON \`sample\_%\`.* TO 'udml_sample'@'127.0.0.1';
SQL
  for name in chinook sakila; do
    {
      echo "DROP DATABASE IF EXISTS sample_$name; CREATE DATABASE sample_$name; USE sample_$name;"
      # sakila names its own database in its views.
      grep -v -i -E '^(DROP (DATABASE|SCHEMA)|CREATE (DATABASE|SCHEMA)|USE )' "$samples_dir/$name-mysql.sql" |
        sed "s/\b$name\./sample_$name./g"
    } | mariadb --no-defaults --socket="$my_socket" -uroot >"$base/load-my-$name.log" 2>&1 ||
      die_with_log "loading $name-mysql.sql into MariaDB failed" "$base/load-my-$name.log"
  done
  mkdir -p "$base/sqlite"
  for name in chinook sakila; do
    rm -f "$base/sqlite/$name.db"
    sqlite3 -bail "$base/sqlite/$name.db" <"$samples_dir/$name-sqlite.sql" >"$base/load-sqlite-$name.log" 2>&1 ||
      die_with_log "loading $name-sqlite.sql into SQLite failed" "$base/load-sqlite-$name.log"
  done
  touch "$pg_dir/samples.loaded" "$my_dir/samples.loaded"
  echo "db-servers.sh: loaded the sample schemas in $((SECONDS - start)) s (PostgreSQL udml_pagila," \
    "udml_chinook, udml_northwind, udml_adventureworks; MariaDB sample_chinook, sample_sakila as" \
    "udml_sample; SQLite $base/sqlite/chinook.db, sakila.db)"
}

print_env() {
  local pg_driver my_driver
  pg_driver=$(driver_path odbc-postgresql psqlodbcw.so)
  my_driver=$(driver_path odbc-mariadb libmaodbc.so)
  # KEY=VALUE lines, each value quoted for the shell, so that `eval "$(db-servers.sh env)"` works.
  local q="'"
  emit() { printf "%s=%s\n" "$1" "$q${2//$q/$q\\$q$q}$q"; }
  emit UDML_DB_USER "$test_user"
  emit UDML_DB_PASSWORD "$test_password"
  emit UDML_PG_HOST 127.0.0.1
  emit UDML_PG_PORT "$pg_port"
  emit UDML_PG_DATABASE "$pg_database"
  emit UDML_PG_CONNECT "Driver=$pg_driver;Server=127.0.0.1;Port=$pg_port;Database=$pg_database"
  emit UDML_MARIADB_HOST 127.0.0.1
  emit UDML_MARIADB_PORT "$my_port"
  emit UDML_MARIADB_SOCKET "$my_socket"
  emit UDML_MARIADB_CONNECT "Driver=$my_driver;Server=127.0.0.1;Port=$my_port"
  emit UDML_SQLITE_CONNECT "Driver=$(driver_path libsqliteodbc libsqlite3odbc.so);Database="
  emit UDML_SAMPLES_SQLITE_DIR "$base/sqlite"
}

case "${1:-}" in
  start)
    start_pg
    start_mariadb
    echo "db-servers.sh: PostgreSQL on 127.0.0.1:$pg_port, MariaDB on 127.0.0.1:$my_port (data in $base)"
    ;;
  stop)
    stop_pg
    stop_mariadb
    rm -rf "$base/sqlite" "$base"/load-*.log
    rmdir "$base" 2>/dev/null || true
    ;;
  env)
    print_env
    ;;
  samples)
    load_samples
    ;;
  *)
    echo "usage: db-servers.sh start|stop|env|samples" >&2
    exit 2
    ;;
esac
