// HDR metadata and colour codes into any frame of any capacity, and the search through it.

#include "fuzz_input.h"
#include "qlnutil/qlninband.h"

namespace {

void Read(qln::fuzz::Input* input, double* value) {
  uint64_t bits = uint64_t{input->Number(4)} << 32;
  bits |= bits >> 13;
  std::memcpy(value, &bits, sizeof bits);
}

}  // namespace

// Head: operation, codec, colour flags, spare room, doubles; then the frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t operation = input.Number(1);
  const uint32_t fourcc = (input.Number(1) & 1) != 0 ? 0x68766331 : 0x61766331;
  DFrame frame = {};
  frame.colorFlags = input.Number(2);
  const uint32_t room = input.Number(1);
  frame.colourPrimaries = input.Number(1);
  frame.transferCharacteristics = input.Number(1);
  frame.matrixCoefficients = input.Number(1);
  frame.videoFullRange = frame.matrixCoefficients >> 1;
  Read(&input, &frame.displayPrimaries[0]);
  Read(&input, &frame.maxDisplayLuminance);
  Read(&input, &frame.maxContentLightLevel);

  const size_t bytes = input.left();
  qln::fuzz::Block block(input.data(), bytes, bytes + room);
  frame.frameData = block.data();
  frame.frameSize = static_cast<uint32_t>(bytes);
  frame.frameCapacity = static_cast<uint32_t>(bytes + room);
  ContentLightRecord light;
  MasteringDisplayRecord display;
  switch (operation % 3) {
    case 0:
      qlnutilWrite_HDR_WCG_SEI_Packet(&frame, fourcc);
      break;
    case 1:
      qlnutilWriteColorimetryToSPS(&frame, fourcc);
      break;
    default:
      qlnutilFindColorSEI(&frame, (operation & 4) != 0 ? &light : nullptr,
                          (operation & 8) != 0 ? &display : nullptr);
  }
  if (frame.frameSize > frame.frameCapacity) __builtin_trap();
  return 0;
}
