// The helpers for C++ hosts: units of byte streams, optional records, caption packets, the scope for
// diagnostics.

#include "qlnutil/helpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "qlnutil/inband/caption_packet.h"
#include "qlnutil/qlninband.h"
#include "support/no_memory.h"
#include "support/test_support.h"

namespace qlnutil {
namespace {

using qln::test::Hex;
using qln::test::ToHex;
using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

// Parameter sets as x264 (854x480, High) and x265 (854x480, Main 10, BT.2020 PQ) write them; the values that
// the tests want of them are trace_headers'.
const char kSps[] = "67 64 00 1E AC D9 40 D8 3D E6 F0 11 00 00 03 00 01 00 00 03 00 32 0F 16 2D 96";
const char kPps[] = "68 EB E3 CB 22 C0";
const char kHevcVps[] = "40 01 0C 01 FF FF 02 20 00 00 03 00 90 00 00 03 00 00 03 00 5A 95 98 09";
const char kHevcSps[] =
    "42 01 01 02 20 00 00 03 00 90 00 00 03 00 00 03 00 5A A0 06 B2 01 E1 D6 D9 65 66 92 4C AF 01 6A 12 20 "
    "12 08 00 00 "
    "03 00 08 00 00 03 00 C8 40";
const char kHevcPps[] = "44 01 C1 72 B4 62 40";

std::vector<std::string> Units(const Bytes& bytes) {
  std::vector<std::string> found;
  for (const NalUnit& unit : StartCodeUnits(bytes.data(), bytes.size())) {
    EXPECT_EQ(unit.data, bytes.data() + unit.offset);
    found.push_back(std::to_string(unit.offset) + ": " + ToHex(unit.data, unit.size));
  }
  return found;
}

TEST(StartCodeUnits, GivesUnitsBehindCodesOfThreeAndFourBytes) {
  EXPECT_THAT(Units(Hex("00 00 00 01 09 F0 00 00 01 67 64 00 00 00 01 68")),
              ElementsAre("4: 09 F0", "9: 67 64", "15: 68"));
}

TEST(StartCodeUnits, LeavesOutWhatBelongsToNoUnit) {
  EXPECT_THAT(Units(Hex("FF 00 00 00 00 00 01 65 88 00 00 00")), ElementsAre("7: 65 88"));
  EXPECT_THAT(Units(Hex("00 00 01 00 00 01 00 00 00 00 01 41 00 00 01")), ElementsAre("11: 41"));
}

TEST(StartCodeUnits, GivesNothingWhereNothingIs) {
  EXPECT_THAT(Units({}), ElementsAre());
  for (const char* bytes :
       {"00", "00 00", "00 00 01", "00 00 00 01", "65 88 84", "00 00 03 01", "01 01 01"}) {
    EXPECT_THAT(Units(Hex(bytes)), ElementsAre()) << bytes;
  }
  const StartCodeUnits none(nullptr, 0);
  EXPECT_TRUE(none.begin() == none.end());
}

TEST(StartCodeUnits, KeepsWhatIsNoCode) {
  EXPECT_THAT(Units(Hex("00 00 01 65 00 00 03 01 00 01 02 00 00 02")),
              ElementsAre("3: 65 00 00 03 01 00 01 02 00 00 02"));
}

// Each start code looked for at each byte.
std::vector<std::string> PlainUnits(const Bytes& bytes) {
  std::vector<size_t> codes;
  for (size_t i = 0; i + 3 <= bytes.size(); ++i) {
    if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) codes.push_back(i);
  }
  std::vector<std::string> found;
  for (size_t i = 0; i < codes.size(); ++i) {
    const size_t begin = codes[i] + 3;
    size_t end = i + 1 < codes.size() ? codes[i + 1] : bytes.size();
    while (end > begin && bytes[end - 1] == 0) --end;
    if (end != begin)
      found.push_back(std::to_string(begin) + ": " + ToHex(bytes.data() + begin, end - begin));
  }
  return found;
}

TEST(StartCodeUnits, AgreesWithThePlainForm) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    Bytes bytes(random() % 40);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() % 3);
    EXPECT_EQ(Units(bytes), PlainUnits(bytes)) << ToHex(bytes);
  }
}

