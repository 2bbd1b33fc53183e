// H.264 parameter sets, slice headers and whole frames of a real stream, beside GStreamer's parser.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>

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

// The first slice of a P picture, the unit cut or filled up to `size` bytes.
Bytes SliceOfSize(size_t size) {
  Bytes unit = FirstOfType(1);
  const size_t old = unit.size();
  unit.resize(size);
  for (size_t i = old; i < size; ++i) unit[i] = static_cast<uint8_t>(i * 37 | 4);
  return unit;
}

struct ParameterSets {
  H264SpsRecord sps{};
  H264PpsRecord pps{};

  ParameterSets() {
    Bytes spsUnit = FirstOfType(7);
    QLNBitState spsState{spsUnit.data(), static_cast<int32_t>(spsUnit.size()),
                         static_cast<uint32_t>(spsUnit.size()) * 8, 0};
    qlnutilRead_SPS(&spsState, &sps);
    Bytes ppsUnit = FirstOfType(8);
    QLNBitState ppsState{ppsUnit.data(), static_cast<int32_t>(ppsUnit.size()),
                         static_cast<uint32_t>(ppsUnit.size()) * 8, 0};
    qlnutilRead_PPS(&ppsState, &pps);
  }
};

void SliceOurs(benchmark::State& run, size_t size) {
  ParameterSets sets;
  Bytes unit = SliceOfSize(size);
  H264SliceHeaderRecord header{};
  for (auto _ : run) {
    QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), static_cast<uint32_t>(unit.size()) * 8,
                      0};
    benchmark::DoNotOptimize(qlnutilRead_SliceHeader(&state, &header, &sets.sps, &sets.pps, 1, 0));
    benchmark::ClobberMemory();
  }
  Require(header.nal_unit_type == 1 && header.slice_type % 5 == 0, "slice header");
}

// A group of pictures in length form: parameter sets, then slices.
Bytes FrameWithSets() {
  Bytes frame;
  for (const Bytes& unit : Units()) {
    if ((unit[0] & 31u) == 6) continue;  // SEI ends the walk
    const uint32_t size = static_cast<uint32_t>(unit.size());
    for (int shift = 24; shift >= 0; shift -= 8) frame.push_back(static_cast<uint8_t>(size >> shift));
    frame.insert(frame.end(), unit.begin(), unit.end());
  }
  return frame;
}

void ScanOurs(benchmark::State& run) {
  Bytes bytes = FrameWithSets();
  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(bytes.size());
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  uint32_t count = 0;
  for (auto _ : run) {
    count = qlnutilFindNalUnits(&frame, &sps, &pps, nullptr, nullptr, nullptr, nullptr, nullptr);
    benchmark::ClobberMemory();
  }
  Require(count > 20 && sps.pic_width_in_mbs_minus1 == 119, "frame scan");
}

