// The interlace rewrite: what becomes of every unit, fields, and a full destination.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"
#include "inband/interlace_support.h"
#include "inband/test_frame.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::Escaped;
using test::Hex;
using test::Host;
using test::Join;
using test::kInterlaced;
using test::kInterSlice;
using test::kProgressive;
using test::PpsParts;
using test::PpsUnit;
using test::Result;
using test::Rewrite;
using test::Situation;
using test::SpsForm;
using test::SpsOf;
using test::TestFrame;
using test::TimeCode;
using test::Timing;
using test::VpsUnit;
using test::WithStartCode;
using testing::IsEmpty;

const Bytes kAud = WithStartCode(Hex("46 01 50"));

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

TEST(SetFrameInterlaced, BeginsAnewInADestinationThatHoldsBytes) {
  const HevcSpsRecord host = Host();
  TestFrame source(kAud, kAud.size());
  TestFrame destination(Hex("11 22 33"), 100);
  EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 1u);
  EXPECT_EQ(destination.bytes(), kAud);
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
