// Pictures that have to keep their number of bytes: filler goes or comes for what else changes.
#ifndef MEDIA_CONTAINER_MXF_CONSTANT_SIZE_H
#define MEDIA_CONTAINER_MXF_CONSTANT_SIZE_H

#include <cstdint>
#include <optional>

#include "container/mxf/klv.h"
#include "units/units.h"

namespace qlnmedia::mxf {

// Brings an access unit with start codes to `size` bytes: by zeros behind it and by filler data units. One
// that is still longer comes back as short as filler lets it be. Without a codec it is MPEG-2's, which knows
// zeros only.
Bytes FitToSize(Bytes unit, size_t size, std::optional<Codec> codec);

}  // namespace qlnmedia::mxf

#endif
