// Caption packets into frames: any packet, any frame, any capacity, all three adders.

#include "fuzz_input.h"
#include "qlnutil/qlninband.h"

// Head: adder, a word of flags, second field offset, caption size, spare room; then the caption packet (its
// sum repaired where the flags say so) and the frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t adder = input.Number(1);
  const uint32_t flags = input.Number(1);
  const uint32_t secondFieldOffset = input.Number(2);
  const uint32_t captionSize = input.Number(2);
  const uint32_t room = input.Number(2) % 1024;

  const uint8_t* bytes;
  const size_t captionBytes = input.Take(captionSize, &bytes);
  qln::fuzz::Block caption(bytes, captionBytes, captionBytes);
  if ((flags & 1) != 0 && captionBytes > 16) {
    // A packet that gets past the tests.
    uint8_t* const p = caption.data();
    const auto length = static_cast<uint8_t>(captionBytes - 7);
    p[4] = 0x61;
    p[5] = 0x01;
    p[6] = p[9] = length;
    p[7] = 0x96;
    p[8] = 0x69;
    p[length + 4] = p[12];
    p[length + 5] = p[13];
    uint32_t sum = 0;
    for (size_t i = 7; i + 1 < captionBytes; ++i) sum += p[i];
    p[captionBytes - 1] = static_cast<uint8_t>(0u - sum);
  }

  const size_t frameBytes = input.left();
  qln::fuzz::Block block(input.data(), frameBytes, frameBytes + room);
  DFrame frame = {};
  frame.frameData = block.data();
  frame.frameSize = static_cast<uint32_t>(frameBytes);
  frame.frameCapacity = static_cast<uint32_t>(frameBytes + room);
  frame.fieldFlags = (flags & 2) != 0 ? QLN_TWO_FIELDS : 0;
  frame.secondFieldOffset = secondFieldOffset;
  frame.captionSize = captionSize;
  std::memcpy(frame.captionData, caption.data(), std::min(captionBytes, sizeof frame.captionData));

  switch (adder % 3) {
    case 0:
      qlnutilAddAVCCaptions(&frame, caption.data(), static_cast<uint32_t>(captionBytes), flags & 4);
      break;
    case 1:
      qlnutilAddMPEG2Captions(&frame);
      break;
    default:
      frame.frameSize += qlnUtilAddHevcCaptions(&frame, 0);
  }
  if (frame.frameSize > frame.frameCapacity) __builtin_trap();
  return 0;
}
