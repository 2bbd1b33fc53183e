// Captions into H.264 and MPEG-2 frames: where the unit goes, what it holds, and room.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "inband/caption_packets.h"
#include "inband/test_frame.h"
#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

using test::Bytes;
using test::CaptionPacket;
using test::ExactCopy;
using test::Hex;
using test::Join;
using test::MessageCapture;
using test::TestFrame;
using test::Triplets;
using test::WithLength;
using test::WithStartCode;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kAvcRoom = 285;

// The unit that `triplets` make, with a start code.
Bytes AvcUnit(const Bytes& triplets) {
  const auto n = static_cast<uint8_t>(triplets.size() / 3);
  return Join({Hex("00 00 00 01 06 04"),
               {static_cast<uint8_t>(11 + 3 * n)},
               Hex("B5 00 31"),
               {'G', 'A', '9', '4'},
               {0x03, static_cast<uint8_t>(0xC0 | n), 0xFF},
               triplets,
               Hex("FF 80")});
}

Bytes AvcUnitInLengthForm(const Bytes& triplets) {
  Bytes unit = AvcUnit(triplets);
  unit[3] = static_cast<uint8_t>(unit.size() - 4);
  return unit;
}

// Where the unit of ten triplets went in; -1 when the frame is not the old one with the unit in it.
int PlaceOf(const Bytes& before, const Bytes& after, const Bytes& unit) {
  if (after.size() != before.size() + unit.size()) return -1;
  for (size_t at = 0; at <= before.size(); ++at) {
    const auto cut = before.begin() + static_cast<std::ptrdiff_t>(at);
    if (Join({Bytes(before.begin(), cut), unit, Bytes(cut, before.end())}) == after)
      return static_cast<int>(at);
  }
  return -1;
}

int AddAvc(const Bytes& frameBytes, bool lengthPrefix) {
  const Bytes packet = CaptionPacket(Triplets(20));
  TestFrame frame(frameBytes, frameBytes.size() + 30 + kAvcRoom);
  ExactCopy caption(packet);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), caption.data(), 80, lengthPrefix), 0);
  return PlaceOf(frameBytes, frame.bytes(),
                 lengthPrefix ? AvcUnitInLengthForm(Triplets(10)) : AvcUnit(Triplets(10)));
}

const Bytes kSps = Hex("67 42 00 1F 8C");
const Bytes kPps = Hex("68 CE 3C 80");
const Bytes kSlice = Hex("65 88 84 21 A0 55 AA");
const Bytes kAud = Hex("09 F0");

TEST(AddAvcCaptions, LaysTheUnitOut) {
  const Bytes slice = WithStartCode(kSlice);
  const Bytes frameBytes = Join({WithStartCode(kSps), WithStartCode(kPps), slice});
  TestFrame frame(frameBytes, 1000);
  const Bytes packet = CaptionPacket(Triplets(20));
  ASSERT_EQ(packet[6], 73);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 80, 0), 0);
  const Bytes after = frame.bytes();
  EXPECT_EQ(after[17 + 15], 0xCA);
  EXPECT_EQ(after, Join({WithStartCode(kSps), WithStartCode(kPps), AvcUnit(Triplets(10)), slice}));
  const Bytes block = frame.block();
  EXPECT_EQ(Bytes(block.begin() + static_cast<std::ptrdiff_t>(after.size()), block.end()),
            Bytes(1000 - after.size(), 0xA5));
}

TEST(AddAvcCaptions, TakesTheFooterForTripletsInAShortPacket) {
  // Two triplets: data count 19, 12 bytes from offset 16, cut to the 10 that are there: three triplets.
  const Bytes packet = CaptionPacket(Triplets(2), {.counter = 0x0102});
  ASSERT_EQ(packet[6], 19);
  TestFrame frame(kAud, 1000);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 26, 0), 0);
  EXPECT_EQ(frame.bytes(), Join({kAud, AvcUnit(Join({Triplets(2), Hex("74 01 02")}))}));
  // No triplet at all: data count 13, 6 bytes, 4 of them there: one.
  const Bytes empty = CaptionPacket({}, {.counter = 0x0102});
  TestFrame second(kAud, 1000);
  EXPECT_EQ(qlnutilAddAVCCaptions(second.get(), empty.data(), 20, 0), 0);
  EXPECT_EQ(second.bytes(), Join({kAud, AvcUnit(Hex("74 01 02"))}));
}

