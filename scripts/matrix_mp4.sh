#!/usr/bin/env bash
# Patches some 1000 MP4 and MOV files, made by ffmpeg's and GStreamer's muxers with their many options and by hand, and
# asks the tests' own reader, ffprobe, ffmpeg's decoders and GStreamer's demuxer whether all but what was asked for is as
# it was: scripts/matrix_mp4.sh [FOLDER]. What is wrong is printed, and stays in the folder. QLN_PRESET chooses another
# build than release.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=${QLN_PRESET:-release}
work=$(realpath -m "${1:-build/matrix}")
gst_packages="gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad"
# shellcheck disable=SC2086
scripts/setup.sh $gst_packages gstreamer1.0-libav
mkdir -p build
if ! cmake --preset "$preset" >build/configure.log 2>&1; then
  cat build/configure.log >&2
  exit 1
fi
cmake --build "build/$preset" --target mp4_matrix --parallel "$(nproc)"
matrix=$(realpath "build/$preset/tests/mp4/mp4_matrix")
rm -rf "$work"
mkdir -p "$work"/{clips,in,out,seen,segments}
cd "$work"

# One recording of each codec with B pictures and sound, one without for what is put together by hand.
encode() {
  ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=25:d=1.2 -f lavfi -i sine=440:d=1.2 -preset ultrafast \
    -pix_fmt yuv420p "$@"
}
x265=log-level=none:pools=1:frame-threads=1
encode -c:v libx264 -threads 1 -bf 2 -g 10 -c:a aac -b:a 64k clips/264.mp4
encode -c:v libx265 -x265-params $x265:bframes=2:keyint=10 -tag:v hvc1 -c:a aac -b:a 64k clips/265.mp4
encode -map 0:v -t 0.8 -s 64x64 -c:v libx264 -threads 1 -bf 0 -g 5 clips/plain264.mp4
encode -map 0:v -t 0.8 -s 64x64 -c:v libx265 -x265-params $x265:bframes=0:keyint=5:min-keyint=5:scenecut=0 clips/plain265.mp4
printf '1\n00:00:00,200 --> 00:00:00,500\none\n\n2\n00:00:00,600 --> 00:00:01,000\ntwo\n' >clips/texts.srt
printf ';FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=700\ntitle=a\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=700\nEND=1200\ntitle=b\n' >clips/chapters.txt
ffmpeg -v error -y -f lavfi -i color=s=32x32:d=0.04 -frames:v 1 clips/cover.jpg

