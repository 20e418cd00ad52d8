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
  python3-dev pybind11-dev python3-numpy python3-pytest python3-protobuf
)

# `--perf` adds what scripts/perf.sh needs beyond the build: the peer it is
# measured against, the plotting tool and GNU time for the peer's CPU time.
# CI's test command never asks for it.
if [ "${1:-}" = "--perf" ]; then
  packages+=(cyclonedds-tools gnuplot-nox time)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
