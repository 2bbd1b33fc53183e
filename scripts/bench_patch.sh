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

# The least of three runs, each to a new file.
seconds() {
  local best=
  for _ in 1 2 3; do
    rm -f out.mp4
    local begin end took
    begin=$(date +%s.%N)
    "$@" >/dev/null
    end=$(date +%s.%N)
    took=$(echo "$end - $begin" | bc)
    if [[ -z "$best" || $(echo "$took < $best" | bc) == 1 ]]; then best=$took; fi
  done
  echo "$best"
}
copy() { cp --reflink=never in.mp4 out.mp4 && sync out.mp4; }
remux() { ffmpeg -v error -y -i in.mp4 -map 0 -c copy out.mp4 && sync out.mp4; }

cp_time=$(seconds copy)
ffmpeg_time=$(seconds remux)
colour_time=$(seconds "$program" patch --force in.mp4 out.mp4 --colour bt2020-pq)
timecode_time=$(seconds "$program" patch --force in.mp4 out.mp4 --timecode 01:00:00:00)
"$program" patch --in-place in.mp4 --colour bt2020-pq >/dev/null
in_place() { "$program" patch --in-place in.mp4 --colour "$([[ $RANDOM -gt 16384 ]] && echo bt2020-hlg || echo bt2020-pq)"; }
in_place_time=$(seconds in_place)
ratio() { echo "scale=2; $1 / $2" | bc; }
printf '%-28s %8.3f s\n' "cp --reflink=never" "$cp_time" "ffmpeg -c copy" "$ffmpeg_time"
printf '%-28s %8.3f s  %s of cp (goal 1.1)\n' "patch --colour" "$colour_time" "$(ratio "$colour_time" "$cp_time")"
printf '%-28s %8.3f s  %s of ffmpeg (goal 1)\n' "patch --timecode" "$timecode_time" "$(ratio "$timecode_time" "$ffmpeg_time")"
printf '%-28s %8.3f s  (goal 0.050)\n' "patch --in-place --colour" "$in_place_time"
