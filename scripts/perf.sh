#!/usr/bin/env bash
# The performance comparison in one command: builds krin-perf and the
# benchmarks, runs them and the peer middleware's ddsperf in the same
# invocation, each run writing its figures as JSON into the build directory,
# then scripts/perfReport.py takes the medians, draws the plots and writes
# the report.
#
#   scripts/perf.sh           the full run: docs/performance.md and docs/perf/*.png
#   scripts/perf.sh --quick   two sizes, short runs, a smoke test of the pipeline;
#                             report and plots stay in the build directory
set -euo pipefail
cd "$(dirname "$0")/.."

quick=0
if [ "${1:-}" = "--quick" ]; then quick=1; fi

./scripts/setup.sh --perf

build="${LUMO_PERF_BUILD_DIR:-build-perf}"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --parallel 2 --target krin-perf entity_bench engine_bench

if [ $quick -eq 1 ]; then
  sizes=(64 1024); latency_sizes=(1024); seconds=1; round_trips=500; modes_sizes=(1024); bench_time=0.05
  repeats=1; cost_rate=50000; report_dir="$build/perf"
else
  sizes=(64 256 1024 4096 16384 65536); latency_sizes=(64 1024 16384); seconds=3; round_trips=5000
  modes_sizes=(64 1024); bench_time=0.3; repeats=3; cost_rate=150000; report_dir=docs
fi

perf="$build/tools/krin-perf"
data="$build/perf/data"
rm -rf "$data"
mkdir -p "$data"

# One krin-perf run, its JSON line appended to $1; a run that fails leaves
# its line out and the report shows the gap.
run() {
  local into=$1; shift
  timeout 120 "$perf" "$@" --json >> "$data/$into" || echo "perf: krin-perf $* failed" >&2
}
wire_bytes() { "$perf" throughput --impl raw --size "$1" --seconds 0.2 --warmup 0 --json | sed 's/.*"wire_bytes": \([0-9]*\).*/\1/'; }

# The peer middleware on loopback only, unicast, so that it meets the same
# network path as the plug-in. Without ddsperf the report says "n/a".
peer=0
if command -v ddsperf >/dev/null; then
  peer=1
  printf '%s' '<CycloneDDS><Domain><General><Interfaces><NetworkInterface name="lo"/></Interfaces><AllowMulticast>false</AllowMulticast></General><Discovery><Peers><Peer address="127.0.0.1"/></Peers><ParticipantIndex>auto</ParticipantIndex></Discovery></Domain></CycloneDDS>' \
    > "$data/cyclonedds.xml"
  export CYCLONEDDS_URI="file://$(pwd)/$data/cyclonedds.xml"
fi
# ddsperf MODE_A MODE_B SIZE NAME [ARGS_B...]: both sides of one ddsperf run,
# their output in $data/ddsperf-NAME-{a,b}.log and their CPU time in .time.
ddsperf_pair() {
  local a=$1 b=$2 size=$3 name=$4; shift 4
  [ $peer -eq 1 ] || return 0
  /usr/bin/time -f "%U %S %c %w" -o "$data/ddsperf-$name-a.time" \
    ddsperf -D $((seconds + 3)) "$a" > "$data/ddsperf-$name-a.log" 2>&1 &
  local first=$!
  sleep 0.5
  /usr/bin/time -f "%U %S %c %w" -o "$data/ddsperf-$name-b.time" \
    ddsperf -D $((seconds + 1)) "$b" "$@" size "$size" > "$data/ddsperf-$name-b.log" 2>&1 || true
  wait $first || true
}

echo "== throughput"
for size in "${sizes[@]}"; do
  for ((k = 0; k < repeats; ++k)); do
    run throughput.jsonl throughput --impl plugin --read listener --size "$size" --seconds "$seconds"
    run throughput.jsonl throughput --impl raw --size "$size" --seconds "$seconds"
    run throughput.jsonl throughput --impl zmq --size "$size" --seconds "$seconds"
  done
  ddsperf_pair sub pub "$(wire_bytes "$size")" "throughput-$size"
done

echo "== cost per sample at $cost_rate samples/s"
for size in 64 1024; do
  for impl in plugin raw zmq; do
    run cost.jsonl throughput --impl "$impl" --size "$size" --seconds "$seconds" --rate "$cost_rate" \
      -p krin.runtime.highWaterMark=20000
  done
  ddsperf_pair sub pub "$(wire_bytes "$size")" "cost-$size" "${cost_rate}Hz"
done

echo "== read modes"
for size in "${modes_sizes[@]}"; do
  for mode in listener read poll notifier; do
    for ((k = 0; k < repeats; ++k)); do
      run modes.jsonl throughput --impl plugin --read "$mode" --size "$size" --seconds "$seconds"
    done
  done
done

echo "== latency"
for size in "${latency_sizes[@]}"; do
  for impl in plugin raw zmq; do
    run latency.jsonl latency --impl "$impl" --size "$size" --round-trips "$round_trips" \
      --latency-out "$data/latency-$impl-$size.txt"
  done
  ddsperf_pair pong ping "$(wire_bytes "$size")" "latency-$size"
done
for mode in read poll notifier; do
  run latency.jsonl latency --impl plugin --read "$mode" --size 1024 --round-trips "$round_trips"
done

echo "== micro-benchmarks"
# Five repetitions each, the median reported: the pairs compared differ by a
# nanosecond or two, less than one run's scatter.
for bench in entity engine; do
  "$build/bench/${bench}_bench" --benchmark_min_time="$bench_time" --benchmark_repetitions=5 \
    --benchmark_report_aggregates_only=true --benchmark_format=json 2>/dev/null > "$data/$bench.json"
done

echo "== report"
/usr/bin/python3 scripts/perfReport.py --data "$data" --out "$report_dir" --cost-rate "$cost_rate" \
  --command "scripts/perf.sh$([ $quick -eq 1 ] && echo " --quick")"
