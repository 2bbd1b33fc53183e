// How the pictures of a stream hold two views, as its messages say.
#ifndef MEDIA_INSPECT_FRAME_PACKING_H
#define MEDIA_INSPECT_FRAME_PACKING_H

#include <string>

#include "base/report.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

// What a frame packing arrangement message says (ITU-T H.264 clause D.2.26, H.265 clause D.3.16), as "side by
// side, right view first"; empty for one that takes the arrangement back or breaks off.
std::string FramePackingName(ByteSpan payload);

// That of the first such message in private data or packets; nothing where there is none.
void AddFramePacking(Section& section, const CodedStream& stream);

}  // namespace qlnmedia

#endif
