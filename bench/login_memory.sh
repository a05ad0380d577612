#!/usr/bin/env bash
# login_memory: what a login costs with the passwords stored as argon2id
# hashes (19 MiB, 2 passes), against the plain mode, and the peak resident
# memory of `orvane serve` while 32 clients log in at once. Hashes run at
# most as many at a time as there are cores, so the peak should grow by
# about cores x 19 MiB, not 32 x 19 MiB.
#
#   bench/login_memory.sh [ORVANE_BINARY] [ROUNDS]
#
# Defaults: build/release/orvane, 20 sequential logins per mode. Each mode
# gets a demo installation (SQLite) in a temporary folder; the server
# listens on 127.0.0.1:18089 with 32 worker threads and is stopped after.
set -euo pipefail
cd "$(dirname "$0")/.."
binary="$(realpath "${1:-build/release/orvane}")"
rounds="${2:-20}"
port=18089
# shellcheck source=../scripts/lib/demo_install.sh
source scripts/lib/demo_install.sh
work="$(mktemp -d /tmp/orvane-login-bench.XXXXXX)"
server=
trap '[ -n "$server" ] && kill "$server" 2>/dev/null; rm -rf "$work"' EXIT

login() { curl -sf -o /dev/null -w '%{time_total}\n' -d 'User_cd=admin&User_PS=admin' "http://127.0.0.1:$port/login"; }
kb() { awk -v key="$1:" '$1 == key {print $2}' "/proc/$server/status"; }

measure() {
  local mode="$1" dir="$work/$1" flags=()
  [ "$mode" = plain ] && flags=(--plain-passwords)
  write_demo_installation "$dir" "orvane_login_${mode}_$$" >/dev/null
  "$binary" init-db --config "$dir/ORVANE.ini" --demo "${flags[@]}" >/dev/null
  "$binary" serve --config "$dir/ORVANE.ini" --listen "127.0.0.1:$port" --threads 32 2>/dev/null &
  server=$!
  for _ in $(seq 1 100); do
    curl -sf "http://127.0.0.1:$port/healthz" >/dev/null && break
    sleep 0.1
  done
  login >/dev/null  # warms the pool and the library
  local total
  total=$(for _ in $(seq 1 "$rounds"); do login; done | paste -sd+ | bc -l)
  printf '%-8s one login, mean of %s: %.1f ms\n' "$mode" "$rounds" "$(echo "$total * 1000 / $rounds" | bc -l)"
  local before peak start seconds
  before=$(kb VmHWM)
  start=$(date +%s.%N)
  for _ in $(seq 1 32); do login >/dev/null & done
  wait $(jobs -p | grep -v "^$server\$")
  seconds=$(echo "$(date +%s.%N) - $start" | bc -l)
  peak=$(kb VmHWM)
  printf '%-8s 32 logins at once: %.2f s; peak resident before %s kB, after %s kB (+%s kB)\n' \
    "$mode" "$seconds" "$before" "$peak" "$((peak - before))"
  kill "$server"
  wait "$server" 2>/dev/null || true
  server=
}

echo "cores: $(nproc)"
measure plain
measure argon2id
