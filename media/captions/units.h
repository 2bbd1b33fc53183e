// SEI units with the captions of one picture.
#ifndef MEDIA_CAPTIONS_UNITS_H
#define MEDIA_CAPTIONS_UNITS_H

#include <optional>
#include <vector>

#include "captions/user_data.h"
#include "units/units.h"

namespace qlnmedia {

// The unit that stands in front of the slice `slice` of an H.264 or HEVC picture: user data registered by
// ITU-T T.35 (ATSC A/53 part 4), in HEVC in the temporal layer of the slice. The library makes it where it
// takes that many triplets: always in HEVC, up to ten in H.264.
Bytes MakeCaptionUnit(Codec codec, ByteSpan slice, const std::vector<qlnmedia::captions::Triplet>& triplets);

// The captions of an SEI unit, all its messages after each other; nothing if it has none. The library reads
// them where they are the one whole message of an H.264 unit.
std::optional<std::vector<qlnmedia::captions::Triplet>> ReadCaptionUnit(Codec codec, ByteSpan unit);

// True for a message that holds captions.
bool IsCaptionMessage(const SeiMessage& message);

}  // namespace qlnmedia

#endif
