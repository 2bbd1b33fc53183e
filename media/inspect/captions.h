// What inspect says of the captions in a stream.
#ifndef MEDIA_INSPECT_CAPTIONS_H
#define MEDIA_INSPECT_CAPTIONS_H

#include <optional>
#include <vector>

#include "base/rational.h"
#include "base/report.h"
#include "captions/text.h"
#include "container/caption_services.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

// So many packets are looked at for a report.
inline constexpr size_t kPacketsInReport = 1800;

// What the first packets of the stream that may have captions tell.
struct StreamCaptions {
  std::optional<unsigned> stream;  // nothing for a file without such a stream
  bool found = false;              // pictures have captions, padding included
  std::vector<CaptionService> services;
  size_t pictures = 0;             // that were looked at
  Rational averageRate{0, 1};      // pictures a second as the times of those tell; 0 where they have none
  std::optional<bool> steadyPace;  // whether they stand equally long; nothing where they have no times
};

// Looks at a file of which `first` was read. Where its tables do not place its pictures it is opened once
// more, since captions are shown in presentation order. Of a pipe, what comes within seconds is looked at.
StreamCaptions ReadFirstCaptions(const MediaFile& file, const FirstPictures& first);

// Adds the caption services of a stream that has captions, and the first lines of each.
void AddCaptionServices(Section& section, const std::vector<CaptionService>& services);

// The services that the container announces, with their languages; nothing where it announces none.
void AddAnnouncedServices(Section& section, const std::vector<AnnouncedService>& services);

}  // namespace qlnmedia

#endif
