// What a survey of a stream holds, for the edits that need it.
#ifndef MEDIA_EDIT_SURVEY_FACTS_H
#define MEDIA_EDIT_SURVEY_FACTS_H

#include <optional>

#include "captions/reader.h"
#include "edit/scan_signs.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

struct StreamSurvey::Facts {
  std::optional<CaptionCounter> counter;  // while packets are added
  std::optional<ScanSigns> signs;         // of HEVC only
  CaptionSurvey captions;                 // order and pace as well; known when the survey is finished
};

}  // namespace qlnmedia

#endif
