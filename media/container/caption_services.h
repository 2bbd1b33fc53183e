// Caption services with their languages, as a transport stream announces them (ATSC A/65 clause 6.9.2,
// caption_service_descriptor): in its program maps, or with the event that is on.
#ifndef MEDIA_CONTAINER_CAPTION_SERVICES_H
#define MEDIA_CONTAINER_CAPTION_SERVICES_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "container/media_input.h"
#include "units/units.h"

namespace qlnmedia {

struct AnnouncedService {
  std::string name;      // "service 1" to "service 63", "line 21 field 1" or 2
  std::string language;  // ISO 639-2/B, three letters
  bool easyReader = false;
  bool wideAspectRatio = false;
  friend bool operator==(const AnnouncedService&, const AnnouncedService&) = default;
};

// By the packet identifier of the elementary stream that they stand beside in a program map; those of a whole
// program belong to each of its streams. Where the map tells nothing of a program's pictures, those of its
// first event (table 0xCB) that has some are theirs. `bytes` are the begin of a transport stream, in packets
// of 188 bytes, with 4 in front or 16 behind. What is no such stream announces nothing.
std::map<int, std::vector<AnnouncedService>> AnnouncedServices(ByteSpan bytes);

// Those of a stream of a file, or of what is kept of a pipe.
std::vector<AnnouncedService> AnnouncedServicesOf(const MediaInput& input, int packetIdentifier);

}  // namespace qlnmedia

#endif
