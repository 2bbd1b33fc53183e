// Where the coded pictures of a video stream stand in presentation order.
#ifndef TOOLS_QLNMEDIA_PICTURE_PLACES_H
#define TOOLS_QLNMEDIA_PICTURE_PLACES_H

#include <cstdint>
#include <optional>
#include <vector>

#include "qlnmedia/media_file.h"
#include "qlnmedia/picture_tracker.h"
#include "qlnmedia/units.h"

namespace qlnmedia {

// A packet that begins no picture: the second field of a frame.
inline constexpr uint32_t kNoPlace = 0xFFFFFFFF;

struct PicturePlaces {
  std::vector<uint32_t> places;  // of each packet of the stream, in coding order
  uint32_t pictures = 0;
  double picturesPerSecond = 0;  // as their times tell; 0 where they tell nothing
};

// Takes the packets of one stream and puts them in order: by their times, or, in raw streams, which have
// none, by what their headers say. Keeps some bytes for each packet.
class PictureOrder {
 public:
  PictureOrder(const AVStream& stream, bool raw);
  void Add(const AVPacket& packet);
  PicturePlaces Finish() const;

 private:
  struct Key {
    int64_t group;  // pictures of one group precede those of the next
    int64_t order;
    size_t packet;
  };
  Key KeyOfMpeg2(ByteSpan data);
  Key KeyOfUnits(const AVPacket& packet);

  AVRational timeBase_;
  bool raw_;
  AVCodecID codec_;
  Framing framing_;
  std::optional<PictureTracker> tracker_;  // nothing for MPEG-2
  int64_t group_ = 0;                      // MPEG-2
  int64_t lastOrder_ = 0;
  size_t packets_ = 0;
  std::vector<Key> keys_;
};

}  // namespace qlnmedia

#endif