# A muxer that does not take a kind makes no file of it, and is said.
made() {
  local file=$1
  shift
  if ! timeout 60 "$@" </dev/null >seen/muxer.log 2>&1 || [ ! -s "in/$file" ]; then
    echo "not made: $file: $(tail -n 1 seen/muxer.log)"
    rm -f "in/$file"
  fi
}
mux() {  # NAME.EXT CODEC OPTIONS...
  local file=$1 codec=$2
  shift 2
  made "$file" ffmpeg -v error -y -i "clips/$codec.mp4" "$@" -fflags +bitexact "in/$file"
}
for codec in 264 265; do
  other=avc3
  if [ $codec = 265 ]; then other=hev1; fi
  while IFS='|' read -r name before options suffix; do
    # shellcheck disable=SC2086
    made "ffmpeg-$codec-$name.$suffix" ffmpeg -v error -y $before -i clips/$codec.mp4 -map 0 -c copy -fflags +bitexact \
      ${options/\{hev1\}/$other} "in/ffmpeg-$codec-$name.$suffix"
  done < <("$matrix" kinds)
  rich=(-i clips/texts.srt -i clips/chapters.txt -map 0 -map 1 -map_chapters 2 -c copy -c:s mov_text)
  for layout in "" +faststart +frag_keyframe +frag_keyframe+empty_moov+default_base_moof +frag_every_frame+empty_moov \
      +dash+frag_keyframe+delay_moov+global_sidx +cmaf+frag_keyframe +rtphint; do
    flags=()
    if [ -n "$layout" ]; then flags=(-movflags "$layout"); fi
    for suffix in mp4 mov; do
      name=$codec$layout.$suffix
      mux "texts-$name" $codec "${rich[@]}" "${flags[@]}"
      mux "timecode-$name" $codec -map 0 -c copy -timecode 10:00:00:00 "${flags[@]}"
      mux "cut-$name" $codec -ss 0.5 -map 0 -c copy -copyts "${flags[@]}"
      mux "sound-$name" $codec -map 0 -map 0:a -c:v copy -c:a:0 ac3 -c:a:1 copy "${flags[@]}"
      mux "two-$name" $codec -map 0:v -map 0:v -c copy "${flags[@]}"
      mux "alone-$name" $codec -map 0:v -c copy -movie_timescale 600 -video_track_timescale 2500 "${flags[@]}"
    done
  done
  mux cover-$codec.mp4 $codec -i clips/cover.jpg -map 0 -map 1 -c copy -disposition:v:1 attached_pic
  mux pcm-$codec.mov $codec -map 0 -c:v copy -c:a pcm_s24le
  mux floats-$codec.mov $codec -map 0 -c:v copy -c:a pcm_f32be
  mux prores-$codec.mov $codec -map 0:v -map 0:v -c:v:0 copy -c:v:1 prores_ks
  mux languages-$codec.mov $codec -map 0:a -map 0:v -c copy -metadata:s:v language=und -metadata:s:a language=deu
done

gst() {  # NAME.EXT CODEC MUXER...
  local file=$1 codec=$2 parse=h264parse
  shift 2
  if [ "$codec" = 265 ]; then parse=h265parse; fi
  made "$file" gst-launch-1.0 -q filesrc location=clips/$codec.mp4 ! qtdemux name=d d.video_0 ! queue ! $parse ! m. \
    d.audio_0 ! queue ! aacparse ! m. "$@" name=m ! filesink location="in/$file"
}
gst_alone() {
  local file=$1 codec=$2 parse=h264parse
  shift 2
  if [ "$codec" = 265 ]; then parse=h265parse; fi
  made "$file" gst-launch-1.0 -q filesrc location=clips/$codec.mp4 ! qtdemux name=d d.video_0 ! queue ! $parse ! "$@" ! \
    filesink location="in/$file"
}
for codec in 264 265; do
  for muxer in qtmux mp4mux; do
    suffix=mp4
    if [ $muxer = qtmux ]; then suffix=mov; fi
    number=0
    for options in "" faststart=true fragment-duration=200 "fragment-duration=400 streamable=true" \
        "fragment-duration=300 fragment-mode=first-moov-then-finalise" interleave-bytes=2000 interleave-time=100000000 \
        "movie-timescale=90000 trak-timescale=60000" presentation-time=false force-chunks=true \
        "reserved-max-duration=5000000000 reserved-moov-update-period=200000000" \
        "reserved-max-duration=5000000000 reserved-bytes-per-sec=2000" "dts-method=asc" "start-gap-threshold=1000" \
        "fragment-duration=100 trak-timescale=12800" "faststart=true movie-timescale=600"; do
      number=$((number + 1))
      # shellcheck disable=SC2086
      gst "gst-$codec-$muxer-$number.$suffix" $codec $muxer $options
      # shellcheck disable=SC2086
      gst_alone "gst-alone-$codec-$muxer-$number.$suffix" $codec $muxer $options
    done
  done
  gst gst-$codec-3gpp.3gp $codec 3gppmux
  gst gst-$codec-isml.ismv $codec ismlmux fragment-duration=300
done

