#!/usr/bin/env bash
# Asks `check` about every file that the suite's recipes made: scripts/check_media.sh [PRESET] [QLNMEDIA].
# Run it behind the suite. What encoders and muxers made is sound but for what is listed below with its reason; any other
# file of which an error or a warning is said, and any of the listed ones that is quiet, is printed, and the status is 1.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset="${1:-release}"
program="$(realpath "${2:-build/$preset/tools/qlnmedia/qlnmedia}")"
known="$(realpath scripts/check_media_known.txt)"
cd "build/$preset/tests/media"

checked=0
sound=0
wrong=0
while IFS= read -r recipe; do
  file="${recipe%.recipe}"
  file="${file#./}"
  [[ -f "$file" ]] || continue
  status=0
  said="$("$program" check "$file" 2>&1)" || status=$?
  # Other codecs than those that are checked, and texts.
  [[ $status == 1 ]] && continue
  checked=$((checked + 1))
  pattern="$(awk -v name="$(basename "$file")" '!/^#/ && NF && name ~ ("^" $1 "$") { $1 = ""; print substr($0, 2); exit }' "$known")"
  if [[ $status == 0 && -z "$pattern" ]]; then
    sound=$((sound + 1))
  elif [[ $status == 0 ]]; then
    echo "$file: quiet, though listed: $pattern"
    wrong=$((wrong + 1))
  elif [[ -z "$pattern" ]] || grep -Evq "$pattern" <<<"$said"; then
    echo "$file: $said"
    wrong=$((wrong + 1))
  fi
done < <(find . -name '*.recipe' | sort)
echo "$checked files checked, $sound of them without a finding, $wrong that should not be so"
[[ $checked -gt 0 && $wrong == 0 ]]
