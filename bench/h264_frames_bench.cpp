// Whole frames in length form: the scan for parameter sets and slice headers beside the peers' parsers, and
// an SEI that is put in beside the move that it takes.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>

#include "bench_streams.h"
#include "libav_parser.h"
#include "qlnutil/qlnh264.h"

#ifdef QLN_HAVE_GSTREAMER
#include "gst_h264.h"
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::H264Type;
using qln::bench::LibavParser;
using qln::bench::Require;
using qln::bench::Stream;

// A frame in length form: of an MP4 file one intra picture as it stands there; of other streams all pictures,
// as a group. SEI is left out, since it ends the scan.
Bytes Frame(const Stream& stream) {
  if (stream.isMp4) {
    const Bytes& sample = qln::bench::SamplesOf(stream)[3];
    Require((sample[4] & 31u) == 7, "a sample that begins with an SPS");
    return sample;
  }
  std::vector<Bytes> units = qln::bench::UnitsOf(stream);
  std::erase_if(units, [](const Bytes& unit) { return H264Type(unit) == 6; });
  return qln::bench::WithLengths(units);
}

void ScanOurs(benchmark::State& run, const Stream& stream) {
  Bytes bytes = Frame(stream);
  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameSize = frame.frameCapacity = static_cast<uint32_t>(bytes.size());
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  const auto scan = [&] {
    return qlnutilFindNalUnits(&frame, &sps, &pps, nullptr, nullptr, nullptr, nullptr, nullptr);
  };
  Require(scan() >= 3 && (sps.pic_width_in_mbs_minus1 + 1) * 16 == stream.width, "frame scan");
  for (auto _ : run) {
    benchmark::DoNotOptimize(scan());
    benchmark::ClobberMemory();
  }
}

// Of one picture with one slice alone: it looks at the first slice of a picture only.
void ScanLibav(benchmark::State& run, const Stream& stream) {
  LibavParser parser(AV_CODEC_ID_H264, true, qln::bench::ConfigurationOf(stream));
  const Bytes bytes = LibavParser::Padded(Frame(stream));
  parser.ParsePadded(bytes);
  Require(parser.codedWidth() == static_cast<int>(stream.width), "libavcodec's picture size");
  for (auto _ : run) {
    benchmark::DoNotOptimize(parser.ParsePadded(bytes));
    benchmark::ClobberMemory();
  }
}

#ifdef QLN_HAVE_GSTREAMER
void ScanGStreamer(benchmark::State& run, const Stream& stream) {
  const Bytes bytes = Frame(stream);
  GstH264NalParser* const parser = gst_h264_nal_parser_new();
  int slices = 0;
  const auto scan = [&] {
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
        slices += gst_h264_parser_parse_slice_hdr(parser, &unit, &header, TRUE, TRUE) == GST_H264_PARSER_OK;
      }
      offset = unit.offset + unit.size;
    }
  };
  scan();
  Require(slices > 0, "GStreamer's slice headers");
  for (auto _ : run) {
    scan();
    benchmark::ClobberMemory();
  }
  gst_h264_nal_parser_free(parser);
}
#endif

[[maybe_unused]] const bool kRegistered = [] {
  for (const Stream& stream : qln::bench::H264Streams()) {
    const std::string row = std::string("h264_frame_scan:") + stream.name;
    benchmark::RegisterBenchmark((row + "/ours").c_str(),
                                 [&stream](benchmark::State& run) { ScanOurs(run, stream); });
    if (stream.isMp4) {
      benchmark::RegisterBenchmark((row + "/libavcodec").c_str(),
                                   [&stream](benchmark::State& run) { ScanLibav(run, stream); });
    }
#ifdef QLN_HAVE_GSTREAMER
    benchmark::RegisterBenchmark((row + "/gstreamer").c_str(),
                                 [&stream](benchmark::State& run) { ScanGStreamer(run, stream); });
#endif
  }
  return true;
}();

// A recovery point, put in front of a large intra frame and taken out again outside the clock.
constexpr size_t kAdded = 8;

void AddSeiOurs(benchmark::State& run, const Bytes& source) {
  Bytes bytes = source;
  bytes.resize(source.size() + 600);
  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameCapacity = static_cast<uint32_t>(bytes.size());
  frame.frameType = 0x10000000;
  frame.frameSize = static_cast<uint32_t>(source.size());
  const auto takeOut = [&] {
    std::memmove(bytes.data(), bytes.data() + kAdded, source.size());
    frame.frameSize = static_cast<uint32_t>(source.size());
  };
  const auto add = [&] { qlnutilAddNalUnits(&frame, nullptr, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1); };
  add();
  Require(frame.frameSize == source.size() + kAdded &&
              std::equal(source.begin(), source.end(), bytes.begin() + kAdded),
          "SEI put into a frame");
  for (auto _ : run) {
    qln::bench::TimeAlone(run, takeOut, add);
    Require(frame.frameSize == source.size() + kAdded, "SEI put into a frame");
  }
}

void MoveOnly(benchmark::State& run, const Bytes& source) {
  Bytes bytes = source;
  bytes.resize(source.size() + 600);
  for (auto _ : run) {
    qln::bench::TimeAlone(
        run, [&] { std::memmove(bytes.data(), bytes.data() + kAdded, source.size()); },
        [&] { std::memmove(bytes.data() + kAdded, bytes.data(), source.size()); });
  }
}

Bytes LengthFrame(size_t size) {
  Bytes frame = qln::bench::CodedLikeBytes(size, 3);
  const uint32_t length = static_cast<uint32_t>(size - 4);
  for (int i = 0; i < 4; ++i) frame[static_cast<size_t>(i)] = static_cast<uint8_t>(length >> (24 - 8 * i));
  frame[4] = 0x65;
  return frame;
}

BENCHMARK_CAPTURE(AddSeiOurs, frame, LengthFrame(570000))->Name("h264_add_sei/ours")->UseManualTime();
BENCHMARK_CAPTURE(MoveOnly, frame, LengthFrame(570000))->Name("h264_add_sei/memmove")->UseManualTime();

}  // namespace
