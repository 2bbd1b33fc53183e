// What inspect says of the captions in a stream.
#ifndef MEDIA_INSPECT_CAPTIONS_H
#define MEDIA_INSPECT_CAPTIONS_H

#include <optional>
#include <vector>

#include "base/rational.h"
#include "base/report.h"
#include "captions/text.h"
#include "container/caption_services.h"
#include "container/file_captions.h"
#include "inspect/coded_frames.h"

namespace qlnmedia {

// So many packets are looked at for a report.
inline constexpr size_t kPacketsInReport = 1800;

// What the first packets of the stream that may have captions tell.
struct StreamCaptions {
  std::optional<unsigned> stream;  // nothing for a file without such a stream
  bool found = false;              // pictures have captions, padding included
  std::vector<CaptionService> services;
  size_t pictures = 0;             // that were looked at
  Rational averageRate{0, 1};      // pictures a second as the times of those tell; 0 where they have none
  std::optional<bool> steadyPace;  // whether they stand equally long; nothing where they have no times
};

// Surveys the pictures of a file whose packets somebody reads in any case, so that it need not be opened
// again.
class SurveyAlong {
 public:
  // `file` must outlive this, and nothing of it has been read. Does nothing for pipes, for files without a
  // stream that may have captions, and for containers of which reading shows more than their heads told.
  explicit SurveyAlong(MediaFile& file);
  // Takes the file's next packet.
  void Take(const MediaPacket& packet);
  // Reads on as far as a report looks; nothing where this does nothing.
  std::optional<CaptionSurvey> Finish();

 private:
  MediaFile& file_;
  unsigned stream_ = 0;
  std::optional<CaptionCounter> counter_;
  OwnOrder order_;
};

// Looks at a file of which `first` was read. Where its tables do not place its pictures it is opened once
// more, since captions are shown in presentation order. Of a pipe, what comes within seconds is looked at.
// `along` is the survey where somebody has made it already.
StreamCaptions ReadFirstCaptions(const MediaFile& file, const FirstPictures& first,
                                 std::optional<CaptionSurvey> along);

// Adds the caption services of a stream that has captions, and the first lines of each.
void AddCaptionServices(Section& section, const std::vector<CaptionService>& services);

// The services that the container announces, with their languages; nothing where it announces none.
void AddAnnouncedServices(Section& section, const std::vector<AnnouncedService>& services);

}  // namespace qlnmedia

#endif
