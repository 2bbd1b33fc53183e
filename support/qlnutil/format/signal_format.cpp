// From rate and raster to a signal format word: the rules in their blocks of rate, and the word built from
// its parts where none of them matches.

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <iterator>
#include <limits>
#include <span>

#include "qlnutil/format/rates.h"
#include "qlnutil/format/signal_format.h"
#include "qlnutil/format/signal_format_rules.h"
#include "qlnutil/qlnformat.h"

namespace {

using namespace qln;

// ---- The blocks: they overlap, and one whose rules all fail leaves the raster to the next. ----

struct RateBlock {
  qln::RateRange rates;
  std::span<const Rule> rules;
};

constexpr RateBlock kBlocks[] = {
    {{14.0, true, 15.0}, kRules14},  {{15.0, true, 16.0}, kRules15},
    {{24.9, false, 25.1}, kRules25}, {{24.0, true, 25.0}, kRules24},
    {{23.0, true, 24.0}, kRules23},  {{60.0, true, qln::kNoRateLimit}, kRules60},
    {{59.0, true, 60.0}, kRules59},  {{50.0, true, 59.0}, kRules50},
    {{48.0, true, 50.0}, kRules48},  {{47.0, true, 48.0}, kRules47},
    {{29.0, false, 30.0}, kRules29}, {{30.0, true, 30.9}, kRules30},
};

constexpr uint32_t kFirstOpenRate = 60;  // from here on only the block without a limit is left

// The blocks that hold rates of a whole part, a bit each; the whole parts from kFirstOpenRate on share one
// place.
constexpr auto kBlocksByWholePart = [] {
  std::array<uint16_t, kFirstOpenRate + 1> blocks{};
  for (uint32_t whole = 0; whole <= kFirstOpenRate; ++whole) {
    for (size_t i = 0; i < std::size(kBlocks); ++i) {
      const qln::RateRange& rates = kBlocks[i].rates;
      if (rates.from < whole + 1 && !(rates.below <= whole))
        blocks[whole] = static_cast<uint16_t>(blocks[whole] | 1u << i);
    }
  }
  return blocks;
}();

// Blocks that may hold a rate, in their order. Not-a-number is in none.
uint32_t BlocksNear(double r) {
  if (!(r < kFirstOpenRate)) return r >= kFirstOpenRate ? kBlocksByWholePart[kFirstOpenRate] : 0u;
  return kBlocksByWholePart[static_cast<size_t>(r)];
}

// ---- The rules prepared for a call: those that a width and those that a height allows, a bit each. ----

// Hosts ask for every frame, and a load for each of the two is quicker than a chain of tests.

constexpr size_t kMostRules = 16;
constexpr size_t kMostKinds = 32;

// Sizes of the same classes are of one kind.
template <size_t kCount>
struct Kinds {
  std::array<uint8_t, kCount> kindOf{};
  std::array<uint32_t, kMostKinds> classes{};
};

template <size_t kCount, class SizeOfIndex, size_t kRanges>
consteval Kinds<kCount> MakeKinds(SizeOfIndex sizeOfIndex, const SizeRange (&ranges)[kRanges]) {
  Kinds<kCount> kinds;
  size_t known = 0;
  for (uint32_t i = 0; i < kCount; ++i) {
    const uint32_t size = sizeOfIndex(i);
    uint32_t classes = 0;
    for (const SizeRange& range : ranges) {
      if (size >= range.first && size <= range.last) classes |= range.classes;
    }
    size_t kind = 0;
    while (kind < known && kinds.classes[kind] != classes) ++kind;
    if (kind == known) kinds.classes.at(known++) = classes;
    kinds.kindOf[i] = static_cast<uint8_t>(kind);
  }
  return kinds;
}

// Named widths are multiples of 8. Two widths that no rule names stand for all that are left.
constexpr uint32_t kWidthStep = 8;
constexpr uint32_t kLastNamedWidth = 7680;
constexpr uint32_t kOtherUpTo720 = 8;
constexpr uint32_t kOtherWidth = 728;

static_assert(std::all_of(std::begin(kWidthRanges), std::end(kWidthRanges), [](const SizeRange& range) {
  return range.first != range.last || (range.first % kWidthStep == 0 && range.first <= kLastNamedWidth);
}));

constexpr auto kWidthKinds = MakeKinds<kLastNamedWidth / kWidthStep + 1>(
    [](uint32_t index) { return index * kWidthStep; }, kWidthRanges);

// Heights from here on differ at two borders only.
constexpr uint32_t kTabledHeights = 1600;
constexpr uint32_t kHeightBorders[] = {2160, 4320};

// No range begins or ends at another height above them.
static_assert(std::all_of(std::begin(kHeightRanges), std::end(kHeightRanges), [](const SizeRange& range) {
  const auto isTold = [](uint32_t size) {
    return size <= kTabledHeights || std::ranges::find(kHeightBorders, size) != std::end(kHeightBorders);
  };
  return isTold(range.first) && (range.last == kNoEnd || isTold(range.last + 1));
}));

constexpr auto kHeightKinds = MakeKinds<kTabledHeights + 1 + std::size(kHeightBorders)>(
    [](uint32_t index) {
      return index <= kTabledHeights ? index : kHeightBorders[index - kTabledHeights - 1];
    },
    kHeightRanges);

size_t WidthKind(uint32_t w) {
  if (w % kWidthStep != 0 || w > kLastNamedWidth) w = w <= 720 ? kOtherUpTo720 : kOtherWidth;
  return kWidthKinds.kindOf[w / kWidthStep];
}

size_t HeightKind(uint32_t h) {
  uint32_t index = h;
  if (h > kTabledHeights) {
    index = kTabledHeights;
    for (const uint32_t border : kHeightBorders) index += h >= border;
  }
  return kHeightKinds.kindOf[index];
}

struct AllowedRules {
  std::array<uint16_t, kMostKinds> ofWidth{};
  std::array<uint16_t, kMostKinds> ofHeight{};
};

constexpr auto kAllowedRules = [] {
  std::array<AllowedRules, std::size(kBlocks)> blocks{};
  for (size_t b = 0; b < blocks.size(); ++b) {
    for (size_t i = 0; i < kBlocks[b].rules.size(); ++i) {
      if (i >= kMostRules) throw "too many rules in a block";
      const auto bit = static_cast<uint16_t>(1u << i);
      for (size_t kind = 0; kind < kMostKinds; ++kind) {
        if ((kBlocks[b].rules[i].widths & kWidthKinds.classes[kind]) != 0) blocks[b].ofWidth[kind] |= bit;
        if ((kBlocks[b].rules[i].heights & kHeightKinds.classes[kind]) != 0) blocks[b].ofHeight[kind] |= bit;
      }
    }
  }
  return blocks;
}();

// ---- The word built from its parts, where no rule matches. ----

constexpr bool HasSdRateField(uint32_t k) {
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
      return true;
    default:
      return false;
  }
}

