// What the changes of a stream ask of the container around it.
#ifndef MEDIA_PATCH_CONTAINER_FACTS_H
#define MEDIA_PATCH_CONTAINER_FACTS_H

#include "container/mp4/change.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

// For every sample description of an MP4 or MOV track.
mp4::ContainerFacts FactsOf(const StreamChanges& changes, const StreamDescription& stream);

}  // namespace qlnmedia

#endif
