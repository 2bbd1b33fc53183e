// Picture sizes of signal formats, video descriptions and aspect ratios.

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "format/table_file.h"
#include "qlnutil/qlnformat.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

using SizePair = std::pair<uint32_t, uint32_t>;

constexpr uint32_t kUntouched = 0xCDCDCDCD;
constexpr uint32_t kNone = 0xFFFFFFFF;

// 640x600 in class 1, 2 or 4: tokens 32 and 27, no fixed name.
constexpr uint32_t kPlainWord = 27u << 20 | 32u << 9 | 25u;

std::map<uint32_t, uint32_t> TokenSizes() {
  std::map<uint32_t, uint32_t> sizes;
  for (const TableRow& row : ReadTable("size_of_token.tsv", 2))
    sizes[static_cast<uint32_t>(std::stoul(row[0]))] = static_cast<uint32_t>(std::stoul(row[1]));
  return sizes;
}

// The words whose size the tokens do not tell.
std::map<QLNSignalFormat, SizePair> FixedSizes() {
  std::map<QLNSignalFormat, SizePair> sizes = {
      {0x11A04019, {720, 576}}, {0x2380D03C, {2560, 1080}}, {0x2380D0C8, {2560, 1080}}};
  for (const uint32_t rate : {0x17u, 0x18u, 0x19u, 0x1Du, 0x1Eu, 0x32u, 0x3Bu, 0x3Cu}) {
    sizes[0x2650B600 | rate] = {7680, 4320};
    sizes[0x2650B800 | rate] = {8192, 4320};
  }
  return sizes;
}

SizePair SizeByTokens(QLNSignalFormat format) {
  static const auto kSizes = TokenSizes();
  const auto size = [](uint32_t token) { return kSizes.contains(token) ? kSizes.at(token) : kNone; };
  return {size(format / 512 % 2048), size(format / 0x100000 % 256)};
}

TEST(ImageSize, WorkedSizes) {
  uint32_t width = 0;
  uint32_t height = 0;
  EXPECT_EQ(vidImageSize(0x1380B21D, &width, &height, 1), 0);
  EXPECT_EQ(SizePair(width, height), SizePair(1920, 540));
  EXPECT_EQ(vidImageSize(0x1380B21D, &width, &height, 0), 0);
  EXPECT_EQ(SizePair(width, height), SizePair(1920, 1080));
  EXPECT_EQ(vidImageSize(0x2380B21D, &width, &height, 1), 0);
  EXPECT_EQ(SizePair(width, height), SizePair(1920, 1080));
  EXPECT_EQ(vidImageSize(0xF0000000, &width, &height, 0), -1);
}

TEST(ImageSize, FieldsOfInterlacedFormatsHaveHalfTheLines) {
  const std::pair<QLNSignalFormat, SizePair> rows[] = {
      {1u << 28 | 16u << 20 | 33u << 9 | 29, {720, 240}},  // 480
      {1u << 28 | 18u << 20 | 33u << 9 | 29, {720, 243}},  // 486
      {0x11A04219, {720, 288}},                            // 576
      {0x11A04019, {720, 288}},                            // the fixed 576
      {0x1310B21D, {1920, 517}},                           // 1035
      {0x1380B219, {1920, 540}},                           // 1080
      {0x1380B232, {1920, 540}},
      {0x1380B23B, {1920, 540}},
      {0x1380B23C, {1920, 540}},
      {3u << 28 | kPlainWord, {640, 300}},  // bit 28 decides, whatever stands beside it
      {0x9380B219, {1920, 540}},
      // Full height in all other classes.
      {0x4380B219, {1920, 1080}},
      {0x4640F018, {3840, 2160}},
      {0x2650B617, {7680, 4320}},
      {0x2380D03C, {2560, 1080}},
      {kPlainWord, {640, 600}},
      {0xE380B219, {1920, 1080}}};
  for (const auto& [word, expected] : rows) {
    uint32_t width = 0;
    uint32_t height = 0;
    EXPECT_EQ(vidImageSize(word, &width, &height, 0x100), 0) << std::hex << word;
    EXPECT_EQ(SizePair(width, height), expected) << std::hex << word;
  }
}

TEST(ImageSize, NamedWordsAndTheirNeighbours) {
  const auto fixed = FixedSizes();
  std::set<QLNSignalFormat> words;
  for (const TableRow& row : ReadTable("signal_format_names.tsv", 2))
    words.insert(static_cast<QLNSignalFormat>(std::stoul(row[0], nullptr, 16)));
  for (const auto& [word, size] : fixed) {
    words.insert(word);
    for (uint32_t bit = 0; bit < 32; ++bit) words.insert(word ^ 1u << bit);
  }
  for (const QLNSignalFormat word : words) {
    uint32_t width = 0;
    uint32_t height = 0;
    const int32_t result = vidImageSize(word, &width, &height, 0);
    const SizePair expected = fixed.contains(word) ? fixed.at(word) : SizeByTokens(word);
    EXPECT_EQ(SizePair(width, height), expected) << std::hex << word;
    EXPECT_EQ(result, expected.first == kNone || expected.second == kNone ? -1 : 0) << std::hex << word;
  }
}

