# Starts the local PostgreSQL that the database tests use and exports its
# coordinates (ORVANE_TEST_PG_HOST, _PORT, _DATABASE). Sourced by
# scripts/test, after common.sh.
#
# Debian's cluster tools are used directly (no systemd needed): the cluster
# 15/main is created if missing and started; the role kop47 (password kop47,
# the system's default login) and a UTF-8 database with C collation are
# created if missing, so katakana ranges compare by code point. Never fatal:
# when any step fails the PostgreSQL cases are skipped and say so.

ORVANE_PG_VERSION=15
ORVANE_PG_CLUSTER=main
ORVANE_PG_DATABASE=orvane_test

# Runs a command as the postgres user (needs root or sudo).
as_postgres() {
  if [ "$(id -u)" -eq 0 ]; then
    runuser -u postgres -- "$@"
  else
    sudo -n -u postgres -- "$@"
  fi
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo -n "$@"; fi
}

pg_skip() {
  echo "PostgreSQL not available ($1): the PostgreSQL test cases will be skipped." >&2
  return 0
}

start_test_postgres() {
  if [ "$(id -u)" -ne 0 ] && ! sudo -n true 2>/dev/null; then
    pg_skip "starting it needs root or password-less sudo"
    return 0
  fi
  install_missing "${ORVANE_TEST_PACKAGES[@]}" || { pg_skip "could not install ${ORVANE_TEST_PACKAGES[*]}"; return 0; }

  local v="$ORVANE_PG_VERSION" c="$ORVANE_PG_CLUSTER"
  if ! pg_lsclusters -h 2>/dev/null | awk -v v="$v" -v c="$c" '$1==v && $2==c {found=1} END {exit !found}'; then
    as_root pg_createcluster "$v" "$c" >/dev/null || { pg_skip "pg_createcluster $v $c failed"; return 0; }
  fi
  if ! pg_lsclusters -h | awk -v v="$v" -v c="$c" '$1==v && $2==c && $4=="online" {ok=1} END {exit !ok}'; then
    as_root pg_ctlcluster "$v" "$c" start || { pg_skip "pg_ctlcluster $v $c start failed"; return 0; }
  fi
  local port
  port="$(pg_lsclusters -h | awk -v v="$v" -v c="$c" '$1==v && $2==c {print $3}')"
  pg_isready -q -h 127.0.0.1 -p "$port" -t 30 || { pg_skip "the server on port $port does not answer"; return 0; }

  if [ "$(as_postgres psql -p "$port" -tAc "SELECT 1 FROM pg_roles WHERE rolname = 'kop47'")" != "1" ]; then
    as_postgres psql -q -p "$port" -c "CREATE ROLE kop47 LOGIN PASSWORD 'kop47'" ||
      { pg_skip "could not create the role kop47"; return 0; }
  fi
  if [ "$(as_postgres psql -p "$port" -tAc "SELECT 1 FROM pg_database WHERE datname = '$ORVANE_PG_DATABASE'")" != "1" ]; then
    as_postgres createdb -p "$port" -E UTF8 --locale=C -T template0 -O kop47 "$ORVANE_PG_DATABASE" ||
      { pg_skip "could not create the database $ORVANE_PG_DATABASE"; return 0; }
  fi
  export ORVANE_TEST_PG_HOST=127.0.0.1
  export ORVANE_TEST_PG_PORT="$port"
  export ORVANE_TEST_PG_DATABASE="$ORVANE_PG_DATABASE"
  echo "PostgreSQL $v/$c on 127.0.0.1:$port, database $ORVANE_PG_DATABASE (role kop47) for the tests."
}
