// HDR metadata: the unit that goes in, its place in both frame forms, room, and what the search finds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "inband/test_frame.h"
#include "qlnutil/inband/colour_units.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::TestFrame;
using test::WithLength;
using test::WithStartCode;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kHevc = 0x68766331;         // hvc1
constexpr uint32_t kAvc = 0x61766331;          // avc1
constexpr uint32_t kAvcIntra = 0x61693132;     // ai12
constexpr uint32_t kDolbyVision = 0x64766831;  // dvh1
constexpr uint32_t kXavc = 0x78617663;         // xavc

void SetMetadata(DFrame* frame, uint32_t flags) {
  const double primaries[8] = {0.708, 0.292, 0.17, 0.797, 0.131, 0.046, 0.3127, 0.329};
  std::copy(std::begin(primaries), std::end(primaries), frame->displayPrimaries);
  frame->maxDisplayLuminance = 1000.0;
  frame->minDisplayLuminance = 0.005;
  frame->maxContentLightLevel = 1203.9;
  frame->maxFrameAverageLightLevel = 400.0;
  frame->colorFlags = flags;
}

// With emulation prevention in front of the minimum luminance, 00 00 00 32.
// green 0.17 0.797, blue 0.131 0.046, red 0.708 0.292 (14599: doubles truncate), white 0.3127 (15634
// likewise) 0.329
const Bytes kLight = Hex("90 04 04 B3 01 90");
const Bytes kMasteringEscaped =
    Hex("89 18 21 34 9B AA 19 96 08 FC 8A 48 39 07 3D 12 40 42 00 98 96 80 00 00 03 00 32");

const Bytes kAvcSps = Hex("67 42 00 1F 8C");
const Bytes kAvcPps = Hex("68 CE 3C 80");
const Bytes kAvcSlice = Hex("65 88 84 21 A0 55 AA");
const Bytes kHevcVps = Hex("40 01 0C 01 FF FF 80");
const Bytes kHevcSlice = Hex("26 01 AF 09 40 F3 28");

Bytes AvcUnit(const Bytes& messages) { return Join({Hex("06"), messages, Hex("80")}); }
Bytes HevcUnit(const Bytes& messages) { return Join({Hex("4E 01"), messages, Hex("80")}); }

struct Result {
  uint64_t added;
  Bytes frame;
  std::vector<std::string> messages;
};

Result Add(const Bytes& bytes, uint32_t flags, uint32_t fourcc, size_t room = 200) {
  TestFrame frame(bytes, bytes.size() + room);
  SetMetadata(frame.get(), flags);
  frame->secondFieldOffset = 9;
  MessageCapture capture;
  const uint64_t added = qlnutilWrite_HDR_WCG_SEI_Packet(frame.get(), fourcc);
  EXPECT_EQ(frame->secondFieldOffset, 9u);
  EXPECT_LE(frame->frameSize, frame->frameCapacity);
  return {added, frame.bytes(), capture.texts()};
}

const Bytes kAvcHead = Join({WithStartCode(kAvcSps), WithStartCode(kAvcPps)});

TEST(WriteHdrSei, PutsBothMessagesInFrontOfTheFirstSlice) {
  const Result avc = Add(Join({kAvcHead, WithStartCode(kAvcSlice), WithStartCode(kAvcSlice)}), 0x3DE0, kAvc);
  EXPECT_EQ(avc.added, 4u + 1 + 26 + 6 + 1 + 1);
  EXPECT_EQ(avc.frame, Join({kAvcHead, WithStartCode(AvcUnit(Join({kMasteringEscaped, kLight}))),
                             WithStartCode(kAvcSlice), WithStartCode(kAvcSlice)}));
  const Result hevc = Add(Join({WithStartCode(kHevcVps), WithStartCode(kHevcSlice)}), 0x3DE0, kHevc);
  EXPECT_EQ(hevc.frame,
            Join({WithStartCode(kHevcVps), WithStartCode(HevcUnit(Join({kMasteringEscaped, kLight}))),
                  WithStartCode(kHevcSlice)}));
}

