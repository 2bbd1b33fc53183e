// Presentation order of pictures that come in coding order.
#ifndef MEDIA_PICTURES_PRESENTATION_ORDER_H
#define MEDIA_PICTURES_PRESENTATION_ORDER_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace qlnmedia {

// What pictures are ordered by: those of one group precede those of the next, each group is whole before the
// next begins, and in a group the time, or the picture order count, decides.
struct PresentationKey {
  int64_t group = 0;
  int64_t time = 0;
  friend auto operator<=>(const PresentationKey&, const PresentationKey&) = default;
};

// Gives pictures their place, looking a bounded number of pictures ahead: no stream reorders by more.
class PresentationOrder {
 public:
  void Add(PresentationKey key) { pending_.push_back(key); }
  bool empty() const { return pending_.empty(); }
  bool ready() const { return pending_.size() > kAhead; }
  // Place of the picture that was added first, from 0; takes it out.
  uint32_t Take();

 private:
  static constexpr size_t kAhead = 32;
  std::deque<PresentationKey> pending_;
  std::deque<PresentationKey> taken_;  // the last kAhead
  uint32_t count_ = 0;
};

}  // namespace qlnmedia

#endif
