// Reads caption tracks by their boxes: demuxers change what stands in their samples.

#include "container/caption_tracks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"
#include "captions/caption_sample.h"
#include "container/edit_list.h"
#include "container/mp4/box_tree.h"
#include "container/mp4/movie.h"
#include "container/mp4/sample_table.h"
#include "container/timed_triplets.h"

namespace qlnmedia {

namespace {

using mp4::FourCc;
using mp4::Reader;

constexpr double kFrame = 1001 / 30000.0;       // of line 21, seconds
constexpr size_t kMostShown = size_t{1} << 23;  // pictures; a day has five millions
constexpr uint32_t kMostSample = 1 << 20;       // bytes; a second of captions takes a few thousand

// What stands at a time of the media.
struct MediaPicture {
  double media = 0;
  bool instant = false;  // it takes no time
  std::vector<captions::Triplet> triplets;
};

// All that a track holds.
struct TrackContents {
  std::vector<MediaPicture> pictures;
  std::optional<captions::Rate> rate;  // as its packets or its samples have it, else that of line 21
};

std::string PlaceOf(const mp4::Sample& sample) {
  return fmt::format("sample {} at byte {}", sample.number, sample.offset);
}

// A sample may have the pairs of many frames, which are sent one after the other, and stand longer than that.
void AddPictures(const mp4::Sample& sample, double scale, captions::CaptionSample read,
                 std::vector<MediaPicture>& pictures) {
  const auto count = static_cast<double>(read.pictures.size());
  const double each = std::min(sample.duration / scale / count, kFrame);
  double media = static_cast<double>(sample.compositionTime) / scale;
  for (std::vector<captions::Triplet>& triplets : read.pictures) {
    pictures.push_back({media, sample.duration == 0, std::move(triplets)});
    media += each;
  }
}

TrackContents ReadContents(const mp4::Source& source, const mp4::Layout& layout, const mp4::Track& track,
                           DamagedPlaces& damage, const TakeCaptionSample& seen) {
  TrackContents contents;
  std::optional<captions::Rate> ofSamples;
  mp4::TrackSamples samples(source, layout, track.id);
  mp4::Bytes bytes;
  for (mp4::Sample sample; samples.Next(sample);) {
    if (!sample.inFile || sample.encrypted) throw Error(source.name(), "its caption track cannot be read");
    if (sample.number == kMostShown)
      throw Error(source.name(), "its caption track has more samples than a day has");
    // Else one of a short file could have any number of samples.
    mp4::RequireSample(source, track.id, sample);
    std::string reason = "is too large for captions";
    std::optional<captions::CaptionSample> read;
    if (sample.size <= kMostSample) {
      mp4::ReadSample(source, track.id, sample, bytes);
      read = captions::ReadCaptionSample(bytes, &reason);
    }
    if (seen) seen(sample.number, read ? &*read : nullptr);
    if (!read) {
      damage.Add(PlaceOf(sample), reason);
      continue;
    }
    if (!contents.rate && !read->packets.empty()) contents.rate = read->packets.front().rate;
    if (read->pictures.empty()) continue;
    const auto count = static_cast<int64_t>(read->pictures.size());
    if (!ofSamples)
      ofSamples = captions::RateOf(static_cast<int64_t>(track.timescale) * count, sample.duration);
    AddPictures(sample, track.timescale, std::move(*read), contents.pictures);
  }
  if (!contents.rate) contents.rate = ofSamples.value_or(captions::Rate::k29_97);
  return contents;
}

// When the pictures of a track are shown, from `begin` seconds of the movie on: as often as edits show them.
// What takes no time, as a last sample whose length its muxer did not know, belongs to the edit that ends
// there too.
std::vector<TimedTriplets> ShownTimes(std::vector<MediaPicture> pictures,
                                      const std::vector<EditPiece>& pieces, double begin,
                                      const std::string& name) {
  const auto earlier = [](const MediaPicture& a, const MediaPicture& b) { return a.media < b.media; };
  std::stable_sort(pictures.begin(), pictures.end(), earlier);
  std::vector<TimedTriplets> shown;
  for (const EditPiece& piece : pieces) {
    const MediaPicture from{piece.media - kSameTime, false, {}};
    for (auto at = std::lower_bound(pictures.begin(), pictures.end(), from, earlier); at != pictures.end();
         ++at) {
      const double into = at->media - piece.media;
      const bool last = at->instant && at + 1 == pictures.end();
      if (into >= piece.seconds + (last ? kSameTime : -kSameTime)) break;
      if (shown.size() == kMostShown) throw Error(name, "its edit list shows more captions than a day has");
      shown.push_back({piece.start + std::max(into, 0.0) - begin, at->triplets});
    }
  }
  return shown;
}

}  // namespace

std::vector<CaptionTrackPlace> FindCaptionTracks(const mp4::Source& source) {
  std::vector<CaptionTrackPlace> found;
  try {
    const mp4::Layout layout = mp4::ReadLayout(source);
    if (layout.movies.empty()) return found;
    const std::vector<mp4::Track>& tracks = layout.movies.front().tracks;
    for (size_t i = 0; i < tracks.size(); ++i) {
      if (tracks[i].descriptions.empty()) continue;
      for (const auto& [type, name] :
           {std::pair(FourCc("c608"), "c608"), std::pair(FourCc("c708"), "c708")}) {
        if (tracks[i].descriptions.front().format == type)
          found.push_back({static_cast<unsigned>(i), tracks[i].id, name});
      }
    }
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {  // what cannot be read by its boxes has no tracks that could
  }
  return found;
}

captions::CaptionTrack ReadCaptionTrackOf(const mp4::Source& source, const CaptionTrackPlace& place,
                                          std::optional<captions::Rate> asked,
                                          std::vector<std::string>* damage, const TakeCaptionSample& seen) {
  const mp4::Layout layout = mp4::ReadLayout(source);
  const mp4::Movie& movie = layout.movies.at(0);
  const mp4::Track* const track = movie.Find(place.id);
  const std::string where = fmt::format("stream {}", place.stream);
  if (track == nullptr || track->timescale == 0) throw Error(source.name(), where + " has no times");
  track->Require();
  DamagedPlaces found("samples");
  TrackContents contents = ReadContents(source, layout, *track, found, seen);
  found.Tell(where, damage);
  const std::string name = source.name() + ": " + where;
  Reader reader(source);
  std::vector<TimedTriplets> shown =
      ShownTimes(std::move(contents.pictures), ReadEditList(reader, movie, *track),
                 FirstPictureOf(source, layout, movie).value_or(0), name);
  if (shown.empty()) throw NotApplicable(source.name(), where + " has no captions");
  return TrackOfTimes(std::move(shown), asked ? *asked : *contents.rate, name);
}

}  // namespace qlnmedia
