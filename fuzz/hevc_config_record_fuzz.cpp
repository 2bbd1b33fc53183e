// The HEVC decoder configuration record: reading any box, and writing from any record into any room.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz_input.h"
#include "qlnutil/qlnhevc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  if (size < 4) return 0;
  // Four bytes steer, the rest is the box.
  const uint8_t shape = data[0];
  const uint32_t bitPos = shape & 1 ? data[1] : 0u;
  const size_t count = size - 4;
  const std::unique_ptr<uint8_t[]> box(new uint8_t[count]);
  if (count != 0) std::memcpy(box.get(), data + 4, count);

  HevcConfigRecord config{};
  const auto vps = std::make_unique<HevcVpsRecord>();
  const auto sps = std::make_unique<HevcSpsRecord>();
  const auto pps = std::make_unique<HevcPpsRecord>();
  QLNBitState state{box.get(), static_cast<int32_t>(count), static_cast<uint32_t>(count * 8), bitPos};
  if (shape & 2) state.bitLength += data[2];
  qlnutilRead_HEVC_CR(&state, &config, shape & 4 ? nullptr : vps.get(), shape & 8 ? nullptr : sps.get(),
                      shape & 16 ? nullptr : pps.get());

  // What was read, with pieces of the box as units, into room that may be too small.
  const size_t room = data[3] * 2u;
  const std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
  std::memset(out.get(), 0, room);
  QLNBitState output{out.get(), static_cast<int32_t>(room), 0, bitPos};
  const auto third = static_cast<int32_t>(count / 3);
  const uint32_t result =
      qlnutilWrite_HEVC_CR(&output, shape & 32 ? nullptr : &config, box.get(), box.get() + third,
                           shape & 64 ? nullptr : box.get() + 2 * third, third, third, third);
  if (result != output.bitPos / 8 || (output.bitPos != bitPos && output.bitPos > room * 8)) std::abort();
  return 0;
}
