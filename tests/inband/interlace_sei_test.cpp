// The SEI that the interlace rewrite puts in front of slices: colour, and picture timing with the delays of
// the source.

#include <gtest/gtest.h>

#include "hevc/unit_builders.h"
#include "inband/interlace_support.h"
#include "inband/test_frame.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escaped;
using test::Hex;
using test::Host;
using test::Join;
using test::kInterSlice;
using test::Rewrite;
using test::Situation;
using test::TestFrame;
using test::TimeCode;
using test::Timing;
using test::WithStartCode;

const Bytes kSlice = WithStartCode(Hex("26 01 AF 09 40 F3 28"));

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

}  // namespace
}  // namespace qln
