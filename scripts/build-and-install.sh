#!/usr/bin/env bash
# Builds schscan in Release, installs it (tool in /usr/local/bin, task store
# library, catalogue and reports directory in the product directory) and
# starts `schscan --help`.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
echo "==> Configuring build-release"
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DSCHSCAN_BUILD_TESTS=OFF
echo "==> Building"
cmake --build build-release -j"$(nproc)"
echo "==> Installing"
cmake --install build-release --prefix /usr/local
echo "==> Starting schscan --help"
/usr/local/bin/schscan --help
