// The editors of a file's streams at work on the tracks of a file whose container is carried.
#ifndef MEDIA_PATCH_CARRIED_TRACKS_H
#define MEDIA_PATCH_CARRIED_TRACKS_H

#include <memory>
#include <vector>

#include "container/mp4/change.h"
#include "patch/edited_streams.h"
#include "patch/track_input.h"

namespace qlnmedia {

class CarriedTracks {
 public:
  // All are kept by the caller as long as this, and as long as the change is used.
  CarriedTracks(const TrackInput& in, EditedStreams& streams, const EditOptions& options);
  ~CarriedTracks();
  CarriedTracks(const CarriedTracks&) = delete;
  CarriedTracks& operator=(const CarriedTracks&) = delete;

  mp4::Change& change() { return change_; }

 private:
  class Editor;
  mp4::Change change_;
  std::vector<std::unique_ptr<Editor>> editors_;
};

}  // namespace qlnmedia

#endif
