// Tells pictures apart, pairs fields, and has each placed.

#include "pictures/picture_tracker.h"

#include "units/access_unit.h"

namespace qlnmedia {

bool PictureTracker::BeginsPicture(const SliceHead& last, const SliceHead& head) const {
  if (codec_ == Codec::kHevc) return head.firstSegment;
  const bool idr = head.unitType == 5;
  return head.frameNum != last.frameNum || head.ppsId != last.ppsId || head.field != last.field ||
         head.bottom != last.bottom || (head.refIdc == 0) != (last.refIdc == 0) ||
         idr != (last.unitType == 5) || (idr && head.idrPicId != last.idrPicId) ||
         head.pocLsb != last.pocLsb || head.deltaPocBottom != last.deltaPocBottom ||
         head.deltaPoc != last.deltaPoc;
}

// Complementary field pairs (ITU-T H.264 clause 3.30): opposite parity, the same frame_num, both of them
// references or neither; an IDR picture is a first field.
bool PictureTracker::CompletesFrame(const SliceHead& head) const {
  return firstField_ && head.field && head.bottom != firstField_->bottom &&
         head.frameNum == firstField_->frameNum && (head.refIdc == 0) == (firstField_->refIdc == 0) &&
         head.unitType != 5;
}

std::vector<TrackedPicture> PictureTracker::Take(const std::vector<Unit>& units) {
  constexpr size_t kNone = SIZE_MAX;
  std::vector<TrackedPicture> pictures;
  size_t begin = kNone;  // of an access unit whose first slice has not come yet
  SliceHead last;
  for (size_t i = 0; i < units.size(); ++i) {
    const ByteSpan unit = units[i].bytes;
    const int type = UnitType(codec_, unit);
    slices_.TakeSet(unit);
    if (codec_ == Codec::kHevc && type == 36) counter_.EndSequence();
    if (begin == kNone && BeginsAccessUnit(codec_, type)) begin = i;
    const std::optional<SliceHead> head = slices_.Read(unit);
    if (!head) continue;
    const bool first = pictures.empty() || BeginsPicture(last, *head);
    last = *head;
    if (first) {
      const bool second = CompletesFrame(*head);
      // Whatever stands in front of the packet's first picture is its own.
      const size_t from = pictures.empty() ? 0 : begin == kNone ? i : begin;
      pictures.push_back({from, *head, counter_.Next(*head, second), second});
      firstField_.reset();
      if (head->field && !second) firstField_ = *head;
    }
    begin = kNone;
  }
  return pictures;
}

}  // namespace qlnmedia
