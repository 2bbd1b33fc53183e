// How far a stream reorders pictures, by its own word.
#ifndef MEDIA_PICTURES_REORDER_DEPTH_H
#define MEDIA_PICTURES_REORDER_DEPTH_H

#include <cstdint>
#include <optional>

#include "units/units.h"

namespace qlnmedia {

// The pictures that precede another in coding order and follow it in output order, at most: of an H.264
// sequence parameter set max_num_reorder_frames (ITU-T H.264 clause E.2.1), 0 for pic_order_cnt_type 2, which
// allows none; of HEVC sps_max_num_reorder_pics of the highest sub-layer (ITU-T H.265 clause 7.4.3.2.1).
// Nothing where the set does not say it, or is none.
std::optional<uint32_t> DeclaredReorder(Codec codec, ByteSpan sps);

}  // namespace qlnmedia

#endif
