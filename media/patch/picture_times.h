// The times of a stream's pictures as captions are spread over them, whatever the codec.
#ifndef MEDIA_PATCH_PICTURE_TIMES_H
#define MEDIA_PATCH_PICTURE_TIMES_H

#include <cstdint>
#include <string>
#include <vector>

#include "captions/reader.h"
#include "container/media_file.h"

namespace qlnmedia {

// The first stream of moving pictures. Throws Error naming `path` where there is none.
const MediaStream& FirstPictures(const MediaFile& in, const std::string& path);

// A survey of pictures at `times`, which rise, in units of the stream's time base; at least one. They have no
// captions.
CaptionSurvey SurveyOfTimes(const StreamDescription& stream, const std::vector<int64_t>& times);

}  // namespace qlnmedia

#endif
