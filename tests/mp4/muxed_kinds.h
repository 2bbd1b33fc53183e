// Files that the muxer of ffmpeg makes of one recording with its many options, and what ffprobe shows of
// them.
#ifndef TESTS_MP4_MUXED_KINDS_H
#define TESTS_MP4_MUXED_KINDS_H

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/media.h"

namespace qln::test::mp4 {

// One and a half seconds of pictures with B pictures, and a tone.
inline std::string Coded(bool hevc) {
  const std::string coder =
      hevc ? "-c:v libx265 -x265-params log-level=none:pools=1:frame-threads=1:keyint=12:bframes=2"
           : "-c:v libx264 -x264-params keyint=12:bframes=2:threads=1";
  return MediaFile(
      hevc ? "mp4-coded-265.mkv" : "mp4-coded-264.mkv",
      "ffmpeg -v error -y -f lavfi -i testsrc=s=64x64:r=25 -f lavfi -i sine=440 -t 1.5 -pix_fmt yuv420p " +
          coder + " -c:a aac -b:a 64k {out}");
}

struct Variant {
  const char* name;
  const char* before;   // in front of the input
  const char* options;  // of the output
  const char* suffix;
};

inline const Variant kVariants[] = {
    {"plain", "", "", "mp4"},
    {"faststart", "", "-movflags +faststart", "mp4"},
    {"mov", "", "", "mov"},
    {"mov-faststart", "", "-movflags +faststart", "mov"},
    {"no-btrt", "", "-write_btrt 0", "mp4"},
    {"moov-room", "", "-moov_size 20000", "mp4"},
    {"negative", "", "-movflags +negative_cts_offsets", "mp4"},
    {"no-edits", "", "-use_editlist 0", "mp4"},
    {"cut", "-ss 0.3", "", "mp4"},
    {"late", "-itsoffset 0.7", "-avoid_negative_ts disabled", "mp4"},
    {"timescale", "", "-movie_timescale 90000 -video_track_timescale 60000", "mp4"},
    {"brand", "", "-brand mp42", "mp4"},
    {"colour", "", "-movflags +write_colr -color_primaries bt709 -color_trc bt709 -colorspace bt709", "mp4"},
    {"gamma", "", "-movflags +write_colr+write_gama -mov_gamma 2.2", "mov"},
    {"tags", "", "-movflags +use_metadata_tags -metadata rating=5 -metadata title=a -metadata odd=b", "mov"},
    {"tags-mp4", "", "-metadata title=a -metadata sort_name=b -metadata:s:1 language=und", "mp4"},
    {"timecode", "", "-timecode 01:00:00:00", "mov"},
    {"timecode-mp4", "", "-timecode 01:00:00:00 -write_tmcd 1 -movflags +faststart", "mp4"},
    {"hev1", "", "-tag:v {hev1}", "mp4"},
    {"keys", "", "-movflags +frag_keyframe", "mp4"},
    {"keys-empty", "", "-movflags +frag_keyframe+empty_moov", "mp4"},
    {"keys-base", "", "-movflags +frag_keyframe+empty_moov+default_base_moof", "mp4"},
    {"keys-omit", "", "-movflags +frag_keyframe+empty_moov+omit_tfhd_offset", "mp4"},
    {"keys-apart", "", "-movflags +frag_keyframe+separate_moof", "mp4"},
    {"keys-mov", "", "-movflags +frag_keyframe+empty_moov", "mov"},
    {"every", "", "-movflags +frag_every_frame+empty_moov+default_base_moof", "mp4"},
    {"every-omit", "", "-movflags +frag_every_frame+empty_moov+omit_tfhd_offset+separate_moof", "mp4"},
    {"time", "", "-movflags +empty_moov -frag_duration 200000", "mp4"},
    {"time-part", "", "-movflags +default_base_moof -frag_duration 70000", "mp4"},
    {"size", "", "-movflags +empty_moov -frag_size 3000", "mp4"},
    {"interleave", "", "-movflags +frag_keyframe+empty_moov -frag_interleave 4", "mp4"},
    {"delay", "", "-movflags +frag_keyframe+delay_moov", "mp4"},
    {"cmaf", "", "-movflags +cmaf+frag_keyframe", "mp4"},
    {"cmaf-negative", "", "-movflags +cmaf+frag_keyframe+negative_cts_offsets+delay_moov", "mp4"},
    {"dash", "", "-movflags +dash+frag_keyframe", "mp4"},
    {"dash-global", "", "-movflags +dash+frag_keyframe+delay_moov+global_sidx", "mp4"},
    {"dash-every", "", "-movflags +dash+frag_every_frame+delay_moov+global_sidx", "mp4"},
    {"no-index", "", "-movflags +frag_keyframe+skip_trailer", "mp4"},
    {"prft", "", "-movflags +dash+frag_keyframe -write_prft pts", "mp4"},
    {"smooth", "", "-movflags +frag_keyframe", "ismv"},
    {"3gp", "", "", "3gp"},
    {"psp", "", "-f ipod", "m4v"},
};

inline std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

inline std::string Made(const Variant& variant, bool hevc) {
  const std::string options = Replaced(variant.options, "{hev1}", hevc ? "hev1" : "avc3");
  return MediaFile(std::string("mp4-muxed-") + variant.name + (hevc ? "-265." : "-264.") + variant.suffix,
                   std::string("ffmpeg -v error -y ") + variant.before + " -i " + Coded(hevc) +
                       " -map 0 -c copy -fflags +bitexact " + options + " {out}");
}

// What ffprobe shows of a file, without sizes, places and what is made of them.
inline std::string Shown(const std::string& path) {
  const CommandResult result =
      Run("ffprobe -v quiet -show_packets -show_streams -show_format -show_chapters -show_data_hash crc32 "
          "-of flat " +
          path);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  std::istringstream lines(result.output);
  std::string out;
  for (std::string line; std::getline(lines, line);) {
    bool drop = false;
    for (const char* field : {".pos=", ".size=", "bit_rate=", ".filename=", ".data_hash=", ".probe_score="}) {
      drop = drop || line.find(field) != std::string::npos;
    }
    if (!drop) out += line + "\n";
  }
  return out;
}

}  // namespace qln::test::mp4

#endif
