// Samples of tracks with several sample descriptions: sets lent and taken back, framings made one, and what
// counts as kept.

#include "patch/sample_units.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/error.h"
#include "engine/small_streams.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using test::TypesOf;
using testing::HasSubstr;

// avcC (ISO/IEC 14496-15 clause 5.3.3.1) of one SPS and one PPS with 1-, 2- or 4-byte lengths.
Bytes Record(const char* sps, const char* pps, int lengthBytes = 4) {
  Bytes record = Hex("01 4D 00 1F");
  record.push_back(static_cast<uint8_t>(0xFC | (lengthBytes - 1)));
  for (const char* set : {sps, pps}) {
    const Bytes unit = Hex(set);
    record.push_back(set == sps ? 0xE1 : 1);
    record.push_back(0);
    record.push_back(static_cast<uint8_t>(unit.size()));
    record.insert(record.end(), unit.begin(), unit.end());
  }
  return record;
}

const Bytes kFirst = Record("674D001F 11", "68EE01");
const Bytes kSecond = Record("674D001F 22", "68EE02");

mp4::Sample Of(uint32_t description) {
  mp4::Sample sample;
  sample.description = description;
  return sample;
}

std::vector<Unit> UnitsIn(const Bytes& data, int lengthBytes = 4) {
  return TakeApart(data, Framing{lengthBytes}).units;
}

SampleUnits::Given Given(SampleUnits& units, uint32_t description, const Bytes& bytes) {
  SampleUnits::Given given;
  EXPECT_TRUE(units.Take(Of(description), bytes, given));
  return given;
}

TEST(SampleUnits, LendsTheSetsOfANewDescriptionOnce) {
  SampleUnits units(VideoCodec::kH264, {kFirst, kSecond});
  EXPECT_FALSE(units.lengthBytes());
  const Bytes sample = test::PacketOf({Hex("09F0"), Hex("65B8")}, 4);
  EXPECT_EQ(Given(units, 1, sample).bytes, sample);
  const SampleUnits::Given lent = Given(units, 2, sample);
  EXPECT_EQ(lent.borrowed, 2u);
  const std::vector<Unit> given = UnitsIn(lent.bytes);
  EXPECT_EQ(TypesOf(Codec::kH264, given), "9 7 8 5");  // behind the delimiter
  EXPECT_EQ(given[1].bytes, Hex("674D001F 22"));
  EXPECT_EQ(Given(units, 2, sample).borrowed, 0u);
  EXPECT_EQ(Given(units, 1, sample).borrowed, 2u);
  // One that no table has is the first.
  EXPECT_EQ(Given(units, 7, sample).borrowed, 0u);
}

TEST(SampleUnits, EqualSetsAreNotLent) {
  SampleUnits units(VideoCodec::kH264, {kFirst, kFirst});
  const Bytes sample = test::PacketOf({Hex("65B8")}, 4);
  Given(units, 1, sample);
  EXPECT_EQ(Given(units, 2, sample).borrowed, 0u);
}

TEST(SampleUnits, TakesBackWhatItLentAndCountsWhatWasChanged) {
  SampleUnits units(VideoCodec::kH264, {kFirst, kSecond});
  const SampleUnits::Given lent = Given(units, 2, test::PacketOf({Hex("674D001F 33"), Hex("65B8")}, 4));
  std::vector<Unit> edited = UnitsIn(lent.bytes);
  EXPECT_EQ(TypesOf(Codec::kH264, edited), "7 8 7 5");
  for (Unit& unit : edited) {
    if (UnitType(Codec::kH264, unit.bytes) == 7) unit.bytes.back() = 0x44;
  }
  UnitRun run;
  run.units = edited;
  const SampleUnits::Returned back = units.GiveBack(2, lent, PutTogether(run, Framing{4}), "clip");
  EXPECT_EQ(back.bytes, test::PacketOf({Hex("674D001F 44"), Hex("65B8")}, 4));
  EXPECT_EQ(back.sequenceSets, 1);
  EXPECT_EQ(back.videoSets, 0);
}

TEST(SampleUnits, LengthsOfDifferentSizesBecomeTheLongestAndGoBack) {
  SampleUnits units(VideoCodec::kH264,
                    {Record("674D001F 11", "68EE01", 1), Record("674D001F 11", "68EE01", 2)});
  EXPECT_EQ(units.lengthBytes(), 2);
  const Bytes sample = test::PacketOf({Hex("0605AA"), Hex("65B8")}, 1);
  const SampleUnits::Given given = Given(units, 1, sample);
  EXPECT_EQ(given.bytes, test::PacketOf({Hex("0605AA"), Hex("65B8")}, 2));
  EXPECT_EQ(units.GiveBack(1, given, given.bytes, "clip").bytes, sample);
  // What was put in may be too much for one byte.
  const Bytes large = test::PacketOf({Bytes(300, 6), Hex("65B8")}, 2);
  try {
    units.GiveBack(1, given, large, "clip");
    FAIL();
  } catch (const Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("clip: a unit of 300 bytes does not fit its 1-byte length field"));
  }
  EXPECT_EQ(units.GiveBack(2, Given(units, 2, large), large, "clip").bytes, large);
}

