// The section "configuration" of a stream's report: its private data.
#ifndef MEDIA_INSPECT_CONFIGURATION_H
#define MEDIA_INSPECT_CONFIGURATION_H

#include "base/library_messages.h"
#include "base/report.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

// Adds the head of an avcC or hvcC as it stands in the box, beside what the stream's sets say, its lists, and
// whether the library takes it as a host would hand it over.
void AddConfiguration(Section& section, const CodedStream& stream, MessageSink& messages);

}  // namespace qlnmedia

#endif
