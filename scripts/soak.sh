#!/usr/bin/env bash
# What takes too long for CI: kills at 2,000 random moments, cuts of the power at each moment, eight writers and eight readers
# on one store, 200 patches at once in 2 GB of memory, inputs that stall, are cut or grow, and 64 threads through the whole
# surface of the library under ThreadSanitizer. A line of figures for each; the suite has a sample of all of them
# (faults_kills, faults_power_cuts, faults_load, threads_surface).
#   scripts/soak.sh [--minutes N] [STAGE...]    N minutes of load on the store and a tenth of that of threads; 10 otherwise
#   STAGE: kills, power, store, patches, inputs, threads
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

minutes=10
if [ "${1:-}" = --minutes ]; then
  minutes=$2
  shift 2
fi
stages=("$@")
if [ ${#stages[@]} -eq 0 ]; then stages=(kills power store patches inputs threads); fi
preset=${QLN_PRESET:-release}
scripts/setup.sh
mkdir -p build

# PRESET, targets.
build() {
  if [ ! -f "build/$1/CMakeCache.txt" ]; then cmake --preset "$1" >build/configure.log; fi
  cmake --build "build/$1" --target "${@:2}" --parallel "$(nproc)" >build/soak.log || { cat build/soak.log >&2; exit 1; }
}

faults=build/$preset/tests/faults
common=(--qlnmedia "build/$preset/tools/qlnmedia/qlnmedia" --host "$faults/settings_host" --media "build/$preset/tests/media/faults")
status=0
for stage in "${stages[@]}"; do
  case "$stage" in
    threads) build tsan test_surface_threads ;;
    kills | power | store | patches | inputs) build "$preset" qlnmedia settings_host power_layer ;;
    *) echo "soak: no such stage: $stage" >&2 && exit 2 ;;
  esac
  case "$stage" in
    kills) python3 tests/faults/kills.py "${common[@]}" --kills 2000 --place "$faults" || status=1 ;;
    power) python3 tests/faults/power_cuts.py "${common[@]}" --layer "$faults/libpower_layer.so" || status=1 ;;
    store) python3 tests/faults/load.py store "${common[@]}" --place "$faults" --seconds $((60 * minutes)) || status=1 ;;
    patches | inputs) python3 tests/faults/load.py "$stage" "${common[@]}" --place "$faults" || status=1 ;;
    threads)
      QLN_THREADS_SECONDS=$((6 * minutes)) TSAN_OPTIONS=halt_on_error=1 build/tsan/tests/threads/test_surface_threads \
        --gtest_brief=1 2>build/soak-threads.log || { grep -A30 'WARNING: ThreadSanitizer' build/soak-threads.log | head -60 >&2; status=1; }
      ;;
  esac
done
exit "$status"
