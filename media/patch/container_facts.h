// What the changes of a stream ask of the container around it.
#ifndef MEDIA_PATCH_CONTAINER_FACTS_H
#define MEDIA_PATCH_CONTAINER_FACTS_H

#include <optional>
#include <vector>

#include "container/mp4/change.h"
#include "qlnmedia/stream_editor.h"
#include "units/units.h"

namespace qlnmedia {

// What the first sequence parameter sets of two lists of units, before a change and behind it, say of the
// pictures; nothing where either has none.
std::optional<mp4::PictureSize> PictureSizeOf(Codec codec, const std::vector<Bytes>& before,
                                              const std::vector<Bytes>& after);

// For every sample description of an MP4 or MOV track.
mp4::ContainerFacts FactsOf(const StreamChanges& changes, const StreamDescription& stream);

}  // namespace qlnmedia

#endif
