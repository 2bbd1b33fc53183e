// Chooses the reader of a codec.

#include "html/picture_reader.h"

#include "html/mpeg2_reader.h"
#include "html/nal_reader.h"

namespace qlnmedia::html {

std::unique_ptr<PictureReader> MakePictureReader(const StreamDescription& stream, bool encrypted) {
  const std::optional<Codec> codec = UnitCodecOf(stream.codec);
  if (!codec) return std::make_unique<Mpeg2Reader>();
  return std::make_unique<NalReader>(*codec, stream, encrypted);
}

}  // namespace qlnmedia::html
