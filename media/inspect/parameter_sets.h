// The section "parameter_sets" of a stream's report.
#ifndef MEDIA_INSPECT_PARAMETER_SETS_H
#define MEDIA_INSPECT_PARAMETER_SETS_H

#include "base/library_messages.h"
#include "base/report.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

// Adds each parameter set of the stream once: what it says by the published syntax, and beside it what the
// library makes of it.
void AddParameterSets(Section& section, const CodedStream& stream, MessageSink& messages);

}  // namespace qlnmedia

#endif
