#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, AddressSanitizer,
# UndefinedBehaviorSanitizer) and runs each one on a copy of its seed corpus
# for a few seconds: the CI smoke run. Fails if any target finds a crash, a
# leak, a sanitizer report, a broken invariant or a hang. The same script
# makes the longer run: give more seconds per target.
#
#   bash fuzz/run_smoke.sh [seconds per target, default 4] [target ...]
#
# Environment:
#   FUZZ_BUILD_DIR    build directory (default build-fuzz)
#   FUZZ_PRODUCT_DIR  scratch product directory compiled into the targets
#                     (default /tmp/schscan-fuzz/product); never the real one
#   FUZZ_WORK_DIR     where the grown corpora, logs and crash inputs go; kept
#                     (default: a temporary directory, removed at the end)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-4}
shift || true
build=${FUZZ_BUILD_DIR:-build-fuzz}
product=${FUZZ_PRODUCT_DIR:-/dev/shm/schscan-fuzz/product}

echo "==> Configuring $build (clang, libFuzzer; product directory $product)"
cmake -S . -B "$build" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DSCHSCAN_BUILD_FUZZERS=ON -DSCHSCAN_BUILD_TESTS=OFF -DPRODUCT_DIR="$product" > /dev/null
echo "==> Building the fuzz targets"
cmake --build "$build" --target fuzzers -j2 > "$build/fuzz-build.log" 2>&1 ||
  { tail -40 "$build/fuzz-build.log"; exit 1; }

if [[ -n "${FUZZ_WORK_DIR:-}" ]]; then
  work=$FUZZ_WORK_DIR
  mkdir -p "$work"
else
  work=$(mktemp -d /tmp/schscan-fuzz-run.XXXXXX)
  trap 'rm -rf "$work"' EXIT
fi

targets=("$@")
((${#targets[@]} > 0)) || for corpus in fuzz/corpus/*/; do targets+=("$(basename "$corpus")"); done

echo "==> Running ${#targets[@]} targets for ${seconds}s each (work directory $work)"
failed=()
for target in "${targets[@]}"; do
  binary="$build/fuzz/$target"
  [[ -x "$binary" ]] || { echo "no such fuzz target: $target" >&2; exit 1; }
  # The run grows a copy of the seed corpus, never the repository's.
  mkdir -p "$work/corpus/$target" "$work/crashes"
  cp -n fuzz/corpus/"$target"/* "$work/corpus/$target/" 2>/dev/null || true
  log="$work/$target.log"
  if "$binary" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 -print_final_stats=1 \
       -artifact_prefix="$work/crashes/$target-" "$work/corpus/$target" > "$log" 2>&1; then
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    echo "ok    $target: ${runs:-?} runs, corpus $(ls "$work/corpus/$target" | wc -l) inputs"
  else
    echo "FAIL  $target (log $log)"
    grep -E 'ERROR|runtime error|invariant broken|SUMMARY|Test unit written|timeout' "$log" |
      head -20 || true
    failed+=("$target")
  fi
done

if ((${#failed[@]} > 0)); then
  echo "fuzz smoke: ${#failed[@]} of ${#targets[@]} targets found a fault: ${failed[*]}"
  [[ -z "${FUZZ_WORK_DIR:-}" ]] && trap - EXIT && echo "inputs and logs kept in $work"
  exit 1
fi
echo "fuzz smoke: all ${#targets[@]} targets ran clean"
