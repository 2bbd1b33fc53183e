// What inspect says of Dolby Vision: the configuration that a container holds, and the metadata of a frame.
#ifndef MEDIA_INSPECT_DOLBY_VISION_H
#define MEDIA_INSPECT_DOLBY_VISION_H

#include "base/report.h"
#include "container/media_stream.h"
#include "units/units.h"

namespace qlnmedia {

// The fields of a stream's Dolby Vision configuration (dvcC or dvvC box, or what Matroska and transport
// streams have instead) by their published names.
void AddDolbyVisionConfiguration(Section& stream, const DolbyVisionConfiguration& record);

// The size of the RPU in a frame of an HEVC stream, found by the library; nothing for a frame without one.
void AddDolbyVisionMetadata(Section& frame, const UnitRun& run);

}  // namespace qlnmedia

#endif
