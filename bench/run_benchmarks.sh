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
# and the scan service's, in a table of their own:
#
#   5. next runs of 10,000 scans          against the aim of 50 ms (Google
#                                         Benchmark, in-process, the store read
#                                         left out: bench/next_run_bench.cc)
#   6. schscand --run of 20,000 files     against clamscan -r of the same tree
#      with the same signature database, in files per second; the scan has
#      the archive and packed bits on, so every parser runs, as clamscan -r
#      runs them by default. Both read from the page cache, warmed first. The
#      peak memory of a run is the largest peak resident size of any of its
#      processes (GNU time's %M: wait4's ru_maxrss, which takes in the
#      children the process waited for, so schscand's scanning child too).
#
# It builds the tool and the service in Release in build-bench with a
# scratch product directory (/tmp/schscan-bench/product) and state directory
# (/tmp/schscan-bench/state), and makes the data with the project's own
# generators: the task store's add call for the scans, the scan service's
# way of appending for the reports, bench/make_scan_tree.cc for the scanned
# tree and its database (the tests' tiny one). The scan figure runs as root,
# and installs Debian's clamav with apt-get when clamscan is missing.
#
#   bench/run_benchmarks.sh [REPETITIONS] [all|tool|service]
set -euo pipefail
cd "$(dirname "$0")/.."
repetitions=${1:-11}
figures=${2:-all}
case $figures in all | tool | service) ;; *)
  echo "usage: $0 [REPETITIONS] [all|tool|service]" >&2
  exit 2
  ;;
esac
build=$PWD/build-bench
product=/tmp/schscan-bench/product
state=/tmp/schscan-bench/state
reports=$product/reports
index=$reports/schdmain.rpt
scanned_files=20000

if [[ $figures != tool ]]; then
  [[ $(id -u) == 0 ]] || { echo "the scan figure runs schscand --run, which needs root" >&2; exit 2; }
  if ! command -v clamscan > /dev/null; then
    echo "==> Installing clamav (clamscan, the scan figure's baseline)"
    apt-get update -q > /dev/null
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends clamav > /dev/null
  fi
fi

echo "==> Building Release in $build (product directory $product)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DSCHSCAN_BUILD_BENCH=ON \
      -DSCHSCAN_BUILD_TESTS=OFF -DPRODUCT_DIR="$product" -DSCHSCAN_STATE_DIR="$state" > /dev/null
cmake --build "$build" -j"$(nproc)" > /dev/null
tool=$build/app/schscan
service=$build/service/schscand
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

# One scan run: appends "SECONDS KILOBYTES CPU-SECONDS" to FILE (the CPU
# time of the process and of the children it waited for). Both scanners exit
# with 1 when they find something, as they must on this tree.
measure_scan() {
  local file=$1 start end status=0 kib user system
  shift
  start=$(date +%s%N)
  /usr/bin/time -f '%M %U %S' -o "$work/memory" "$@" < /dev/null > /dev/null || status=$?
  end=$(date +%s%N)
  [[ $status == 1 ]] || { echo "$1 ended with $status, not 1 (infected files found)" >&2; exit 1; }
  read -r kib user system < <(tail -n 1 "$work/memory")
  awk -v ns=$((end - start)) -v k="$kib" -v u="$user" -v s="$system" \
    'BEGIN { printf "%.5f %d %.2f\n", ns / 1e9, k, u + s }' >> "$file"
}

# 20000 as 20,000.
thousands() { sed ':more; s/\([0-9]\)\([0-9]\{3\}\)\($\|,\)/\1,\2\3/; t more' <<< "$1"; }

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

tool_figures() {
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
}

