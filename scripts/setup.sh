#!/usr/bin/env bash
# Installs the Debian packages this project builds and tests with, and nothing else.
# Idempotent: packages already present are left alone, and apt is only asked when
# something is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config ccache libcli11-dev
  protobuf-compiler libprotobuf-dev libprotoc-dev
  libzmq3-dev cppzmq-dev
  liblog4cplus-dev
  liburiparser-dev uuid-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev
  libwebsocketpp-dev libboost-dev libcli11-dev chromium
  iproute2
)
# krin-scope's page is built with Node.js; the machine's own if it has one.
if ! command -v node >/dev/null 2>&1; then
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

# The npm packages of krin-scope's page and of its browser tests, exactly as
# their lock files pin them; the npm cache serves them when it can.
root="$(cd "$(dirname "$0")/.." && pwd)"
for folder in "$root/tools/scope/web" "$root/tests/scope"; do
  if [ ! -f "$folder/node_modules/.package-lock.json" ] ||
     [ "$folder/package-lock.json" -nt "$folder/node_modules/.package-lock.json" ]; then
    echo "setup: npm ci in ${folder#"$root"/}"
    (cd "$folder" && npm ci --prefer-offline --no-audit --no-fund --loglevel=error)
  fi
done