// A recovery point and a picture timing into a large intra frame, which is set back after each call.
void AddSeiOurs(benchmark::State& run, const Bytes& source) {
  Bytes bytes = source;
  bytes.resize(source.size() + 600);
  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameCapacity = static_cast<uint32_t>(bytes.size());
  frame.frameType = 0x10000000;
  uint32_t added = 0;
  for (auto _ : run) {
    std::memcpy(bytes.data(), source.data(), source.size());
    frame.frameSize = static_cast<uint32_t>(source.size());
    const auto before = std::chrono::steady_clock::now();
    qlnutilAddNalUnits(&frame, nullptr, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - before;
    run.SetIterationTime(taken.count());
    added = frame.frameSize - static_cast<uint32_t>(source.size());
    benchmark::ClobberMemory();
  }
  Require(added == 8, "SEI put into a frame");
}

void MoveOnly(benchmark::State& run, const Bytes& source) {
  Bytes bytes = source;
  bytes.resize(source.size() + 600);
  for (auto _ : run) {
    std::memcpy(bytes.data(), source.data(), source.size());
    const auto before = std::chrono::steady_clock::now();
    std::memmove(bytes.data() + 8, bytes.data(), source.size());
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - before;
    run.SetIterationTime(taken.count());
    benchmark::ClobberMemory();
  }
}

Bytes LengthFrame(size_t size) {
  Bytes frame = qln::bench::CodedLikeBytes(size, 3);
  const uint32_t length = static_cast<uint32_t>(size - 4);
  for (int i = 0; i < 4; ++i) frame[static_cast<size_t>(i)] = static_cast<uint8_t>(length >> (24 - 8 * i));
  frame[4] = 0x65;
  return frame;
}

BENCHMARK_CAPTURE(SliceOurs, usual, 5000)->Name("h264_slice_header/ours");
BENCHMARK_CAPTURE(SliceOurs, large, 450000)->Name("h264_slice_header_by_size/ours");
BENCHMARK_CAPTURE(SliceOurs, small, 5000)->Name("h264_slice_header_by_size/unit_of_5000_bytes");
BENCHMARK(ScanOurs)->Name("h264_frame_scan/ours");
BENCHMARK_CAPTURE(AddSeiOurs, frame, LengthFrame(570000))->Name("h264_add_sei/ours")->UseManualTime();
BENCHMARK_CAPTURE(MoveOnly, frame, LengthFrame(570000))->Name("h264_add_sei/memmove")->UseManualTime();
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

struct GstSets {
  GstH264NalParser* parser = gst_h264_nal_parser_new();
  GstH264SPS sps;
  GstH264PPS pps;

  GstSets() {
    const Bytes spsBytes = WithCode(FirstOfType(7));
    GstH264NalUnit unit = Identify(parser, spsBytes);
    Require(gst_h264_parser_parse_sps(parser, &unit, &sps) == GST_H264_PARSER_OK, "GStreamer's SPS");
    const Bytes ppsBytes = WithCode(FirstOfType(8));
    unit = Identify(parser, ppsBytes);
    Require(gst_h264_parser_parse_pps(parser, &unit, &pps) == GST_H264_PARSER_OK, "GStreamer's PPS");
  }
  ~GstSets() {
    gst_h264_pps_clear(&pps);
    gst_h264_sps_clear(&sps);
    gst_h264_nal_parser_free(parser);
  }
};

void SliceGStreamer(benchmark::State& run) {
  GstSets sets;
  const Bytes bytes = WithCode(SliceOfSize(5000));
  GstH264NalUnit unit = Identify(sets.parser, bytes);
  GstH264SliceHdr header;
  for (auto _ : run) {
    Require(gst_h264_parser_parse_slice_hdr(sets.parser, &unit, &header, TRUE, TRUE) == GST_H264_PARSER_OK,
            "GStreamer's slice header");
    benchmark::ClobberMemory();
  }
}

void ScanGStreamer(benchmark::State& run) {
  const Bytes bytes = FrameWithSets();
  GstH264NalParser* const parser = gst_h264_nal_parser_new();
  for (auto _ : run) {
    gsize offset = 0;
    GstH264NalUnit unit;
    while (offset + 4 < bytes.size() &&
           gst_h264_parser_identify_nalu_avc(parser, bytes.data(), static_cast<guint>(offset), bytes.size(),
                                             4, &unit) == GST_H264_PARSER_OK) {
      if (unit.type == GST_H264_NAL_SPS) {
        GstH264SPS sps;
        gst_h264_parser_parse_sps(parser, &unit, &sps);
        gst_h264_sps_clear(&sps);
      } else if (unit.type == GST_H264_NAL_PPS) {
        GstH264PPS pps;
        gst_h264_parser_parse_pps(parser, &unit, &pps);
        gst_h264_pps_clear(&pps);
      } else if (unit.type >= GST_H264_NAL_SLICE && unit.type <= GST_H264_NAL_SLICE_IDR) {
        GstH264SliceHdr header;
        gst_h264_parser_parse_slice_hdr(parser, &unit, &header, TRUE, TRUE);
      }
      offset = unit.offset + unit.size;
    }
    benchmark::ClobberMemory();
  }
  gst_h264_nal_parser_free(parser);
}

BENCHMARK(SliceGStreamer)->Name("h264_slice_header/gstreamer");
BENCHMARK(ScanGStreamer)->Name("h264_frame_scan/gstreamer");
BENCHMARK(SpsGStreamer)->Name("h264_sps/gstreamer");
BENCHMARK(PpsGStreamer)->Name("h264_pps/gstreamer");

#endif

}  // namespace
