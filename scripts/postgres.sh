#!/usr/bin/env bash
# Starts a throw-away PostgreSQL server for the tests, on a Unix socket in a
# temporary folder, with a private odbcinst.ini (CommLog=0: psqlODBC would
# otherwise write a log file per connection). Source it, then call
#   pg_start     exports MRPCALC_TEST_PG_DSN and ODBCSYSINI
#   pg_stop      stops the server and removes the folder
# initdb refuses to run as root, so as root the server runs as "postgres".

pg_bin() {
  local dir
  dir=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)
  [[ -n "$dir" ]] || { echo "PostgreSQL server binaries not found" >&2; return 1; }
  echo "$dir"
}

pg_as_owner() {
  if [[ $(id -u) -eq 0 ]]; then runuser -u postgres -- "$@"; else "$@"; fi
}

pg_start() {
  local bin
  bin=$(pg_bin) || return 1
  PG_TMP=$(mktemp -d /tmp/mrpcalc-pg.XXXXXX)
  chmod 755 "$PG_TMP"
  [[ $(id -u) -eq 0 ]] && chown postgres "$PG_TMP"
  local user=postgres
  [[ $(id -u) -ne 0 ]] && user=$(id -un)
  pg_as_owner "$bin/initdb" -D "$PG_TMP/data" -U "$user" -A trust -E UTF8 --locale=C.UTF-8 >"$PG_TMP/initdb.log" 2>&1 \
    || { cat "$PG_TMP/initdb.log" >&2; return 1; }
  pg_as_owner "$bin/pg_ctl" -D "$PG_TMP/data" -l "$PG_TMP/server.log" -w -t 60 \
    -o "-c listen_addresses='' -c unix_socket_directories='$PG_TMP' -c port=55432 -c fsync=off" start >/dev/null \
    || { cat "$PG_TMP/server.log" >&2; return 1; }
  cat >"$PG_TMP/odbcinst.ini" <<INI
[PostgreSQL Unicode]
Description=PostgreSQL ODBC driver (Unicode version)
Driver=psqlodbcw.so
Setup=libodbcpsqlS.so
Debug=0
CommLog=0
INI
  export ODBCSYSINI="$PG_TMP"
  export MRPCALC_TEST_PG_DSN="odbc:Driver={PostgreSQL Unicode};Servername=$PG_TMP;Port=55432;Database=postgres;UID=$user;"
  export PG_TMP
}

pg_stop() {
  [[ -n "${PG_TMP:-}" && -d "$PG_TMP" ]] || return 0
  local bin
  bin=$(pg_bin) || return 0
  pg_as_owner "$bin/pg_ctl" -D "$PG_TMP/data" -m immediate stop >/dev/null 2>&1 || true
  rm -rf "$PG_TMP"
}
