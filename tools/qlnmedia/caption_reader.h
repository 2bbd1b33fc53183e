// The captions that a video stream carries, in presentation order.
#ifndef TOOLS_QLNMEDIA_CAPTION_READER_H
#define TOOLS_QLNMEDIA_CAPTION_READER_H

#include <optional>
#include <string>
#include <vector>

#include "captions/user_data.h"
#include "qlnmedia/config_record.h"
#include "qlnmedia/picture_places.h"

namespace qlnmedia {

using Triplets = std::vector<qln::captions::Triplet>;

// True for H.264, HEVC and MPEG-2 pictures.
bool MayHaveCaptions(const AVStream& stream);

// The caption triplets of one packet, all its messages after each other; nothing if it has none. `config` is
// not used for MPEG-2.
std::optional<Triplets> CaptionsOf(AVCodecID codec, ByteSpan data, const ConfigRecord& config);

struct StreamCaptions {
  unsigned stream = 0;
  PicturePlaces order;
  double picturesPerSecond = 0;
  std::optional<qln::captions::Rate> rate;        // the one of the known ones that the pictures have
  std::vector<std::optional<Triplets>> pictures;  // in presentation order
  size_t captioned() const;
  // Triplets in presentation order, none for a picture without captions.
  std::vector<Triplets> triplets() const;
};

// The captions of the first stream that may have some, of its first `packets` packets. Throws ToolError for a
// file without such a stream.
StreamCaptions ReadStreamCaptions(const std::string& path, size_t packets = SIZE_MAX);

// Pictures a second: what the container says, where the pictures' times bear it out; else those times.
double PictureRate(const AVStream& stream, const PicturePlaces& order);

}  // namespace qlnmedia

#endif
