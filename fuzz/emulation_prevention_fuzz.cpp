// Removal and insertion of emulation prevention by every policy, within exactly the room that they are told.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qlnutil/bits/emulation_prevention.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace qln;
  static constexpr EmulationRemoval kRemovals[] = {kRemovalH264Sps,   kRemovalH264Pps,    kRemovalH264Slice,
                                                   kRemovalHevcVps,   kRemovalHevcSpsPps, kRemovalHevcBox,
                                                   kRemovalSeiPayload};
  for (const EmulationRemoval& policy : kRemovals) {
    const std::unique_ptr<uint8_t[]> apart(new uint8_t[size]);
    const std::unique_ptr<uint8_t[]> inPlace(new uint8_t[size]);
    if (size != 0) std::memcpy(inPlace.get(), data, size);
    const size_t removed = RemoveEmulationPrevention(apart.get(), data, size, policy);
    if (RemoveEmulationPrevention(inPlace.get(), inPlace.get(), size, policy) != removed) std::abort();
    if (size != 0 && std::memcmp(apart.get(), inPlace.get(), size) != 0) std::abort();
  }
  static constexpr EmulationInsertion kInsertions[] = {kInsertionH264Writer, kInsertionHevcWriter,
                                                       kInsertionSeiPacket};
  for (const EmulationInsertion& policy : kInsertions) {
    const std::unique_ptr<uint8_t[]> roomy(new uint8_t[WorstEscapedSize(size)]);
    const size_t written = InsertEmulationPrevention(roomy.get(), WorstEscapedSize(size), data, size, policy);
    if (written == kDoesNotFit || written < size) std::abort();
    const std::unique_ptr<uint8_t[]> tight(new uint8_t[size]);
    const size_t inTight = InsertEmulationPrevention(tight.get(), size, data, size, policy);
    if (inTight != (written == size ? size : kDoesNotFit)) std::abort();
  }
  return 0;
}
