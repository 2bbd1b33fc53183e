// Shows pictures as a decoder does, which outputs the first of those that it holds when these are too many.

#include "pictures/declared_order.h"

namespace qlnmedia {

bool DeclaredOrder::Add(PresentationKey key) {
  order_.Add(key);
  if (!reorder_) return true;
  const bool inOrder = !shown_ || *shown_ < key;
  pending_.push_back(key);
  unshown_.insert(key);
  while (!unshown_.empty() && (unshown_.size() > *reorder_ || unshown_.begin()->group < key.group)) {
    shown_ = *unshown_.begin();
    unshown_.erase(unshown_.begin());
  }
  return inOrder;
}

bool DeclaredOrder::ready() const {
  if (order_.ready()) return true;
  return !pending_.empty() && shown_ && !(*shown_ < pending_.front());
}

uint32_t DeclaredOrder::Take() {
  if (!pending_.empty()) pending_.pop_front();
  return order_.Take();
}

}  // namespace qlnmedia
