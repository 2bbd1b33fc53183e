// For how many fields pictures are shown: pulldown makes 29.97 frames a second of 23.98 pictures by fields
// that are shown once more.
#ifndef CAPTIONS_SHOWN_FIELDS_H
#define CAPTIONS_SHOWN_FIELDS_H

#include <cstdint>
#include <optional>
#include <vector>

#include "captions/cdp.h"
#include "pictures/order_survey.h"
#include "pictures/picture_tracker.h"
#include "units/coded_stream.h"

namespace qlnmedia {

class ShownFields {
 public:
  explicit ShownFields(const StreamDescription& stream);
  // The fields that the packet's pictures are shown for: repeat_first_field of MPEG-2 (ITU-T H.262 clause
  // 6.3.10), pic_struct of H.264 (table D-1) and HEVC (table D.2). Where none of the first packets has a
  // field that is shown once more, the rest is not looked at.
  uint8_t Take(ByteSpan packet);
  // Whether one has.
  bool any() const { return any_; }

 private:
  uint8_t OfMpeg2(ByteSpan packet);
  uint8_t OfUnits(ByteSpan packet);

  VideoCodec codec_;
  Framing framing_;
  std::optional<PictureTracker> tracker_;  // nothing for MPEG-2
  bool progressiveSequence_ = false;
  size_t packets_ = 0;
  bool any_ = false;
};

// The rate of fields, 59.94 or 60 a second, of pictures that are shown for `fields` each, in presentation
// order, by their times; of a raw stream by `told`, the pictures a second that it says. Nothing for other
// rates.
std::optional<captions::Rate> RateOfFields(const std::vector<uint8_t>& fields, const PicturePlaces& order,
                                           double told);

}  // namespace qlnmedia

#endif
