// The timecode track of a movie (QuickTime File Format Specification, "Timecode Media"): put into a file that
// has none, or corrected in one that has.
#ifndef MEDIA_CONTAINER_MP4_TIMECODE_TRACK_H
#define MEDIA_CONTAINER_MP4_TIMECODE_TRACK_H

#include <cstdint>
#include <memory>

#include "container/mp4/movie.h"
#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

// What the track says.
struct TimecodeFacts {
  uint32_t firstFrame = 0;     // number of the first picture's frame, those that are left out not counted
  uint32_t timescale = 0;      // this over the duration are frames a second
  uint32_t frameDuration = 0;  // both above 0
  uint8_t numbers = 0;         // of frames in a second
  bool dropFrame = false;
};

enum class TimecodeTrackNews {
  kAdded,      // the file had none
  kCorrected,  // it said something else
  kSame,       // it said just this
};

struct FileWithTimecode {
  std::unique_ptr<Source> source;  // reads from the file that it was made of
  TimecodeTrackNews news = TimecodeTrackNews::kSame;
};

// The file as it is with that timecode in the track that its video track `videoTrack` names (`tref`): a track
// behind all others, whose one sample stands in a media data box of its own at the end of the file; or the
// one that is there, whose sample and sample description change in their places. All else stays byte for
// byte, but that data behind a `moov` that grows moves with it.
//
// `file` is kept by the caller as long as the result. Throws Error, naming it, for a file in fragments, for
// one whose boxes name places in ways that are not followed here, and for a timecode track of several
// timecodes.
FileWithTimecode PutTimecodeTrack(const Source& file, uint32_t videoTrack, const TimecodeFacts& facts);

}  // namespace qlnmedia::mp4

#endif
