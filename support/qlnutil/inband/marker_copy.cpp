// The way into marker form and back, without loss where the frame has no room.

#include "qlnutil/inband/marker_copy.h"

#include <cstring>

#include "qlnutil/h264/frame_conversion.h"
#include "qlnutil/qlnh264.h"

namespace qln {

MarkerCopy::MarkerCopy(const DFrame& frame, uint32_t room) : bytes_(uint64_t{frame.frameSize} + room) {
  if (!bytes_.ok()) return;
  std::memcpy(bytes_.data(), frame.frameData, frame.frameSize);
  std::memset(bytes_.data() + frame.frameSize, 0, room);
  convertedSize_ = qlnUtilh264SizeToMarker(bytes_.data(), frame.frameSize);
}

bool MarkerCopy::PutBack(DFrame* frame, uint32_t size) {
  const uint32_t growth = CountWidenedMarkers(bytes_.data(), size);
  if (growth != 0 && uint64_t{size} + growth > frame->frameCapacity) return false;
  std::memcpy(frame->frameData, bytes_.data(), size);
  frame->frameSize = qlnUtilh264MarkerToSize(frame->frameData, size);
  return true;
}

}  // namespace qln
