// Reads MPEG-2 pictures (ITU-T H.262 clause 6.2).
#ifndef MEDIA_HTML_MPEG2_READER_H
#define MEDIA_HTML_MPEG2_READER_H

#include "html/picture_reader.h"

namespace qlnmedia::html {

class Mpeg2Reader final : public PictureReader {
 public:
  const ShownPicture& Take(const PacketView& packet) override;

 private:
  ShownPicture picture_;
};

}  // namespace qlnmedia::html

#endif
