// The coded pictures of a stream, as its packets bring them.
#ifndef MEDIA_PICTURES_PICTURE_TRACKER_H
#define MEDIA_PICTURES_PICTURE_TRACKER_H

#include <optional>
#include <vector>

#include "pictures/order_count.h"

namespace qlnmedia {

// One coded picture: a frame, or a single field.
struct TrackedPicture {
  size_t begin = 0;  // index of the first unit of its access unit
  SliceHead head;
  OrderCount order;
  bool secondField = false;  // H.264: completes the frame of the field in front of it
};

class PictureTracker {
 public:
  explicit PictureTracker(Codec codec) : codec_(codec), slices_(codec), counter_(codec) {}

  // A parameter set from outside the packets.
  void TakeSet(ByteSpan unit) { slices_.TakeSet(unit); }
  // The pictures of the next packet in coding order, none where it has no slice that its sets explain. A
  // packet holds a picture, or the two fields of a frame (ITU-T H.264 clause 7.4.1.2.4, H.265 clause
  // 7.4.2.4.4).
  std::vector<TrackedPicture> Take(const std::vector<Unit>& units);

 private:
  bool BeginsPicture(const SliceHead& last, const SliceHead& head) const;
  bool CompletesFrame(const SliceHead& head) const;

  Codec codec_;
  SliceHeadReader slices_;
  OrderCounter counter_;
  std::optional<SliceHead> firstField_;  // that waits for its second one
};

}  // namespace qlnmedia

#endif