constexpr bool IsSdHeight(uint32_t h) { return h == 480 || h == 486 || h == 512 || h == 576 || h == 608; }

constexpr bool IsProgressive(uint32_t k, uint32_t w, uint32_t h) {
  return h == 720 || h == 1035 || h == 1036 || w == 800 || w == 1024 || w == 1400 || w == 1600 || w == 2048 ||
         k == 23 || k == 24 || k == 47 || k == 48 || (k >= 61 && k <= 99) || h >= 600;
}

QLNSignalFormat BuildFromParts(double r, uint32_t w, uint32_t h) {
  if (h == 1080 && (w == 1280 || w == 1440)) w = 1920;
  if (h == 720 && w == 960) w = 1280;
  const uint32_t widthToken = vidGetTokenFromSize(w);
  const uint32_t heightToken = vidGetTokenFromSize(h);
  if (widthToken == QLN_SIZE_UNKNOWN || heightToken == QLN_SIZE_UNKNOWN) return QLN_SIGNAL_FORMAT_UNKNOWN;
  if (!(r < 4294967296.0)) return QLN_SIGNAL_FORMAT_UNKNOWN;  // infinite, or not a number

  // A broken rate is meant to be 1000/1001 of the next whole one; taking off 0.8 finds its rate field.
  const uint32_t whole = static_cast<uint32_t>(r);
  const uint32_t k = static_cast<double>(whole) == r ? whole : static_cast<uint32_t>(r - 0.8);

  uint32_t scanClass = QLN_SCAN_CLASS_INTERLACED;
  uint32_t rateField = k & qln::kRateFieldMask;
  if (IsSdHeight(h)) {
    if (!HasSdRateField(k)) rateField = qln::kRateFieldNone;
  } else if (IsProgressive(k, w, h)) {
    scanClass = QLN_SCAN_CLASS_PROGRESSIVE;
  }
  return scanClass << 28 | heightToken << 20 | widthToken << 9 | rateField;
}

}  // namespace

QLNSignalFormat vidGetSignalFormat(uint32_t rate, uint32_t scale, uint32_t width, int32_t height,
                                   uint32_t progressive) {
  static_assert(std::numeric_limits<double>::is_iec559, "a scale of 0 gives an infinite rate");
  const double r = static_cast<double>(rate) / static_cast<double>(scale);
  const uint32_t h = qln::AbsoluteHeight(height);
  const size_t widthKind = WidthKind(width);
  const size_t heightKind = HeightKind(h);
  for (uint32_t blocks = BlocksNear(r); blocks != 0; blocks &= blocks - 1) {
    const auto block = static_cast<size_t>(std::countr_zero(blocks));
    if (!kBlocks[block].rates.Contains(r)) continue;
    const uint32_t matches =
        kAllowedRules[block].ofWidth[widthKind] & kAllowedRules[block].ofHeight[heightKind];
    if (matches != 0) {
      const Rule& rule = kBlocks[block].rules[static_cast<size_t>(std::countr_zero(matches))];
      return progressive != 0 ? rule.progressive : rule.otherwise;
    }
  }
  return BuildFromParts(r, width, h);
}

uint32_t vidGetTCTypeSignalFormat(QLNSignalFormat format) {
  switch (format & qln::kRateFieldMask) {
    case 14:
    case 29:
    case 59:
    case 119:
      return QLN_TC_DROP_FRAME;
    case 23:
    case 47:
    case 71:
      return QLN_TC_FILM_DROP;
    case 24:
    case 48:
    case 72:
      return QLN_TC_FILM;
    case 25:
    case 50:
    case 100:
      return QLN_TC_PAL;
    default:
      return QLN_TC_NON_DROP_FRAME;
  }
}

uint32_t vidGetFPSTCTypeSignalFormat(QLNSignalFormat format) {
  switch (format & qln::kRateFieldMask) {
    case 50:
      return QLN_TC_50;
    case 59:
      return QLN_TC_59_94;
    case 60:
      return QLN_TC_60;
    default:
      return vidGetTCTypeSignalFormat(format);
  }
}
