// Reads caption tracks by their boxes: demuxers change what stands in their samples.

#include "container/caption_tracks.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/error.h"
#include "base/read_error.h"
#include "captions/caption_sample.h"
#include "container/mp4/box_tree.h"
#include "container/mp4/movie.h"
#include "container/mp4/sample_table.h"
#include "container/timed_triplets.h"

namespace qlnmedia {

namespace {

using mp4::Box;
using mp4::FindBox;
using mp4::FourCc;
using mp4::Reader;

constexpr uint64_t kMostEdits = 100000;
constexpr double kFrame = 1001 / 30000.0;  // of line 21, seconds
constexpr uint32_t kMostSample = 1 << 20;  // bytes; a second of captions takes a few thousand

// The edit list of a track (ISO/IEC 14496-12 clause 8.6.6): when what its media holds is shown.
class Edits {
 public:
  Edits(Reader& reader, const mp4::Movie& movie, const mp4::Track& track) : mediaScale_(track.timescale) {
    const std::optional<Box> head = FindBox(reader, movie.box, FourCc("mvhd"));
    const std::optional<Box> edits = FindBox(reader, track.box, FourCc("edts"));
    const std::optional<Box> list = edits ? FindBox(reader, *edits, FourCc("elst")) : std::nullopt;
    if (!head || !list) return;
    const double scale = reader.U32(head->body + (reader.U8(head->body) == 1 ? 20 : 12));
    if (scale == 0) return;
    const size_t bytes = reader.U8(list->body) == 1 ? 8 : 4;
    const uint64_t none = bytes == 8 ? UINT64_MAX : UINT32_MAX;
    const uint64_t count = std::min<uint64_t>(reader.U32(list->body + 4), kMostEdits);
    double start = 0;
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t at = list->body + 8 + i * (2 * bytes + 4);
      if (at + 2 * bytes + 4 > list->end) break;
      const double seconds = static_cast<double>(reader.Number(at, bytes)) / scale;
      const uint64_t media = reader.Number(at + bytes, bytes);
      if (media != none) pieces_.push_back({start, seconds, static_cast<double>(media) / mediaScale_});
      start += seconds;
    }
    resolves_ = count != 0;
  }

  // Seconds at which a time of the media is shown; nothing where no edit shows it. What takes no time, as a
  // last sample whose length its muxer did not know, belongs to the edit that ends there.
  std::optional<double> ShownAt(double media, bool instant) const {
    if (!resolves_) return media;
    for (const Piece& piece : pieces_) {
      const double into = media - piece.media;
      // The last one of length 0 goes on to the end, as fragments have it.
      const bool open = piece.seconds == 0 && &piece == &pieces_.back();
      const double end = piece.seconds + (instant ? kSame : -kSame);
      if (into > -kSame && (open || into < end)) return piece.start + std::max(into, 0.0);
    }
    return {};
  }

 private:
  static constexpr double kSame = 1e-6;
  struct Piece {
    double start, seconds, media;
  };
  double mediaScale_;
  bool resolves_ = false;
  std::vector<Piece> pieces_;
};

// All that a track holds, in the order of its times.
struct TrackContents {
  std::vector<TimedTriplets> pictures;
  std::optional<captions::Rate> rate;  // as its packets or its samples have it, else that of line 21
};

std::string PlaceOf(const mp4::Sample& sample) {
  return fmt::format("sample {} at byte {}", sample.number, sample.offset);
}

TrackContents ReadContents(const mp4::Source& source, const mp4::Layout& layout, const mp4::Movie& movie,
                           const mp4::Track& track, DamagedPlaces& damage) {
  Reader reader(source);
  const Edits edits(reader, movie, track);
  TrackContents contents;
  std::optional<captions::Rate> ofSamples;
  mp4::TrackSamples samples(source, layout, track.id);
  mp4::Bytes bytes;
  for (mp4::Sample sample; samples.Next(sample);) {
    if (!sample.inFile || sample.encrypted) throw Error(source.name(), "its caption track cannot be read");
    if (sample.size > kMostSample) {
      damage.Add(PlaceOf(sample), "is too large for captions");
      continue;
    }
    mp4::ReadSample(source, track.id, sample, bytes);
    std::string reason;
    const std::optional<captions::CaptionSample> read = captions::ReadCaptionSample(bytes, &reason);
    if (!read) {
      damage.Add(PlaceOf(sample), reason);
      continue;
    }
    if (!contents.rate) contents.rate = read->rate;
    const size_t count = read->pictures.size();
    if (count == 0) continue;
    if (!ofSamples)
      ofSamples = captions::RateOf(static_cast<int64_t>(track.timescale) * static_cast<int64_t>(count),
                                   sample.duration);
    // A sample may have the pairs of many frames, which are sent one after the other, and stand longer than
    // that.
    const double scale = track.timescale;
    const double each = std::min(sample.duration / scale / static_cast<double>(count), kFrame);
    for (size_t i = 0; i < count; ++i) {
      const double media =
          static_cast<double>(sample.compositionTime) / scale + each * static_cast<double>(i);
      const std::optional<double> shown = edits.ShownAt(media, sample.duration == 0);
      if (shown) contents.pictures.push_back({*shown, read->pictures[i]});
    }
  }
  if (!contents.rate) contents.rate = ofSamples.value_or(captions::Rate::k29_97);
  return contents;
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
                                          std::vector<std::string>* damage) {
  const mp4::Layout layout = mp4::ReadLayout(source);
  const mp4::Movie& movie = layout.movies.at(0);
  const mp4::Track* const track = movie.Find(place.id);
  const std::string where = fmt::format("stream {}", place.stream);
  if (track == nullptr || track->timescale == 0) throw Error(source.name(), where + " has no times");
  track->Require();
  DamagedPlaces found("samples");
  const TrackContents contents = ReadContents(source, layout, movie, *track, found);
  found.Tell(where, damage);
  if (contents.pictures.empty()) throw NotApplicable(source.name(), where + " has no captions");
  return TrackOfTimes(contents.pictures, asked ? *asked : *contents.rate, source.name() + ": " + where);
}

}  // namespace qlnmedia
