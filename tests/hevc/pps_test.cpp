// The PPS reader and writer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

TEST(HevcPps, EveryElement) {
  PpsParts parts;
  parts.quantization = [](BitBuilder& b) { b.u(1, 1).ue(2); };
  parts.tiles = 1;
  parts.tileSizes = [](BitBuilder& b) { b.ue(3).ue(1).u(1, 1).u(1, 1); };
  parts.deblocking = [](BitBuilder& b) { b.u(1, 1).u(1, 1).u(1, 0).se(-4).se(-6); };
  auto pps = ReadPps(Pps(parts));
  const std::vector<uint32_t> expected = {0,
                                          0,
                                          0,
                                          0,
                                          5,
                                          1,
                                          0,
                                          1,
                                          2,
                                          static_cast<uint32_t>(-3),
                                          0,
                                          1,
                                          1,
                                          2,
                                          0,
                                          static_cast<uint32_t>(-2),
                                          0,
                                          1,
                                          0,
                                          0,
                                          1,
                                          0,
                                          3,
                                          1,
                                          1,
                                          0,
                                          0,
                                          1,
                                          1,
                                          1,
                                          1,
                                          0,
                                          static_cast<uint32_t>(-4),
                                          static_cast<uint32_t>(-6),
                                          0,
                                          0,
                                          3,
                                          0,
                                          0};
  EXPECT_EQ(Words(pps.record()), expected);
  EXPECT_THAT(pps.messages, IsEmpty());
  EXPECT_EQ(ToHex(WritePps(pps.record())), ToHex(WriterEscaped(Pps(parts)))) << "byte for byte";
}

TEST(HevcPps, UnreachedMembersKeepTheirValues) {
  auto pps = ReadPps(Pps(), nullptr, 0, 0, 0x33);
  EXPECT_EQ(pps.record().diff_cu_qp_delta_depth, 0x33333333u);
  EXPECT_EQ(pps.record().num_tile_columns_minus1, 0x33333333u);
  EXPECT_EQ(pps.record().uniform_spacing_flag, 0x33333333u);
  EXPECT_EQ(pps.record().pps_beta_offset_div2, 0x33333333);
  EXPECT_EQ(pps.record().pps_deblocking_filter_disabled_flag, 0x33333333u);
  EXPECT_EQ(ToHex(WritePps(pps.record())), ToHex(WriterEscaped(Pps()))) << "nor are they written";
}

TEST(HevcPps, UnequalTilesKeepTheLastWidthAndHeight) {
  PpsParts parts;
  parts.tiles = 1;
  parts.tileSizes = [](BitBuilder& b) { b.ue(2).ue(1).u(1, 0).ue(10).ue(20).ue(30).u(1, 1); };
  auto pps = ReadPps(Pps(parts));
  EXPECT_THAT(pps.messages, IsEmpty());
  EXPECT_EQ(pps.record().column_width_minus1, 20u);
  EXPECT_EQ(pps.record().row_height_minus1, 30u);
  EXPECT_EQ(pps.record().loop_filter_across_tiles_enabled_flag, 1u);
  parts.tileSizes = [](BitBuilder& b) { b.ue(2).ue(1).u(1, 0).ue(20).ue(20).ue(30).u(1, 1); };
  EXPECT_EQ(ToHex(WritePps(pps.record())), ToHex(WriterEscaped(Pps(parts))))
      << "the last width for all columns";
}

TEST(HevcPps, HostileTileCountsEndWithTheData) {
  PpsParts parts;
  parts.tiles = 1;
  parts.tileSizes = [](BitBuilder& b) { b.ue(0xFFFFFFFEu).ue(0xFFFFFFF0u).u(1, 0).ue(7); };
  const Bytes unit = Pps(parts);
  auto pps = ReadPps(unit);
  EXPECT_EQ(pps.record().num_tile_columns_minus1, 0xFFFFFFFEu);
  EXPECT_EQ(pps.record().column_width_minus1, 0u) << "the last round's value";
  EXPECT_EQ(pps.record().row_height_minus1, 0u);
  EXPECT_EQ(pps.bitPos, unit.size() * 8);
}

