// The captions of a pipe, which passes once: those of its pictures and those beside them are taken together.
#ifndef MEDIA_CONTAINER_PIPE_CAPTIONS_H
#define MEDIA_CONTAINER_PIPE_CAPTIONS_H

#include <map>
#include <optional>

#include "base/progress.h"
#include "captions/reader.h"
#include "container/anc_captions.h"
#include "container/media_input.h"

namespace qlnmedia {

struct PipeCaptions {
  std::optional<CaptionSurvey> pictures;  // of the first stream that may have some, with its triplets kept
  std::map<unsigned, AncContents> ancillary;
};

// Whether there are streams of ancillary data in what comes through a pipe, as its first bytes tell.
bool HasAncStreams(const MediaInput& input);

// Reads all of a pipe. Throws Error for what does not open.
PipeCaptions ReadPipeCaptions(const MediaInput& input, const ProgressCallback& progress);

}  // namespace qlnmedia

#endif
