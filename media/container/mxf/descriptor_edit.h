// The picture descriptor of a track (SMPTE ST 377-1, mastering display of ST 2067-21, AVC sub-descriptor of
// ST 381-3) with other values in it, and the primer pack with the tags that they need.
#ifndef MEDIA_CONTAINER_MXF_DESCRIPTOR_EDIT_H
#define MEDIA_CONTAINER_MXF_DESCRIPTOR_EDIT_H

#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "container/mxf/local_set.h"
#include "container/mxf/metadata.h"
#include "qlnmedia/stream_values.h"

namespace qlnmedia::mxf {

// A picture that becomes of another size, in frames, as the stream says.
struct SizeChange {
  uint32_t wasWidth = 0, wasHeight = 0;
  uint32_t width = 0, height = 0;
};

// What a descriptor shall say; what is not set stays.
struct DescriptorFacts {
  std::optional<ColourCodes> colour;  // a code that has no label takes the property out
  std::optional<bool> fullRange;
  std::optional<SampleAspect> sampleAspect;  // of a sample; the descriptor tells the shape of the picture
  std::optional<MasteringDisplay> mastering;
  std::optional<uint8_t> avcLevel;
  std::optional<bool> avcSet3;  // constraint_set3_flag, which comes and goes with level 1b of some profiles
  std::optional<bool> fields;   // frames are stored as separate fields, or whole
  std::optional<SizeChange> size;
  bool any() const { return colour || fullRange || sampleAspect || mastering || avcLevel || fields || size; }
};

// By bodySid and number of a track.
using FactsByTrack = std::map<std::pair<uint32_t, uint32_t>, DescriptorFacts>;

// A value of a triplet that gets other bytes.
struct ValueChange {
  Klv klv;
  Bytes value;
};

// The changed triplets of one copy of the header metadata, its primer pack included where it needs more tags.
// Throws Error where a set is damaged or its tags are all in use.
std::vector<ValueChange> ChangeDescriptors(const Source& source, const MetadataCopy& copy,
                                           const FactsByTrack& facts);

}  // namespace qlnmedia::mxf

#endif
