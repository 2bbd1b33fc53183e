// Where the coded pictures of a video stream stand in presentation order.
#ifndef MEDIA_PICTURES_PICTURE_PLACES_H
#define MEDIA_PICTURES_PICTURE_PLACES_H

#include <cstdint>
#include <optional>
#include <vector>

#include "container/media_file.h"
#include "pictures/picture_tracker.h"
#include "units/units.h"

namespace qlnmedia {

// A packet that begins no picture: the second field of a frame.
inline constexpr uint32_t kNoPlace = 0xFFFFFFFF;

struct PicturePlaces {
  std::vector<uint32_t> places;  // of each packet of the stream, in coding order
  uint32_t pictures = 0;
  double picturesPerSecond = 0;  // on average, as their times tell; 0 where they tell nothing
  AVRational timeBase{1, 1};
  // From each picture to the next one in presentation order, in units of the time base; empty where there are
  // no times.
  std::vector<uint32_t> steps;
};

// Takes the packets of one stream and puts them in order: by their times, or, in raw streams, which have
// none, by what their headers say. Keeps eight bytes for each picture: no stream brings one more than some
// dozens of pictures late, so the order of all that lie further back is settled.
class PictureOrder {
 public:
  PictureOrder(const AVStream& stream, bool raw);
  void Add(const AVPacket& packet);
  // The order of all that was added; the object is used up.
  PicturePlaces Finish();

 private:
  struct Key {
    int64_t group;  // pictures of one group precede those of the next
    int64_t order;
    size_t packet;
  };
  std::optional<Key> KeyOfMpeg2(ByteSpan data);
  std::optional<Key> KeyOfUnits(const AVPacket& packet);
  Key KeyOfTimes(const AVPacket& packet);
  void Settle(size_t count);

  bool timed_;  // by times and not by what headers say
  AVCodecID codec_;
  Framing framing_;
  std::optional<PictureTracker> tracker_;  // nothing for MPEG-2
  int64_t group_ = 0;                      // of times, and of MPEG-2
  int64_t lastOrder_ = 0;
  int64_t lastDecoding_ = INT64_MIN;
  std::vector<Key> pending_;    // not in order yet
  std::optional<Key> settled_;  // the last one that is
  int64_t total_ = 0;           // of the steps
  PicturePlaces result_;
};

}  // namespace qlnmedia

#endif
