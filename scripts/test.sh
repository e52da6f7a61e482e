#!/usr/bin/env bash
# The whole test suite: builds the test configuration (warnings as errors, a
# scratch product directory) and runs every test with CTest, runs clang-tidy
# and cppcheck, then builds again with AddressSanitizer and
# UndefinedBehaviorSanitizer (leak detection on) and runs the suite once more.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

bash scripts/install-deps.sh

echo "==> Configuring build-test (product directory /tmp/schscan-test/product)"
cmake -S . -B build-test -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSCHSCAN_WERROR=ON \
      -DPRODUCT_DIR=/tmp/schscan-test/product -DSCHSCAN_STATE_DIR=/tmp/schscan-test/state \
      -DCMAKE_EXPORT_COMPILE_COMMANDS=ON
echo "==> Building build-test"
cmake --build build-test -j"$jobs"
echo "==> Running the test suite"
ctest --test-dir build-test --output-on-failure -j"$jobs"

echo "==> Static analysis"
bash scripts/static-analysis.sh build-test

echo "==> Configuring build-asan (AddressSanitizer + UndefinedBehaviorSanitizer)"
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DSCHSCAN_WERROR=ON \
      -DPRODUCT_DIR=/tmp/schscan-test-asan/product -DSCHSCAN_STATE_DIR=/tmp/schscan-test-asan/state \
      -DSCHSCAN_SANITIZE=address,undefined
echo "==> Building build-asan"
cmake --build build-asan -j"$jobs"
echo "==> Running the test suite under the sanitizers"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs" -E '^debian_package$'

echo "==> Fuzzing smoke run (every target a few seconds)"
bash fuzz/run_smoke.sh 4
