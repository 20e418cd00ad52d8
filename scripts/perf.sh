#!/usr/bin/env bash
# One command for the performance comparison: builds krin-perf and the
# benchmarks, measures the plug-in, the raw pipeline under it and the peer
# middleware's own ddsperf in the same run, and writes docs/performance.md
# with its table of ratios and the plots in docs/perf/.
#
#   scripts/perf.sh [--quick]     (--quick: two sizes, short runs; a smoke test)
set -euo pipefail
cd "$(dirname "$0")/.."
root="$(pwd)"

quick=0
if [ "${1:-}" = "--quick" ]; then quick=1; fi

./scripts/setup.sh --perf

build="${LUMO_PERF_BUILD_DIR:-build-perf}"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --parallel 2 --target krin-perf entity_bench engine_bench

if [ $quick -eq 1 ]; then
  sizes=(64 1024); latency_sizes=(1024); seconds=1; round_trips=500; modes_sizes=(1024); bench_time=0.05; repeats=1
  cost_rate=50000
else
  sizes=(64 256 1024 4096 16384 65536); latency_sizes=(64 1024 16384); seconds=3; round_trips=5000
  modes_sizes=(64 1024); bench_time=0.3; repeats=3
  cost_rate=150000
fi

perf="$build/tools/krin-perf"
out="docs/perf"
data="$out/data"
mkdir -p "$data"
rm -f "$data"/*.txt "$data"/*.csv

# The peer middleware on loopback only, unicast, so that it meets the same
# network path as the plug-in.
cdds_config="$root/$data/cyclonedds.xml"
cat > "$cdds_config" <<'XML'
<CycloneDDS><Domain><General><Interfaces><NetworkInterface name="lo"/></Interfaces><AllowMulticast>false</AllowMulticast></General><Discovery><Peers><Peer address="127.0.0.1"/></Peers><ParticipantIndex>auto</ParticipantIndex></Discovery></Domain></CycloneDDS>
XML
export CYCLONEDDS_URI="file://$cdds_config"

median_of() { cut -d' ' -f"$1" "$2" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
field() { sed -n "s/.* $1=\([^ ]*\).*/\1/p"; }
# A throughput run of krin-perf repeated; the RESULT line of median rate.
# The machine is shared and two processes contend for two cores, so single
# runs scatter; the median of several is the figure.
throughput_median() {
  for ((k = 0; k < repeats; ++k)); do timeout 120 "$perf" throughput "$@" || true; done |
    awk '{ for (i = 1; i <= NF; ++i) if ($i ~ /^samples_per_s=/) { split($i, kv, "="); print kv[2], $0 } }' |
    sort -g | awk '{ line[NR] = $0 } END { l = line[int((NR + 1) / 2)]; sub(/^[^ ]* /, "", l); print l }'
}
wire_bytes() { "$perf" throughput --impl raw --size "$1" --seconds 0.2 --warmup 0 | field wire_bytes; }

# ddsperf pub/sub: the subscriber's rate per second, median of the seconds after the first.
ddsperf_throughput() {
  local size=$1 log="$data/ddsperf-sub-$1.log"
  ddsperf -D $((seconds + 2)) sub > "$log" 2>&1 &
  local sub=$!
  sleep 0.5
  ddsperf -D $((seconds + 1)) pub size "$size" > /dev/null 2>&1 || true
  wait $sub || true
  grep ' rate ' "$log" | sed -n 's/.* rate \([0-9.]*\) kS\/s.*/\1/p' | tail -n +2 | sort -g |
    awk '{ v[NR] = $1 } END { if (NR == 0) print 0; else printf "%.0f\n", v[int((NR + 1) / 2)] * 1000 }'
}

