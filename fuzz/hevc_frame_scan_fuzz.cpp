// The scan of an HEVC frame for its parameter sets, on any bytes.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz_input.h"
#include "qlnutil/qlnhevc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  const std::unique_ptr<uint8_t[]> bytes(new uint8_t[size]);
  if (size != 0) std::memcpy(bytes.get(), data, size);
  DFrame frame{};
  frame.frameData = bytes.get();
  frame.frameSize = static_cast<uint32_t>(size);
  const auto vps = std::make_unique<HevcVpsRecord>();
  const auto sps = std::make_unique<HevcSpsRecord>();
  const auto pps = std::make_unique<HevcPpsRecord>();
  const std::unique_ptr<uint8_t[]> first(new uint8_t[QLN_HEVC_UNIT_SIZE]);
  const std::unique_ptr<uint8_t[]> second(new uint8_t[QLN_HEVC_UNIT_SIZE]);
  uint32_t firstSize = 0;
  uint32_t secondSize = 0;
  const uint32_t count = qlnutilFindNalUnitsHevc(&frame, vps.get(), sps.get(), pps.get(), 0, 0, first.get(),
                                                 second.get(), 0, &firstSize, &secondSize);
  if (count > size || firstSize > QLN_HEVC_UNIT_SIZE || secondSize > QLN_HEVC_UNIT_SIZE) std::abort();
  return 0;
}