TEST(ImageSize, EveryPairOfTokens) {
  for (uint32_t widthToken = 0; widthToken < 2048; ++widthToken) {
    for (uint32_t heightToken = 0; heightToken < 256; ++heightToken) {
      const QLNSignalFormat word = 1u << 28 | heightToken << 20 | widthToken << 9 | 99;
      uint32_t width = 0;
      uint32_t height = 0;
      const int32_t result = vidImageSize(word, &width, &height, 1);
      const auto [w, h] = SizeByTokens(word);
      const bool known = w != kNone && h != kNone;
      ASSERT_EQ(result, known ? 0 : -1) << std::hex << word;
      ASSERT_EQ(SizePair(width, height), SizePair(w, known ? h / 2 : h)) << std::hex << word;
    }
  }
}

TEST(ImageSize, NullPointersWriteNothing) {
  uint32_t other = kUntouched;
  EXPECT_EQ(vidImageSize(0x1380B219, nullptr, &other, 0), -1);
  EXPECT_EQ(vidImageSize(0x1380B219, &other, nullptr, 0), -1);
  EXPECT_EQ(other, kUntouched);
}

// A host's record: the known fields, and what the host keeps behind them.
struct HostVid {
  QLNVid known;
  uint8_t own[32];
};

constexpr QLNVid kHostValues = {kUntouched, kUntouched, kUntouched, kUntouched, 11, 22, 33, 44, 0xFFFFFFFF};

HostVid MakeHostVid(uint32_t scanFlags = 0xFFFFFFFF) {
  HostVid host;
  host.known = kHostValues;
  host.known.scanFlags = scanFlags;
  std::memset(host.own, 0x5A, sizeof host.own);
  return host;
}

void ExpectVid(const HostVid& host, const QLNVid& expected, const std::string& what) {
  EXPECT_EQ(host.known.width, expected.width) << what;
  EXPECT_EQ(host.known.height, expected.height) << what;
  EXPECT_EQ(host.known.scale, expected.scale) << what;
  EXPECT_EQ(host.known.rate, expected.rate) << what;
  EXPECT_EQ(host.known.activeLeft, expected.activeLeft) << what;
  EXPECT_EQ(host.known.activeTop, expected.activeTop) << what;
  EXPECT_EQ(host.known.activeRight, expected.activeRight) << what;
  EXPECT_EQ(host.known.activeBottom, expected.activeBottom) << what;
  EXPECT_EQ(host.known.scanFlags, expected.scanFlags) << what;
  for (const uint8_t byte : host.own) EXPECT_EQ(byte, 0x5A) << what;
}

struct CommonFormat {
  QLNSignalFormat word;
  int32_t top;
  uint32_t width;
  uint32_t height;
  uint32_t rate;
  uint32_t scale;
  uint32_t flags;
};

// The common formats with what the record says of each.
constexpr CommonFormat kCommonFormats[] = {
    {0x1100401D, 34, 640, 480, 30000, 1001, 0x100},
    {0x1120421D, 34, 720, 486, 30000, 1001, 0x100},
    {0x11A04019, 45, 720, 576, 25, 1, 0x100},
    {0x11A04219, 45, 720, 576, 25, 1, 0x100},
    {0x1310B21D, 78, 1920, 1035, 30000, 1001, 0x100},
    {0x1310B21E, 78, 1920, 1035, 30, 1, 0x100},
    {0x1380B217, 40, 1920, 1080, 24000, 1001, 0x100},
    {0x1380B218, 40, 1920, 1080, 24, 1, 0x100},
    {0x1380B219, 40, 1920, 1080, 25, 1, 0x100},
    {0x1380B21D, 40, 1920, 1080, 30000, 1001, 0x100},
    {0x1380B21E, 40, 1920, 1080, 30, 1, 0x100},
    {0x22109017, 41, 1280, 720, 24000, 1001, 0},
    {0x22109018, 41, 1280, 720, 24, 1, 0},
    {0x22109019, 41, 1280, 720, 25, 1, 0},
    {0x2210901D, 41, 1280, 720, 30000, 1001, 0},
    {0x2210901E, 41, 1280, 720, 30, 1, 0},
    {0x22109032, 41, 1280, 720, 50, 1, 0},
    {0x2210903B, 41, 1280, 720, 60000, 1001, 0},
    {0x2210903C, 41, 1280, 720, 60, 1, 0},
    {0x2380B217, 41, 1920, 1080, 24000, 1001, 0},
    {0x2380B218, 41, 1920, 1080, 24, 1, 0},
    {0x2380B219, 41, 1920, 1080, 25, 1, 0},
    {0x2380B21D, 41, 1920, 1080, 30000, 1001, 0},
    {0x2380B21E, 41, 1920, 1080, 30, 1, 0},
};

