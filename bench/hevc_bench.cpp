// HEVC parameter sets of real streams, beside GStreamer's and libavcodec's parsers.

#include <benchmark/benchmark.h>

#include "bench_streams.h"
#include "kxutil/kxutil.h"
#include "libav_parser.h"
#include "qlnutil/qlnhevc.h"

#ifdef QLN_HAVE_GSTREAMER
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth265parser.h>
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::HevcType;
using qln::bench::LibavParser;
using qln::bench::Require;
using qln::bench::Stream;
using qln::bench::WithStartCodes;

constexpr uint32_t kVps = 32;
constexpr uint32_t kSps = 33;
constexpr uint32_t kPps = 34;

const Bytes& FirstOfType(const Stream& stream, uint32_t type) {
  return qln::bench::FirstUnit(stream, [type](const Bytes& unit) { return HevcType(unit) == type; });
}

bool IsRight(const HevcVpsRecord& vps, const Stream&) { return vps.vps_reserved_0xffff_16bits == 0xFFFF; }
bool IsRight(const HevcSpsRecord& sps, const Stream& stream) {
  return sps.pic_width_in_luma_samples == stream.width && sps.pic_height_in_luma_samples == stream.height;
}
bool IsRight(const HevcPpsRecord& pps, const Stream&) {
  return pps.num_ref_idx_l0_default_active_minus1 < 15 && pps.pps_extension_present_flag == 0;
}

template <class Record, auto kRead>
void ReadOurs(benchmark::State& run, const Stream& stream, uint32_t type) {
  Bytes unit = FirstOfType(stream, type);
  Record record{};
  const auto read = [&] {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    return kRead(&state, &record, nullptr, 0);
  };
  // All of the unit was read, with its trailing bits at its end.
  const uint64_t result = read();
  Require(result != QLN_HEVC_REFUSED && result + 8 > unit.size() && IsRight(record, stream),
          "HEVC parameter set");
  for (auto _ : run) {
    benchmark::DoNotOptimize(read());
    benchmark::ClobberMemory();
  }
}

// The parser after the parameter sets and a slice, and then unit by unit.
void UnitLibav(benchmark::State& run, const Stream& stream, uint32_t type) {
  LibavParser parser(AV_CODEC_ID_HEVC, true);
  const Bytes slice = qln::bench::FirstUnit(stream, [](const Bytes& unit) { return HevcType(unit) < 32; });
  parser.ParsePadded(LibavParser::Padded(WithStartCodes(std::vector<Bytes>{
      FirstOfType(stream, kVps), FirstOfType(stream, kSps), FirstOfType(stream, kPps), slice})));
  Require(parser.codedWidth() == static_cast<int>(stream.width) &&
              parser.codedHeight() == static_cast<int>(stream.height),
          "libavcodec's picture size");
  const Bytes bytes = LibavParser::Padded(WithStartCodes({&FirstOfType(stream, type), 1}));
  for (auto _ : run) {
    benchmark::DoNotOptimize(parser.ParsePadded(bytes));
    benchmark::ClobberMemory();
  }
}

// A set whose HRD parameters lead past the end. Its messages go to a host's sink for this thread.
void SpsPastEndOurs(benchmark::State& run) {
  const Stream& stream = qln::bench::HevcStreamWithHrd();
  Bytes unit = FirstOfType(stream, kSps);
  HevcSpsRecord record{};
  size_t messages = 0;
  KXDiagnosticSink sinkBefore = nullptr;
  void* contextBefore = nullptr;
  kxSetThreadDiagnosticSink(
      [](uint32_t, const char* text, void* count) { *static_cast<size_t*>(count) += text[0] != 0; },
      &messages, &sinkBefore, &contextBefore);
  const auto read = [&] {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    return qlnutilRead_HEVC_SPS(&state, &record, nullptr, 0);
  };
  read();
  Require(messages == 1 && record.pic_width_in_luma_samples == 1920, "an SPS that runs past its end");
  for (auto _ : run) {
    benchmark::DoNotOptimize(read());
    benchmark::ClobberMemory();
  }
  kxSetThreadDiagnosticSink(sinkBefore, contextBefore, nullptr, nullptr);
}

#ifdef QLN_HAVE_GSTREAMER

struct GstUnit {
  Bytes bytes;
  GstH265NalUnit unit;

  GstUnit(GstH265Parser* parser, const Bytes& source) : bytes(WithStartCodes({&source, 1})) {
    gst_h265_parser_identify_nalu_unchecked(parser, bytes.data(), 0, bytes.size(), &unit);
    unit.size = static_cast<guint>(bytes.size()) - unit.offset;
  }
};

