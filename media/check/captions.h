// Checks of the captions that a stream carries.
#ifndef MEDIA_CHECK_CAPTIONS_H
#define MEDIA_CHECK_CAPTIONS_H

#include <string>

#include "captions/reader.h"
#include "check/finding_list.h"

namespace qlnmedia {

// Adds findings of what was surveyed for pictures without captions in a stream that has some, for pictures
// whose number of triplets is not the constant one of their rate, and for bursts, where one picture has the
// triplets of those around it; frames are counted in presentation order.
void CheckCaptions(const CaptionSurvey& survey, FindingList& findings);

}  // namespace qlnmedia

#endif
