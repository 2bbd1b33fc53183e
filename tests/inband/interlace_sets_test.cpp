// The interlace rewrite of parameter sets: source flags, VUI, window, colour, and sets that cannot be read or
// written.

#include <gtest/gtest.h>

#include "hevc/unit_builders.h"
#include "inband/interlace_support.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escaped;
using test::Join;
using test::kInterlaced;
using test::kInterSlice;
using test::kProgressive;
using test::MessageCapture;
using test::PpsUnit;
using test::Result;
using test::Rewrite;
using test::Situation;
using test::Sps;
using test::SpsForm;
using test::SpsOf;
using test::SpsParts;
using test::TimeCode;
using test::Timing;
using test::Vps;
using test::VpsOf;
using test::VpsUnit;
using test::WithStartCode;

TEST(SetFrameInterlaced, ClearsThePackingConstraint) {
  constexpr uint64_t kNonPacked = 0x200000000000;
  EXPECT_EQ(Rewrite(SpsOf({.constraints = kProgressive | kNonPacked})).frame, SpsOf({.fieldInfo = 1}));
  const Bytes bytes = SpsOf({.constraints = kProgressive | kNonPacked});
  EXPECT_EQ(Rewrite(bytes, {.secondField = static_cast<int>(bytes.size())}).frame,
            SpsOf({.constraints = kInterlaced, .sar = true, .fieldSeq = 1, .fieldInfo = 1}));
}

TEST(SetFrameInterlaced, TakesHrdParametersOut) {
  EXPECT_EQ(Rewrite(SpsOf({.hrd = true})).frame, SpsOf({.fieldInfo = 1, .timing = true}));
}

TEST(SetFrameInterlaced, WritesTheLastSetWhereAReadIsRefused) {
  const Bytes vps = Escaped(Vps(VpsOf(kInterlaced)));
  const Bytes out = Rewrite(Join({WithStartCode(vps), WithStartCode(vps, 3)})).frame;
  EXPECT_EQ(out, Join({WithStartCode(vps), WithStartCode(vps, 3)}));
}

TEST(SetFrameInterlaced, KeepsAnInterlacedSource) {
  const SpsForm sps{.constraints = kInterlaced, .height = 544};
  const Bytes first = Join({VpsUnit(kInterlaced), SpsOf(sps), kInterSlice});
  const Result result = Rewrite(Join({first, kInterSlice}), {.secondField = static_cast<int>(first.size())});
  EXPECT_EQ(result.frame, Join({VpsUnit(kInterlaced), SpsOf(sps), Timing(11, 0), TimeCode(), kInterSlice,
                                Timing(10, 0), TimeCode(), kInterSlice}));
  // All eight settings of the other three source flags: what a rewrite gives is among them.
  for (uint64_t others = 0; others < 8; ++others) {
    const uint64_t constraints = others << 44;
    const Bytes sets = Join({VpsUnit(constraints), SpsOf({.constraints = constraints, .height = 544})});
    EXPECT_EQ(Rewrite(sets, {.secondField = static_cast<int>(sets.size())}).frame, sets) << others;
  }
}

TEST(SetFrameInterlaced, ChangesTheFlagsOfAProgressiveVpsOnly) {
  // Progressive, interlaced and frame-only become 0, 1 and 0; the packing constraint stays in a VPS.
  for (uint64_t others = 0; others < 8; ++others) {
    const Bytes vps = VpsUnit(0x800000000000 | others << 44);
    const uint64_t nonPacked = others << 44 & 0x200000000000;
    EXPECT_EQ(Rewrite(vps, {.secondField = static_cast<int>(vps.size())}).frame,
              VpsUnit(kInterlaced | nonPacked))
        << others;
    EXPECT_EQ(Rewrite(vps).frame, vps) << others;
  }
}

