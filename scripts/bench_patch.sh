#!/usr/bin/env bash
# Times patch on one large file beside ffmpeg, and for MP4 beside a plain copy:
#   scripts/bench_patch.sh [QLNMEDIA] [MEGABYTES] [FOLDER] [mp4|ts|mkv|mxf]
# Prints seconds, of the processors as well, the ratio to what each is held against, and the most memory that a patch of
# this file and of one of a quarter of its size takes. Goals: colour in MP4 at most 1.1 times cp, in place below 0.05 s, a
# timecode in every picture below ffmpeg -c copy in every container, and memory that does not grow with the file.
set -euo pipefail
program="$(realpath "${1:-build/release/tools/qlnmedia/qlnmedia}")"
megabytes="${2:-4096}"
kind="${4:-mp4}"
work="$(mktemp -d "${3:-/tmp}/bench_patch.XXXXXX")"
trap 'rm -rf "$work"' EXIT
cd "$work"

# Two seconds at a high rate, over and over, with sound.
case "$kind" in
  mp4 | mkv | ts) once=mp4 sound=(-c:a aac) ;;
  mxf) once=mxf sound=(-ar 48000 -c:a pcm_s16le) ;;
  *) echo "no such container: $kind" >&2 && exit 1 ;;
esac
ffmpeg -v error -f lavfi -i testsrc2=s=1920x1080:r=25:d=2 -f lavfi -i sine=r=48000:d=2 -vf noise=alls=40:allf=t \
  -c:v libx264 -preset ultrafast -b:v 100M -pix_fmt yuv420p -g 25 "${sound[@]}" "once.$once"
repeat() {  # MEGABYTES FILE
  local loops=$(($1 * 1048576 / $(stat -c %s "once.$once")))
  ffmpeg -v error -stream_loop "$loops" -i "once.$once" -map 0 -c copy "$2"
  echo "$2: $(($(stat -c %s "$2") / 1048576)) MB"
}
repeat "$megabytes" "in.$kind"

# The least of three runs, each to a new file: seconds by the clock, and of the processors, which say more where others
# work on the machine as well.
measure() {
  local wall=() cpu=()
  for _ in 1 2 3; do
    rm -f "out.$kind"
    local took
    took=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null; } 2>&1 | tail -n 1)
    wall+=("${took%% *}")
    cpu+=("$(echo "${took#* }" | tr ' ' '+' | bc)")
  done
  echo "$(printf '%s\n' "${wall[@]}" | sort -n | head -n 1) $(printf '%s\n' "${cpu[@]}" | sort -n | head -n 1)"
}
copy() { cp --reflink=never in.mp4 out.mp4 && sync out.mp4; }
# Streams at a high rate take more than ffmpeg looks at by itself to find out what the sound is.
remux() { ffmpeg -v error -y -probesize 30M -i "in.$kind" -map 0 -c copy "out.$kind" && sync "out.$kind"; }
timecode() { "$program" patch --force "$1" "out.$kind" --timecode 01:00:00:00; }
in_place() {  # each time another colour
  local next=pq
  if [[ $(<last) == pq ]]; then next=hlg; fi
  echo $next >last
  "$program" patch --in-place in.mp4 --colour bt2020-$next
}
show() {  # NAME TIMES [REFERENCE TEXT]
  local ratios=
  if [[ $# -gt 2 ]]; then
    ratios="$(echo "scale=2; ${2% *} / ${3% *}" | bc), of processors $(echo "scale=2; ${2#* } / ${3#* }" | bc) of $4"
  fi
  printf '%-28s %8.3f s, of processors %8.3f s  %s\n' "$1" "${2% *}" "${2#* }" "$ratios"
}
memory() {  # FILE
  rm -f "out.$kind"
  /usr/bin/time -f %M -o most "$program" patch --force "$1" "out.$kind" --timecode 01:00:00:00 >/dev/null
  printf '%-28s %8d kB at most\n' "patch --timecode of $1" "$(<most)"
}

ffmpeg_time=$(measure remux)
timecode_time=$(measure timecode "in.$kind")
show "ffmpeg -c copy" "$ffmpeg_time"
show "patch --timecode" "$timecode_time" "$ffmpeg_time" "ffmpeg (goal 1)"
memory "in.$kind"
repeat $((megabytes / 4)) "part.$kind"
memory "part.$kind"
rm "part.$kind"
[[ $kind == mp4 ]] || exit 0

cp_time=$(measure copy)
colour_time=$(measure "$program" patch --force in.mp4 out.mp4 --colour bt2020-pq)
echo none >last
"$program" patch --in-place in.mp4 --colour bt709 >/dev/null
in_place_time=$(measure in_place)
show "cp --reflink=never" "$cp_time"
show "patch --colour" "$colour_time" "$cp_time" "cp (goal 1.1)"
show "patch --in-place --colour" "$in_place_time"
