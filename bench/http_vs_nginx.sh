#!/usr/bin/env bash
# http_vs_nginx: orvane's HTTP front end against nginx on the same machine
# in one run. wrk (2 threads, 16 connections, DURATION seconds each) asks
# nginx for a static file as large as /healthz's answer, then orvane for
# /healthz, 001, 101 and 106 (logged in as the demo administrator) on the
# demo database; plain HTTP, then TLS. Each is printed as requests/s, its
# ratio to nginx over the same protocol, and the p99 latency. Last, the
# peak memory of `orvane serve` holding 1,000 idle kept-alive connections.
#
#   bench/http_vs_nginx.sh [ORVANE_BINARY] [DURATION]
#
# Defaults: build/release/orvane, 5 s. Needs wrk, nginx (nginx-light),
# openssl, curl and python3. nginx runs as its own instance with a config
# in a temporary folder, on unprivileged loopback ports, never the system
# service. Everything started here is stopped at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
binary="$(realpath "${1:-build/release/orvane}")"
duration="${2:-5}"
for tool in wrk nginx openssl curl python3; do
  command -v "$tool" >/dev/null || { echo "http_vs_nginx: $tool is missing" >&2; exit 2; }
done

ulimit -n 8192  # 1,000 connections at the end
dir="$(mktemp -d /tmp/orvane-http-bench-XXXXXX)"
chmod 755 "$dir"  # nginx's workers run as its own user
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$dir"
}
trap cleanup EXIT

free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
wait_for() {
  for _ in $(seq 1 100); do curl -ksf "$1" >/dev/null && return 0; sleep 0.1; done
  echo "http_vs_nginx: nothing answers at $1" >&2
  exit 1
}

# The demo installation and a certificate for both servers.
source scripts/lib/demo_install.sh
write_demo_installation "$dir/demo" >/dev/null
"$binary" init-db --config "$dir/demo/ORVANE.ini" --demo >/dev/null
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=localhost \
  -keyout "$dir/key.pem" -out "$dir/cert.pem" >/dev/null 2>&1

# nginx: the answer of /healthz ("OK") as a file.
mkdir -p "$dir/www" "$dir/nginx-tmp"
printf 'OK' > "$dir/www/healthz"
nginx_http=$(free_port) nginx_https=$(free_port)
cat > "$dir/nginx.conf" <<CONF
worker_processes auto;
pid $dir/nginx.pid;
error_log $dir/nginx-error.log;
events { worker_connections 4096; }
http {
  access_log /dev/null;
  client_body_temp_path $dir/nginx-tmp/body;
  proxy_temp_path $dir/nginx-tmp/proxy;
  fastcgi_temp_path $dir/nginx-tmp/fastcgi;
  uwsgi_temp_path $dir/nginx-tmp/uwsgi;
  scgi_temp_path $dir/nginx-tmp/scgi;
  keepalive_requests 1000;
  default_type text/plain;
  server {
    listen 127.0.0.1:$nginx_http;
    listen 127.0.0.1:$nginx_https ssl;
    ssl_certificate $dir/cert.pem;
    ssl_certificate_key $dir/key.pem;
    ssl_protocols TLSv1.2 TLSv1.3;
    root $dir/www;
  }
}
CONF
nginx -c "$dir/nginx.conf" -g 'daemon off;' 2>>"$dir/nginx-error.log" &
pids+=($!)

# orvane, plain and TLS; the access log goes nowhere, as nginx's does.
orvane_http=$(free_port) orvane_https=$(free_port)
serve() {
  "$binary" serve --config "$dir/demo/ORVANE.ini" --listen "127.0.0.1:$1" --max-connections 4000 \
    --idle-timeout 120 "${@:2}" 2>/dev/null &
  pids+=($!)
}
serve "$orvane_http"
serve "$orvane_https" --tls-cert "$dir/cert.pem" --tls-key "$dir/key.pem"
wait_for "http://127.0.0.1:$nginx_http/healthz"
wait_for "https://127.0.0.1:$nginx_https/healthz"
wait_for "http://127.0.0.1:$orvane_http/healthz"
wait_for "https://127.0.0.1:$orvane_https/healthz"

login() {
  curl -ksf -D - -o /dev/null -d 'User_cd=admin&User_PS=admin' "$1/login" |
    sed -n 's/^Set-Cookie: \(ORVANE_SID=[0-9a-f]*\).*/\1/p'
}

# "requests/s p99" of one wrk run.
measure() {
  local out rps p99
  out=$(wrk -t2 -c16 -d"${duration}s" --latency "${@:2}" "$1")
  rps=$(awk '/^Requests\/sec:/ {print $2}' <<<"$out")
  p99=$(awk '$1 == "99%" {print $2}' <<<"$out")
  echo "$rps $p99"
}

echo "wrk -t2 -c16 -d${duration}s; $(nproc) cores; load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
printf '%-7s %-10s %12s %8s %10s\n' proto target "requests/s" ratio p99
for proto in http https; do
  if [ "$proto" = http ]; then nginx_base="http://127.0.0.1:$nginx_http" base="http://127.0.0.1:$orvane_http"
  else nginx_base="https://127.0.0.1:$nginx_https" base="https://127.0.0.1:$orvane_https"; fi
  cookie="Cookie: $(login "$base")"
  read -r nginx_rps nginx_p99 < <(measure "$nginx_base/healthz")
  printf '%-7s %-10s %12.0f %8s %10s\n' "$proto" nginx "$nginx_rps" 1.00 "$nginx_p99"
  for target in healthz 001 101 106; do
    case $target in
      healthz) url="$base/healthz" ;;
      106) url="$base/orvane?ReqNo=106&User_cd=admin" ;;
      *) url="$base/orvane?ReqNo=$target" ;;
    esac
    read -r rps p99 < <(measure "$url" -H "$cookie")
    printf '%-7s %-10s %12.0f %8.2f %10s\n' "$proto" "$target" "$rps" "$(echo "$rps / $nginx_rps" | bc -l)" "$p99"
  done
done

# 1,000 idle kept-alive connections (each has had one answer), held while
# the server's peak resident memory is read.
idle_memory() {
  python3 - "$1" "$2" <<'PY' &
import socket, ssl, sys, time
port, tls = int(sys.argv[1]), sys.argv[2] == "tls"
context = ssl.create_default_context()
context.check_hostname = False
context.verify_mode = ssl.CERT_NONE
held = []
for _ in range(1000):
    s = socket.create_connection(("127.0.0.1", port))
    if tls:
        s = context.wrap_socket(s)
    # One at a time: a thousand at once would meet --max-requests.
    s.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")
    assert s.recv(4096).endswith(b"OK")
    held.append(s)
time.sleep(5)
PY
  local client=$!
  sleep 4
  echo "$(awk '$1 == "VmHWM:" {print $2}' "/proc/$3/status") kB peak, $(awk '$1 == "VmRSS:" {print $2}' "/proc/$3/status") kB now"
  wait "$client"
}
# A server of its own, so the peak is not the load test's.
for proto in plain tls; do
  port=$(free_port)
  if [ $proto = plain ]; then serve "$port"; else serve "$port" --tls-cert "$dir/cert.pem" --tls-key "$dir/key.pem"; fi
  server=$!
  wait_for "$([ $proto = plain ] && echo http || echo https)://127.0.0.1:$port/healthz"
  echo "1,000 idle kept-alive connections ($proto): $(idle_memory "$port" $proto "$server")"
done