TEST(StartCodeUnits, IsAForwardRange) {
  const Bytes bytes = Hex("00 00 01 67 00 00 01 68 00 00 01 65");
  const StartCodeUnits units(bytes.data(), bytes.size());
  EXPECT_EQ(std::distance(units.begin(), units.end()), 3);
  auto at = units.begin();
  const auto before = at++;
  EXPECT_EQ(before->H264Type(), 7);
  EXPECT_EQ(at->H264Type(), 8);
  EXPECT_TRUE(before != at);
}

TEST(NalUnit, TellsItsType) {
  const Bytes h264 = Hex("65"), hevc = Hex("42 01");
  EXPECT_EQ((NalUnit{h264.data(), 1, 0}.H264Type()), 5);
  EXPECT_EQ((NalUnit{hevc.data(), 2, 0}.HevcType()), 33);
}

// A unit in a block of its own size, so that the sanitizers see a step outside.
template <class Read>
auto Exactly(const Bytes& bytes, Read read) {
  const std::unique_ptr<uint8_t[]> block(new uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), block.get());
  return read(block.get(), bytes.size());
}

TEST(OptionalRecords, HoldTheElementsOfTheSet) {
  const auto sps = Exactly(Hex(kSps), ReadH264Sps);
  ASSERT_TRUE(sps);
  EXPECT_EQ(sps->pic_width_in_mbs_minus1, 53u);
  EXPECT_EQ(sps->pic_height_in_map_units_minus1, 29u);
  EXPECT_EQ(sps->frame_crop_right_offset, 5u);
  const auto pps = Exactly(Hex(kPps), ReadH264Pps);
  ASSERT_TRUE(pps);
  EXPECT_EQ(pps->weighted_bipred_idc, 2u);
  EXPECT_EQ(pps->transform_8x8_mode_flag, 1u);
  const auto hevcSps = Exactly(Hex(kHevcSps), ReadHevcSps);
  ASSERT_TRUE(hevcSps);
  EXPECT_EQ(hevcSps->pic_width_in_luma_samples, 856u);
  EXPECT_EQ(hevcSps->pic_height_in_luma_samples, 480u);
  EXPECT_EQ(hevcSps->bit_depth_luma_minus8, 2u);
  EXPECT_EQ(hevcSps->transfer_characteristics, 16u);
  const auto vps = Exactly(Hex(kHevcVps), ReadHevcVps);
  ASSERT_TRUE(vps);
  EXPECT_EQ(vps->vps_max_sub_layers_minus1, 0u);
  const auto hevcPps = Exactly(Hex(kHevcPps), ReadHevcPps);
  ASSERT_TRUE(hevcPps);
  EXPECT_EQ(hevcPps->sign_data_hiding_enabled_flag, 1u);
}

TEST(OptionalRecords, AreAbsentForSetsThatEndTooSoon) {
  const DiagnosticScope quiet(nullptr);
  const auto cuts = [](const char* set, auto read) {
    const Bytes whole = Hex(set);
    for (size_t size = 0; size < whole.size(); ++size) {
      // A cut behind the last element takes trailing bits away at most, and the record is whole.
      const bool present =
          Exactly(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), read).has_value();
      EXPECT_TRUE(!present || size + 1 == whole.size()) << set << " cut to " << size;
    }
  };
  cuts(kSps, ReadH264Sps);
  cuts(kPps, ReadH264Pps);
  cuts(kHevcVps, ReadHevcVps);
  cuts(kHevcSps, ReadHevcSps);
  cuts(kHevcPps, ReadHevcPps);
}

