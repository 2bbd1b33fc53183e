// Holds two transport streams against each other, packet by packet.
#ifndef MEDIA_CONTAINER_TS_KEPT_PACKETS_H
#define MEDIA_CONTAINER_TS_KEPT_PACKETS_H

#include <cstdint>
#include <set>
#include <string>

#include "container/mp4/source.h"

namespace qlnmedia::ts {

// Throws Error, naming `name`, where packets of other identifiers than `changed`, null packets aside, are not
// the same bytes in the same order; and where a packet of `changed` lost a clock reference, or has a counter
// that does not go on from the one in front of it though the input's did.
void RequireOthersKept(const mp4::Source& before, const mp4::Source& after, const std::set<uint16_t>& changed,
                       const std::string& name);

}  // namespace qlnmedia::ts

#endif
