#!/usr/bin/env bash
# The stages that `./run.sh test --full` (and CI) adds after the normal build
# and tests, each in a build directory of its own next to BUILD_DIR:
#
#   BUILD_DIR-asan  AddressSanitizer + UndefinedBehaviorSanitizer, leak
#                   checking on: the whole test suite
#   BUILD_DIR-tsan  ThreadSanitizer: the concurrency suites (engine,
#                   transport, the runtime, in-process faults)
#   BUILD_DIR-fuzz  clang + libFuzzer: each fuzz target for LUMO_FUZZ_SECONDS
#                   (default 20) from its seed corpus
#
#   scripts/sanitizerStages.sh BUILD_DIR [asan] [tsan] [fuzz]   (default: all three)
set -euo pipefail
cd "$(dirname "$0")/.."

base="${1:?usage: sanitizerStages.sh BUILD_DIR [asan] [tsan] [fuzz]}"
shift
stages=("$@")
if [ ${#stages[@]} -eq 0 ]; then stages=(asan tsan fuzz); fi
jobs="$(nproc)"
build_type="${LUMO_BUILD_TYPE:-RelWithDebInfo}"

stage() { echo "== stage $1: $(date -u +%H:%M:%S)"; }

asan() {
  local dir="$base-asan"
  stage "asan: build"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE="$build_type" -DLUMO_SANITIZE_ADDRESS=ON -DLUMO_BUILD_BENCHMARKS=OFF >/dev/null
  cmake --build "$dir" --parallel "$jobs"
  stage "asan: whole suite"
  # Every test but the one that installs the package and builds an example
  # host against it with the host's own flags: an uninstrumented program
  # cannot load instrumented libraries, so it says nothing about them here.
  ASAN_OPTIONS="detect_leaks=1:strict_string_checks=1:check_initialization_order=1" \
  UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1" \
    ctest --test-dir "$dir" --output-on-failure --parallel "$((jobs * 2))" --timeout 600 \
      -E '^InstalledPackageBuildsAndRunsTheExampleHost$'
}

# The suites where threads meet: the engine's, the transport's, the runtime's
# and the in-process faults. Run directly, two at a time.
tsan_suites=(
  tests/engine/QueuedSubscriberImpl_test tests/engine/QueuedSubscriberImplKeyed_test
  tests/engine/QueuedSubscriberImplReads_test tests/engine/DataEventPredicate_test
  tests/engine/QueuedSubscription_test tests/engine/QueuedSubscriber_test tests/engine/MapMrvSubscriber_test
  tests/engine/DataEventImpl_test
  tests/platform/krinDabo_test tests/platform/krinTransport_test tests/platform/inProcessPath_test
  tests/platform/runtimeSignals_test
  tests/transport/publisher_test tests/transport/publisherSend_test tests/transport/instancePublisher_test
  tests/transport/publisherDelegator_test tests/transport/wirePublisher_test
  tests/transport/subscriber_test tests/transport/subscriberReceive_test tests/transport/subscriberTracing_test
  tests/transport/mrvSubscriber_test tests/transport/mrvSubscriberReceive_test
  tests/faults/runtimeFaults_test
)

tsan() {
  local dir="$base-tsan"
  local targets=()
  for suite in "${tsan_suites[@]}"; do targets+=("$(basename "$suite")"); done
  stage "tsan: build"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE="$build_type" -DLUMO_SANITIZE_THREAD=ON -DLUMO_BUILD_BENCHMARKS=OFF >/dev/null
  cmake --build "$dir" --parallel "$jobs" --target "${targets[@]}" krin_test_peer krin_test_subscriber lumotypes-krin-plugin
  stage "tsan: concurrency suites"
  mkdir -p "$dir/tsan-logs"
  export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/scripts/threadSanitizer.supp"
  local failed=0
  printf '%s\n' "${tsan_suites[@]}" |
    xargs -P "$jobs" -I{} sh -c 'name=$(basename {}); if "'"$dir"'/{}" >"'"$dir"'/tsan-logs/$name.log" 2>&1; then echo "passed $name"; else echo "FAILED $name (see '"$dir"'/tsan-logs/$name.log)"; exit 1; fi' ||
    failed=1
  return "$failed"
}

fuzz() {
  local dir="$base-fuzz"
  local compiler="${LUMO_FUZZ_CXX:-clang++}"
  stage "fuzz: build"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE="$build_type" -DCMAKE_CXX_COMPILER="$compiler" -DLUMO_BUILD_FUZZERS=ON \
    -DLUMO_SANITIZE_ADDRESS=ON -DLUMO_BUILD_TESTS=OFF -DLUMO_BUILD_BENCHMARKS=OFF \
    -DLUMO_FUZZ_SECONDS="${LUMO_FUZZ_SECONDS:-20}" >/dev/null
  cmake --build "$dir" --parallel "$jobs" --target lumo-fuzzers
  stage "fuzz: bounded runs"
  ctest --test-dir "$dir" --output-on-failure -V -L fuzz
}

for s in "${stages[@]}"; do
  "$s"
done
stage "done"
