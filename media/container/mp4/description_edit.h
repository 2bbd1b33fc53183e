// The boxes of a sample description, with new bodies in the places of old ones.
#ifndef MEDIA_CONTAINER_MP4_DESCRIPTION_EDIT_H
#define MEDIA_CONTAINER_MP4_DESCRIPTION_EDIT_H

#include <optional>

#include "container/mp4/change.h"

namespace qlnmedia::mp4 {

// What a `btrt` says (ISO/IEC 14496-12 clause 8.5.2.2).
struct BitRates {
  uint32_t buffer = 0;   // bytes; the largest sample
  uint32_t most = 0;     // bits in any second
  uint32_t average = 0;  // bits in a second
};

// A description with the wishes applied. The bytes from `at` to `end` become `bytes`; they begin with the
// last byte in front of its boxes, so that there always is one.
struct NewDescription {
  uint64_t at = 0;
  uint64_t end = 0;
  Bytes bytes;
};

// Nothing where no byte changes. `number` is the description's, 1-based. `before` and `after` are what the
// samples say, and null where they stay: a value of `btrt` that was true of them is made true again, any
// other stays. Throws Error where a record is not there that is to be replaced.
std::optional<NewDescription> EditDescription(const Source& source, const Layout& layout, const Track& track,
                                              uint32_t number, const TrackChange& change,
                                              const BitRates* before, const BitRates* after);

}  // namespace qlnmedia::mp4

#endif
