// Captions in the ancillary data of transport streams (SMPTE ST 2038).
#ifndef MEDIA_CONTAINER_ANC_CAPTIONS_H
#define MEDIA_CONTAINER_ANC_CAPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "base/progress.h"
#include "captions/caption_track.h"
#include "container/media_file.h"

namespace qlnmedia {

// The streams of a transport stream that are registered as ancillary data, by index.
std::vector<unsigned> FindAncStreams(const MediaFile& file);

// The captions of such a stream by its times, from the first picture of the file's first video on. The rate
// is `asked`, what its packets say, or that of line 21. What is damaged is left out; `damage` takes a line
// for each kind, with the first place and how many there are. Throws NotApplicable for a stream without
// captions.
captions::CaptionTrack ReadAncStream(const std::string& path, unsigned stream,
                                     std::optional<captions::Rate> asked, std::vector<std::string>* damage,
                                     const ProgressCallback& progress);

}  // namespace qlnmedia

#endif
