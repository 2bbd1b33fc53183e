// The avcC reader on any bytes and limits, and the builder on any frame with exactly the room that it needs.

#include <cstdlib>

#include "fuzz_input.h"
#include "qlnutil/qlnh264.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t steer = input.Number(1);
  const uint32_t limit = input.Number(4);
  qln::fuzz::Block bytes(input.data(), input.left(), input.left());
  H264SpsRecord sps{};
  H264PpsRecord pps{};
  QLNBitState state{bytes.data(), static_cast<int32_t>(bytes.size),
                    steer & 1 ? limit : static_cast<uint32_t>(bytes.size * 8), steer >> 4};
  qlnutilReadAvcc(&state, steer & 2 ? nullptr : &sps, steer & 4 ? nullptr : &pps);

  DFrame frame{};
  frame.frameData = bytes.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size);
  // No set is longer than the frame behind its first prefix.
  const size_t set = bytes.size > 4 ? bytes.size - 4 : 0;
  qln::fuzz::Block output(nullptr, 0, 14 + (2 + set) + (3 + set));
  if (qlnutilGetAvcc(&frame, output.data()) > output.size) std::abort();
  return 0;
}
