// Start code search over whole streams, beside GStreamer's scan and memchr as the limit.

#include <benchmark/benchmark.h>

#include <cstring>

#include "bench_support.h"
#include "nalstream/nalstream.h"

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

void FindOurs(benchmark::State& run, const Bytes& bytes, size_t expected) {
  Require(CountOurs(bytes) == expected, "start codes");
  for (auto _ : run) benchmark::DoNotOptimize(CountOurs(bytes));
}

// A byte value that never occurs, so that memchr goes over everything once.
void FindMemchr(benchmark::State& run, Bytes bytes) {
  for (uint8_t& byte : bytes) byte = byte == 0xEE ? 0xED : byte;
  for (auto _ : run) benchmark::DoNotOptimize(std::memchr(bytes.data(), 0xEE, bytes.size()));
}

#ifdef QLN_HAVE_GSTREAMER
void FindGStreamer(benchmark::State& run, const Bytes& bytes) {
  for (auto _ : run) {
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
    benchmark::DoNotOptimize(units);
  }
}
#endif

#ifdef QLN_HAVE_GSTREAMER
#define QLN_PEER(row, data) BENCHMARK_CAPTURE(FindGStreamer, row, data)->Name(#row "/gstreamer");
#else
#define QLN_PEER(row, data)
#endif
#define QLN_ROW(row, data, units)                                    \
  BENCHMARK_CAPTURE(FindOurs, row, data, units)->Name(#row "/ours"); \
  BENCHMARK_CAPTURE(FindMemchr, row, data)->Name(#row "/memchr");    \
  QLN_PEER(row, data)

QLN_ROW(find_nal_unit_stream, Stream(256 << 10), (256 << 10) / kUnitSize + 1)
QLN_ROW(find_nal_unit_out_of_cache, Stream(96 << 20), (96 << 20) / kUnitSize + 1)
QLN_ROW(find_nal_unit_zero_rich, ZeroRich(256 << 10), 1)
QLN_ROW(find_nal_unit_zero_words, ZeroWords(256 << 10), 1)

}  // namespace
