// The boxes of a track that goes along with a video track: timecode, captions.
#ifndef MEDIA_CONTAINER_MP4_COMPANION_BOXES_H
#define MEDIA_CONTAINER_MP4_COMPANION_BOXES_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "container/mp4/movie.h"
#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

// A box with a head of 32 bits; `type` has four characters.
Bytes BoxBytes(const char* type, const Bytes& body);

// Puts a box's body together.
class BoxBody {
 public:
  BoxBody& U(uint64_t value, size_t bytes) {
    PutNumber(bytes_, value, bytes);
    return *this;
  }
  BoxBody& Zeros(size_t count) { return Add(Bytes(count)); }
  BoxBody& Add(const Bytes& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  BoxBody& Text(const std::string& text) { return Add(Bytes(text.begin(), text.end())); }
  Bytes Box(const char* type) const { return BoxBytes(type, bytes_); }
  Bytes Take() { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

// `gmin` with the values of media that is shown as text: mode "dither copy", grey, sound in the middle.
Bytes GenericMediaBox();

// What is a track's own; all else is as the video track has it.
struct CompanionTrack {
  uint32_t id = 0;
  const char* handler = "";               // four characters
  std::string handlerName = {};           // as QuickTime shows it
  uint32_t flags = 3;                     // of the track header: enabled, in the movie
  uint16_t alternateGroup = 0;            // of tracks of which one is shown; 0 for none
  std::optional<uint16_t> language = {};  // as 'mdhd' has it; the video track's where it is not said
  uint64_t duration = 0;                  // of the media, in its timescale
  Bytes generic = {};                     // boxes in QuickTime's `gmhd`; ISO has an `nmhd` in its place
  Bytes sampleTable = {};                 // `stbl`
};

class CompanionWriter {
 public:
  // Throws Error where the video track's headers are missing or break off.
  CompanionWriter(Reader& reader, const Movie& movie, const Track& video, uint32_t timescale, bool quickTime);

  // A time in the video track's units in those of the companion, rounded.
  int64_t Scaled(int64_t time) const;
  // Of the video track's media, in its own units.
  uint64_t videoDuration() const { return mediaDuration_; }
  // The `trak`. `first` is the video's time at which the companion's media begins: the composition time of
  // the picture that is first in presentation order. Its edits are the video's, so that what they leave out
  // of the pictures is left out here. With `leads` a video track without edits whose first picture does not
  // stand at time 0 gets an empty edit in front.
  Bytes Write(const CompanionTrack& track, int64_t first, bool leads);

 private:
  Bytes TrackHeader(const CompanionTrack& track, uint64_t duration) const;
  bool HasEdits();
  Bytes Edits(int64_t first);
  // Of media that lasts so long; gives the duration of the track as well.
  Bytes Lead(int64_t first, uint64_t media, uint64_t* duration);
  Bytes Media(const CompanionTrack& track) const;
  Bytes Handler(const char* component, const char* type, const std::string& name) const;

  Reader& reader_;
  const Movie& movie_;
  const Track& video_;
  uint32_t timescale_;
  bool quickTime_;
  uint64_t created_ = 0, modified_ = 0;  // of the video track
  uint64_t duration_ = 0;                // of it, in units of the movie
  uint64_t mediaDuration_ = 0;
  uint16_t language_ = 0;
};

}  // namespace qlnmedia::mp4

#endif
