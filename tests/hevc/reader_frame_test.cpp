// What the three parameter set readers share, and where they differ on purpose: copy, removal of emulation
// prevention, trailing check, movement of the state.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

uint32_t Bits(const Bytes& unit) { return static_cast<uint32_t>(unit.size() * 8); }

TEST(HevcReaderFrame, PlainUnitsEndInTheirTrailingBits) {
  auto vps = ReadVps(Vps());
  EXPECT_EQ(vps.result, Vps().size());
  EXPECT_EQ(vps.bitPos, Bits(Vps()));
  EXPECT_THAT(vps.messages, IsEmpty());
  auto sps = ReadSps(Sps());
  EXPECT_EQ(sps.result, Sps().size());
  EXPECT_EQ(sps.bitPos, Bits(Sps()));
  EXPECT_THAT(sps.messages, IsEmpty());
  auto pps = ReadPps(Pps());
  EXPECT_EQ(pps.result, Pps().size());
  EXPECT_EQ(pps.bitPos, Bits(Pps()));
  EXPECT_THAT(pps.messages, IsEmpty());
}

TEST(HevcReaderFrame, NothingToReadTouchesNothing) {
  Bytes unit = Sps();
  QLNBitState state{unit.data(), static_cast<int32_t>(unit.size()), Bits(unit), 3};
  HevcVpsRecord vps{};
  HevcPpsRecord pps{};
  const auto sps = std::make_unique<HevcSpsRecord>();
  EXPECT_EQ(qlnutilRead_HEVC_VPS(&state, nullptr, nullptr, 0), 0u);
  EXPECT_EQ(qlnutilRead_HEVC_SPS(&state, nullptr, nullptr, 0), 0u);
  EXPECT_EQ(qlnutilRead_HEVC_PPS(&state, nullptr, nullptr, 0), 0u);
  EXPECT_EQ(qlnutilRead_HEVC_VPS(nullptr, &vps, nullptr, 0), 0u);
  EXPECT_EQ(qlnutilRead_HEVC_SPS(nullptr, sps.get(), nullptr, 0), 0u);
  EXPECT_EQ(qlnutilRead_HEVC_PPS(nullptr, &pps, nullptr, 0), 0u);
  state.size = 0;
  EXPECT_EQ(qlnutilRead_HEVC_SPS(&state, sps.get(), nullptr, 0), 0u);
  EXPECT_EQ(state.bitPos, 3u);
  EXPECT_EQ(sps->pic_width_in_luma_samples, 0u);
}

TEST(HevcReaderFrame, ANegativeSizeIsAFailedAllocation) {
  Bytes unit = Sps();
  const auto sps = std::make_unique<HevcSpsRecord>();
  for (const int32_t size : {-1, INT32_MIN}) {
    QLNBitState state{unit.data(), size, Bits(unit), 3};
    MessageCapture capture;
    EXPECT_EQ(qlnutilRead_HEVC_SPS(&state, sps.get(), nullptr, 0), 0xFFFFFFFFu);
    EXPECT_EQ(state.bitPos, 3u);
    EXPECT_THAT(capture.texts(), IsEmpty());
  }
}

TEST(HevcReaderFrame, OtherTypesAreRefusedAtBitSeven) {
  for (uint32_t type = 0; type < 64; ++type) {
    Bytes unit = Sps();
    unit[0] = static_cast<uint8_t>(type << 1);
    const std::string number = std::to_string(type);
    if (type != 32) {
      auto vps = ReadVps(unit);
      EXPECT_EQ(vps.result, 0xFFFFFFFFu);
      EXPECT_EQ(vps.bitPos, 7u);
      EXPECT_THAT(vps.messages, ElementsAre("Not a vps NAL" + kLocated));
      EXPECT_EQ(Words(vps.record()), std::vector<uint32_t>(210));
    }
    if (type != 33) {
      auto sps = ReadSps(unit);
      EXPECT_EQ(sps.result, 0xFFFFFFFFu);
      EXPECT_EQ(sps.bitPos, 7u);
      EXPECT_THAT(sps.messages, ElementsAre("Not a sps NAL" + kLocated));
    }
    if (type != 34) {
      auto pps = ReadPps(unit);
      EXPECT_EQ(pps.result, 0xFFFFFFFFu);
      EXPECT_EQ(pps.bitPos, 7u);
      EXPECT_THAT(pps.messages, ElementsAre("Not a pps NAL (" + number + ")" + kLocated));
    }
  }
}

