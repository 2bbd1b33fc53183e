// Timecode into any frame of any capacity; the HEVC form is owed 16 bytes behind the frame.

#include "fuzz_input.h"
#include "qlnutil/qlninband.h"

// Head: codec, timecode type, spare room, timecode; then the frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const bool hevc = (input.Number(1) & 1) != 0;
  const auto type = static_cast<uint8_t>(input.Number(1));
  const uint32_t spare = input.Number(1);
  const uint32_t timeCode = input.Number(4);
  const uint32_t room = hevc ? 16 : spare;

  const size_t bytes = input.left();
  qln::fuzz::Block block(input.data(), bytes, bytes + room);
  DFrame frame = {};
  frame.timeCodeA = timeCode;
  frame.frameData = block.data();
  frame.frameSize = static_cast<uint32_t>(bytes);
  frame.frameCapacity = static_cast<uint32_t>(bytes + room);
  if (hevc) {
    qlnutilAddHEVCTimeCode(&frame, type);
  } else {
    qlnutilAddAVCTimeCode(&frame, type);
  }
  if (frame.frameSize > bytes + room) __builtin_trap();
  return 0;
}
