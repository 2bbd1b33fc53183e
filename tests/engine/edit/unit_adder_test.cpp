// Delimiters and recovery points: their bytes by the standards' tables, where they go, and where none is due.

#include "edit/unit_adder.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::Hex;
using qln::test::Random;
using qln::test::ToHex;

// An adder with what stands around it in an editor.
class Adder {
 public:
  Adder(Codec codec, bool delimiters, bool recoveryPoints)
      : codec_(codec), tracker_(codec), adder_(delimiters, recoveryPoints, counts_) {}
  void TakeSet(ByteSpan unit) { tracker_.TakeSet(unit); }
  // Whether decoding can start at the packet, and that had to be said.
  bool Add(std::vector<Unit>& units, PacketMark mark) {
    const size_t before = units.size();
    std::vector<PictureUnits> parts = PartUnits(codec_, tracker_, std::move(units));
    const UnitAdder::Added added = adder_.Add(parts, mark);
    units = JoinUnits(std::move(parts));
    EXPECT_EQ(added.any, units.size() != before);
    return added.start;
  }
  const EditCounts& counts() const { return counts_; }

 private:
  Codec codec_;
  EditCounts counts_;
  PictureTracker tracker_;
  UnitAdder adder_;
};

// A slice of H.264: type of the unit, first_mb_in_slice, slice_type.
Bytes H264Slice(int type, uint32_t firstMb, uint32_t sliceType) {
  return BitBuilder()
      .u(8, static_cast<uint64_t>(0x60 | type))
      .ue(firstMb)
      .ue(sliceType)
      .u(16, 0xABCD)
      .trailing()
      .bytes();
}

// Units of H.264 by name: "I" and "P0" are first slices of type 7 and 0, "p" and "b" later ones.
Unit H264Unit(const std::string& word) {
  Unit unit;
  if (word == "AUD") unit.bytes = Hex("09 F0");
  if (word == "SPS") unit.bytes = Hex("67 4D 00 1F 95");
  if (word == "SPSB") unit.bytes = Hex("67 42 00 1F 95");  // Baseline
  if (word == "PPS") unit.bytes = Hex("68 EE 3C 80");
  if (word == "BP") unit.bytes = Hex("06 00 01 AA 80");
  if (word == "PT") unit.bytes = Hex("06 01 01 AA 80");
  if (word == "RP") unit.bytes = Hex("06 06 01 C4 80");
  if (word == "SEI") unit.bytes = Hex("06 05 01 AA 80");
  if (word == "EOS") unit.bytes = Hex("0A");
  if (word == "PRE") unit.bytes = Hex("6E 40 80");
  if (word == "IDR") unit.bytes = H264Slice(5, 0, 7);
  if (word == "I") unit.bytes = H264Slice(1, 0, 7);
  if (word == "i") unit.bytes = H264Slice(1, 4, 2);
  if (word == "P") unit.bytes = H264Slice(1, 0, 5);
  if (word == "p") unit.bytes = H264Slice(1, 9, 0);
  if (word == "B") unit.bytes = H264Slice(1, 0, 6);
  if (word == "b") unit.bytes = H264Slice(1, 33, 1);
  if (word == "SI") unit.bytes = H264Slice(1, 0, 9);
  EXPECT_FALSE(unit.bytes.empty()) << word;
  return unit;
}