TEST(HevcReaderFrame, AUnitInsideALargerBuffer) {
  const Bytes unit = Pps();
  const Bytes buffer = Join({Hex("AA BB CC"), unit, Hex("11 22 33")});
  // The part of bitPos below a byte survives a success.
  auto pps = ReadPps(buffer, nullptr, Bits(unit), 3 * 8 + 5);
  EXPECT_EQ(pps.result, unit.size());
  EXPECT_EQ(pps.bitPos, 3 * 8 + 5 + Bits(unit));
  EXPECT_THAT(pps.messages, IsEmpty());
  // A refusal assigns the private position.
  auto refused = ReadSps(buffer, nullptr, Bits(unit), 3 * 8 + 5);
  EXPECT_EQ(refused.bitPos, 7u);
}

TEST(HevcReaderFrame, HeaderBitsBehindTheTypeAreNotLookedAt) {
  for (const uint32_t header : {0x4201u, 0x42FFu, 0x4300u, 0xC201u}) {
    SpsParts parts;
    parts.header = header;
    EXPECT_EQ(ReadSps(Sps(parts)).result, Sps().size());
  }
}

TEST(HevcReaderFrame, FewerThanEightBitsReadAsTypeZero) {
  const Bytes unit = Pps();
  for (uint32_t bits = 1; bits < 8; ++bits) {
    auto pps = ReadPps(unit, nullptr, bits);
    EXPECT_EQ(pps.result, 0xFFFFFFFFu);
    EXPECT_EQ(pps.bitPos, 7u);
    EXPECT_THAT(pps.messages, ElementsAre("Not a pps NAL (0)" + kLocated));
  }
  // Neither a length nor a bit length.
  Bytes bytes = unit;
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), 0, 0};
  HevcPpsRecord record{};
  MessageCapture capture;
  EXPECT_EQ(qlnutilRead_HEVC_PPS(&state, &record, nullptr, 0), 0xFFFFFFFFu);
  EXPECT_EQ(state.bitPos, 7u);
  EXPECT_THAT(capture.textsWithoutLines(), ElementsAre("Not a pps NAL (0)" + kLocated));
}

TEST(HevcReaderFrame, ALengthThatIsNoMultipleOfEightCutsItsLastByte) {
  // 12 bits: one byte of data, the four bits behind it 0; everything else is over-read.
  auto pps = ReadPps(Pps(), nullptr, 12);
  EXPECT_EQ(pps.record().dependent_slice_segments_enabled_flag, 0xFFFFFFFFu);
  EXPECT_EQ(pps.bitPos, 12u);
  // 20 bits: the byte behind bit 16 is cut, so its bits read as 0 up to position 20 inclusive.
  auto sps = ReadSps(Hex("42 01 FF FF"), nullptr, 20);
  EXPECT_EQ(sps.record().sps_video_parameter_set_id, 0u);
  EXPECT_EQ(sps.record().sps_max_sub_layers_minus1, 0xFFFFFFFFu);
  auto whole = ReadSps(Hex("42 01 FF FF"), nullptr, 24);
  EXPECT_EQ(whole.record().sps_video_parameter_set_id, 15u);
  EXPECT_EQ(whole.record().sps_max_sub_layers_minus1, 7u);
}

TEST(HevcReaderFrame, BytesBehindTheStatesSizeReadAsZeroAndAreNotAllocated) {
  // A length of half a gigabyte over a few bytes: linear in what is there.
  const Bytes unit = Pps();
  auto pps = ReadPps(unit, nullptr, 0xFFFFFFF8u);
  EXPECT_EQ(pps.bitPos, 0xFFFFFFF8u);
  EXPECT_EQ(pps.result, unit.size());
  EXPECT_THAT(pps.messages,
              ElementsAre(LengthMessage("PPS", "1 padding = 0 current bit " + std::to_string(Bits(unit)) +
                                                   " bit length -8 0x00000000 0x00000000")));
  // A start behind the data.
  auto behind = ReadPps(unit, nullptr, 64, 0xFFFFFFF0u);
  EXPECT_EQ(behind.result, 0xFFFFFFFFu);
  EXPECT_EQ(behind.bitPos, 7u);
}

