// The pace of a stream's pictures, and the time of each in presentation order.
#ifndef MEDIA_TIMING_PICTURE_CLOCK_H
#define MEDIA_TIMING_PICTURE_CLOCK_H

#include <cstdint>
#include <optional>
#include <string>

#include "pictures/order_survey.h"
#include "timing/frame_rate.h"

namespace qlnmedia {

struct Pace {
  double picturesPerSecond = 0;
  std::optional<qlnmedia::captions::Rate> rate;  // the one of the known ones that it is
  bool steady = true;  // false where pictures are missing, or stand much longer or shorter than most
  // The known rate that the stream is made for: `rate`, or where that is none the one of most pictures, or
  // the nearest whole one within three parts in a hundred.
  std::optional<qlnmedia::captions::Rate> nominal;
  bool guessed = false;  // nothing says a rate, and the one here is what readers then take
};

// The pace of a stream: what its container says, where the pictures' times bear it out; else those times. In
// a stream that is not steady it is that of most pictures.
Pace PaceOf(const StreamDescription& stream, const PicturePlaces& order);

// The pace that --rate asks for: a rate of captions, in numbers, or kNominalRate; `pace` itself where `asked`
// is empty. Where the pictures' times say another rate, they count. Throws Error for a text that is none of
// these and for a rate that contradicts a known one.
Pace AskedPace(const Pace& pace, const PicturePlaces& order, const std::string& asked);

// What to do about a stream whose pace is no rate of captions.
std::string AdviceForPace(const Pace& pace);

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
