// Closed caption tracks of MOV and MP4 files.
#ifndef MEDIA_CONTAINER_CAPTION_TRACKS_H
#define MEDIA_CONTAINER_CAPTION_TRACKS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "captions/caption_sample.h"
#include "captions/caption_track.h"
#include "container/mp4/source.h"

namespace qlnmedia {

struct CaptionTrackPlace {
  unsigned stream = 0;  // its place among the file's tracks
  uint32_t id = 0;
  std::string format;  // "c608" or "c708"
};

// The caption tracks of a file; none where its boxes cannot be read.
std::vector<CaptionTrackPlace> FindCaptionTracks(const mp4::Source& source);

// Takes each sample of a track, by its number from 0; null for a damaged one.
using TakeCaptionSample = std::function<void(uint64_t number, const captions::CaptionSample* sample)>;

// The captions of a track by the movie's times, the edit lists of both resolved: time 0 is when the first
// video track shows its first picture, or that of the movie where there is none; what is shown earlier has
// negative times, and what edits show twice is there twice. The rate is `asked`, or what its packets or the
// length of its samples say. Damaged samples are left out; `damage` takes a line for each kind, with the
// first place and how many there are. Throws Error where the tables cannot be relied on, nothing says a rate
// of captions, or the track holds none.
captions::CaptionTrack ReadCaptionTrackOf(const mp4::Source& source, const CaptionTrackPlace& place,
                                          std::optional<captions::Rate> asked,
                                          std::vector<std::string>* damage,
                                          const TakeCaptionSample& seen = {});

}  // namespace qlnmedia

#endif
