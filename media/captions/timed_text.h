// Captions as files of timed text that keep places and looks: WebVTT and TTML.
#ifndef CAPTIONS_TIMED_TEXT_H
#define CAPTIONS_TIMED_TEXT_H

#include <string>
#include <vector>

#include "captions/line21_screen.h"

namespace qlnmedia::captions {

// A .vtt file. Rows and columns become places in the middle eight tenths of the picture; rows that begin in
// one column share a cue. Colours are WebVTT's own classes.
std::string WriteVtt(const std::vector<StyledCaption>& captions);

// A .ttml file in the text profile of IMSC 1: places become regions, colours, italics and lines below spans.
std::string WriteTtml(const std::vector<StyledCaption>& captions);

}  // namespace qlnmedia::captions

#endif
