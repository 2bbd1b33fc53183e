// The interlace rewrite: what becomes of every unit, the SEI in front of slices, fields, and a full
// destination.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"
#include "inband/test_frame.h"
#include "qlnutil/inband/hevc_timing_sei.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escaped;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::PpsParts;
using test::Sps;
using test::SpsParts;
using test::TestFrame;
using test::Vps;
using test::VpsParts;
using test::WithStartCode;
using testing::IsEmpty;

const Bytes kAud = WithStartCode(Hex("46 01 50"));
const Bytes kSlice = WithStartCode(Hex("26 01 AF 09 40 F3 28"));
const Bytes kInterSlice = WithStartCode(Hex("02 01 D0 11 22 33 44"));

// Source flags of the profile: progressive, interlaced, non-packed, frame-only in the four top bits of 48.
constexpr uint64_t kProgressive = 0x900000000000;
constexpr uint64_t kInterlaced = 0x400000000000;

VpsParts VpsOf(uint64_t constraints) {
  VpsParts parts;
  parts.profile.constraints = constraints;
  return parts;
}

struct SpsForm {
  uint64_t constraints = kProgressive;
  uint32_t width = 1920, height = 1080;
  bool vui = true;
  bool sar = false;  // 1:2, extended
  bool description = true;
  uint32_t primaries = 1, transfer = 1, matrix = 1;
  uint32_t fieldSeq = 0, fieldInfo = 0;
  int window = -1;  // bottom offset, -1 for no window
  bool hrd = false, timing = false;
};

Bytes SpsOf(const SpsForm& form) {
  SpsParts parts;
  parts.profile.constraints = form.constraints;
  parts.width = form.width;
  parts.height = form.height;
  parts.window = [=](BitBuilder& b) {
    b.u(1, form.window >= 0 ? 1 : 0);
    if (form.window >= 0) b.ue(0).ue(0).ue(0).ue(static_cast<uint32_t>(form.window));
  };
  parts.vui = [=](BitBuilder& b) {
    b.u(1, form.vui ? 1 : 0);
    if (!form.vui) return;
    b.u(1, form.sar ? 1 : 0);
    if (form.sar) b.u(8, 255).u(16, 1).u(16, 2);
    b.u(1, 0).u(1, form.description ? 1 : 0);
    if (form.description)
      b.u(3, 0).u(1, 0).u(1, 1).u(8, form.primaries).u(8, form.transfer).u(8, form.matrix);
    b.u(1, 0).u(1, 0).u(1, form.fieldSeq).u(1, form.fieldInfo).u(1, 0);
    b.u(1, form.hrd || form.timing ? 1 : 0);
    if (form.hrd || form.timing) {
      b.u(32, 0x11111111).u(32, 0x22222222).u(1, 0).u(1, form.hrd ? 1 : 0);
      // nal and vcl, sub-picture, scales, lengths; one fixed-rate sub-layer with one buffer each.
      if (form.hrd) {
        b.u(2, 3).u(1, 0).u(4, 1).u(4, 2).u(5, 23).u(5, 15).u(5, 7).u(1, 1).ue(0).ue(0);
        for (int i = 0; i < 2; ++i) b.ue(99).ue(77).u(1, 0);
      }
    }
    b.u(1, 0);
  };
  return WithStartCode(Escaped(Sps(parts)));
}

Bytes VpsUnit(uint64_t constraints) { return WithStartCode(Escaped(Vps(VpsOf(constraints)))); }

Bytes PpsUnit() {
  PpsParts parts;  // offsets without positive values, which do not survive
  return WithStartCode(Escaped(test::Pps(parts)));
}

HevcSpsRecord Host() {
  HevcSpsRecord sps = {};
  sps.frame_field_info_present_flag = 1;
  sps.vui_time_scale = 25;
  sps.vui_num_units_in_tick = 1;
  sps.transfer_characteristics = 1;
  return sps;
}

struct Result {
  uint32_t count;
  Bytes frame;
  uint32_t secondFieldOffset;
  std::vector<std::string> messages;
};

struct Situation {
  HevcSpsRecord host = Host();
  int secondField = -1;              // offset of the second field, -1 for a frame of one
  uint32_t fieldFlags = 0x60000;     // of the source, where there is one
  uint32_t frameType = 0x80000000u;  // of the destination
  uint32_t sourceColor = 0, destinationColor = 0;
  uint32_t capacity = 0;  // told for the destination; 0 trusts it
};

