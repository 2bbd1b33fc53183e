// Checks of the captions that a stream carries.
#ifndef TOOLS_QLNMEDIA_CAPTION_CHECK_H
#define TOOLS_QLNMEDIA_CAPTION_CHECK_H

#include <string>
#include <vector>

#include "qlnmedia/check.h"
#include "qlnmedia/report.h"

namespace qlnmedia {

// Adds findings for pictures without captions in a stream that has some, for pictures whose number of
// triplets is not the constant one of their rate, and for bursts, where one picture has the triplets of those
// around it; frames are counted in presentation order. The file holds a stream that may have captions.
void CheckCaptions(const std::string& path, std::vector<Finding>& findings);

// Adds the caption services of the stream `index`, and the first lines of each, if its first packets carry
// any.
void ReportCaptions(Section& section, const std::string& path, unsigned index);

}  // namespace qlnmedia

#endif
