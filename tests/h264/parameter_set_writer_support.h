// Writing a parameter set into a guarded buffer.
#ifndef TESTS_H264_PARAMETER_SET_WRITER_SUPPORT_H
#define TESTS_H264_PARAMETER_SET_WRITER_SUPPORT_H

#include "h264/h264_test_support.h"

namespace qln::test {

inline constexpr uint8_t kGuard = 0xA5;

// Writes into a guarded buffer of `room` bytes; `size` is what the state tells.
template <class Function, class Record>
Bytes WriteUnit(Function function, const Record& record, int32_t size = 4096, size_t room = 16384) {
  Bytes buffer(room, kGuard);
  QLNBitState state{buffer.data(), size, 0, 0};
  const Record before = record;
  const uint64_t result = function(&state, &record);
  EXPECT_TRUE(SameWords(before, record));
  EXPECT_EQ(state.bitPos, result * 8);
  EXPECT_EQ(Bytes(buffer.begin() + static_cast<std::ptrdiff_t>(result), buffer.end()),
            Bytes(room - result, kGuard));
  buffer.resize(result);
  return buffer;
}

inline Bytes WriteSpsUnit(const H264SpsRecord& sps, int32_t size = 4096) {
  return WriteUnit(qlnutilWrite_SPS, sps, size);
}

inline Bytes WritePpsUnit(const H264PpsRecord& pps, int32_t size = 4096) {
  return WriteUnit(qlnutilWrite_PPS, pps, size);
}

inline H264SpsRecord PlainSps(uint32_t profile = 66) {
  H264SpsRecord sps{};
  sps.nal_ref_idc = 3;
  sps.nal_unit_type = 7;
  sps.profile_idc = profile;
  sps.level_idc = 30;
  sps.pic_order_cnt_type = 2;
  sps.max_num_ref_frames = 1;
  sps.pic_width_in_mbs_minus1 = 19;
  sps.pic_height_in_map_units_minus1 = 11;
  sps.frame_mbs_only_flag = 1;
  sps.direct_8x8_inference_flag = 1;
  sps.rbsp_stop_one_bit = 1;
  return sps;
}

}  // namespace qln::test

#endif
