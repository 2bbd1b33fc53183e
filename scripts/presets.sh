#!/usr/bin/env bash
# Builds the library in every preset that nothing else in CI builds, with the tests of the utility layer in that of
# ThreadSanitizer, and runs these: a preset that nobody builds does not stay one that builds. Of the hardened one it looks at
# whether the flags took.
#   scripts/presets.sh [PRESET...]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

presets=("$@")
if [ ${#presets[@]} -eq 0 ]; then presets=(debug asan tsan hardened bench); fi
scripts/setup.sh
mkdir -p build
for preset in "${presets[@]}"; do
  targets=(kxutil kxtimecode qlnutil)
  case "$preset" in tsan) targets+=(test_kxutil) ;; hardened) targets+=(hardening_probe) ;; esac
  if ! cmake --preset "$preset" >build/configure.log 2>&1; then
    cat build/configure.log >&2
    exit 1
  fi
  cmake --build "build/$preset" --target "${targets[@]}" --parallel "$(nproc)" >"build/$preset.log" ||
    { cat "build/$preset.log" >&2; exit 1; }
  if [ "$preset" = hardened ]; then ctest --test-dir "build/$preset" -R '^surface_hardening$' --output-on-failure >"build/$preset.log" ||
    { cat "build/$preset.log" >&2; exit 1; }; fi
  if [[ " ${targets[*]} " = *' test_kxutil '* ]] && ! "build/$preset/tests/test_kxutil" --gtest_brief=1 >"build/$preset.log" 2>&1; then
    cat "build/$preset.log" >&2
    exit 1
  fi
  echo "presets: $preset builds"
done