TEST(WriteHdrSei, WritesTheMessagesThatAreFlagged) {
  const Bytes slice = WithStartCode(kAvcSlice);
  const auto unitOf = [&](uint32_t flags) {
    const Bytes frame = Add(slice, flags, kAvc).frame;
    return Bytes(frame.begin(), frame.end() - static_cast<std::ptrdiff_t>(slice.size()));
  };
  EXPECT_EQ(unitOf(0x1000), WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00"))));
  EXPECT_EQ(unitOf(0x2000), WithStartCode(AvcUnit(Hex("90 04 00 00 03 01 90"))));
  EXPECT_EQ(unitOf(0x0DE0), WithStartCode(AvcUnit(kMasteringEscaped)));
  // Some of the six bits: a unit with no message in it.
  EXPECT_EQ(unitOf(0x0060), WithStartCode(AvcUnit({})));
  EXPECT_EQ(unitOf(0x0DC0), WithStartCode(AvcUnit({})));
  EXPECT_EQ(unitOf(0x1060), WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00"))));
  for (const uint32_t none : {0u, 0x0004u, 0x001Cu, 0xFFFFC21Fu}) EXPECT_TRUE(unitOf(none).empty()) << none;
}

TEST(WriteHdrSei, TakesTheToldCodecs) {
  const Bytes avc = WithStartCode(kAvcSlice);
  const Bytes hevc = WithStartCode(kHevcSlice);
  EXPECT_NE(Add(avc, 0x1000, kAvcIntra).added, 0u);
  EXPECT_NE(Add(hevc, 0x1000, kDolbyVision).added, 0u);
  EXPECT_EQ(Add(avc, 0x1000, kXavc).added, 0u);
  EXPECT_EQ(Add(avc, 0x1000, kXavc).frame, avc);
  EXPECT_EQ(Add(avc, 0x1000, 0x6A706567).added, 0u);
}

TEST(WriteHdrSei, ConvertsDoublesByDefinedArithmetic) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(ChromaticityUnits(0.708), 35400u);
  EXPECT_EQ(LuminanceUnits(1000.0), 10000000u);
  EXPECT_EQ(ChromaticityUnits(0.292), 14599u);
  EXPECT_EQ(LightLevelUnits(1203.99), 1203u);
  EXPECT_EQ(LightLevelUnits(-1.9), 0xFFFFFFFFu);
  EXPECT_EQ(LightLevelUnits(-0.9), 0u);
  EXPECT_EQ(LightLevelUnits(4294967298.0), 2u);
  EXPECT_EQ(LightLevelUnits(9.3e18), 0u);
  EXPECT_EQ(LightLevelUnits(-9.3e18), 0u);
  EXPECT_EQ(LightLevelUnits(infinity), 0u);
  EXPECT_EQ(LightLevelUnits(-infinity), 0u);
  EXPECT_EQ(LuminanceUnits(std::nan("")), 0u);
  EXPECT_EQ(LuminanceUnits(1e300), 0u);
}

TEST(WriteHdrSei, KnowsSlices) {
  for (int type = 0; type < 64; ++type) {
    const Bytes slice = WithStartCode(kHevcSlice);
    const Bytes sei = WithStartCode(HevcUnit(Hex("90 04 04 B3 00 00")));
    for (const int otherBits : {0x00, 0x01, 0x80, 0x81}) {
      const Bytes unit = WithStartCode({static_cast<uint8_t>(type << 1 | otherBits), 0x01, 0xAF, 0x11, 0x22});
      EXPECT_EQ(Add(Join({unit, slice}), 0x1000, kHevc).frame,
                type <= 21 ? Join({sei, unit, slice}) : Join({unit, sei, slice}))
          << type << " " << otherBits;
    }
  }
  for (int type = 0; type < 32; ++type) {
    const Bytes slice = WithStartCode(kAvcSlice);
    const Bytes sei = WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00")));
    for (const int otherBits : {0x60, 0x20, 0x40, 0x80, 0xE0, 0x00}) {
      if ((type | otherBits) == 0) continue;  // a zero byte belongs to what stands in front
      const Bytes unit = WithStartCode({static_cast<uint8_t>(otherBits | type), 0x01, 0xAF, 0x11, 0x22});
      EXPECT_EQ(Add(Join({unit, slice}), 0x1000, kAvc).frame,
                type >= 1 && type <= 5 ? Join({sei, unit, slice}) : Join({unit, sei, slice}))
          << type << " " << otherBits;
    }
  }
}

TEST(WriteHdrSei, GoesInFrontOfTheStartCode) {
  const Bytes sei = WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00")));
  const Bytes shortSlice = WithStartCode(kAvcSlice, 3);
  EXPECT_EQ(Add(Join({kAvcHead, shortSlice}), 0x1000, kAvc).frame, Join({kAvcHead, sei, shortSlice}));
  // More zeros stay in front.
  EXPECT_EQ(Add(Join({kAvcHead, Hex("00 00"), WithStartCode(kAvcSlice)}), 0x1000, kAvc).frame,
            Join({kAvcHead, Hex("00 00"), sei, WithStartCode(kAvcSlice)}));
}

TEST(WriteHdrSei, GivesBackLengthForm) {
  const Bytes head = Join({WithLength(kAvcSps), WithLength(kAvcPps)});
  const Bytes sei = AvcUnit(Hex("90 04 04 B3 00 00"));
  const Result result = Add(Join({head, WithLength(kAvcSlice), WithLength(kAvcSlice)}), 0x1000, kAvc, 12);
  EXPECT_EQ(result.added, 12u);
  EXPECT_EQ(result.frame, Join({head, WithLength(sei), WithLength(kAvcSlice), WithLength(kAvcSlice)}));
}

TEST(WriteHdrSei, LeavesAFrameWithoutASlice) {
  const Result marker = Add(kAvcHead, 0x1000, kAvc);
  EXPECT_EQ(marker.added, 0u);
  EXPECT_EQ(marker.frame, kAvcHead);
  EXPECT_THAT(marker.messages, IsEmpty());
  const Bytes lengths = Join({WithLength(kAvcSps), WithLength(kAvcPps)});
  EXPECT_EQ(Add(lengths, 0x1000, kAvc).added, 0u);
  EXPECT_EQ(Add(lengths, 0x1000, kAvc).frame, lengths);
  // An empty unit ends the walk.
  const Bytes empty = Join({kAvcHead, WithStartCode({}), WithStartCode(kAvcSlice)});
  EXPECT_EQ(Add(empty, 0x1000, kAvc).frame, empty);
}

// The way back is made whatever was found: a start code inside a unit then begins a unit of its own.
TEST(WriteHdrSei, ConvertsAFrameWithoutASliceBack) {
  const Bytes bytes = Join({WithLength(Join({kAvcSps, Hex("00 00 01 09 10")})), WithLength(kAvcPps)});
  const Result result = Add(bytes, 0x1000, kAvc);
  EXPECT_EQ(result.added, 0u);
  EXPECT_EQ(result.frame, Join({WithLength(kAvcSps), WithLength(Hex("09 10")), WithLength(kAvcPps)}));
  EXPECT_THAT(result.messages, IsEmpty());
}

// Such a frame does not begin with a start code. It is taken for one in length form whose first length is 0,
// so that nothing is turned into start codes and nothing back; the slice is found all the same.
TEST(WriteHdrSei, GoesBehindAZeroByteInFrontOfALongStartCode) {
  const Bytes slice = WithStartCode(kAvcSlice);
  const Bytes sei = WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00")));
  const Result result = Add(Join({Hex("00"), kAvcHead, slice}), 0x1000, kAvc);
  EXPECT_EQ(result.added, 12u);
  EXPECT_EQ(result.frame, Join({Hex("00"), kAvcHead, sei, slice}));
}

TEST(WriteHdrSei, NeedsRoom) {
  for (const bool lengths : {false, true}) {
    const Bytes bytes = lengths ? WithLength(kAvcSlice) : WithStartCode(kAvcSlice);
    const Result none = Add(bytes, 0x1000, kAvc, 11);
    EXPECT_EQ(none.added, 0u);
    EXPECT_EQ(none.frame, bytes);
    EXPECT_THAT(none.messages, ElementsAre("No room to Add HDR SEI to dframe"));
    EXPECT_EQ(Add(bytes, 0x1000, kAvc, 12).added, 12u);
  }
}

TEST(WriteHdrSei, SeesToTheRoomOfTheWayBack) {
  // A start code pattern inside a unit is widened on the way back: one byte more.
  const Bytes odd = Join({kAvcPps, Hex("00 00 01 09 10")});
  const Bytes bytes = Join({WithLength(odd), WithLength(kAvcSlice)});
  const Result none = Add(bytes, 0x1000, kAvc, 12);
  EXPECT_EQ(none.added, 0u);
  EXPECT_EQ(none.frame, bytes);
  EXPECT_THAT(none.messages, ElementsAre("No room to Add HDR SEI to dframe"));
  const Result some = Add(bytes, 0x1000, kAvc, 13);
  EXPECT_EQ(some.added, 12u);
  EXPECT_EQ(some.frame, Join({WithLength(kAvcPps), WithLength(Hex("09 10")),
                              WithLength(AvcUnit(Hex("90 04 04 B3 00 00"))), WithLength(kAvcSlice)}));
}

TEST(WriteHdrSei, ConvertsAsTold) {
  // A first unit of 256 to 511 bytes in length form looks like a start code of 3.
  Bytes sps(300, 0x55);
  sps[0] = 0x67;
  const Bytes bytes = Join({WithLength(sps), WithLength(kAvcSlice)});
  const Result result = Add(bytes, 0x1000, kAvc);
  // The lengths became start codes, and nothing turned them back.
  EXPECT_EQ(result.frame, Join({WithStartCode(sps), WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00"))),
                                WithStartCode(kAvcSlice)}));
}

TEST(WriteHdrSei, ReadsALeadingThreeByteCodeAsALength) {
  // 00 00 01 65 is a length of 357: it becomes a start code, and the header that stood there is gone.
  const Bytes body(400, 0x55);
  const Result result = Add(Join({Hex("00 00 01 65"), body}), 0x1000, kAvc);
  EXPECT_EQ(result.added, 0u);
  EXPECT_EQ(result.frame, Join({Hex("00 00 00 01"), body}));
  // In a frame shorter than that the code stays.
  const Bytes slice = WithStartCode(kAvcSlice, 3);
  EXPECT_EQ(Add(slice, 0x1000, kAvc).frame, Join({WithStartCode(AvcUnit(Hex("90 04 04 B3 00 00"))), slice}));
}

TEST(WriteHdrSei, RefusesBadFrames) {
  EXPECT_EQ(qlnutilWrite_HDR_WCG_SEI_Packet(nullptr, kAvc), 0u);
  EXPECT_EQ(Add(Hex("00 00 01 65"), 0x1000, kAvc).added, 0u);
  EXPECT_EQ(Add(Hex("00 00 01 65 88"), 0x1000, kAvc).added, 12u);
  EXPECT_EQ(Add({}, 0x1000, kAvc).added, 0u);
  TestFrame frame(WithStartCode(kAvcSlice), 100);
  SetMetadata(frame.get(), 0x1000);
  frame->frameData = nullptr;
  EXPECT_EQ(qlnutilWrite_HDR_WCG_SEI_Packet(frame.get(), kAvc), 0u);
}

// ---- The search ----

struct Found {
  uint32_t count;
  ContentLightRecord light;
  MasteringDisplayRecord display;
};

Found Find(const Bytes& bytes) {
  TestFrame frame(bytes, bytes.size());
  Found found;
  std::memset(static_cast<void*>(&found), 0xEE, sizeof found);
  found.count = qlnutilFindColorSEI(frame.get(), &found.light, &found.display);
  EXPECT_EQ(frame.bytes(), bytes);
  return found;
}

void ExpectBoth(const Found& found) {
  EXPECT_EQ(found.count, 2u);
  EXPECT_EQ(found.light.max_content_light_level, 1203u);
  EXPECT_EQ(found.light.max_pic_average_light_level, 400u);
  const MasteringDisplayRecord& d = found.display;
  EXPECT_THAT(
      (std::vector<uint32_t>{d.redX, d.redY, d.greenX, d.greenY, d.blueX, d.blueY, d.whitePointX,
                             d.whitePointY, d.minLuminance, d.maxLuminance, d.primariesValid,
                             d.luminanceValid}),
      ElementsAre(35400u, 14599u, 8500u, 39850u, 6550u, 2300u, 15634u, 16450u, 50u, 10000000u, 1u, 1u));
}

TEST(FindColorSei, ReadsBothMessagesInEveryForm) {
  const Bytes both = Join({kMasteringEscaped, kLight});
  for (const Bytes& unit : {HevcUnit(both), AvcUnit(both), Join({Hex("50 01"), both, Hex("80")})}) {
    ExpectBoth(Find(Join({WithStartCode(kHevcVps), WithStartCode(unit), WithStartCode(kHevcSlice)})));
    ExpectBoth(Find(Join({WithStartCode(kHevcVps, 3), WithStartCode(unit, 3)})));
    ExpectBoth(Find(Join({WithLength(kHevcVps), WithLength(unit), WithLength(kHevcSlice)})));
  }
  // Each in a unit of its own, and behind another message.
  ExpectBoth(Find(Join({WithStartCode(HevcUnit(Join({Hex("05 02 11 22"), kLight}))),
                        WithStartCode(HevcUnit(kMasteringEscaped))})));
}

TEST(FindColorSei, CountsEveryMessage) {
  const Bytes second = Hex("90 04 00 11 00 22");
  const Found found =
      Find(WithStartCode(HevcUnit(Join({kMasteringEscaped, kLight, second, kMasteringEscaped}))));
  EXPECT_EQ(found.count, 4u);
  EXPECT_EQ(found.light.max_content_light_level, 0x11u);
  EXPECT_EQ(found.light.max_pic_average_light_level, 0x22u);
}

TEST(FindColorSei, ZeroesWhatItDoesNotFind) {
  const Found found = Find(WithStartCode(kHevcSlice));
  EXPECT_EQ(found.count, 0u);
  EXPECT_EQ(found.light.max_content_light_level, 0u);
  EXPECT_EQ(found.display.redX, 0u);
  EXPECT_EQ(found.display.luminanceValid, 0u);
  // A frame that is refused leaves the records.
  EXPECT_EQ(Find(Hex("00 00 01 4E")).light.max_content_light_level, 0xEEEEEEEEu);
}

TEST(FindColorSei, CountsWhatHasARecord) {
  const Bytes bytes = WithStartCode(HevcUnit(Join({kMasteringEscaped, kLight})));
  TestFrame frame(bytes, bytes.size());
  ContentLightRecord light;
  MasteringDisplayRecord display;
  EXPECT_EQ(qlnutilFindColorSEI(frame.get(), &light, nullptr), 1u);
  EXPECT_EQ(qlnutilFindColorSEI(frame.get(), nullptr, &display), 1u);
  EXPECT_EQ(qlnutilFindColorSEI(frame.get(), nullptr, nullptr), 0u);
  EXPECT_EQ(qlnutilFindColorSEI(nullptr, &light, &display), 0u);
  frame->frameData = nullptr;
  EXPECT_EQ(qlnutilFindColorSEI(frame.get(), &light, &display), 0u);
}

TEST(FindColorSei, HoldsSizesAgainstTheUnit) {
  const Bytes shortMessage = Join({Hex("89 17"), Bytes(23, 0x11)});
  const Bytes longMessage = Hex("90 7F 04 B3 01 90");
  // A mastering display message of 23 bytes is passed over; the one behind it is found.
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Join({shortMessage, kLight})))).count, 1u);
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Hex("90 03 04 B3 01")))).count, 0u);
  // More than is needed is read from its front.
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Hex("90 05 04 B3 01 90 77")))).light.max_pic_average_light_level,
            400u);
  // A size past the unit ends its walk, and the next unit is looked at.
  const Found found = Find(Join({WithStartCode(HevcUnit(Join({longMessage, kLight}))),
                                 WithStartCode(kHevcSlice), WithStartCode(HevcUnit(kMasteringEscaped))}));
  EXPECT_EQ(found.count, 1u);
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Join({Hex("05 FF FF 77"), kLight})))).count, 0u);
  // The trailing byte ends the walk.
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Join({Hex("80"), kLight})))).count, 0u);
}

