// Makes surveys of times alone.

#include "patch/picture_times.h"

#include <algorithm>

#include "base/error.h"

namespace qlnmedia {

const MediaStream& FirstPictures(const MediaFile& in, const std::string& path) {
  for (const MediaStream& stream : in.streams()) {
    if (stream.movingPictures) return stream;
  }
  throw Error(path, "has no pictures");
}

CaptionSurvey SurveyOfTimes(const StreamDescription& stream, const std::vector<int64_t>& times) {
  CaptionSurvey survey;
  PicturePlaces& order = survey.order;
  order.timeBase = stream.timeBase;
  order.pictures = static_cast<uint32_t>(times.size());
  for (size_t i = 1; i < times.size(); ++i)
    order.steps.push_back(static_cast<uint32_t>(std::min<int64_t>(times[i] - times[i - 1], UINT32_MAX)));
  const int64_t total = times.back() - times.front();
  if (total > 0)
    order.picturesPerSecond =
        static_cast<double>(order.steps.size()) / (static_cast<double>(total) * order.timeBase.value());
  survey.pace = PaceOf(stream, order);
  return survey;
}

}  // namespace qlnmedia