// A unit that is cut off where its tile block ends, with `odd` bits over its last whole byte.
BitBuilder CutBehindTiles(const Part& tileSizes, size_t odd) {
  BitBuilder head;
  for (int32_t qp = 0; qp > -60; --qp) {
    for (const bool delta : {false, true}) {
      head = BitBuilder();
      head.u(16, 0x4401).ue(0).ue(0).u(7, 0).ue(1).ue(2).se(qp).u(2, 0);
      if (delta) {
        head.u(1, 1).ue(0);
      } else {
        head.u(1, 0);
      }
      head.se(0).se(-2).u(4, 0).u(1, 1).u(1, 0);
      tileSizes(head);
      if (head.bits() % 8 == odd) return head;
    }
  }
  ADD_FAILURE() << "no such unit";
  return head;
}

TEST(HevcPps, TileRoundsPastTheEndTakeABitEach) {
  const BitBuilder head = CutBehindTiles([](BitBuilder& b) { b.ue(5000).ue(700).u(1, 0); }, 0);
  auto pps = ReadPps(head.bytes());
  EXPECT_EQ(pps.record().num_tile_columns_minus1, 5000u);
  EXPECT_EQ(pps.record().num_tile_rows_minus1, 700u);
  // 5700 sizes of one bit; loop filter, across slices, deblocking 1 + 2, lists, modification, merge level,
  // header extension, extension, stop bit.
  const auto position = static_cast<uint32_t>(head.bits()) + 5700 + 11;
  EXPECT_EQ(pps.result, (position + 7) / 8);
  EXPECT_EQ(pps.record().pps_deblocking_filter_disabled_flag, 0xFFFFFFFFu);
  EXPECT_EQ(pps.record().pps_beta_offset_div2, 0) << "an over-read disabled flag counts as set";
}

TEST(HevcPps, APositionThatWrapsCountsAsPastTheEndUntilTheLoopEnds) {
  // Five widths over a limit of 2^32 - 1. The first code counts zeros up to the last place in front of the
  // limit; the second takes the bit at the limit, and the position wraps to 0. The other three take a bit
  // each, where reading on from the front would find the codes 010 and 00100 of the header.
  const BitBuilder head = CutBehindTiles([](BitBuilder& b) { b.ue(5).ue(0).u(1, 0); }, 0);
  auto pps = ReadPps(head.bytes(), nullptr, 0xFFFFFFFFu);
  EXPECT_EQ(pps.record().num_tile_columns_minus1, 5u);
  EXPECT_EQ(pps.record().column_width_minus1, 0u);
  // Behind the loop the bits are those of the header again, from bit 3 on: 0 0100.
  EXPECT_EQ(pps.record().loop_filter_across_tiles_enabled_flag, 0u);
  EXPECT_EQ(pps.record().pps_loop_filter_across_slices_enabled_flag, 0u);
  EXPECT_EQ(pps.record().deblocking_filter_control_present_flag, 1u);
  EXPECT_EQ(pps.record().deblocking_filter_override_enabled_flag, 0u);
  EXPECT_EQ(pps.record().pps_deblocking_filter_disabled_flag, 0u);
  EXPECT_EQ(pps.bitPos, 0xFFFFFFFFu);
}

TEST(HevcPps, OverReadSpacingFlagSkipsTheWidths) {
  // The spacing flag is the second bit behind the data.
  const BitBuilder head = CutBehindTiles([](BitBuilder& b) { b.ue(30).ue(0); }, 1);
  auto pps = ReadPps(Head(head.bytes(), head.bits() / 8));
  EXPECT_EQ(pps.record().num_tile_columns_minus1, 30u);
  EXPECT_EQ(pps.record().uniform_spacing_flag, 0xFFFFFFFFu);
  EXPECT_EQ(pps.record().column_width_minus1, 0u);
  EXPECT_EQ(pps.record().deblocking_filter_control_present_flag, 0xFFFFFFFFu);
  EXPECT_EQ(pps.record().deblocking_filter_override_enabled_flag, 0xFFFFFFFFu) << "counts as set";
  EXPECT_EQ(pps.result, (head.bits() + 1 + 11 + 7) / 8);
}

TEST(HevcPps, ParallelismType) {
  const uint32_t expected[2][2] = {{1, 2}, {3, 0}};
  for (const uint32_t sync : {0u, 1u}) {
    for (const uint32_t tiles : {0u, 1u}) {
      PpsParts parts;
      parts.sync = sync;
      parts.tiles = tiles;
      if (tiles) parts.tileSizes = [](BitBuilder& b) { b.ue(1).ue(0).u(1, 1).u(1, 1); };
      HevcConfigRecord config{};
      config.parallelismType = 9;
      ReadPps(Pps(parts), &config);
      EXPECT_EQ(config.parallelismType, expected[sync][tiles]);
    }
  }
  HevcConfigRecord config{};
  config.parallelismType = 9;
  ReadPps(Sps(), &config);
  EXPECT_EQ(config.parallelismType, 9u) << "a refusal leaves it";
}

