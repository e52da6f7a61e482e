#!/usr/bin/env bash
# Times listing a task list of 10,000 scans with 3 directories each through
# the task store (one run of list_task_store) against
# `sqlite3 FILE .dump > /dev/null` on the same file, alternating, and prints
# the median of each in milliseconds. Both are whole process runs.
#
#   bench/task_store_vs_sqlite3.sh BUILD_DIR [REPETITIONS]
#
# BUILD_DIR is configured with -DSCHSCAN_BUILD_BENCH=ON (best in Release);
# the two programs are built there if needed.
set -euo pipefail

build=${1:?usage: $0 BUILD_DIR [REPETITIONS]}
repetitions=${2:-11}
scans=10000
directories=3

cmake --build "$build" -j2 --target make_task_store list_task_store > /dev/null
work=$(mktemp -d /tmp/task-store-vs-sqlite3-XXXXXX)
trap 'rm -rf "$work"' EXIT
store=$work/tsklst.inf

echo "==> Building $store: $scans scans, $directories directories each"
"$build/bench/make_task_store" "$store" "$scans" "$directories"
"$build/bench/list_task_store" "$store"
echo "    $(stat -c %s "$store") bytes"

# Microseconds one command takes, its output discarded.
run_us() {
  local start end
  start=$(date +%s%N)
  "$@" > /dev/null
  end=$(date +%s%N)
  echo $(((end - start) / 1000))
}

median_ms() {
  sort -n | awk '{ v[NR] = $1 } END { printf "%.1f", v[int((NR + 1) / 2)] / 1000 }'
}

run_us "$build/bench/list_task_store" "$store" > /dev/null  # warm the page cache
run_us sqlite3 "$store" .dump > /dev/null
list_times=()
dump_times=()
for ((i = 0; i < repetitions; i++)); do
  list_times+=("$(run_us "$build/bench/list_task_store" "$store")")
  dump_times+=("$(run_us sqlite3 "$store" .dump)")
done

echo "==> Median of $repetitions runs"
printf '    task store listing     %8s ms\n' "$(printf '%s\n' "${list_times[@]}" | median_ms)"
printf '    sqlite3 .dump          %8s ms\n' "$(printf '%s\n' "${dump_times[@]}" | median_ms)"
