// SPS and PPS records of random words, written and read back.

#include "h264/h264_test_support.h"
#include "h264/parameter_set_writer_support.h"
#include "qlnutil/h264/parameter_sets.h"

namespace qln {
namespace {

using test::Bytes;
using test::Differences;
using test::PlainSps;
using test::Random;
using test::ReadPpsUnit;
using test::ReadSpsUnit;
using test::WritePpsUnit;
using test::WriteSpsUnit;
using test::WriteUnit;

// Whether the readers take all emulation prevention out of a written unit again, and nothing else: none in
// the first three bytes or at the very end, no zero run from one triple into the next, no 00 00 0C.
bool EscapesComeBack(const Bytes& unit) {
  for (size_t i = 0; i + 2 < unit.size(); ++i) {
    if (unit[i] != 0 || unit[i + 1] != 0) continue;
    if (unit[i + 2] == 12) return false;
    if (unit[i + 2] == 3 && (i < 3 || i + 4 >= unit.size() || unit[i + 3] == 0)) return false;
  }
  return true;
}

// Bytes of a unit without its emulation prevention.
size_t Unescaped(const Bytes& unit) {
  size_t size = unit.size();
  for (size_t i = 0; i + 2 < unit.size(); ++i) size -= unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 3;
  return size;
}

// Random records within their fields' widths read back as they were, but for the told words.
TEST(ParameterSetWriters, RandomRecordsReadBack) {
  Random random(17);
  int compared = 0;
  for (int round = 0; round < 3000; ++round) {
    const auto flag = [&] { return static_cast<uint32_t>(random.below(2)); };
    const auto code = [&] {
      return static_cast<uint32_t>(random.next() >> (40 + random.below(24))) % 0xFFFFFF;
    };
    H264SpsRecord sps = PlainSps(random.below(2) == 0 ? 77 : 100);
    sps.seq_parameter_set_id = code();
    sps.chroma_format_idc = sps.profile_idc == 77 ? 1 : static_cast<uint32_t>(random.below(4));
    sps.bit_depth_luma_minus8 = sps.bit_depth_chroma_minus8 = sps.profile_idc == 77 ? 8 : code();
    if (sps.profile_idc == 100 && sps.chroma_format_idc == 3) sps.separate_colour_plane_flag = flag();
    sps.pic_order_cnt_type = flag() * 2;
    if (sps.pic_order_cnt_type == 0) sps.log2_max_pic_order_cnt_lsb_minus4 = code();
    sps.frame_mbs_only_flag = flag();
    if (sps.frame_mbs_only_flag == 0) sps.mb_adaptive_frame_field_flag = flag();
    sps.pic_width_in_mbs_minus1 = code();
    sps.vui_parameters_present_flag = flag();
    if (sps.vui_parameters_present_flag != 0) {
      sps.timing_info_present_flag = 1;
      sps.num_units_in_tick = static_cast<uint32_t>(random.next());
      sps.time_scale = 0x55555555;
      sps.vcl_hrd_parameters_present_flag = flag();
      if (sps.vcl_hrd_parameters_present_flag != 0) {
        sps.vcl_hrd.cpb_cnt_minus1 = static_cast<uint32_t>(random.below(8));
        for (uint32_t i = 0; i <= sps.vcl_hrd.cpb_cnt_minus1; ++i) {
          sps.vcl_hrd.schedule[i] = {code(), code(), flag()};
        }
        sps.vcl_hrd.time_offset_length = static_cast<uint32_t>(random.below(32));
        sps.low_delay_hrd_flag = flag();
      }
      sps.bitstream_restriction_flag = 1;
      sps.max_dec_frame_buffering = code();
    }
    const Bytes unit = WriteSpsUnit(sps);
    if (!EscapesComeBack(unit)) continue;
    const H264SpsRecord again = ReadSpsUnit(unit).record;
    ASSERT_EQ(Differences(sps, again, kH264SpsFields), std::vector<std::string>{}) << test::ToHex(unit);
    ++compared;
  }
  EXPECT_GT(compared, 2500);
}

// Whether the long form of ue(v) does not come into play: fields of fixed width aside, values that read back.
template <class Record>
bool ValuesComeBack(const Record& record, std::span<const RecordField> fields) {
  uint32_t words[sizeof(Record) / 4];
  std::memcpy(words, &record, sizeof record);
  for (const RecordField& field : fields) {
    const std::string name = field.name;
    if (name == "num_units_in_tick" || name == "time_scale") continue;
    for (uint32_t i = 0; i < field.count; ++i) {
      const int64_t value = field.isSigned ? int64_t{static_cast<int32_t>(words[field.word + i])} * 2
                                           : int64_t{words[field.word + i]};
      if (value >= 0xFFFFFF || value <= -0xFFFFFF) return false;
    }
  }
  return true;
}

// What the reader makes of an offset's code number that the writer put as a value: 2v - 1.
uint32_t RewrittenOffset(uint32_t code) { return code == 0 ? 0 : 2 * code - 1; }

TEST(ParameterSetWriters, AnySpsReadComesBackButForTheToldWords) {
  Random random(31);
  int compared = 0;
  int cycles = 0;
  for (int round = 0; round < 20000; ++round) {
    Bytes unit = random.bytes(40 + random.below(80));
    const uint8_t profiles[] = {66, 100, 122, 244};
    if (round % 2 == 0) unit[1] = profiles[random.below(4)];
    const auto first = ReadSpsUnit(unit);
    H264SpsRecord sps = first.record;
    if (first.bitPos > first.bitLength || sps.seq_scaling_matrix_present_flag != 0) continue;
    if (!ValuesComeBack(sps, kH264SpsFields)) continue;
    const Bytes written = WriteSpsUnit(sps);
    if (!EscapesComeBack(written)) continue;
    sps.rbsp_stop_one_bit = 1;
    if (sps.pic_order_cnt_type == 1) {
      sps.offset_for_non_ref_pic = RewrittenOffset(sps.offset_for_non_ref_pic);
      sps.offset_for_top_to_bottom_field = RewrittenOffset(sps.offset_for_top_to_bottom_field);
      sps.offset_for_ref_frame = RewrittenOffset(sps.offset_for_ref_frame);
      if (!ValuesComeBack(sps, kH264SpsFields)) continue;
      ++cycles;
    }
    const auto again = ReadSpsUnit(written);
    ASSERT_EQ(Differences(sps, again.record, kH264SpsFields), std::vector<std::string>{})
        << test::ToHex(unit) << " became " << test::ToHex(written);
    ASSERT_EQ(again.result, again.bitLength / 8 - (written.size() - Unescaped(written)));
    ++compared;
  }
  EXPECT_GT(compared, 10000);
  EXPECT_GT(cycles, 500);
}

TEST(ParameterSetWriters, AnyPpsReadComesBackButForTheToldWords) {
  Random random(37);
  int compared = 0;
  int withMore = 0;
  int withGroups = 0;
  for (int round = 0; round < 40000; ++round) {
    const auto first = ReadPpsUnit(random.bytes(24 + random.below(40)));
    const H264PpsRecord& pps = first.record;
    if (first.bitPos > first.bitLength || pps.pic_scaling_matrix_present_flag != 0) continue;
    // Rectangles and group ids do not come back, nor do groups that the record does not hold.
    const bool groups = pps.num_slice_groups_minus1 != 0;
    if (groups && (pps.slice_group_map_type == 2 || pps.slice_group_map_type == 6)) continue;
    if (groups && pps.slice_group_map_type == 0 && pps.num_slice_groups_minus1 > 7) continue;
    if (!ValuesComeBack(pps, kH264PpsFields)) continue;
    const Bytes written = WritePpsUnit(pps);
    if (!EscapesComeBack(written)) continue;
    const auto again = ReadPpsUnit(written);
    ASSERT_EQ(Differences(pps, again.record, kH264PpsFields), std::vector<std::string>{})
        << test::ToHex(written);
    withMore += pps.more_rbsp_data_present != 0;
    withGroups += groups;
    ++compared;
  }
  EXPECT_GT(compared, 10000);
  EXPECT_GT(withMore, 3000);
  EXPECT_GT(withGroups, 1000);
}

TEST(ParameterSetWriters, RecordsOfAnyWordsAreSafe) {
  Random random(23);
  for (int round = 0; round < 400; ++round) {
    for (const int32_t size : {0, 1, 5, 64, 700}) {
      H264SpsRecord sps;
      H264PpsRecord pps;
      const auto fill = [&](auto& record) {
        uint32_t words[sizeof record / 4];
        for (uint32_t& word : words) {
          const uint64_t bits = random.next();
          word = static_cast<uint32_t>(bits >> 32) >> (bits % 33 == 32 ? 31 : bits % 33);
        }
        std::memcpy(&record, words, sizeof record);
      };
      fill(sps);
      fill(pps);
      if (round % 3 == 0) sps.profile_idc = 100;
      if (round % 2 == 0) pps.num_slice_groups_minus1 = 0;
      const size_t room = 3 * static_cast<size_t>(size) + 2;  // one and a half times the scratch
      EXPECT_LE(WriteUnit(qlnutilWrite_SPS, sps, size, room).size(), room);
      EXPECT_LE(WriteUnit(qlnutilWrite_PPS, pps, size, room).size(), room);
    }
  }
}

}  // namespace
}  // namespace qln