TEST(HevcPps, SignedValues) {
  PpsParts parts;
  auto pps = ReadPps(Pps(parts));
  EXPECT_EQ(pps.record().init_qp_minus26, -3);
  // -3 is code 6 and reads back; 2 goes out as code 6 as well.
  EXPECT_EQ(ReadPps(WritePps(pps.record())).record().init_qp_minus26, -3);
  pps.record().init_qp_minus26 = 2;
  EXPECT_EQ(ToHex(WritePps(pps.record())), ToHex(WriterEscaped(Pps(parts))));
  pps.record().init_qp_minus26 = 1;
  parts.initQp = -2;
  EXPECT_EQ(ToHex(WritePps(pps.record())), ToHex(WriterEscaped(Pps(parts)))) << "1 is the code of -2";
  pps.record().init_qp_minus26 = INT32_MIN;
  pps.record().pps_cb_qp_offset = INT32_MAX;
  parts.initQp = 0;
  parts.cbOffset = 0;
  EXPECT_EQ(ToHex(WritePps(pps.record())), ToHex(WriterEscaped(Pps(parts)))) << "computed modulo 2^32";
}

TEST(HevcPps, TheBitBehindTheExtensionFlagIsTheStopBit) {
  PpsParts parts;
  parts.extension = 1;
  auto bare = ReadPps(Pps(parts));
  EXPECT_EQ(bare.record().pps_extension_present_flag, 1u);
  EXPECT_THAT(bare.messages, IsEmpty()) << "with nothing behind the flag";
  BitBuilder bits = PpsBits(parts);
  bits.u(1, 1).u(7, 0).u(4, 0);  // a range extension
  auto real = ReadPps(bits.trailing().bytes());
  EXPECT_EQ(real.messages.size(), 1u);
  EXPECT_EQ(Words(real.record()), Words(bare.record()));
  EXPECT_EQ(ToHex(WritePps(real.record())), ToHex(WriterEscaped(Pps(parts))))
      << "the flag stays, the data goes";
}

TEST(HevcPps, ScalingListDataIsNotLookedFor) {
  PpsParts parts;
  parts.scalingListData = 1;
  auto pps = ReadPps(Pps(parts));
  EXPECT_EQ(pps.record().pps_scaling_list_data_present_flag, 1u);
  EXPECT_EQ(pps.record().log2_parallel_merge_level_minus2, 3u) << "the next bits, as they stand";
  EXPECT_THAT(pps.messages, IsEmpty());
}

TEST(HevcPps, AStateWithoutDataReadsAsZeros) {
  QLNBitState state{nullptr, 40, 320, 0};
  HevcPpsRecord record{};
  MessageCapture capture;
  EXPECT_EQ(qlnutilRead_HEVC_PPS(&state, &record, nullptr, 0), 0xFFFFFFFFu);
  EXPECT_EQ(state.bitPos, 7u);
  EXPECT_THAT(capture.textsWithoutLines(), testing::ElementsAre("Not a pps NAL (0)" + kLocated));
}

TEST(HevcPps, WriterNullsAndUnitsThatDoNotFit) {
  HevcPpsRecord pps{};
  uint8_t byte = 0;
  EXPECT_EQ(qlnutilWrite_HEVC_PPS(nullptr, &byte), 0u);
  EXPECT_EQ(qlnutilWrite_HEVC_PPS(&pps, nullptr), 0u);
  pps.tiles_enabled_flag = 1;
  for (const uint32_t count : {9000u, 0xFFFFFFFFu}) {
    pps.num_tile_columns_minus1 = count;
    EXPECT_THAT(WritePps(pps), IsEmpty());
  }
  pps.num_tile_columns_minus1 = 4000;
  EXPECT_GT(WritePps(pps).size(), 500u);
}

TEST(HevcPps, LongCodesFromAllOnesUp) {
  HevcPpsRecord pps{};
  pps.pps_pic_parameter_set_id = 0xFFFFFF;
  const Bytes written = WritePps(pps);
  // 65 zero bits, then 01000000: from byte 2 on 8 zero bytes, a zero bit, and the code shifted by one.
  EXPECT_EQ(ToHex(Head(written, 16)), "44 01 00 00 00 03 00 00 03 00 00 03 00 00 80 00")
      << "byte 3 is the first that may begin a triple";
}

}  // namespace
}  // namespace qln::test