// A set that the writer has no room for goes on as it came.
TEST(SetFrameInterlaced, CopiesASetThatCannotBeWritten) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(64);
    for (int set = 0; set < 64; ++set) {
      if (set > 0) b.u(1, 0);
      b.ue(16).ue(16);
      for (int i = 0; i < 32; ++i) b.ue(1000).u(1, 1);
    }
  };
  const Bytes sps = WithStartCode(Escaped(Sps(parts)));
  ASSERT_GT(sps.size(), 2 * size_t{QLN_HEVC_UNIT_SIZE});
  EXPECT_EQ(Rewrite(Join({sps, kInterSlice})).frame, Join({sps, Timing(0, 1), TimeCode(), kInterSlice}));
  const Bytes shortCode(sps.begin() + 1, sps.end());
  EXPECT_EQ(Rewrite(Join({sps, shortCode})).frame, Join({sps, shortCode}));
}

TEST(SetFrameInterlaced, GivesTheWindowTo1920By544Only) {
  const auto fieldSps = [](const SpsForm& form) {
    const Bytes bytes = Join({SpsOf(form), kInterSlice});
    const Result result = Rewrite(bytes, {.secondField = static_cast<int>(bytes.size())});
    const Bytes tail = Join({Timing(11, 0), TimeCode(), kInterSlice});
    return Bytes(result.frame.begin(), result.frame.end() - static_cast<std::ptrdiff_t>(tail.size()));
  };
  SpsForm after{
      .constraints = kInterlaced, .height = 544, .sar = true, .fieldSeq = 1, .fieldInfo = 1, .window = 4};
  EXPECT_EQ(fieldSps({.height = 544, .window = 4}), SpsOf(after));
  after.window = -1;
  after.height = 540;
  EXPECT_EQ(fieldSps({.height = 540}), SpsOf(after));
  after.width = 1440;
  after.height = 544;
  EXPECT_EQ(fieldSps({.width = 1440, .height = 544}), SpsOf(after));
}

TEST(SetFrameInterlaced, WritesAWholeVuiAndWindowForFields) {
  // An SPS without VUI gets one, and of the window of an SPS in front nothing is left.
  const Bytes bare = SpsOf({.height = 544, .vui = false, .description = false});
  const SpsForm after{
      .constraints = kInterlaced, .height = 544, .sar = true, .fieldSeq = 1, .fieldInfo = 1, .window = 2};
  EXPECT_EQ(Rewrite(bare, {.secondField = static_cast<int>(bare.size())}).frame, SpsOf(after));
  SpsParts parts;
  parts.window = [](BitBuilder& b) { b.u(1, 1).ue(1).ue(2).ue(3).ue(4); };
  const Bytes windowed = WithStartCode(Escaped(Sps(parts)));
  const Bytes both = Join({windowed, bare});
  const Bytes out = Rewrite(both, {.secondField = static_cast<int>(both.size())}).frame;
  // The description that the first one got by its raster is one for the second, which has none of its own.
  SpsForm second = after;
  second.primaries = second.transfer = second.matrix = 6;
  const Bytes expected = SpsOf(second);
  ASSERT_GT(out.size(), expected.size());
  EXPECT_EQ(Bytes(out.end() - static_cast<std::ptrdiff_t>(expected.size()), out.end()), expected);
}

TEST(SetFrameInterlaced, SuppliesColourByRaster) {
  struct Case {
    uint32_t width, height, depthMinus8, sourceColor, primaries, transfer, matrix;
  };
  const Case cases[] = {
      {720, 576, 0, 0, 5, 5, 5},         {1919, 576, 0, 0, 5, 5, 5},
      {720, 577, 0, 0, 5, 5, 5},         {720, 575, 0, 0, 6, 6, 6},
      {1920, 1080, 0, 0, 1, 1, 1},       {1920, 64, 2, 0, 1, 1, 1},
      {3839, 2160, 2, 0, 1, 1, 1},       {3840, 2160, 2, 0, 9, 14, 9},
      {3840, 2160, 0, 0, 9, 16, 9},      {3840, 2160, 2, 0x20, 9, 16, 9},
      {3840, 2160, 2, 0x2000, 9, 16, 9}, {3840, 2160, 2, 0xFFFFC21F, 9, 14, 9},
      {7680, 4320, 2, 0, 9, 14, 9},
  };
  for (const Case& c : cases) {
    Situation setup;
    setup.host.bit_depth_luma_minus8 = c.depthMinus8;
    setup.sourceColor = c.sourceColor;
    const SpsForm before{.width = c.width, .height = c.height, .vui = false, .description = false};
    const SpsForm after{.width = c.width,
                        .height = c.height,
                        .primaries = c.primaries,
                        .transfer = c.transfer,
                        .matrix = c.matrix,
                        .fieldInfo = 1};
    EXPECT_EQ(Rewrite(SpsOf(before), setup).frame, SpsOf(after)) << c.width << "x" << c.height;
  }
}

