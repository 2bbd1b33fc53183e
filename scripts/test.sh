#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite. Arguments go on to ctest (for example -R h264).
# QLN_PRESET chooses another CMake preset than release.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=${QLN_PRESET:-release}
# Encoded once for all presets.
export QLN_MADE_DIR=${QLN_MADE_DIR:-$PWD/build/made}
scripts/setup.sh
mkdir -p build
# What readers said of files that nobody makes any more.
if [ -d "$QLN_MADE_DIR/readings" ]; then find "$QLN_MADE_DIR/readings" -type f -mtime +7 -delete; fi
if ! cmake --preset "$preset" >build/configure.log 2>&1; then
  cat build/configure.log >&2
  exit 1
fi
cmake --build "build/$preset" --parallel "$(nproc)"
# One more than there are processors: many tests wait for a disk, a lock, or a process of theirs.
ctest --test-dir "build/$preset" --output-on-failure --parallel "$(($(nproc) + 1))" "$@"
