// Program tables of transport streams (ISO/IEC 13818-1 clause 2.4.4): where a stream's program map is, and
// the map with one stream more.
#ifndef MEDIA_CONTAINER_TS_PROGRAM_MAP_H
#define MEDIA_CONTAINER_TS_PROGRAM_MAP_H

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "container/ts/packet.h"

namespace qlnmedia::ts {

// The CRC of a section (clause 2.4.4.1, Annex A) over its bytes in front of it.
uint32_t SectionCrc(ByteSpan bytes);

// The sections of a payload that begins one, in their order; the last may break off. Nothing where the
// payload begins with the end of another section.
std::optional<std::vector<Bytes>> SectionsOf(ByteSpan payload);
// True where no more bytes are needed.
bool IsWhole(const std::vector<Bytes>& sections);

// The identifiers of the program maps that a section of the program association table names.
std::set<uint16_t> MapsOf(ByteSpan section);

// Whether a section is a program map, whole and right, that names the stream.
bool IsMapOf(ByteSpan section, uint16_t stream);
// The streams that a program map names, and its clock.
std::set<uint16_t> StreamsOf(ByteSpan section);

// A stream of a program map, by its kind (stream_type of table 2-34).
struct MapStream {
  uint8_t type = 0;
  uint16_t identifier = 0;
};
// Those of a program map that is whole and right, in its order.
std::vector<MapStream> TypedStreamsOf(ByteSpan section);

// The map with another stream behind its others, its version one up; `descriptors` are the stream's. Nothing
// where that makes it too long for a section.
std::optional<Bytes> WithStream(ByteSpan section, uint8_t streamType, uint16_t stream, ByteSpan descriptors);

}  // namespace qlnmedia::ts

#endif
