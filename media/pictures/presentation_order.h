// Presentation order of pictures that come in coding order.
#ifndef MEDIA_PICTURES_PRESENTATION_ORDER_H
#define MEDIA_PICTURES_PRESENTATION_ORDER_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "pictures/picture_tracker.h"
#include "units/coded_stream.h"

namespace qlnmedia {

// What pictures are ordered by: those of one group precede those of the next, each group is whole before the
// next begins, and in a group the time, or the picture order count, decides.
struct PresentationKey {
  int64_t group = 0;
  int64_t time = 0;
  friend auto operator<=>(const PresentationKey&, const PresentationKey&) = default;
};

// That of a picture whose place is known, by what its header says.
PresentationKey KeyOfHeader(const CodedPicture& picture);

// Gives the packets of one stream their keys, in coding order: by their times, or where they have none, as in
// raw streams, by picture order counts, or the temporal references of MPEG-2.
class PresentationKeys {
 public:
  explicit PresentationKeys(const StreamDescription& stream);
  // The key of a packet; nothing where it begins no picture: the second field of a frame. `pictures` are
  // those of the packet, of no meaning for MPEG-2, whose packets hold both fields, and their own order.
  std::optional<PresentationKey> Next(const PacketView& packet, const std::vector<CodedPicture>& pictures);
  // Whether keys are times. MPEG-2 without times in one packet is ordered by references from there on: the
  // two kinds of order do not mix.
  bool timed() const { return timed_; }

 private:
  PresentationKey NextOfTimes(const PacketView& packet);
  std::optional<PresentationKey> NextOfReferences(ByteSpan data);

  bool timed_;
  bool mpeg2_;
  double unit_;        // seconds in one of the times
  int64_t group_ = 0;  // of times, and of MPEG-2
  int64_t last_ = 0;
  int64_t lastDecoding_ = kNoTime;
};

// Gives pictures their place, looking a bounded number of pictures ahead: no stream reorders by more.
class PresentationOrder {
 public:
  static constexpr size_t kAhead = 32;

  void Add(PresentationKey key) { pending_.push_back(key); }
  bool empty() const { return pending_.empty(); }
  bool ready() const { return pending_.size() > kAhead; }
  // Place of the picture that was added first, from 0; takes it out.
  uint32_t Take();

 private:
  std::deque<PresentationKey> pending_;
  std::deque<PresentationKey> taken_;  // the last kAhead
  uint32_t count_ = 0;
};

}  // namespace qlnmedia

#endif
