# Shared by scripts/demo and scripts/test: install what is missing, build.
# Sourced, not run.

ORVANE_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"

# Debian packages that building and running orvane needs.
ORVANE_BUILD_PACKAGES=(
  g++ cmake ninja-build pkg-config
  libboost1.81-dev libcpp-httplib-dev libcli11-dev nlohmann-json3-dev prometheus-cpp-dev
  unixodbc unixodbc-dev libsqliteodbc sqlite3
  odbc-postgresql
  libssl-dev libsodium-dev libcsv-dev
  libgtest-dev libbenchmark-dev
)

# What scripts/test adds: a local PostgreSQL 15 server for the database
# cases (they run on SQLite and on PostgreSQL), the openssl tool that makes
# the HTTPS tests' certificates and the browser that the browser tests
# drive (tests/web/).
ORVANE_TEST_PACKAGES=(
  postgresql
  openssl
  chromium
)

# The browser tests run on Node with playwright-core from npm, pinned in
# tests/web/package-lock.json. A machine that has node (for example from
# nodesource, with its own npm) keeps it; only where node is missing are
# Debian's nodejs and npm installed.
prepare_browser_tests() {
  # The font: the screenshots the tests take show Japanese text.
  install_missing chromium fonts-noto-cjk
  if ! command -v node >/dev/null 2>&1; then
    install_missing nodejs npm
  fi
  (cd "$ORVANE_ROOT/tests/web" && npm ci --no-audit --no-fund --silent)
}
# The fuzz smoke of scripts/test: clang and its libFuzzer runtime.
ORVANE_FUZZ_PACKAGES=(
  clang libclang-rt-14-dev
)

# Installs the packages given that are not installed yet. Needs root (or
# sudo) only when something is missing.
install_missing() {
  local missing=()
  local p
  for p in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$p")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing Debian packages: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null 2>&1; then
      sudo="sudo"
    else
      echo "error: these packages are missing and installing them needs root: ${missing[*]}" >&2
      return 1
    fi
  fi
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# Configures and builds one preset (debug or release).
build_preset() {
  local preset="$1"
  cd "$ORVANE_ROOT"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
}
