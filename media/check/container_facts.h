// What a container says of a stream's pictures, held against its sequence parameter sets.
#ifndef MEDIA_CHECK_CONTAINER_FACTS_H
#define MEDIA_CHECK_CONTAINER_FACTS_H

#include <string>

#include "check/finding_list.h"
#include "container/media_stream.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

// Where a set stood.
struct SetPlace {
  std::string name;    // as people call it: "the avcC", "the stream"
  int64_t frame = -1;  // -1 for the private data
};

// Adds findings on colour, range, size, sample shape, rate and interlacing. A container without a place for
// such things is held to none of them.
void CheckContainerFacts(const MediaStream& stream, const SpsFacts& sps, const SetPlace& place,
                         FindingList& findings);

}  // namespace qlnmedia

#endif
