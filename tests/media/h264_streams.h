// H.264 streams of x264 in many settings, their units, and their sets through the library.
#ifndef TESTS_MEDIA_H264_STREAMS_H
#define TESTS_MEDIA_H264_STREAMS_H

#include <string>
#include <vector>

#include "qlnutil/qlnh264.h"
#include "support/media.h"

namespace qln::test {

struct Encode {
  const char* name;
  const char* source;   // of the test picture
  const char* options;  // of the encoder
};

inline const char* const kSmall = "testsrc=size=64x64:rate=25,format=yuv420p";

inline const Encode kEncodes[] = {
    {"baseline", kSmall, "-profile:v baseline"},
    {"baseline_slices", kSmall, "-profile:v baseline -x264-params slices=4"},
    {"main_cavlc", kSmall, "-profile:v main -x264-params cabac=0"},
    {"main_cabac", kSmall, "-profile:v main -x264-params bframes=2"},
    {"high", kSmall, "-profile:v high"},
    {"high_no8x8", kSmall, "-x264-params 8x8dct=0"},
    {"high_cavlc", kSmall, "-x264-params cabac=0:bframes=3"},
    {"high_intra", kSmall, "-x264-params keyint=1"},
    {"high_422", "testsrc=size=64x64:rate=25,format=yuv422p", "-profile:v high422"},
    {"high_444", "testsrc=size=64x64:rate=25,format=yuv444p", "-profile:v high444"},
    {"lossless_444", "testsrc=size=64x64:rate=25,format=yuv444p", "-qp 0"},
    {"lossless_420", kSmall, "-qp 0"},
    {"high_10", "testsrc=size=64x64:rate=25,format=yuv420p10le", "-profile:v high10"},
    {"high_422_10", "testsrc=size=64x64:rate=25,format=yuv422p10le", "-profile:v high422"},
    {"high_422_10_intra", "testsrc=size=64x64:rate=25,format=yuv422p10le", "-x264-params keyint=1"},
    {"gray", "testsrc=size=64x64:rate=25,format=gray", ""},
    {"tff", kSmall, "-x264-params tff=1"},
    {"bff", kSmall, "-x264-params bff=1:bframes=2"},
    {"mbaff_cavlc", kSmall, "-x264-params tff=1:cabac=0"},
    {"fake_interlaced", kSmall, "-x264-params fake-interlaced=1"},
    {"cropped", "testsrc=size=70x50:rate=25,format=yuv420p", ""},
    {"cropped_422", "testsrc=size=90x54:rate=25,format=yuv422p", ""},
    {"cropped_interlaced", "testsrc=size=66x68:rate=25,format=yuv420p", "-x264-params tff=1"},
    {"hrd_vbr", kSmall, "-x264-params nal-hrd=vbr:vbv-maxrate=500:vbv-bufsize=800"},
    {"hrd_cbr", kSmall, "-b:v 200k -x264-params nal-hrd=cbr:vbv-maxrate=200:vbv-bufsize=300"},
    {"hrd_pic_struct", kSmall, "-x264-params nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=950:pic-struct=1"},
    {"hrd_interlaced", kSmall, "-x264-params nal-hrd=vbr:vbv-maxrate=600:vbv-bufsize=700:tff=1"},
    {"full_vui", kSmall,
     "-x264-params sar=16/11:overscan=crop:videoformat=pal:fullrange=on:colorprim=bt709:transfer=bt709:"
     "colormatrix=bt709:chromaloc=2"},
    {"vui_2020", kSmall, "-x264-params colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc"},
    {"odd_sar", kSmall, "-x264-params sar=1234/567:overscan=show"},
    {"film_rate", "testsrc=size=64x64:rate=24000/1001,format=yuv420p", ""},
    {"high_rate", "testsrc=size=64x64:rate=60000/1001,format=yuv420p", "-x264-params force-cfr=1"},
    {"scaling_jvt", kSmall, "-x264-params cqm=jvt"},
    {"scaling_own", kSmall, "-x264-params cqm4=17,18,19,20,21,22,23,24,25,26,27,28,29,30,31,32"},
    {"scaling_444", "testsrc=size=64x64:rate=25,format=yuv444p", "-x264-params cqm=jvt"},
    {"slices", kSmall, "-x264-params slices=3:bframes=1"},
    {"slice_sizes", kSmall, "-x264-params slice-max-size=200"},
    {"b_pyramid", kSmall, "-x264-params bframes=5:b-pyramid=normal:ref=4"},
    {"b_strict", kSmall, "-x264-params bframes=5:b-pyramid=strict:ref=4"},
    {"weighted", "testsrc=size=64x64:rate=25,format=yuv420p,fade=in:0:8", "-x264-params weightp=2:ref=3"},
    {"weighted_none", kSmall, "-x264-params weightp=0:weightb=0"},
    {"intra_refresh", kSmall, "-x264-params intra-refresh=1:keyint=5"},
    {"open_gop", kSmall, "-x264-params open-gop=1:keyint=4:bframes=2"},
    {"constrained_intra", kSmall, "-x264-params constrained-intra=1"},
    {"deblock", kSmall, "-x264-params deblock=-2,3"},
    {"no_deblock", kSmall, "-x264-params no-deblock=1"},
    {"many_refs", kSmall, "-x264-params ref=8:keyint=250"},
    {"sps_id", kSmall, "-x264-params sps-id=5"},
    {"stitchable", kSmall, "-x264-params stitchable=1"},
    {"bluray", kSmall, "-x264-params bluray-compat=1:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=950"},
    {"zerolatency", kSmall, "-tune zerolatency"},
    {"dense_idr", kSmall, "-x264-params keyint=2:min-keyint=1"},
};

inline std::string File(const Encode& encode) {
  return MediaFile(std::string("h264_") + encode.name + ".264",
                   std::string("ffmpeg -hide_banner -v error -nostdin -f lavfi -i '") + encode.source +
                       "' -frames:v 8 -c:v libx264 -threads 1 " + encode.options + " -f h264 {out}");
}

inline std::vector<Bytes> Units(const std::string& file, std::initializer_list<uint32_t> types) {
  std::vector<Bytes> found;
  for (const Bytes& unit : SplitByteStream(test::ReadFile(file))) {
    for (const uint32_t type : types) {
      if (!unit.empty() && unit[0] % 32u == type) found.push_back(unit);
    }
  }
  return found;
}

// The traced units of one kind that stand in the stream itself, behind those of the extradata.
inline std::vector<TracedUnit> Traced(const std::vector<TracedUnit>& all, const std::string& heading,
                                      size_t count) {
  std::vector<TracedUnit> units;
  for (const TracedUnit& unit : all) {
    if (unit.heading == heading) units.push_back(unit);
  }
  EXPECT_GE(units.size(), count) << heading;
  if (units.size() > count) units.erase(units.begin(), units.end() - static_cast<std::ptrdiff_t>(count));
  return units;
}

template <class Record>
struct Parsed {
  Record record;
  uint64_t result;
};

template <class Record, class Function>
Parsed<Record> Read(Function function, const Bytes& unit) {
  Parsed<Record> parsed{};
  test::ExactCopy copy(unit);
  QLNBitState state{copy.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size() * 8),
                    0};
  parsed.result = function(&state, &parsed.record);
  return parsed;
}

template <class Record, class Function>
Bytes Write(Function function, const Record& record) {
  Bytes bytes(4096);
  QLNBitState state{bytes.data(), 1024, 8192, 0};
  bytes.resize(function(&state, &record));
  return bytes;
}

inline bool StartsWith(const std::string& text, const char* start) { return text.rfind(start, 0) == 0; }

}  // namespace qln::test

#endif
