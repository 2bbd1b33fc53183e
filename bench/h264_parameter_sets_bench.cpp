// H.264 parameter sets of a real stream, beside GStreamer's parser.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench_support.h"
#include "qlnutil/qlnh264.h"

#ifdef QLN_HAVE_GSTREAMER
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::EncodedStream;
using qln::bench::Require;
using qln::bench::UnitsOf;

// 1080p, four slices a picture, full VUI with HRD.
const std::vector<Bytes>& Units() {
  static const std::vector<Bytes> units = UnitsOf(EncodedStream(
      "slices_1080p.h264",
      "ffmpeg -y -f lavfi -i testsrc2=s=1920x1080:r=25 -frames:v 6 -c:v libx264 -pix_fmt yuv420p -preset "
      "veryfast "
      "-x264-params slices=4:nal-hrd=vbr:vbv-maxrate=40000:vbv-bufsize=40000:colorprim=bt709:transfer=bt709:"
      "colormatrix=bt709:keyint=3 -b:v 20M {out}"));
  return units;
}

const Bytes& FirstOfType(uint32_t type) {
  for (const Bytes& unit : Units()) {
    if ((unit[0] & 31u) == type) return unit;
  }
  Require(false, "the stream has parameter sets");
  return Units()[0];
}

void SpsOurs(benchmark::State& run) {
  Bytes unit = FirstOfType(7);
  H264SpsRecord sps{};
  for (auto _ : run) {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    benchmark::DoNotOptimize(qlnutilRead_SPS(&state, &sps));
    benchmark::ClobberMemory();
  }
  Require(sps.pic_width_in_mbs_minus1 == 119 && sps.nal_hrd_parameters_present_flag == 1, "SPS");
}

void PpsOurs(benchmark::State& run) {
  Bytes unit = FirstOfType(8);
  H264PpsRecord pps{};
  for (auto _ : run) {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    benchmark::DoNotOptimize(qlnutilRead_PPS(&state, &pps));
    benchmark::ClobberMemory();
  }
  Require(pps.entropy_coding_mode_flag == 1, "PPS");
}

BENCHMARK(SpsOurs)->Name("h264_sps/ours");
BENCHMARK(PpsOurs)->Name("h264_pps/ours");

#ifdef QLN_HAVE_GSTREAMER

GstH264NalUnit Identify(GstH264NalParser* parser, const Bytes& withCode) {
  GstH264NalUnit unit;
  gst_h264_parser_identify_nalu_unchecked(parser, withCode.data(), 0, withCode.size(), &unit);
  unit.size = static_cast<guint>(withCode.size()) - unit.offset;
  return unit;
}

Bytes WithCode(const Bytes& unit) {
  Bytes bytes(unit.size() + 4);
  bytes[3] = 1;
  std::copy(unit.begin(), unit.end(), bytes.begin() + 4);
  return bytes;
}

void SpsGStreamer(benchmark::State& run) {
  const Bytes bytes = WithCode(FirstOfType(7));
  GstH264NalParser* const parser = gst_h264_nal_parser_new();
  GstH264NalUnit unit = Identify(parser, bytes);
  GstH264SPS sps;
  for (auto _ : run) {
    Require(gst_h264_parse_sps(&unit, &sps) == GST_H264_PARSER_OK, "GStreamer's SPS");
    benchmark::ClobberMemory();
    gst_h264_sps_clear(&sps);
  }
  gst_h264_nal_parser_free(parser);
}

void PpsGStreamer(benchmark::State& run) {
  const Bytes spsBytes = WithCode(FirstOfType(7));
  const Bytes ppsBytes = WithCode(FirstOfType(8));
  GstH264NalParser* const parser = gst_h264_nal_parser_new();
  GstH264NalUnit spsUnit = Identify(parser, spsBytes);
  GstH264SPS sps;
  Require(gst_h264_parser_parse_sps(parser, &spsUnit, &sps) == GST_H264_PARSER_OK, "GStreamer's SPS");
  GstH264NalUnit unit = Identify(parser, ppsBytes);
  GstH264PPS pps;
  for (auto _ : run) {
    Require(gst_h264_parse_pps(parser, &unit, &pps) == GST_H264_PARSER_OK, "GStreamer's PPS");
    benchmark::ClobberMemory();
    gst_h264_pps_clear(&pps);
  }
  gst_h264_sps_clear(&sps);
  gst_h264_nal_parser_free(parser);
}

BENCHMARK(SpsGStreamer)->Name("h264_sps/gstreamer");
BENCHMARK(PpsGStreamer)->Name("h264_pps/gstreamer");

#endif

}  // namespace
