// Units put into access units and messages taken out of them.

#include "units/access_unit.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;

// "AUD SPS SEI IDR P" to units of H.264 that hold their header and one byte.
std::vector<Unit> H264Units(const std::string& words) {
  std::vector<Unit> units;
  for (size_t at = 0; at < words.size();) {
    const size_t end = std::min(words.find(' ', at), words.size());
    const std::string word = words.substr(at, end - at);
    at = end + 1;
    const uint8_t header = word == "AUD"   ? 9
                           : word == "SPS" ? 0x67
                           : word == "PPS" ? 0x68
                           : word == "SEI" ? 6
                           : word == "IDR" ? 0x65
                           : word == "PRE" ? 14
                                           : 0x41;
    Unit unit;
    unit.bytes = word == "SEI" ? Hex("06 05 01 AA 80") : Bytes{header, 0x80};
    units.push_back(unit);
  }
  return units;
}

std::string Words(const std::vector<Unit>& units) {
  std::string words;
  for (const Unit& unit : units) {
    const int type = UnitType(Codec::kH264, unit.bytes);
    words += words.empty() ? "" : " ";
    words += type == 9    ? "AUD"
             : type == 7  ? "SPS"
             : type == 8  ? "PPS"
             : type == 6  ? (unit.bytes[1] == 5 ? "SEI" : "NEW")
             : type == 5  ? "IDR"
             : type == 14 ? "PRE"
                          : "P";
  }
  return words;
}

TEST(AccessUnit, NewMessagesStandInFrontOfThePicture) {
  struct Case {
    const char* before;
    const char* after;
  };
  for (const Case& test :
       {Case{"AUD SPS PPS SEI IDR IDR", "AUD SPS PPS SEI NEW IDR IDR"}, Case{"IDR", "NEW IDR"},
        Case{"SPS PPS P", "SPS PPS NEW P"}, Case{"AUD P SEI P", "AUD NEW P SEI P"},
        Case{"AUD PRE P", "AUD NEW PRE P"}, Case{"SPS PPS", "SPS PPS NEW"}}) {
    std::vector<Unit> units = H264Units(test.before);
    InsertSei(Codec::kH264, units, Hex("06 89 00 80"));
    EXPECT_EQ(Words(units), test.after);
  }
}

TEST(AccessUnit, SomeMessagesStayInFrontOfOthers) {
  struct Case {
    const char* units;
    size_t place;
  };
  // Types 1 and 5 may stand in front; 7 may not, nor what breaks off.
  for (const Case& test :
       {Case{"", 0}, Case{"0901 6701 6801", 3}, Case{"06050180 06010180", 2}, Case{"06050180 06070180", 1},
        Case{"06070180 6701 06050180 06070180", 3}, Case{"0609 06050180", 0}, Case{"060501AA 06", 0}}) {
    std::vector<Unit> units;
    std::string text = test.units;
    for (size_t at = 0; at < text.size();) {
      const size_t end = std::min(text.find(' ', at), text.size());
      std::string one = text.substr(at, end - at);
      // A payload of one byte behind type and size.
      if (one.size() == 8 && one.substr(6) == "80") one = one.substr(0, 6) + "CC80";
      Unit unit;
      unit.bytes = Hex(one);
      units.push_back(unit);
      at = end + 1;
    }
    const size_t slice = units.size();
    units.push_back(H264Units("P").front());
    EXPECT_EQ(SeiPlace(Codec::kH264, units, 0, slice, {1, 5}), test.place) << test.units;
  }
}

TEST(AccessUnit, StartCodesFollowTheirNeighbours) {
  std::vector<Unit> units = H264Units("AUD P");
  units[1].startCodeBytes = 3;
  InsertSei(Codec::kH264, units, Hex("06 89 00 80"));
  EXPECT_EQ(units[1].startCodeBytes, 3);
  units = H264Units("P");
  units[0].startCodeBytes = 3;
  InsertSei(Codec::kH264, units, Hex("06 89 00 80"));
  EXPECT_EQ(units[0].startCodeBytes, 3);
}

std::vector<Unit> OneUnit(const Bytes& bytes) {
  Unit unit;
  unit.bytes = bytes;
  return {unit};
}

bool Is137(const SeiMessage& message) { return message.type == 137; }

TEST(AccessUnit, OneOfSeveralMessagesGoes) {
  std::vector<Unit> units =
      OneUnit(Hex("06 01 02 AABB 89 03 000003 01 05 01 CC 80"));  // 00 00 03 01: 3 bytes
  EXPECT_EQ(RemoveSei(Codec::kH264, units, Is137), 1);
  ASSERT_EQ(units.size(), 1u);
  EXPECT_EQ(units[0].bytes, Hex("06 01 02 AABB 05 01 CC 80"));
}

TEST(AccessUnit, AnEmptiedUnitGoesWhole) {
  std::vector<Unit> units = OneUnit(Hex("06 89 01 AA 89 00 80"));
  EXPECT_EQ(RemoveSei(Codec::kH264, units, Is137), 2);
  EXPECT_TRUE(units.empty());
}

