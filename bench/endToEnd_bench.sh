#!/usr/bin/env bash
# End to end: samples per second from publish in one process to read in
# another, at 64 B and 1 KiB of payload, beside the runtime's raw forwarding
# rate of the same frames measured in the same run; the ratio is the result.
#
#   bench/endToEnd_bench.sh BUILD_DIR [SECONDS]
set -euo pipefail
build="${1:?usage: endToEnd_bench.sh BUILD_DIR [SECONDS]}"
seconds="${2:-3}"
perf="$build/tools/krin-perf"
printf '%-6s %14s %14s %8s\n' size plugin_read raw_runtime ratio
for size in 64 1024; do
  plugin=$("$perf" throughput --impl plugin --read read --size "$size" --seconds "$seconds" | sed -n 's/.*samples_per_s=\([0-9]*\).*/\1/p')
  raw=$("$perf" throughput --impl raw --size "$size" --seconds "$seconds" | sed -n 's/.*samples_per_s=\([0-9]*\).*/\1/p')
  awk -v s="$size" -v p="$plugin" -v r="$raw" 'BEGIN { printf "%-6s %14d %14d %8.2f\n", s, p, r, p / r }'
done
