// One slice header for the reader and the repair, with the parameter sets that it is read with.
#ifndef TESTS_H264_SLICE_HEADER_SUPPORT_H
#define TESTS_H264_SLICE_HEADER_SUPPORT_H

#include "h264/h264_test_support.h"

namespace qln::test {

inline constexpr uint32_t kMinusOne = 0xFFFFFFFFu;

// One header of either operation, and the parameter sets that it is read with.
struct Slice {
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  H264SliceHeaderRecord header{};
  uint32_t result = 0;
  uint32_t bitPos = 0;
  Bytes bytes;

  Slice() {
    sps.frame_mbs_only_flag = 1;
    sps.chroma_format_idc = 1;
    sps.pic_order_cnt_type = 2;
  }

  // Reads a unit from its NAL header byte on.
  void Read(const Bytes& unit, int32_t type, int32_t size = -100) {
    ExactCopy copy(unit);
    QLNBitState state{copy.data(), size == -100 ? static_cast<int32_t>(unit.size()) : size, 17, 23};
    const H264SpsRecord before = sps;
    result = qlnutilRead_SliceHeader(&state, &header, &sps, &pps, type, 3);
    EXPECT_EQ(state.data, copy.data());
    EXPECT_EQ(state.bitLength, 17u);
    EXPECT_EQ(state.bitPos, 23u);
    EXPECT_EQ(copy.bytes(), unit);
    EXPECT_TRUE(SameWords(before, sps));
  }

  // Walks in place from bit `from` on.
  void Fix(const Bytes& data, uint32_t type, int32_t marking, uint32_t from = 0, int64_t limit = -1) {
    ExactCopy copy(data);
    QLNBitState state{copy.data(), static_cast<int32_t>(data.size()),
                      limit < 0 ? static_cast<uint32_t>(data.size() * 8) : static_cast<uint32_t>(limit),
                      from};
    result = qlnutilFix_SliceHeader(&state, &header, &sps, &pps, type, marking);
    EXPECT_EQ(result, 0u);
    bitPos = state.bitPos;
    bytes = copy.bytes();
  }
};

inline BitBuilder NalHeader(uint32_t type, uint32_t refIdc = 2) {
  BitBuilder bits;
  bits.u(1, 0).u(2, refIdc).u(5, type);
  return bits;
}

}  // namespace qln::test

#endif
