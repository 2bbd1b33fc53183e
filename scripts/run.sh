#!/bin/bash
# Installs what is missing, builds qlnmedia, and inspects a media file.
#   scripts/run.sh          makes a short real clip and inspects it
#   scripts/run.sh FILE     inspects FILE
set -euo pipefail
caller=$PWD
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [ $# -gt 1 ]; then
  echo "usage: scripts/run.sh [FILE]" >&2
  exit 2
fi

scripts/setup.sh
{
  [ -f build/release/build.ninja ] || cmake --preset release
  cmake --build build/release --target qlnmedia
} >&2

qlnmedia=build/release/tools/qlnmedia/qlnmedia
if [ $# -eq 1 ]; then
  file=$1
  [[ $file = /* ]] || file=$caller/$file
  exec "$qlnmedia" inspect "$file"
fi

mkdir -p build/clips
clip=build/clips/clip.mp4
ffmpeg -v error -y -f lavfi -i testsrc2=size=640x360:rate=25:duration=2 \
  -f lavfi -i sine=frequency=440:duration=2 \
  -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac "$clip"
exec "$qlnmedia" inspect "$clip"
