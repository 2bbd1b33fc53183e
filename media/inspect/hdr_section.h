// Mastering display and content light level as facts of a report.
#ifndef MEDIA_INSPECT_HDR_SECTION_H
#define MEDIA_INSPECT_HDR_SECTION_H

#include "base/report.h"
#include "hdr/stream_hdr.h"

namespace qlnmedia {

// Adds what there is of the two.
void AddHdr(Section& section, const StreamHdr& hdr);

}  // namespace qlnmedia

#endif
