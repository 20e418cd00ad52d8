#!/usr/bin/env bash
# One bounded libFuzzer run: runBounded.sh FUZZER SEED_DIR WORK_DIR SECONDS.
# Fuzzes a scratch copy of the seeds, prints the executions and fails on any
# crash, leak or failed check (the reproducer and log.txt stay in WORK_DIR).
set -uo pipefail
fuzzer="$1"; seeds="$2"; work="$3"; seconds="$4"
rm -rf "$work"
mkdir -p "$work/corpus"
cp "$seeds"/* "$work/corpus/"
cd "$work" || exit 1
"$fuzzer" -max_total_time="$seconds" -max_len=4096 -timeout=30 -rss_limit_mb=2048 \
  -print_final_stats=1 corpus >log.txt 2>&1
status=$?
grep -E '^(#[0-9]+ *DONE|stat::number_of_executed_units|stat::peak_rss_mb|==[0-9]+==|SUMMARY|.*fuzz check failed)' log.txt
if [ "$status" -ne 0 ]; then
  tail -n 60 log.txt
fi
exit "$status"
