// The units of one packet, picture by picture: what all edits of a stream work on.
#ifndef MEDIA_EDIT_PICTURE_UNITS_H
#define MEDIA_EDIT_PICTURE_UNITS_H

#include <optional>
#include <vector>

#include "pictures/picture_tracker.h"

namespace qlnmedia {

// The units of a picture, and of the first one whatever stands in front of it.
struct PictureUnits {
  Codec codec = Codec::kH264;
  std::vector<Unit> units;
  std::optional<CodedPicture> picture;  // as it was found; nothing where the packet has no picture
  unsigned kinds = 0;                   // SliceKinds of its slices

  // Indices of where its access unit begins and of its first slice, as the units stand now; their number
  // where there is none.
  size_t begin() const;
  size_t slice() const;
};

// Parts the units of the next packet; there is always one part at least.
std::vector<PictureUnits> PartUnits(Codec codec, PictureTracker& tracker, std::vector<Unit> units);
// The units of all parts one after the other.
std::vector<Unit> JoinUnits(std::vector<PictureUnits> parts);
// How many of the parts are pictures.
size_t CountPictures(const std::vector<PictureUnits>& parts);

}  // namespace qlnmedia

#endif
