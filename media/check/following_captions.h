// The captions in the pictures of a stream that goes on, judged as their order settles.
#ifndef MEDIA_CHECK_FOLLOWING_CAPTIONS_H
#define MEDIA_CHECK_FOLLOWING_CAPTIONS_H

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "captions/shown_fields.h"
#include "check/captions.h"
#include "pictures/presentation_order.h"
#include "units/packet_units.h"

namespace qlnmedia {

// Keeps the pictures whose order is not settled, and those at the beginning by which the rate is found:
// memory does not grow with the stream.
class FollowingCaptions {
 public:
  // `findings` must outlive this.
  FollowingCaptions(unsigned stream, const StreamDescription& description, FindingList& findings);

  // Takes the next packet of the stream, which is shown at `seconds`.
  void Take(const PacketView& packet, PacketUnits& apart, std::optional<double> seconds);
  void Finish();

 private:
  using Place = std::pair<PresentationKey, uint64_t>;  // with the number of the packet
  struct Settled {
    PresentationKey key;
    CaptionRun::Picture picture;
  };
  void Settle();
  void Begin();

  unsigned index_;
  StreamDescription stream_;
  FindingList& findings_;
  Framing framing_;
  std::optional<PictureTracker> tracker_;  // nothing for MPEG-2
  PresentationKeys keys_;
  ShownFields shown_;
  uint64_t packets_ = 0;
  std::map<Place, CaptionRun::Picture> pending_;  // pictures whose order is not settled
  std::optional<Place> newest_;                   // of the packet in front
  std::vector<Settled> first_;                    // by which the rate is found
  std::optional<CaptionRun> run_;                 // when it is
};

}  // namespace qlnmedia

#endif
