#!/usr/bin/env bash
# The report commands against their baselines, whole process runs, several
# repetitions alternating, medians printed side by side:
#   1. view reports as root listing a 100,000-entry index and answering no,
#      against `cat INDEX > /dev/null` (time and peak memory);
#   2. delete all of 10,000 reports with their files, against removing the
#      same files with one `rm`.
# The data is made by make_report_index, which adds reports the way the scan
# service does, in the product directory of BUILD_DIR (its PRODUCT_DIR, which
# this script empties and lays out as an install does: point it at a scratch
# directory).
#
#   bench/reports_vs_baselines.sh BUILD_DIR [REPETITIONS]
#
# BUILD_DIR is configured with -DSCHSCAN_BUILD_BENCH=ON (best in Release).
set -euo pipefail

build=$(cd "${1:?usage: $0 BUILD_DIR [REPETITIONS]}" && pwd)
repetitions=${2:-7}
view_entries=100000
delete_entries=10000

product=$(sed -n 's/^PRODUCT_DIR:PATH=//p' "$build/CMakeCache.txt")
case "$product" in
  /tmp/* | /var/tmp/*) ;;
  *) echo "PRODUCT_DIR of $build is $product: use a scratch directory" >&2; exit 2 ;;
esac
cmake --build "$build" -j2 --target schscan tskvault catalogue make_report_index > /dev/null
tool=$build/cli/schscan
reports=$product/reports
index=$reports/schdmain.rpt
work=$(mktemp -d /tmp/reports-vs-baselines-XXXXXX)
trap 'rm -rf "$work"' EXIT

lay_out_product() {
  rm -rf "$product"
  mkdir -p "$reports" "$product/translation/en_US/LC_MESSAGES"
  cp "$build/tskvault/tskvault.so" "$product/"
  cp "$build/catalogue/en_US/LC_MESSAGES/lang.mo" "$product/translation/en_US/LC_MESSAGES/"
}

# "SECONDS KILOBYTES": elapsed time (wall clock, taken around the same
# /usr/bin/time wrapper for the tool and its baseline) and peak resident
# memory of one run, standard input from the file INPUT.
measure() {
  local input=$1 start end
  shift
  start=$(date +%s%N)
  /usr/bin/time -f '%M' -o "$work/memory" "$@" < "$input" > /dev/null
  end=$(date +%s%N)
  echo "$(awk -v ns=$((end - start)) 'BEGIN { printf "%.4f", ns / 1e9 }') $(cat "$work/memory")"
}

median() {
  sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'
}

echo "==> View reports: $view_entries entries, as root, answering no"
lay_out_product
"$build/bench/make_report_index" view "$view_entries"
index_kb=$(($(stat -c %s "$index") / 1024))
echo "    index: $(stat -c %s "$index") bytes ($index_kb KiB)"
printf 'n\n' > "$work/no"
: > "$work/nothing"
cat "$index" > /dev/null  # the page cache holds the index for both
for ((i = 0; i < repetitions; i++)); do
  measure "$work/no" "$tool" --reports >> "$work/view"
  measure "$work/nothing" cat "$index" >> "$work/cat"
done
view_s=$(cut -d' ' -f1 "$work/view" | median)
view_kb=$(cut -d' ' -f2 "$work/view" | median)
cat_s=$(cut -d' ' -f1 "$work/cat" | median)
cat_kb=$(cut -d' ' -f2 "$work/cat" | median)
awk -v v="$view_s" -v c="$cat_s" -v vk="$view_kb" -v ck="$cat_kb" -v ik="$index_kb" 'BEGIN {
  printf "    time:   schscan --reports %.3f s   cat %.3f s   ratio %.2f (aim <= 3)\n", v, c, v / (c > 0 ? c : 0.001)
  printf "    memory: schscan --reports %d KiB   cat %d KiB   schscan / index %.2f (aim <= 1.2)\n", vk, ck, vk / ik
}'

echo "==> Delete all: $delete_entries reports with their files"
lay_out_product
"$build/bench/make_report_index" delete "$delete_entries"
echo "    index: $(stat -c %s "$index") bytes, $(find "$reports" -name 'schd[0-9]*.rpt' | wc -l) report files"
cp -a "$reports" "$work/template"
printf '3\n' > "$work/all"
restore() {
  rm -rf "$reports"
  cp -a "$work/template" "$reports"
  sync
}
for ((i = 0; i < repetitions; i++)); do
  restore
  measure "$work/all" "$tool" --delreports >> "$work/delete"
  [[ $(stat -c %s "$index") == 19 ]] || { echo "delete-all left entries" >&2; exit 1; }
  restore
  (cd "$reports" && measure "$work/nothing" rm -f -- schd[0-9]*.rpt) >> "$work/rm"
done
delete_s=$(cut -d' ' -f1 "$work/delete" | median)
rm_s=$(cut -d' ' -f1 "$work/rm" | median)
awk -v d="$delete_s" -v r="$rm_s" 'BEGIN {
  printf "    time:   schscan --delreports (3) %.3f s   rm %.3f s   ratio %.2f (aim <= 1.5)\n", d, r, d / (r > 0 ? r : 0.001)
}'
echo "==> Medians of $repetitions runs"