Result Rewrite(const Bytes& bytes, const Situation& setup = {}) {
  TestFrame source(bytes, bytes.size());
  source->timeCodeA = 77;
  source->colorFlags = setup.sourceColor;
  if (setup.secondField >= 0) {
    source->fieldFlags = setup.fieldFlags;
    source->secondFieldOffset = static_cast<uint32_t>(setup.secondField);
  }
  TestFrame destination({}, setup.capacity != 0 ? setup.capacity : bytes.size() + 400);
  destination->frameCapacity = setup.capacity;
  destination->timeCodeA = 26;
  destination->frameType = setup.frameType;
  destination->colorFlags = setup.destinationColor;
  destination->secondFieldOffset = 0xABCD;
  MessageCapture capture;
  const uint32_t count = qlnutilSetFrameInterlaced(source.get(), destination.get(), &setup.host, 5);
  EXPECT_EQ(source.bytes(), bytes);
  return {count, destination.bytes(), destination->secondFieldOffset, capture.texts()};
}

// pic_timing without HRD, and the timecode 26 at 25 of the destination.
Bytes Timing(uint32_t picStruct, uint32_t scanType) {
  BitBuilder bits;
  bits.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 1).u(4, picStruct).u(2, scanType).u(1, 0).trailing().trailing();
  return bits.bytes();
}

Bytes TimeCode() {
  BitBuilder bits;
  bits.u(2, 1)
      .u(1, 1)
      .u(1, 0)
      .u(5, 0)
      .u(1, 1)
      .u(1, 0)
      .u(1, 0)
      .u(9, 1)
      .u(6, 1)
      .u(6, 0)
      .u(5, 0)
      .u(5, 0)
      .trailing();
  Bytes payload = bits.bytes();
  payload.push_back(0x80);
  return Join({Hex("00 00 00 01"), Escaped(Join({Hex("4E 01 88 06"), payload}))});
}

TEST(SetFrameInterlaced, WritesAProgressiveFrame) {
  const SpsForm before{.constraints = kInterlaced, .fieldSeq = 1};
  const SpsForm after{.constraints = kProgressive, .fieldInfo = 1};
  const Result result =
      Rewrite(Join({kAud, VpsUnit(kInterlaced), SpsOf(before), PpsUnit(), kInterSlice, kInterSlice}));
  EXPECT_EQ(result.count, 6u);
  EXPECT_EQ(result.frame, Join({kAud, VpsUnit(kInterlaced), SpsOf(after), PpsUnit(), Timing(0, 1), TimeCode(),
                                kInterSlice, kInterSlice}));
  EXPECT_EQ(result.secondFieldOffset, 0xABCDu);
  EXPECT_THAT(result.messages, IsEmpty());
}

TEST(SetFrameInterlaced, WritesFields) {
  const SpsForm before{.height = 544};
  const SpsForm after{
      .constraints = kInterlaced, .height = 544, .sar = true, .fieldSeq = 1, .fieldInfo = 1, .window = 2};
  const Bytes first = Join({kAud, VpsUnit(kProgressive), SpsOf(before), PpsUnit(), kInterSlice});
  const Bytes second = Join({kInterSlice, kInterSlice});
  const Result result = Rewrite(Join({first, second}), {.secondField = static_cast<int>(first.size())});
  const Bytes firstOut =
      Join({kAud, VpsUnit(kInterlaced), SpsOf(after), PpsUnit(), Timing(11, 0), TimeCode(), kInterSlice});
  EXPECT_EQ(result.frame, Join({firstOut, Timing(10, 0), TimeCode(), kInterSlice, kInterSlice}));
  EXPECT_EQ(result.secondFieldOffset, firstOut.size());
  EXPECT_EQ(result.count, 7u);
}

TEST(SetFrameInterlaced, TakesBothBitsForTwoFields) {
  const Bytes bytes = Join({VpsUnit(kProgressive), SpsOf({}), kInterSlice, kInterSlice});
  for (const uint32_t flags : {0x20000u, 0x40000u, 0xFFF9FFFFu}) {
    Situation setup;
    setup.secondField = 11;
    setup.fieldFlags = flags;
    const Result result = Rewrite(bytes, setup);
    EXPECT_EQ(result.frame, Join({VpsUnit(kProgressive), SpsOf({.fieldInfo = 1}), Timing(0, 1), TimeCode(),
                                  kInterSlice, kInterSlice}));
    EXPECT_EQ(result.secondFieldOffset, 0xABCDu);
  }
}

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