TEST(VideoDescription, CommonFormats) {
  for (const CommonFormat& row : kCommonFormats) {
    for (const uint32_t oldFlags : {0u, 0x100u, 0x200u, 0xFFFFFFFFu}) {
      HostVid host = MakeHostVid(oldFlags);
      EXPECT_EQ(vidSignalFormatToQLNVid(row.word, &host.known), 0);
      const QLNVid expected = {row.width,
                               row.height,
                               row.scale,
                               row.rate,
                               0,
                               row.top,
                               static_cast<int32_t>(row.width),
                               row.top + static_cast<int32_t>(row.height),
                               row.flags};
      ExpectVid(host, expected, std::to_string(row.word));
    }
  }
}

TEST(VideoDescription, OtherNamedWordsKeepTheRectanglesLeftAndTop) {
  std::set<QLNSignalFormat> common;
  for (const CommonFormat& row : kCommonFormats) common.insert(row.word);
  EXPECT_EQ(common.size(), 24u);
  for (const TableRow& row : ReadTable("signal_format_names.tsv", 2)) {
    const auto word = static_cast<QLNSignalFormat>(std::stoul(row[0], nullptr, 16));
    if (common.contains(word)) continue;
    HostVid host = MakeHostVid();
    EXPECT_EQ(vidSignalFormatToQLNVid(word, &host.known), 0);
    // The plain sizes of the tokens, also where they are not what vidImageSize tells.
    const auto [width, height] = SizeByTokens(word);
    uint32_t rate = 0;
    uint32_t scale = 0;
    ASSERT_EQ(vidRateScale(word, &rate, &scale), 0);
    const QLNVid expected = {width,
                             height,
                             scale,
                             rate,
                             11,
                             22,
                             11 + static_cast<int32_t>(width),
                             22 + static_cast<int32_t>(height),
                             0x300};
    ExpectVid(host, expected, row[1]);
  }
}

TEST(VideoDescription, LargeFormatsTakeTheTokensSizes) {
  HostVid host = MakeHostVid(0);
  EXPECT_EQ(vidSignalFormatToQLNVid(0x2380D03C, &host.known), 0);
  EXPECT_EQ(SizePair(host.known.width, host.known.height), SizePair(2650, 1080));
  host = MakeHostVid(0);
  EXPECT_EQ(vidSignalFormatToQLNVid(0x2650B83C, &host.known), 0);
  EXPECT_EQ(SizePair(host.known.width, host.known.height), SizePair(8192, 4096));
}

TEST(VideoDescription, ScanFlagsOfOtherWordsByClass) {
  // Class, old flags, new flags.
  const std::tuple<uint32_t, uint32_t, uint32_t> rows[] = {
      {1, 0, 0x100},          {1, 0x100, 0x100},      {1, 0x200, 0x300},
      {1, 0xFFFFFFFF, 0x300}, {4, 0, 0x200},          {4, 0x200, 0x200},
      {4, 0x100, 0x300},      {4, 0xFFFFFFFF, 0x300}, {2, 0, 0},
      {2, 0x100, 0x100},      {2, 0x200, 0x200},      {2, 0xFFFFFFFF, 0x300},
      {0, 0xFFFFFFFF, 0x300}, {3, 0x7100, 0x100},     {5, 0x1200, 0x200},
      {7, 0xFFFFFCFF, 0}};
  for (const auto& [scanClass, oldFlags, newFlags] : rows) {
    HostVid host = MakeHostVid(oldFlags);
    EXPECT_EQ(vidSignalFormatToQLNVid(scanClass << 28 | kPlainWord, &host.known), 0);
    EXPECT_EQ(host.known.scanFlags, newFlags) << scanClass << ' ' << oldFlags;
    // Bit 31 is no part of the class.
    host = MakeHostVid(oldFlags);
    EXPECT_EQ(vidSignalFormatToQLNVid((scanClass | 8) << 28 | kPlainWord, &host.known), 0);
    EXPECT_EQ(host.known.scanFlags, newFlags) << scanClass << ' ' << oldFlags;
  }
}

