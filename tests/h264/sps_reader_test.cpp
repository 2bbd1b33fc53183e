// The SPS reader: refusals, emulation prevention, units that end early, and hostile counts.

#include "h264/h264_test_support.h"

namespace qln {
namespace {

using test::BitBuilder;
using test::Bytes;
using test::Escape;
using test::Filled;
using test::Hex;
using test::ParseWith;
using test::PlainSpsBody;
using test::ReadSpsUnit;
using test::SameWords;
using test::SpsHead;

constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

TEST(SpsRecord, FieldNamesFollowTheLayout) {
  EXPECT_STREQ(kH264SpsFields[0].name, "forbidden_zero_bit");
  uint32_t words = 0;
  for (const RecordField& field : kH264SpsFields) words += field.count;
  EXPECT_EQ(words, 639u);
  words = 0;
  for (const RecordField& field : kH264PpsFields) words += field.count;
  EXPECT_EQ(words, 811u);
  words = 0;
  for (const RecordField& field : kH264SliceHeaderFields) words += field.count;
  EXPECT_EQ(words, 819u);
}

TEST(SpsReader, RefusesANullRecordAndASizeOfZero) {
  Bytes unit = Hex("67 42 00 1E F4");
  QLNBitState state{unit.data(), 5, 40, 3};
  EXPECT_EQ(qlnutilRead_SPS(&state, nullptr), 0u);
  EXPECT_EQ(state.bitPos, 3u);
  const auto filled = Filled<H264SpsRecord>(0x5A5A5A5A);
  H264SpsRecord record = filled;
  state.size = 0;
  EXPECT_EQ(qlnutilRead_SPS(&state, &record), 0u);
  EXPECT_EQ(state.bitPos, 3u);
  EXPECT_TRUE(SameWords(record, filled));
}

TEST(SpsReader, ReadsAPlainBaselineSps) {
  BitBuilder bits = SpsHead(66, 5);
  PlainSpsBody(bits).u(1, 0).trailing();
  const auto parsed = ReadSpsUnit(bits.bytes());
  EXPECT_EQ(parsed.result, bits.bytes().size());
  EXPECT_EQ(parsed.bitPos, bits.bits());
  const H264SpsRecord& sps = parsed.record;
  EXPECT_EQ(sps.forbidden_zero_bit, 0u);
  EXPECT_EQ(sps.nal_ref_idc, 3u);
  EXPECT_EQ(sps.nal_unit_type, 7u);
  EXPECT_EQ(sps.profile_idc, 66u);
  EXPECT_EQ(sps.level_idc, 30u);
  EXPECT_EQ(sps.seq_parameter_set_id, 5u);
  EXPECT_EQ(sps.chroma_format_idc, 1u);
  EXPECT_EQ(sps.bit_depth_luma_minus8, 8u);
  EXPECT_EQ(sps.bit_depth_chroma_minus8, 8u);
  EXPECT_EQ(sps.pic_order_cnt_type, 2u);
  EXPECT_EQ(sps.max_num_ref_frames, 1u);
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u);
  EXPECT_EQ(sps.pic_height_in_map_units_minus1, 11u);
  EXPECT_EQ(sps.frame_mbs_only_flag, 1u);
  EXPECT_EQ(sps.direct_8x8_inference_flag, 1u);
  EXPECT_EQ(sps.rbsp_stop_one_bit, 1u);
}

TEST(SpsReader, KeepsWhatTheStreamDoesNotHave) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 0).trailing();
  const auto parsed = ReadSpsUnit(bits.bytes(), Filled<H264SpsRecord>(77));
  EXPECT_EQ(parsed.record.sar_width, 77u);
  EXPECT_EQ(parsed.record.mb_adaptive_frame_field_flag, 77u);
  EXPECT_EQ(parsed.record.log2_max_pic_order_cnt_lsb_minus4, 77u);
  EXPECT_EQ(parsed.record.frame_crop_left_offset, 77u);
  EXPECT_EQ(parsed.record.vcl_hrd.schedule[7].cbr_flag, 77u);
  EXPECT_EQ(parsed.record.ScalingList8x8[5][63], 77);
  EXPECT_EQ(parsed.record.chroma_format_idc, 1u);
}

