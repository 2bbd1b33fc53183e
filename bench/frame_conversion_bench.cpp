// The two frame forms turned into each other, beside copies of the same frame. Each call changes the frame in
// place, so the clock runs around the call alone and the frame is set up anew outside it.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>

#include "bench_support.h"
#include "qlnutil/qlnh264.h"

namespace {

using qln::bench::Bytes;
using qln::bench::CodedLikeBytes;
using qln::bench::Require;

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

template <class Work>
void TimeAlone(benchmark::State& run, Work work) {
  const auto before = std::chrono::steady_clock::now();
  work();
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - before;
  run.SetIterationTime(taken.count());
}

// Only the prefixes are set anew, so that they are warm.
void ToMarker(benchmark::State& run, const Bytes& source, size_t unitSize) {
  Bytes frame = source;
  for (auto _ : run) {
    for (size_t at = 0; at < frame.size(); at += 4 + unitSize) std::memcpy(&frame[at], &source[at], 4);
    uint32_t size = 0;
    TimeAlone(run,
              [&] { size = qlnUtilh264SizeToMarker(frame.data(), static_cast<uint32_t>(frame.size())); });
    Require(size == source.size() && frame[3] == 1, "length to start codes");
  }
}

void ToSize(benchmark::State& run, const Bytes& source, size_t spare) {
  Bytes frame(source.size() + spare);
  for (auto _ : run) {
    std::memcpy(frame.data(), source.data(), source.size());
    uint32_t size = 0;
    TimeAlone(run,
              [&] { size = qlnUtilh264MarkerToSize(frame.data(), static_cast<uint32_t>(source.size())); });
    Require(size == frame.size() && frame[0] == 0, "start codes to length");
  }
}

void CopyFrame(benchmark::State& run, const Bytes& source) {
  Bytes frame(source.size());
  for (auto _ : run) {
    TimeAlone(run, [&] { std::memcpy(frame.data(), source.data(), source.size()); });
    benchmark::ClobberMemory();
  }
}

void MoveFrame(benchmark::State& run, const Bytes& source) {
  Bytes frame(source.size() + 1);
  for (auto _ : run) {
    std::memcpy(frame.data(), source.data(), source.size());
    TimeAlone(run, [&] { std::memmove(frame.data() + 1, frame.data(), source.size()); });
    benchmark::ClobberMemory();
  }
}

#define QLN_TIMED(function, name, ...) \
  BENCHMARK_CAPTURE(function, row, __VA_ARGS__)->Name(name)->UseManualTime()

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
