#!/usr/bin/env bash
# Entry point for a new machine: installs what is missing, builds, then runs
# the demo (`./run.sh demo`) or every test (`./run.sh test`).
set -euo pipefail
cd "$(dirname "$0")"

what="${1:-demo}"
shift || true
# `./run.sh test --full` (and every CI run) adds the sanitizer and fuzz stages.
full=false
case "${CI:-}" in true | 1) full=true ;; esac
args=()
for arg in "$@"; do
  if [ "$arg" = "--full" ]; then full=true; else args+=("$arg"); fi
done
set -- ${args[@]+"${args[@]}"}
build_dir="${LUMO_BUILD_DIR:-build}"
# The compiler cache keys objects by paths relative to the clone, so another
# clone of the project (CI's, for one) reuses what this one compiled.
export CCACHE_BASEDIR="$PWD"
export CCACHE_NOHASHDIR=true
jobs="$(nproc)"

./scripts/setup.sh
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE="${LUMO_BUILD_TYPE:-RelWithDebInfo}" ${LUMO_CMAKE_ARGS:-}

case "$what" in
  demo)
    cmake --build "$build_dir" --parallel "$jobs" --target lumo-demo
    exec "$build_dir/tools/lumo-demo" "$@"
    ;;
  test)
    cmake --build "$build_dir" --parallel "$jobs"
    # Twice as many jobs as cores: several tests spend seconds waiting out
    # transport time-outs and overlap well.
    ctest --test-dir "$build_dir" --output-on-failure --parallel "$((jobs * 2))" "$@"
    if [ "$full" = true ]; then
      ./scripts/sanitizerStages.sh "$build_dir"
    fi
    ;;
  *)
    echo "usage: $0 [demo|test] [arguments]" >&2
    exit 2
    ;;
esac
