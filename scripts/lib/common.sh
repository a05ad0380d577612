# Shared by scripts/demo and scripts/test: install what is missing, build.
# Sourced, not run.

ORVANE_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"

# Debian packages that building and running orvane needs.
ORVANE_BUILD_PACKAGES=(
  g++ cmake ninja-build pkg-config
  libcpp-httplib-dev libcli11-dev
  unixodbc unixodbc-dev libsqliteodbc sqlite3
  odbc-postgresql
  libgtest-dev libbenchmark-dev
)

# What scripts/test adds: a local PostgreSQL 15 server for the database
# cases (they run on SQLite and on PostgreSQL).
ORVANE_TEST_PACKAGES=(
  postgresql
)

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
