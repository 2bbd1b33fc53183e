// The rules as plain tests, a function for each block of rates.

#include "format/plain_rules.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <map>
#include <optional>

#include "format/table_file.h"

namespace qln::test {
namespace {

using Found = std::optional<uint32_t>;
const Found kNothing;

bool In(std::initializer_list<int64_t> values, int64_t value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

struct Frame {
  double r;
  int64_t w;
  int64_t h;
  bool p;

  bool wIn(std::initializer_list<int64_t> widths) const { return In(widths, w); }
  bool hFrom(int64_t first, int64_t last) const { return first <= h && h <= last; }
  bool rFrom(double first, double end) const { return first <= r && r < end; }
  bool inW() const { return wIn({1920, 1440, 1280}); }
  bool inL() const { return h == 1080 || h == 1088 || h == 1092 || h == 1112 || h == 1114; }
  uint32_t scan(uint32_t set, uint32_t clear) const { return p ? set : clear; }
  Found large(uint32_t w7680, uint32_t others4320, uint32_t w3840, uint32_t others2160) const {
    if (h >= 4320) return w == 7680 ? w7680 : others4320;
    if (h >= 2160) return w == 3840 ? w3840 : others2160;
    return kNothing;
  }
};

Found Block1(const Frame& f) {
  if (!f.rFrom(14, 15) || f.w != 2048) return kNothing;
  if (f.h == 1536) return 0x2500C00E;
  if (f.h >= 1556) return 0x2510C00E;
  return kNothing;
}

Found Block2(const Frame& f) {
  if (!f.rFrom(15, 16) || f.w != 2048) return kNothing;
  if (f.h == 1536) return 0x2500C00F;
  if (f.h >= 1556) return 0x2510C00F;
  return kNothing;
}

Found Block3(const Frame& f) {
  if (!(f.r > 24.9 && f.r < 25.1)) return kNothing;
  if (f.h <= 625 && f.wIn({720, 360})) return 0x11A04219;
  if (f.hFrom(720, 740)) return 0x22109019;
  if (f.w == 640) return 0x11A04019;
  if ((f.h == 1035 || f.h == 1036) && f.inW()) return 0x1380B219;
  if (f.inW() && f.inL()) return f.scan(0x2380B219, 0x1380B219);
  if (f.w == 2048 && f.inL()) return 0x2380C019;
  return f.large(0x2650B619, 0x2650B819, 0x2640F019, 0x26410019);
}

Found Block4(const Frame& f) {
  if (!f.rFrom(24, 25)) return kNothing;
  if (f.hFrom(720, 740)) return 0x22109018;
  if (f.inW() && f.inL()) return f.scan(0x2380B218, 0x1380B218);
  if (f.w == 2048) {
    if (f.inL()) return f.scan(0x2380C018, 0x4380C018);
    if (f.h == 1536) return f.scan(0x2500C018, 0x4500C018);
    if (f.h == 1556 || f.h == 1588) return f.scan(0x2510C018, 0x4510C018);
  }
  if (const Found word = f.large(0x2650B618, 0x2650B818, 0x2640F018, 0x26410018)) return word;
  if (f.h < 1126) return f.scan(0x2380B218, 0x1380B218);
  return kNothing;
}

Found Block5(const Frame& f) {
  if (!f.rFrom(23, 24)) return kNothing;
  if (f.hFrom(720, 740)) return 0x22109017;
  if (f.inL()) {
    if (f.w == 2048) return f.scan(0x2380C017, 0x4380C017);
    if (f.inW()) return f.scan(0x2380B217, 0x4380B217);
    return kNothing;
  }
  if (const Found word = f.large(0x2650B617, 0x2650B817, 0x2640F017, 0x26410017)) return word;
  if (f.w == 2048) {
    if (f.h == 1536) return 0x2500C017;
    if (f.h == 1556 || f.h == 1588) return 0x2510C017;
  }
  return kNothing;
}

Found Block6(const Frame& f) {
  if (f.r >= 60) {
    if (f.hFrom(720, 740)) return 0x2210903C;
    if (f.hFrom(1034, 1125)) return f.scan(0x2380B23C, 0x1380B23C);
    if (f.h >= 4320) return f.w == 7680 ? 0x2650B63C : 0x2650B83C;
    if (f.w == 2560 && f.h == 1080) return f.r <= 120 ? 0x2380D03C : 0x2380D0C8;
    if (f.h >= 2160) return f.w == 3840 ? 0x2640F03C : 0x2641003C;
  } else if (f.rFrom(59, 60)) {
    if (f.w == 2048 && f.h == 1080) return 0x2380C03B;
    if (f.hFrom(720, 740)) return 0x2210903B;
    if (f.hFrom(1034, 1125)) return f.scan(0x2380B23B, 0x1380B23B);
    return f.large(0x2650B63B, 0x2650B83B, 0x2640F03B, 0x2641003B);
  } else if (f.rFrom(50, 59)) {
    if (f.hFrom(720, 740)) return 0x22109032;
    if (f.hFrom(1034, 1125)) return f.scan(0x2380B232, 0x1380B232);
    return f.large(0x2650B632, 0x2650B832, 0x2640F032, 0x26410032);
  } else if (f.rFrom(48, 50)) {
    if (f.hFrom(1034, 1125)) return 0x2380B230;
  } else if (f.rFrom(47, 48)) {
    if (f.hFrom(1034, 1125)) return 0x2380B22F;
  }
  return kNothing;
}

Found Block7(const Frame& f) {
  if (!(f.r > 29 && f.r < 30)) return kNothing;
  if ((f.h == 1035 || f.h == 1036) && f.w == 1920) return 0x1310B21D;
  if (f.hFrom(1037, 1124)) {
    if (f.inW()) return f.scan(0x2380B21D, 0x1380B21D);
    if (f.w == 2048) return 0x2380C01D;
  }
  if (f.hFrom(1080, 1125) && f.wIn({1920, 960})) return f.scan(0x2380B21D, 0x1380B21D);
  if (f.hFrom(720, 740) && f.wIn({1280, 960})) return 0x2210901D;
  if (f.wIn({640, 320})) return 0x1100401D;
  if (f.hFrom(480, 512) && f.w <= 720) return 0x1120421D;
  if (const Found word = f.large(0x2650B61D, 0x2650B81D, 0x2640F01D, 0x2641001D)) return word;
  if (f.h == 540) {
    if (f.w == 960) return f.scan(0x2380B21D, 0x1380B21D);
    if (f.w == 1024) return 0x2380C01D;
  }
  if (f.h == 576 && f.wIn({768, 1024, 1048})) return f.scan(0x2380B21D, 0x1380B21D);
  return kNothing;
}

Found Block8(const Frame& f) {
  if (!f.rFrom(30, 30.9)) return kNothing;
  if ((f.h == 1035 || f.h == 1036) && f.inW()) return 0x1310B21E;
  if (f.hFrom(1037, 1124)) {
    if (f.inW()) return f.scan(0x2380B21E, 0x1380B21E);
    if (f.w == 2048) return 0x2380C01E;
  }
  if (f.hFrom(720, 740) && f.wIn({1280, 960})) return 0x2210901E;
  if (f.wIn({640, 320})) return 0x1100401D;
  if (f.wIn({704, 720, 352, 360})) return 0x1120421D;
  return f.large(0x2650B61E, 0x2650B81E, 0x2640F01E, 0x2641001E);
}

Found TokenOf(int64_t size) {
  static const auto kThresholds = [] {
    std::map<int64_t, uint32_t> thresholds;
    for (const TableRow& row : ReadTable("token_thresholds.tsv", 2))
      thresholds[std::stol(row[0])] = static_cast<uint32_t>(std::stoul(row[1]));
    return thresholds;
  }();
  if (size < 240 || size > 8192) return kNothing;
  return std::prev(kThresholds.upper_bound(size))->second;
}

uint32_t WordFromParts(const Frame& f) {
  const int64_t w = f.h == 1080 && f.wIn({1280, 1440}) ? 1920 : f.h == 720 && f.w == 960 ? 1280 : f.w;
  const Found wToken = TokenOf(w);
  const Found hToken = TokenOf(f.h);
  if (!wToken || !hToken || !std::isfinite(f.r)) return 0xF0000000;
  const int64_t k = f.r == std::floor(f.r) ? static_cast<int64_t>(f.r) : static_cast<int64_t>(f.r - 0.8);
  const uint32_t tokens = *hToken * 0x100000u + *wToken * 0x200u;
  if (In({480, 486, 512, 576, 608}, f.h)) {
    const bool kept = In({5, 6, 7, 10, 14, 15, 23, 24, 25, 29, 30, 47, 48, 50, 59, 60, 71, 72, 100, 119}, k);
    return 0x10000000u + tokens + (kept ? static_cast<uint32_t>(k) : 256u);
  }
  const bool progressive = In({720, 1035, 1036}, f.h) || In({800, 1024, 1400, 1600, 2048}, w) ||
                           In({23, 24, 47, 48}, k) || (61 <= k && k <= 99) || f.h >= 600;
  return (progressive ? 0x20000000u : 0x10000000u) + tokens + static_cast<uint32_t>(k % 512);
}

}  // namespace

uint32_t FormatByPlainRules(const Raster& raster) {
  const Frame frame = {static_cast<double>(raster.rate) / static_cast<double>(raster.scale),
                       static_cast<int64_t>(raster.width), std::llabs(raster.height),
                       raster.progressive != 0};
  for (const auto block : {Block1, Block2, Block3, Block4, Block5, Block6, Block7, Block8}) {
    if (const Found word = block(frame)) return *word;
  }
  return WordFromParts(frame);
}

}  // namespace qln::test
