// The VPS writer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hevc/unit_builders.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

void AddTiming(BitBuilder& b) { b.u(1, 1).u(32, 1001).u(32, 60000); }

TEST(HevcVps, WriterForcesTheHeaderAndKeepsTheReservedWord) {
  HevcVpsRecord vps{};
  const Bytes written = WriteVps(vps);
  EXPECT_EQ(written[0], 0x40);
  EXPECT_EQ(written[1], 0x01);
  EXPECT_EQ(written[2], 0x0C);
  EXPECT_EQ(ReadVps(written).bitPos, 48u) << "a zero reserved word goes out and is refused";
  EXPECT_EQ(qlnutilWrite_HEVC_VPS(nullptr, nullptr), 0u);
  EXPECT_EQ(qlnutilWrite_HEVC_VPS(&vps, nullptr), 0u);
}

TEST(HevcVps, TicksOfZeroWriteASingleZeroBit) {
  VpsParts parts;
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 1).ue(0).ue(0);
  };
  auto vps = ReadVps(Vps(parts));
  vps.record().vps_num_ticks_poc_diff_one = 0;
  parts.timing = [](BitBuilder& b) {
    AddTiming(b);
    b.u(1, 1).u(1, 0).ue(0);
  };
  EXPECT_EQ(ToHex(WriteVps(vps.record())), ToHex(WriterEscaped(Vps(parts))));
}

TEST(HevcVps, AUnitThatDoesNotFitIsNotWritten) {
  for (const uint32_t sets : {1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    auto vps = ReadVps(Vps());
    vps.record().vps_max_layer_id = 63;
    vps.record().vps_num_layer_sets_minus1 = sets;
    vps.record().vps_extension_flag = 1;
    EXPECT_THAT(WriteVps(vps.record()), IsEmpty());
    EXPECT_EQ(vps.record().vps_extension_flag, 0u) << "what is told to change changes all the same";
  }
  for (const uint32_t layers : {600u, 0xFFFFFFFFu}) {
    auto vps = ReadVps(Vps());
    vps.record().vps_max_sub_layers_minus1 = layers * 8;
    EXPECT_THAT(WriteVps(vps.record()), IsEmpty()) << "the word drives its loops whole";
  }
}

TEST(HevcVps, TheLargestUnitThatFits) {
  auto vps = ReadVps(Vps());
  vps.record().vps_max_layer_id = 0;
  const auto base = WriteVps(vps.record()).size();
  // Ones need no escape: find the last count that fits and the first that does not.
  uint32_t sets = static_cast<uint32_t>((1024 - base) * 8 - 40);
  size_t last = 0;
  for (;; ++sets) {
    vps.record().vps_num_layer_sets_minus1 = sets;
    const Bytes written = WriteVps(vps.record());
    if (written.empty()) break;
    last = written.size();
  }
  EXPECT_EQ(last, 1024u);
}

TEST(HevcVps, SubLayersBeyondTheArraysCountAsZero) {
  auto vps = ReadVps(Vps());
  vps.record().vps_max_sub_layers_minus1 = 20;  // 4 in its three bits, 20 to the loops
  vps.record().vps_sub_layer_ordering_info_present_flag = 0;
  VpsParts parts;
  parts.maxSubLayersMinus1 = 4;
  parts.subLayers = [](BitBuilder& b) { b.u(40, 0); };
  parts.orderingFlag = 0;
  EXPECT_EQ(ToHex(WriteVps(vps.record())), ToHex(WriterEscaped(Vps(parts))));
}

}  // namespace
}  // namespace qln::test
