// The captions of a file as a stream's pictures take them.
#ifndef MEDIA_PATCH_CAPTION_FILE_H
#define MEDIA_PATCH_CAPTION_FILE_H

#include <optional>
#include <string>
#include <vector>

#include "captions/caption_track.h"
#include "captions/reader.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

class CaptionFile {
 public:
  // Reads the file; of timed text captions are made as soon as the stream's rate is known. Throws Error where
  // it cannot be read, or the offset is no time of it.
  explicit CaptionFile(const CaptionOptions& options);
  CaptionFile(const CaptionFile&) = delete;
  CaptionFile& operator=(const CaptionFile&) = delete;

  // Spreads the captions over the pictures of stream `index` of the file `path`; `survey` must outlive this.
  // `rate` is the text of --rate, empty if it was not given. Throws Error where the stream's rate knows no
  // captions or contradicts that, it has some that may not be replaced, or text cannot become captions.
  void SpreadOver(const CaptionSurvey& survey, const std::string& path, unsigned index,
                  const std::string& rate);
  // The captions of the pictures, which must be asked for in presentation order.
  CaptionProvider provider();
  // Of the pictures, once the captions are spread.
  qlnmedia::captions::Rate rate() const { return *pace_.rate; }
  // What was done, one line each, warnings behind; and those alone.
  std::vector<std::string> Summary(const EditCounts& counts) const;
  std::vector<std::string> Warnings() const;

 private:
  void SetOffset();
  std::vector<qlnmedia::captions::Triplet> OfFields();

  CaptionOptions options_;
  std::string cues_;  // text of which captions are made when the stream's rate is known
  qlnmedia::captions::CaptionTrack track_;
  std::vector<std::string> done_;  // about that text
  int64_t offset_ = 0;
  unsigned index_ = 0;
  Pace pace_;
  std::optional<PictureClock> clock_;
  std::vector<uint8_t> fields_;                        // with pulldown, of each picture
  std::optional<qlnmedia::captions::Rate> fieldRate_;  // likewise
  size_t picture_ = 0;                                 // of them, the next one
  int64_t field_ = 0;                                  // that it begins with
  std::optional<qlnmedia::captions::CaptionPictures> source_;
};

}  // namespace qlnmedia

#endif