TEST(AddAvcCaptions, TakesNoTripletsFromAPacketWithoutABody) {
  // Data counts below 7 give none. Header and footer counters coincide at data count 8.
  Bytes packet = Hex("80 80 80 80 61 01 08 96 69 08 4F 43 00 01 00");
  uint32_t sum = 0;
  for (size_t i = 7; i < packet.size() - 1; ++i) sum += packet[i];
  packet.back() = static_cast<uint8_t>(0u - sum);
  ASSERT_EQ(CheckCaptionPacket(packet.data(), static_cast<uint32_t>(packet.size())), 0);
  TestFrame frame(kAud, 1000);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 15, 0), 0);
  EXPECT_EQ(frame.bytes(), Join({kAud, AvcUnit({})}));
  // Data count 4: the footer's counter is at offset 8.
  Bytes tiny = Hex("80 80 80 80 61 01 04 96 69 04 4F 43 69 04 00");
  sum = 0;
  for (size_t i = 7; i < tiny.size() - 1; ++i) sum += tiny[i];
  tiny.back() = static_cast<uint8_t>(sum);
  ASSERT_EQ(CheckCaptionPacket(tiny.data(), static_cast<uint32_t>(tiny.size())), 0);
  TestFrame second(kAud, 1000);
  EXPECT_EQ(qlnutilAddAVCCaptions(second.get(), tiny.data(), 15, 0), 0);
  EXPECT_EQ(second.bytes(), Join({kAud, AvcUnit({})}));
}

TEST(AddAvcCaptions, EscapesNothing) {
  const Bytes zeros(30, 0);
  TestFrame frame(kAud, 1000);
  const Bytes packet = CaptionPacket(Bytes(60, 0));
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 80, 0), 0);
  EXPECT_EQ(frame.bytes(), Join({kAud, AvcUnit(zeros)}));
}

TEST(AddAvcCaptions, RefusesWithoutTouching) {
  const Bytes packet = CaptionPacket(Triplets(20));
  const Bytes frameBytes = WithStartCode(kSlice);
  TestFrame frame(frameBytes, 1000);
  const Bytes before = frame.block();
  MessageCapture capture;
  EXPECT_EQ(qlnutilAddAVCCaptions(nullptr, packet.data(), 80, 0), -1);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), nullptr, 80, 0), -1);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), nullptr, 0, 0), -1);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 0, 0), 0);
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 13, 0), -1);
  EXPECT_THAT(capture.texts(), IsEmpty());
  EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 78, 0), -1);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, declared size 73 exceeds packet size 78 "));
  DFrame* const record = frame.get();
  record->frameData = nullptr;
  EXPECT_EQ(qlnutilAddAVCCaptions(record, packet.data(), 80, 0), -1);
  EXPECT_EQ(record->frameSize, frameBytes.size());
  EXPECT_EQ(frame.block(), before);
}

TEST(AddAvcCaptions, AsksForRoom) {
  const Bytes packet = CaptionPacket(Triplets(20));
  const Bytes frameBytes = WithStartCode(kSlice);
  MessageCapture capture;
  {
    TestFrame frame(frameBytes, frameBytes.size() + 30 + kAvcRoom - 1);
    const Bytes before = frame.block();
    EXPECT_EQ(qlnutilAddAVCCaptions(frame.get(), packet.data(), 80, 0), -102);
    EXPECT_THAT(capture.texts(), ElementsAre("No Allocation for CC Data"));
    EXPECT_EQ(frame.block(), before);
    EXPECT_EQ(frame->frameSize, frameBytes.size());
  }
  TestFrame exact(frameBytes, frameBytes.size() + 30 + kAvcRoom);
  EXPECT_EQ(qlnutilAddAVCCaptions(exact.get(), packet.data(), 80, 0), 0);
  // Sums are not taken in 32 bits.
  TestFrame huge(frameBytes, 400);
  huge->frameSize = 0xFFFFFFF0u;
  EXPECT_EQ(qlnutilAddAVCCaptions(huge.get(), packet.data(), 80, 0), -102);
}

TEST(AddAvcCaptions, GoesBehindSpsAndPpsWithStartCodes) {
  const auto frame = [](int code) {
    return Join({WithStartCode(kAud, code), WithStartCode(kSps, code), WithStartCode(kPps, code),
                 WithStartCode(kSlice, code)});
  };
  EXPECT_EQ(AddAvc(frame(4), false), 6 + 9 + 8);
  EXPECT_EQ(AddAvc(frame(3), false), 5 + 8 + 7);
  // The order does not matter, and units between them do not.
  EXPECT_EQ(AddAvc(Join({WithStartCode(kPps), WithStartCode(Hex("06 05 01 55 80")), WithStartCode(kSps),
                         WithStartCode(kSlice)}),
                   false),
            8 + 9 + 9);
}

