// What inspect says of the captions in a stream.
#ifndef MEDIA_INSPECT_CAPTIONS_H
#define MEDIA_INSPECT_CAPTIONS_H

#include <string>
#include <vector>

#include "base/report.h"
#include "captions/text.h"
#include "container/caption_services.h"

namespace qlnmedia {

// Adds the caption services of the stream `index`, and the first lines of each, if its first packets carry
// any. The file is opened once more: captions are shown in presentation order.
void AddCaptions(Section& section, const std::string& path, unsigned index);

// The same for services that are known.
void AddCaptionServices(Section& section, const std::vector<CaptionService>& services);

// The services that the container announces, with their languages; nothing where it announces none.
void AddAnnouncedServices(Section& section, const std::vector<AnnouncedService>& services);

}  // namespace qlnmedia

#endif