TEST(SetFrameInterlaced, CopiesWhatStandsInFrontOfAStartCode) {
  // At the front of a pass, and as zero bytes between units; the type is that of the unit that is found.
  const Bytes timing = Join({Timing(0, 1), TimeCode()});
  EXPECT_EQ(Rewrite(Join({Hex("11 22 33"), kAud, kInterSlice})).frame,
            Join({Hex("11 22 33"), kAud, timing, kInterSlice}));
  EXPECT_EQ(Rewrite(Join({Hex("11 22 33"), kInterSlice})).frame,
            Join({timing, Hex("11 22 33"), kInterSlice}));
  EXPECT_EQ(Rewrite(Join({Hex("00"), kAud, Hex("00"), kInterSlice, Hex("00 00"), kInterSlice})).frame,
            Join({Hex("00"), kAud, timing, Hex("00"), kInterSlice, Hex("00 00"), kInterSlice}));
  // A set is written anew, so that what stands in front of it does not come along; a prefix SEI is read.
  EXPECT_EQ(
      Rewrite(Join({Hex("00"), VpsUnit(kProgressive), Hex("00"), SpsOf({}), Hex("00"), PpsUnit()})).frame,
      Join({VpsUnit(kProgressive), SpsOf({.fieldInfo = 1}), PpsUnit()}));
  EXPECT_EQ(Rewrite(Join({Hex("55"), VpsUnit(kProgressive)})).frame, VpsUnit(kProgressive));
  // What only looks like a start code of three bytes is none: no zero byte goes in front of the slice.
  const Bytes slice = WithStartCode(Hex("02 01 D0 11 22 33 44"), 3);
  for (const Bytes& front : {Hex("00 05 01"), Hex("05 00 01"), Hex("00 00 05")}) {
    EXPECT_EQ(Rewrite(Join({front, slice})).frame, Join({timing, front, slice}));
  }
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

TEST(SetFrameInterlaced, BeginsAnewInADestinationThatHoldsBytes) {
  const HevcSpsRecord host = Host();
  TestFrame source(kAud, kAud.size());
  TestFrame destination(Hex("11 22 33"), 100);
  EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 1u);
  EXPECT_EQ(destination.bytes(), kAud);
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

TEST(SetFrameInterlaced, DropsEverythingElse) {
  Bytes all, kept;
  for (int type = 0; type < 64; ++type) {
    if (type >= 32 && type <= 34) continue;
    const Bytes unit = WithStartCode({static_cast<uint8_t>(type << 1), 0x01, 0xAF, 0x11});
    all = Join({all, unit});
    if (type == 0) kept = Join({kept, Timing(0, 1), TimeCode()});
    if (type <= 9 || (type >= 16 && type <= 21) || type == 35) kept = Join({kept, unit});
  }
  const Result result = Rewrite(all);
  EXPECT_EQ(result.count, 61u);
  EXPECT_EQ(result.frame, kept);
}

TEST(SetFrameInterlaced, KeepsADelimiterAndMakesNone) {
  EXPECT_EQ(Rewrite(Join({kAud, kInterSlice})).frame, Join({kAud, Timing(0, 1), TimeCode(), kInterSlice}));
  EXPECT_EQ(Rewrite(kInterSlice).frame, Join({Timing(0, 1), TimeCode(), kInterSlice}));
}

TEST(SetFrameInterlaced, GivesSlices4ByteStartCodes) {
  const Bytes slice = Hex("02 01 D0 11 22 33 44");
  const Bytes aud = WithStartCode(Hex("46 01 50"), 3);
  EXPECT_EQ(Rewrite(Join({aud, WithStartCode(slice, 3), WithStartCode(slice, 3)})).frame,
            Join({aud, Timing(0, 1), TimeCode(), WithStartCode(slice), WithStartCode(slice)}));
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

TEST(SetFrameInterlaced, WritesColourSeiInIntraPictures) {
  const Bytes atc = Hex("00 00 00 01 4E 01 04 08 B5 00 31 44 54 47 31 01 80");
  Situation setup;
  setup.frameType = 0x10000000u;
  EXPECT_EQ(Rewrite(kSlice, setup).frame, Join({Timing(0, 1), TimeCode(), atc, kSlice}));
  // Once a pass.
  const auto cut = static_cast<int>(kSlice.size());
  Situation fields = setup;
  fields.secondField = cut;
  EXPECT_EQ(Rewrite(Join({kSlice, kSlice, kSlice}), fields).frame,
            Join({Timing(11, 0), TimeCode(), atc, kSlice, Timing(10, 0), TimeCode(), atc, kSlice, kSlice}));
  for (const uint32_t type : {0u, 0x20000000u, 0x80000000u, 0xB0000000u}) {
    Situation other = setup;
    other.frameType = type;
    EXPECT_EQ(Rewrite(kSlice, other).frame, Join({Timing(0, 1), TimeCode(), kSlice})) << type;
  }
  Situation withBits = setup;
  withBits.frameType = 0x5FFFFFFFu & ~0xA0000000u;  // bits outside the mask do not count
  EXPECT_EQ(Rewrite(kSlice, withBits).frame, Join({Timing(0, 1), TimeCode(), atc, kSlice}));
  Situation hdr = setup;
  hdr.destinationColor = 0x0020;
  EXPECT_EQ(Rewrite(kSlice, hdr).frame, Join({Timing(0, 1), TimeCode(), kSlice}));
  Situation colour = setup;
  colour.destinationColor = 0xFFFFC21F;
  EXPECT_EQ(Rewrite(kSlice, colour).frame, Join({Timing(0, 1), TimeCode(), atc, kSlice}));
}

TEST(SetFrameInterlaced, WritesMasteringDisplayForPq) {
  const Bytes atc = Hex("00 00 00 01 4E 01 04 08 B5 00 31 44 54 47 31 01 80");
  // green, blue, red, white; 1000000 and 500 ten-thousandths, the latter with emulation prevention.
  const Bytes mastering =
      Hex("00 00 00 01 4E 01 89 18 21 34 9B AA 19 96 08 FC 8A 48 39 07 3D 12 40 42 00 0F 42 40 00 00 03 01 "
          "F4 80");
  Situation setup;
  setup.frameType = 0x10000000u;
  setup.host.transfer_characteristics = 16;
  EXPECT_EQ(Rewrite(kSlice, setup).frame, Join({Timing(0, 1), TimeCode(), atc, mastering, kSlice}));
  setup.host.transfer_characteristics = 0x10E;  // the low byte goes into the flags, the whole word is not 16
  Bytes flags = atc;
  flags[15] = 0x0F;
  EXPECT_EQ(Rewrite(kSlice, setup).frame, Join({Timing(0, 1), TimeCode(), flags, kSlice}));
}

TEST(SetFrameInterlaced, FillsInTheSourcesDisplay) {
  HevcSpsRecord host = Host();
  host.transfer_characteristics = 16;
  for (const uint32_t flags : {0u, 0xFFFFC21Fu, 0x0DE0u}) {
    const bool none = flags != 0x0DE0u;
    TestFrame source(kSlice, kSlice.size());
    source->colorFlags = flags;
    source->displayPrimaries[0] = 0.5;
    source->maxDisplayLuminance = 7.0;
    TestFrame destination({}, 400);
    destination->frameType = 0x10000000u;
    EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 1u);
    EXPECT_EQ(source->colorFlags, flags);
    EXPECT_EQ(source->displayPrimaries[0], none ? 0.708 : 0.5);
    EXPECT_EQ(source->displayPrimaries[7], none ? 0.329 : 0.0);
    EXPECT_EQ(source->maxDisplayLuminance, none ? 100.0 : 7.0);
    EXPECT_EQ(source->minDisplayLuminance, none ? 0.05 : 0.0);
  }
}

// ---- Delays ----

HevcSpsRecord HrdHost() {
  HevcSpsRecord sps = Host();
  sps.nal_hrd_parameters_present_flag = 1;
  sps.au_cpb_removal_delay_length_minus1 = 23;
  sps.dpb_output_delay_length_minus1 = 15;
  return sps;
}

TEST(SetFrameInterlaced, CarriesTheDelaysOver) {
  BitBuilder timing;
  timing.u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 0).u(3, 2).u(24, 0x123456).u(16, 0x789A).trailing().trailing();
  BitBuilder expected;
  expected.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 0).u(2, 1).u(1, 0).u(24, 0x123456).u(16, 0x789A);
  expected.trailing().trailing();
  Situation setup;
  setup.host = HrdHost();
  EXPECT_EQ(Rewrite(Join({WithStartCode(timing.bytes()), kInterSlice}), setup).frame,
            Join({expected.bytes(), TimeCode(), kInterSlice}));
}

