#!/bin/bash
# Installs what is missing, builds qlnmedia, and inspects a media file.
#   scripts/run.sh          makes a short real clip, inspects it, patches timecode, HDR and colour in, inspects and
#                           checks the result, and writes a page about it
#   scripts/run.sh FILE     inspects FILE
set -euo pipefail
caller=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [ $# -gt 1 ]; then
  echo "usage: scripts/run.sh [FILE]" >&2
  exit 2
fi

scripts/setup.sh --for tool
mkdir -p build
qlnmedia=build/tool/tools/qlnmedia/qlnmedia
[ -x "$qlnmedia" ] || echo "run: building qlnmedia in build/tool, which takes some minutes on two cores" >&2
if ! cmake --preset tool >build/run.log 2>&1; then
  cat build/run.log >&2
  exit 1
fi
# At a terminal the count of what is built stands in one line; the rest goes to the log.
if [ -t 2 ]; then
  show() { sed -un 's/^\(\[[0-9]*\/[0-9]*\]\).*/\1/p' | while read -r count; do printf '\rrun: %s ' "$count" >&2; done; printf '\r\033[K' >&2; }
else
  show() { cat >/dev/null; }
fi
if ! cmake --build build/tool --target qlnmedia 2>&1 | tee -a build/run.log | show; then
  cat build/run.log >&2
  exit 1
fi

if [ $# -eq 1 ]; then
  file=$1
  [[ $file = /* ]] || file=$caller/$file
  "$qlnmedia" inspect --details "$file"
  echo
  echo "More of it: $qlnmedia inspect --elements --units --library '$file'"
  echo "Drawn on a page: $qlnmedia inspect --html report.html '$file'"
  exit
fi

mkdir -p build/clips
clip=build/clips/clip.mp4
ffmpeg -v error -y -f lavfi -i testsrc2=size=640x360:rate=25:duration=2 \
  -f lavfi -i sine=frequency=440:duration=2 \
  -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac "$clip"
echo "== inspect $clip"
"$qlnmedia" inspect "$clip"
echo
echo "== inspect --elements --library --frames 1 $clip"
"$qlnmedia" inspect --elements --library --frames 1 "$clip"
patched=build/clips/clip-hdr.mp4
echo
echo "== patch: timecode into the stream, HDR and colour into stream and container"
"$qlnmedia" patch --force --verify --timecode 10:00:00:00 --colour bt2020-pq --hdr bt2020 --light-level 1000,400 "$clip" "$patched"
echo
echo "== inspect $patched"
"$qlnmedia" inspect --details --frames 1 "$patched"
echo
echo "== check $patched"
"$qlnmedia" check "$patched"
page=build/clips/clip-hdr.html
"$qlnmedia" inspect --force --html "$page" "$patched" >/dev/null
echo
echo "Drawn on a page, for any browser: $PWD/$page"