std::vector<std::string> WordsOf(const std::string& text) {
  std::vector<std::string> words;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find(' ', at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

std::vector<Unit> H264Units(const std::string& text) {
  std::vector<Unit> units;
  for (const std::string& word : WordsOf(text)) units.push_back(H264Unit(word));
  return units;
}

// The words again; delimiters with their primary_pic_type, as "AUD2".
std::string H264Words(const std::vector<Unit>& units) {
  static const char* const kWords[] = {"SPS", "SPSB", "PPS", "BP", "PT", "RP", "SEI", "EOS", "PRE",
                                       "IDR", "I",    "i",   "P",  "p",  "B",  "b",   "SI"};
  std::string text;
  for (const Unit& unit : units) {
    std::string found = ToHex(unit.bytes);
    for (const char* word : kWords) {
      if (H264Unit(word).bytes == unit.bytes) found = word;
    }
    if (unit.bytes.size() == 2 && unit.bytes[0] == 9) {
      EXPECT_EQ(unit.bytes[1] & 31, 16);
      found = "AUD" + std::to_string(unit.bytes[1] >> 5);
    }
    if (unit.bytes == Hex("06 06 01 84 80")) found = "NEW";  // recovery_frame_cnt 0, nothing set
    text += (text.empty() ? "" : " ") + found;
  }
  return text;
}

struct Case {
  const char* before;
  const char* after;
};

TEST(UnitAdder, H264DelimitersNameTheSliceTypes) {
  // ITU-T H.264 table 7-5.
  for (const Case& test :
       {Case{"IDR", "AUD0 IDR"}, Case{"SPS PPS SEI I i", "AUD0 SPS PPS SEI I i"}, Case{"P", "AUD1 P"},
        Case{"I p", "AUD1 I p"}, Case{"B", "AUD2 B"}, Case{"P b", "AUD2 P b"}, Case{"I b p", "AUD2 I b p"},
        Case{"SI", "AUD7 SI"}, Case{"PRE P", "AUD1 PRE P"}, Case{"EOS SPS IDR", "EOS AUD0 SPS IDR"},
        Case{"SPS PPS", "SPS PPS"},                                        // no picture
        Case{"AUD PPS P", "AUD7 PPS P"}, Case{"PPS AUD P", "PPS AUD7 P"},  // it has one
        // Two fields in one packet are two access units.
        Case{"SPS IDR i PT P p", "AUD0 SPS IDR i AUD1 PT P p"}, Case{"AUD I P", "AUD7 I AUD1 P"},
        // Baseline repeats slices and sends them in any order.
        Case{"SPSB IDR IDR", "AUD0 SPSB IDR IDR"}, Case{"SPSB i I", "AUD0 SPSB i I"}}) {
    Adder adder(Codec::kH264, true, false);
    std::vector<Unit> units = H264Units(test.before);
    EXPECT_FALSE(adder.Add(units, {true, true}));
    EXPECT_EQ(H264Words(units), test.after) << test.before;
    // What has one gets no other.
    std::vector<Unit> again = units;
    adder.Add(again, {true, true});
    EXPECT_EQ(H264Words(again), test.after);
  }
}

TEST(UnitAdder, H264RecoveryPointsStandBehindTiming) {
  for (const Case& test :
       {Case{"I", "NEW I"}, Case{"AUD SPS PPS SEI I", "AUD7 SPS PPS NEW SEI I"},
        Case{"SPS PPS BP PT SEI I i", "SPS PPS BP PT NEW SEI I i"}, Case{"SEI SPS PT I", "SEI SPS PT NEW I"},
        Case{"PRE I", "NEW PRE I"}, Case{"I P", "NEW I P"},  // a field pair is entered at its first field
        Case{"RP I", "RP I"}, Case{"SEI RP I", "SEI RP I"}, Case{"IDR", "IDR"}, Case{"SPS P", "SPS P"},
        Case{"I p", "I p"}, Case{"SI", "SI"}, Case{"SPS PPS", "SPS PPS"}}) {
    Adder adder(Codec::kH264, false, true);
    std::vector<Unit> units = H264Units(test.before);
    EXPECT_EQ(adder.Add(units, {true, true}), std::string(test.after).find("NEW") != std::string::npos);
    EXPECT_EQ(H264Words(units), test.after) << test.before;
    std::vector<Unit> again = units;
    EXPECT_FALSE(adder.Add(again, {true, true}));
    EXPECT_EQ(H264Words(again), test.after);
  }
}

TEST(UnitAdder, IntraPicturesAreNoEntriesByThemselves) {
  const auto added = [](const char* text, PacketMark mark) {
    Adder adder(Codec::kH264, false, true);
    std::vector<Unit> units = H264Units(text);
    const bool result = adder.Add(units, mark);
    EXPECT_EQ(adder.counts().recoveryPoints, result ? 1 : 0);
    EXPECT_EQ(adder.counts().intraWithoutRecovery, result ? 0 : 1);
    return result;
  };
  EXPECT_TRUE(added("I", {true, true}));
  EXPECT_FALSE(added("I", {false, true}));
  EXPECT_FALSE(added("SPS PPS I", {false, true}));  // the container knows its entries
  EXPECT_FALSE(added("I", {false, false}));
  EXPECT_FALSE(added("I", {true, false}));  // a mark out of the stream itself says nothing new
  EXPECT_TRUE(added("SPS PPS I", {false, false}));
}

TEST(UnitAdder, BothTogetherAndTheirStartCodes) {
  Adder adder(Codec::kH264, true, true);
  std::vector<Unit> units = H264Units("SPS PPS I i");
  for (Unit& unit : units) unit.startCodeBytes = 3;
  EXPECT_TRUE(adder.Add(units, {true, true}));
  EXPECT_EQ(H264Words(units), "AUD0 SPS PPS NEW I i");
  EXPECT_EQ(units[0].startCodeBytes, 4);  // the first unit of an access unit has a zero byte in front
  EXPECT_EQ(units[3].startCodeBytes, 3);
  EXPECT_EQ(adder.counts().delimiters, 1);
  EXPECT_EQ(adder.counts().recoveryPoints, 1);
}

// HEVC: a PPS with `extraBits`, and slices.
Bytes HevcPps(uint32_t id, uint32_t extraBits) {
  return BitBuilder().u(16, 0x4401).ue(id).ue(0).u(2, 1).u(3, extraBits).u(8, 0xFF).trailing().bytes();
}

Bytes HevcSlice(int type, int temporalPlus1, bool first, uint32_t pps, uint32_t extraBits,
                uint32_t sliceType) {
  BitBuilder bits;
  bits.u(16, static_cast<uint64_t>(type << 9 | temporalPlus1)).u(1, first);
  if (type >= 16 && type <= 23) bits.u(1, 0);
  bits.ue(pps);
  for (uint32_t i = 0; i < extraBits; ++i) bits.u(1, 1);
  return bits.ue(sliceType).u(16, 0x5555).trailing().bytes();
}

std::vector<Unit> UnitsOf(const std::vector<Bytes>& bytes) {
  std::vector<Unit> units;
  for (const Bytes& one : bytes) {
    Unit unit;
    unit.bytes = one;
    units.push_back(unit);
  }
  return units;
}

std::string Delimiter(Adder& adder, const std::vector<Bytes>& bytes) {
  std::vector<Unit> units = UnitsOf(bytes);
  adder.Add(units, {});
  return units.size() == bytes.size() + 1 ? ToHex(units.front().bytes) : "none";
}

TEST(UnitAdder, HevcDelimitersNameTheSliceTypes) {
  // ITU-T H.265 table 7-2; slice_type 0 is B, 1 P, 2 I.
  Adder adder(Codec::kHevc, true, false);
  adder.TakeSet(HevcPps(0, 0));
  adder.TakeSet(HevcPps(3, 5));
  EXPECT_EQ(Delimiter(adder, {HevcSlice(20, 1, true, 0, 0, 2)}), ToHex(Hex("46 01 10")));
  EXPECT_EQ(Delimiter(adder, {HevcSlice(1, 1, true, 0, 0, 2)}), ToHex(Hex("46 01 10")));
  EXPECT_EQ(Delimiter(adder, {HevcSlice(1, 1, true, 0, 0, 1)}), ToHex(Hex("46 01 30")));
  EXPECT_EQ(Delimiter(adder, {HevcSlice(0, 3, true, 3, 5, 0)}), ToHex(Hex("46 03 50")));
  EXPECT_EQ(Delimiter(adder, {HevcSlice(1, 1, true, 3, 5, 1)}), ToHex(Hex("46 01 30")));
  // Several segments, or a PPS that nobody has seen: all types.
  EXPECT_EQ(Delimiter(adder, {HevcSlice(1, 1, true, 0, 0, 1), HevcSlice(1, 1, false, 0, 0, 1)}),
            ToHex(Hex("46 01 50")));
  EXPECT_EQ(Delimiter(adder, {HevcSlice(1, 1, true, 7, 0, 1)}), ToHex(Hex("46 01 50")));
  EXPECT_EQ(Delimiter(adder, {Hex("46 01 50"), HevcSlice(1, 1, true, 0, 0, 1)}), "none");
  EXPECT_EQ(Delimiter(adder, {HevcPps(0, 0)}), "none");
}

TEST(UnitAdder, HevcFieldsInOnePacketGetOneEach) {
  Adder adder(Codec::kHevc, true, false);
  std::vector<Unit> units =
      UnitsOf({HevcPps(0, 0), HevcSlice(20, 1, true, 0, 0, 2), Hex("50 01 84 01 AA 80"),  // suffix SEI
               Hex("4E 01 01 01 A1 80"), HevcSlice(1, 1, true, 0, 0, 1)});
  // A slice of another layer belongs to the first picture.
  units.insert(units.begin() + 2, UnitsOf({HevcSlice(1, 9, true, 0, 0, 1)}).front());
  adder.Add(units, {});
  ASSERT_EQ(units.size(), 8u);
  EXPECT_EQ(ToHex(units[0].bytes), ToHex(Hex("46 01 10")));
  EXPECT_EQ(ToHex(units[5].bytes), ToHex(Hex("46 01 30")));
}

TEST(UnitAdder, HevcRecoveryPointsGoToCraPictures) {
  for (int type = 0; type < 24; ++type) {
    Adder adder(Codec::kHevc, false, true);
    std::vector<Unit> units = UnitsOf({HevcPps(0, 0), Hex("4E 01 81 01 AA 80"), Hex("4E 01 00 01 AA 80"),
                                       Hex("4E 01 05 01 AA 80"), HevcSlice(type, 1, true, 0, 0, 2)});
    EXPECT_EQ(adder.Add(units, {true, true}), type == 21) << type;
    if (type != 21) continue;
    ASSERT_EQ(units.size(), 6u);
    // recovery_poc_cnt 0, exact_match_flag 1, broken_link_flag 0, behind active sets and buffering period.
    EXPECT_EQ(units[3].bytes,
              BitBuilder().u(16, 0x4E01).u(8, 6).u(8, 1).se(0).u(2, 2).trailing().trailing().bytes());
    EXPECT_FALSE(adder.Add(units, {true, true}));
  }
}

TEST(UnitAdder, RandomUnitsDoNoHarm) {
  Random random(5);
  for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
    Adder adder(codec, true, true);
    for (int round = 0; round < 20000; ++round) {
      std::vector<Unit> units;
      for (uint64_t n = random.below(6); n-- > 0;) {
        Unit unit;
        unit.bytes = random.zeroRichBytes(random.below(12));
        units.push_back(unit);
      }
      const std::vector<Unit> before = units;
      adder.Add(units, {random.below(2) == 1, random.below(2) == 1});
      // What was there still is, in its order.
      size_t at = 0;
      for (const Unit& unit : units) {
        if (at < before.size() && unit.bytes == before[at].bytes) ++at;
      }
      ASSERT_EQ(at, before.size());
    }
  }
}

}  // namespace
}  // namespace qlnmedia
