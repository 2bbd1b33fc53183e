/// @file check.h
/// Holds what container, configuration record and coded stream of a media file say against each other, and
/// against the order rules of the standards (ITU-T H.264, H.265).
///
/// Functions may run in several threads at once, each on its own file or on the same one; nothing is written.
#ifndef QLNMEDIA_CHECK_H
#define QLNMEDIA_CHECK_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/progress.h"

namespace qlnmedia {

/// How much a finding weighs.
enum class Severity {
  kError,    ///< players will stumble: something is missing, damaged or out of order
  kWarning,  ///< one side says what is not so
  kNote,     ///< legal and good to know; `qlnmedia check` ends with status 0 over it
};

/// What a finding is about.
enum class FindingKind {
  kColour,      ///< primaries, transfer or matrix
  kRange,       ///< limited or full
  kSize,        ///< width and height
  kRate,        ///< pictures a second
  kInterlace,   ///< fields or progressive frames
  kHdr,         ///< mastering display, content light level
  kSets,        ///< parameter sets that change, or differ from the configuration record
  kOrder,       ///< units out of the order of their access unit
  kCaptions,    ///< pictures whose captions are not those of the stream's rate
  kDamage,      ///< bytes that are missing, or are not what their place asks for
  kAspect,      ///< the shape of samples
  kEncryption,  ///< samples that cannot be judged
  kTimecode,    ///< the timecode that the file begins with
};

/// One kind of disagreement; the same in later frames counts up.
struct Finding {
  unsigned stream = 0;                      ///< index in the file
  FindingKind kind = FindingKind::kDamage;  ///< what it is about
  std::string text;                         ///< who says what, in one line
  int64_t frame = -1;  ///< the first coded frame that shows it, from 0; -1 for the stream as a whole
  int64_t count = 1;   ///< frames that show it
  Severity severity = Severity::kWarning;  ///< how much it weighs
};

/// The word of a kind, as scripts know it: "colour", "range", "size", "rate", "interlace", "hdr", "sets",
/// "order", "captions", "damage", "aspect", "encryption", "timecode". Static storage.
QLNMEDIA_API const char* FindingWord(FindingKind kind);
/// "error", "warning" or "note". Static storage.
QLNMEDIA_API const char* SeverityWord(Severity severity);

/// Reads a whole file and returns what is found, in the order in which it shows; nothing for a sound file.
///
/// @param path      an H.264 or HEVC stream in any container that can be read, or raw; of MPEG-2 the
/// captions; or a
///                  caption file that ends in .scc, .mcc, .srt or .vtt, whose findings name its lines
/// @param progress  may be empty
/// @throws Error      for a file that is missing, is no media, or has no such stream
/// @throws Cancelled  where `progress` calls it off
QLNMEDIA_API std::vector<Finding> CheckFile(const std::string& path, const ProgressCallback& progress = {});

/// Hears of a finding when it shows first, with a `count` of 1 so far. `seconds` is the presentation time of
/// the picture, as the container tells it; nothing where it tells none, and of what is about the file as a
/// whole. Called in the thread that checks, which waits for it; what it throws ends the check.
using FoundCallback = std::function<void(const Finding& finding, std::optional<double> seconds)>;

/// What a check of a stream that goes on tells on its way; both may be empty.
struct LiveCheckOptions {
  ProgressCallback progress;  ///< as for CheckFile
  FoundCallback found;        ///< hears of findings, each once, in the order in which they show
};

/// Checks as CheckFile, for who waits for no end: findings are told as they show, those about captions in
/// coded pictures as soon as the order of these is settled, which is 32 pictures later, and not before 64
/// came. Memory does not grow with the stream: of more than 10,000 kinds of disagreement the others count
/// together, by what they are about. Of MXF that does not tell the order of its pictures captions are judged
/// at the end.
/// @returns what `found` heard, each with its final count
/// @throws  as CheckFile
QLNMEDIA_API std::vector<Finding> CheckLive(const std::string& path, const LiveCheckOptions& options);

}  // namespace qlnmedia

#endif
