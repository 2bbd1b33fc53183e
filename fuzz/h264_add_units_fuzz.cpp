// Units put in front of any frame, with any parameter set and any capacity.

#include <cstdlib>

#include "fuzz_input.h"
#include "qlnutil/qlnh264.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t steer = input.Number(1);
  const uint32_t spare = input.Number(2) % 2048;
  const uint32_t types[] = {0x10000000, 0x80000000, 0x20000000, input.Number(4)};
  const uint8_t* sps;
  const size_t spsSize = input.Take(input.Number(1), &sps);
  H264SpsRecord record{};
  if (spsSize != 0) {
    for (size_t i = 0; i < sizeof record; ++i) reinterpret_cast<uint8_t*>(&record)[i] = sps[i % spsSize];
  }
  qln::fuzz::Block spsBytes(sps, spsSize, spsSize);
  // The block ends with the capacity.
  qln::fuzz::Block buffer(input.data(), input.left(), input.left() + spare);
  DFrame frame{};
  frame.frameType = types[steer >> 6];
  frame.frameData = buffer.data();
  frame.frameSize = static_cast<uint32_t>(input.left());
  frame.frameCapacity = static_cast<uint32_t>(buffer.size);
  const void* const set = steer & 32 ? static_cast<const void*>(&record) : spsBytes.data();
  qlnutilAddNalUnits(&frame, set, steer & 32 ? -1 : static_cast<int32_t>(spsSize), steer & 1, steer & 2,
                     steer & 4, steer & 8, types[3], spare, types[3] / 3, spare * 77,
                     static_cast<uint8_t>(steer & 16 ? 1 : 0));
  if (frame.frameSize > frame.frameCapacity) std::abort();
  return 0;
}
