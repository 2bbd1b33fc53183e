// Colour codes into the first SPS: what is set, what stays, growing and shrinking units, both frame forms,
// room.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"
#include "inband/sps_bits.h"
#include "inband/test_frame.h"
#include "qlnutil/qlninband.h"
#include "support/long_memory.h"

namespace qln {
namespace {

using test::AvcSps;
using test::BitBuilder;
using test::Bytes;
using test::Escaped;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::Sps;
using test::SpsParts;
using test::TestFrame;
using test::WithLength;
using test::WithStartCode;
using testing::IsEmpty;

constexpr uint32_t kHevc = 0x68766331;
constexpr uint32_t kAvc = 0x61766331;
constexpr uint32_t kXavc = 0x78617663;
constexpr uint32_t kMatrix = 0x04;
constexpr uint32_t kTransfer = 0x08;
constexpr uint32_t kPrimaries = 0x10;

const Bytes kAud = Hex("09 F0");
const Bytes kSlice = Hex("65 88 84 21 A0 55 AA");

struct Result {
  uint32_t replaced;
  Bytes frame;
  std::vector<std::string> messages;
};

Result Rewrite(const Bytes& bytes, uint32_t flags, uint32_t fourcc, size_t room = 100,
               uint32_t fullRange = 0) {
  TestFrame frame(bytes, bytes.size() + room);
  frame->colorFlags = flags;
  frame->colourPrimaries = 9;
  frame->transferCharacteristics = 16;
  frame->matrixCoefficients = 10;
  frame->videoFullRange = fullRange;
  frame->secondFieldOffset = 3;
  MessageCapture capture;
  const uint32_t replaced = qlnutilWriteColorimetryToSPS(frame.get(), fourcc);
  EXPECT_EQ(frame->secondFieldOffset, 3u);
  return {replaced, frame.bytes(), capture.texts()};
}

Bytes AvcFrame(const AvcSps& sps) {
  return Join({WithStartCode(kAud), WithStartCode(sps.Unit()), WithStartCode(kSlice)});
}

AvcSps Described(uint8_t primaries, uint8_t transfer, uint8_t matrix, bool fullRange = false) {
  return {.signalType = true,
          .colourDescription = true,
          .primaries = primaries,
          .transfer = transfer,
          .matrix = matrix,
          .fullRange = fullRange};
}

TEST(WriteColorimetry, SetsWhatIsFlagged) {
  // Described before: the words without a flag keep their values.
  const AvcSps before = Described(1, 6, 5);
  EXPECT_EQ(Rewrite(AvcFrame(before), kTransfer, kAvc).frame, AvcFrame(Described(1, 16, 5)));
  EXPECT_EQ(Rewrite(AvcFrame(before), kPrimaries, kAvc).frame, AvcFrame(Described(9, 6, 5)));
  EXPECT_EQ(Rewrite(AvcFrame(before), kMatrix, kAvc).frame, AvcFrame(Described(1, 6, 10)));
  EXPECT_EQ(Rewrite(AvcFrame(before), 0x1C, kAvc).frame, AvcFrame(Described(9, 16, 10)));
  EXPECT_EQ(Rewrite(AvcFrame(before), 0x1C, kAvc).replaced, 1u);
}

TEST(WriteColorimetry, SetsUnspecifiedWhereNothingWasTold) {
  AvcSps noType = Described(2, 16, 2);
  noType.videoFormat = 0;  // which an SPS without a signal type leaves at 0
  EXPECT_EQ(Rewrite(AvcFrame({}), kTransfer, kAvc).frame, AvcFrame(noType));
  AvcSps primaries = Described(9, 2, 2);
  primaries.videoFormat = 0;
  EXPECT_EQ(Rewrite(AvcFrame({}), kPrimaries, kAvc).frame, AvcFrame(primaries));
  // A signal type without a description keeps its format.
  EXPECT_EQ(Rewrite(AvcFrame({.signalType = true}), kTransfer, kAvc).frame, AvcFrame(Described(2, 16, 2)));
}

TEST(WriteColorimetry, TakesTheRangeFromTheFrame) {
  const AvcSps before = Described(1, 1, 1, true);
  EXPECT_EQ(Rewrite(AvcFrame(before), kPrimaries, kAvc, 100, 0).frame, AvcFrame(Described(9, 1, 1, false)));
  EXPECT_EQ(Rewrite(AvcFrame(before), kPrimaries, kAvc, 100, 3).frame, AvcFrame(Described(9, 1, 1, true)));
  EXPECT_EQ(Rewrite(AvcFrame(before), kPrimaries, kAvc, 100, 2).frame, AvcFrame(Described(9, 1, 1, false)));
}

// A flag that is read behind the unit's end is not 0, so that nothing is taken back to unspecified: the words
// keep what was read there, all ones.
TEST(WriteColorimetry, AFlagBehindTheEndCountsAsSet) {
  // colour_description_present_flag would be bit 65 of 64; the bit at the end itself reads as 0.
  BitBuilder bits;
  bits.u(8, 0x67).u(8, 66).u(8, 0xC0).u(8, 30);
  bits.ue(1).ue(0).ue(2).ue(1).u(1, 0).ue(3).ue(3).u(1, 1).u(1, 1).u(1, 0);
  bits.u(1, 1).u(1, 0).u(1, 1).u(1, 1).u(1, 1).u(3, 5);
  ASSERT_EQ(bits.bits(), 64u);
  BitBuilder expected = bits;
  expected.u(1, 0).u(1, 1).u(8, 0xFF).u(8, 16).u(8, 0xFF);
  for (const bool lengths : {false, true}) {
    const auto framed = [&](const Bytes& unit) { return lengths ? WithLength(unit) : WithStartCode(unit); };
    const Result result = Rewrite(Join({framed(bits.bytes()), framed(kSlice)}), kTransfer, kAvc);
    EXPECT_EQ(result.replaced, 1u);
    ASSERT_GT(result.frame.size(), 4 + 11u);
    const size_t whole = expected.bits() / 8;  // what stands behind them is the reading of no data as well
    EXPECT_EQ(test::ToHex(result.frame.data() + 4, whole), test::ToHex(expected.bytes().data(), whole));
  }
}

TEST(WriteColorimetry, NeedsRoomToGrow) {
  const AvcSps before;
  const auto growth = Described(2, 16, 2).Unit().size() - before.Unit().size();
  ASSERT_GT(growth, 1u);
  for (const bool lengths : {false, true}) {
    const Bytes bytes =
        lengths ? Join({WithLength(kAud), WithLength(before.Unit()), WithLength(kSlice)}) : AvcFrame(before);
    const Result none = Rewrite(bytes, kTransfer, kAvc, growth - 1);
    EXPECT_EQ(none.replaced, 0u);
    EXPECT_EQ(none.frame, bytes);
    EXPECT_THAT(none.messages, IsEmpty());
    EXPECT_EQ(Rewrite(bytes, kTransfer, kAvc, growth).replaced, 1u);
  }
  // One that keeps its size asks for none, not even for what the frame already takes.
  EXPECT_EQ(Rewrite(AvcFrame(Described(1, 1, 1)), kTransfer, kAvc, 0).replaced, 1u);
  for (const bool lengths : {false, true}) {
    const Bytes sps = Described(1, 1, 1).Unit();
    TestFrame frame(Join({lengths ? WithLength(sps) : WithStartCode(sps),
                          lengths ? WithLength(kSlice) : WithStartCode(kSlice)}),
                    60);
    frame->colorFlags = kTransfer;
    frame->transferCharacteristics = 16;
    frame->frameCapacity = 0;
    EXPECT_EQ(qlnutilWriteColorimetryToSPS(frame.get(), kAvc), 1u) << lengths;
  }
  // The smallest frame with something of an SPS has 5 bytes.
  EXPECT_EQ(Rewrite(Hex("00 00 01 67 42"), kTransfer, kAvc, 200).replaced, 1u);
  EXPECT_EQ(Rewrite(Hex("00 00 01 67"), kTransfer, kAvc, 200).replaced, 0u);
}

TEST(WriteColorimetry, TakesInAUnitThatShrinks) {
  // Extension data behind the SPS's own bits is dropped.
  Bytes sps = Described(1, 1, 1).Unit();
  const Bytes padded = Join({sps, Hex("11 22 33 80")});
  EXPECT_EQ(Rewrite(Join({WithStartCode(padded), WithStartCode(kSlice)}), kPrimaries, kAvc, 0).frame,
            Join({WithStartCode(Described(9, 1, 1).Unit()), WithStartCode(kSlice)}));
}

TEST(WriteColorimetry, GivesBackLengthForm) {
  const Bytes before =
      Join({WithLength(kAud), WithLength(AvcSps{.signalType = true}.Unit()), WithLength(kSlice)});
  EXPECT_EQ(Rewrite(before, kTransfer, kAvc).frame,
            Join({WithLength(kAud), WithLength(Described(2, 16, 2).Unit()), WithLength(kSlice)}));
  // A zero length is where the frame ends.
  EXPECT_EQ(Rewrite(Join({before, Hex("00 00 00 00 55 66")}), kTransfer, kAvc).frame,
            Join({WithLength(kAud), WithLength(Described(2, 16, 2).Unit()), WithLength(kSlice)}));
}

TEST(WriteColorimetry, SeesToTheRoomOfTheWayBack) {
  const Bytes sps = Described(1, 1, 1).Unit();
  const Bytes odd = Join({kSlice, Hex("00 00 01 09 10")});
  const Bytes bytes = Join({WithLength(sps), WithLength(odd)});
  const Result none = Rewrite(bytes, kPrimaries, kAvc, 0);
  EXPECT_EQ(none.replaced, 0u);
  EXPECT_EQ(none.frame, bytes);
  EXPECT_THAT(none.messages, IsEmpty());
  const Result some = Rewrite(bytes, kPrimaries, kAvc, 1);
  EXPECT_EQ(some.replaced, 1u);
  EXPECT_EQ(some.frame,
            Join({WithLength(Described(9, 1, 1).Unit()), WithLength(kSlice), WithLength(Hex("09 10"))}));
}

TEST(WriteColorimetry, TakesTheFirstSpsOnly) {
  const Bytes sps = WithStartCode(Described(1, 1, 1).Unit());
  const Bytes changed = WithStartCode(Described(9, 1, 1).Unit());
  EXPECT_EQ(Rewrite(Join({sps, sps, WithStartCode(kSlice)}), kPrimaries, kAvc).frame,
            Join({changed, sps, WithStartCode(kSlice)}));
  // A 3-byte start code stays one.
  const Bytes shortCode = WithStartCode(Described(1, 1, 1).Unit(), 3);
  EXPECT_EQ(Rewrite(Join({shortCode, WithStartCode(kSlice, 3)}), kPrimaries, kAvc).frame,
            Join({WithStartCode(Described(9, 1, 1).Unit(), 3), WithStartCode(kSlice, 3)}));
}

// The bits around the type do not count: nal_ref_idc and the forbidden bit, or the layer's highest bit.
TEST(WriteColorimetry, KnowsAnSpsByItsTypeAlone) {
  for (int first = 0; first < 256; ++first) {
    const auto header = static_cast<uint8_t>(first);
    Bytes avc = Described(1, 1, 1).Unit();
    avc[0] = header;
    if (header != 0) {
      EXPECT_EQ(Rewrite(Join({WithStartCode(avc), WithStartCode(kSlice)}), kPrimaries, kAvc).replaced,
                (first & 31) == 7 ? 1u : 0u)
          << first;
    }
    Bytes hevc = Escaped(Sps(SpsParts{}));
    hevc[0] = header;
    if (header != 0) {
      EXPECT_EQ(Rewrite(Join({WithStartCode(hevc), WithStartCode(kSlice)}), kPrimaries, kHevc).replaced,
                (first & 0x7E) == 66 ? 1u : 0u)
          << first;
    }
  }
}

// A writer that gives nothing leaves the unit where it is.
TEST(WriteColorimetry, LeavesAnSpsThatCannotBeWritten) {
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) {
    b.ue(64);
    for (int set = 0; set < 64; ++set) {
      if (set > 0) b.u(1, 0);
      b.ue(16).ue(16);
      for (int i = 0; i < 32; ++i) b.ue(1000).u(1, 1);
    }
  };
  // An order count cycle of 200,000 offsets, none of which is there.
  BitBuilder cycle;
  cycle.u(8, 0x67).u(8, 66).u(8, 0xC0).u(8, 30).ue(0).ue(0).ue(1).u(1, 0).se(0).se(0).ue(200000).trailing();
  const Bytes avc = test::Escaped(cycle.bytes());
  for (const bool lengths : {false, true}) {
    const auto framed = [&](const Bytes& unit) { return lengths ? WithLength(unit) : WithStartCode(unit); };
    const Bytes hevcFrame = Join({framed(Escaped(Sps(parts))), framed(kSlice)});
    const Result hevc = Rewrite(hevcFrame, kPrimaries, kHevc, 20000);
    EXPECT_EQ(hevc.replaced, 0u);
    EXPECT_EQ(hevc.frame, hevcFrame);
    const Bytes avcFrame = Join({framed(avc), framed(kSlice)});
    const Result result = Rewrite(avcFrame, kPrimaries, kAvc, 20000);
    EXPECT_EQ(result.replaced, 0u);
    EXPECT_EQ(result.frame, avcFrame);
  }
}

TEST(WriteColorimetry, RefusesWithoutTouching) {
  const Bytes bytes = AvcFrame(Described(1, 1, 1));
  for (const uint32_t flags : {0u, 0x3DE0u, 0xFFFFFFE3u}) {
    EXPECT_EQ(Rewrite(bytes, flags, kAvc).replaced, 0u);
    EXPECT_EQ(Rewrite(bytes, flags, kAvc).frame, bytes);
  }
  EXPECT_EQ(Rewrite(bytes, 0x1C, 0x6A706567).replaced, 0u);
  EXPECT_EQ(Rewrite(bytes, 0x1C, kXavc).replaced, 1u);
  EXPECT_EQ(Rewrite(WithStartCode(kSlice), 0x1C, kAvc).replaced, 0u);
  EXPECT_EQ(Rewrite(WithLength(kSlice), 0x1C, kAvc).frame, WithLength(kSlice));
  EXPECT_EQ(Rewrite(bytes, 0x1C, kHevc).frame, bytes);  // no HEVC SPS in it
  EXPECT_EQ(Rewrite(Hex("00 00 01 67"), 0x1C, kAvc).replaced, 0u);
  EXPECT_EQ(qlnutilWriteColorimetryToSPS(nullptr, kAvc), 0u);
  TestFrame frame(bytes, 100);
  frame->colorFlags = 0x1C;
  frame->frameData = nullptr;
  EXPECT_EQ(qlnutilWriteColorimetryToSPS(frame.get(), kAvc), 0u);
}

// ---- HEVC ----

SpsParts HevcSps(uint32_t description, uint32_t primaries = 0, uint32_t transfer = 0, uint32_t matrix = 0,
                 uint32_t format = 5) {
  SpsParts parts;
  parts.vui = [=](BitBuilder& b) {
    b.u(1, 1).u(1, 0).u(1, 0).u(1, 1).u(3, format).u(1, 0).u(1, description);
    if (description != 0) b.u(8, primaries).u(8, transfer).u(8, matrix);
    b.u(1, 0).u(3, 0).u(1, 0).u(1, 0).u(1, 0);
  };
  return parts;
}

Bytes HevcFrame(const SpsParts& parts) {
  return Join({WithStartCode(Hex("40 01 0C 01 FF FF 80")), WithStartCode(Escaped(Sps(parts))),
               WithStartCode(Hex("26 01 AF 09 40 F3 28"))});
}

TEST(WriteColorimetry, LeavesAnSpsOfMoreThan256MB) {
  test::LongMemory memory((size_t{1} << 28) + 1000);
  if (memory.data() == nullptr) GTEST_SKIP();
  const Bytes begin = WithStartCode(AvcSps{.signalType = true}.Unit());
  std::copy(begin.begin(), begin.end(), memory.data());
  DFrame frame{};
  frame.frameData = memory.data();
  frame.frameSize = static_cast<uint32_t>(memory.size());
  frame.frameCapacity = frame.frameSize + 4096;
  frame.colorFlags = kMatrix;
  frame.matrixCoefficients = 9;
  EXPECT_EQ(qlnutilWriteColorimetryToSPS(&frame, kAvc), 0u);
  EXPECT_EQ(frame.frameSize, memory.size());
  EXPECT_TRUE(std::equal(begin.begin(), begin.end(), memory.data()));
}

TEST(WriteColorimetry, RewritesHevcAlike) {
  EXPECT_EQ(Rewrite(HevcFrame(HevcSps(1, 1, 6, 5)), kTransfer, kHevc).frame, HevcFrame(HevcSps(1, 1, 16, 5)));
  EXPECT_EQ(Rewrite(HevcFrame(HevcSps(0)), kTransfer, kHevc).frame, HevcFrame(HevcSps(1, 2, 16, 2)));
  EXPECT_EQ(Rewrite(HevcFrame({}), 0x1C, kHevc).frame, HevcFrame(HevcSps(1, 9, 16, 10, 0)));
  EXPECT_EQ(Rewrite(HevcFrame(HevcSps(0)), kTransfer, kHevc, 3).replaced, 1u);
  EXPECT_EQ(Rewrite(HevcFrame(HevcSps(0)), kTransfer, kHevc, 2).replaced, 0u);
}

TEST(WriteColorimetry, WritesWhatARefusedReadLeft) {
  // 65 reference picture sets: refused without a message, and what was read up to there is written.
  SpsParts parts;
  parts.shortTerm = [](BitBuilder& b) { b.ue(65); };
  const Result result = Rewrite(HevcFrame(parts), 0x1C, kHevc);
  EXPECT_EQ(result.replaced, 1u);
  EXPECT_THAT(result.messages, IsEmpty());
  EXPECT_NE(result.frame, HevcFrame(parts));
}

}  // namespace
}  // namespace qln