TEST(HevcReaderFrame, AHugeLengthEndsAtOnceForEveryReader) {
  const auto whole = [](const auto& read, const Bytes& unit) {
    auto plain = read(unit, static_cast<uint32_t>(unit.size() * 8));
    EXPECT_EQ(plain.result, unit.size());
    for (uint32_t bits : {0xFFFFFFFFu, 0xFFFFFFF8u, 0x80000000u, 0x7FFFFFF8u}) {
      for (size_t n = 1; n <= unit.size(); ++n) {
        const auto begin = std::chrono::steady_clock::now();
        auto outcome = read(Head(unit, n), bits);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2)) << bits << " " << n;
        if (n < unit.size()) continue;
        // What is there is read as ever; the length that does not go with it is the one thing said.
        EXPECT_EQ(Words(outcome.record()), Words(plain.record()));
        EXPECT_EQ(outcome.messages.size(), 1u);
        EXPECT_EQ(outcome.bitPos, bits);
      }
    }
  };
  whole([](const Bytes& b, uint32_t bits) { return ReadVps(b, nullptr, bits); }, Vps());
  whole([](const Bytes& b, uint32_t bits) { return ReadSps(b, nullptr, bits); }, Sps());
  whole([](const Bytes& b, uint32_t bits) { return ReadPps(b, nullptr, bits); }, Pps());
}