TEST(SpsReader, StoresConstraintFlagsAndReservedBitsAsTheyStand) {
  BitBuilder bits;
  bits.u(8, 0xFF).u(8, 77).u(6, 0b101011).u(2, 2).u(8, 0xC3).ue(31);
  PlainSpsBody(bits).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(bits.bytes()).record;
  EXPECT_EQ(sps.forbidden_zero_bit, 1u);
  EXPECT_EQ(sps.nal_ref_idc, 3u);
  EXPECT_EQ(sps.nal_unit_type, 31u);
  EXPECT_EQ(sps.constraint_set0_flag, 1u);
  EXPECT_EQ(sps.constraint_set1_flag, 0u);
  EXPECT_EQ(sps.constraint_set2_flag, 1u);
  EXPECT_EQ(sps.constraint_set3_flag, 0u);
  EXPECT_EQ(sps.constraint_set4_flag, 1u);
  EXPECT_EQ(sps.constraint_set5_flag, 1u);
  EXPECT_EQ(sps.reserved_zero_2bits, 2u);
  EXPECT_EQ(sps.level_idc, 0xC3u);
  EXPECT_EQ(sps.seq_parameter_set_id, 31u);
}

TEST(SpsReader, StartsAtTheCallersPosition) {
  BitBuilder bits;
  bits.u(8, 0xAB);
  bits.u(1, 0).u(2, 1).u(5, 7).u(8, 66).u(8, 0).u(8, 10).ue(2);
  PlainSpsBody(bits).u(1, 0).trailing();
  const Bytes unit = bits.bytes();
  const auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()),
                                static_cast<uint32_t>(unit.size() * 8), 8);
  EXPECT_EQ(parsed.record.nal_ref_idc, 1u);
  EXPECT_EQ(parsed.record.seq_parameter_set_id, 2u);
  EXPECT_EQ(parsed.result, unit.size());
}

// Units of small sizes: seq_parameter_set_id, log2_max_frame_num_minus4 and so on tell which bytes were read.
TEST(SpsReader, LeavesUnitsOfUpToSixBytesEscaped) {
  // 00 00 03 from byte 3 on; the level is 0, the id code begins with 8 zeros and 6 more.
  const auto six = ReadSpsUnit(Hex("67 42 80 00 00 03"));
  // With the 3: the id is the code of 14 zeros, a one and "1" and thirteen bits beyond the end.
  const auto seven = ReadSpsUnit(Hex("67 42 80 00 00 03 40"));
  // Without: 8 zeros, "01 000000", then stale 40.
  BitBuilder unescaped;
  unescaped.u(24, 0x674280).u(8, 0).u(8, 0).u(8, 0x40).u(8, 0x40);
  Bytes plain = unescaped.bytes();
  const auto same = ReadSpsUnit(plain);
  EXPECT_EQ(seven.record.seq_parameter_set_id, same.record.seq_parameter_set_id);
  EXPECT_EQ(seven.bitPos, same.bitPos);
  EXPECT_NE(six.record.seq_parameter_set_id, same.record.seq_parameter_set_id);
  EXPECT_EQ(six.record.level_idc, 0u);
}