// Only a 3 behind two zeros is no part of the set: one that counted as such would leave it too short.
TEST(OptionalRecords, AreThereWhereA3IsPartOfTheSet) {
  for (const int profile : {66, 0}) {
    qln::test::BitBuilder bits;
    bits.u(8, 0x67)
        .u(8, static_cast<uint32_t>(profile))
        .u(8, 3)
        .u(8, 30)
        .ue(0)
        .ue(0)
        .ue(2)
        .ue(1)
        .u(1, 0)
        .ue(19);
    bits.ue(11).u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing();
    const auto sps = Exactly(bits.bytes(), ReadH264Sps);
    ASSERT_TRUE(sps) << profile;
    EXPECT_EQ(sps->pic_width_in_mbs_minus1, 19u);
  }
}

TEST(OptionalRecords, AreAbsentForWhatAReaderCannotTake) {
  const Bytes sps = Hex(kSps);
  EXPECT_FALSE(ReadH264Sps(sps.data(), size_t{1} << 28));  // nothing of it is looked at
  Bytes pps = Hex(kPps);
  pps.resize(3000, 0x55);
  {
    const qln::test::NoMemory none;
    EXPECT_FALSE(ReadH264Pps(pps.data(), pps.size()));
  }
  EXPECT_TRUE(ReadH264Pps(pps.data(), pps.size()));
}

TEST(OptionalRecords, AreAbsentForOtherUnits) {
  EXPECT_FALSE(Exactly(Hex(kPps), ReadH264Sps));
  EXPECT_FALSE(Exactly(Hex(kSps), ReadH264Pps));
  EXPECT_FALSE(Exactly(Hex(kHevcSps), ReadHevcVps));
  EXPECT_FALSE(Exactly(Hex(kHevcVps), ReadHevcSps));
  EXPECT_FALSE(Exactly(Hex(kHevcVps), ReadHevcPps));
  EXPECT_FALSE(ReadH264Sps(nullptr, 0));
  EXPECT_FALSE(ReadHevcSps(nullptr, 12));
}

TEST(OptionalRecords, StartFromZero) {
  const auto pps = ReadH264Pps(Hex(kPps).data(), 6);
  ASSERT_TRUE(pps);
  H264PpsRecord plain{};
  Bytes bytes = Hex(kPps);
  bytes.push_back(0);
  QLNBitState state{bytes.data(), 6, 48, 0};
  qlnutilRead_PPS(&state, &plain);
  EXPECT_EQ(std::memcmp(&*pps, &plain, sizeof plain), 0);
}

TEST(SetCaptions, HasTheBytesOfTheStandards) {
  DFrame frame{};
  const CaptionTriplet triplets[] = {{true, 0, 0x94, 0x2C}, {true, 1, 0x80, 0x80}, {true, 3, 0x02, 0x21}};
  ASSERT_TRUE(SetCaptions(&frame, triplets, 3, CaptionRate::k59_94, 0x0102));
  EXPECT_EQ(frame.captionFlags, QLN_CAPTION_ANC);
  // prefix, ANC head; cdp: identifier, length, rate, flags, counter; ccdata of ten triplets; footer, checksum
  Bytes expected =
      Hex("00 00 00 00 61 01 2B 96 69 2B 7F 43 01 02 72 EA FC 94 2C FD 80 80 FF 02 21 FA 00 00 FA 00 00 FA "
          "00 00 FA 00 00 "
          "FA 00 00 FA 00 00 FA 00 00 74 01 02 00");
  uint32_t sum = 0;
  for (size_t i = 7; i < expected.size(); ++i) sum += expected[i];
  expected.back() = static_cast<uint8_t>(256 - sum % 256);
  EXPECT_EQ(ToHex(frame.captionData, frame.captionSize), ToHex(expected));
}

TEST(SetCaptions, MakesPacketsThatTheWritersTake) {
  const size_t counts[] = {25, 25, 24, 20, 20, 12, 10, 10};
  for (unsigned code = 1; code <= 8; ++code) {
    const auto rate = static_cast<CaptionRate>(code);
    EXPECT_EQ(CaptionTripletCount(rate), counts[code - 1]);
    DFrame frame{};
    const std::vector<CaptionTriplet> full(counts[code - 1], {true, 2, 0xFF, 0x96});
    ASSERT_TRUE(SetCaptions(&frame, full.data(), full.size(), rate, 0xFFFF));
    EXPECT_EQ(qln::CheckCaptionPacketOf(frame), 0);
    ASSERT_TRUE(SetCaptions(&frame, nullptr, 0, rate, 0));
    EXPECT_EQ(qln::CheckCaptionPacketOf(frame), 0);
  }
}

