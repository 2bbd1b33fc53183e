// Where captions come from: the pictures of a media file, or a caption file, picture by picture.
#ifndef MEDIA_CONTAINER_CAPTION_SOURCE_H
#define MEDIA_CONTAINER_CAPTION_SOURCE_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/progress.h"
#include "captions/caption_track.h"
#include "captions/line21_decoder.h"
#include "captions/pop_on.h"
#include "captions/reader.h"
#include "captions/text.h"

namespace qlnmedia {

class CaptionSource {
 public:
  virtual ~CaptionSource() = default;
  CaptionSource(const CaptionSource&) = delete;
  CaptionSource& operator=(const CaptionSource&) = delete;

  unsigned stream = 0;  // its index in a media file
  uint64_t pictures = 0;
  uint64_t captioned = 0;  // pictures with captions, padding included
  Pace pace;
  std::optional<bool> dropFrame;  // whether the source's labels leave numbers out, where it has some
  int hour = 0;                   // of a caption file: the hour in which its labels begin

  // Hands over each picture in presentation order. Gives the seconds where one behind the last would begin.
  virtual double Read(const std::function<void(const CaptionedPicture&)>& take,
                      const ProgressCallback& progress) = 0;

 protected:
  CaptionSource() = default;
};

// Opens a media file or a caption file, whose ending says that it is one (.scc, .mcc, .srt, .vtt). Throws
// Error for what cannot be read, NotApplicable for media without captions.
std::unique_ptr<CaptionSource> OpenCaptionSource(const std::string& path, const CaptionTiming& timing,
                                                 const CaptionSourceOptions& options,
                                                 const ProgressCallback& progress);

// All services of a source, with places and looks or as text.
std::vector<StyledService> DecodeStyled(CaptionSource& source, const ProgressCallback& progress);
std::vector<CaptionService> DecodeCaptions(CaptionSource& source, const ProgressCallback& progress);

// Whether a path's ending is that of a caption file, and of one of timed text (.srt, .vtt).
bool IsCaptionFile(const std::string& path);
bool IsCueFile(const std::string& path);

// All that a source has as a track, whose times count from its first picture. Throws Error where its rate is
// none of captions.
captions::CaptionTrack TrackOf(CaptionSource& source, const std::string& path,
                               const ProgressCallback& progress);

// The text of the cue file `path` as pictures of `rate` with captions. Tells `options` what was done about
// its text, and gives it back in `done` if that is given. Throws Error where the text is none, or something
// remains to be done about it.
captions::CaptionTrack MakeTrackOfCues(const std::string& path, const std::string& text, captions::Rate rate,
                                       const CaptionSourceOptions& options,
                                       std::vector<std::string>* done = nullptr);

}  // namespace qlnmedia

#endif
