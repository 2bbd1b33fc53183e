#!/usr/bin/env bash
# Runs every fuzz target for SECONDS (default 60), or only those named behind it: scripts/fuzz.sh 60 find_nal_unit.
# What a target finds stays in build/fuzz/findings/ with the input that shows it. Each run goes on from what earlier ones
# have collected in build/fuzz/corpus/ (QLN_FUZZ_CORPUS names another folder, kept from build to build).
#   --count      adds the run to the table of docs/fuzzing.md
#   --seed N     goes by these random numbers, so that a commit which passes once passes again: what CI does
#   --minimise   then takes into the seeds, fuzz/corpus/, the smallest inputs collected that reach what no seed does
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

count=0
minimise=0
seed=0 # a number of the moment
while [[ "${1:-}" == --* ]]; do
  case "$1" in
    --count) count=1 ;;
    --minimise) minimise=1 ;;
    --seed) seed=$2 && shift ;;
    *) echo "fuzz: no such option: $1" >&2 && exit 2 ;;
  esac
  shift
done
seconds=${1:-60}
shift || true
collected=${QLN_FUZZ_CORPUS:-build/fuzz/corpus}
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
  mkdir -p "$collected/$name"
  log=build/fuzz/findings/$name.log
  options=()
  if [ -f "fuzz/dictionaries/$name.dict" ]; then options+=(-dict="fuzz/dictionaries/$name.dict"); fi
  # Whole files, of which the longest seed may double.
  longest=$(find "fuzz/corpus/$name" -type f -printf '%s\n' | sort -n | tail -n 1)
  most=$((longest > 2048 ? 2 * longest : 4096))
  status=0
  "$program" "${options[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -max_len="$most" -print_final_stats=1 -seed="$seed" \
    -artifact_prefix="build/fuzz/findings/$name-" "$collected/$name" "fuzz/corpus/$name" >"$log" 2>&1 || status=$?
  if [ "$count" -eq 1 ]; then python3 scripts/fuzz_count.py docs/fuzzing.md "$name" "$log" "$seconds" "$status"; fi
  if [ "$status" -ne 0 ]; then
    echo "fuzz: $name: FAILED"
    tail -n 40 "$log"
    failed+=("$name")
    continue
  fi
  echo "fuzz: $name: nothing found in $seconds s"
  if [ "$minimise" -eq 1 ]; then
    before=$(find "fuzz/corpus/$name" -type f | wc -l)
    "$program" -merge=1 -max_len="$most" "fuzz/corpus/$name" "$collected/$name" >"$log.merge" 2>&1
    echo "fuzz: $name: $(($(find "fuzz/corpus/$name" -type f | wc -l) - before)) new seeds"
  fi
done
[ ${#failed[@]} -eq 0 ]
