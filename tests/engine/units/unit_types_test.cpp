// Kinds of units by the tables of the standards.

#include "units/unit_types.h"

#include <gtest/gtest.h>

#include <set>

#include "support/test_support.h"
#include "units/units.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using qln::test::Random;

using Rule = bool (*)(Codec, int);

void ExpectTypes(Rule rule, Codec codec, const std::set<int>& types) {
  for (int type = -1; type < 64; ++type)
    EXPECT_EQ(rule(codec, type), types.contains(type)) << UnitTypeName(codec, type) << " " << type;
}

std::set<int> Range(int first, int last) {
  std::set<int> types;
  for (int type = first; type <= last; ++type) types.insert(type);
  return types;
}

// ITU-T H.264 table 7-1 and H.265 table 7-1.
TEST(UnitTypes, EachRuleHoldsForItsTypesAlone) {
  ExpectTypes(IsSlice, Codec::kH264, Range(1, 5));
  ExpectTypes(IsSlice, Codec::kHevc, Range(0, 31));
  ExpectTypes(IsParameterSet, Codec::kH264, {7, 8});
  ExpectTypes(IsParameterSet, Codec::kHevc, {32, 33, 34});
  ExpectTypes(IsSps, Codec::kH264, {7});
  ExpectTypes(IsSps, Codec::kHevc, {33});
  ExpectTypes(IsSei, Codec::kH264, {6});
  ExpectTypes(IsSei, Codec::kHevc, {39, 40});
  ExpectTypes(IsDelimiter, Codec::kH264, {9});
  ExpectTypes(IsDelimiter, Codec::kHevc, {35});
  ExpectTypes(IsEnd, Codec::kH264, {10, 11});
  ExpectTypes(IsEnd, Codec::kHevc, {36, 37});
}

// ITU-T H.264 clause 7.4.1.2.3, H.265 clause 7.4.2.4.4.
TEST(UnitTypes, WhatBeginsAnAccessUnitBehindAPicture) {
  std::set<int> h264 = Range(6, 9);
  h264.merge(Range(14, 18));
  ExpectTypes(BeginsAccessUnit, Codec::kH264, h264);
  std::set<int> hevc = Range(32, 35);
  hevc.insert(39);
  hevc.merge(Range(41, 44));
  hevc.merge(Range(48, 55));
  ExpectTypes(BeginsAccessUnit, Codec::kHevc, hevc);
}

TEST(UnitTypes, TheFirstSliceOfAPicture) {
  EXPECT_TRUE(BeginsPicture(Codec::kH264, Hex("6580")));
  EXPECT_FALSE(BeginsPicture(Codec::kH264, Hex("6540")));
  EXPECT_FALSE(BeginsPicture(Codec::kH264, Hex("65")));
  EXPECT_TRUE(BeginsPicture(Codec::kHevc, Hex("260180")));
  EXPECT_FALSE(BeginsPicture(Codec::kHevc, Hex("26017F")));
  EXPECT_FALSE(BeginsPicture(Codec::kHevc, Hex("2680")));
}

TEST(UnitTypes, LayersOfHevc) {
  EXPECT_TRUE(IsBaseLayer(Codec::kHevc, Hex("2601")));
  EXPECT_FALSE(IsBaseLayer(Codec::kHevc, Hex("2609")));  // nuh_layer_id 1
  EXPECT_FALSE(IsBaseLayer(Codec::kHevc, Hex("2701")));  // 32
  EXPECT_TRUE(IsBaseLayer(Codec::kH264, Hex("6709")));
}

TEST(VisitUnits, HandsOverWhatTakeApartCopies) {
  Random random(5);
  for (int round = 0; round < 3000; ++round) {
    const Bytes data = random.zeroRichBytes(random.below(60));
    for (const int lengthBytes : {0, 1, 2, 4}) {
      std::vector<Bytes> visited;
      VisitUnits(data, Framing{lengthBytes}, [&](ByteSpan unit) {
        EXPECT_TRUE(unit.empty() ||
                    (unit.data() >= data.data() && unit.data() + unit.size() <= data.data() + data.size()));
        visited.emplace_back(unit.begin(), unit.end());
      });
      std::vector<Bytes> copied;
      for (const Unit& unit : TakeApart(data, Framing{lengthBytes}).units) copied.push_back(unit.bytes);
      ASSERT_EQ(visited, copied) << qln::test::ToHex(data) << " " << lengthBytes;
    }
  }
}

}  // namespace
}  // namespace qlnmedia
