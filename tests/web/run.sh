#!/usr/bin/env bash
# Runs a browser test (flow_test.mjs unless a second argument names
# another) against the orvane binary given: installs the
# pinned npm dependencies when they are missing (npm ci), and skips (exit
# 77) on a machine without node or chromium.
set -euo pipefail
binary="$(realpath "$1")"
cd "$(dirname "$0")"
if ! command -v node >/dev/null 2>&1; then
  echo "SKIPPED: node is missing (scripts/test installs it)"
  exit 77
fi
if [ ! -x /usr/bin/chromium ]; then
  echo "SKIPPED: /usr/bin/chromium is missing (scripts/test installs it)"
  exit 77
fi
# Browser tests started side by side must not install into one folder at once.
exec 9>"${TMPDIR:-/tmp}/orvane-web-npm-$(id -u).lock"
flock 9
if [ ! -d node_modules/playwright-core ] || [ package-lock.json -nt node_modules/.package-lock.json ]; then
  npm ci --no-audit --no-fund --silent
fi
flock -u 9
exec node "${2:-flow_test.mjs}" "$binary"
