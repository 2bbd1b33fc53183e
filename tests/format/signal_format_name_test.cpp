// The display names of signal formats: the fixed ones by table, the built ones by an independent formatter.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "format/table_file.h"
#include "qlnutil/qlnformat.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

// All 21 bytes as told: blanks, the text with its terminator over them, a terminator at the end.
std::string WholeBuffer(const std::string& text) {
  std::string buffer(20, ' ');
  buffer += '\0';
  std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
  return buffer;
}

// The name of a word, with guard bytes around the buffer.
std::string NameBuffer(QLNSignalFormat format) {
  char guarded[16 + 21 + 16];
  std::memset(guarded, 0x5A, sizeof guarded);
  EXPECT_EQ(vidSignalFormatToStr20(format, guarded + 16), 0);
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(guarded[i], 0x5A);
    EXPECT_EQ(guarded[16 + 21 + i], 0x5A);
  }
  return std::string(guarded + 16, 21);
}

std::map<QLNSignalFormat, std::string> FixedNames() {
  std::map<QLNSignalFormat, std::string> names;
  for (const TableRow& row : ReadTable("signal_format_names.tsv", 2))
    names[static_cast<QLNSignalFormat>(std::stoul(row[0], nullptr, 16))] = row[1];
  return names;
}

const char* RateName(uint32_t field) {
  static const std::map<uint32_t, const char*> kNames = {
      {14, "14.98"}, {15, "15"},    {23, "23.98"}, {24, "24"},     {25, "25"},    {29, "29.97"},
      {30, "30"},    {47, "47.95"}, {48, "48"},    {50, "50"},     {59, "59.94"}, {60, "60"},
      {71, "71.93"}, {72, "72"},    {100, "100"},  {119, "119.88"}};
  const auto name = kNames.find(field);
  return name != kNames.end() ? name->second : "Custom";
}

std::string BuiltName(QLNSignalFormat format) {
  static const std::map<uint32_t, char> kLetters = {{1, 'i'}, {2, 'P'}, {4, 's'}};
  const auto letter = kLetters.find(format / 0x10000000u);
  char text[64];
  std::snprintf(text, sizeof text, "%dx%d%c@%s", static_cast<int>(vidGetSizeFromToken(format / 512u % 2048u)),
                static_cast<int>(vidGetSizeFromToken(format / 0x100000u % 256u)),
                letter != kLetters.end() ? letter->second : ' ', RateName(format % 512u));
  return text;
}

TEST(SignalFormatName, EveryFixedName) {
  const auto names = FixedNames();
  ASSERT_EQ(names.size(), 102u);
  for (const auto& [word, text] : names) EXPECT_EQ(NameBuffer(word), WholeBuffer(text)) << std::hex << word;
}

TEST(SignalFormatName, NeighboursOfFixedNamesAreBuilt) {
  const auto names = FixedNames();
  for (const auto& [word, text] : names) {
    for (uint32_t bit = 0; bit < 32; ++bit) {
      const QLNSignalFormat other = word ^ (1u << bit);
      const std::string expected = names.contains(other) ? names.at(other) : BuiltName(other);
      EXPECT_EQ(NameBuffer(other), WholeBuffer(expected)) << std::hex << other;
    }
  }
}

TEST(SignalFormatName, UnknownFormat) {
  EXPECT_EQ(NameBuffer(0xF0000000), WholeBuffer("-1x-1 @Custom"));
  EXPECT_EQ(NameBuffer(0), WholeBuffer("-1x-1 @Custom"));
  EXPECT_EQ(NameBuffer(0xFFFFFFFF), WholeBuffer("-1x-1 @Custom"));
}

TEST(SignalFormatName, LongestBuiltNameHas17Characters) {
  // 8192 wide (token 92), 4096 high (token 128), interlaced, 119.88.
  EXPECT_EQ(NameBuffer(1u << 28 | 128u << 20 | 92u << 9 | 119u), WholeBuffer("8192x4096i@119.88"));
}

TEST(SignalFormatName, EveryRateAndScanClassOfABuiltName) {
  for (uint32_t top = 0; top < 16; ++top) {
    for (uint32_t field = 0; field < 512; ++field) {
      const QLNSignalFormat word = top << 28 | 27u << 20 | 32u << 9 | field;  // 640x600
      ASSERT_EQ(NameBuffer(word), WholeBuffer(BuiltName(word))) << std::hex << word;
    }
  }
  EXPECT_EQ(NameBuffer(1u << 28 | 27u << 20 | 32u << 9 | 14), WholeBuffer("640x600i@14.98"));
  EXPECT_EQ(NameBuffer(2u << 28 | 27u << 20 | 32u << 9 | 71), WholeBuffer("640x600P@71.93"));
  EXPECT_EQ(NameBuffer(4u << 28 | 27u << 20 | 32u << 9 | 100), WholeBuffer("640x600s@100"));
  EXPECT_EQ(NameBuffer(3u << 28 | 27u << 20 | 32u << 9 | 99), WholeBuffer("640x600 @Custom"));
}

TEST(SignalFormatName, RandomWords) {
  const auto names = FixedNames();
  Random random(22);
  for (int round = 0; round < 100000; ++round) {
    const auto word = static_cast<QLNSignalFormat>(random.next());
    if (names.contains(word)) continue;
    ASSERT_EQ(NameBuffer(word), WholeBuffer(BuiltName(word))) << std::hex << word;
  }
}

TEST(SignalFormatName, NullWritesNothing) { EXPECT_EQ(vidSignalFormatToStr20(0x2380B219, nullptr), 0); }

}  // namespace
}  // namespace qln::test
