// Without memory: long units are not read, not written and not put in front, and nothing is touched.

#include "h264/h264_test_support.h"
#include "h264/parameter_set_writer_support.h"
#include "qlnutil/h264/avcc.h"
#include "support/no_memory.h"

namespace qln::test {
namespace {

constexpr size_t kLong = 3000;  // of units that copies on the stack do not hold

Bytes LongUnit(uint8_t header) {
  Bytes unit(kLong, 0x55);
  unit[0] = header;
  return unit;
}

template <class Record, class Function>
void ExpectNotRead(Function function, const Bytes& unit) {
  const auto before = Filled<Record>(0x77);
  Record record = before;
  Bytes bytes = unit;
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size()), static_cast<uint32_t>(bytes.size() * 8),
                    0};
  {
    const NoMemory none;
    EXPECT_EQ(function(&state, &record), 0u);
  }
  EXPECT_EQ(state.bitPos, 0u);
  EXPECT_TRUE(SameWords(record, before));
  EXPECT_EQ(bytes, unit);
  EXPECT_NE(function(&state, &record), 0u);
}

TEST(H264WithoutMemory, ALongSetIsNotRead) {
  ExpectNotRead<H264SpsRecord>(qlnutilRead_SPS, LongUnit(0x67));
  ExpectNotRead<H264PpsRecord>(qlnutilRead_PPS, LongUnit(0x68));
}

TEST(H264WithoutMemory, ABoxWithALongSpsIsRefused) {
  Bytes box = Join({Hex("00 00 0B CB 61 76 63 43 01 42 00 1E FF E1 0B B8"), LongUnit(0x67), Hex("00")});
  const auto before = Filled<H264SpsRecord>(0x77);
  H264SpsRecord sps = before;
  QLNBitState state{box.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
  {
    const NoMemory none;
    EXPECT_EQ(qlnutilReadAvcc(&state, &sps, nullptr), 0xFFFFFFFFu);
  }
  EXPECT_TRUE(SameWords(sps, before));
  state.bitPos = 0;
  EXPECT_EQ(qlnutilReadAvcc(&state, &sps, nullptr), 0u);
}

// 900 bytes of slice groups, each a bit: they need memory to be built, and once more for their escapes.
TEST(H264WithoutMemory, ALongSetIsNotWritten) {
  H264PpsRecord pps{};
  pps.nal_unit_type = 8;
  pps.num_slice_groups_minus1 = 7200;
  const Bytes whole = WritePpsUnit(pps);
  EXPECT_GT(whole.size(), 900u);
  for (const int64_t allocations : {0, 1, 2}) {
    const NoMemory none(allocations);
    EXPECT_EQ(WritePpsUnit(pps), allocations == 2 ? whole : Bytes()) << allocations;
  }
}

TEST(H264WithoutMemory, NothingIsAddedByALongSps) {
  const Bytes sps = LongUnit(0x67);
  const Bytes slice = Hex("00 00 00 03 65 88 80");
  Bytes bytes = slice;
  bytes.resize(4096, 0xA5);
  DFrame frame{};
  frame.frameType = 0x10000000;
  frame.frameData = bytes.data();
  frame.frameSize = static_cast<uint32_t>(slice.size());
  frame.frameCapacity = 4096;
  const Bytes before = bytes;
  const auto add = [&] {
    qlnutilAddNalUnits(&frame, sps.data(), static_cast<int32_t>(sps.size()), 1, 1, 1, 1, 0, 0, 0, 0, 1);
  };
  {
    const NoMemory none;
    add();
  }
  EXPECT_EQ(frame.frameSize, slice.size());
  EXPECT_EQ(bytes, before);
  add();
  EXPECT_GT(frame.frameSize, slice.size());
}

}  // namespace
}  // namespace qln::test
