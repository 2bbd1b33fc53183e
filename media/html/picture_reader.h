// Reads the packets of one coded video stream for what a page shows of them.
#ifndef MEDIA_HTML_PICTURE_READER_H
#define MEDIA_HTML_PICTURE_READER_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "html/cpb_model.h"
#include "html/hrd.h"
#include "html/set_list.h"
#include "html/shown_picture.h"
#include "pictures/picture_tracker.h"
#include "units/coded_stream.h"

namespace qlnmedia::html {

class PictureReader {
 public:
  virtual ~PictureReader() = default;
  PictureReader(const PictureReader&) = delete;
  PictureReader& operator=(const PictureReader&) = delete;

  // Takes the next packet in coding order. What it gives is valid until the next call.
  virtual const ShownPicture& Take(const PacketView& packet) = 0;

  // What follows is that of the last picture.
  // Its sets, as places in `sets`: VPS, SPS, PPS, -1 for those that are not there.
  virtual std::vector<int> setsInForce() const { return {}; }
  // Colour and HDR in one line; empty where nothing says them.
  virtual std::string look() const { return {}; }

  // All sets; null for a codec whose sets are not listed.
  virtual const SetList* sets() const { return nullptr; }
  // The coded picture buffer: the states that are known by now, one for each packet in coding order; none for
  // streams without HRD.
  virtual std::vector<std::optional<CpbState>> Buffer(bool end) {
    static_cast<void>(end);
    return {};
  }
  // The HRD that counts first; nothing where none is signalled.
  virtual const Hrd* hrd() const { return nullptr; }

 protected:
  PictureReader() = default;
};

// A reader for H.264, HEVC or MPEG-2. Of a stream that is `encrypted` only the heads of units are read.
std::unique_ptr<PictureReader> MakePictureReader(const StreamDescription& stream, bool encrypted);

}  // namespace qlnmedia::html

#endif
