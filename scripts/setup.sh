#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with, and nothing else.
# Idempotent: packages already present are left alone, and apt is only asked when
# something is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config ccache
  protobuf-compiler libprotobuf-dev libprotoc-dev
  libzmq3-dev cppzmq-dev
  liblog4cplus-dev
  liburiparser-dev uuid-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  libcli11-dev
  # the runtime's metrics page, and the checker its tests read the page with
  libcpp-httplib-dev prometheus
  # krin-scope's server; krin-record's compression
  libwebsocketpp-dev libboost-dev libzstd-dev liblz4-dev
  # the browser of krin-scope's tests; network namespaces of the two-host tests
  chromium iproute2
  # the Python package and its tests
  python3-dev pybind11-dev python3-numpy python3-pytest python3-protobuf
)
# Node.js builds krin-scope's page and runs the tests' MCAP reader and browser
# driver; Debian's, unless the machine has one.
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
  packages+=(nodejs npm)
fi

# `--perf` adds what scripts/perf.sh needs beyond the build: the peer it is
# measured against, the plotting library of scripts/perfReport.py and GNU time
# for the peer's CPU time. CI's test command never asks for it.
if [ "${1:-}" = "--perf" ]; then
  packages+=(cyclonedds-tools python3-matplotlib time)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
else
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The npm packages of krin-scope's page, of its browser tests and of the MCAP
# reader the recording tests read files with, exactly as their lock files pin
# them; installed again only when a lock file changed. No built tool needs
# Node.js at run time.
root="$(cd "$(dirname "$0")/.." && pwd)"
for folder in "$root/tools/scope/web" "$root/tests/scope" "$root/tests/mcap-reader"; do
  if [ ! -f "$folder/node_modules/.package-lock.json" ] ||
     [ "$folder/package-lock.json" -nt "$folder/node_modules/.package-lock.json" ]; then
    echo "setup: npm ci in ${folder#"$root"/}"
    (cd "$folder" && npm ci --ignore-scripts --prefer-offline --no-audit --no-fund --loglevel=error)
  fi
done
