// Closed caption tracks of MOV and MP4 files.
#ifndef MEDIA_CONTAINER_CAPTION_TRACKS_H
#define MEDIA_CONTAINER_CAPTION_TRACKS_H

#include <optional>
#include <string>
#include <vector>

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

// The captions of a track by its times, edit lists resolved; the first picture is at time 0. The rate is
// `asked`, or what its packets or the length of its samples say. Damaged samples are left out; `damage` takes
// a line for each kind, with the first place and how many there are. Throws Error where the tables cannot be
// relied on, nothing says a rate of captions, or the track holds none.
captions::CaptionTrack ReadCaptionTrackOf(const mp4::Source& source, const CaptionTrackPlace& place,
                                          std::optional<captions::Rate> asked,
                                          std::vector<std::string>* damage);

}  // namespace qlnmedia

#endif
