#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy over the library, the engine, the tools and the plug-in, or over files.
#   scripts/tidy.sh [FILE...]          all checks
#   scripts/tidy.sh --names [FILE...]  the naming alone: a quarter of the time
#   scripts/tidy.sh --names --recent   the naming of what the last 80 commits touched, which is all that can be new to it;
#                                      of everything where there is less history than that
#   scripts/tidy.sh --deep [FILE...]   all checks and the analyzer
#   scripts/tidy.sh --cert [FILE...]   the sets cert and concurrency, of which findings are no rule yet
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

checks=()
case "${1:-}" in
  --names) checks=('--checks=-*,readability-identifier-naming') ;;
  --deep) checks=('--checks=clang-analyzer-*') ;;
  --cert) checks=('--checks=-*,cert-*,concurrency-*') ;;
esac
if [ ${#checks[@]} -ne 0 ]; then shift; fi
recent=0
if [ "${1:-}" = --recent ]; then
  shift
  if [ "$(git rev-list --count HEAD 2>/dev/null || echo 0)" -gt 80 ]; then recent=1; fi
fi

scripts/setup.sh
mkdir -p build
# The preset of clang, with a command for each file; sanitizers would leave the plug-in out.
cmake --preset fuzz -B build/tidy -DQLN_UNITY=OFF -DQLN_SANITIZE= -DQLN_LIBFUZZER=OFF >build/configure.log 2>&1 || { cat build/configure.log >&2; exit 1; }
files=("$@")
if [ ${#files[@]} -eq 0 ]; then
  folders=('support/*.cpp' 'media/*.cpp' 'tools/*.cpp' 'gst/*.cpp')
  # A header comes with the source of its name. Who changes the rules looks at everything.
  if [ "$recent" -eq 1 ] && git diff --quiet HEAD~80 -- .clang-tidy; then
    mapfile -t files < <({ git diff --name-only HEAD~80 -- support media tools gst; git ls-files -m -o --exclude-standard; } |
      sed 's/\.h$/.cpp/' | sort -u | grep -Fxf <(git ls-files "${folders[@]}") || true)
  else
    mapfile -t files < <(git ls-files "${folders[@]}")
  fi
fi
headers='(support|media|tools|gst)/.*\.h$'
# What a header has wrong comes with each file that includes it, and is told once. Standard error has little but the count
# of warnings that are not ours; it is shown where a run failed and found nothing.
report=$(mktemp)
trap 'rm -f "$report"' EXIT
status=0
printf '%s\n' "${files[@]}" | xargs -P "$(nproc)" -n 4 clang-tidy -p build/tidy --quiet --header-filter="$headers" "${checks[@]}" >"$report" 2>"$report.errors" ||
  status=1
grep -E ': (error|warning): ' "$report" | sort -u || true
if [ "$status" -ne 0 ] && ! grep -qE ': (error|warning): ' "$report"; then cat "$report" "$report.errors" >&2; fi
rm -f "$report.errors"
[ "$status" -eq 0 ] && echo "tidy: ${#files[@]} files, nothing found"
exit "$status"
