// Captions as text with times.
#ifndef MEDIA_CAPTIONS_TEXT_H
#define MEDIA_CAPTIONS_TEXT_H

#include <string>
#include <vector>

namespace qlnmedia {

struct CaptionLine {
  double begin = 0;  // seconds from the first picture
  double end = 0;
  std::string text;  // lines separated by '\n'
};

struct CaptionService {
  // "CC1" to "CC4", "T1" to "T4", "XDS" for line 21; "service 1" to "service 63" for digital captions
  std::string name;
  std::vector<CaptionLine> lines;
};

// Their names, with commas between them.
std::string NamesOf(const std::vector<CaptionService>& services);

// The text of an .srt file.
std::string WriteSrt(const std::vector<CaptionLine>& lines);
// A line for each caption: its times and its text on one line.
std::string WriteCaptionText(const std::vector<CaptionLine>& lines);

}  // namespace qlnmedia

#endif
