// Puts the captions of a file into the pictures of a stream.
#ifndef TOOLS_QLNMEDIA_CAPTION_PATCHER_H
#define TOOLS_QLNMEDIA_CAPTION_PATCHER_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "captions/caption_track.h"
#include "qlnmedia/caption_options.h"
#include "qlnmedia/caption_reader.h"

namespace qlnmedia {

class CaptionPatcher {
 public:
  // Reads the caption file, and all packets of `in` once for their order. Throws ToolError where either
  // cannot be read, the stream's rate knows no captions, or it has captions that may not be replaced.
  CaptionPatcher(const MediaFile& in, const CaptionOptions& options);
  CaptionPatcher(const CaptionPatcher&) = delete;
  CaptionPatcher& operator=(const CaptionPatcher&) = delete;

  // The stream that gets captions.
  unsigned stream() const { return survey_.stream; }
  // Changes the next packet of that stream in place.
  void PatchPacket(AVPacket* packet);
  // What was done, one line each, warnings behind.
  std::vector<std::string> Summary() const;

 private:
  Triplets TripletsAt(uint32_t place);
  Bytes PatchMpeg2(ByteSpan data, const Triplets* triplets);
  Bytes PatchUnits(ByteSpan data, const Triplets* triplets);

  CaptionOptions options_;
  qln::captions::CaptionTrack track_;
  CaptionSurvey survey_;
  std::optional<PictureClock> clock_;
  std::optional<qln::captions::CaptionPictures> source_;
  std::optional<Codec> codec_;  // nothing for MPEG-2
  Framing framing_;
  size_t packets_ = 0;
  uint32_t made_ = 0;                     // pictures that `source_` has given
  std::map<uint32_t, Triplets> waiting_;  // those that come later in coding order
  int removed_ = 0;
  int added_ = 0;
};

}  // namespace qlnmedia

#endif
