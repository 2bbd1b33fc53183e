#!/usr/bin/env bash
# Runs the GStreamer plug-in's tests, those in GstHarness, under GStreamer's leaks tracer, and under memcheck. What GStreamer's and
# other libraries keep for the life of the process is suppressed in scripts/gst.supp; what our elements lose is told. Memcheck
# takes some minutes of a core.
#   scripts/leaks_gst.sh [tracer|memcheck]    only one of them
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=${QLN_PRESET:-release}
program=${QLN_GST_TEST:-}  # that of a tree which is built already
if [ -z "$program" ]; then
  program=build/$preset/tests/gst/test_gst
  scripts/setup.sh
  mkdir -p build
  [ -f "build/$preset/CMakeCache.txt" ] || cmake --preset "$preset" >build/configure.log
  cmake --build "build/$preset" --target test_gst --parallel "$(nproc)" >build/leaks_gst.log ||
    { cat build/leaks_gst.log >&2; exit 1; }
fi

# Pipelines of programs of their own are no part of this process.
filter=--gtest_filter=-Pipelines.*
status=0
if [ "${1:-tracer}" = tracer ]; then
  log=$program.tracer.log
  if ! GST_TRACERS=leaks GST_DEBUG=GST_TRACER:7 GST_DEBUG_NO_COLOR=1 "$program" --gtest_brief=1 "$filter" >"$log" 2>&1; then
    echo "leaks_gst: tests fail under the tracer, see $log"
    status=1
  fi
  # The tracer says what its lines hold when it begins.
  if ! grep -q 'object-alive.class' "$log"; then
    echo "leaks_gst: there is no leaks tracer, see $log"
    status=1
  fi
  # Objects that are alive at the end, a line each.
  lost=$(grep -c 'object-alive, type-name=(string)[A-Za-z]' "$log" || true)
  grep -o 'object-alive, type-name=(string)[A-Za-z].*' "$log" | cut -c1-200 | head -20 || true
  echo "leaks_gst: tracer: $lost objects alive at the end"
  [ "$lost" -eq 0 ] || status=1
fi
if [ "${1:-memcheck}" = memcheck ]; then
  log=$program.memcheck.log
  suppressions=(--suppressions=scripts/gst.supp)
  for file in /usr/share/glib-2.0/valgrind/glib.supp; do
    [ -f "$file" ] && suppressions+=("--suppressions=$file")
  done
  # Type systems and slices keep what they have; without them memcheck sees each block.
  if G_SLICE=always-malloc G_DEBUG=gc-friendly GST_REGISTRY_FORK=no valgrind --quiet --error-exitcode=99 --leak-check=full \
    --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite --num-callers=30 --read-var-info=no \
    --child-silent-after-fork=yes "${suppressions[@]}" "$program" --gtest_brief=1 "$filter" >"$log" 2>&1 </dev/null; then
    echo "leaks_gst: memcheck: nothing found"
  else
    echo "leaks_gst: memcheck: see $log"
    grep -E '^==[0-9]+== [A-Z0-9]|\[  FAILED  \]|Failure' "$log" | head -20 || true
    status=1
  fi
fi
exit "$status"