service_figures() {
  echo "==> Next runs of 10,000 scans (in-process, $repetitions repetitions)"
  "$build/bench/next_run_bench" --benchmark_repetitions="$repetitions" --benchmark_format=csv \
    2> /dev/null > "$work/next.csv"
  for name in BM_NextRunOfTenThousandScans BM_SchedulerTakesTenThousandScans; do
    # Each repetition's row: "NAME",iterations,real_time (ms),...
    grep "^\"$name\"," "$work/next.csv" | cut -d, -f3 > "$work/next"
    [[ -s $work/next ]] || { echo "next_run_bench gave no $name figure" >&2; exit 1; }
    read -r t tmin tmax < <(stats "$work/next" 1)
    case $name in
      BM_NextRun*) label="next runs of 10,000 scans (the rule)" ;;
      *) label="next runs of 10,000 scans (the scheduler taking them)" ;;
    esac
    awk -v n="$label" -v t="$t" -v t0="$tmin" -v t1="$tmax" 'BEGIN {
      printf "| %s | %.2f ms (%.2f-%.2f) | aim: 50 ms | %.3f | - | - |\n", n, t, t0, t1, t / 50 }' \
      >> "$work/service_table"
  done

  echo "==> Scan: schscand --run against clamscan -r, $scanned_files files"
  lay_out_product
  rm -rf "$state"
  read -r files bytes infected < <("$build/bench/make_scan_tree" "$work/tree" "$work/database" \
                                     "$scanned_files")
  # The first run of each, untimed, reads the tree into the page cache and
  # shows that both find the same files.
  status=0
  "$service" --run TreeBench --database "$work/database" > /dev/null || status=$?
  found=$(grep -h '^Infected files:' "$reports"/schd[0-9]*.rpt | awk '{ print $3 }')
  [[ $status == 1 && $found == "$infected" ]] ||
    { echo "schscand found $found infected files (status $status), not $infected" >&2; exit 1; }
  found=$(clamscan -r -i --no-summary --database="$work/database" "$work/tree" | grep -c ' FOUND$' || true)
  [[ $found == "$infected" ]] || { echo "clamscan found $found infected files, not $infected" >&2; exit 1; }
  for ((i = 0; i < repetitions; i++)); do
    measure_scan "$work/tool" "$service" --run TreeBench --database "$work/database"
    measure_scan "$work/base" clamscan -r --quiet --database="$work/database" "$work/tree"
  done
  read -r t tmin tmax < <(stats "$work/tool" 1)
  read -r b bmin bmax < <(stats "$work/base" 1)
  read -r tk _ _ < <(stats "$work/tool" 2)
  read -r bk _ _ < <(stats "$work/base" 2)
  read -r tc _ _ < <(stats "$work/tool" 3)
  read -r bc _ _ < <(stats "$work/base" 3)
  # Files per second from the median time; in brackets, those of the slowest
  # and the fastest run.
  awk -v f="$files" -v t="$t" -v t0="$tmin" -v t1="$tmax" -v b="$b" -v b0="$bmin" -v b1="$bmax" \
      -v tk="$tk" -v bk="$bk" -v n="scan of $(thousands "$files") files (--run)" 'BEGIN {
    printf "| %s | %.0f files/s (%.0f-%.0f) | clamscan -r: %.0f files/s (%.0f-%.0f) | %.2f | %d KiB | %d KiB |\n",
           n, f / t, f / t1, f / t0, f / b, f / b1, f / b0, b / t, tk, bk }' >> "$work/service_table"
  scan_note=$(awk -v f="$files" -v by="$bytes" -v n="$infected" -v t="$t" -v b="$b" -v tc="$tc" \
                  -v bc="$bc" 'BEGIN {
    printf "the scanned tree: %d files, %.1f MiB, %d of them infected; median times %.2f s (schscand) and %.2f s (clamscan), CPU time %.2f s and %.2f s",
           f, by / 1048576, n, t, b, tc, bc }')
  rm -rf "$product" "$state"
}

[[ $figures == service ]] || tool_figures
[[ $figures == tool ]] || service_figures

echo
echo "Medians of $repetitions runs (fastest-slowest) on $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //')"
if [[ $figures != service ]]; then
  echo
  echo "ratio = tool / baseline; the 100,000-entry index is $index_kib KiB."
  echo
  echo "| figure | tool | baseline | ratio | tool peak memory | baseline peak memory |"
  echo "|---|---|---|---|---|---|"
  cat "$work/table"
fi
if [[ $figures != tool ]]; then
  echo
  echo "ratio: time / aim for the next runs; schscand's files per second / clamscan's for the scan;"
  echo "$scan_note."
  echo
  echo "| figure | schscand | baseline | ratio | schscand peak memory | baseline peak memory |"
  echo "|---|---|---|---|---|---|"
  cat "$work/service_table"
fi
