// Line 21 captions (CTA-608) as text with times.
#ifndef TOOLS_QLNMEDIA_CAPTION_TEXT_H
#define TOOLS_QLNMEDIA_CAPTION_TEXT_H

#include <string>
#include <vector>

#include "qlnmedia/caption_reader.h"

namespace qlnmedia {

struct CaptionLine {
  double begin = 0;  // seconds from the first picture
  double end = 0;
  std::string text;  // lines separated by '\n'
};

// The captions of channel 1 of a line 21 field (1 or 2), decoded by libavcodec.
std::vector<CaptionLine> DecodeLine21(const std::vector<Triplets>& pictures, double picturesPerSecond,
                                      int field = 1);

// The services that pictures carry, as "CC field 1", "CC field 2", "708 service 1".
std::vector<std::string> CaptionServices(const std::vector<Triplets>& pictures);

// The text of an .srt file.
std::string WriteSrt(const std::vector<CaptionLine>& lines);
// A line for each caption: its times and its text on one line.
std::string WriteCaptionText(const std::vector<CaptionLine>& lines);

}  // namespace qlnmedia

#endif
