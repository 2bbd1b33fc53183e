#!/usr/bin/env bash
# Asks `check` about every file that the suite made by a recipe: scripts/check_media.sh [FOLDER] [QLNMEDIA].
# Run it behind the suite; FOLDER is build/made unless it is said. All of them are sound but for those that
# are listed below with what is wrong with them. Whatever else is found, and what is no longer found of the listed, is
# printed, and the status is then 1.
set -euo pipefail
root="$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")"
folder="${1:-$root/build/made}"
program="$(realpath "${2:-$root/build/release/tools/qlnmedia/qlnmedia}")"
cd "$folder"

# What a file's findings must match, each line of them; nothing for a sound file.
expected() {
  case "$1" in
    # The muxer says progressive of an encoder's fields.
    *hevc*_fields.m[pk][4v] | *hevc*_fields.mov | plants_fields.mp4 | all8.mkv) echo "interlace: the container says progressive, the hvcC fields" ;;
    # The encoder's settings, put in front of the first picture's delimiter.
    set_options_h264.m[pk][4v] | timecode_avc10.m* | captions_avc_p.m* | frames.m*)
      echo "frame 0: order: an access unit delimiter is not the first unit of its frame" ;;
    # A filter that puts its message behind the slice of IDR pictures.
    captions_other.mp4) echo "order: an SEI stands behind a slice of its frame" ;;
    # Made so on purpose.
    plants_rate_hevc.mp4 | plants_rate_avc.mp4 | truth_rate_fixed.mp4) echo "rate: the container runs at" ;;
    check_colour_other.mov | checked_colours.mp4 | many-wrong.mp4 | summary-wrong.mp4) echo "colour: (primaries|transfer|matrix): the container says" ;;
    verify_fields.mkv) echo "interlace: the container says fields, the avcC progressive" ;;
    verify_light.mkv) echo "hdr: (the container has a content light level|there is a content light level)" ;;
    verify_merged_shape.mkv | verify_merged_views.mkv) echo "aspect: the container says samples of" ;;
    verify_size.mkv) echo "size: the container says 98 x 80, the avcC 96 x 80" ;;
    check_range.mkv) echo "range: the container says full range" ;;
  esac
}

checked=0
wrong=0
while IFS= read -r recipe; do
  file="${recipe%.recipe}"
  [[ -f "$file" ]] || continue
  status=0
  said="$("$program" check "$file" 2>&1)" || status=$?
  [[ $status == 4 ]] && continue # nothing in it that check is about
  [[ $status == 1 ]] && grep -q "no media that can be read\|stream has no" <<<"$said" && continue
  checked=$((checked + 1))
  pattern="$(expected "$(basename "$file")")"
  if [[ -z "$pattern" && $status == 0 ]]; then continue; fi
  if [[ -n "$pattern" && $status == 3 ]] && ! grep -Evq "$pattern" <<<"$said"; then continue; fi
  wrong=$((wrong + 1))
  echo "$file (status $status${pattern:+, expected: $pattern}): $said"
done < <(find . -name '*.recipe' | sort)
echo "$checked files checked, $wrong other than they should be"
[[ $checked -gt 0 && $wrong == 0 ]]
