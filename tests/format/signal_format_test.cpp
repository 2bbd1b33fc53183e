// From rate and raster to a signal format: worked words, a dense sweep against plain rules, timecode types.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <vector>

#include "format/plain_rules.h"
#include "format/table_file.h"
#include "qlnutil/qlnformat.h"
#include "support/sanitizers.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

struct Rate {
  uint32_t rate;
  uint32_t scale;
};

uint32_t Format(const Raster& in) {
  return vidGetSignalFormat(in.rate, in.scale, in.width, in.height, in.progressive);
}

TEST(SignalFormat, WorkedWords) {
  EXPECT_EQ(vidGetSignalFormat(25, 1, 1920, 1080, 0), 0x1380B219u);
  EXPECT_EQ(vidGetSignalFormat(25, 1, 1920, 1080, 1), 0x2380B219u);
  EXPECT_EQ(vidGetSignalFormat(25, 1, 1920, 1080, 0x80000000), 0x2380B219u);
  EXPECT_EQ(vidGetSignalFormat(30000, 1001, 1920, -1080, 1), 0x2380B21Du);
  EXPECT_EQ(vidGetSignalFormat(24000, 1001, 1920, 1080, 0), 0x4380B217u);
  EXPECT_EQ(vidGetSignalFormat(60, 1, 2560, 1080, 0), 0x1380B23Cu);
  EXPECT_EQ(vidGetSignalFormat(200, 1, 2560, 1080, 0), 0x1380B23Cu);
  EXPECT_EQ(vidGetSignalFormat(30, 1, 100, 100, 0), 0xF0000000u);
  EXPECT_EQ(vidGetSignalFormat(24, 1, 2048, 1080, 0), 0x4380C018u);
  EXPECT_EQ(vidGetSignalFormat(25, 1, 2048, 1080, 0), 0x2380C019u);
  EXPECT_EQ(vidGetSignalFormat(25, 1, 2048, 1080, 1), 0x2380C019u);
  EXPECT_EQ(vidGetSignalFormat(30, 1, 1280, 720, 0), 0x2210901Eu);
  // 1920x720 at 30 has no rule: progressive by its 720 lines, tokens 33 and 89.
  EXPECT_EQ(vidGetSignalFormat(30, 1, 1920, 720, 0), 2u << 28 | 33u << 20 | 89u << 9 | 30u);
}

TEST(SignalFormat, RateFieldOfABuiltWord) {
  // 800x400: tokens 35 and 10, a raster that no rule knows below 60 but for 24.
  const std::vector<std::pair<Rate, uint32_t>> rows = {
      {{2997, 100}, 29}, {{5994, 100}, 59},   {{1498, 100}, 14}, {{23976, 1000}, 23}, {{4795, 100}, 47},
      {{7193, 100}, 71}, {{11988, 100}, 119}, {{305, 10}, 29},   {{12, 1}, 12},       {{1, 2}, 0},
      {{79, 100}, 0},    {{18, 10}, 1},       {{512, 1}, 0},     {{700, 1}, 188},     {{0, 7}, 0}};
  for (const auto& [rate, field] : rows)
    EXPECT_EQ(vidGetSignalFormat(rate.rate, rate.scale, 800, 400, 0), 2u << 28 | 10u << 20 | 35u << 9 | field)
        << rate.rate << '/' << rate.scale;
  // 24.5 lies in the block of 24, which leaves 1400 lines to the word of parts.
  EXPECT_EQ(vidGetSignalFormat(245, 10, 800, 1400, 0), 2u << 28 | 75u << 20 | 35u << 9 | 23u);
}

TEST(SignalFormat, ScanClassLooksAtTheWholeRateAndTheWordTakesNineBits) {
  // 512 + 24 is no film rate, though its low 9 bits are 24.
  EXPECT_EQ(vidGetSignalFormat(536, 1, 640, 400, 0), 1u << 28 | 10u << 20 | 32u << 9 | 24u);
  EXPECT_EQ(vidGetSignalFormat(576, 1, 640, 400, 0), 1u << 28 | 10u << 20 | 32u << 9 | 64u);
  EXPECT_EQ(vidGetSignalFormat(64, 1, 640, 400, 0), 2u << 28 | 10u << 20 | 32u << 9 | 64u);
  // 512 + 25 is none of the rates of 480 lines.
  EXPECT_EQ(vidGetSignalFormat(537, 1, 800, 480, 0), 1u << 28 | 16u << 20 | 35u << 9 | 256u);
  EXPECT_EQ(vidGetSignalFormat(25, 1, 800, 480, 0), 1u << 28 | 16u << 20 | 35u << 9 | 25u);
}

