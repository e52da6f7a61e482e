#!/usr/bin/env bash
# Builds the test configuration (warnings as errors, a scratch product
# directory) and runs the whole test suite with CTest.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
product_dir=/tmp/schscan-test/product
echo "==> Configuring build-test (product directory $product_dir)"
cmake -S . -B build-test -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSCHSCAN_WERROR=ON \
      -DPRODUCT_DIR="$product_dir"
echo "==> Building"
cmake --build build-test -j"$(nproc)"
echo "==> Running the test suite"
ctest --test-dir build-test --output-on-failure -j"$(nproc)"
