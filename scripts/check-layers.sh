#!/usr/bin/env bash
# Includes point downward only, and no folder includes a sibling: each
# folder may include its own headers and those of the folders listed for it,
# and a unit's test (NAME_test.cc) the shared test support in testing/ too
# (see ARCHITECTURE.md). Prints every include that breaks the rule.
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A may=(
  [app]="commands console reports taskstore"
  [commands]="console reports taskstore"
  [service]="reports taskstore"
  [reports]="taskstore"
  [tskvault]="taskstore"
  [taskstore]=""
  [console]=""
  [testing]="app commands console reports service taskstore tskvault"
  [tests]="testing app commands console reports service taskstore tskvault"
  [fuzz]="testing app commands console reports service taskstore tskvault"
  [bench]="testing app commands console reports service taskstore tskvault"
)
broken=0
while IFS= read -r file; do
  folder=${file%%/*}
  [[ -v may[$folder] ]] || continue
  allowed=" ${may[$folder]} "
  [[ $file == *_test.cc ]] && allowed+="testing "
  while IFS= read -r included; do
    target=${included%%/*}
    [[ $target == "$folder" || $allowed == *" $target "* ]] && continue
    echo "$file includes $included: $folder may not include $target/"
    broken=1
  done < <(sed -n 's/^#include "\([a-z_]*\)\/\(.*\)"$/\1\/\2/p' "$file")
done < <(git ls-files '*.cc' '*.h')
((broken == 0)) && echo "layers: every include points downward"
exit "$broken"