# Segments: one alone with its initialization segment, and all of them joined.
for codec in 264 265; do
  for kind in hls dash; do
    folder=segments/$kind-$codec
    mkdir -p "$folder"
    if [ $kind = hls ]; then
      ffmpeg -v error -y -i clips/$codec.mp4 -map 0:v -c copy -f hls -hls_segment_type fmp4 -hls_time 0.4 \
        -hls_fmp4_init_filename init.mp4 -hls_segment_filename "$folder/part%02d.m4s" "$folder/list.m3u8"
    else
      ffmpeg -v error -y -i clips/$codec.mp4 -map 0:v -c copy -f dash -seg_duration 0.4 -init_seg_name init.mp4 \
        -media_seg_name 'part$Number%02d$.m4s' "$folder/list.mpd"
    fi
    cat "$folder/init.mp4" "$folder"/part*.m4s >"in/joined-$kind-$codec.mp4"
    cp "$folder/init.mp4" "in/init-$kind-$codec.mp4"
    for part in "$folder"/part*.m4s; do
      name=$kind-$codec-$(basename "$part" .m4s)
      cp "$part" "in/$name.m4s"
      cp "$folder/init.mp4" "in/$name.init"
    done
  done
done
# Packets of hint tracks name parts of samples, and would not be true of others.
for file in in/*rtphint*; do
  printf 'is a hint track' >"${file%.*}.untrue"
done
"$matrix" build in clips/plain264.mp4 clips/plain265.mp4
echo "$(find in -type f ! -name '*.init' ! -name '*.untrue' | wc -l) files"

failed=0
"$matrix" patch in out || failed=1

# What others see of a file; segments are joined with their initialization segment first.
witness() {
  local name=$1 file=in/$1 base=${1%.*} suffix=${1##*.} kind
  for kind in before delimiters everything; do
    if [ $kind != before ]; then file=out/$base.$kind.$suffix; fi
    local seen=seen/$name.$kind joined=
    if [ ! -s "$file" ]; then continue; fi
    if [ "$suffix" = m4s ]; then
      joined=$seen.joined.mp4
      cat "in/$base.init" "$file" >"$joined"
      file=$joined
    fi
    {
      ffmpeg -v fatal -i "$file" -map '0:v?' -map '0:a?' -f framemd5 - 2>/dev/null | grep -v '^#' || true
      if [ $kind != everything ]; then
        ffprobe -v quiet -show_packets -show_chapters -of flat "$file" | grep -vE '\.(pos|size)=' || true
        timeout 20 gst-launch-1.0 -v filesrc location="$file" ! qtdemux name=d d.video_0 ! fakesink silent=false 2>&1 |
          grep -oE '(dts: .*|GstEventSegment.*)' | sed -E 's/offset(_end)?: [^,]*,//g; s/0x[0-9a-f]+//g' || true
      fi
    } >"$seen"
    rm -f "${joined:-$seen.none}"
  done
  if [ -e "seen/$name.delimiters" ] && ! cmp -s "seen/$name.before" "seen/$name.delimiters"; then echo "$name: others see it otherwise than before"; fi
  if [ -e "seen/$name.everything" ] && ! cmp -s <(grep -E '^[0-9]+,' "seen/$name.before") <(grep -E '^[0-9]+,' "seen/$name.everything"); then
    echo "$name: its pictures or its sound are others"
  fi
}
export -f witness
# libavformat takes a run that names no place for one at the begin of its fragment, and places that a segment counts from its
# own first byte are others behind an initialization segment; the rest is for everybody.
find in -type f ! -name '*.init' ! -name '*.untrue' ! -name '*runs_follow*' ! -name '*auxiliary_wide*_alone.m4s' -printf '%f\n' |
  sort -r | xargs -P "$(nproc)" -I{} bash -c 'witness "$1"' _ {} >wrong.txt
cat wrong.txt
echo "$(find in -type f ! -name '*.init' ! -name '*.untrue' | wc -l) files, $(grep -c . wrong.txt || true) that others see otherwise"
[ $failed -eq 0 ] && [ ! -s wrong.txt ]
