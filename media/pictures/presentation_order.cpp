// Counts which pictures near one in coding order change sides with it.

#include "pictures/presentation_order.h"

#include <algorithm>

namespace qlnmedia {

uint32_t PresentationOrder::Take() {
  const PresentationKey key = pending_.front();
  pending_.pop_front();
  const auto later =
      std::count_if(taken_.begin(), taken_.end(), [key](const auto& other) { return other > key; });
  const auto earlier =
      std::count_if(pending_.begin(), pending_.end(), [key](const auto& other) { return other < key; });
  const uint32_t place = count_ - static_cast<uint32_t>(later) + static_cast<uint32_t>(earlier);
  ++count_;
  taken_.push_back(key);
  if (taken_.size() > kAhead) taken_.pop_front();
  return place;
}

}  // namespace qlnmedia