# ddsperf ping/pong: median of the per-second 50%, 90%, 99% lines and the max of max.
ddsperf_latency() {
  local size=$1 log="$data/ddsperf-ping-$1.log"
  ddsperf -D $((seconds + 3)) pong > /dev/null 2>&1 &
  local pong=$!
  sleep 0.5
  ddsperf -D $((seconds + 1)) ping size "$size" > "$log" 2>&1 || true
  wait $pong || true
  # The first second holds the warm-up; it is left out when there are more.
  grep ' 50% ' "$log" | awk '{ line[NR] = $0 } END { for (i = (NR > 1 ? 2 : 1); i <= NR; ++i) print line[i] }' |
    sed -n 's/.* 50% \([0-9.]*\)us 90% \([0-9.]*\)us 99% \([0-9.]*\)us max \([0-9.]*\)us.*/\1 \2 \3 \4/p' \
    > "$data/ddsperf-ping-$1.txt"
  if [ ! -s "$data/ddsperf-ping-$1.txt" ]; then echo "0 0 0 0"; return; fi
  echo "$(median_of 1 "$data/ddsperf-ping-$1.txt") $(median_of 2 "$data/ddsperf-ping-$1.txt")" \
       "$(median_of 3 "$data/ddsperf-ping-$1.txt") $(sort -g -k4 "$data/ddsperf-ping-$1.txt" | tail -1 | cut -d' ' -f4)"
}

echo "== throughput"
printf '# size wire_bytes plugin raw ddsperf plugin_lost_pct raw_lost_pct\n' > "$data/throughput.txt"
for size in "${sizes[@]}"; do
  p=$(throughput_median --impl plugin --read listener --size "$size" --seconds "$seconds")
  r=$(throughput_median --impl raw --size "$size" --seconds "$seconds")
  wb=$(echo "$p" | field wire_bytes)
  c=$(ddsperf_throughput "$wb")
  echo "$p"; echo "$r"; echo "ddsperf size=$wb samples_per_s=$c"
  echo "$size $wb $(echo "$p" | field samples_per_s) $(echo "$r" | field samples_per_s) $c $(echo "$p" | field loss_pct) $(echo "$r" | field loss_pct)" >> "$data/throughput.txt"
done

# What one sample costs the machine when nothing is lost: all three offered the
# same rate, which each of them sustains, so the CPU time of both processes per
# sample compares the pipelines themselves, not how they shed load. The
# plug-in's runtimes get queues deep enough for the bursts of the pacing.
ddsperf_cost() {
  local size=$1 log="$data/ddsperf-cost-sub-$1.log"
  /usr/bin/time -f "%U %S %c %w" -o "$data/ddsperf-cost-sub-$1.time" \
    ddsperf -D $((seconds + 2)) sub > "$log" 2>&1 &
  local sub=$!
  sleep 0.5
  /usr/bin/time -f "%U %S %c %w" -o "$data/ddsperf-cost-pub-$1.time" \
    ddsperf -D $((seconds + 1)) pub "${cost_rate}Hz" size "$size" > /dev/null 2>&1 || true
  wait $sub || true
  local samples
  samples=$(sed -n 's/.* total \([0-9]*\) lost.*/\1/p' "$log" | tail -1)
  cat "$data/ddsperf-cost-sub-$1.time" "$data/ddsperf-cost-pub-$1.time" | grep -E '^[0-9.]+ [0-9.]+ [0-9]+ [0-9]+$' |
    awk -v n="${samples:-0}" '{ cpu += $1 + $2; sw += $3 + $4 }
      END { if (n > 0) printf "%.3f %.4f\n", cpu * 1e6 / n, sw / n; else print "0 0" }'
}

echo "== cost per sample at ${cost_rate} samples/s"
printf '# size impl cpu_us_per_sample switches_per_sample loss_pct\n' > "$data/cost.txt"
for size in 64 1024; do
  for impl in plugin raw; do
    k=$(timeout 120 "$perf" throughput --impl "$impl" --size "$size" --seconds "$seconds" --rate "$cost_rate" \
        -p krin.runtime.highWaterMark=20000 || true)
    echo "$k"
    echo "$size $impl $(echo "$k" | field cpu_us_per_sample) $(echo "$k" | field switches_per_sample) $(echo "$k" | field loss_pct)" >> "$data/cost.txt"
  done
  wb=$(wire_bytes "$size")
  echo "$size ddsperf $(ddsperf_cost "$wb") 0" | tee -a "$data/cost.txt"
done

echo "== read modes"
printf '# size mode samples_per_s loss_pct\n' > "$data/modes.txt"
for size in "${modes_sizes[@]}"; do
  for mode in listener read poll notifier; do
    m=$(throughput_median --impl plugin --read "$mode" --size "$size" --seconds "$seconds")
    echo "$m"
    echo "$size $mode $(echo "$m" | field samples_per_s) $(echo "$m" | field loss_pct)" >> "$data/modes.txt"
  done
