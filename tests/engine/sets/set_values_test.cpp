// Edits of sample aspect, level, tier, timing, chroma location and cropping: each against a set written by
// hand with the wanted values.

#include <gtest/gtest.h>

#include "h264_sets.h"
#include "hevc_layer_sets.h"
#include "sets/set_edit.h"

namespace qlnmedia {
namespace {

using qln::test::BitBuilder;
using qln::test::ToHex;

// What a set says, by name; elements that the edits are about.
struct Values {
  uint64_t profile = 77;
  uint64_t constraint3 = 0;
  uint64_t level = 31;
  uint64_t tier = 0;
  bool cropped = false;
  std::vector<uint32_t> crop;
  bool vui = false;
  std::vector<uint64_t> aspect;  // aspect_ratio_idc, and width and height of an extended one
  std::vector<uint32_t> chroma;
  std::vector<uint64_t> timing;  // units, scale, and for H.264 the fixed flag
};

void PutFront(BitBuilder& bits, const Values& values) {
  bits.u(1, !values.aspect.empty());
  for (size_t i = 0; i < values.aspect.size(); ++i) bits.u(i == 0 ? 8 : 16, values.aspect[i]);
  bits.u(1, 0).u(1, 0).u(1, !values.chroma.empty());  // overscan, signal
  for (const uint32_t place : values.chroma) bits.ue(place);
}

Bytes H264Set(const Values& values) {
  BitBuilder bits;
  bits.u(8, 0x67).u(8, values.profile).u(3, 0).u(1, values.constraint3).u(4, 0).u(8, values.level).ue(0);
  if (values.profile == 100) bits.ue(1).ue(0).ue(0).u(2, 0);
  bits.ue(0).ue(0).ue(2).ue(1).u(1, 0).ue(7).ue(2);   // 128 x 48 map units
  bits.u(1, 0).u(1, 0).u(1, 1).u(1, values.cropped);  // fields: 128 x 96
  for (const uint32_t side : values.crop) bits.ue(side);
  bits.u(1, values.vui);
  if (values.vui) {
    PutFront(bits, values);
    bits.u(1, !values.timing.empty());
    for (size_t i = 0; i < values.timing.size(); ++i) bits.u(i < 2 ? 32 : 1, values.timing[i]);
    bits.u(2, 0).u(1, 0).u(1, 0);  // HRDs, pic_struct, restriction
  }
  return Escape(bits.trailing().bytes());
}

Bytes HevcSet(const Values& values, bool hrd = false) {
  BitBuilder bits;
  bits.u(16, 0x4201).u(4, 0).u(3, 0).u(1, 1).u(2, 0).u(1, values.tier).u(5, 1).u(32, 0x60000000).u(4, 9);
  bits.u(44, 0).u(8, values.level).ue(0).ue(1).ue(128).ue(96).u(1, values.cropped);
  for (const uint32_t side : values.crop) bits.ue(side);
  bits.ue(0).ue(0).ue(4).u(1, 0).ue(4).ue(2).ue(0).ue(0).ue(3).ue(0).ue(3).ue(0).ue(0);
  bits.u(1, 0).u(2, 0).u(1, 0).ue(0).u(1, 0).u(2, 0).u(1, values.vui);
  if (values.vui) {
    PutFront(bits, values);
    bits.u(3, 0).u(1, 0).u(1, !values.timing.empty());
    for (const uint64_t value : values.timing) bits.u(32, value);
    if (!values.timing.empty()) {
      bits.u(1, hrd);
      if (hrd) bits.ue(0);
      bits.u(1, 0);
    }
    bits.u(1, 0);
  }
  return Escape(bits.u(1, 0).trailing().bytes());
}

void Expect(Codec codec, const Bytes& before, const SpsEdit& edit, const Bytes& after) {
  EXPECT_EQ(ToHex(EditSps(codec, before, edit).value()), ToHex(after));
  EXPECT_EQ(ToHex(EditSps(codec, after, edit).value()), ToHex(after));
}

TEST(SetValues, SampleAspectTakesTheTableOrItsOwnNumbers) {
  SpsEdit edit;
  edit.aspect = {40, 33};
  Values none;
  Values table;
  table.vui = true;
  table.aspect = {5};
  Expect(Codec::kH264, H264Set(none), edit, H264Set(table));
  Expect(Codec::kHevc, HevcSet(none), edit, HevcSet(table));
  Values own = table;
  own.aspect = {255, 17, 65535};
  SpsEdit other;
  other.aspect = {17, 65535};
  Expect(Codec::kH264, H264Set(table), other, H264Set(own));
  Expect(Codec::kHevc, HevcSet(table), other, HevcSet(own));
  Expect(Codec::kHevc, HevcSet(own), edit, HevcSet(table));
  // 0:0 says that nobody knows, which a set without the element says too.
  other.aspect = {0, 0};
  EXPECT_EQ(EditSps(Codec::kH264, H264Set(none), other), H264Set(none));
  own.aspect = {0};
  Expect(Codec::kH264, H264Set(table), other, H264Set(own));
  other.aspect = {65536, 1};
  EXPECT_FALSE(EditSps(Codec::kH264, H264Set(none), other));
}

TEST(SetValues, LevelAndTier) {
  SpsEdit edit;
  edit.level = 41;
  edit.highTier = true;
  Values before;
  Values after;
  after.level = 41;
  Expect(Codec::kH264, H264Set(before), edit, H264Set(after));
  after.level = 123;
  after.tier = 1;
  before.level = 93;
  Expect(Codec::kHevc, HevcSet(before), edit, HevcSet(after));
  edit.level = 86;
  EXPECT_FALSE(EditSps(Codec::kHevc, HevcSet(before), edit));
}

// Table A-1 and clause A.3.4 of H.264: 1b is level_idc 11 with constraint_set3_flag in the Baseline, Main and
// Extended profiles, and level_idc 9 in High.
TEST(SetValues, Level1bGoesByTheProfile) {
  SpsEdit to1b;
  to1b.level = 9;
  SpsEdit to11;
  to11.level = 11;
  const auto set = [](uint64_t profile, uint64_t level, uint64_t constraint3) {
    Values values;
    values.profile = profile;
    values.level = level;
    values.constraint3 = constraint3;
    return H264Set(values);
  };
  Expect(Codec::kH264, set(77, 31, 0), to1b, set(77, 11, 1));
  Expect(Codec::kH264, set(77, 11, 1), to11, set(77, 11, 0));
  Expect(Codec::kH264, set(100, 31, 0), to1b, set(100, 9, 0));
  Expect(Codec::kH264, set(100, 9, 1), to11, set(100, 11, 1));
  SpsEdit to2;
  to2.level = 20;
  Expect(Codec::kH264, set(66, 11, 1), to2, set(66, 20, 0));
}

TEST(SetValues, TimingCountsTwoTicksAFrameInH264) {
  SpsEdit edit;
  edit.timing = {30000, 1001, {}};
  Values none;
  Values h264;
  h264.vui = true;
  h264.timing = {1001, 60000, 0};
  Expect(Codec::kH264, H264Set(none), edit, H264Set(h264));
  edit.timing->fixed = true;
  Values fixed = h264;
  fixed.timing[2] = 1;
  Expect(Codec::kH264, H264Set(h264), edit, H264Set(fixed));
  edit.timing = {25, 1, {}};  // the flag stays
  Values slower = fixed;
  slower.timing = {1, 50, 1};
  Expect(Codec::kH264, H264Set(fixed), edit, H264Set(slower));

  Values hevc;
  hevc.vui = true;
  hevc.timing = {1, 25};
  Expect(Codec::kHevc, HevcSet(none), edit, HevcSet(hevc));
  Values empty;
  empty.vui = true;
  Expect(Codec::kHevc, HevcSet(empty), edit, HevcSet(hevc));
  Values other = hevc;
  other.timing = {1001, 24000};
  Expect(Codec::kHevc, HevcSet(other, true), edit, HevcSet(hevc, true));  // what stands behind it stays
  edit.timing = {0x80000000, 1, {}};
  EXPECT_FALSE(EditSps(Codec::kH264, H264Set(none), edit));
  EXPECT_TRUE(EditSps(Codec::kHevc, HevcSet(none), edit));
  edit.timing = {25, 0, {}};
  EXPECT_FALSE(EditSps(Codec::kHevc, HevcSet(none), edit));
}

TEST(SetValues, ChromaLocationOfBothFields) {
  SpsEdit edit;
  edit.chromaLocation = 2;
  Values none;
  Values after;
  after.vui = true;
  after.chroma = {2, 2};
  Expect(Codec::kH264, H264Set(none), edit, H264Set(after));
  Values uneven = after;
  uneven.chroma = {2, 3};
  Expect(Codec::kH264, H264Set(uneven), edit, H264Set(after));
  Expect(Codec::kHevc, HevcSet(uneven), edit, HevcSet(after));
  edit.chromaLocation = 6;
  EXPECT_FALSE(EditSps(Codec::kHevc, HevcSet(none), edit));
}

TEST(SetValues, CroppingGoesByWholeSteps) {
  SpsEdit edit;
  edit.cropping = {2, 4, 0, 8};
  Values none;
  Values h264;
  h264.cropped = true;
  h264.crop = {1, 2, 0, 2};  // two samples, and four lines as there are fields
  Expect(Codec::kH264, H264Set(none), edit, H264Set(h264));
  Values hevc = h264;
  hevc.crop = {1, 2, 0, 4};
  Expect(Codec::kHevc, HevcSet(none), edit, HevcSet(hevc));
  SpsEdit whole;
  whole.cropping = Cropping{};
  Expect(Codec::kH264, H264Set(h264), whole, H264Set(none));
  Expect(Codec::kHevc, HevcSet(hevc), whole, HevcSet(none));
  for (const Cropping& wrong : {Cropping{1, 0, 0, 0}, Cropping{0, 0, 0, 3}, Cropping{64, 64, 0, 0},
                                Cropping{0, 0, 96, 0}, Cropping{0xFFFFFFFE, 2, 0, 0}}) {
    edit.cropping = wrong;
    EXPECT_FALSE(EditSps(Codec::kHevc, HevcSet(none), edit));
  }
  edit.cropping = {0, 0, 2, 2};
  EXPECT_FALSE(EditSps(Codec::kH264, H264Set(none), edit));
}

TEST(SetValues, EverythingAtOnceInFullSets) {
  SpsEdit edit;
  edit.aspect = {1, 1};
  edit.level = 51;
  edit.timing = {50, 1, false};
  edit.chromaLocation = 4;
  edit.cropping = {3, 5, 4, 2};
  edit.colour = {1, 1, 1};
  edit.highTier = false;
  for (const Codec codec : {Codec::kH264, Codec::kHevc}) {
    const Bytes set = (codec == Codec::kH264 ? H264FullSps() : HevcFullSps()).unit();
    const Bytes edited = EditSps(codec, set, edit).value();
    EXPECT_TRUE(ListSetElements(codec, edited).whole());
    SpsFacts expected = ReadSpsFacts(codec, set).value();
    expected.aspectRatioIdc = 1;
    expected.sarWidth = expected.sarHeight = 0;
    expected.level = codec == Codec::kH264 ? 51 : 153;
    expected.numUnitsInTick = 1;
    expected.timeScale = codec == Codec::kH264 ? 100 : 50;
    expected.h264.fixedFrameRate = false;
    expected.chromaLocation = expected.chromaLocBottom = 4;
    expected.cropping = *edit.cropping;
    expected.width = 120;
    expected.height = 90;
    expected.colour = edit.colour;
    expected.hevc.highTier = false;
    EXPECT_EQ(ReadSpsFacts(codec, edited), expected);
  }
}

TEST(SetValues, AVpsTakesLevelTierAndTiming) {
  SpsEdit edit;
  edit.level = 51;
  edit.highTier = false;
  edit.timing = {24000, 1001, {}};
  const SetElements set = ListSetElements(Codec::kHevc, EditVps(HevcVps().unit(), edit).value());
  std::vector<ElementLine> expected = HevcVps().lines();
  for (ElementLine& line : expected) {
    if (line.name == "general_level_idc") line.value = 153;
    if (line.name == "general_tier_flag") line.value = 0;
    if (line.name == "vps_num_units_in_tick") line.value = 1001;
    if (line.name == "vps_time_scale") line.value = 24000;
  }
  EXPECT_EQ(LinesOf(set), expected);
  // The profiles of the extension stay, and a VPS without timing gets none.
  const Bytes layers = EditVps(HevcLayersVps().unit(), edit).value();
  expected = HevcLayersVps().lines();
  for (const char* name : {"general_level_idc", "general_tier_flag"}) {
    const auto first = std::find_if(expected.begin(), expected.end(),
                                    [name](const ElementLine& line) { return line.name == name; });
    first->value = std::string(name) == "general_level_idc" ? 153 : 0;
  }
  EXPECT_EQ(LinesOf(ListSetElements(Codec::kHevc, layers)), expected);
}

}  // namespace
}  // namespace qlnmedia