// A parser that has seen the parameter sets, and each of them.
struct GstSets {
  GstH265Parser* parser = gst_h265_parser_new();
  GstUnit vpsUnit;
  GstUnit spsUnit;
  GstUnit ppsUnit;
  GstH265VPS vps;
  GstH265SPS sps;
  GstH265PPS pps;

  explicit GstSets(const Stream& stream)
      : vpsUnit(parser, FirstOfType(stream, kVps)),
        spsUnit(parser, FirstOfType(stream, kSps)),
        ppsUnit(parser, FirstOfType(stream, kPps)) {
    Require(gst_h265_parser_parse_vps(parser, &vpsUnit.unit, &vps) == GST_H265_PARSER_OK, "GStreamer's VPS");
    Require(gst_h265_parser_parse_sps(parser, &spsUnit.unit, &sps, TRUE) == GST_H265_PARSER_OK,
            "GStreamer's SPS");
  }
  ~GstSets() { gst_h265_parser_free(parser); }
};

void VpsGStreamer(benchmark::State& run, const Stream& stream) {
  GstSets sets(stream);
  for (auto _ : run) {
    Require(gst_h265_parse_vps(&sets.vpsUnit.unit, &sets.vps) == GST_H265_PARSER_OK, "GStreamer's VPS");
    benchmark::ClobberMemory();
  }
}

void SpsGStreamer(benchmark::State& run, const Stream& stream) {
  GstSets sets(stream);
  GstH265SPS sps;
  for (auto _ : run) {
    Require(gst_h265_parse_sps(sets.parser, &sets.spsUnit.unit, &sps, TRUE) == GST_H265_PARSER_OK,
            "GStreamer's SPS");
    benchmark::ClobberMemory();
  }
}

void PpsGStreamer(benchmark::State& run, const Stream& stream) {
  GstSets sets(stream);
  for (auto _ : run) {
    Require(gst_h265_parse_pps(sets.parser, &sets.ppsUnit.unit, &sets.pps) == GST_H265_PARSER_OK,
            "GStreamer's PPS");
    benchmark::ClobberMemory();
  }
}

#endif

[[maybe_unused]] const bool kRegistered = [] {
  for (const Stream& stream : qln::bench::HevcStreams()) {
    const auto add = [&stream](const char* row, const char* side, auto function) {
      const std::string name = std::string(row) + ":" + stream.name + "/" + side;
      benchmark::RegisterBenchmark(name.c_str(), function);
    };
    add("hevc_vps", "ours",
        [&](benchmark::State& run) { ReadOurs<HevcVpsRecord, qlnutilRead_HEVC_VPS>(run, stream, kVps); });
    add("hevc_sps", "ours",
        [&](benchmark::State& run) { ReadOurs<HevcSpsRecord, qlnutilRead_HEVC_SPS>(run, stream, kSps); });
    add("hevc_pps", "ours",
        [&](benchmark::State& run) { ReadOurs<HevcPpsRecord, qlnutilRead_HEVC_PPS>(run, stream, kPps); });
    add("hevc_vps", "libavcodec", [&](benchmark::State& run) { UnitLibav(run, stream, kVps); });
    add("hevc_sps", "libavcodec", [&](benchmark::State& run) { UnitLibav(run, stream, kSps); });
    add("hevc_pps", "libavcodec", [&](benchmark::State& run) { UnitLibav(run, stream, kPps); });
#ifdef QLN_HAVE_GSTREAMER
    add("hevc_vps", "gstreamer", [&](benchmark::State& run) { VpsGStreamer(run, stream); });
    add("hevc_sps", "gstreamer", [&](benchmark::State& run) { SpsGStreamer(run, stream); });
    add("hevc_pps", "gstreamer", [&](benchmark::State& run) { PpsGStreamer(run, stream); });
#endif
  }
  const Stream& hrd = qln::bench::HevcStreamWithHrd();
  benchmark::RegisterBenchmark("hevc_sps_past_end/ours", SpsPastEndOurs);
  benchmark::RegisterBenchmark("hevc_sps_past_end/libavcodec",
                               [&](benchmark::State& run) { UnitLibav(run, hrd, kSps); });
#ifdef QLN_HAVE_GSTREAMER
  benchmark::RegisterBenchmark("hevc_sps_past_end/gstreamer",
                               [&](benchmark::State& run) { SpsGStreamer(run, hrd); });
#endif
  return true;
}();

}  // namespace
