#!/usr/bin/env bash
# Runs two builds of qlnmedia side by side, every command over the given files, and says where their outputs differ.
# scripts/compare_builds.sh OLD NEW [FILE...]; OLD and NEW are qlnmedia programs, each taken with the libraries beside it.
# Without files only the commands that need none run. Outputs stay under build/compare/{old,new}, one file a run; what
# is written (patched files, captions) counts by its digest. Exit status 0: all the same, 1: something differs.
set -uo pipefail
if [[ $# -lt 2 ]]; then
  sed -n '2,5s/^# //p' "${BASH_SOURCE[0]}" >&2
  exit 2
fi
old=$(realpath "$1")
new=$(realpath "$2")
shift 2
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/compare
rm -rf "$root"
mkdir -p "$root"/{old,new,scratch}

# run SIDE PROGRAM NAME ARGUMENT...: one run; @out in an argument is a scratch file with that ending behind it.
run() {
  local side=$1 program=$2 name=$3 argument
  local -a arguments=()
  shift 3
  rm -f "$root"/scratch/out*
  for argument; do arguments+=("${argument/#@out/$root/scratch/out}"); done
  {
    LD_LIBRARY_PATH=$(dirname "$program") XDG_CONFIG_HOME=$root/scratch/config timeout 300 "$program" "${arguments[@]}" 2>&1
    echo "exit status $?"
    for argument in "$root"/scratch/out*; do
      [[ -f $argument ]] && echo "wrote ${argument##*/} $(sha256sum <"$argument")"
    done
  } >"$root/$side/$name"
}

differing=0
runs=0
both() {
  run old "$old" "$@"
  run new "$new" "$@"
  runs=$((runs + 1))
  if ! cmp -s "$root/old/$1" "$root/new/$1"; then
    differing=$((differing + 1))
    echo "differs: $1 (${*:2})"
    diff "$root/old/$1" "$root/new/$1" | head -n 10
  fi
}

both format-raster format 1920 1080 25
both format-word-json format 0x2380B21D --json
both transport transport --in 0 --out 50 --speed 2 --steps 20
both transport-json transport --in 0 --out 50 --speed -1 --steps 20 --json
both command-xml command play --speed 50 --position 100
both command-json command record --file clip --json
both metadata-names metadata list --all
both metadata-export metadata export @out.json
for file; do
  base=$(basename "$file")
  ending=${base##*.}
  both "$base.inspect" inspect "$file" --elements --library --units --frames 8
  both "$base.inspect.json" inspect "$file" --json --units --frames 8
  both "$base.check" check "$file"
  both "$base.check.json" check "$file" --json
  both "$base.captions" captions "$file"
  for form in mcc scc srt txt; do both "$base.captions.$form" captions "$file" -o "@out.$form"; done
  both "$base.patch.colour" patch "$file" "@out.$ending" --colour bt2020-pq --full-range
  both "$base.patch.hdr" patch "$file" "@out.$ending" --hdr p3 --light-level 1000,400 --verify
  both "$base.patch.units" patch "$file" "@out.$ending" --delimiters --recovery-points
  both "$base.patch.timecode" patch "$file" "@out.$ending" --timecode 10:00:00:00 --rate 25
  both "$base.patch.dry" patch "$file" "@out.$ending" --limited-range --dry-run
done
echo "$runs runs, $differing differ"
[[ $differing -eq 0 ]]
