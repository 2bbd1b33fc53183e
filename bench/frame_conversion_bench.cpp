// The two frame forms turned into each other, beside copies of the same frame and libavcodec's filter. Each
// call changes the frame in place, so the clock runs around the call alone and the frame is set up anew
// outside it.

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
}

#include "bench_streams.h"
#include "qlnutil/qlnh264.h"

namespace {

using qln::bench::Bytes;
using qln::bench::CodedLikeBytes;
using qln::bench::Require;
using qln::bench::TimeAlone;

enum class Prefix { kLength, kLongCode, kShortCode };

// A frame of `count` units of `size` bytes each.
Bytes Frame(size_t count, size_t size, Prefix prefix) {
  const Bytes unit = CodedLikeBytes(size, 7);
  Bytes frame;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t length = static_cast<uint32_t>(size);
    switch (prefix) {
      case Prefix::kLength:
        frame.insert(frame.end(), {static_cast<uint8_t>(length >> 24), static_cast<uint8_t>(length >> 16),
                                   static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
        break;
      case Prefix::kLongCode:
        frame.insert(frame.end(), {0, 0, 0, 1});
        break;
      case Prefix::kShortCode:
        frame.insert(frame.end(), {0, 0, 1});
        break;
    }
    frame.insert(frame.end(), unit.begin(), unit.end());
    frame[frame.size() - size] = 0x41;
    frame.back() |= 1;
  }
  return frame;
}

// Only the prefixes are set anew, so that they are warm.
void ToMarker(benchmark::State& run, const Bytes& source, size_t unitSize) {
  Bytes frame = source;
  uint32_t size = 0;
  for (auto _ : run) {
    TimeAlone(
        run,
        [&] {
          for (size_t at = 0; at < frame.size(); at += 4 + unitSize) std::memcpy(&frame[at], &source[at], 4);
        },
        [&] { size = qlnUtilh264SizeToMarker(frame.data(), static_cast<uint32_t>(frame.size())); });
    Require(size == source.size() && frame[3] == 1, "length to start codes");
  }
}

void ToSize(benchmark::State& run, const Bytes& source, size_t spare) {
  Bytes frame(source.size() + spare);
  uint32_t size = 0;
  for (auto _ : run) {
    TimeAlone(
        run, [&] { std::memcpy(frame.data(), source.data(), source.size()); },
        [&] { size = qlnUtilh264MarkerToSize(frame.data(), static_cast<uint32_t>(source.size())); });
    Require(size == frame.size() && frame[0] == 0, "start codes to length");
  }
}

void CopyFrame(benchmark::State& run, const Bytes& source) {
  Bytes frame(source.size());
  for (auto _ : run) {
    TimeAlone(
        run, [] {}, [&] { std::memcpy(frame.data(), source.data(), source.size()); });
  }
}

void MoveFrame(benchmark::State& run, const Bytes& source) {
  Bytes frame(source.size() + 1);
  for (auto _ : run) {
    TimeAlone(
        run, [&] { std::memcpy(frame.data(), source.data(), source.size()); },
        [&] { std::memmove(frame.data() + 1, frame.data(), source.size()); });
  }
}

// ---- A real picture of an MP4 file ----

const qln::bench::Stream& Mp4Stream() {
  for (const qln::bench::Stream& stream : qln::bench::H264Streams()) {
    if (stream.isMp4) return stream;
  }
  Require(false, "a stream in MP4");
  return qln::bench::H264Streams()[0];
}

// The first sample that is one slice of a predicted picture.
const Bytes& Mp4Sample() {
  for (const Bytes& sample : qln::bench::SamplesOf(Mp4Stream())) {
    if ((sample[4] & 31) == 1) return sample;
  }
  Require(false, "a sample of a predicted picture");
  return qln::bench::SamplesOf(Mp4Stream())[0];
}

Bytes SampleWithStartCode() {
  const Bytes& sample = Mp4Sample();
  const Bytes unit(sample.begin() + 4, sample.end());
  return qln::bench::WithStartCodes({&unit, 1});
}

void SampleToMarker(benchmark::State& run) {
  const Bytes& source = Mp4Sample();
  const Bytes expected = SampleWithStartCode();
  Bytes frame = source;
  qlnUtilh264SizeToMarker(frame.data(), static_cast<uint32_t>(frame.size()));
  Require(frame == expected, "a sample with a start code");
  for (auto _ : run) {
    TimeAlone(
        run, [&] { std::memcpy(frame.data(), source.data(), 4); },
        [&] { qlnUtilh264SizeToMarker(frame.data(), static_cast<uint32_t>(frame.size())); });
  }
}

void CopySample(benchmark::State& run) { CopyFrame(run, Mp4Sample()); }

// The filter gives a packet of its own.
void SampleLibav(benchmark::State& run) {
  const Bytes& source = Mp4Sample();
  const Bytes expected = SampleWithStartCode();
  const Bytes& configuration = qln::bench::ConfigurationOf(Mp4Stream());
  AVBSFContext* filter = nullptr;
  Require(av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter) == 0, "libavcodec's filter");
  filter->par_in->codec_id = AV_CODEC_ID_H264;
  filter->par_in->extradata =
      static_cast<uint8_t*>(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  std::memcpy(filter->par_in->extradata, configuration.data(), configuration.size());
  filter->par_in->extradata_size = static_cast<int>(configuration.size());
  Require(av_bsf_init(filter) == 0, "libavcodec's filter");
  AVPacket* whole = av_packet_alloc();
  AVPacket* packet = av_packet_alloc();
  Require(av_new_packet(whole, static_cast<int>(source.size())) == 0, "a packet");
  std::memcpy(whole->data, source.data(), source.size());
  for (auto _ : run) {
    TimeAlone(
        run,
        [&] {
          av_packet_unref(packet);
          av_packet_ref(packet, whole);
        },
        [&] {
          Require(av_bsf_send_packet(filter, packet) == 0 && av_bsf_receive_packet(filter, packet) == 0,
                  "libavcodec's filter");
        });
    Require(packet->size == static_cast<int>(expected.size()) && packet->data[4] == expected[4],
            "libavcodec's start code");
  }
  av_packet_free(&packet);
  av_packet_free(&whole);
  av_bsf_free(&filter);
}

// ---- Frames as encoders write them ----

// Calls work(buffer, size) for each frame of a stream, each in copies of its own that stay in the
// second-level cache, so many at once that the clock does not count.
template <class Work>
void TimeFrames(benchmark::State& run, const qln::bench::Stream& stream, Work work) {
  constexpr size_t kTogether = 256 << 10;
  constexpr size_t kSpare = 64;
  for (auto _ : run) {
    double seconds = 0;
    for (const Bytes& frame : qln::bench::SamplesOf(stream)) {
      const size_t room = frame.size() + kSpare;
      const size_t copies = kTogether / room + 1;
      Bytes all(copies * room);
      seconds += qln::bench::SecondsAlone(
                     [&] {
                       for (size_t i = 0; i < copies; ++i)
                         std::memcpy(&all[i * room], frame.data(), frame.size());
                     },
                     [&] {
                       for (size_t i = 0; i < copies; ++i) work(&all[i * room], frame.size());
                     }) /
                 static_cast<double>(copies);
    }
    run.SetIterationTime(seconds);
  }
}

// The start codes of a frame, and those of three bytes among them, one byte after the other.
std::pair<size_t, size_t> CodesOf(const Bytes& frame) {
  std::pair<size_t, size_t> codes;
  for (size_t i = 0; i + 4 <= frame.size(); ++i) {
    if (frame[i] != 0 || frame[i + 1] != 0 || frame[i + 2] != 1) continue;
    ++codes.first;
    codes.second += i == 0 || frame[i - 1] != 0;
  }
  return codes;
}

void FramesToSize(benchmark::State& run, const qln::bench::Stream& stream) {
  size_t shortCodes = 0;
  for (Bytes frame : qln::bench::SamplesOf(stream)) {
    Require(frame.size() > 2000 && frame.size() < 200000, "frames of an ordinary encode");
    const auto [codes, widened] = CodesOf(frame);
    shortCodes += widened;
    const size_t size = frame.size();
    frame.resize(size + widened);
    Require(qlnUtilh264MarkerToSize(frame.data(), static_cast<uint32_t>(size)) == frame.size(), "frames");
    size_t units = 0;
    for (size_t at = 0; at + 4 <= frame.size(); ++units) {
      at += 4 + (size_t{frame[at]} << 24 | size_t{frame[at + 1]} << 16 | size_t{frame[at + 2]} << 8 |
                 frame[at + 3]);
      Require(at <= frame.size(), "units of a frame");
    }
    Require(units == codes, "units of a frame");
  }
  Require(shortCodes != 0, "start codes of three bytes");
  TimeFrames(run, stream, [](uint8_t* frame, size_t size) {
    qlnUtilh264MarkerToSize(frame, static_cast<uint32_t>(size));
  });
}

void FramesMoved(benchmark::State& run, const qln::bench::Stream& stream) {
  TimeFrames(run, stream, [](uint8_t* frame, size_t size) { std::memmove(frame + 1, frame, size); });
}

// A round looks at each frame many times, which takes far longer than what is told.
[[maybe_unused]] const bool kRegistered = [] {
  for (const qln::bench::Stream& stream : qln::bench::OrdinaryStreams()) {
    const std::string row = std::string("codes_to_length_frames:") + stream.name;
    benchmark::RegisterBenchmark((row + "/ours").c_str(),
                                 [&stream](benchmark::State& run) { FramesToSize(run, stream); })
        ->UseManualTime()
        ->Iterations(3);
    benchmark::RegisterBenchmark((row + "/memmove").c_str(),
                                 [&stream](benchmark::State& run) { FramesMoved(run, stream); })
        ->UseManualTime()
        ->Iterations(3);
  }
  return true;
}();

#define QLN_TIMED(function, name, ...) \
  BENCHMARK_CAPTURE(function, row, __VA_ARGS__)->Name(name)->UseManualTime()
BENCHMARK(SampleToMarker)->Name("length_to_codes:mp4_1080p/ours")->UseManualTime();
BENCHMARK(CopySample)->Name("length_to_codes:mp4_1080p/memcpy")->UseManualTime();
BENCHMARK(SampleLibav)->Name("length_to_codes:mp4_1080p/libavcodec")->UseManualTime();

// Four slices of 140 kB: a large intra picture.
QLN_TIMED(ToMarker, "length_to_codes/ours", Frame(4, 140000, Prefix::kLength), 140000);
QLN_TIMED(CopyFrame, "length_to_codes/memcpy", Frame(4, 140000, Prefix::kLength));
QLN_TIMED(ToMarker, "length_to_codes_by_size/ours", Frame(16, 100000, Prefix::kLength), 100000);
QLN_TIMED(ToMarker, "length_to_codes_by_size/units_of_100_bytes", Frame(16, 100, Prefix::kLength), 100);
QLN_TIMED(ToSize, "codes_to_length/ours", Frame(4, 140000, Prefix::kLongCode), 0);
QLN_TIMED(MoveFrame, "codes_to_length/memmove", Frame(4, 140000, Prefix::kLongCode));
QLN_TIMED(ToSize, "codes_to_length_many/ours", Frame(100000, 60, Prefix::kShortCode), 100000);
QLN_TIMED(ToSize, "codes_to_length_many/codes_x100", Frame(1000, 60, Prefix::kShortCode), 1000);

}  // namespace