TEST(SpsReader, KeepsTriplesInTheFirstThreeBytesAndAtTheVeryEnd) {
  // At byte 1: profile 0, flags 0, level 3.
  const auto atOne = ReadSpsUnit(Hex("67 00 00 03 80 80 80 80"));
  EXPECT_EQ(atOne.record.profile_idc, 0u);
  EXPECT_EQ(atOne.record.level_idc, 3u);
  // At byte 2: level 0, and the 3 begins the id: six zeros, then "11 11111".
  const auto atTwo = ReadSpsUnit(Hex("67 42 00 00 03 F8 80 80"));
  EXPECT_EQ(atTwo.record.level_idc, 0u);
  EXPECT_EQ(atTwo.record.seq_parameter_set_id, 0b1111111u - 1);
  // At byte 3 the 3 goes: level 0, id from 00 and F8.
  const auto atThree = ReadSpsUnit(Hex("67 42 01 00 00 03 F8 80 80"));
  EXPECT_EQ(atThree.record.level_idc, 0u);
  EXPECT_EQ(atThree.record.seq_parameter_set_id, 0b111110001u - 1);
}

TEST(SpsReader, TripleInTheLastByteStays) {
  // level 30, id "1", then 29 zeros up to the 3, whose first one ends them; the suffix runs past the end.
  const auto parsed = ReadSpsUnit(Hex("67 42 01 1E 80 00 00 03"));
  EXPECT_EQ(parsed.record.log2_max_frame_num_minus4, kMinusOne - 1 + (1u << 29));
}

TEST(SpsReader, RemovesBothOfTwoTriplesInARowAndLeavesStaleBytes) {
  const auto parsed = ReadSpsUnit(Hex("67 42 01 00 00 03 00 00 03 01 FF FF"));
  // 00 | 00 00 00 01 FF FF, and two stale FF: the id has 31 zeros, a one and 31 ones.
  EXPECT_EQ(parsed.record.level_idc, 0u);
  EXPECT_EQ(parsed.record.seq_parameter_set_id, 0xFFFFFFFEu);
}

TEST(SpsReader, LeavesTwelveInPlace) {
  // level 0, id from 00 0C: 12 zeros, then "1100" and nine bits of FF FF.
  const auto parsed = ReadSpsUnit(Hex("67 42 01 00 00 0C FF FF FF"));
  EXPECT_EQ(parsed.record.seq_parameter_set_id, (0b11ull << 11 | 0b00111111111u) - 1);
}

TEST(SpsReader, ParsesACutUnitToItsEnd) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 1).u(1, 1).u(8, 1);
  Bytes unit = bits.bytes();
  const auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()),
                                static_cast<uint32_t>(bits.bits()) - 1, 0);
  EXPECT_NE(parsed.result, 0u);
  EXPECT_GT(parsed.bitPos, parsed.bitLength);
  EXPECT_EQ(parsed.record.aspect_ratio_idc, 1u);  // its last bit lies at the limit and is real
  EXPECT_EQ(parsed.record.overscan_info_present_flag, kMinusOne);
  EXPECT_EQ(parsed.record.overscan_appropriate_flag, kMinusOne);
  EXPECT_EQ(parsed.record.num_units_in_tick, kMinusOne);
  EXPECT_EQ(parsed.record.nal_hrd_parameters_present_flag, kMinusOne);
  EXPECT_EQ(parsed.record.nal_hrd.cpb_cnt_minus1, 0u);
  EXPECT_EQ(parsed.record.nal_hrd.schedule[0].cbr_flag, kMinusOne);
  EXPECT_EQ(parsed.record.rbsp_stop_one_bit, kMinusOne);
}

TEST(SpsReader, TheAlignmentReadThatFailsMovesThePosition) {
  BitBuilder bits = SpsHead(66);
  PlainSpsBody(bits).u(1, 0);  // ends without a stop bit
  const Bytes unit = bits.bytes();
  ASSERT_NE(bits.bits() % 8, 0u);
  // With the limit on the stop bit, that is real; the first bit behind it fails and moves.
  const auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()),
                                static_cast<uint32_t>(bits.bits()), 0);
  EXPECT_EQ(parsed.record.rbsp_stop_one_bit, 0u);
  const uint32_t expected = (bits.bits() + 1) % 8 == 0 ? 1u : 2u;
  EXPECT_EQ(parsed.bitPos, bits.bits() + expected);
  EXPECT_EQ(parsed.result, parsed.bitPos / 8);
}

