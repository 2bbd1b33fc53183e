// Where access units begin in a stream of units that come one after the other (ITU-T H.264 clauses 7.4.1.2.3
// and 7.4.1.2.4, H.265 clause 7.4.2.4.4).
#ifndef MEDIA_PICTURES_ACCESS_UNIT_BOUNDS_H
#define MEDIA_PICTURES_ACCESS_UNIT_BOUNDS_H

#include <optional>

#include "pictures/slice_head.h"

namespace qlnmedia {

// Is asked about each unit in order, as early as its first bytes are there, and shown each that is whole.
class AccessUnitBounds {
 public:
  explicit AccessUnitBounds(Codec codec) : codec_(codec), slices_(codec) {}

  // Whether the unit begins an access unit behind a picture; nothing where its bytes so far do not tell.
  // `whole`: no more come. What was told is taken as so.
  std::optional<bool> Begins(ByteSpan unit, bool whole);
  // The unit is whole: later slices are read by it, if it is a parameter set.
  void Take(ByteSpan unit);
  // True behind a slice of the present access unit.
  bool hasPicture() const { return picture_; }

 private:
  std::optional<bool> SliceBegins(ByteSpan slice, bool whole);

  Codec codec_;
  SliceHeadReader slices_;
  bool anyOrder_ = false;  // H.264 Baseline and Extended profile: slices come in any order
  bool picture_ = false;
  std::optional<SliceHead> last_;
};

}  // namespace qlnmedia

#endif