TEST(SetFrameInterlaced, ReadsTheDelaysBehindAZeroByteAndAShortCode) {
  BitBuilder timing;
  timing.u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 0).u(3, 2).u(24, 0x123456).u(16, 0x789A).trailing().trailing();
  BitBuilder expected;
  expected.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 0).u(2, 1).u(1, 0).u(24, 0x123456).u(16, 0x789A);
  expected.trailing().trailing();
  Situation setup;
  setup.host = HrdHost();
  const Bytes out = Join({expected.bytes(), TimeCode(), kInterSlice});
  EXPECT_EQ(Rewrite(Join({Hex("00"), WithStartCode(timing.bytes()), kInterSlice}), setup).frame, out);
  EXPECT_EQ(Rewrite(Join({WithStartCode(timing.bytes(), 3), kInterSlice}), setup).frame, out);
}

TEST(SetFrameInterlaced, KeepsTheDelaysForTheSecondField) {
  BitBuilder timing;
  timing.u(16, 0x4E01).u(8, 1).u(8, 6).u(4, 0).u(3, 2).u(24, 0x123456).u(16, 0x789A).trailing().trailing();
  const auto expected = [](uint32_t picStruct) {
    BitBuilder b;
    b.u(32, 1).u(16, 0x4E01).u(8, 1).u(8, 6).u(4, picStruct).u(3, 0).u(24, 0x123456).u(16, 0x789A);
    return b.trailing().trailing().bytes();
  };
  Situation setup;
  setup.host = HrdHost();
  const Bytes first = Join({WithStartCode(timing.bytes()), kInterSlice});
  setup.secondField = static_cast<int>(first.size());
  EXPECT_EQ(Rewrite(Join({first, kInterSlice}), setup).frame,
            Join({expected(11), TimeCode(), kInterSlice, expected(10), TimeCode(), kInterSlice}));
}

