// Presentation order of pictures as they come, told as early as the stream's own word allows.
#ifndef MEDIA_PICTURES_DECLARED_ORDER_H
#define MEDIA_PICTURES_DECLARED_ORDER_H

#include <optional>
#include <set>

#include "pictures/presentation_order.h"

namespace qlnmedia {

// A stream that says how many pictures precede another in coding order and follow it in presentation order,
// at most, has the place of each told as soon as a decoder would show it (ITU-T H.264 clause C.4.5.3, H.265
// clause C.5.2.4); of another a bounded number is looked at ahead (PresentationOrder).
class DeclaredOrder {
 public:
  explicit DeclaredOrder(std::optional<uint32_t> reorder) : reorder_(reorder) {}

  // False for a picture that would have to be shown in front of one whose place is told already: the stream
  // reorders by more than it says.
  bool Add(PresentationKey key);
  bool ready() const;
  // Place of the picture that was added first, from 0; takes it out.
  uint32_t Take();

 private:
  std::optional<uint32_t> reorder_;
  PresentationOrder order_;
  std::deque<PresentationKey> pending_;     // those that order_ has
  std::multiset<PresentationKey> unshown_;  // that a decoder would hold
  std::optional<PresentationKey> shown_;    // the last one that it showed
};

}  // namespace qlnmedia

#endif