TEST(SetFrameInterlaced, ReadsSetsOneByteLateBehind3ByteCodes) {
  // 00 00 01 and then a set: the reader begins at the second header byte and refuses; what the zeroed record
  // holds is written behind a code of the same length.
  const Bytes vps = Escaped(Vps());
  const Result result = Rewrite(Join({WithStartCode(vps, 3), kInterSlice}));
  ASSERT_FALSE(result.messages.empty());
  EXPECT_EQ(result.messages[0].substr(0, 13), "Not a vps NAL");
  EXPECT_EQ(test::ToHex(result.frame.data(), 5), "00 00 01 40 01");
  // The unit may be the last one: no byte behind the frame is looked at.
  EXPECT_EQ(Rewrite(WithStartCode(vps, 3)).count, 1u);
}

struct Reading {
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::vector<std::string> messages;
};

// One set behind a start code of four bytes, as the library's own readers take it.
Reading Read(const Bytes& unit) {
  Reading reading;
  HevcVpsRecord vps{};
  HevcPpsRecord pps{};
  test::ExactCopy copy(Bytes(unit.begin() + 4, unit.end()));
  const auto size = static_cast<uint32_t>(copy.size());
  QLNBitState state{copy.data(), static_cast<int32_t>(size), size * 8, 0};
  MessageCapture capture;
  const uint32_t type = unit[4] >> 1 & 63u;
  if (type == 32) qlnutilRead_HEVC_VPS(&state, &vps, nullptr, 0);
  if (type == 33) qlnutilRead_HEVC_SPS(&state, reading.sps.get(), nullptr, 0);
  if (type == 34) qlnutilRead_HEVC_PPS(&state, &pps, nullptr, 0);
  reading.messages = capture.texts();
  return reading;
}

// Each set is read twice, as it came and as it was written, and what the second reading says is heard as
// well.
TEST(SetFrameInterlaced, SaysWhatBothReadingsSay) {
  size_t said = 0;
  for (const Bytes& whole : {VpsUnit(kProgressive), SpsOf({}), PpsUnit()}) {
    for (size_t size = 8; size <= whole.size(); ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      if (cut.back() == 0) continue;  // no part of a unit
      const Result result = Rewrite(cut);
      std::vector<std::string> expected = Read(cut).messages;
      const std::vector<std::string> second = Read(result.frame).messages;
      said += second.size();
      expected.insert(expected.end(), second.begin(), second.end());
      EXPECT_EQ(result.messages, expected) << test::ToHex(cut);
    }
  }
  EXPECT_GT(said, 0u);
}

// colour_description_present_flag of an SPS that is cut off in front of it is read as all ones: not 0, so
// that no colour is supplied.
TEST(SetFrameInterlaced, SuppliesNoColourWhereTheFlagIsBehindTheEnd) {
  int behind = 0;
  for (const SpsForm& form :
       {SpsForm{}, SpsForm{.window = 4}, SpsForm{.width = 1440}, SpsForm{.window = 1}}) {
    const Bytes whole = SpsOf(form);
    for (size_t size = 8; size < whole.size(); ++size) {
      const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      if (cut.back() == 0) continue;
      const Reading before = Read(cut);
      if (before.sps->colour_description_present_flag != 0xFFFFFFFFu) continue;
      ++behind;
      const Reading after = Read(Rewrite(cut).frame);
      EXPECT_EQ(after.sps->colour_description_present_flag, 1u) << size;
      EXPECT_EQ(after.sps->colour_primaries, 0xFFu) << size;
      EXPECT_EQ(after.sps->matrix_coeffs, 0xFFu) << size;
    }
  }
  EXPECT_GT(behind, 0);
}

}  // namespace
}  // namespace qln
