// The rules from raster to signal format beside the same rules written by hand as nested tests.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "bench_support.h"
#include "format_tables.h"
#include "qlnutil/qlnformat.h"

namespace {

using qln::bench::kQuestions;
using qln::bench::Numbers;
using qln::bench::Require;
using qln::bench::Table;

uint32_t TokenOf(uint32_t size) {
  static const Table<uint32_t> kTable = Numbers("token_thresholds.tsv");
  if (size < 240 || size > 8192) return 0xFFFFFFFF;
  return std::prev(std::upper_bound(kTable.begin(), kTable.end(), size,
                                    [](uint32_t s, const auto& entry) { return s < entry.key; }))
      ->value;
}

uint32_t Large(uint32_t w, uint32_t h, uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  if (h >= 4320) return w == 7680 ? a : b;
  if (h >= 2160) return w == 3840 ? c : d;
  return 0;
}

uint32_t FromParts(double r, uint32_t w, uint32_t h) {
  if (h == 1080 && (w == 1280 || w == 1440)) w = 1920;
  if (h == 720 && w == 960) w = 1280;
  const uint32_t wToken = TokenOf(w);
  const uint32_t hToken = TokenOf(h);
  if (wToken == 0xFFFFFFFF || hToken == 0xFFFFFFFF || !(r < 4294967296.0)) return 0xF0000000;
  const uint32_t whole = static_cast<uint32_t>(r);
  const uint32_t k = whole == r ? whole : static_cast<uint32_t>(r - 0.8);
  uint32_t kind = 1;
  uint32_t field = k & 511;
  if (h == 480 || h == 486 || h == 512 || h == 576 || h == 608) {
    switch (k) {
      case 5:
      case 6:
      case 7:
      case 10:
      case 14:
      case 15:
      case 23:
      case 24:
      case 25:
      case 29:
      case 30:
      case 47:
      case 48:
      case 50:
      case 59:
      case 60:
      case 71:
      case 72:
      case 100:
      case 119:
        break;
      default:
        field = 256;
    }
  } else if (h == 720 || h == 1035 || h == 1036 || w == 800 || w == 1024 || w == 1400 || w == 1600 ||
             w == 2048 || k == 23 || k == 24 || k == 47 || k == 48 || (k >= 61 && k <= 99) || h >= 600) {
    kind = 2;
  }
  return kind << 28 | hToken << 20 | wToken << 9 | field;
}

// A function as one writes it from the list of rules: one test after the other, returning at the first hit.
[[gnu::noinline]] uint32_t FormatByHand(uint32_t rate, uint32_t scale, uint32_t w, int32_t height,
                                        uint32_t flag) {
  const double r = static_cast<double>(rate) / static_cast<double>(scale);
  const uint32_t h = height < 0 ? 0u - static_cast<uint32_t>(height) : static_cast<uint32_t>(height);
  const bool p = flag != 0;
  const bool inW = w == 1920 || w == 1440 || w == 1280;
  const bool inL = h == 1080 || h == 1088 || h == 1092 || h == 1112 || h == 1114;
  const bool h720 = h >= 720 && h <= 740;
  const bool h1080 = h >= 1034 && h <= 1125;
  uint32_t word = 0;
  if (r >= 14 && r < 15 && w == 2048) {
    if (h == 1536) return 0x2500C00E;
    if (h >= 1556) return 0x2510C00E;
  }
  if (r >= 15 && r < 16 && w == 2048) {
    if (h == 1536) return 0x2500C00F;
    if (h >= 1556) return 0x2510C00F;
  }
  if (r > 24.9 && r < 25.1) {
    if (h <= 625 && (w == 720 || w == 360)) return 0x11A04219;
    if (h720) return 0x22109019;
    if (w == 640) return 0x11A04019;
    if ((h == 1035 || h == 1036) && inW) return 0x1380B219;
    if (inW && inL) return p ? 0x2380B219 : 0x1380B219;
    if (w == 2048 && inL) return 0x2380C019;
    if ((word = Large(w, h, 0x2650B619, 0x2650B819, 0x2640F019, 0x26410019)) != 0) return word;
  }
  if (r >= 24 && r < 25) {
    if (h720) return 0x22109018;
    if (inW && inL) return p ? 0x2380B218 : 0x1380B218;
    if (w == 2048) {
      if (inL) return p ? 0x2380C018 : 0x4380C018;
      if (h == 1536) return p ? 0x2500C018 : 0x4500C018;
      if (h == 1556 || h == 1588) return p ? 0x2510C018 : 0x4510C018;
    }
    if ((word = Large(w, h, 0x2650B618, 0x2650B818, 0x2640F018, 0x26410018)) != 0) return word;
    if (h < 1126) return p ? 0x2380B218 : 0x1380B218;
  }
  if (r >= 23 && r < 24) {
    if (h720) return 0x22109017;
    if (inL) {
      if (w == 2048) return p ? 0x2380C017 : 0x4380C017;
      if (inW) return p ? 0x2380B217 : 0x4380B217;
    } else {
      if ((word = Large(w, h, 0x2650B617, 0x2650B817, 0x2640F017, 0x26410017)) != 0) return word;
      if (w == 2048 && h == 1536) return 0x2500C017;
      if (w == 2048 && (h == 1556 || h == 1588)) return 0x2510C017;
    }
  }
  if (r >= 60) {
    if (h720) return 0x2210903C;
    if (h1080) return p ? 0x2380B23C : 0x1380B23C;
    if ((word = Large(w, h, 0x2650B63C, 0x2650B83C, 0x2640F03C, 0x2641003C)) != 0) return word;
  } else if (r >= 59) {
    if (w == 2048 && h == 1080) return 0x2380C03B;
    if (h720) return 0x2210903B;
    if (h1080) return p ? 0x2380B23B : 0x1380B23B;
    if ((word = Large(w, h, 0x2650B63B, 0x2650B83B, 0x2640F03B, 0x2641003B)) != 0) return word;
  } else if (r >= 50) {
    if (h720) return 0x22109032;
    if (h1080) return p ? 0x2380B232 : 0x1380B232;
    if ((word = Large(w, h, 0x2650B632, 0x2650B832, 0x2640F032, 0x26410032)) != 0) return word;
  } else if (r >= 48) {
    if (h1080) return 0x2380B230;
  } else if (r >= 47) {
    if (h1080) return 0x2380B22F;
  }
  if (r > 29 && r < 30) {
    if ((h == 1035 || h == 1036) && w == 1920) return 0x1310B21D;
    if (h >= 1037 && h <= 1124) {
      if (inW) return p ? 0x2380B21D : 0x1380B21D;
      if (w == 2048) return 0x2380C01D;
    }
    if (h >= 1080 && h <= 1125 && (w == 1920 || w == 960)) return p ? 0x2380B21D : 0x1380B21D;
    if (h720 && (w == 1280 || w == 960)) return 0x2210901D;
    if (w == 640 || w == 320) return 0x1100401D;
    if (h >= 480 && h <= 512 && w <= 720) return 0x1120421D;
    if ((word = Large(w, h, 0x2650B61D, 0x2650B81D, 0x2640F01D, 0x2641001D)) != 0) return word;
    if (h == 540 && w == 960) return p ? 0x2380B21D : 0x1380B21D;
    if (h == 540 && w == 1024) return 0x2380C01D;
    if (h == 576 && (w == 768 || w == 1024 || w == 1048)) return p ? 0x2380B21D : 0x1380B21D;
  }
  if (r >= 30 && r < 30.9) {
    if ((h == 1035 || h == 1036) && inW) return 0x1310B21E;
    if (h >= 1037 && h <= 1124) {
      if (inW) return p ? 0x2380B21E : 0x1380B21E;
      if (w == 2048) return 0x2380C01E;
    }
    if (h720 && (w == 1280 || w == 960)) return 0x2210901E;
    if (w == 640 || w == 320) return 0x1100401D;
    if (w == 704 || w == 720 || w == 352 || w == 360) return 0x1120421D;
    if ((word = Large(w, h, 0x2650B61E, 0x2650B81E, 0x2640F01E, 0x2641001E)) != 0) return word;
  }
  return FromParts(r, w, h);
}

struct Raster {
  uint32_t rate, scale, width;
  int32_t height;
  uint32_t progressive;
};

// The rasters and rates of production, in an order that no branch predictor knows.
const std::vector<Raster>& Rasters() {
  static const std::vector<Raster> kRasters = [] {
    const std::pair<uint32_t, int32_t> sizes[] = {{720, 486},   {720, 480},   {720, 576},   {640, 480},
                                                  {1280, 720},  {1920, 1080}, {1440, 1080}, {1920, 1088},
                                                  {2048, 1080}, {2048, 1556}, {3840, 2160}, {4096, 2160},
                                                  {7680, 4320}, {352, 288},   {960, 540}};
    const std::pair<uint32_t, uint32_t> rates[] = {{24000, 1001}, {24, 1},    {25, 1}, {30000, 1001},
                                                   {30, 1},       {48, 1},    {50, 1}, {60000, 1001},
                                                   {60, 1},       {2997, 100}};
    std::vector<Raster> rasters;
    uint64_t state = 88172645463325252u;
    for (size_t i = 0; i < kQuestions; ++i) {
      state ^= state << 13;
      state ^= state >> 7;
      state ^= state << 17;
      const auto& [width, height] = sizes[(state >> 8) % std::size(sizes)];
      const auto& [rate, scale] = rates[(state >> 24) % std::size(rates)];
      rasters.push_back({rate, scale, width, height, static_cast<uint32_t>(state >> 40 & 1)});
    }
    return rasters;
  }();
  return kRasters;
}

template <class Call>
void AskRasters(benchmark::State& run, Call call) {
  for (auto _ : run) {
    for (const Raster& in : Rasters())
      benchmark::DoNotOptimize(call(in.rate, in.scale, in.width, in.height, in.progressive));
  }
  run.SetItemsProcessed(static_cast<int64_t>(run.iterations()) * static_cast<int64_t>(kQuestions));
}

void SignalFormatOurs(benchmark::State& run) {
  for (const Raster& in : Rasters())
    Require(vidGetSignalFormat(in.rate, in.scale, in.width, in.height, in.progressive) ==
                FormatByHand(in.rate, in.scale, in.width, in.height, in.progressive),
            "signal formats");
  AskRasters(run, vidGetSignalFormat);
}
BENCHMARK(SignalFormatOurs)->Name("signal_format/ours");

void SignalFormatByHand(benchmark::State& run) { AskRasters(run, FormatByHand); }
BENCHMARK(SignalFormatByHand)->Name("signal_format/nested_tests");

}  // namespace
