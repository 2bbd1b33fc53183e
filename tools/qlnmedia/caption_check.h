// Checks of the captions that a stream carries.
#ifndef TOOLS_QLNMEDIA_CAPTION_CHECK_H
#define TOOLS_QLNMEDIA_CAPTION_CHECK_H

#include <string>
#include <vector>

#include "qlnmedia/check.h"
#include "qlnmedia/report.h"

namespace qlnmedia {

// Adds findings for pictures without captions in a stream that has some, and for pictures whose number of
// triplets is not the constant one of their rate; they are counted in presentation order. The file has been
// checked to hold video.
void CheckCaptions(const std::string& path, std::vector<Finding>& findings);

// Adds the caption services of the stream `index`, and the first lines of their text, if its first packets
// carry any.
void ReportCaptions(Section& section, const std::string& path, unsigned index);

}  // namespace qlnmedia

#endif