TEST(HevcReaderFrame, RemovalLooksFromAnotherByteInEachReader) {
  // 00 00 03 that begins at byte 1: header and head of the unit.
  auto vps = ReadVps(Hex("40 00 00 03 FF FF 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_THAT(vps.messages[0], "Vps Reserved bits incorrect" + kLocated)
      << "00 FF: the base layer bits are 0";
  EXPECT_EQ(vps.bitPos, 22u);
  auto without = ReadVps(Hex("40 00 00 FF FF FF 00"));
  EXPECT_EQ(without.bitPos, vps.bitPos);

  // The SPS and the PPS keep the 03 at bytes 1 and 2.
  auto sps = ReadSps(Hex("42 00 00 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(sps.record().sps_video_parameter_set_id, 0u);
  EXPECT_EQ(sps.record().profile_tier_level.general_profile_idc, 3u) << "the 03 is byte 3 of the unit";
  auto second = ReadSps(Hex("42 01 00 00 03 05 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(second.record().profile_tier_level.general_profile_compatibility_flags, 0x03050000u);
  auto third = ReadSps(Hex("42 01 01 00 00 03 05 07 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(third.record().profile_tier_level.general_profile_compatibility_flags, 0x00050700u);
  auto pps = ReadPps(Hex("44 00 00 03 80 80"));
  // The 03 stays: 14 zeros, a 1, and the suffix 1 1000 0000 1000 0.
  EXPECT_EQ(pps.record().pps_pic_parameter_set_id, (1u << 14) - 1 + 0x3010);
}

TEST(HevcReaderFrame, AVpsLosesTheEscapeThatASpsKeeps) {
  // Byte 1 to 3 are 00 00 03 here: the VPS then reads its id from the byte behind.
  auto vps = ReadVps(Hex("40 00 00 03 5C 01 FF FF 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(vps.record().vps_video_parameter_set_id, 0u);
  EXPECT_EQ(vps.bitPos, 22u);
  auto atZero = ReadVps(Hex("40 01 5C 01 FF FF 00 00 03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(atZero.record().vps_video_parameter_set_id, 5u);
}

TEST(HevcReaderFrame, AVpsLosesAnEscapeInItsHeadAndAtItsVeryEnd) {
  // 00 00 03 at bytes 3 to 5: the reserved word has the byte behind the 03.
  auto head = ReadVps(Hex("40 01 0C 00 00 03 5A 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(head.record().vps_reserved_0xffff_16bits, 0x005Au);
  EXPECT_EQ(head.bitPos, 48u);
  // Behind the trailing bits: 16 zeros and the one at the limit are left, then 7 bits past it, of which the
  // first has 6 to come.
  auto end = ReadVps(Join({Vps(), Hex("00 00 03")}));
  EXPECT_THAT(end.messages,
              ElementsAre(LengthMessage("VPS", "1 padding = 0 current bit " + std::to_string(Bits(Vps())) +
                                                   " bit length " + std::to_string(Bits(Vps()) + 24) +
                                                   " 0xFFFFFFFF 0x0000003F")));
}

TEST(HevcReaderFrame, AShortPpsIsParsedAsItStands) {
  // Five bytes with 00 00 03: nothing is removed; the ue(v) sees the bits of the 03.
  auto pps = ReadPps(Hex("44 01 00 00 03"));
  // Bits from 16: 22 zeros, 1, 1: the count stops at the first 1.
  EXPECT_EQ(pps.record().pps_pic_parameter_set_id, 0xFFFFFFFFu - 1 + (1u << 22))
      << "22 zeros, then a suffix that runs past the end";
  EXPECT_EQ(pps.messages.size(), 1u);
}

TEST(HevcReaderFrame, ResultCountsUnescapedBytes) {
  SpsParts parts;
  parts.profile.compatibility = 0;
  parts.profile.constraints = 1;
  const Bytes plain = Sps(parts);
  const Bytes escaped = Escaped(plain);
  ASSERT_GT(escaped.size(), plain.size());
  auto sps = ReadSps(escaped);
  EXPECT_EQ(sps.result, plain.size());
  EXPECT_EQ(sps.bitPos, Bits(escaped));
  EXPECT_THAT(sps.messages, IsEmpty());
  EXPECT_EQ(Words(sps.record()), Words(ReadSps(plain).record()));
}

TEST(HevcReaderFrame, AZeroTailGivesTheLengthMessageOnly) {
  for (const size_t zeros : {1u, 2u, 9u}) {
    const std::string tail = " bit length ";
    const auto expected = [&](const char* set, const Bytes& unit) {
      return LengthMessage(set, "1 padding = 0 current bit " + std::to_string(Bits(unit)) + tail +
                                    std::to_string(Bits(unit) + 8 * zeros) + " 0x00000000 0x00000000");
    };
    auto vps = ReadVps(Join({Vps(), Bytes(zeros, 0)}));
    EXPECT_EQ(vps.result, Vps().size());
    EXPECT_THAT(vps.messages, ElementsAre(expected("VPS", Vps())));
    auto sps = ReadSps(Join({Sps(), Bytes(zeros, 0)}));
    EXPECT_EQ(sps.result, Sps().size());
    EXPECT_EQ(sps.bitPos, Bits(Sps()) + 8 * zeros);
    EXPECT_THAT(sps.messages, ElementsAre(expected("SPS", Sps())));
    auto pps = ReadPps(Join({Pps(), Bytes(zeros, 0)}));
    EXPECT_EQ(pps.result, Pps().size());
    EXPECT_THAT(pps.messages, ElementsAre(expected("PPS", Pps())));
  }
}

TEST(HevcReaderFrame, LengthMessageShowsTheBitsThatWereLeft) {
  const Bytes unit = Pps();
  const std::string at = std::to_string(Bits(unit));
  auto one = ReadPps(Join({unit, Hex("A5")}));
  EXPECT_THAT(one.messages, ElementsAre(LengthMessage(
                                "PPS", "1 padding = 0 current bit " + at + " bit length " +
                                           std::to_string(Bits(unit) + 8) + " 0x000000A5 0x00000000")));
  auto many = ReadPps(Join({unit, Hex("01 23 45 67 89 AB CD EF 55 55")}));
  EXPECT_THAT(many.messages, ElementsAre(LengthMessage(
                                 "PPS", "1 padding = 0 current bit " + at + " bit length " +
                                            std::to_string(Bits(unit) + 80) + " 0x89ABCDEF 0x01234567")));
}

TEST(HevcReaderFrame, LengthMessageMeasuresFromTheEscapedLength) {
  // One escape removed: the reader stands at the end, 8 bits short of the given length, and the tail byte is
  // real. L - pos is 16 bits: the tail's 8, then 8 that are past the limit, of which the first is a zero.
  const Bytes unit = Join({Pps(), Hex("40 00 00 03 00")});
  auto pps = ReadPps(unit);
  const uint32_t position = Bits(Pps());
  const uint32_t left = 40;
  // Four bytes 40 00 00 00 are left; the limit cuts behind them: bit 32 is real and 0, the rest over-read.
  // The first over-read bit has 6 bits still to come: the low 38 bits of the number are set.
  const uint64_t value = (uint64_t{0x40000000} << 8) | ((uint64_t{1} << 38) - 1);
  char text[200];
  std::snprintf(text, sizeof text, "1 padding = 0 current bit %u bit length %u 0x%08X 0x%08X", position,
                position + left, static_cast<uint32_t>(value), static_cast<uint32_t>(value >> 32));
  EXPECT_THAT(pps.messages, ElementsAre(LengthMessage("PPS", text)));
}

TEST(HevcReaderFrame, WrongTrailingBitsGiveTheAlignmentMessage) {
  const auto broken = [](BitBuilder bits, const char* ending) {
    const size_t odd = bits.bits() % 8;
    std::string tail = ending;
    tail.resize(8 - odd, tail.back());
    return bits.raw(tail).bytes();
  };
  PpsParts parts;
  ASSERT_NE(PpsBits(parts).bits() % 8, 7u);
  const std::string position = std::to_string(Bits(Pps()));
  auto none = ReadPps(broken(PpsBits(parts), "0"));
  EXPECT_THAT(none.messages,
              ElementsAre("\nqlnutilRead_HEVC_PPS failed allignment bit = 0 padding = 0 current bit " +
                          position + " bit length " + position));
  EXPECT_EQ(none.result, Pps().size());
  auto ones = ReadPps(broken(PpsBits(parts), "1"));
  EXPECT_THAT(ones.messages,
              ElementsAre("\nqlnutilRead_HEVC_PPS failed allignment bit = 1 padding = 1 current bit " +
                          position + " bit length " + position));
  ASSERT_NE(VpsBits({}).bits() % 8, 7u);
  const std::string vpsPosition = std::to_string(Bits(Vps()));
  auto vps = ReadVps(broken(VpsBits({}), "01"));
  EXPECT_THAT(vps.messages,
              ElementsAre("\nqlnutilRead_HEVC_VPS failed allignment bit = 0 padding = 1 current bit " +
                          vpsPosition + " bit length " + vpsPosition));
  ASSERT_NE(SpsBits({}).bits() % 8, 7u);
  const std::string spsPosition = std::to_string(Bits(Sps()));
  auto sps = ReadSps(broken(SpsBits({}), "01"));
  EXPECT_THAT(sps.messages,
              ElementsAre("\nqlnutilRead_HEVC_SPS failed allignment bit = 0 padding = 1 current bit " +
                          spsPosition + " bit length " + spsPosition));
}

TEST(HevcReaderFrame, EveryTruncationRunsToItsEnd) {
  SpsParts full;
  full.maxSubLayersMinus1 = 2;
  full.subLayers = [](BitBuilder& b) {
    b.raw("11 01 00 00 00 00 00 00");
    b.u(2, 0).u(1, 0).u(5, 1).u(32, 7).u(4, 9).u(44, 0).u(8, 90).u(8, 60);
  };
  full.orderingFlag = 0;
  full.vui = [](BitBuilder& b) { b.u(1, 1).u(1, 0).u(1, 0).u(1, 0).u(1, 0).u(3, 0).u(1, 0).u(1, 0).u(1, 0); };
  const Bytes sps = Sps(full);
  const auto truncated = [](const auto& read, const Bytes& unit, size_t smallest) {
    for (size_t n = 1; n < unit.size(); ++n) {
      auto outcome = read(Head(unit, n));
      if (n < smallest) continue;
      EXPECT_EQ(outcome.bitPos, n * 8);
      EXPECT_GE(outcome.result, n);
      EXPECT_NE(outcome.result, 0xFFFFFFFFu);
    }
  };
  truncated([](const Bytes& b) { return ReadSps(b); }, sps, 1);
  truncated([](const Bytes& b) { return ReadPps(b); }, Pps(), 1);
  truncated([](const Bytes& b) { return ReadVps(b); }, Vps(), 6);
}

TEST(HevcReaderFrame, AnSpsThatOverrunsIsHeldAgainstItsTrailingBitsOnly) {
  int silent = 0;
  int reported = 0;
  SpsParts parts;
  for (parts.width = 1; parts.width < 5000; parts.width *= 2) {
    const Bytes unit = Sps(parts);
    for (size_t n = 2; n + 2 < unit.size(); ++n) {
      auto sps = ReadSps(Head(unit, n));
      // The stop bit is over-read, all ones: only padding, which is over-read as well, makes a message.
      if (sps.messages.empty()) {
        ++silent;
        continue;
      }
      ++reported;
      ASSERT_EQ(sps.messages.size(), 1u);
      EXPECT_EQ(sps.messages[0],
                "\nqlnutilRead_HEVC_SPS failed allignment bit = -1 padding = -1 current bit " +
                    std::to_string(sps.result * 8) + " bit length " + std::to_string(n * 8));
    }
  }
  EXPECT_GT(reported, 0);
  EXPECT_GT(silent, 0) << "no padding is left where the stop bit ends a byte";
  // The other two call the length wrong, and show 64 bits that lie past the end.
  auto pps = ReadPps(Head(Pps(), 4));
  EXPECT_EQ(pps.messages[0].rfind("\nqlnutilRead_HEVC_PPS failed bit length is wrong = -1 padding = ", 0),
            0u);
  EXPECT_NE(pps.messages[0].find(" bit length 32 0xFFFFFFFF 0xFFFFFFFF"), std::string::npos);
}

TEST(HevcReaderFrame, ResultsAreZeroExtended) {
  auto refused = ReadPps(Sps());
  EXPECT_EQ(refused.result, uint64_t{0x00000000FFFFFFFF});
}

}  // namespace
}  // namespace qln::test
