#!/usr/bin/env bash
# The CSV transfer on a generated organisation: USERS users, USERS/5
# sections (ten children a parent) and 1.5 memberships a user, imported
# into an empty database (apply), previewed again (every line unchanged)
# and exported; wall time and peak memory of each `orvane` run. The mail
# side goes to a local exe-proxy peer (every user has a mail account, so
# one account command each).
#
#   bench/transfer_bench.sh BINARY sqlite|postgresql USERS
#
# PostgreSQL: ORVANE_TEST_PG_HOST/_PORT/_DATABASE as the tests use them
# (login kop47), a schema of its own dropped at the end. Passwords are
# stored plain (init-db --plain-passwords): see bench/README.md for the
# argon2id cost.
set -euo pipefail
binary="$(realpath "$1")" backend="$2" users="$3"
sections=$((users / 5)) dir="$(mktemp -d)" dsn="orvane_bench_$$"
pg_host="${ORVANE_TEST_PG_HOST:-127.0.0.1}" pg_port="${ORVANE_TEST_PG_PORT:-5432}"
pg_db="${ORVANE_TEST_PG_DATABASE:-orvane_test}" schema="transfer_bench_$$"
cleanup() {
  [ -n "${peer:-}" ] && kill "$peer" 2>/dev/null || true
  [ "$backend" = postgresql ] && PGPASSWORD=kop47 psql -q -h "$pg_host" -p "$pg_port" -U kop47 "$pg_db" \
    -c "drop schema if exists $schema cascade" >/dev/null 2>&1 || true
  rm -rf "$dir"
}
trap cleanup EXIT

# The exe-proxy peer: "OK:" to every SPEXE line, "BYE" to QUIT.
port_file="$dir/peer.port"
python3 - "$port_file" <<'PY' &
import socketserver, sys
class Peer(socketserver.StreamRequestHandler):
    def handle(self):
        for line in self.rfile:
            if line.startswith(b"QUIT"):
                self.wfile.write(b"BYE\r\n"); return
            self.wfile.write(b"OK: done\r\n")
class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
with Server(("127.0.0.1", 0), Peer) as s:
    open(sys.argv[1], "w").write(str(s.server_address[1]))
    s.serve_forever()
PY
peer=$!
while [ ! -s "$port_file" ]; do sleep 0.1; done

cat > "$dir/ORVANE.ini" <<INI
LOCAL_DB_DSN=$dsn
ML_MODE=2
ML_USEFLG=1
ML_ADDUSEFLG=1
ML_ISLOCAL=False
ML_SERVER=bench.example.jp
ML_SERVERIP=127.0.0.1
ML_EXEPROXY_PORT=$(cat "$port_file")
ML_FOLDER=D:\\IMail
JNJI_MODE=0
DAIRI_ONESELFFLG=0
INI
if [ "$backend" = sqlite ]; then
  printf '[%s]\nDriver=SQLite3\nDatabase=%s/orvane.db\n' "$dsn" "$dir" > "$dir/odbc.ini"
else
  PGPASSWORD=kop47 psql -q -h "$pg_host" -p "$pg_port" -U kop47 "$pg_db" -c "create schema $schema"
  printf '[%s]\nDriver=PostgreSQL Unicode\nServername=%s\nPort=%s\nDatabase=%s\nUseServerSidePrepare=0\nProtocol=7.4-2\nConnSettings=SET search_path TO %s\n' \
    "$dsn" "$pg_host" "$pg_port" "$pg_db" "$schema" > "$dir/odbc.ini"
fi
"$binary" init-db --config "$dir/ORVANE.ini" --plain-passwords >/dev/null

mkdir "$dir/in"
awk -v n="$sections" 'BEGIN {
  print "code,parent,name,display_name,mailing_list,department_code,order"
  for (i = 0; i < n; i++) {
    parent = i == 0 ? "9999" : sprintf("%04d", int((i - 1) / 10))
    printf "%04d,%s,課%d,課%d,,,%03d\n", i, parent, i, i, (i == 0 ? 1 : (i - 1) % 10 + 1)
  }
}' > "$dir/in/sections.csv"
awk -v n="$users" 'BEGIN {
  print "id,name,reading,mail_name,mail,alias_in_use,mail_use,phone,post,display_name,password"; m = ENVIRON["BENCH_MAIL_USE"] == "" ? 1 : ENVIRON["BENCH_MAIL_USE"]
  for (i = 0; i < n; i++) printf "u%06d,利用者 %d,リヨウシャ %d,利用者 %d,u%06d,0,%d,%d,係員,%03d,pw%d\n", i, i, i, i, i, m, 1000 + i % 9000, i % 1000, i
}' > "$dir/in/users.csv"
awk -v n="$users" -v s="$sections" 'BEGIN {
  print "user,section,kind,post,start,end,order"
  for (i = 0; i < n; i++) {
    printf "u%06d,%04d,1,,20240401,99999999,\n", i, i % s
    if (i % 2 == 0) printf "u%06d,%04d,0,,20240401,99999999,\n", i, (i + 7) % s
  }
}' > "$dir/in/memberships.csv"
awk -v n="$users" 'BEGIN { print "user,rights"; for (i = 0; i < n; i++) printf "u%06d,/01/21/\n", i }' > "$dir/in/menu_rights.csv"
files="$dir/in/sections.csv $dir/in/users.csv $dir/in/memberships.csv $dir/in/menu_rights.csv"

measure() {  # label, then the orvane arguments
  local label="$1"; shift
  /usr/bin/time -f "%e %M" -o "$dir/time" "$binary" "$@" > "$dir/out" 2>&1 || { cat "$dir/out"; exit 1; }
  read -r seconds kib < "$dir/time"
  printf '%-8s %-10s %6d users  %6.2f s  %7.1f MiB\n' "$backend" "$label" "$users" "$seconds" "$(echo "$kib / 1024" | bc -l)"
}
measure apply import --config "$dir/ORVANE.ini" --report "$dir/report.csv" $files
grep -q "0 mail commands failed" "$dir/out" || { cat "$dir/out"; exit 1; }
measure preview import --dry-run --config "$dir/ORVANE.ini" $files
measure export export --config "$dir/ORVANE.ini" --out "$dir/out-files"
