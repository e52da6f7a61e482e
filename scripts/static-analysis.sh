#!/usr/bin/env bash
# clang-tidy (the checks in .clang-tidy) and cppcheck over the product's
# sources, and the layer rule over all includes; any finding fails the run.
# Needs a build directory configured with CMAKE_EXPORT_COMPILE_COMMANDS=ON
# (the test build is).
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build-test}

mapfile -t sources < <(git ls-files 'app/*.cc' 'console/*.cc' 'commands/*.cc' 'reports/*.cc' \
                                    'taskstore/*.cc' 'tskvault/*.cc' 'service/*.cc' | grep -v '_test\.cc$')
echo "==> clang-tidy on ${#sources[@]} files"
printf '%s\n' "${sources[@]}" |
  xargs -n 4 -P "$(nproc)" clang-tidy -p "$build_dir" --quiet 2> >(grep -v 'warnings generated' >&2)
echo "==> cppcheck"
cppcheck --quiet --enable=warning,performance,portability --std=c++20 --language=c++ \
         --error-exitcode=1 --inline-suppr --suppress=missingIncludeSystem \
         -I . -I "$build_dir/generated" "${sources[@]}"
bash scripts/check-layers.sh
echo "static analysis clean"
