// The two token tables, row by row and between the rows.

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "format/table_file.h"
#include "qlnutil/qlnformat.h"

namespace qln::test {
namespace {

TEST(SizeTokens, EveryTokenHasItsSizeAndNoOtherHasOne) {
  std::map<uint32_t, uint32_t> sizes;
  for (const TableRow& row : ReadTable("size_of_token.tsv", 2))
    sizes[static_cast<uint32_t>(std::stoul(row[0]))] = static_cast<uint32_t>(std::stoul(row[1]));
  ASSERT_EQ(sizes.size(), 60u);
  for (uint32_t token = 0; token < 70000; ++token) {
    const auto row = sizes.find(token);
    ASSERT_EQ(vidGetSizeFromToken(token), row != sizes.end() ? row->second : 0xFFFFFFFFu) << token;
  }
  EXPECT_EQ(vidGetSizeFromToken(0x80000001), 0xFFFFFFFFu);
  EXPECT_EQ(vidGetSizeFromToken(0xFFFFFFFF), 0xFFFFFFFFu);
}

TEST(SizeTokens, EverySizeHasTheTokenOfTheLastThresholdReached) {
  std::map<uint32_t, uint32_t> thresholds;
  for (const TableRow& row : ReadTable("token_thresholds.tsv", 2))
    thresholds[static_cast<uint32_t>(std::stoul(row[0]))] = static_cast<uint32_t>(std::stoul(row[1]));
  ASSERT_EQ(thresholds.size(), 53u);
  uint32_t token = 0xFFFFFFFF;
  for (uint32_t size = 0; size < 70000; ++size) {
    if (thresholds.contains(size)) token = thresholds[size];
    ASSERT_EQ(vidGetTokenFromSize(size), size > 8192 ? 0xFFFFFFFFu : token) << size;
  }
  EXPECT_EQ(vidGetTokenFromSize(0x80000438), 0xFFFFFFFFu);
  EXPECT_EQ(vidGetTokenFromSize(0xFFFFFFFF), 0xFFFFFFFFu);
}

TEST(SizeTokens, MismatchesOfTheTwoTables) {
  EXPECT_EQ(vidGetTokenFromSize(1035), 48u);
  EXPECT_EQ(vidGetSizeFromToken(48), 1024u);
  EXPECT_EQ(vidGetTokenFromSize(1036), 49u);
  EXPECT_EQ(vidGetTokenFromSize(1043), 49u);
  EXPECT_EQ(vidGetSizeFromToken(49), 1035u);
  EXPECT_EQ(vidGetTokenFromSize(239), 0xFFFFFFFFu);
  EXPECT_EQ(vidGetTokenFromSize(240), 1u);
  EXPECT_EQ(vidGetTokenFromSize(241), 2u);
  EXPECT_EQ(vidGetSizeFromToken(2), 243u);
  EXPECT_EQ(vidGetTokenFromSize(2160), 96u);
  EXPECT_EQ(vidGetTokenFromSize(3840), 107u);
  EXPECT_EQ(vidGetTokenFromSize(8192), 128u);
  EXPECT_EQ(vidGetTokenFromSize(8193), 0xFFFFFFFFu);
}

TEST(SizeTokens, SomeTokensAreNeverProduced) {
  std::set<uint32_t> produced;
  for (uint32_t size = 0; size < 9000; ++size) produced.insert(vidGetTokenFromSize(size));
  for (const uint32_t token : {90u, 91u, 92u, 100u, 101u, 106u, 120u})
    EXPECT_FALSE(produced.contains(token)) << token;
}

}  // namespace
}  // namespace qln::test
