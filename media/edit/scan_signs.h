// What a file tells of the coded pictures of an HEVC stream: whether each is a whole frame or a single field.
#ifndef MEDIA_EDIT_SCAN_SIGNS_H
#define MEDIA_EDIT_SCAN_SIGNS_H

#include <optional>
#include <string>
#include <vector>

#include "container/libav_handles.h"
#include "container/media_file.h"
#include "pictures/picture_tracker.h"
#include "timing/hevc_timing.h"

namespace qlnmedia {

// A picture timing message, by the indices of its unit and of itself among the unit's messages.
struct PictureTimingPlace {
  size_t unit = 0;
  size_t message = 0;
  SeiMessage content;
};

// That of a picture; nothing if it has none.
std::optional<PictureTimingPlace> FindPictureTiming(const std::vector<Unit>& units,
                                                    const CodedPicture& picture);

// Collects signs. Of each kind the first one is kept, as a text that ends "... because".
class ScanSigns {
 public:
  ScanSigns(const MediaFile& file, unsigned index) : file_(file), index_(index), tracker_(Codec::kHevc) {}

  void TakeSps(const SpsFacts& sps);
  // The units of one packet, its parameter sets first.
  void TakePacket(const std::vector<Unit>& units);

  // What says that pictures are fields, that they are frames, and what makes fields likely without saying so.
  const std::string& fields() const { return fields_; }
  const std::string& frames() const { return frames_; }
  const std::string& likelyFields() const { return likelyFields_; }
  // Whether every picture so far says in its picture timing what it is.
  bool everyPictureTold() const { return everyPictureTold_; }

 private:
  const MediaFile& file_;
  unsigned index_;
  PictureTracker tracker_;
  std::optional<SpsFacts> sps_;
  std::string fields_;
  std::string frames_;
  std::string likelyFields_;
  bool everyPictureTold_ = true;
};

}  // namespace qlnmedia

#endif
