// Reads ancillary data streams packet by packet.

#include "container/anc_captions.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "captions/anc_packets.h"
#include "container/timed_triplets.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kRegistered =
    'V' | 'A' << 8 | 'N' << 16 | 'C' << 24;  // first character in the lowest byte

std::optional<unsigned> FirstVideo(const MediaFile& file) {
  for (const MediaStream& stream : file.streams()) {
    if (stream.movingPictures) return stream.index;
  }
  return {};
}

// What one PES packet holds.
std::vector<captions::Triplet> TakePacket(ByteSpan payload, const std::string& place, DamagedPlaces& damage,
                                          std::optional<captions::Rate>* rate) {
  std::vector<std::string> damaged;
  std::vector<captions::Triplet> triplets;
  for (const captions::AncPacket& packet : captions::ReadSt2038(payload, &damaged)) {
    std::string reason;
    const auto read = captions::CaptionsOfAnc(packet, rate, &reason);
    if (read) triplets.insert(triplets.end(), read->begin(), read->end());
    if (!reason.empty()) damaged.push_back(reason);
  }
  for (const std::string& what : damaged) damage.Add(place, what);
  return triplets;
}

}  // namespace

std::vector<unsigned> FindAncStreams(const MediaFile& file) {
  std::vector<unsigned> found;
  if (!file.isTransportStream()) return found;
  for (const MediaStream& stream : file.streams()) {
    if (stream.tag == kRegistered) found.push_back(stream.index);
  }
  return found;
}

captions::CaptionTrack ReadAncStream(const std::string& path, unsigned stream,
                                     std::optional<captions::Rate> asked, std::vector<std::string>* damage,
                                     const ProgressCallback& progress) {
  MediaFile file(path);
  const std::optional<unsigned> video = FirstVideo(file);
  const auto secondsOf = [&file](const MediaPacket& packet) {
    return static_cast<double>(packet.view.pts) * file.streams()[packet.stream].coded.timeBase.value();
  };
  const std::string where = fmt::format("stream {}", stream);
  DamagedPlaces places("packets");
  std::optional<captions::Rate> rate;
  std::optional<double> first;  // time of the first picture
  std::vector<TimedTriplets> captions;
  uint64_t number = 0;
  Progress meter(progress, "reading", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    const bool timed = packet.view.pts != kNoTime;
    if (packet.stream == video && timed)
      first = first ? std::min(*first, secondsOf(packet)) : secondsOf(packet);
    if (packet.stream != stream) continue;
    const std::string place = fmt::format("packet {} at byte {}", number++, packet.view.position);
    std::vector<captions::Triplet> triplets = TakePacket(packet.view.data, place, places, &rate);
    if (!timed) places.Add(place, "a packet without a time");
    if (timed && !triplets.empty()) captions.push_back({secondsOf(packet), std::move(triplets)});
  }
  meter.Done();
  places.Tell(where, damage);
  if (captions.empty()) throw NotApplicable(path, where + " has no captions");
  const double begin = first.value_or(captions.front().seconds);
  for (TimedTriplets& one : captions) one.seconds -= begin;
  return TrackOfTimes(std::move(captions), asked ? *asked : rate.value_or(captions::Rate::k29_97),
                      path + ": " + where);
}

}  // namespace qlnmedia
