// Rounds times to pictures.

#include "container/timed_triplets.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/error.h"

namespace qlnmedia {

captions::CaptionTrack TrackOfTimes(std::vector<TimedTriplets> captions, captions::Rate rate,
                                    const std::string& where) {
  constexpr double kLongest = 24 * 3600;
  constexpr double kField = 0.25;  // frames by which times of second fields go back, at most half of one
  const captions::RateInfo& info = captions::InfoOf(rate);
  std::stable_sort(captions.begin(), captions.end(),
                   [](const TimedTriplets& a, const TimedTriplets& b) { return a.seconds < b.seconds; });
  captions::CaptionTrack track;
  track.rate = rate;
  track.nominal = info.nominal;
  track.fromZero = true;
  std::vector<captions::CaptionEvent> each;
  for (TimedTriplets& one : captions) {
    if (one.seconds >= kLongest) throw Error(where, "has captions behind 24 hours");
    if (one.seconds <= -kLongest) throw Error(where, "has captions 24 hours before its first picture");
    const double frames = one.seconds * info.numerator / info.denominator - (one.secondField ? kField : 0);
    each.push_back({std::llround(frames), std::move(one.triplets)});
  }
  // Those of a second field may have gone back behind others.
  std::stable_sort(
      each.begin(), each.end(),
      [](const captions::CaptionEvent& a, const captions::CaptionEvent& b) { return a.at < b.at; });
  for (captions::CaptionEvent& one : each) {
    if (track.events.empty() || track.events.back().at != one.at) {
      track.events.push_back(std::move(one));
      continue;
    }
    std::vector<captions::Triplet>& triplets = track.events.back().triplets;
    triplets.insert(triplets.end(), one.triplets.begin(), one.triplets.end());
  }
  return track;
}

void DamagedPlaces::Add(const std::string& place, const std::string& what) {
  const auto [found, isNew] = kinds_.try_emplace(what, Kind{place, 0});
  if (isNew) order_.push_back(what);
  ++found->second.count;
}

void DamagedPlaces::Tell(const std::string& where, std::vector<std::string>* lines) const {
  for (const std::string& what : order_) {
    const Kind& kind = kinds_.at(what);
    lines->push_back(fmt::format("{}: {}: {}{}; left out", where, kind.place, what,
                                 kind.count > 1 ? fmt::format(" ({} {})", kind.count, units_) : ""));
  }
}

}  // namespace qlnmedia
