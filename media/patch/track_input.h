// A file as a patch reads it whose container is carried track by track: MP4, MOV, MKV and WebM.
#ifndef MEDIA_PATCH_TRACK_INPUT_H
#define MEDIA_PATCH_TRACK_INPUT_H

#include <cstdint>
#include <vector>

#include "patch/patch_input.h"
#include "patch/sample_units.h"

namespace qlnmedia {

class TrackInput : public PatchInput {
 public:
  bool describesPictures() const override { return true; }
  bool carried() const override { return true; }
  // What the container calls the track of a stream.
  virtual uint32_t TrackId(unsigned stream) const = 0;
  // Of all descriptions of a stream's track.
  virtual SampleUnits UnitsOf(unsigned stream) const = 0;
  // What holds the private data of each description: a box by its type, something other than 0 elsewhere; 0
  // where there is none.
  virtual std::vector<uint32_t> RecordBoxes(unsigned stream) const = 0;
};

}  // namespace qlnmedia

#endif