TEST(VideoDescription, RectangleWraps) {
  HostVid host = MakeHostVid();
  host.known.activeLeft = std::numeric_limits<int32_t>::max();
  host.known.activeTop = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(vidSignalFormatToQLNVid(2u << 28 | kPlainWord, &host.known), 0);
  EXPECT_EQ(host.known.activeRight, std::numeric_limits<int32_t>::min() + 639);
  EXPECT_EQ(host.known.activeBottom, std::numeric_limits<int32_t>::min() + 600);
}

TEST(VideoDescription, UnknownFormatLeavesTheRecordAlone) {
  HostVid host = MakeHostVid();
  EXPECT_EQ(vidSignalFormatToQLNVid(0xF0000000, &host.known), -1);
  ExpectVid(host, kHostValues, "unknown");
}

TEST(VideoDescription, WordWithoutARateLeaves256Over1) {
  HostVid host = MakeHostVid();
  EXPECT_EQ(vidSignalFormatToQLNVid(0x11A04300, &host.known), -1);
  QLNVid expected = kHostValues;
  expected.rate = 256;
  expected.scale = 1;
  ExpectVid(host, expected, "no rate");
}

TEST(VideoDescription, WordWithAnUnknownTokenLeavesRateAndSizes) {
  HostVid host = MakeHostVid();
  EXPECT_EQ(vidSignalFormatToQLNVid(2u << 28 | 27u << 20 | 4u << 9 | 29u, &host.known), -1);
  QLNVid expected = kHostValues;
  expected.rate = 30000;
  expected.scale = 1001;
  expected.width = kNone;
  expected.height = 600;
  ExpectVid(host, expected, "unknown width");
  host = MakeHostVid();
  EXPECT_EQ(vidSignalFormatToQLNVid(2u << 28 | 4u << 20 | 32u << 9 | 29u, &host.known), -1);
  expected.width = 640;
  expected.height = kNone;
  ExpectVid(host, expected, "unknown height");
}

TEST(VideoDescription, NullRecord) { EXPECT_EQ(vidSignalFormatToQLNVid(0x2380B219, nullptr), -1); }

uint32_t AspectRatio(uint32_t width, int64_t height) {
  QLNVid video = {};
  video.width = width;
  video.height = static_cast<uint32_t>(height);
  return vidGetAspectRatio(&video);
}

// The table of ratios, row by row.
uint32_t ExpectedAspect(uint32_t w, uint32_t h) {
  if (h < 480) return 0;
  if (h <= 525) return 0x40003;
  if (h <= 625) return w >= 640 && w <= 800 ? 0x40003 : 0;
  if (h == 720 && (w == 960 || w == 1280)) return 0x100009;
  if (h == 858 && w == 2048) return 0xEF0064;
  if (h == 1080 && (w == 1280 || w == 1440 || w == 1920)) return 0x100009;
  if (h == 1080 && w == 1998) return 0xB90064;
  if (h == 1080 && w == 2048) return 0x1000087;
  if (h == 2160 && w == 3840) return 0x100009;
  if (h == 2160 && w == 4096) return 0x1000087;
  return 0;
}

TEST(AspectRatio, EveryRowAndItsNeighbours) {
  for (const uint32_t named : {0u, 240u, 480u, 525u, 526u, 625u, 626u, 720u, 858u, 1080u, 2160u, 4320u}) {
    for (const uint32_t height : {named - 1, named, named + 1}) {
      for (const uint32_t width :
           {0u,    639u,  640u,  720u,  800u,  801u,  959u,  960u,  961u,  1280u,      1281u,
            1440u, 1920u, 1921u, 1998u, 2047u, 2048u, 2049u, 3840u, 4096u, 0xFFFFFFFFu}) {
        if (height > 5000) continue;  // one below 0
        EXPECT_EQ(AspectRatio(width, height), ExpectedAspect(width, height)) << width << 'x' << height;
        EXPECT_EQ(AspectRatio(width, -int64_t{height}), ExpectedAspect(width, height))
            << width << 'x' << height;
      }
    }
  }
}

TEST(AspectRatio, WorkedValues) {
  EXPECT_EQ(AspectRatio(720, -486), 0x40003u);
  EXPECT_EQ(AspectRatio(0, 480), 0x40003u);
  EXPECT_EQ(AspectRatio(1920, 1080), 16u << 16 | 9u);
  EXPECT_EQ(AspectRatio(2048, 858), 239u << 16 | 100u);
  EXPECT_EQ(AspectRatio(1998, 1080), 185u << 16 | 100u);
  EXPECT_EQ(AspectRatio(4096, 2160), 256u << 16 | 135u);
  EXPECT_EQ(AspectRatio(1920, std::numeric_limits<int32_t>::min()), 0u);
  EXPECT_EQ(vidGetAspectRatio(nullptr), 0u);
}

}  // namespace
}  // namespace qln::test
