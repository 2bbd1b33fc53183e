// Captions of a file for a stream that has no end: its pictures are as long as its rate says, from the first
// one on.
#ifndef MEDIA_PATCH_LIVE_CAPTIONS_H
#define MEDIA_PATCH_LIVE_CAPTIONS_H

#include <cstdint>
#include <string>

#include "captions/reader.h"
#include "patch/caption_file.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

class LiveCaptions {
 public:
  // Throws Error where the file cannot be read.
  explicit LiveCaptions(const CaptionOptions& options) : file_(options) {}
  LiveCaptions(const LiveCaptions&) = delete;
  LiveCaptions& operator=(const LiveCaptions&) = delete;

  // Called once. Throws Error where nothing says the stream's rate, or it knows no captions.
  void SpreadOver(const StreamDescription& stream, const std::string& path, unsigned index,
                  const std::string& rate);
  // The captions of pictures whose place 0 is picture `first` of the stream: what is due to those in between
  // is lost.
  CaptionProvider ProviderFrom(uint32_t first);

  std::vector<std::string> Summary(const EditCounts& counts) const { return file_.Summary(counts); }

 private:
  CaptionFile file_;
  CaptionSurvey survey_;
  CaptionProvider provider_;
  uint64_t next_ = 0;  // picture that the file is asked for next
};

}  // namespace qlnmedia

#endif