TEST(AccessUnit, UnitsWithoutTheMessageKeepTheirBytes) {
  // A unit escaped more than it needs, and one that breaks off behind its first message.
  for (const char* text : {"06 05 03 0000 03 04 80", "06 05 01 AA 89 20 01", "06 89"}) {
    std::vector<Unit> units = OneUnit(Hex(text));
    EXPECT_EQ(RemoveSei(Codec::kH264, units, Is137), 0);
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].bytes, Hex(text));
  }
}

TEST(AccessUnit, MessagesBehindTheSliceAndSuffixUnitsAreSeen) {
  std::vector<Unit> units = H264Units("P");
  units.push_back(OneUnit(Hex("06 89 01 AA 80"))[0]);
  EXPECT_EQ(RemoveSei(Codec::kH264, units, Is137), 1);
  EXPECT_EQ(Words(units), "P");
  units = OneUnit(Hex("5001 89 01 AA 80"));  // HEVC suffix SEI
  EXPECT_EQ(RemoveSei(Codec::kHevc, units, Is137), 1);
  EXPECT_TRUE(units.empty());
}

TEST(AccessUnit, UnitsThatOutgrowTheirLengthField) {
  UnitRun run;
  run.units.resize(2);
  run.units[1].bytes.assign(255, 1);
  EXPECT_EQ(OutgrownUnit(run, Framing{1}), 0u);
  run.units[1].bytes.push_back(1);
  EXPECT_EQ(OutgrownUnit(run, Framing{1}), 256u);
  EXPECT_EQ(OutgrownUnit(run, Framing{2}), 0u);
  run.units[0].bytes.assign(65536, 1);
  EXPECT_EQ(OutgrownUnit(run, Framing{2}), 65536u);
  EXPECT_EQ(OutgrownUnit(run, Framing{4}), 0u);
  EXPECT_EQ(OutgrownUnit(run, Framing{0}), 0u);
}

TEST(AccessUnit, Layers) {
  EXPECT_TRUE(IsBaseLayer(Codec::kHevc, Hex("4201")));
  EXPECT_FALSE(IsBaseLayer(Codec::kHevc, Hex("4209")));  // nuh_layer_id 1
  EXPECT_FALSE(IsBaseLayer(Codec::kHevc, Hex("4301")));  // nuh_layer_id 32
  EXPECT_TRUE(IsBaseLayer(Codec::kHevc, Hex("42")));
  EXPECT_TRUE(IsBaseLayer(Codec::kH264, Hex("67FF")));
}

// A packet of slices of layer 1 alone is part of the picture in front of it.
TEST(AccessUnit, HigherLayersCompleteAPicture) {
  const auto units = [](std::initializer_list<const char*> all) {
    std::vector<Unit> made;
    for (const char* one : all) made.push_back(OneUnit(Hex(one))[0]);
    return made;
  };
  constexpr const char* kBase = "2601 AF";     // IDR_W_RADL of the base layer
  constexpr const char* kHigher = "2609 AF";   // of layer 1
  constexpr const char* kMessage = "4E09 00";  // prefix SEI of layer 1
  EXPECT_TRUE(CompletesPicture(Codec::kHevc, units({kHigher})));
  EXPECT_TRUE(CompletesPicture(Codec::kHevc, units({kMessage, kHigher, kHigher})));
  EXPECT_FALSE(CompletesPicture(Codec::kHevc, units({kBase, kHigher})));
  EXPECT_FALSE(CompletesPicture(Codec::kHevc, units({kBase})));
  EXPECT_FALSE(CompletesPicture(Codec::kHevc, units({kMessage})));
  EXPECT_FALSE(CompletesPicture(Codec::kH264, units({kHigher})));
  EXPECT_EQ(FirstPictureUnit(Codec::kHevc, units({kMessage, kHigher})), 2u);
  EXPECT_EQ(FirstPictureUnit(Codec::kHevc, units({kMessage, kBase, kHigher})), 1u);
  EXPECT_FALSE(IsRandomAccess(Codec::kHevc, units({kHigher})));
  EXPECT_TRUE(IsRandomAccess(Codec::kHevc, units({kHigher, kBase})));
}

TEST(AccessUnit, RandomAccess) {
  EXPECT_TRUE(IsRandomAccess(Codec::kH264, H264Units("SPS IDR")));
  EXPECT_FALSE(IsRandomAccess(Codec::kH264, H264Units("SPS SEI P")));
  std::vector<Unit> units = H264Units("P");
  units.insert(units.begin(), OneUnit(Hex("06 06 01 C4 80"))[0]);  // recovery point
  EXPECT_TRUE(IsRandomAccess(Codec::kH264, units));
  EXPECT_TRUE(IsRandomAccess(Codec::kHevc, OneUnit(Hex("2A01 80"))));   // CRA
  EXPECT_FALSE(IsRandomAccess(Codec::kHevc, OneUnit(Hex("0201 80"))));  // TRAIL_R
}

}  // namespace
}  // namespace qlnmedia
