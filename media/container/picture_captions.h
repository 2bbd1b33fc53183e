// The captions of coded pictures as a source of captions.
#ifndef MEDIA_CONTAINER_PICTURE_CAPTIONS_H
#define MEDIA_CONTAINER_PICTURE_CAPTIONS_H

#include <memory>

#include "captions/reader.h"
#include "container/caption_source.h"

namespace qlnmedia {

// The pace of steady pictures of a rate.
Pace PaceOfRate(captions::Rate rate);

// The pictures of a stream that was surveyed; with pulldown the frames of 29.97 or 30 a second that are
// shown, unless a rate is asked for. Throws NotApplicable for a stream without captions.
std::unique_ptr<CaptionSource> OpenPictureCaptions(CaptionSurvey survey, const CaptionTiming& timing,
                                                   const ProgressCallback& progress);

}  // namespace qlnmedia

#endif