TEST(SetFrameInterlaced, ReadsNoDelaysFromADelimiter) {
  BitBuilder timing;
  timing.u(16, 0x4601).u(8, 1).u(8, 6).u(4, 0).u(3, 2).u(24, 0x123456).u(16, 0x789A).trailing().trailing();
  BitBuilder expected;
  expected.u(32, 1)
      .u(16, 0x4E01)
      .u(8, 1)
      .u(8, 6)
      .u(4, 0)
      .u(2, 1)
      .u(1, 0)
      .u(24, 0)
      .u(16, 0)
      .trailing()
      .trailing();
  Situation setup;
  setup.host = HrdHost();
  const Bytes delimiter = WithStartCode(timing.bytes());
  EXPECT_EQ(Rewrite(Join({delimiter, kInterSlice}), setup).frame,
            Join({delimiter, Hex("00 00 00 01"), Escaped([&] {
                    const Bytes unit = expected.bytes();
                    return Bytes(unit.begin() + 4, unit.end());
                  }()),
                  TimeCode(), kInterSlice}));
}

// ---- The walk and the destination ----

TEST(SetFrameInterlaced, CountsLastBytes) {
  EXPECT_EQ(Rewrite({}).count, 0u);
  EXPECT_EQ(Rewrite(Hex("00")).count, 1u);
  EXPECT_EQ(Rewrite(Hex("00 00 01")).count, 3u);
  EXPECT_TRUE(Rewrite(Hex("00 00 01")).frame.empty());
  EXPECT_EQ(Rewrite(Hex("11 22 33 44")).count, 0u);
  EXPECT_EQ(Rewrite(Join({kAud, Hex("00 00 00")})).count, 1u + 3u);
  // An empty unit ends the pass; one of a byte does not.
  EXPECT_EQ(Rewrite(Join({WithStartCode({}), kInterSlice})).count, 0u);
  EXPECT_EQ(Rewrite(Join({WithStartCode(Hex("46")), kInterSlice})).count, 2u);
}

TEST(SetFrameInterlaced, CutsTheSecondFieldToTheFrame) {
  Situation setup;
  setup.secondField = 1 << 20;
  const Result result = Rewrite(kInterSlice, setup);
  const Bytes out = Join({Timing(11, 0), TimeCode(), kInterSlice});
  EXPECT_EQ(result.frame, out);
  EXPECT_EQ(result.secondFieldOffset, out.size());
  setup.secondField = 0;
  EXPECT_EQ(Rewrite(kInterSlice, setup).frame, Join({Timing(10, 0), TimeCode(), kInterSlice}));
}

