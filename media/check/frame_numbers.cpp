// Follows frame_num from picture to picture.

#include "check/frame_numbers.h"

#include <fmt/format.h>

namespace qlnmedia {

std::vector<std::string> FrameNumbers::Take(const std::vector<Unit>& units, bool gapsAllowed) {
  std::vector<std::string> findings;
  for (const Unit& unit : units) {
    const int type = UnitType(Codec::kH264, unit.bytes);
    if (IsParameterSet(Codec::kH264, type)) slices_.TakeSet(unit.bytes);
    if (!IsSlice(Codec::kH264, type) || !BeginsPicture(Codec::kH264, unit.bytes)) continue;
    const std::optional<SliceHead> head = slices_.Read(unit.bytes);
    if (!head) {
      before_.reset();
      continue;
    }
    const uint32_t most = 1u << head->sps->h264.log2MaxFrameNum;
    if (type != h264::kIdrSlice && before_ && !gapsAllowed && head->frameNum != *before_ &&
        head->frameNum != (*before_ + 1) % most)
      findings.push_back(
          fmt::format("frames are missing: frame_num goes from {} to {}, and the SPS allows no gaps",
                      *before_, head->frameNum));
    if (type == h264::kIdrSlice || head->refIdc != 0) before_ = head->resetsOrder ? 0 : head->frameNum;
  }
  return findings;
}

}  // namespace qlnmedia
