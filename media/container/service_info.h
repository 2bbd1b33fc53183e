// Caption services as caption distribution packets announce them.
#ifndef MEDIA_CONTAINER_SERVICE_INFO_H
#define MEDIA_CONTAINER_SERVICE_INFO_H

#include <vector>

#include "container/caption_services.h"

namespace qlnmedia {

// Those of a service information section (SMPTE ST 334-2), 0x73 first. What is no service is passed over.
std::vector<AnnouncedService> ServicesOfSection(ByteSpan section);

}  // namespace qlnmedia

#endif
