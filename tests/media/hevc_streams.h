// HEVC streams of many kinds, a few tiny pictures each, and their parameter sets.
#ifndef TESTS_MEDIA_HEVC_STREAMS_H
#define TESTS_MEDIA_HEVC_STREAMS_H

#include <string>
#include <vector>

#include "support/media.h"

namespace qln::test {

struct HevcRecipe {
  const char* name;
  const char* format;   // pixel format
  const char* size;     // of the picture
  const char* rate;     // pictures a second
  const char* options;  // encoder options, joined by colons
};

inline constexpr HevcRecipe kHevcRecipes[] = {
    {"main", "yuv420p", "128x96", "25", ""},
    {"main10", "yuv420p10le", "128x96", "25", ""},
    {"main422_10", "yuv422p10le", "128x96", "25", ""},
    {"main444", "yuv444p", "128x96", "25", ""},
    {"main444_10", "yuv444p10le", "192x128", "50", ""},
    {"main12", "yuv420p12le", "128x96", "25", ""},
    {"main422_12", "yuv422p12le", "128x96", "25", ""},
    {"gray", "gray", "128x96", "25", ""},
    {"still", "yuv420p", "128x96", "25", "keyint=1:bframes=0"},
    {"hrd", "yuv420p", "128x96", "25", "hrd=1:vbv-maxrate=500:vbv-bufsize=500"},
    {"hrd_cbr", "yuv420p", "128x96", "25", "hrd=1:bitrate=300:vbv-maxrate=300:vbv-bufsize=300:strict-cbr=1"},
    {"aud", "yuv420p", "128x96", "25", "aud=1:repeat-headers=1"},
    {"sar", "yuv420p", "128x96", "25", "sar=40\\:33"},
    {"overscan", "yuv420p", "128x96", "25", "overscan=crop"},
    {"colour", "yuv420p", "128x96", "25",
     "videoformat=ntsc:range=full:colorprim=bt709:transfer=bt709:colormatrix=bt709"},
    {"chromaloc", "yuv420p", "128x96", "25", "chromaloc=2"},
    {"display_window", "yuv420p", "128x96", "25", "display-window=2,4,6,8"},
    {"fields_tff", "yuv420p", "128x96", "25", "interlace=tff"},
    {"fields_bff", "yuv420p", "128x96", "25", "interlace=bff:hrd=1:vbv-maxrate=500:vbv-bufsize=500"},
    {"temporal_layers", "yuv420p", "128x96", "25", "temporal-layers=2:bframes=3:b-adapt=0"},
    {"wavefront", "yuv420p", "128x96", "25", "wpp=1:pools=2"},
    {"cropped", "yuv420p", "130x98", "25", ""},
    {"references", "yuv420p", "128x96", "30000/1001", "ref=5:bframes=4:b-pyramid=1"},
    {"no_b", "yuv420p", "128x96", "24", "bframes=0:ref=1"},
    {"hdr10", "yuv420p10le", "128x96", "50",
     "hdr10=1:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:max-cll=1000,400:master-display=G("
     "13250,"
     "34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)"},
    {"scaling_default", "yuv420p", "128x96", "25", "scaling-list=default"},
    {"lossless", "yuv420p", "128x96", "25", "lossless=1"},
    {"transform_skip", "yuv420p", "128x96", "25", "tskip=1:cu-lossless=1"},
    {"no_deblock", "yuv420p", "128x96", "25", "deblock=0:no-deblock=1"},
    {"deblock_below", "yuv420p", "128x96", "25", "deblock=-2,-3"},
    {"deblock_above", "yuv420p", "128x96", "25", "deblock=2,3"},
    {"chroma_offsets", "yuv420p", "128x96", "25", "cbqpoffs=-3:crqpoffs=4"},
    {"weighted", "yuv420p", "128x96", "25", "weightp=1:weightb=1"},
    {"constrained", "yuv420p", "128x96", "25", "constrained-intra=1:signhide=0:strong-intra-smoothing=0"},
    {"small_blocks", "yuv420p", "128x96", "25",
     "ctu=16:max-tu-size=16:tu-inter-depth=2:tu-intra-depth=3:amp=1:rect=1"},
    {"poc_bits", "yuv420p", "128x96", "25", "log2-max-poc-lsb=12:sao=0"},
    {"pal", "yuv420p", "128x96", "50", "videoformat=pal:range=limited:keyint=2"},
    {"high_tier", "yuv420p", "128x96", "25", "level-idc=5.1:high-tier=1:vbv-maxrate=5000:vbv-bufsize=5000"},
    {"full_hd", "yuv420p", "1920x1080", "25", ""},
};

inline std::string EncodeCommand(const HevcRecipe& recipe, const std::string& output) {
  const std::string options = recipe.options;
  std::string all = "log-level=none:frame-threads=1";
  if (options.find("pools=") == std::string::npos) all += ":pools=1";
  if (!options.empty()) all += ":" + options;
  const bool many = std::string(recipe.size) == "128x96";
  return std::string("timeout 60 ffmpeg -v error -y -nostdin -f lavfi -i testsrc2=s=") + recipe.size +
         ":r=" + recipe.rate + " -frames:v " + (many ? "6" : "2") + " -pix_fmt " + recipe.format +
         " -c:v libx265 -preset ultrafast -threads 1 -x265-params '" + all + "' " + output;
}

inline std::string HevcStream(const HevcRecipe& recipe) {
  return MediaFile(std::string("hevc_") + recipe.name + ".hevc", EncodeCommand(recipe, "-f hevc {out}"));
}

inline std::string HevcFile(const HevcRecipe& recipe, const std::string& tag) {
  return MediaFile(std::string("hevc_") + recipe.name + "_" + tag + ".mp4",
                   EncodeCommand(recipe, "-tag:v " + tag + " -f mp4 {out}"));
}

// The first unit of a type.
inline Bytes FirstUnit(const std::vector<Bytes>& units, uint32_t type) {
  for (const Bytes& unit : units) {
    if (!unit.empty() && (unit[0] >> 1 & 63u) == type) return unit;
  }
  return {};
}

// Without emulation prevention, by the standard's rule.
inline Bytes Unescaped(const Bytes& unit) {
  Bytes out;
  size_t zeros = 0;
  for (const uint8_t byte : unit) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    out.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return out;
}

}  // namespace qln::test

#endif
