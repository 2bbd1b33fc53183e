// Checks of the captions that a stream carries.
#ifndef MEDIA_CHECK_CAPTIONS_H
#define MEDIA_CHECK_CAPTIONS_H

#include <string>
#include <vector>

#include "base/report.h"
#include "check/check.h"

namespace qlnmedia {

// Adds findings for pictures without captions in a stream that has some, for pictures whose number of
// triplets is not the constant one of their rate, and for bursts, where one picture has the triplets of those
// around it; frames are counted in presentation order. The file holds a stream that may have captions.
void CheckCaptions(const std::string& path, std::vector<Finding>& findings, const ProgressCallback& progress);

// Adds the caption services of the stream `index`, and the first lines of each, if its first packets carry
// any.
void ReportCaptions(Section& section, const std::string& path, unsigned index);

}  // namespace qlnmedia

#endif
