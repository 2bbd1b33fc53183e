#!/usr/bin/env bash
# Runs every fuzz target for SECONDS (default 60), or only those named behind it: scripts/fuzz.sh 60 find_nal_unit.
# What a target finds stays in build/fuzz/findings/ with the input that shows it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

seconds=${1:-60}
shift || true
scripts/setup.sh
mkdir -p build
if ! cmake --preset fuzz >build/configure.log 2>&1; then
  cat build/configure.log >&2
  exit 1
fi
cmake --build build/fuzz --target fuzz_targets --parallel "$(nproc)"
mkdir -p build/fuzz/findings

failed=()
for program in build/fuzz/fuzz/*_fuzz; do
  name=$(basename "$program" _fuzz)
  if [ $# -gt 0 ] && [[ " $* " != *" $name "* ]]; then continue; fi
  mkdir -p "build/fuzz/corpus/$name"
  if "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -max_len=4096 \
      -artifact_prefix="build/fuzz/findings/$name-" \
      "build/fuzz/corpus/$name" "fuzz/corpus/$name" >"build/fuzz/findings/$name.log" 2>&1; then
    echo "fuzz: $name: nothing found in $seconds s"
  else
    echo "fuzz: $name: FAILED"
    tail -n 40 "build/fuzz/findings/$name.log"
    failed+=("$name")
  fi
done
[ ${#failed[@]} -eq 0 ]
