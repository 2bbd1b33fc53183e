// Puts the captions of a file into the pictures of a stream.
#ifndef MEDIA_EDIT_CAPTION_PATCHER_H
#define MEDIA_EDIT_CAPTION_PATCHER_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "captions/caption_track.h"
#include "captions/reader.h"
#include "container/file_captions.h"
#include "container/media_file.h"
#include "edit/options.h"

namespace qlnmedia {

class CaptionPatcher {
 public:
  // Reads the caption file, and all packets of `in` once for their order. Throws Error where either
  // cannot be read, the stream's rate knows no captions, or it has captions that may not be replaced.
  CaptionPatcher(const MediaFile& in, const CaptionOptions& options, const ProgressCallback& progress);
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
  qlnmedia::captions::CaptionTrack track_;
  CaptionSurvey survey_;
  std::optional<PictureClock> clock_;
  std::optional<qlnmedia::captions::CaptionPictures> source_;
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