done

echo "== latency"
printf '# size impl median p90 p99 max (round-trip halves, us)\n' > "$data/latency.txt"
for size in "${latency_sizes[@]}"; do
  for impl in plugin raw; do
    l=$(timeout 120 "$perf" latency --impl "$impl" --size "$size" --round-trips "$round_trips" \
        --latency-out "$data/latency-$impl-$size.txt" || true)
    echo "$l"
    echo "$size $impl $(echo "$l" | field median_us) $(echo "$l" | field p90_us) $(echo "$l" | field p99_us) $(echo "$l" | field max_us)" >> "$data/latency.txt"
  done
  wb=$(wire_bytes "$size")
  echo "$size ddsperf $(ddsperf_latency "$wb")" | tee -a "$data/latency.txt"
done
for mode in read poll notifier; do
  l=$(timeout 120 "$perf" latency --impl plugin --read "$mode" --size 1024 --round-trips "$round_trips" || true)
  echo "$l"
  echo "1024 plugin-$mode $(echo "$l" | field median_us) $(echo "$l" | field p90_us) $(echo "$l" | field p99_us) $(echo "$l" | field max_us)" >> "$data/latency.txt"
done

echo "== micro-benchmarks"
# Five repetitions each, the median reported: the pairs compared differ by a
# nanosecond or two, less than one run's scatter.
bench_flags=(--benchmark_min_time="$bench_time" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
             --benchmark_format=csv)
"$build/bench/entity_bench" "${bench_flags[@]}" 2>/dev/null > "$data/entity.csv"
"$build/bench/engine_bench" "${bench_flags[@]}" 2>/dev/null > "$data/engine.csv"

echo "== plots"
lat_plot=""
for impl in plugin raw; do
  f="$data/latency-$impl-1024.txt"
  sort -g "$f" | awk '{ v[NR] = $1 } END { for (i = 1; i <= NR; ++i) print v[i], i / NR }' > "$data/cdf-$impl-1024.txt"
done
gnuplot <<GP
set terminal pngcairo size 900,560 noenhanced
set output "$out/throughput.png"
set title "Throughput by payload size, two processes on loopback"
set logscale xy
set xlabel "float array bytes per sample"
set ylabel "samples/s received"
set key bottom left
set grid
plot "$data/throughput.txt" using 1:3 with linespoints title "plug-in (listener)", \
     "" using 1:4 with linespoints title "raw pipeline (runtime alone)", \
     "" using 1:5 with linespoints title "Cyclone DDS ddsperf"
set output "$out/latency.png"
set title "Round-trip halves at 1 KiB: distribution"
unset logscale
set logscale x
set xlabel "microseconds"
set ylabel "fraction of round trips"
set key bottom right
plot "$data/cdf-plugin-1024.txt" using 1:2 with lines lw 2 title "plug-in (listener)", \
     "$data/cdf-raw-1024.txt" using 1:2 with lines lw 2 title "raw pipeline", \
     "< awk '\$1 == 1024 && \$2 == \"ddsperf\" { print \$3, 0.5; print \$4, 0.9; print \$5, 0.99 }' $data/latency.txt" \
       using 1:2 with points pt 7 ps 1.5 title "ddsperf median, p90, p99"
GP

echo "== report"
# Every ratio below is plug-in over baseline, both measured in this run.
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b; else printf "n/a" }'; }
verdict() { awk -v v="$1" -v op="$2" -v t="$3" 'BEGIN { ok = (op == ">=") ? (v >= t) : (v <= t); print ok ? "**met**" : "**not met**" }'; }
cpu_of() { awk -F, -v n="\"$1_median\"" '$1 == n { print $4 }' "$2"; }
counter_of() { head -1 "$2" | awk -F, -v c="\"$3\"" '{ for (i = 1; i <= NF; ++i) if ($i == c) print i }' |
               { read -r col; awk -F, -v n="\"$1_median\"" -v col="$col" '$1 == n { print $col }' "$2"; }; }
