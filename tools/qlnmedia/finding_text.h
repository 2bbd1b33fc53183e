// Findings as people and programs read them.
#ifndef TOOLS_QLNMEDIA_FINDING_TEXT_H
#define TOOLS_QLNMEDIA_FINDING_TEXT_H

#include <optional>
#include <string>
#include <vector>

#include "output.h"
#include "qlnmedia/check.h"
#include "tables.h"

namespace qlnmedia {

// One line without its end; `seconds` is the time of the stream, where it is known.
std::string FindingLine(const Style& style, const Finding& finding, std::optional<double> seconds = {});
// "stream 0, frame 12, 0.480 s", for what was found or happened there; a frame below 0 is left out.
std::string PlaceInStream(unsigned stream, int64_t frame, std::optional<double> seconds);
Json JsonOfFinding(const Finding& finding);
Json JsonOfFindings(const std::vector<Finding>& findings);
// The exit status that findings come to: notes alone are a success.
ExitStatus StatusOf(const std::vector<Finding>& findings);

}  // namespace qlnmedia

#endif