TEST(FindColorSei, AddsUpRunsOf255) {
  // Type 255 + 138 is another one; size 0 passes nothing over.
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Join({Hex("FF 8A 00"), kLight})))).count, 1u);
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Join({Hex("05 FF 02"), Bytes(257, 0x55), kLight})))).count, 1u);
  EXPECT_EQ(Find(WithStartCode(HevcUnit(Hex("FF FF FF")))).count, 0u);
}

TEST(FindColorSei, StopsAtEveryTruncation) {
  const Bytes whole = WithStartCode(HevcUnit(Join({kMasteringEscaped, kLight})));
  for (size_t size = 5; size < whole.size(); ++size) {
    const Found found = Find(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    EXPECT_EQ(found.count, (size >= 6 + 27 ? 1u : 0u) + (size >= 6 + 27 + 6 ? 1u : 0u)) << size;
  }
}

TEST(FindColorSei, TellsUnitsByTheirFirstByte) {
  const Bytes both = Join({kMasteringEscaped, kLight, Hex("80")});
  for (int first = 0; first < 256; ++first) {
    const auto header = static_cast<uint8_t>(first);
    const int hevcType = first >> 1 & 63;
    const bool hevc = hevcType == 39 || hevcType == 40;
    const bool avc = !hevc && (first & 31) == 6;
    EXPECT_EQ(Find(WithStartCode(Join({{header, 0x01}, both}))).count, hevc ? 2u : 0u) << first;
    EXPECT_EQ(Find(WithStartCode(Join({{header}, both}))).count, avc ? 2u : 0u) << first;
  }
}

TEST(FindColorSei, DropsEmulationPreventionAsTheStandardHasIt) {
  // 00 00 0C stays, 00 00 03 loses its 3 wherever it stands, and runs start anew behind it.
  const Found found = Find(WithStartCode(HevcUnit(Hex("90 04 00 00 03 00 00"))));
  EXPECT_EQ(found.count, 1u);
  EXPECT_EQ(found.light.max_content_light_level, 0u);
  const Found twelve = Find(WithStartCode(HevcUnit(Hex("90 05 00 00 0C 00 22"))));
  EXPECT_EQ(twelve.light.max_pic_average_light_level, 0x0C00u);
  // In the first three bytes too: a message of type 0 without a byte, and a 3 that is no type.
  for (const Bytes& unit :
       {HevcUnit(Join({Hex("00 00 03"), kLight})), AvcUnit(Join({Hex("00 00 03"), kLight})),
        HevcUnit(Join({Hex("05 01 00 00 03 00"), kLight}))}) {
    EXPECT_EQ(Find(WithStartCode(unit)).light.max_content_light_level, 1203u) << test::ToHex(unit);
  }
}

}  // namespace
}  // namespace qln
