// Start code search over whole streams, beside GStreamer's scan, libavcodec's search for the ends of
// pictures, and memchr as the limit.

#include <benchmark/benchmark.h>

#include <cstring>

#include "bench_streams.h"
#include "libav_parser.h"
#include "nalstream/nalstream.h"
#include "nalstream/triple_scan.h"

#ifdef QLN_HAVE_GSTREAMER
#include <gst/base/gstbytereader.h>
#endif

namespace {

using qln::bench::Bytes;
using qln::bench::CodedLikeBytes;
using qln::bench::Require;

// Units of 20 kB, as slices of a 1080p picture have, each behind a four-byte start code.
constexpr size_t kUnitSize = 20000;

Bytes Stream(size_t size) {
  Bytes bytes = CodedLikeBytes(size);
  for (size_t at = 0; at + 8 < size; at += kUnitSize) {
    std::memcpy(&bytes[at], "\0\0\0\1\x41", 5);
  }
  return bytes;
}

// Zero bytes up to a start code near the end: what padding looks like, and where a search by skips cannot
// skip.
Bytes ZeroRich(size_t size) {
  Bytes bytes(size);
  std::memcpy(&bytes[size - 16], "\0\0\0\1\x41", 5);
  return bytes;
}

// Nothing but pairs of zeros and threes: cabac_zero_words, where it skips best.
Bytes ZeroWords(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = i % 3 == 2 ? 3 : 0;
  std::memcpy(bytes.data(), "\0\0\0\1\x41", 5);
  return bytes;
}

size_t CountOurs(const Bytes& bytes) {
  const uint8_t* at = bytes.data();
  int left = static_cast<int>(bytes.size());
  size_t units = 0;
  int start;
  int end;
  while (find_nal_unit(at, left, &start, &end) > 0) {
    ++units;
    at += end;
    left -= end;
    if (left < 4) break;
  }
  return units;
}

// Start codes, one byte after the other.
size_t CountPlain(const Bytes& bytes) {
  size_t codes = 0;
  for (size_t i = 0; i + 3 <= bytes.size(); ++i) {
    codes += bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1;
  }
  return codes;
}

void FindOurs(benchmark::State& run, const Bytes& bytes) {
  Require(CountOurs(bytes) == CountPlain(bytes), "start codes");
  for (auto _ : run) benchmark::DoNotOptimize(CountOurs(bytes));
}

#if defined(__x86_64__)
// What find_nal_unit does on a machine without AVX2.
size_t CountSse2(const Bytes& bytes) {
  const uint8_t* at = bytes.data();
  const uint8_t* const to = at + bytes.size();
  size_t units = 0;
  while ((at = qln::FindTripleSse2<qln::ThirdIs<1>>(at, to)) != to) {
    ++units;
    at = qln::FindTripleSse2<qln::ThirdIsAtMost<1>>(at + 3, to);
  }
  return units;
}

void FindSse2(benchmark::State& run, const Bytes& bytes) {
  Require(CountSse2(bytes) == CountPlain(bytes), "start codes with SSE2 alone");
  for (auto _ : run) benchmark::DoNotOptimize(CountSse2(bytes));
}
#endif

// The ends of the pictures, where it also reads the headers that begin them.
void FindLibav(benchmark::State& run, const qln::bench::Stream& stream) {
  const Bytes padded = qln::bench::LibavParser::Padded(qln::bench::ByteStreamOf(stream));
  qln::bench::LibavParser parser(AV_CODEC_ID_H264, false);
  const auto split = [&] {
    size_t pictures = 0;
    for (size_t at = 0, end = padded.size() - AV_INPUT_BUFFER_PADDING_SIZE; at < end;) {
      bool endsPicture = false;
      at += static_cast<size_t>(parser.Parse(padded.data() + at, end - at, &endsPicture));
      pictures += endsPicture;
    }
    return pictures;
  };
  split();
  Require(split() >= 3 && parser.codedWidth() == static_cast<int>(stream.width), "libavcodec's pictures");
  for (auto _ : run) benchmark::DoNotOptimize(split());
}

// A byte value that never occurs, so that memchr goes over everything once.
void FindMemchr(benchmark::State& run, Bytes bytes) {
  for (uint8_t& byte : bytes) byte = byte == 0xEE ? 0xED : byte;
  for (auto _ : run) benchmark::DoNotOptimize(std::memchr(bytes.data(), 0xEE, bytes.size()));
}

#ifdef QLN_HAVE_GSTREAMER
void FindGStreamer(benchmark::State& run, const Bytes& bytes) {
  const auto count = [&] {
    GstByteReader reader;
    gst_byte_reader_init(&reader, bytes.data(), static_cast<guint>(bytes.size()));
    size_t units = 0;
    for (guint offset = 0; offset + 4 <= bytes.size();) {
      const gint found = static_cast<gint>(gst_byte_reader_masked_scan_uint32(
          &reader, 0xffffff00, 0x00000100, offset, static_cast<guint>(bytes.size()) - offset));
      if (found < 0) break;
      ++units;
      offset = static_cast<guint>(found) + 3;
    }
    return units;
  };
  Require(count() == CountPlain(bytes), "GStreamer's start codes");
  for (auto _ : run) benchmark::DoNotOptimize(count());
}
#endif

[[maybe_unused]] const bool kRegistered = [] {
  const auto add = [](const std::string& row, const char* side, auto function) {
    benchmark::RegisterBenchmark((row + "/" + side).c_str(), function);
  };
  const auto addRow = [&](const std::string& row, auto makeBytes) {
    add(row, "ours", [=](benchmark::State& run) { FindOurs(run, makeBytes()); });
    add(row, "memchr", [=](benchmark::State& run) { FindMemchr(run, makeBytes()); });
#ifdef QLN_HAVE_GSTREAMER
    add(row, "gstreamer", [=](benchmark::State& run) { FindGStreamer(run, makeBytes()); });
#endif
  };
  addRow("find_nal_unit_stream", [] { return Stream(256 << 10); });
  addRow("find_nal_unit_out_of_cache", [] { return Stream(96 << 20); });
  addRow("find_nal_unit_zero_rich", [] { return ZeroRich(256 << 10); });
  addRow("find_nal_unit_zero_words", [] { return ZeroWords(256 << 10); });
  for (const qln::bench::Stream& stream : qln::bench::H264Streams()) {
    const std::string row = std::string("find_nal_unit_stream:") + stream.name;
    addRow(row, [&stream] { return qln::bench::ByteStreamOf(stream); });
    add(row, "libavcodec", [&stream](benchmark::State& run) { FindLibav(run, stream); });
  }
#if defined(__x86_64__)
  const std::string sse2 = "find_nal_unit_stream_sse2";
  add(sse2, "ours", [](benchmark::State& run) { FindSse2(run, Stream(256 << 10)); });
  add(sse2, "memchr", [](benchmark::State& run) { FindMemchr(run, Stream(256 << 10)); });
#ifdef QLN_HAVE_GSTREAMER
  add(sse2, "gstreamer", [](benchmark::State& run) { FindGStreamer(run, Stream(256 << 10)); });
#endif
#endif
  return true;
}();

}  // namespace
