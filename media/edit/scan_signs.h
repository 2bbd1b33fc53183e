// What a stream tells of the coded pictures of an HEVC stream: whether each is a whole frame or a single
// field.
#ifndef MEDIA_EDIT_SCAN_SIGNS_H
#define MEDIA_EDIT_SCAN_SIGNS_H

#include <optional>
#include <string>
#include <vector>

#include "edit/picture_units.h"
#include "sets/set_edit.h"
#include "units/coded_stream.h"

namespace qlnmedia {

// A picture timing message, by the indices of its unit and of itself among the unit's messages.
struct PictureTimingPlace {
  size_t unit = 0;
  size_t message = 0;
  SeiMessage content;
};

// That of a picture; nothing if it has none.
std::optional<PictureTimingPlace> FindPictureTiming(const PictureUnits& part);

// Collects signs. Of each kind the first one is kept, as a text that ends "... because".
class ScanSigns {
 public:
  // Begins with the parameter sets of the private data.
  explicit ScanSigns(const StreamDescription& stream);
  // The next packet in coding order.
  void TakePacket(ByteSpan data);

  // What says that pictures are fields, that they are frames, and what makes fields likely without saying so.
  const std::string& fields() const { return fields_; }
  const std::string& frames() const { return frames_; }
  const std::string& likelyFields() const { return likelyFields_; }
  // Whether every picture so far says in its picture timing what it is.
  bool everyPictureTold() const { return everyPictureTold_; }

 private:
  // A sequence parameter set of the base layer; other units are passed over.
  void TakeSet(ByteSpan unit);
  void TakeSps(const SpsFacts& sps);

  Rational rate_;  // packets a second by the container; 0/1 where it says nothing
  uint32_t height_ = 0;
  Framing framing_;
  PictureTracker tracker_{Codec::kHevc};
  std::optional<SpsFacts> sps_;
  std::string fields_;
  std::string frames_;
  std::string likelyFields_;
  bool everyPictureTold_ = true;
};

}  // namespace qlnmedia

#endif