TEST(SampleUnits, PassesByWhatItCannotRead) {
  SampleUnits units(VideoCodec::kH264, {kFirst});
  SampleUnits::Given given;
  EXPECT_FALSE(units.Take(Of(1), {}, given));
  mp4::Sample encrypted = Of(1);
  encrypted.encrypted = true;
  EXPECT_FALSE(units.Take(encrypted, Bytes{1}, given));
  // MPEG-2 is given as it is.
  SampleUnits mpeg2(VideoCodec::kMpeg2, {{}});
  EXPECT_EQ(Given(mpeg2, 1, Hex("000001B3 11")).bytes, Hex("000001B3 11"));
}

bool MayHold(const std::vector<Bytes>& units, const Bytes& behind = {}) {
  const SampleUnits samples(VideoCodec::kH264, {kFirst});
  Bytes data = Bytes(7, 0xEE);  // something in front
  const Bytes packet = test::PacketOf(units, 4);
  data.insert(data.end(), packet.begin(), packet.end());
  data.insert(data.end(), behind.begin(), behind.end());
  mp4::Sample sample = Of(1);
  sample.offset = 7;
  sample.size = static_cast<uint32_t>(data.size() - 7);
  data.push_back(0x67);
  const mp4::MemorySource source(data);
  mp4::Reader reader(source);
  return samples.MayHoldSets(reader, sample);
}

TEST(SampleUnits, HeadsTellWhetherASampleMayHoldSets) {
  EXPECT_FALSE(MayHold({Hex("09F0"), Hex("0605AA80"), Hex("65B8")}));
  for (const char* set : {"674D", "68EE", "6D80", "6F4D"})  // SPS, PPS, SPS extension, subset SPS
    EXPECT_TRUE(MayHold({Hex("0605AA80"), Hex(set), Hex("65B8")})) << set;
  // A delimiter that is more than one: start codes under its length.
  EXPECT_TRUE(MayHold({Hex("09F0 00000001 674D001F11 00000001 68EE01 00000001 65B8")}));
  // Damage is for the editor to see.
  EXPECT_TRUE(MayHold({Hex("65B8")}, Hex("000000FF 65")));
  EXPECT_TRUE(MayHold({Hex("65B8")}, Hex("00")));
  EXPECT_TRUE(MayHold({Hex("65B8")}, Hex("00000000 00000000")));
}

TEST(SampleUnits, KeptIsWhatNoPatchMayChange) {
  const SampleUnits units(VideoCodec::kH264, {kFirst});
  const auto kept = [&](const std::vector<Bytes>& before, const std::vector<Bytes>& after,
                        const EditOptions& changes = {}) {
    return units.IsKept(Of(1), test::PacketOf(before, 4), test::PacketOf(after, 4), changes);
  };
  const Bytes slice = Hex("65B8AA");
  // Sets, messages and delimiters come and go where they are asked for.
  const std::vector<Bytes> more = {Hex("09F0"), Hex("674D"), Hex("0605AA80"), slice};
  EditOptions asked;
  EXPECT_FALSE(kept({slice}, more, asked));
  asked.delimiters = true;
  asked.fullRange = true;
  EXPECT_FALSE(kept({slice}, more, asked));
  asked.lightLevel = LightLevel{1000, 400};
  EXPECT_TRUE(kept({slice}, more, asked));
  EXPECT_FALSE(kept({slice}, {Hex("65B8AB")}));
  EXPECT_FALSE(kept({slice, slice}, {slice}));
  EXPECT_FALSE(kept({Hex("68EE01"), slice}, {Hex("68EE02"), slice}));  // PPS
  EditOptions changes;
  EXPECT_FALSE(kept({Hex("7801"), slice}, {slice}, changes));
  changes.remove.unspecified = true;
  EXPECT_TRUE(kept({Hex("7801"), slice}, {slice}, changes));
  // Bytes behind the last unit count as well.
  Bytes damaged = test::PacketOf({slice}, 4);
  damaged.push_back(0x11);
  Bytes other = test::PacketOf({Hex("09F0"), slice}, 4);
  EXPECT_FALSE(units.IsKept(Of(1), damaged, other, asked));
  other.push_back(0x11);
  EXPECT_TRUE(units.IsKept(Of(1), damaged, other, asked));
}

TEST(SampleUnits, OfMpeg2AllButUserDataIsKept) {
  const SampleUnits units(VideoCodec::kMpeg2, {{}});
  const Bytes before = Hex("00000100 000FFFF8 00000101 AA");
  EXPECT_TRUE(units.IsKept(Of(1), before, Hex("00000100 000FFFF8 000001B2 47413934 00000101 AA"), {}));
  EXPECT_FALSE(units.IsKept(Of(1), before, Hex("00000100 000FFFF8 00000101 AB"), {}));
}

}  // namespace
}  // namespace qlnmedia
