// Files of timed text, .srt (SubRip) and .vtt (WebVTT), as cues.
#ifndef CAPTIONS_CUE_FILE_H
#define CAPTIONS_CUE_FILE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captions/line21_look.h"

namespace qlnmedia::captions {

// One line of a cue.
struct CueLine {
  int number = 0;  // of the file's line
  std::u32string text;
  std::vector<Look> looks = {};          // of each character; none where all are white and upright
  std::vector<std::string> losses = {};  // what its markup asks for that line 21 lacks

  friend bool operator==(const CueLine&, const CueLine&) = default;
};

// How lines stand about the place of their cue.
enum class CueAlign { kCentre, kLeft, kRight };

// Which of its lines stands at that place: the first, the middle, or none, since all are above.
enum class CueAnchor { kStart, kCentre, kEnd };

// A text with its times, and where it stands if the file says so.
struct Cue {
  int line = 0;  // of the file, with its times
  int64_t begin = 0;
  int64_t end = 0;  // milliseconds, behind `begin`
  std::vector<CueLine> lines;
  std::optional<double> top;   // of the line of `anchor`, in hundredths of the picture's height
  bool topIsRow = false;       // ... or rows: from 0 at the top, from -1 at the bottom
  std::optional<double> left;  // of the place of `align`, in hundredths of its width
  CueAlign align = CueAlign::kCentre;
  CueAnchor anchor = CueAnchor::kStart;
  std::vector<std::string> losses = {};  // of its settings

  friend bool operator==(const Cue&, const Cue&) = default;
};

// Reads a .srt or .vtt file, told apart by the latter's heading. Tags (<i>, <u>, <font color>, <c.yellow>)
// become looks, places of .srt ({\an8}) those of their cue, entities of .vtt their characters; comments,
// styles and regions are passed over. Cues
// of one begin and one end become one where they name no places. Nothing, with a reason that names the line,
// for other texts, texts that are not UTF-8, times that do not exist, end before they begin, go back, or
// reach 24 hours.
std::optional<std::vector<Cue>> ReadCues(std::string_view text, std::string* reason);

// True for a text that begins as a .vtt file.
bool IsWebVtt(std::string_view text);

}  // namespace qlnmedia::captions

#endif
