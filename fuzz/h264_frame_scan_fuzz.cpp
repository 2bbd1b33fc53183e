// The walk over a frame, with and without a box in front, and the search for single units.

#include <cstdlib>

#include "fuzz_input.h"
#include "qlnutil/qlnh264.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t steer = input.Number(1);
  const uint8_t header = static_cast<uint8_t>(input.Number(1));
  qln::fuzz::Block bytes(input.data(), input.left(), input.left());
  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size);
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  qln::fuzz::Block spsBytes(nullptr, 0, QLN_H264_UNIT_BUFFER_SIZE);
  qln::fuzz::Block ppsBytes(nullptr, 0, QLN_H264_UNIT_BUFFER_SIZE);
  uint32_t spsSize = 0;
  uint32_t ppsSize = 0;
  // A box has all the bytes that its counts and lengths announce: here zeros behind the input.
  qln::fuzz::Block box(bytes.data(), bytes.size < 512 ? bytes.size : 512, 512, 0);
  qlnutilFindNalUnits(&frame, steer & 1 ? nullptr : &sps, steer & 2 ? nullptr : &pps,
                      steer & 4 ? box.data() : nullptr, spsBytes.data(), ppsBytes.data(), &spsSize, &ppsSize);
  if (spsSize > spsBytes.size || ppsSize > ppsBytes.size) std::abort();

  uint8_t* unit = nullptr;
  uint32_t unitSize = 0;
  const uint32_t frameSize = frame.frameSize;
  if (qlnUtilFindSpecificNAL(bytes.data(), frameSize, steer & 8, header, &unit, &unitSize) != 0) {
    if (unit < bytes.data() || unit + 4 >= bytes.data() + bytes.size || unit[4] != header) std::abort();
  }
  return 0;
}
