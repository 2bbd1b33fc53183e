#!/usr/bin/env bash
# Runs the library's tests of the release build (label `library`) under memcheck: reads of what was never written, which the
# sanitizers do not see, accesses outside of blocks, and leaks. What others' libraries do stands in scripts/valgrind.supp, each
# with its reason. It takes about half an hour of a core, and is no part of CI.
#   scripts/valgrind.sh [NAME...]     only these tests, as `ctest -L library -N` names them
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=${QLN_PRESET:-release}
scripts/setup.sh
mkdir -p build
[ -f "build/$preset/CMakeCache.txt" ] || cmake --preset "$preset" >build/configure.log
cmake --build "build/$preset" --target library_tests --parallel "$(nproc)" >build/valgrind.log ||
  { cat build/valgrind.log >&2; exit 1; }

# Cases that are left out, each for its reason.
skipped=(
)

# A line each: its name, its command.
tests=$(ctest --test-dir "build/$preset" -L '^library$' --show-only=json-v1 | python3 -c "
import json, sys
for test in json.load(sys.stdin)['tests']:
    print(test['name'], *test.get('command', []))")
status=0
count=0
while read -r name program arguments; do
  if [ $# -ne 0 ] && [[ " $* " != *" $name "* ]]; then continue; fi
  # Fuzz targets replay their seeds.
  if [ -n "$arguments" ]; then options=("$arguments"); else options=(--gtest_brief=1 "--gtest_filter=-$(IFS=:; echo "${skipped[*]}")"); fi
  log=build/valgrind-$name.log
  begin=$SECONDS
  # Children that fork are looked at as well; those that start another program are not.
  if valgrind --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite \
    --track-origins=yes --num-callers=20 --read-var-info=no --child-silent-after-fork=yes --suppressions=scripts/valgrind.supp \
    "$program" "${options[@]}" >"$log" 2>&1 </dev/null; then
    echo "valgrind: $name: nothing found, $((SECONDS - begin)) s"
  else
    echo "valgrind: $name: see $log, $((SECONDS - begin)) s"
    grep -E '^==[0-9]+== [A-Z0-9]|\[  FAILED  \]|Failure' "$log" | head -20 || true
    status=1
  fi
  count=$((count + 1))
done <<<"$tests"
echo "valgrind: $count tests"
[ "$count" -ne 0 ] && exit "$status"