TEST(SignalFormat, ScaleOfZeroIsAnInfiniteRate) {
  EXPECT_EQ(vidGetSignalFormat(1, 0, 1920, 1080, 1), 0x2380B23Cu);
  EXPECT_EQ(vidGetSignalFormat(1, 0, 7680, 4320, 0), 0x2650B63Cu);
  EXPECT_EQ(vidGetSignalFormat(1, 0, 720, 480, 0), 0xF0000000u);
  EXPECT_EQ(vidGetSignalFormat(0, 0, 1920, 1080, 1), 0xF0000000u);
  EXPECT_EQ(vidGetSignalFormat(0, 0, 720, 480, 0), 0xF0000000u);
}

TEST(SignalFormat, SmallestHeightHasAnAbsoluteValue) {
  EXPECT_EQ(vidGetSignalFormat(25, 1, 3840, std::numeric_limits<int32_t>::min(), 0), 0x2650B819u);
  EXPECT_EQ(vidGetSignalFormat(10, 1, 3840, std::numeric_limits<int32_t>::min(), 0), 0xF0000000u);
}

// Every rate at which a rule changes, as its quotient of small numbers, just off it on both sides, and the
// rates of production.
std::vector<Rate> SweepRates() {
  std::vector<Rate> rates;
  for (const uint32_t tenths :
       {8u,   50u,  60u,  70u,  100u, 140u, 145u,  150u,  155u,  160u,  230u,  240u,  245u, 249u,
        250u, 251u, 290u, 300u, 305u, 309u, 310u,  470u,  475u,  480u,  485u,  490u,  500u, 590u,
        600u, 610u, 710u, 720u, 725u, 990u, 1000u, 1190u, 1200u, 2000u, 2560u, 5120u, 5360u}) {
    for (const uint32_t more : {0u, 1u}) {
      rates.push_back({tenths * 1000000 + more, 10000000});
      rates.push_back({tenths * 1000000 - more, 10000000});
    }
  }
  for (const uint32_t thousands : {15u, 24u, 30u, 48u, 60u, 72u, 120u})
    rates.push_back({thousands * 1000, 1001});
  for (const uint32_t whole : {0u, 1u, 4294967295u}) {
    rates.push_back({whole, 0});
    rates.push_back({whole, 1});
    rates.push_back({whole, 4294967295u});
  }
  return rates;
}

// Every size that a rule or a token names, and its neighbours.
std::set<uint32_t> SweepSizes(const std::vector<uint32_t>& named) {
  std::set<uint32_t> sizes = {0, 1, 100, 239, 8191, 8192, 8193, 0x7FFFFFFF};
  for (const TableRow& row : ReadTable("token_thresholds.tsv", 2)) {
    const auto size = static_cast<uint32_t>(std::stoul(row[0]));
    sizes.insert({size - 1, size, size + 1});
  }
  for (const uint32_t size : named) sizes.insert({size - 1, size, size + 1});
  return sizes;
}

TEST(SignalFormat, SweepAgreesWithThePlainRules) {
  const std::set<uint32_t> widths =
      SweepSizes({320,  352,  360,  640,  704,  720,  768,  960,  1024, 1048,
                  1280, 1440, 1920, 1998, 2048, 2560, 3840, 4096, 7680, 0xFFFFFFFE});
  const std::set<uint32_t> heights =
      SweepSizes({480,  486,  512,  540,  576,  600,  608,  625,  720,  740,  1034, 1035, 1036, 1037,
                  1080, 1088, 1092, 1112, 1114, 1124, 1125, 1126, 1536, 1556, 1588, 2160, 4320});
  std::vector<Rate> rates = SweepRates();
#ifdef QLN_ADDRESS_SANITIZER
  // A quarter of the rates: the values are held to their rules where the test runs without sanitizers.
  for (size_t kept = 0; kept < rates.size(); ++kept)
    rates.erase(rates.begin() + static_cast<std::ptrdiff_t>(kept) + 1,
                rates.begin() + static_cast<std::ptrdiff_t>(std::min(kept + 4, rates.size())));
#endif
  size_t checked = 0;
  for (const Rate& rate : rates) {
    for (const uint32_t width : widths) {
      for (const uint32_t height : heights) {
        for (const uint32_t progressive : {0u, 1u}) {
          const Raster raster = {rate.rate, rate.scale, width, static_cast<int32_t>(height), progressive};
          // Millions of cases: the assertion's own work is done where it fails.
          const uint32_t format = Format(raster);
          const uint32_t expected = FormatByPlainRules(raster);
          if (format != expected) {
            ASSERT_EQ(format, expected)
                << rate.rate << '/' << rate.scale << ' ' << width << 'x' << height << " p " << progressive;
          }
          ++checked;
        }
      }
    }
  }
  EXPECT_GT(checked, rates.size() * 20000);
}

