#!/bin/bash
# Runs qlnmedia once for each call that can fail, with that call failing: each place that allocates, opens, reads,
# writes, flushes, renames ... over the small files of tests/faults/runs.py. It takes about half an hour on two cores.
#   scripts/faults.sh [OPTION...]     --runs REGEX, --group NAME, --every, --where: see tests/faults/fail_each_call.py
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${QLN_PRESET:-release}
[ -d "build/$preset" ] || cmake --preset "$preset"
cmake --build "build/$preset" --target qlnmedia fault_layer test_library_faults
QLN_EVERY_FAULT=1 "build/$preset/tests/faults/test_library_faults" --gtest_brief=1
exec python3 tests/faults/fail_each_call.py --qlnmedia "build/$preset/tools/qlnmedia/qlnmedia" \
  --layer "build/$preset/tests/faults/libfault_layer.so" --media "build/$preset/tests/media/faults" "$@"
