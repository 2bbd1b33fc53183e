// The closed caption track of a movie (QuickTime File Format Specification, "Closed Captioning Media"): put
// into a file that has none, or in the place of the one that is there.
#ifndef MEDIA_CONTAINER_MP4_CAPTION_TRACK_H
#define MEDIA_CONTAINER_MP4_CAPTION_TRACK_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

// What the track holds.
struct CaptionSamples {
  Bytes bytes;                      // one sample behind the other
  std::vector<uint32_t> sizes;      // of each, bytes
  std::vector<uint32_t> durations;  // of each, in units of the video track
  // When the first one begins, in the video track's media: the composition time of the picture that is first
  // in presentation order.
  int64_t first = 0;
  uint32_t perChunk = 30;  // samples
  uint16_t language = 0;   // as 'mdhd' has it
};

struct FileWithCaptions {
  std::unique_ptr<Source> source;  // reads from the file that it was made of
  uint32_t trackId = 0;
  bool replaced = false;  // it stands in the place of an earlier one
};

// The file as it is with a `c608` track of the samples behind all others, which its video track `videoTrack`
// names (`tref`), which follows that one's clock and edits, and of which players show one at a time with
// other captions and subtitles. With `replace` it takes the place of the one caption track that is there,
// whose samples then stay as bytes that nobody names. All else stays byte for byte, but that data behind a
// `moov` that grows moves with it.
//
// `file` is kept by the caller as long as the result. Throws Error, naming it, for a file in fragments, for
// one whose boxes name places in ways that are not followed here, and where caption tracks are in the way.
FileWithCaptions PutCaptionTrack(const Source& file, uint32_t videoTrack, const CaptionSamples& samples,
                                 bool replace);

// A language of ISO 639-2/T, three small letters, as 'mdhd' has it; nothing for other texts.
std::optional<uint16_t> LanguageCode(std::string_view language);

}  // namespace qlnmedia::mp4

#endif
