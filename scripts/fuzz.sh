#!/usr/bin/env bash
# The long fuzz run: every libFuzzer target for SECONDS each (default 600),
# one after the other, from its committed seed corpus.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]
#
# Builds with clang in ${LUMO_FUZZ_BUILD_DIR:-build-fuzz}. Each run works in
# <build>/fuzz/runs/<target>/: the corpus it grew, log.txt with the figures,
# and the reproducer of a crash, if any. A crash fails the script; turn the
# reproducer into a regression test before anything else.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-600}"
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(fromByteArray_fuzz krinHeader_fuzz uri_fuzz subscriberReceive_fuzz)
fi
build_dir="${LUMO_FUZZ_BUILD_DIR:-build-fuzz}"

./scripts/setup.sh
cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
  -DLUMO_BUILD_FUZZERS=ON -DLUMO_SANITIZE_ADDRESS=ON -DLUMO_BUILD_TESTS=OFF -DLUMO_BUILD_BENCHMARKS=OFF \
  -DLUMO_FUZZ_SECONDS="$seconds" >/dev/null
cmake --build "$build_dir" --parallel "$(nproc)" --target "${targets[@]}"

status=0
for target in "${targets[@]}"; do
  echo "== $target: ${seconds}s"
  if ! ./fuzz/runBounded.sh "$build_dir/fuzz/$target" "fuzz/corpus/$target" "$build_dir/fuzz/runs/$target" \
      "$seconds"; then
    echo "== $target FOUND A FAILURE: see $build_dir/fuzz/runs/$target" >&2
    status=1
  fi
done
exit "$status"
