// Looks at types, and at as much of slice headers as is there.

#include "pictures/access_unit_bounds.h"

#include "pictures/slice_pictures.h"
#include "units/packet_units.h"

namespace qlnmedia {

namespace {

constexpr int kPartitionB = 3, kPartitionC = 4;

}  // namespace

void AccessUnitBounds::Take(ByteSpan unit) {
  slices_.TakeSet(unit);
  if (codec_ == Codec::kH264 && IsSps(codec_, UnitType(codec_, unit)) && unit.size() > 1)
    anyOrder_ = unit[1] == 66 || unit[1] == 88;
}

std::optional<bool> AccessUnitBounds::Begins(ByteSpan unit, bool whole) {
  // One byte more tells whether a slice is the first of its picture.
  if (unit.size() <= UnitHeaderBytes(codec_) && !whole) return {};
  const int type = UnitType(codec_, unit);
  if (type < 0 || !IsBaseLayer(codec_, unit)) return false;
  if (IsSlice(codec_, type)) return SliceBegins(unit, whole);
  const bool begins = picture_ && BeginsAccessUnit(codec_, type);
  if (begins) picture_ = false;
  return begins;
}

std::optional<bool> AccessUnitBounds::SliceBegins(ByteSpan slice, bool whole) {
  bool begins = BeginsPicture(codec_, slice);
  if (codec_ == Codec::kH264) {
    const int type = UnitType(codec_, slice);
    const bool partition = type == kPartitionB || type == kPartitionC;
    const std::optional<SliceHead> head = slices_.Read(slice);
    if (!head && !partition && !whole && slice.size() < kSliceHeadBytes) return {};
    begins = begins && !anyOrder_ && !partition;
    if (head && last_) begins = AreOfTwoPictures(*last_, *head);
    if (head) last_ = head;
    if (!head && begins) last_.reset();
  }
  begins = begins && picture_;
  picture_ = true;
  return begins;
}

}  // namespace qlnmedia
