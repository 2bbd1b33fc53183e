// H.264 parameter sets and slice headers of real streams, beside GStreamer's and libavcodec's parsers.

#include <benchmark/benchmark.h>

#include <cstring>

#include "bench_streams.h"
#include "libav_parser.h"
#include "qlnutil/qlnh264.h"

#ifdef QLN_HAVE_GSTREAMER
#include "gst_h264.h"
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::FirstUnit;
using qln::bench::H264Type;
using qln::bench::LibavParser;
using qln::bench::Require;
using qln::bench::Stream;
using qln::bench::WithStartCodes;

const Bytes& Sps(const Stream& stream) {
  return FirstUnit(stream, [](const Bytes& unit) { return H264Type(unit) == 7; });
}
const Bytes& Pps(const Stream& stream) {
  return FirstUnit(stream, [](const Bytes& unit) { return H264Type(unit) == 8; });
}
// Of a predicted picture where there is one.
const Bytes& Slice(const Stream& stream) {
  for (const Bytes& unit : qln::bench::UnitsOf(stream)) {
    if (H264Type(unit) == 1) return unit;
  }
  return FirstUnit(stream, [](const Bytes& unit) { return H264Type(unit) == 5; });
}

// A unit cut or filled up to `size` bytes.
Bytes SliceOfSize(const Stream& stream, size_t size) {
  Bytes unit = Slice(stream);
  const size_t old = unit.size();
  unit.resize(size);
  for (size_t i = old; i < size; ++i) unit[i] = static_cast<uint8_t>(i * 37 | 4);
  return unit;
}

QLNBitState StateOver(Bytes& unit) {
  const uint32_t size = static_cast<uint32_t>(unit.size());
  return {unit.data(), static_cast<int32_t>(size), size * 8, 0};
}

struct OurSets {
  H264SpsRecord sps{};
  H264PpsRecord pps{};

  explicit OurSets(const Stream& stream) {
    Bytes spsUnit = Sps(stream);
    QLNBitState state = StateOver(spsUnit);
    Require(qlnutilRead_SPS(&state, &sps) != 0, "SPS");
    Bytes ppsUnit = Pps(stream);
    state = StateOver(ppsUnit);
    Require(qlnutilRead_PPS(&state, &pps) != 0, "PPS");
    const uint32_t mapUnitLines = sps.frame_mbs_only_flag != 0 ? 16 : 32;
    Require((sps.pic_width_in_mbs_minus1 + 1) * 16 == stream.width &&
                (sps.pic_height_in_map_units_minus1 + 1) * mapUnitLines == stream.height,
            "size in the SPS");
    Require(pps.entropy_coding_mode_flag == 1 && pps.deblocking_filter_control_present_flag == 1, "PPS");
  }
};

void SpsOurs(benchmark::State& run, const Stream& stream) {
  OurSets sets(stream);
  Bytes unit = Sps(stream);
  for (auto _ : run) {
    std::memset(&sets.sps, 0, sizeof sets.sps);  // as a host does, since a set need not have all elements
    QLNBitState state = StateOver(unit);
    benchmark::DoNotOptimize(qlnutilRead_SPS(&state, &sets.sps));
    benchmark::ClobberMemory();
  }
}

void PpsOurs(benchmark::State& run, const Stream& stream) {
  OurSets sets(stream);
  Bytes unit = Pps(stream);
  for (auto _ : run) {
    std::memset(&sets.pps, 0, sizeof sets.pps);
    QLNBitState state = StateOver(unit);
    benchmark::DoNotOptimize(qlnutilRead_PPS(&state, &sets.pps));
    benchmark::ClobberMemory();
  }
}

void SliceOurs(benchmark::State& run, const Stream& stream, size_t size) {
  OurSets sets(stream);
  Bytes unit = SliceOfSize(stream, size);
  const int32_t type = static_cast<int32_t>(H264Type(unit));
  H264SliceHeaderRecord header{};
  const auto read = [&] {
    QLNBitState state = StateOver(unit);
    return qlnutilRead_SliceHeader(&state, &header, &sets.sps, &sets.pps, type, 0);
  };
  Require(read() == 0 && header.slice_type <= 9 && (type == 5) == (header.slice_type % 5 == 2),
          "slice header");
  for (auto _ : run) {
    benchmark::DoNotOptimize(read());
    benchmark::ClobberMemory();
  }
}

