#!/usr/bin/env bash
# page_memory: the peak resident memory of `orvane serve` while 8 clients
# page through all users at once with request 102 (by name, 500 rows a
# page, every page that a 16-bit S_pos reaches), on the large organisation
# that read_bench generated.
#
#   bench/page_memory.sh [ORVANE_BINARY] [BENCH_DIR]
#
# Defaults: build/release/orvane and /tmp/orvane-bench (run read_bench first).
# Serves on 127.0.0.1:18088 for the run and stops the server at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
binary="${1:-build/release/orvane}"
dir="${2:-/tmp/orvane-bench}"
port=18088
[ -f "$dir/large.db" ] || { echo "page_memory: no $dir/large.db: run read_bench first" >&2; exit 2; }

# Queries open to all: the pages are read without logging in.
"$binary" serve --config "$dir/large.ini" --listen "127.0.0.1:$port" --threads 8 --allow-anonymous-reads 2>/dev/null &
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT
for _ in $(seq 1 100); do
  curl -sf "http://127.0.0.1:$port/healthz" >/dev/null && break
  sleep 0.1
done
kb() { awk -v key="$1:" '$1 == key {print $2}' "/proc/$server/status"; }
curl -sf "http://127.0.0.1:$port/orvane?ReqNo=102&S_Col=name&B_pos=500&S_pos=1" >/dev/null
before=$(kb VmRSS)

client() {
  local pages=0 s
  for s in $(seq 1 500 32767); do
    curl -sf "http://127.0.0.1:$port/orvane?ReqNo=102&S_Col=name&B_pos=500&S_pos=$s" >/dev/null
    pages=$((pages + 1))
  done
  echo "$pages"
}
start=$(date +%s.%N)
pids=()
for _ in $(seq 1 8); do client > "$dir/pages.$_" & pids+=($!); done
wait "${pids[@]}"
seconds=$(echo "$(date +%s.%N) - $start" | bc)
pages=$(cat "$dir"/pages.* | paste -sd+ | bc)
echo "8 clients, $pages pages of 500 users in ${seconds} s"
echo "resident before the clients: $before kB; peak (VmHWM) over the run: $(kb VmHWM) kB"