TEST(SpsReader, SizesBelowZeroAndLimitsBeyondTheSizeStayInsideTheCopy) {
  const Bytes unit = Hex("67 42 00 1E F4 05 07 EC 80");
  auto parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, -5, 72, 0);
  EXPECT_EQ(parsed.record.nal_unit_type, 0u);
  EXPECT_EQ(parsed.record.profile_idc, 0u);
  EXPECT_NE(parsed.result, 0u);
  parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, 3, 0x7FFFFFFF, 0);
  EXPECT_EQ(parsed.record.profile_idc, 66u);
  EXPECT_EQ(parsed.record.level_idc, 0u);
  parsed = ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, 9, 0xFFFFFFFF, 0);
  EXPECT_EQ(parsed.record.profile_idc, 66u);
  EXPECT_EQ(parsed.record.level_idc, 30u);
}

// A count of 2^31 - 2 rounds over the end of the data: one step, with the result of running every round.
TEST(SpsReader, FinishesAHostileCycleInOneStep) {
  for (const uint32_t count : {0x7FFFFFFEu, 0x7FFFFFFFu}) {
    BitBuilder bits = SpsHead(66);
    bits.ue(0).ue(1).u(1, 0).ue(0).ue(0);
    bits.ue(count).ue(6);
    const Bytes unit = Escape(bits.bytes());
    const uint32_t limit = static_cast<uint32_t>(bits.bits()) - 1;
    const auto parsed =
        ParseWith(qlnutilRead_SPS, unit, H264SpsRecord{}, static_cast<int32_t>(unit.size()), limit, 0);
    EXPECT_EQ(parsed.record.num_ref_frames_in_pic_order_cnt_cycle, count);
    EXPECT_EQ(parsed.record.offset_for_ref_frame, 0u);
    // One round reads the 6; each further one moves by 1. Behind the cycle: max_num_ref_frames 1, gaps 1,
    // width 1, height 1, frame_mbs_only 1, direct 1, cropping 1 with four offsets, VUI flag 1, and so on.
    EXPECT_EQ(parsed.record.frame_cropping_flag, kMinusOne);
    BitBuilder none = SpsHead(66);
    none.ue(0).ue(1).u(1, 0).ue(0).ue(0).ue(1).ue(6);
    const Bytes shortUnit = none.bytes();
    const auto one =
        ParseWith(qlnutilRead_SPS, shortUnit, H264SpsRecord{}, static_cast<int32_t>(shortUnit.size()),
                  static_cast<uint32_t>(none.bits()) - 1, 0);
    const uint32_t behindOne = one.bitPos - static_cast<uint32_t>(none.bits());
    EXPECT_EQ(parsed.bitPos, static_cast<uint32_t>(bits.bits()) + (count - 1) + behindOne);
  }
}

TEST(SpsReader, ACycleCountWithItsTopBitSetRunsNoRound) {
  BitBuilder bits = SpsHead(66);
  bits.ue(0).ue(1).u(1, 0).ue(0).ue(0);
  bits.u(31, 0).u(1, 1).u(31, 1);  // 0x80000000
  bits.ue(4).u(1, 0).ue(19).ue(11).u(1, 1).u(1, 1).u(1, 0).u(1, 0).trailing();
  const H264SpsRecord sps = ReadSpsUnit(Escape(bits.bytes()), Filled<H264SpsRecord>(12)).record;
  EXPECT_EQ(sps.num_ref_frames_in_pic_order_cnt_cycle, 0x80000000u);
  EXPECT_EQ(sps.offset_for_ref_frame, 12u);
  EXPECT_EQ(sps.max_num_ref_frames, 4u);
  EXPECT_EQ(sps.pic_width_in_mbs_minus1, 19u);
}

}  // namespace
}  // namespace qln
