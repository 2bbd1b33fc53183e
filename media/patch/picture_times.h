// The times of a stream's pictures as captions are spread over them, whatever the codec.
#ifndef MEDIA_PATCH_PICTURE_TIMES_H
#define MEDIA_PATCH_PICTURE_TIMES_H

#include <cstdint>
#include <vector>

#include "captions/reader.h"

namespace qlnmedia {

// A survey of pictures at `times`, which rise, in units of the stream's time base; at least one. They have no
// captions.
CaptionSurvey SurveyOfTimes(const StreamDescription& stream, const std::vector<int64_t>& times);

}  // namespace qlnmedia

#endif