// The parser after the parameter sets and one slice, and then unit by unit.
void UnitLibav(benchmark::State& run, const Stream& stream, const Bytes& unit) {
  LibavParser parser(AV_CODEC_ID_H264, true);
  parser.ParsePadded(LibavParser::Padded(
      WithStartCodes(std::vector<Bytes>{Sps(stream), Pps(stream), SliceOfSize(stream, 5000)})));
  Require(parser.codedWidth() == static_cast<int>(stream.width) &&
              parser.codedHeight() == static_cast<int>(stream.height),
          "libavcodec's picture size");
  const Bytes bytes = LibavParser::Padded(WithStartCodes({&unit, 1}));
  for (auto _ : run) {
    benchmark::DoNotOptimize(parser.ParsePadded(bytes));
    benchmark::ClobberMemory();
  }
}

#ifdef QLN_HAVE_GSTREAMER

using qln::bench::GstH264Sets;
using qln::bench::GstH264Unit;

void SpsGStreamer(benchmark::State& run, const Stream& stream) {
  GstH264Sets sets(Sps(stream), Pps(stream));
  GstH264Unit unit(sets.parser, Sps(stream));
  GstH264SPS sps;
  for (auto _ : run) {
    Require(gst_h264_parse_sps(&unit.unit, &sps) == GST_H264_PARSER_OK, "GStreamer's SPS");
    benchmark::ClobberMemory();
    gst_h264_sps_clear(&sps);
  }
}

void PpsGStreamer(benchmark::State& run, const Stream& stream) {
  GstH264Sets sets(Sps(stream), Pps(stream));
  GstH264Unit unit(sets.parser, Pps(stream));
  GstH264PPS pps;
  for (auto _ : run) {
    Require(gst_h264_parse_pps(sets.parser, &unit.unit, &pps) == GST_H264_PARSER_OK, "GStreamer's PPS");
    benchmark::ClobberMemory();
    gst_h264_pps_clear(&pps);
  }
}

void SliceGStreamer(benchmark::State& run, const Stream& stream) {
  GstH264Sets sets(Sps(stream), Pps(stream));
  GstH264Unit unit(sets.parser, SliceOfSize(stream, 5000));
  GstH264SliceHdr header;
  for (auto _ : run) {
    Require(
        gst_h264_parser_parse_slice_hdr(sets.parser, &unit.unit, &header, TRUE, TRUE) == GST_H264_PARSER_OK,
        "GStreamer's slice header");
    benchmark::ClobberMemory();
  }
}

#endif

[[maybe_unused]] const bool kRegistered = [] {
  for (const Stream& stream : qln::bench::H264Streams()) {
    const auto add = [&stream](const char* row, const char* side, auto function) {
      const std::string name = std::string(row) + ":" + stream.name + "/" + side;
      benchmark::RegisterBenchmark(name.c_str(), function);
    };
    add("h264_sps", "ours", [&](benchmark::State& run) { SpsOurs(run, stream); });
    add("h264_sps", "libavcodec", [&](benchmark::State& run) { UnitLibav(run, stream, Sps(stream)); });
    add("h264_pps", "ours", [&](benchmark::State& run) { PpsOurs(run, stream); });
    add("h264_pps", "libavcodec", [&](benchmark::State& run) { UnitLibav(run, stream, Pps(stream)); });
    add("h264_slice_header", "ours", [&](benchmark::State& run) { SliceOurs(run, stream, 5000); });
    add("h264_slice_header", "libavcodec",
        [&](benchmark::State& run) { UnitLibav(run, stream, SliceOfSize(stream, 5000)); });
    add("h264_slice_header_by_size", "ours", [&](benchmark::State& run) { SliceOurs(run, stream, 450000); });
    add("h264_slice_header_by_size", "unit_of_5000_bytes",
        [&](benchmark::State& run) { SliceOurs(run, stream, 5000); });
#ifdef QLN_HAVE_GSTREAMER
    add("h264_sps", "gstreamer", [&](benchmark::State& run) { SpsGStreamer(run, stream); });
    add("h264_pps", "gstreamer", [&](benchmark::State& run) { PpsGStreamer(run, stream); });
    add("h264_slice_header", "gstreamer", [&](benchmark::State& run) { SliceGStreamer(run, stream); });
#endif
  }
  return true;
}();

}  // namespace
