// Captions with the times of a container's clock, as a track of pictures; and what was damaged among them.
#ifndef MEDIA_CONTAINER_TIMED_TRIPLETS_H
#define MEDIA_CONTAINER_TIMED_TRIPLETS_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "captions/caption_track.h"

namespace qlnmedia {

struct TimedTriplets {
  double seconds = 0;  // from the first picture
  std::vector<captions::Triplet> triplets;
  bool secondField = false;  // the time may be that of a field, half a frame behind its picture
};

// The pictures of `rate` that are nearest to the times, in their order; those in front of the first picture
// have negative ones. Triplets of one picture follow each other in the order in which they came. Throws Error
// in the name of `where` for times of 24 hours or more.
captions::CaptionTrack TrackOfTimes(std::vector<TimedTriplets> captions, captions::Rate rate,
                                    const std::string& where);

// Damage by its kind, each with its first place and how often it is met.
class DamagedPlaces {
 public:
  // `units` is what the places are, as "samples".
  explicit DamagedPlaces(std::string units) : units_(std::move(units)) {}
  void Add(const std::string& place, const std::string& what);
  // A line for each kind, in the order in which they were met.
  void Tell(const std::string& where, std::vector<std::string>* lines) const;

 private:
  struct Kind {
    std::string place;
    uint64_t count = 0;
  };
  std::string units_;
  std::map<std::string, Kind> kinds_;
  std::vector<std::string> order_;
};

}  // namespace qlnmedia

#endif
