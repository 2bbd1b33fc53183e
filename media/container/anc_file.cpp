// Reads elementary ancillary files element by element.

#include "container/anc_file.h"

#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <span>
#include <utility>

#include "base/error.h"
#include "captions/anc_element.h"
#include "container/timed_triplets.h"

namespace qlnmedia {

namespace {

using captions::AncElementKind;

std::span<const uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// The packets of an element that may be those of two pictures.
struct Halves {
  int packets = 0;
  size_t first = 0;  // triplets of the first one
  bool whole = true;

  void Take(size_t tripletsSoFar, bool isCaptionPacket) {
    if (packets++ == 0) first = tripletsSoFar;
    whole = whole && isCaptionPacket;
  }
  bool areTwo() const { return whole && packets == 2; }
};

// Where all elements have the packets of two pictures.
void SplitFrames(const std::vector<Halves>& halves, captions::CaptionTrack& track) {
  const bool fast = captions::InfoOf(track.rate).nominal > 30;
  if (!fast || !std::all_of(halves.begin(), halves.end(), [](const Halves& half) { return half.areTwo(); }))
    return;
  std::vector<captions::CaptionEvent> events;
  for (size_t i = 0; i < halves.size(); ++i) {
    const captions::CaptionEvent& event = track.events[i];
    const auto second = event.triplets.begin() + static_cast<std::ptrdiff_t>(halves[i].first);
    events.push_back({2 * event.at, {event.triplets.begin(), second}});
    events.push_back({2 * event.at + 1, {second, event.triplets.end()}});
  }
  track.events = std::move(events);
}

// What a file that holds no elements seems to be.
std::string WhatItIs(std::string_view file) {
  constexpr std::string_view kKey = "\x06\x0E\x2B\x34";
  if (file.substr(0, kKey.size()) == kKey) return "seems to be MXF, and no file of its elements alone";
  return "does not begin with an element of ancillary data (SMPTE ST 436)";
}

}  // namespace

bool IsAncFile(const std::string& path) {
  constexpr std::string_view kEnding = ".anc";
  return path.size() > kEnding.size() &&
         strcasecmp(path.c_str() + path.size() - kEnding.size(), kEnding.data()) == 0;
}

std::optional<std::string> ReadAncElements(std::string_view file,
                                           const std::function<void(const AncFileElement&)>& take) {
  const std::span<const uint8_t> bytes = BytesOf(file);
  AncFileElement element;
  for (size_t used = 0; element.at < bytes.size(); element.at += used, ++element.number) {
    element.damage.clear();
    element.packets =
        captions::ReadAncElement(bytes.subspan(element.at), AncElementKind::kPackets, &element.damage, &used);
    const bool brokenOff = element.at + used == bytes.size() && !element.damage.empty();
    if (element.number == 0 && element.packets.empty() && brokenOff) return WhatItIs(file);
    take(element);
  }
  if (element.number == 0) return "is empty";
  return {};
}

captions::CaptionTrack ReadAncFile(std::string_view file, const std::string& path,
                                   std::optional<captions::Rate> asked, std::vector<std::string>* damage) {
  DamagedPlaces places("elements");
  std::optional<captions::Rate> rate;
  captions::CaptionTrack track;
  std::vector<Halves> halves;
  const auto take = [&](const AncFileElement& element) {
    const std::string place = fmt::format("picture {} at byte {}", element.number, element.at);
    for (const std::string& what : element.damage) places.Add(place, what);
    captions::CaptionEvent event{static_cast<int64_t>(element.number), {}};
    Halves half;
    for (const captions::AncPacket& packet : element.packets) {
      std::string reason;
      std::optional<captions::Rate> told;
      const auto read = captions::CaptionsOfAnc(packet, &told, &reason);
      if (!rate) rate = told;
      if (!reason.empty()) places.Add(place, reason);
      if (!read) continue;
      event.triplets.insert(event.triplets.end(), read->begin(), read->end());
      half.Take(event.triplets.size(), told.has_value());
    }
    if (event.triplets.empty()) return;
    track.events.push_back(std::move(event));
    halves.push_back(half);
  };
  if (const std::optional<std::string> reason = ReadAncElements(file, take)) throw Error(path, *reason);
  places.Tell("ancillary data", damage);
  if (track.events.empty()) throw Error(path, "holds no captions");
  track.rate = rate ? *rate : asked.value_or(captions::Rate::k29_97);
  track.nominal = captions::InfoOf(track.rate).nominal;
  track.fromZero = true;
  SplitFrames(halves, track);
  return track;
}

}  // namespace qlnmedia