TEST(SignalFormat, NegativeHeightsCountAsTheirAbsoluteValue) {
  Random random(9);
  for (int round = 0; round < 200000; ++round) {
    const Raster up = {static_cast<uint32_t>(random.below(70)), 1, static_cast<uint32_t>(random.below(4100)),
                       static_cast<int32_t>(random.below(4400)), static_cast<uint32_t>(random.below(2))};
    Raster down = up;
    down.height = -up.height;
    ASSERT_EQ(Format(down), Format(up)) << up.rate << ' ' << up.width << 'x' << up.height;
    ASSERT_EQ(Format(down), FormatByPlainRules(down));
  }
}

// The words that come out for the rasters of the sweep, by name: what is fixed but never produced, and what
// is produced but has no fixed name, is known.
TEST(SignalFormat, NamedWordsAndProducedWords) {
  std::set<uint32_t> named;
  for (const TableRow& row : ReadTable("signal_format_names.tsv", 2))
    named.insert(static_cast<uint32_t>(std::stoul(row[0], nullptr, 16)));
  std::set<uint32_t> produced;
  const std::set<uint32_t> widths = SweepSizes({320, 352, 360, 640, 720, 960, 1920, 2048, 2560, 3840, 7680});
  const std::set<uint32_t> heights = SweepSizes({480, 512, 1035, 1080, 1536, 1556, 2160, 4320});
  for (const Rate& rate : SweepRates()) {
    for (const uint32_t width : widths) {
      for (const uint32_t height : heights) {
        for (const uint32_t progressive : {0u, 1u})
          produced.insert(
              vidGetSignalFormat(rate.rate, rate.scale, width, static_cast<int32_t>(height), progressive));
      }
    }
  }
  std::set<uint32_t> neverProduced;
  for (const uint32_t word : named) {
    if (!produced.contains(word)) neverProduced.insert(word);
  }
  // The words of 2560x1080 have a rule behind one that takes their height, all the others have none; 23.98
  // without progressive scan is segmented, so that the interlaced word of 1920x1080 has none either.
  const std::set<uint32_t> expected = {0x1380B217, 0x2110421D, 0x2120421E, 0x21A04219, 0x2380D03C, 0x2380D0C8,
                                       0x26410030, 0x46B10005, 0x26B10017, 0x4380B218, 0x4380B219, 0x4380B21D,
                                       0x4380B21E, 0x4380C019, 0x4640F017, 0x4640F018, 0x4640F019, 0x46410017,
                                       0x46410018, 0x46410019, 0x4641001D, 0x4641001E};
  EXPECT_EQ(neverProduced, expected);
  // And the segmented words that come out are the told ones, named or not.
  std::set<uint32_t> segmented;
  for (const uint32_t word : produced) {
    if (word >> 28 == 4) segmented.insert(word);
  }
  EXPECT_EQ(segmented, (std::set<uint32_t>{0x4380B217, 0x4380C017, 0x4380C018, 0x4500C018, 0x4510C018}));
  for (const uint32_t word : {0x22109017u, 0x22109018u, 0x2380C01Du, 0x2380C01Eu, 0x2380C03Bu, 0x4510C018u})
    EXPECT_TRUE(produced.contains(word)) << std::hex << word;
}

TEST(SignalFormatTcType, GoesByTheRateFieldOnly) {
  const std::map<uint32_t, uint32_t> base = {{14, 4},   {29, 4},   {59, 4}, {119, 4}, {23, 128},
                                             {47, 128}, {71, 128}, {24, 1}, {48, 1},  {72, 1},
                                             {25, 8},   {50, 8},   {100, 8}};
  const std::map<uint32_t, uint32_t> kept = {{50, 16}, {59, 32}, {60, 64}};
  for (uint32_t field = 0; field < 512; ++field) {
    const uint32_t folded = base.contains(field) ? base.at(field) : 2;
    const uint32_t full = kept.contains(field) ? kept.at(field) : folded;
    for (const uint32_t others : {0u, 0x2380B200u, 0xF0000000u, 0xFFFFFE00u}) {
      EXPECT_EQ(vidGetTCTypeSignalFormat(others | field), folded) << field;
      EXPECT_EQ(vidGetFPSTCTypeSignalFormat(others | field), full) << field;
    }
  }
}

}  // namespace
}  // namespace qln::test
