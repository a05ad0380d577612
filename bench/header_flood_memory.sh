#!/usr/bin/env bash
# header_flood_memory: what eight header floods at once leave in the
# resident memory of `orvane serve`: about 700 KB of short headers on each
# of eight connections, each answered 431 and closed.
#
#   bench/header_flood_memory.sh [ORVANE_BINARY]
#
# Default: build/release/orvane. Serves on 127.0.0.1:18089 for the run, in
# a temporary folder with a SQLite file that /healthz never opens.
set -euo pipefail
cd "$(dirname "$0")/.."
binary="$(realpath "${1:-build/release/orvane}")"
port=18089
dir=$(mktemp -d)
printf 'LOCAL_DB_DSN=flood\nMAINFORM_BACK_COLOR=C0D0E0\n' > "$dir/ORVANE.ini"
printf '[flood]\nDriver=SQLite3\nDatabase=%s/flood.db\n' "$dir" > "$dir/odbc.ini"

"$binary" serve --config "$dir/ORVANE.ini" --listen "127.0.0.1:$port" --allow-anonymous-reads 2>/dev/null &
server=$!
trap 'kill "$server" 2>/dev/null || true; rm -rf "$dir"' EXIT
for _ in $(seq 1 100); do
  curl -sf "http://127.0.0.1:$port/healthz" >/dev/null && break
  sleep 0.1
done
kb() { awk -v key="$1:" '$1 == key {print $2}' "/proc/$server/status"; }
before=$(kb VmRSS)
python3 - "$port" <<'PY'
import socket, sys, threading
flood = b"GET /healthz HTTP/1.1\r\n" + b"X-a: b\r\n" * 90000 + b"\r\n"
status = []
def client():
    s = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
    try:
        s.sendall(flood)
    except OSError:
        pass  # the server may close before the flood is all sent
    status.append(s.recv(64).split(b"\r\n")[0].decode())
    s.close()
threads = [threading.Thread(target=client) for _ in range(8)]
for t in threads: t.start()
for t in threads: t.join()
print("answers:", sorted(set(status)), "x", len(status))
PY
sleep 0.5
echo "resident before the floods: $before kB; after: $(kb VmRSS) kB; peak (VmHWM): $(kb VmHWM) kB"
