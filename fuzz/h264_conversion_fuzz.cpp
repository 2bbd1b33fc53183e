// Both frame conversions within exactly the room that they need, and back where they are each other's
// inverse.

#include <cstdlib>

#include "fuzz_input.h"
#include "qlnutil/h264/frame_conversion.h"
#include "qlnutil/qlnh264.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint32_t frameSize = static_cast<uint32_t>(size);
  qln::fuzz::Block lengths(data, size, size);
  if (qlnUtilh264SizeToMarker(lengths.data(), frameSize) > frameSize) std::abort();

  const uint32_t widened = qln::CountWidenedMarkers(data, frameSize);
  qln::fuzz::Block markers(data, size, size + widened);
  const uint32_t newSize = qlnUtilh264MarkerToSize(markers.data(), frameSize);
  if (newSize != frameSize + widened) std::abort();
  if (newSize < 4 || !qln::BeginsWithStartCode(data, frameSize)) return 0;
  // The lengths lead to the frame's end.
  uint64_t at = 0;
  while (at + 4 <= newSize) {
    const uint8_t* const p = markers.data() + at;
    at += 4 + (uint64_t{p[0]} << 24 | uint64_t{p[1]} << 16 | uint64_t{p[2]} << 8 | p[3]);
  }
  if (at != newSize) std::abort();
  return 0;
}
