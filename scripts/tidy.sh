#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy over the library and the tools (or over the files given).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh
mkdir -p build
cmake --preset fuzz >build/configure.log 2>&1 || { cat build/configure.log >&2; exit 1; }
files=("$@")
if [ ${#files[@]} -eq 0 ]; then
  mapfile -t files < <(git ls-files 'support/*.cpp' 'media/*.cpp' 'tools/*.cpp')
fi
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 1 clang-tidy -p build/fuzz --quiet
