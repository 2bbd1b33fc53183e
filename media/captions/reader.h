// The captions that a video stream carries, in presentation order: a first pass finds the order and counts, a
// second one reads.
#ifndef MEDIA_CAPTIONS_READER_H
#define MEDIA_CAPTIONS_READER_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/progress.h"
#include "captions/user_data.h"
#include "timing/picture_clock.h"
#include "units/config_record.h"

namespace qlnmedia {

using Triplets = std::vector<qlnmedia::captions::Triplet>;

// True for H.264, HEVC and MPEG-2 pictures.
bool MayHaveCaptions(const AVStream& stream);

// The caption triplets of one packet, all its messages after each other; nothing if it has none. `config` is
// not used for MPEG-2.
std::optional<Triplets> CaptionsOf(AVCodecID codec, ByteSpan data, const ConfigRecord& config);

// What the first pass finds: some bytes for each picture.
struct CaptionSurvey {
  static constexpr uint8_t kNone = 255;  // a picture without captions

  std::string path;
  unsigned stream = 0;
  PicturePlaces order;
  Pace pace;
  std::vector<uint8_t> counts;  // triplets of each picture in presentation order, 254 for more, or kNone
  size_t captioned() const;
};

// Looks at the first stream that may have captions, at its first `packets` packets. Throws Error for a
// file without such a stream.
CaptionSurvey SurveyCaptions(const std::string& path, size_t packets = SIZE_MAX,
                             const ProgressCallback& progress = {});

// One picture of the second pass.
struct CaptionedPicture {
  double seconds = 0;  // from the first picture
  int64_t number = 0;  // frames of the stream's pace from the first picture
  Triplets triplets;   // none for a picture without captions
};

// Reads what was surveyed once more, and hands over each picture in presentation order. Throws Error
// where the file has changed meanwhile.
void ReadCaptions(const CaptionSurvey& survey, const std::function<void(const CaptionedPicture&)>& take,
                  const ProgressCallback& progress = {});

}  // namespace qlnmedia

#endif
