// Emulation prevention removed and inserted, beside memcpy; and that densest data stays linear.

#include <benchmark/benchmark.h>

#include <cstring>

#include "bench_support.h"
#include "qlnutil/bits/emulation_prevention.h"

namespace {

using qln::bench::Bytes;
using qln::bench::CodedLikeBytes;
using qln::bench::Require;

Bytes Densest(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = i % 3 == 2 ? 3 : 0;
  return bytes;
}

void RemoveOurs(benchmark::State& run, const Bytes& bytes) {
  Bytes output(bytes.size());
  size_t markers = 0;  // as a second, plain look finds them
  for (size_t i = 3, zeros = 0; i < bytes.size(); ++i) {
    const bool isMarker = zeros >= 2 && (bytes[i] == 3 || bytes[i] == 12);
    markers += isMarker;
    zeros = !isMarker && bytes[i] == 0 ? zeros + 1 : 0;
  }
  Require(qln::RemoveEmulationPrevention(output.data(), bytes.data(), bytes.size(), qln::kRemovalH264Pps) ==
              markers,
          "emulation prevention removed");
  for (auto _ : run) {
    benchmark::DoNotOptimize(
        qln::RemoveEmulationPrevention(output.data(), bytes.data(), bytes.size(), qln::kRemovalH264Pps));
    benchmark::ClobberMemory();
  }
  run.SetBytesProcessed(static_cast<int64_t>(run.iterations() * bytes.size()));
}

void InsertOurs(benchmark::State& run, const Bytes& bytes) {
  Bytes output(qln::WorstEscapedSize(bytes.size()));
  const size_t escaped = qln::InsertEmulationPrevention(output.data(), output.size(), bytes.data(),
                                                        bytes.size(), qln::kInsertionSeiPacket);
  // Removed again, it is what it was.
  Bytes back(escaped);
  constexpr qln::EmulationRemoval kBehindTheCode{4, false, false};
  const size_t removed = qln::RemoveEmulationPrevention(back.data(), output.data(), escaped, kBehindTheCode);
  back.resize(escaped - removed);
  Require(back == bytes, "emulation prevention inserted");
  for (auto _ : run) {
    const size_t written = qln::InsertEmulationPrevention(output.data(), output.size(), bytes.data(),
                                                          bytes.size(), qln::kInsertionSeiPacket);
    benchmark::DoNotOptimize(written);
    benchmark::ClobberMemory();
  }
  run.SetBytesProcessed(static_cast<int64_t>(run.iterations() * bytes.size()));
}

void CopyPlain(benchmark::State& run, const Bytes& bytes) {
  Bytes output(bytes.size());
  for (auto _ : run) {
    std::memcpy(output.data(), bytes.data(), bytes.size());
    benchmark::ClobberMemory();
  }
}

// One pass that puts each byte where it goes, as the rule is usually written.
void InsertPlain(benchmark::State& run, const Bytes& bytes) {
  Bytes output(qln::WorstEscapedSize(bytes.size()));
  const auto insert = [&] {
    uint8_t* to = output.data();
    size_t zeros = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
      if (zeros == 2 && bytes[i] <= 3) {
        *to++ = 3;
        zeros = 0;
      }
      zeros = bytes[i] == 0 ? zeros + 1 : 0;
      *to++ = bytes[i];
    }
    return static_cast<size_t>(to - output.data());
  };
  Require(insert() > bytes.size(), "emulation prevention inserted");
  for (auto _ : run) {
    benchmark::DoNotOptimize(insert());
    benchmark::ClobberMemory();
  }
}

BENCHMARK_CAPTURE(InsertOurs, densest, Densest(64 << 10))->Name("emulation_insertion_densest/ours");
BENCHMARK_CAPTURE(InsertPlain, densest, Densest(64 << 10))->Name("emulation_insertion_densest/plain_pass");
BENCHMARK_CAPTURE(RemoveOurs, coded, CodedLikeBytes(256 << 10))->Name("emulation_removal/ours");
BENCHMARK_CAPTURE(CopyPlain, removal, CodedLikeBytes(256 << 10))->Name("emulation_removal/memcpy");
BENCHMARK_CAPTURE(InsertOurs, coded, CodedLikeBytes(256 << 10))->Name("emulation_insertion/ours");
BENCHMARK_CAPTURE(CopyPlain, insertion, CodedLikeBytes(256 << 10))->Name("emulation_insertion/memcpy");
// A byte of 1 MiB beside a byte of 4 KiB: the report divides the times by the sizes' quotient, 256.
BENCHMARK_CAPTURE(RemoveOurs, densest_large, Densest(1 << 20))->Name("emulation_removal_linear/ours");
BENCHMARK_CAPTURE(RemoveOurs, densest_small, Densest(4 << 10))->Name("emulation_removal_linear/small_x256");
BENCHMARK_CAPTURE(InsertOurs, densest_large, Densest(1 << 20))->Name("emulation_insertion_linear/ours");
BENCHMARK_CAPTURE(InsertOurs, densest_small, Densest(4 << 10))->Name("emulation_insertion_linear/small_x256");

}  // namespace
