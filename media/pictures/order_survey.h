// Where the coded pictures of a whole video stream stand in presentation order.
#ifndef MEDIA_PICTURES_ORDER_SURVEY_H
#define MEDIA_PICTURES_ORDER_SURVEY_H

#include <cstdint>
#include <optional>
#include <vector>

#include "pictures/presentation_order.h"
#include "units/packet_units.h"

namespace qlnmedia {

// A packet that begins no picture: the second field of a frame.
inline constexpr uint32_t kNoPlace = 0xFFFFFFFF;

struct PicturePlaces {
  std::vector<uint32_t> places;  // of each packet of the stream, in coding order
  uint32_t pictures = 0;
  double picturesPerSecond = 0;  // on average, as their times tell; 0 where they tell nothing
  Rational timeBase{1, 1};
  // From each picture to the next one in presentation order, in units of the time base; empty where there are
  // no times.
  std::vector<uint32_t> steps;
};

// Takes the packets of one stream and puts them in order by their keys. Keeps eight bytes for each picture:
// no stream brings one more than some dozens of pictures late, so the order of all that lie further back is
// settled.
class OrderSurvey {
 public:
  explicit OrderSurvey(const StreamDescription& stream);
  void Add(const PacketView& packet);
  // The same with the packet's units, which others look at as well.
  void Add(const PacketView& packet, PacketUnits& apart);
  // The order of all that was added; the object is used up.
  PicturePlaces Finish();

 private:
  struct Pending {
    PresentationKey key;
    size_t packet;
    friend auto operator<=>(const Pending&, const Pending&) = default;
  };
  void Settle(size_t count);

  PresentationKeys keys_;
  Framing framing_;
  std::optional<PictureTracker> tracker_;   // nothing for MPEG-2
  std::vector<Pending> pending_;            // not in order yet
  std::optional<PresentationKey> settled_;  // the last one that is
  int64_t total_ = 0;                       // of the steps
  PicturePlaces result_;
};

}  // namespace qlnmedia

#endif
