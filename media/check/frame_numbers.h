// The frame numbers of H.264 pictures (ITU-T H.264 clause 7.4.3, frame_num).
#ifndef MEDIA_CHECK_FRAME_NUMBERS_H
#define MEDIA_CHECK_FRAME_NUMBERS_H

#include <optional>
#include <string>
#include <vector>

#include "pictures/slice_head.h"

namespace qlnmedia {

// Finds gaps: frames are missing where the set does not announce that they may be.
class FrameNumbers {
 public:
  // Parameter sets from outside the packets.
  void TakeSet(ByteSpan unit) { slices_.TakeSet(unit); }
  // Takes the units of a packet; returns what is wrong, mostly nothing. `gapsAllowed` is what the active set
  // says (gaps_in_frame_num_value_allowed_flag).
  std::vector<std::string> Take(const std::vector<Unit>& units, bool gapsAllowed);

 private:
  SliceHeadReader slices_{Codec::kH264};
  std::optional<uint32_t> before_;  // of the reference picture in front; nothing where it is not known
};

}  // namespace qlnmedia

#endif
