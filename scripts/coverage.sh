#!/usr/bin/env bash
# Which lines and branches of the library its tests run: figures for each folder, what is not reached, and a page.
#   scripts/coverage.sh          the library under its own tests, fuzz seeds and failing calls
#   scripts/coverage.sh --all    library, engine and tool under the whole suite, which takes long
#   scripts/coverage.sh --hold   fails where docs/coverage.md is not kept; with --all too
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

folders=(support)
targets=(library_tests test_library_faults)
tests=(-R '^faults_library$')
hold=()
for argument in "$@"; do
  case "$argument" in
    --all) folders=(support media tools) targets=(all) tests=() ;;
    --hold) hold=(--hold) ;;
    *) echo "coverage: what is $argument?" >&2; exit 2 ;;
  esac
done

scripts/setup.sh
build=build/coverage
profiles=$PWD/$build/profiles
mkdir -p build
cmake --preset coverage >build/configure.log 2>&1 || { cat build/configure.log >&2; exit 1; }
rm -rf "$profiles"
# A program that runs while others are built leaves its counts nowhere.
LLVM_PROFILE_FILE=/dev/null cmake --build "$build" --target "${targets[@]}" --parallel "$(nproc)" >build/coverage.log ||
  { cat build/coverage.log >&2; exit 1; }

# Of each program and library the processes add up in a file or two, which they have as memory: what a process counts stands
# there however it ends, and whatever rights it gave up.
export LLVM_PROFILE_FILE=$profiles/%c%2m.profraw
run() {
  ctest --test-dir "$build" --parallel "$(nproc)" --output-on-failure "$@" >build/coverage.log || { cat build/coverage.log >&2; exit 1; }
}
if [ ${#tests[@]} -eq 0 ]; then
  run
else
  run -L library
  run "${tests[@]}"
fi

llvm-profdata-14 merge --sparse "$profiles"/*.profraw -o "$build/profile"
mapfile -t objects < <(find "$build" -type f -perm -u+x \( -path '*/tests/*' -o -path '*/fuzz/*' -o -path '*/support/*' -o -path '*/tools/*' -o -path '*/media/*' \) \
  ! -name '*.py' ! -name '*.sh' -exec sh -c 'head -c 4 "$1" | grep -q ELF' _ {} \; -print | sort)
arguments=("${objects[0]}")
for object in "${objects[@]:1}"; do arguments+=(-object "$object"); done
sources=()
for folder in "${folders[@]}"; do sources+=("$PWD/$folder"); done
# Programs have functions of one name that differ, such as the entry of each fuzz target: of these it warns.
llvm-cov-14 export -instr-profile "$build/profile" "${arguments[@]}" "${sources[@]}" >"$build/coverage.json" \
  2> >(grep -v mismatched >&2)
rm -rf "$build/page"
llvm-cov-14 show -instr-profile "$build/profile" "${arguments[@]}" "${sources[@]}" -format=html -output-dir="$build/page" \
  -show-branches=count -show-line-counts-or-regions 2> >(grep -v mismatched >&2)
python3 scripts/coverage_report.py "$build/coverage.json" . docs/coverage.md "${hold[@]}" "${folders[@]}"
echo "coverage: the page is $build/page/index.html"
