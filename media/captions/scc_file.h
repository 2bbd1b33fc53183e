// Scenarist closed caption files (.scc): line 21 pairs of field 1 by timecode.
#ifndef CAPTIONS_SCC_FILE_H
#define CAPTIONS_SCC_FILE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captions/line21.h"
#include "timing/frame_rate.h"

namespace qlnmedia::captions {

// Pairs that begin at a timecode and take one frame each. Files count 30 frames a second.
struct SccLine {
  Timecode at;
  std::vector<Pair> pairs;

  friend bool operator==(const SccLine&, const SccLine&) = default;
};

struct SccFile {
  bool dropFrame = false;
  std::vector<SccLine> lines;

  friend bool operator==(const SccFile&, const SccFile&) = default;
};

// Reads a file: the line "Scenarist_SCC V1.0", then timecode, white space and groups of four hexadecimal
// digits, on lines that may be apart by empty ones. Any line ending, a byte order mark, comment lines, and
// groups that go on in the next line are allowed. Nothing, with a reason that names the line, for any other
// text, timecodes of both kinds, and times that go back.
std::optional<SccFile> ReadScc(std::string_view text, std::string* reason);

// The text of a file, lines apart by an empty one.
std::string WriteScc(const SccFile& file);

// The pairs by frame from the first line's timecode on, gaps filled up with null pairs. A line that begins
// before the last one has been sent waits for it. Nothing for more than a day.
std::vector<Pair> PairsByFrame(const SccFile& file);

// The frame of the first line; 0 for a file without lines.
int64_t FirstFrame(const SccFile& file);

}  // namespace qlnmedia::captions

#endif
