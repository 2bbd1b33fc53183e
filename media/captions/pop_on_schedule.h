// When the codes of pop-on captions are sent, and the pictures that carry them.
#ifndef CAPTIONS_POP_ON_SCHEDULE_H
#define CAPTIONS_POP_ON_SCHEDULE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captions/caption_track.h"
#include "captions/pop_on.h"

namespace qlnmedia::captions {

// The pairs of field 1, one for each of its fields from the first picture on. Each caption is sent ahead, so
// that its end-of-caption code falls on the picture of its begin; at its end the screen is erased, unless the
// next caption begins there or a frame later. A caption that cannot be sent in time is told in `problems`
// with the milliseconds that it is late, and so is one that begins before the one in front of it ends; with
// `fit` they are shifted and cut.
std::vector<Pair> Schedule(const std::vector<LoadedCaption>& captions, Rate rate, bool fit,
                           std::vector<CueProblem>* problems);

// The text of a .srt or .vtt file as pictures of `rate` with pop-on captions, the first picture at time 0.
// Nothing, with a reason, for text that is none or that holds no captions; where a problem is not solved the
// track is what would be with the options that solve it.
std::optional<CaptionTrack> MakeCaptionTrack(std::string_view text, Rate rate, const MakingOptions& options,
                                             std::vector<CueProblem>* problems, std::string* reason);

// "line 3: ..." for each.
std::vector<std::string> LinesOf(const std::vector<CueProblem>& problems, bool solved);

}  // namespace qlnmedia::captions

#endif
