#!/usr/bin/env bash
# Every benchmark figure in one run, each side by side with its baseline:
# whole-process runs, alternating tool and baseline, REPETITIONS times each,
# median and spread (fastest to slowest) of the wall-clock time, and the peak
# resident memory (median).
#
#   1. start-up: schscan --help          against a minimal C++ program linked the same way
#   2. view of 10,000 scans as root       against sqlite3 TASKLIST .dump
#   3. view reports, 100,000 entries      against cat INDEX
#   4. delete all of 10,000 reports       against rm of the same files
#
# It builds the tool in Release in build-bench with a scratch product
# directory (/tmp/schscan-bench/product) and makes the data with the
# project's own generators: the task store's add call for the scans, the
# scan service's way of appending for the reports.
#
#   bench/run_benchmarks.sh [REPETITIONS]
set -euo pipefail
cd "$(dirname "$0")/.."
repetitions=${1:-11}
build=$PWD/build-bench
product=/tmp/schscan-bench/product
reports=$product/reports
index=$reports/schdmain.rpt

echo "==> Building Release in $build (product directory $product)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DSCHSCAN_BUILD_BENCH=ON \
      -DSCHSCAN_BUILD_TESTS=OFF -DPRODUCT_DIR="$product" > /dev/null
cmake --build "$build" -j"$(nproc)" > /dev/null
tool=$build/app/schscan
work=$(mktemp -d /tmp/schscan-bench-XXXXXX)
trap 'rm -rf "$work"' EXIT
: > "$work/nothing"
printf 'n\n' > "$work/no"
printf '3\n' > "$work/all"

lay_out_product() {
  rm -rf "$product"
  mkdir -p "$reports" "$product/translation/en_US/LC_MESSAGES"
  cp "$build/tskvault/tskvault.so" "$product/"
  cp "$build/catalogue/en_US/LC_MESSAGES/lang.mo" "$product/translation/en_US/LC_MESSAGES/"
}

# One run: appends "SECONDS KILOBYTES" to FILE; standard input from INPUT.
measure() {
  local file=$1 input=$2 start end
  shift 2
  start=$(date +%s%N)
  /usr/bin/time -f '%M' -o "$work/memory" "$@" < "$input" > /dev/null
  end=$(date +%s%N)
  echo "$(awk -v ns=$((end - start)) 'BEGIN { printf "%.5f", ns / 1e9 }') $(cat "$work/memory")" \
    >> "$file"
}

# "median min max" of column COLUMN of FILE.
stats() {
  cut -d' ' -f"$2" "$1" | sort -g |
    awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)], v[1], v[NR] }'
}

# Prints one table row from the runs in $work/tool and $work/base.
report() {
  local name=$1 baseline=$2
  read -r t tmin tmax < <(stats "$work/tool" 1)
  read -r b bmin bmax < <(stats "$work/base" 1)
  read -r tk _ _ < <(stats "$work/tool" 2)
  read -r bk _ _ < <(stats "$work/base" 2)
  awk -v n="$name" -v bn="$baseline" -v t="$t" -v t0="$tmin" -v t1="$tmax" -v b="$b" \
      -v b0="$bmin" -v b1="$bmax" -v tk="$tk" -v bk="$bk" 'BEGIN {
    printf "| %s | %.1f ms (%.1f-%.1f) | %s: %.1f ms (%.1f-%.1f) | %.2f | %d KiB | %d KiB |\n",
           n, t * 1000, t0 * 1000, t1 * 1000, bn, b * 1000, b0 * 1000, b1 * 1000,
           t / (b > 0 ? b : 1e-6), tk, bk }' >> "$work/table"
  rm -f "$work/tool" "$work/base"
}

echo "==> Start-up"
lay_out_product
for ((i = 0; i < repetitions; i++)); do
  measure "$work/tool" "$work/nothing" "$tool" --help
  measure "$work/base" "$work/nothing" "$build/bench/minimal_program"
done
report "start-up (--help)" "minimal program"

echo "==> View of 10,000 scans (3 directories each) as root, answering no"
"$build/bench/make_task_store" "$product/tsklst.inf" 10000 3
for ((i = 0; i < repetitions; i++)); do
  measure "$work/tool" "$work/no" "$tool" --view
  measure "$work/base" "$work/nothing" sqlite3 "$product/tsklst.inf" .dump
done
report "view, 10,000 scans" "sqlite3 .dump"

echo "==> View reports: 100,000 entries as root, answering no"
lay_out_product
"$build/bench/make_report_index" view 100000
index_kib=$(($(stat -c %s "$index") / 1024))
for ((i = 0; i < repetitions; i++)); do
  measure "$work/tool" "$work/no" "$tool" --reports
  measure "$work/base" "$work/nothing" cat "$index"
done
report "view reports, 100,000 entries" "cat index"

echo "==> Delete all: 10,000 reports with their files"
lay_out_product
"$build/bench/make_report_index" delete 10000
cp -a "$reports" "$work/template"
restore() {
  rm -rf "$reports"
  cp -a "$work/template" "$reports"
  sync
}
for ((i = 0; i < repetitions; i++)); do
  restore
  measure "$work/tool" "$work/all" "$tool" --delreports
  [[ $(stat -c %s "$index") == 19 ]] || { echo "delete-all left entries" >&2; exit 1; }
  restore
  (cd "$reports" && measure "$work/base" "$work/nothing" rm -f -- schd[0-9]*.rpt)
done
report "delete all, 10,000 reports" "rm"
rm -rf "$product"

echo
echo "Medians of $repetitions runs (fastest-slowest); ratio = tool / baseline;"
echo "the 100,000-entry index is $index_kib KiB."
echo "$(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')"
echo
echo "| figure | tool | baseline | ratio | tool peak memory | baseline peak memory |"
echo "|---|---|---|---|---|---|"
cat "$work/table"