TEST(AddAvcCaptions, GoesBehindTheDelimiterWithoutParameterSets) {
  EXPECT_EQ(AddAvc(Join({WithStartCode(kAud), WithStartCode(kSlice)}), false), 6);
  EXPECT_EQ(AddAvc(Join({WithStartCode(kSps), WithStartCode(kSlice)}), false), 6);
  // Other reference indications are other first bytes.
  EXPECT_EQ(AddAvc(Join({WithStartCode(Hex("27 42 00")), WithStartCode(Hex("28 CE")), WithStartCode(kSlice)}),
                   false),
            6);
  // Both sets, and no start code behind them.
  EXPECT_EQ(AddAvc(Join({WithStartCode(kSps), WithStartCode(kPps)}), false), 6);
}

TEST(AddAvcCaptions, ScansTheFirst256Offsets) {
  const auto frame = [](size_t ppsBytes) {
    Bytes pps(ppsBytes, 0x55);
    pps[0] = 0x68;
    return Join({WithStartCode(kSps), WithStartCode(pps), WithStartCode(kSlice)});
  };
  EXPECT_EQ(AddAvc(frame(255 - 9 - 4), false), 255);
  EXPECT_EQ(AddAvc(frame(256 - 9 - 4), false), 6);
}

TEST(AddAvcCaptions, NeverGoesBehindTheFrame) {
  for (size_t size = 0; size < 6; ++size) {
    EXPECT_EQ(AddAvc(Bytes(size, 0x55), false), static_cast<int>(size));
    EXPECT_EQ(AddAvc(Bytes(size, 0x55), true), size < 5 ? static_cast<int>(size) : 0);
  }
  // Start codes that the frame's end cuts off.
  EXPECT_EQ(AddAvc(Join({WithStartCode(kSps), WithStartCode(kPps), Hex("00 00")}), false), 6);
  EXPECT_EQ(AddAvc(Join({WithStartCode(kSps), WithStartCode(kPps), Hex("00 00 00")}), false), 6);
  EXPECT_EQ(AddAvc(Join({WithStartCode(kSps), WithStartCode(kPps), Hex("00 00 01")}), false), 17);
}

TEST(AddAvcCaptions, GoesBehindSpsAndPpsInLengthForm) {
  EXPECT_EQ(AddAvc(Join({WithLength(kAud), WithLength(kSps), WithLength(kPps), WithLength(kSlice)}), true),
            6 + 9 + 8);
  EXPECT_EQ(AddAvc(Join({WithLength(kAud), WithLength(kSlice)}), true), 6);
  EXPECT_EQ(AddAvc(WithLength(kSlice), true), 0);
  // Behind the second of both, whatever stands there.
  EXPECT_EQ(AddAvc(Join({WithLength(kPps), WithLength(kSps), WithLength(kPps), WithLength(kSlice)}), true),
            8 + 9);
  // A unit of another type ends the walk.
  EXPECT_EQ(AddAvc(Join({WithLength(kSps), WithLength(Hex("06 05 01 55 80")), WithLength(kPps),
                         WithLength(kSlice)}),
                   true),
            9);
}

TEST(AddAvcCaptions, TakesTheFramesEndInLengthForm) {
  EXPECT_EQ(AddAvc(Join({WithLength(kSps), WithLength(kPps)}), true), 17);
  EXPECT_EQ(AddAvc(WithLength(kSps), true), 9);
  // Lengths that lead past the end.
  EXPECT_EQ(AddAvc(Join({Hex("00 00 01 00"), kSps}), true), 9);
  EXPECT_EQ(AddAvc(Join({Hex("FF FF FF FF"), kSps}), true), 9);
  Bytes longSps(300, 0x55);
  longSps[0] = 0x67;
  EXPECT_EQ(AddAvc(WithLength(longSps), true), 6);
}

TEST(AddAvcCaptions, TurnsPlacesFrom256OnInto6) {
  const auto frame = [](size_t spsBytes) {
    Bytes sps(spsBytes, 0x55);
    sps[0] = 0x67;
    return Join({WithLength(sps), WithLength(kPps), WithLength(kSlice)});
  };
  EXPECT_EQ(AddAvc(frame(255 - 4 - 8), true), 255);
  EXPECT_EQ(AddAvc(frame(256 - 4 - 8), true), 6);
  // Also where a unit of another type gave it.
  Bytes sps(300, 0x55);
  sps[0] = 0x67;
  EXPECT_EQ(AddAvc(Join({WithLength(sps), WithLength(kSlice)}), true), 6);
}

