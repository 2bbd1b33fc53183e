#!/usr/bin/env bash
# Times whole runs of qlnmedia beside ffprobe, ffmpeg and cat, interleaved:
#   scripts/bench_tool.sh [--full] [--rounds N] [--program QLNMEDIA] [ROWS]
# ROWS is an expression for the rows that are wanted (startup, inspect, batch, check, captions, growth). Each prints
# its ratio to what it is held against, by processor time and by the clock, with the spread over the rounds, the most
# memory, and its goal. Files are made once, of 1 GB (with --full 4 GB), and kept in build/bench_tool.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
megabytes=1024
rounds=5
program=build/release/tools/qlnmedia/qlnmedia
rows=.
while [[ $# -gt 0 ]]; do
  case "$1" in
    --full) megabytes=4096 ;;
    --rounds) rounds=$2 && shift ;;
    --program) program=$2 && shift ;;
    -*) sed -n '2,6s/^# //p' "${BASH_SOURCE[0]}" >&2 && exit 2 ;;
    *) rows=$1 ;;
  esac
  shift
done
program=$(realpath "$program")
files=build/bench_tool/$megabytes
mkdir -p "$files"

# make FILE COMMAND...: runs the command, which writes the file that @ stands for, unless the file is there.
make() {
  local file=$1 ending=${1##*.}
  shift
  if [[ -e $files/$file ]]; then return; fi
  echo "making $file" >&2
  "${@/@/$files/unfinished.$ending}"
  mv "$files/unfinished.$ending" "$files/$file"
}
wants() { grep -qE "$rows" <<<"$1"; }
encode=(ffmpeg -v error -y)
small=("${encode[@]}" -f lavfi -i testsrc2=s=320x240:r=25:d=1 -f lavfi -i sine=r=48000:d=1)
x264=(-c:v libx264 -preset ultrafast -pix_fmt yuv420p)

# repeat MEGABYTES ONCE: the arguments that make ffmpeg join so many copies.
repeat() { echo -stream_loop $(($1 * 1048576 / $(stat -c %s "$files/$2"))) -i "$files/$2" -map 0 -c copy; }

make small.mp4 "${small[@]}" "${x264[@]}" -c:a aac @
make small.mov "${small[@]}" "${x264[@]}" -c:a aac @
make small.mkv "${small[@]}" "${x264[@]}" -c:a aac @
make small.ts "${small[@]}" "${x264[@]}" -c:a aac @
make small.mxf "${small[@]}" "${x264[@]}" -c:a pcm_s16le @
make small.h264 "${small[@]}" "${x264[@]}" -map 0:v @
make small.hevc "${small[@]}" -c:v libx265 -preset ultrafast -x265-params log-level=none -map 0:v @

if wants inspect || wants check || wants captions; then
  noise=(-f lavfi -i "testsrc2=s=1920x1080:r=25:d=4" -f lavfi -i sine=r=48000:d=4 -vf "noise=alls=40:allf=t")
  make once_120.mp4 "${encode[@]}" "${noise[@]}" "${x264[@]}" -b:v 100M -g 25 -c:a aac @
  make once_30.mp4 "${encode[@]}" "${noise[@]}" "${x264[@]}" -b:v 20M -g 25 -c:a aac @
  make large_120.mp4 "${encode[@]}" $(repeat "$megabytes" once_120.mp4) @
  make large_30.mp4 "${encode[@]}" $(repeat "$megabytes" once_30.mp4) @
  make large_30.ts "${encode[@]}" $(repeat "$megabytes" once_30.mp4) @
  make large_30.mkv "${encode[@]}" $(repeat "$megabytes" once_30.mp4) @
fi
# A cue every four seconds.
cues() {  # SECONDS FILE
  python3 - "$1" >"$2" <<'END'
import sys
def time(s): return f"{s // 3600:02}:{s // 60 % 60:02}:{s % 60:02},000"
for n, at in enumerate(range(1, int(sys.argv[1]) - 4, 4)):
    print(f"{n + 1}\n{time(at)} --> {time(at + 3)}\nCaption number {n + 1}\nand its second line\n")
END
}
if wants captions; then
  make cues.srt cues 400 @
  for kind in mp4 mkv ts; do
    make "plain_30.$kind" "${encode[@]}" $(repeat $((megabytes / 5)) once_30.mp4) @
    make "captions_30.$kind" "$program" patch --rate nominal --captions "$files/cues.srt" "$files/plain_30.$kind" @
  done
fi
if wants growth; then
  pictures() { for _ in $(seq "$1"); do cat "$files/thousand.h264"; done >"$2"; }
  make thousand.h264 "${encode[@]}" -f lavfi -i testsrc2=s=64x64:r=25 -frames:v 1000 "${x264[@]}" -g 50 @
  make hundred_thousand.h264 pictures 100 @
  make million.h264 pictures 1000 @
  make cues_million.srt cues 40000 @
fi
if wants batch; then
  mkdir -p "$files/many"
  for number in {1..1000}; do
    kinds=(mp4 mov mkv ts mxf h264 hevc)
    kind=${kinds[$((number % 7))]}
    ln -f "$files/small.$kind" "$files/many/$number.$kind"
  done
fi
exec python3 scripts/bench_tool.py "$program" "$files" "$rounds" "$rows"
