// HEVC parameter sets of a real stream, beside GStreamer's parser.

#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench_support.h"
#include "qlnutil/qlnhevc.h"

#ifdef QLN_HAVE_GSTREAMER
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth265parser.h>
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::EncodedStream;
using qln::bench::Require;
using qln::bench::UnitsOf;

// 1080p, 10 bit, HDR10.
const Bytes& FirstOfType(uint32_t type) {
  static const std::vector<Bytes> units = UnitsOf(EncodedStream(
      "hdr10_1080p.hevc",
      "ffmpeg -y -f lavfi -i testsrc2=s=1920x1080:r=50 -frames:v 3 -c:v libx265 -pix_fmt yuv420p10le -preset "
      "ultrafast "
      "-x265-params log-level=none:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc:repeat-headers=1 "
      "{out}"));
  for (const Bytes& unit : units) {
    if ((unit[0] >> 1 & 63u) == type) return unit;
  }
  Require(false, "the stream has parameter sets");
  return units[0];
}

template <class Record, auto kRead>
void ReadOurs(benchmark::State& run, uint32_t type) {
  Bytes unit = FirstOfType(type);
  Record record{};
  uint64_t result = 0;
  for (auto _ : run) {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    result = kRead(&state, &record, nullptr, 0);
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
  }
  Require(result != 0 && result != 0xFFFFFFFFu, "HEVC parameter set");
}

void VpsOurs(benchmark::State& run) { ReadOurs<HevcVpsRecord, qlnutilRead_HEVC_VPS>(run, 32); }
BENCHMARK(VpsOurs)->Name("hevc_vps/ours");
void SpsOurs(benchmark::State& run) { ReadOurs<HevcSpsRecord, qlnutilRead_HEVC_SPS>(run, 33); }
BENCHMARK(SpsOurs)->Name("hevc_sps/ours");
void PpsOurs(benchmark::State& run) { ReadOurs<HevcPpsRecord, qlnutilRead_HEVC_PPS>(run, 34); }
BENCHMARK(PpsOurs)->Name("hevc_pps/ours");

#ifdef QLN_HAVE_GSTREAMER

struct GstUnit {
  Bytes bytes;
  GstH265NalUnit unit;

  GstUnit(GstH265Parser* parser, uint32_t type) {
    const Bytes& source = FirstOfType(type);
    bytes.resize(source.size() + 4);
    bytes[3] = 1;
    std::copy(source.begin(), source.end(), bytes.begin() + 4);
    gst_h265_parser_identify_nalu_unchecked(parser, bytes.data(), 0, bytes.size(), &unit);
    unit.size = static_cast<guint>(bytes.size()) - unit.offset;
  }
};

void VpsGStreamer(benchmark::State& run) {
  GstH265Parser* const parser = gst_h265_parser_new();
  GstUnit unit(parser, 32);
  GstH265VPS vps;
  for (auto _ : run) {
    Require(gst_h265_parse_vps(&unit.unit, &vps) == GST_H265_PARSER_OK, "GStreamer's VPS");
    benchmark::ClobberMemory();
  }
  gst_h265_parser_free(parser);
}

void SpsGStreamer(benchmark::State& run) {
  GstH265Parser* const parser = gst_h265_parser_new();
  GstUnit unit(parser, 33);
  GstH265SPS sps;
  for (auto _ : run) {
    Require(gst_h265_parse_sps(parser, &unit.unit, &sps, TRUE) == GST_H265_PARSER_OK, "GStreamer's SPS");
    benchmark::ClobberMemory();
  }
  gst_h265_parser_free(parser);
}

void PpsGStreamer(benchmark::State& run) {
  GstH265Parser* const parser = gst_h265_parser_new();
  GstUnit vpsUnit(parser, 32);
  GstUnit spsUnit(parser, 33);
  GstUnit unit(parser, 34);
  GstH265VPS vps;
  GstH265SPS sps;
  gst_h265_parser_parse_vps(parser, &vpsUnit.unit, &vps);
  gst_h265_parser_parse_sps(parser, &spsUnit.unit, &sps, TRUE);
  GstH265PPS pps;
  for (auto _ : run) {
    Require(gst_h265_parse_pps(parser, &unit.unit, &pps) == GST_H265_PARSER_OK, "GStreamer's PPS");
    benchmark::ClobberMemory();
  }
  gst_h265_parser_free(parser);
}

BENCHMARK(VpsGStreamer)->Name("hevc_vps/gstreamer");
BENCHMARK(SpsGStreamer)->Name("hevc_sps/gstreamer");
BENCHMARK(PpsGStreamer)->Name("hevc_pps/gstreamer");

#endif

}  // namespace
