// The pace of a stream's pictures, and the time of each in presentation order.
#ifndef MEDIA_TIMING_PICTURE_CLOCK_H
#define MEDIA_TIMING_PICTURE_CLOCK_H

#include <cstdint>
#include <optional>

#include "pictures/order_survey.h"
#include "timing/frame_rate.h"

namespace qlnmedia {

struct Pace {
  double picturesPerSecond = 0;
  std::optional<qlnmedia::captions::Rate> rate;  // the one of the known ones that it is
  bool steady = true;  // false where pictures are missing, or stand much longer or shorter than most
};

// The pace of a stream: what its container says, where the pictures' times bear it out; else those times. In
// a stream that is not steady it is that of most pictures.
Pace PaceOf(const StreamDescription& stream, const PicturePlaces& order);

// Goes through the pictures in presentation order. Where they are steady, or have no times, each stands one
// frame behind the one before; else their times count.
class PictureClock {
 public:
  // `order` must outlive this.
  PictureClock(const PicturePlaces& order, const Pace& pace) : order_(order), pace_(pace) {}

  // Of the present picture, from the first one: seconds, and frames of the pace.
  double seconds() const;
  int64_t number() const;
  // Goes on to the next picture.
  void Next();

 private:
  const PicturePlaces& order_;
  Pace pace_;
  size_t index_ = 0;
  int64_t ticks_ = 0;
};

}  // namespace qlnmedia

#endif
