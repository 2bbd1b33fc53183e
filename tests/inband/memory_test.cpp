// Without memory: everything that inserts or rewrites leaves the frame as it was.

#include <gtest/gtest.h>

#include <cstring>

#include "hevc/unit_builders.h"
#include "inband/sps_bits.h"
#include "inband/test_frame.h"
#include "qlnutil/qlninband.h"
#include "support/no_memory.h"

namespace qln {
namespace {

using test::AvcSps;
using test::Bytes;
using test::Escaped;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::NoMemory;
using test::TestFrame;
using test::WithLength;
using test::WithStartCode;

constexpr uint32_t kHevc = 0x68766331;
constexpr uint32_t kAvc = 0x61766331;
constexpr size_t kLong = 3000;  // of units that copies on the stack do not hold

// Calls `call` on the frame without memory, where it must give `result` and touch nothing, and then with
// memory, where it must not.
template <class Call>
void ExpectUntouched(const Bytes& bytes, Call call) {
  TestFrame frame(bytes, bytes.size() + 200);
  frame->colorFlags = 0x3DFC;
  frame->colourPrimaries = 9;
  frame->transferCharacteristics = 16;
  frame->matrixCoefficients = 9;
  frame->maxContentLightLevel = 1000;
  const Bytes block = frame.block();
  const DFrame before = *frame.get();
  MessageCapture capture;
  {
    const NoMemory none;
    EXPECT_EQ(call(frame.get()), 0u);
  }
  EXPECT_EQ(std::memcmp(&before, frame.get(), sizeof before), 0);
  EXPECT_EQ(frame.block(), block);
  EXPECT_NE(call(frame.get()), 0u);
  EXPECT_NE(frame.block(), block);
}

Bytes LongSlice(const char* head) { return Join({Hex(head), Bytes(kLong, 0x55)}); }

const Bytes kAvcLengths =
    Join({WithLength(AvcSps{.signalType = true}.Unit()), WithLength(LongSlice("65 88"))});

// Its extension data makes it long; the writer leaves that away.
Bytes LongHevcSps() { return Join({Escaped(test::Sps()), Bytes(kLong, 0x55)}); }

TEST(WithoutMemory, HdrMetadataStaysOut) {
  const auto add = [](DFrame* frame) { return qlnutilWrite_HDR_WCG_SEI_Packet(frame, kAvc); };
  ExpectUntouched(kAvcLengths, add);
}

TEST(WithoutMemory, ColourStays) {
  const auto avc = [](DFrame* frame) { return qlnutilWriteColorimetryToSPS(frame, kAvc); };
  const auto hevc = [](DFrame* frame) { return qlnutilWriteColorimetryToSPS(frame, kHevc); };
  ExpectUntouched(kAvcLengths, avc);
  const Bytes longAvcSps = Join({AvcSps{.signalType = true}.Unit(), Bytes(kLong, 0x55)});
  ExpectUntouched(Join({WithStartCode(longAvcSps), WithStartCode(Hex("65 88 84 21"))}), avc);
  ExpectUntouched(Join({WithStartCode(LongHevcSps()), WithStartCode(Hex("26 01 AF 09"))}), hevc);
}

TEST(WithoutMemory, TimecodeStaysOut) {
  const Bytes longAvcSps = Join({AvcSps().Unit(), Bytes(kLong, 0x55)});
  ExpectUntouched(Join({WithStartCode(longAvcSps), WithStartCode(Hex("65 88 84 21"))}),
                  [](DFrame* frame) { return qlnutilAddAVCTimeCode(frame, 2); });
}

TEST(WithoutMemory, TheSearchFindsNothing) {
  const Bytes bytes =
      Join({WithStartCode(Hex("4E 01 90 04 04 B3 01 90 80")), WithStartCode(LongSlice("26 01"))});
  TestFrame frame(bytes, bytes.size());
  ContentLightRecord light;
  {
    const NoMemory none;
    EXPECT_EQ(qlnutilFindColorSEI(frame.get(), &light, nullptr), 0u);
  }
  EXPECT_EQ(light.max_content_light_level, 0u);
  EXPECT_EQ(qlnutilFindColorSEI(frame.get(), &light, nullptr), 1u);
}

// A long SPS goes through as it is: one behind a start code of three bytes, which the reader begins a byte
// late, and one that the reader has no memory for.
TEST(WithoutMemory, TheInterlaceRewriteLeavesALongSet) {
  for (const int codeBytes : {3, 4}) {
    const Bytes bytes = WithStartCode(LongHevcSps(), codeBytes);
    TestFrame source(bytes, bytes.size());
    const HevcSpsRecord host = {};
    const auto rewritten = [&] {
      TestFrame destination(Hex("11 22"), 4000);
      EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 1u);
      return destination.bytes();
    };
    {
      const MessageCapture capture;
      EXPECT_NE(rewritten(), bytes) << codeBytes;
    }
    const NoMemory none(1);  // but for what the rewrite begins with
    EXPECT_EQ(rewritten(), bytes) << codeBytes;
  }
}

TEST(WithoutMemory, TheInterlaceRewriteDoesNotBegin) {
  const Bytes bytes = WithStartCode(Hex("02 01 D0 11 22 33 44"));
  TestFrame source(bytes, bytes.size());
  TestFrame destination(Hex("11 22"), 400);
  const Bytes block = destination.block();
  const HevcSpsRecord host = {};
  {
    const NoMemory none;
    EXPECT_EQ(qlnutilSetFrameInterlaced(source.get(), destination.get(), &host, 0), 0u);
  }
  EXPECT_EQ(destination->frameSize, 2u);
  EXPECT_EQ(destination.block(), block);
}

}  // namespace
}  // namespace qln