TEST(AddMpeg2Captions, PutsTheBlockInFront) {
  const Bytes picture = Hex("00 00 01 00 00 0F FF F8");
  TestFrame frame(picture, picture.size() + 80 + 285);
  frame.SetCaption(CaptionPacket(Triplets(20), {.counter = 0x0102}));
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), 0);
  // Data count 73: 66 bytes from offset 16, of which the packet has 64. The checksum is its last byte.
  const uint8_t checksum = frame->captionData[79];
  EXPECT_EQ(frame.bytes(), Join({Hex("00 00 00 01 B2"),
                                 {'G', 'A', '9', '4'},
                                 Hex("03 16 FF"),
                                 Triplets(20),
                                 Hex("74 01 02"),
                                 {checksum, 0, 0},
                                 Hex("FF"),
                                 picture}));
}

TEST(AddMpeg2Captions, CopiesTheLongestPacket) {
  const Bytes packet = CaptionPacket(Triplets(31), {.timeCode = true});
  TestFrame frame(Hex("00 00 01 00"), 2000);
  frame.SetCaption(packet);
  std::memset(frame->captionData + packet.size(), 0xEE, sizeof frame->captionData - packet.size());
  const uint32_t body = packet[6] - 7u;
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), 0);
  const Bytes after = frame.bytes();
  ASSERT_EQ(after.size(), 4 + 13 + body);
  EXPECT_EQ(after[10], body / 3);
  EXPECT_EQ(Bytes(after.begin() + 12, after.begin() + 12 + body - 2),
            Bytes(packet.begin() + 16, packet.end()));
  // What stands behind captionSize stays out.
  EXPECT_EQ(after[12 + body - 2], 0);
  EXPECT_EQ(after[12 + body - 1], 0);
  EXPECT_EQ(after[12 + body], 0xFF);
}

TEST(AddMpeg2Captions, TakesACaptionSizeOf512) {
  Bytes packet = CaptionPacket(Triplets(20));
  packet.resize(512, 0);
  TestFrame frame(Hex("00 00 01 00"), 1000);
  frame.SetCaption(packet);
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), 0);
  EXPECT_EQ(frame->frameSize, 4u + 13u + 66u);
}

TEST(AddMpeg2Captions, TakesNothingFromAPacketWithoutABody) {
  Bytes tiny = Hex("80 80 80 80 61 01 04 96 69 04 4F 43 69 04 00");
  uint32_t sum = 0;
  for (size_t i = 7; i < tiny.size() - 1; ++i) sum += tiny[i];
  tiny.back() = static_cast<uint8_t>(sum);
  TestFrame frame(Hex("00 00 01 00"), 1000);
  frame.SetCaption(tiny);
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), 0);
  EXPECT_EQ(frame.bytes(),
            Join({Hex("00 00 00 01 B2"), {'G', 'A', '9', '4'}, Hex("03 00 FF FF 00 00 01 00")}));
}

TEST(AddMpeg2Captions, RefusesWithoutTouching) {
  const Bytes picture = Hex("00 00 01 00 00 0F FF F8");
  MessageCapture capture;
  EXPECT_EQ(qlnutilAddMPEG2Captions(nullptr), -1);
  {
    TestFrame frame(picture, picture.size() + 80 + 284);
    frame.SetCaption(CaptionPacket(Triplets(20)));
    const Bytes before = frame.block();
    EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), -102);
    EXPECT_THAT(capture.texts(), ElementsAre("No Allocation for CC Data"));
    EXPECT_EQ(frame.block(), before);
    EXPECT_EQ(frame->frameSize, picture.size());
  }
  capture.clear();
  TestFrame frame(picture, 4000);
  const Bytes before = frame.block();
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), -1);
  frame.SetCaption(CaptionPacket(Triplets(20)));
  frame->captionSize = 513;
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), -1);
  EXPECT_THAT(capture.texts(), IsEmpty());
  frame->captionSize = 80;
  frame->captionData[20] ^= 4;
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), -1);
  EXPECT_THAT(capture.texts(), ElementsAre("ERROR: mfcc, bad CC 708 Checksum "));
  EXPECT_EQ(frame.block(), before);
  frame->captionData[20] ^= 4;
  frame->frameData = nullptr;
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), -1);
}

}  // namespace
}  // namespace qln
