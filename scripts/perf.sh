#!/usr/bin/env bash
# The performance comparison in one command: builds krin-perf and the
# benchmarks, runs them and the peer middleware's ddsperf in the same
# invocation, each run writing its figures as JSON into the build directory,
# then scripts/perfReport.py takes the medians, draws the plots and writes
# the report.
#
#   scripts/perf.sh           the full run: docs/performance.md and docs/perf/*.png
#                             (the loop's 60 s runs at 1 and 10 kHz among them)
#   scripts/perf.sh --quick   two sizes, short runs (2 s loops), a smoke test of
#                             the pipeline; report and plots stay in the build directory
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
  repeats=1; cost_rate=50000; loop_seconds=2; keep_up_rates=(20000 100000); report_dir="$build/perf"
else
  sizes=(64 256 1024 4096 16384 65536); latency_sizes=(64 1024 16384); seconds=3; round_trips=5000
  modes_sizes=(64 1024); bench_time=0.3; repeats=3; cost_rate=150000; loop_seconds=60; report_dir=docs
  keep_up_rates=(10000 20000 50000 100000 150000 200000 300000 500000)
fi
loop_rates=(1000 10000)

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
loop_wire_bytes() { "$perf" loop --rate 100 --size "$1" --seconds 0.05 --json | sed 's/.*"wire_bytes": \([0-9]*\).*/\1/'; }

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
# ddsperf_alone NAME DURATION ARGS...: one ddsperf process with both sides
# (-L matches its own endpoints), its output in $data/ddsperf-NAME-b.log.
ddsperf_alone() {
  local name=$1 duration=$2; shift 2
  [ $peer -eq 1 ] || return 0
  ddsperf -L -D "$duration" "$@" > "$data/ddsperf-$name-b.log" 2>&1 || true
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
# Both sides in one process over one runtime, beside the runs above.
for ((k = 0; k < repeats; ++k)); do
  run inprocess.jsonl throughput --impl plugin --in-process --size 1024 --seconds "$seconds"
done
ddsperf_alone throughput-inprocess-1024 $((seconds + 1)) sub pub size "$(wire_bytes 1024)"

echo "== cost per sample at $cost_rate samples/s"
for size in 64 1024; do
  for impl in plugin raw zmq; do
    run cost.jsonl throughput --impl "$impl" --size "$size" --seconds "$seconds" --rate "$cost_rate" \
      -p krin.runtime.highWaterMark=20000
  done
  ddsperf_pair sub pub "$(wire_bytes "$size")" "cost-$size" "${cost_rate}Hz"
done

echo "== rates a subscriber keeps up with, 1 KiB"
# Each offered rate tried by every side; the report takes the highest below
# which every rate arrived whole.
for rate in "${keep_up_rates[@]}"; do
  for impl in plugin zmq; do
    run keepup.jsonl throughput --impl "$impl" --size 1024 --seconds "$seconds" --rate "$rate"
  done
  ddsperf_pair sub pub "$(wire_bytes 1024)" "keepup-$rate" "${rate}Hz"
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
run inprocess.jsonl latency --impl plugin --in-process --size 1024 --round-trips "$round_trips"
ddsperf_alone latency-inprocess-1024 $((seconds + 1)) ping size "$(wire_bytes 1024)" pong

echo "== loop: one-way latency at the loop's rate for $loop_seconds s"
# The field stabilisation loop's input at 1 kHz and ten times that, across
# processes and in one, every latency kept for the distribution; ddsperf's
# ping at the same rate against its pong, across processes and in one.
loop_size=$(loop_wire_bytes 1024 || true)
for rate in "${loop_rates[@]}"; do
  run loop.jsonl loop --rate "$rate" --seconds "$loop_seconds" --latency-out "$data/loop-plugin-$rate.txt"
  run loop.jsonl loop --rate "$rate" --seconds "$loop_seconds" --in-process \
    --latency-out "$data/loop-inprocess-$rate.txt"
  # ddsperf_pair runs for $seconds: here, for the loop's duration.
  seconds=$loop_seconds ddsperf_pair pong ping "$loop_size" "loop-$rate" "${rate}Hz"
  ddsperf_alone "loop-inprocess-$rate" "$loop_seconds" ping "${rate}Hz" size "$loop_size" pong
done

echo "== micro-benchmarks"
# Five repetitions each, the median reported: the pairs compared differ by a
# nanosecond or two, less than one run's scatter. Interleaved at random: run
# one benchmark after the other, a pair measured 1.6 apart, one way in one run
# and the other way in the next.
for bench in entity engine; do
  "$build/bench/${bench}_bench" --benchmark_min_time="$bench_time" --benchmark_repetitions=5 \
    --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_format=json 2>/dev/null > "$data/$bench.json"
done

echo "== report"
/usr/bin/python3 scripts/perfReport.py --data "$data" --out "$report_dir" --cost-rate "$cost_rate" \
  --command "scripts/perf.sh$([ $quick -eq 1 ] && echo " --quick")"