TEST(SetCaptions, ComesBackOutOfAFrame) {
  const Bytes coded = Hex("00 00 00 01 67 64 00 1E 00 00 00 01 68 EB 00 00 00 01 65 88 84 00");
  Bytes buffer = coded;
  buffer.resize(1000);
  DFrame frame{};
  frame.frameData = buffer.data();
  frame.frameSize = static_cast<uint32_t>(coded.size());
  frame.frameCapacity = static_cast<uint32_t>(buffer.size());
  const CaptionTriplet triplet{true, 0, 0x94, 0x20};
  ASSERT_TRUE(SetCaptions(&frame, &triplet, 1, CaptionRate::k60, 9));
  ASSERT_EQ(qlnutilAddAVCCaptions(&frame, frame.captionData, frame.captionSize, 0), 0);
  for (const NalUnit& unit : StartCodeUnits(frame.frameData, frame.frameSize)) {
    if (unit.H264Type() != 6) continue;
    DFrame back{};
    qlnUtilReadH264CaptionsSEI(unit.data, static_cast<uint32_t>(unit.size), 60, 0, DFrameCaption(&back));
    ASSERT_EQ(back.captionSize, 19u + 30u);
    EXPECT_EQ(ToHex(back.captionData + 16, 6), "FC 94 20 FA 00 00");
    return;
  }
  FAIL() << "no caption unit";
}

TEST(SetCaptions, RefusesWhatCannotBe) {
  DFrame frame{};
  const std::vector<CaptionTriplet> many(26);
  EXPECT_FALSE(SetCaptions(nullptr, many.data(), 1, CaptionRate::k24, 0));
  EXPECT_FALSE(SetCaptions(&frame, nullptr, 1, CaptionRate::k24, 0));
  EXPECT_FALSE(SetCaptions(&frame, many.data(), 26, CaptionRate::k24, 0));
  EXPECT_FALSE(SetCaptions(&frame, many.data(), 11, CaptionRate::k60, 0));
  EXPECT_FALSE(SetCaptions(&frame, many.data(), 1, static_cast<CaptionRate>(0), 0));
  EXPECT_FALSE(SetCaptions(&frame, many.data(), 1, static_cast<CaptionRate>(9), 0));
  EXPECT_EQ(frame.captionSize, 0u);
  EXPECT_EQ(frame.captionFlags, 0u);
}

TEST(DiagnosticScope, TakesTheThreadsDiagnosticsAndGivesTheSinkBack) {
  std::vector<std::string> outer, inner;
  {
    const DiagnosticScope outside([&](uint32_t, const char* text) { outer.push_back(text); });
    ErrOut("one");
    {
      const DiagnosticScope inside([&](uint32_t severity, const char* text) {
        EXPECT_EQ(severity, KX_SEVERITY_ERROR);
        inner.push_back(text);
      });
      ErrOut("two");
    }
    ErrOut("three");
  }
  EXPECT_THAT(outer, ElementsAre("one", "three"));
  EXPECT_THAT(inner, ElementsAre("two"));
}

TEST(DiagnosticScope, StopsWhatItsHandlerThrows) {
  std::vector<std::string> outer;
  const DiagnosticScope outside([&](uint32_t, const char* text) { outer.push_back(text); });
  {
    const DiagnosticScope throwing([](uint32_t, const char*) { throw std::runtime_error("no"); });
    EXPECT_NO_THROW(ErrOut("lost"));
  }
  {
    const DiagnosticScope dropping(nullptr);
    ErrOut("dropped");
  }
  ErrOut("kept");
  EXPECT_THAT(outer, ElementsAre("kept"));
}

}  // namespace
}  // namespace qlnutil