TEST(SetFrameInterlaced, LeavesTheSecondFieldsPlaceWhereTheFirstDoesNotFit) {
  const Bytes first = Join({kAud, kInterSlice});
  const Bytes firstOut = Join({kAud, Timing(11, 0), TimeCode(), kInterSlice});
  Situation setup;
  setup.secondField = static_cast<int>(first.size());
  setup.capacity = static_cast<uint32_t>(firstOut.size()) - 1;
  const Result none = Rewrite(Join({first, kInterSlice}), setup);
  EXPECT_EQ(none.secondFieldOffset, 0xABCDu);
  EXPECT_EQ(none.count, 1u);  // the delimiter
  // A first field that fits to the byte has a second one behind it, of which nothing goes in.
  setup.capacity = static_cast<uint32_t>(firstOut.size());
  const Result full = Rewrite(Join({first, kInterSlice}), setup);
  EXPECT_EQ(full.secondFieldOffset, firstOut.size());
  EXPECT_EQ(full.frame, firstOut);
  EXPECT_EQ(full.count, 2u);
}

// A set behind a start code of three bytes is read one byte late. At the end of the first field that byte is
// 0, whatever the second field begins with.
TEST(SetFrameInterlaced, TakesBytesBehindThePassForZeros) {
  Bytes pps = Escaped(test::Pps(PpsParts{}));
  pps.pop_back();
  Bytes withZero = pps;
  withZero.push_back(0);
  const Bytes late =
      Join({Hex("00 00 01 44"), pps});  // the header once more, so that the late reading is one
  const auto written = [](const Bytes& first, const Bytes& second) {
    const Bytes frame = Rewrite(Join({first, second}), {.secondField = static_cast<int>(first.size())}).frame;
    return Bytes(frame.begin(), frame.begin() + std::min<std::ptrdiff_t>(frame.end() - frame.begin(), 12));
  };
  Bytes expected = Rewrite(WithStartCode(withZero)).frame;
  expected.erase(expected.begin());
  expected.resize(12);
  EXPECT_EQ(written(late, Hex("FF FF FF FF")), expected);
  EXPECT_EQ(written(late, {}), expected);
}

TEST(SetFrameInterlaced, StopsInFrontOfAUnitThatDoesNotFit) {
  const Bytes first = Join({kAud, VpsUnit(kProgressive), SpsOf({}), PpsUnit(), kInterSlice});
  const Bytes source = Join({first, kInterSlice});
  Situation setup;
  setup.secondField = static_cast<int>(first.size());
  const Result whole = Rewrite(source, setup);
  // The ends of the units that go in.
  std::vector<size_t> ends = {0};
  for (size_t i = 4; i + 4 <= whole.frame.size(); ++i) {
    if (Bytes(whole.frame.begin() + static_cast<std::ptrdiff_t>(i),
              whole.frame.begin() + static_cast<std::ptrdiff_t>(i + 4)) == Hex("00 00 00 01")) {
      ends.push_back(i);
    }
  }
  ends.push_back(whole.frame.size());
  for (uint32_t capacity = 1; capacity <= whole.frame.size(); ++capacity) {
    setup.capacity = capacity;
    const Result result = Rewrite(source, setup);
    size_t expected = 0;
    for (const size_t end : ends) {
      if (end <= capacity) expected = end;
    }
    ASSERT_EQ(result.frame.size(), expected) << capacity;
    ASSERT_EQ(result.frame,
              Bytes(whole.frame.begin(), whole.frame.begin() + static_cast<std::ptrdiff_t>(expected)));
    ASSERT_LE(result.count, whole.count);
    ASSERT_EQ(result.count == whole.count, capacity == whole.frame.size());
  }
}

TEST(SetFrameInterlaced, TakesNullArguments) {
  const HevcSpsRecord host = Host();
  TestFrame source(kInterSlice, kInterSlice.size());
  TestFrame destination(Hex("11 22"), 400);
  EXPECT_EQ(qlnutilSetFrameInterlaced(nullptr, destination.get(), &host, 0), 0u);
  EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), nullptr, &host, 0), 0u);
  EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), nullptr, 0), 0u);
  uint8_t* const data = source->frameData;
  source->frameData = nullptr;
  EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 0u);
  source->frameData = data;
  EXPECT_EQ(destination.bytes(), Hex("11 22"));
  destination->frameData = nullptr;
  EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 0u);
  EXPECT_EQ(destination->frameSize, 2u);
}

}  // namespace
}  // namespace qln
