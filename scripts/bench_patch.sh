#!/usr/bin/env bash
# Times patch on one large MP4 beside a plain copy and beside ffmpeg: scripts/bench_patch.sh [QLNMEDIA] [MEGABYTES] [FOLDER].
# Prints seconds and the ratio to what each is held against: colour at most 1.1 times cp, in place below 0.05 s, a timecode
# in every picture below ffmpeg -c copy.
set -euo pipefail
program="$(realpath "${1:-build/release/tools/qlnmedia/qlnmedia}")"
megabytes="${2:-4096}"
work="$(mktemp -d "${3:-/tmp}/bench_patch.XXXXXX")"
trap 'rm -rf "$work"' EXIT
cd "$work"

# Two seconds at a high rate, over and over, with sound.
ffmpeg -v error -f lavfi -i testsrc2=s=1920x1080:r=25:d=2 -f lavfi -i sine=d=2 -vf noise=alls=40:allf=t -c:v libx264 \
  -preset ultrafast -b:v 100M -pix_fmt yuv420p -g 25 -c:a aac once.mp4
loops=$((megabytes * 1048576 / $(stat -c %s once.mp4)))
ffmpeg -v error -stream_loop "$loops" -i once.mp4 -map 0 -c copy in.mp4
rm once.mp4
echo "in.mp4: $(($(stat -c %s in.mp4) / 1048576)) MB"

# The least of three runs, each to a new file: seconds by the clock, and of the processors, which say more where others
# work on the machine as well.
measure() {
  local wall=() cpu=()
  for _ in 1 2 3; do
    rm -f out.mp4
    local took
    took=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null; } 2>&1 | tail -n 1)
    wall+=("${took%% *}")
    cpu+=("$(echo "${took#* }" | tr ' ' '+' | bc)")
  done
  echo "$(printf '%s\n' "${wall[@]}" | sort -n | head -n 1) $(printf '%s\n' "${cpu[@]}" | sort -n | head -n 1)"
}
copy() { cp --reflink=never in.mp4 out.mp4 && sync out.mp4; }
remux() { ffmpeg -v error -y -i in.mp4 -map 0 -c copy out.mp4 && sync out.mp4; }
in_place() {  # each time another colour
  local next=pq
  if [[ $(<last) == pq ]]; then next=hlg; fi
  echo $next >last
  "$program" patch --in-place in.mp4 --colour bt2020-$next
}

cp_time=$(measure copy)
ffmpeg_time=$(measure remux)
colour_time=$(measure "$program" patch --force in.mp4 out.mp4 --colour bt2020-pq)
timecode_time=$(measure "$program" patch --force in.mp4 out.mp4 --timecode 01:00:00:00)
echo none >last
"$program" patch --in-place in.mp4 --colour bt709 >/dev/null
in_place_time=$(measure in_place)
show() {  # NAME TIMES [REFERENCE TEXT]
  local ratios=
  if [[ $# -gt 2 ]]; then
    ratios="$(echo "scale=2; ${2% *} / ${3% *}" | bc), of processors $(echo "scale=2; ${2#* } / ${3#* }" | bc) of $4"
  fi
  printf '%-28s %8.3f s, of processors %8.3f s  %s\n' "$1" "${2% *}" "${2#* }" "$ratios"
}
show "cp --reflink=never" "$cp_time"
show "ffmpeg -c copy" "$ffmpeg_time"
show "patch --colour" "$colour_time" "$cp_time" "cp (goal 1.1)"
show "patch --timecode" "$timecode_time" "$ffmpeg_time" "ffmpeg (goal 1)"
show "patch --in-place --colour" "$in_place_time"
