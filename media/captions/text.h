// Captions as text with times.
#ifndef MEDIA_CAPTIONS_TEXT_H
#define MEDIA_CAPTIONS_TEXT_H

#include <string>
#include <vector>

#include "qlnmedia/captions.h"

namespace qlnmedia {

// Their names, with commas between them.
std::string NamesOf(const std::vector<CaptionService>& services);

// The text of an .srt file.
std::string WriteSrt(const std::vector<CaptionLine>& lines);
// A line for each caption: its times and its text on one line.
std::string WriteCaptionText(const std::vector<CaptionLine>& lines);

}  // namespace qlnmedia

#endif