tp() { awk -v s="$1" -v c="$2" '$1 == s { print $c }' "$data/throughput.txt"; }
lat() { awk -v s="$1" -v i="$2" -v c="$3" '$1 == s && $2 == i { print $c }' "$data/latency.txt"; }

write_report() {
  local model cores
  model=$(lscpu | sed -n 's/^Model name: *//p' | head -1)
  cores=$(nproc)
  cat <<MD
# Performance

Measured by \`scripts/perf.sh$([ $quick -eq 1 ] && echo " --quick")\` on $(date -u +%Y-%m-%d).
Machine: $model, $cores cores, $(uname -sr). Everything below ran in that one invocation,
so the ratios compare like with like; absolute figures belong to this machine.

- **plug-in**: \`krin-perf\`, HokuTopicIn samples through the exported publisher and subscriber
  factories, payload in the \`coefficients\` array, two processes on TCP loopback.
- **raw**: the same three frames (topic frame, a header of a real header's length, a payload of the
  wire message's length) through the same runtime with nothing of the plug-in on either side.
- **Cyclone DDS**: its own \`ddsperf\` (Debian's \`cyclonedds-tools\`), \`pub\`/\`sub\` and
  \`ping\`/\`pong\`, payload size set to the plug-in's wire size, loopback unicast only.

Losses are counted from gaps in \`sample_id\`, which the publisher numbers consecutively: the
subscriber side does not hand out the header's \`sampleSequence\`. The publisher never waits
(a full queue loses the frame, by design), so a publisher faster than its subscriber loses samples.

## Throughput

![throughput by size](perf/throughput.png)

| array bytes | wire bytes | plug-in samples/s | MB/s | lost | raw samples/s | lost | ddsperf samples/s | plug-in / raw | plug-in / Cyclone |
|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|
MD
  while read -r size wb p r c pl rl; do
    [ "${size:0:1}" = "#" ] && continue
    echo "| $size | $wb | $p | $(awk -v p="$p" -v s="$size" 'BEGIN { printf "%.1f", p * s / 1e6 }') | $pl % | $r | $rl % | $c | $(ratio "$p" "$r") | $(ratio "$p" "$c") |"
  done < "$data/throughput.txt"
  cat <<MD

### Cost per sample at ${cost_rate} samples/s, nothing lost

CPU time of both processes (all their threads, user and system) and context switches, divided
by the samples sent; the publisher paced to ${cost_rate} samples/s, a rate all three sustain.
This is the machine's price of one sample through each pipeline, independent of how each sheds
load when flooded.

| array bytes | side | CPU µs per sample | context switches per sample | lost | CPU / Cyclone |
|---:|---|---:|---:|---:|---:|
MD
  while read -r size impl cpu sw loss; do
    [ "${size:0:1}" = "#" ] && continue
    echo "| $size | $impl | $cpu | $sw | $loss % | $(ratio "$cpu" "$(awk -v s="$size" '$1 == s && $2 == "ddsperf" { print $3 }' "$data/cost.txt")") |"
  done < "$data/cost.txt"
  cat <<MD

### Read modes of the subscriber

| array bytes | read mode | samples/s | lost |
|---:|---|---:|---:|
MD
  while read -r size mode rate loss; do
    [ "${size:0:1}" = "#" ] && continue
    echo "| $size | $mode | $rate | $loss % |"
  done < "$data/modes.txt"
  cat <<MD

## Latency (round-trip halves)

![latency distribution](perf/latency.png)

| array bytes | side | median µs | p90 µs | p99 µs | max µs | median / Cyclone |
|---:|---|---:|---:|---:|---:|---:|
MD
  while read -r size impl med p90 p99 mx; do
    [ "${size:0:1}" = "#" ] && continue
    echo "| $size | $impl | $med | $p90 | $p99 | $mx | $(ratio "$med" "$(lat "$size" ddsperf 3)") |"
  done < "$data/latency.txt"
  cat <<MD

## Binding overhead (CPU time per call, ns; ratio to the message library on the same message)

| topic | toByteArray | SerializeToArray | ratio | fromByteArray | ParseFromArray | ratio |
|---|---:|---:|---:|---:|---:|---:|
MD
  local worstTo=0 worstFrom=0
  for topic in InterfaceControlArgs Dummy LumoMode RefPos CentOpt CentError SimCentErrors \
               FieldStablizationTopicIn FieldStablizationTopicOut HokuTopicIn HokuTopicOut; do
    local t s f pa rt rf
    t=$(cpu_of "ToByteArray/$topic" "$data/entity.csv"); s=$(cpu_of "SerializeToArray/$topic" "$data/entity.csv")
    f=$(cpu_of "FromByteArray/$topic" "$data/entity.csv"); pa=$(cpu_of "ParseFromArray/$topic" "$data/entity.csv")
    rt=$(ratio "$t" "$s"); rf=$(ratio "$f" "$pa")
    worstTo=$(awk -v a="$worstTo" -v b="$rt" 'BEGIN { print (b > a) ? b : a }')
    worstFrom=$(awk -v a="$worstFrom" -v b="$rf" 'BEGIN { print (b > a) ? b : a }')
    printf '| %s | %.1f | %.1f | %s | %.1f | %.1f | %s |\n' "$topic" "$t" "$s" "$rt" "$f" "$pa" "$rf"
  done
  cat <<MD

Array views against copies (HokuTopicIn \`coefficients\`, CPU ns per call):

| floats | getCoefficients view | copy into std::vector | copy / view |
|---:|---:|---:|---:|
MD
  for n in 16 256 16384; do
    local v c
    v=$(cpu_of "GetCoefficientsView/$n" "$data/entity.csv"); c=$(cpu_of "CopyCoefficients/$n" "$data/entity.csv")
    printf '| %s | %.1f | %.1f | %s |\n' "$n" "$v" "$c" "$(ratio "$c" "$v")"
  done
  cat <<MD

## Engine (one thread, no transport; heap allocations per sample counted with a global operator new)

| benchmark | CPU ns per sample | samples/s | allocations per sample |
|---|---:|---:|---:|
MD
  for b in Parse/RefPos/0 NewDataThenRead/RefPos/0 NewDataToListener/RefPos/0 \
           Parse/HokuTopicIn/4096 NewDataThenRead/HokuTopicIn/4096 NewDataToListener/HokuTopicIn/4096; do
    local ns al
    ns=$(cpu_of "$b" "$data/engine.csv"); al=$(counter_of "$b" "$data/engine.csv" allocations_per_sample)
    printf '| %s | %.0f | %.0f | %.0f |\n' "$b" "$ns" "$(awk -v n="$ns" 'BEGIN { print 1e9 / n }')" "$al"
  done
  local p64 p1k
  p64=$(tp 64 3); p1k=$(tp 1024 3)
  cat <<MD

## Targets

| target | figure | verdict |
|---|---|---|
| throughput 64 B ≥ 1.0 × Cyclone | $(ratio "$p64" "$(tp 64 5)") | $(verdict "$(ratio "$p64" "$(tp 64 5)")" ">=" 1.0) |
| throughput 64 B ≥ 0.8 × raw | $(ratio "$p64" "$(tp 64 4)") | $(verdict "$(ratio "$p64" "$(tp 64 4)")" ">=" 0.8) |
| throughput 1 KiB ≥ 1.0 × Cyclone | $(ratio "$p1k" "$(tp 1024 5)") | $(verdict "$(ratio "$p1k" "$(tp 1024 5)")" ">=" 1.0) |
| throughput 1 KiB ≥ 0.8 × raw | $(ratio "$p1k" "$(tp 1024 4)") | $(verdict "$(ratio "$p1k" "$(tp 1024 4)")" ">=" 0.8) |
| latency median at 1 KiB ≤ Cyclone | $(lat 1024 plugin 3) µs vs $(lat 1024 ddsperf 3) µs | $(verdict "$(lat 1024 plugin 3)" "<=" "$(lat 1024 ddsperf 3)") |
| toByteArray ≤ 1.05 × SerializeToArray (worst topic) | $worstTo | $(verdict "$worstTo" "<=" 1.05) |
| fromByteArray ≤ 1.05 × ParseFromArray (worst topic) | $worstFrom | $(verdict "$worstFrom" "<=" 1.05) |

MD
  cat "$out/notes.md"
}
write_report > docs/performance.md
echo "wrote docs/performance.md, $out/throughput.png, $out/latency.png"
