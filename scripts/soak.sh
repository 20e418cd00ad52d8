#!/usr/bin/env bash
# The long soak: a publishing process and this host's subscribers for
# SECONDS (default 300) at RATE samples per second (default 20000), every
# sample_id accounted for, resident memory watched, then the stall that
# forces and counts losses.
#
#   scripts/soak.sh [SECONDS] [RATE]
#
# Builds in ${LUMO_BUILD_DIR:-build} (LUMO_CMAKE_ARGS are passed to cmake, for
# instance -DLUMO_SANITIZE_ADDRESS=ON). The figures are the lines that start
# with "[soak]".
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-300}"
rate="${2:-20000}"
build_dir="${LUMO_BUILD_DIR:-build}"

./scripts/setup.sh
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE="${LUMO_BUILD_TYPE:-RelWithDebInfo}" ${LUMO_CMAKE_ARGS:-} >/dev/null
cmake --build "$build_dir" --parallel "$(nproc)" --target soak_test soakPublisher lumotypes-krin-plugin
LUMO_SOAK_SECONDS="$seconds" LUMO_SOAK_RATE="$rate" "$build_dir/tests/soak/soak_test"
