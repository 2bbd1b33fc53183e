// Reads edit lists and finds out what they show first.

#include "container/edit_list.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "base/error.h"
#include "base/read_error.h"
#include "container/mp4/box_tree.h"
#include "container/mp4/sample_table.h"

namespace qlnmedia {

namespace {

using mp4::Box;
using mp4::FindBox;
using mp4::FourCc;

constexpr uint64_t kMostEdits = 100000;
constexpr double kDay = 24 * 3600;
constexpr double kEndless = std::numeric_limits<double>::infinity();

// Where the pictures of a track begin in its media, in order, and where the last one ends.
struct PictureTimes {
  std::vector<int64_t> begins;
  int64_t end = 0;
};

PictureTimes TimesOf(const mp4::Source& source, const mp4::Layout& layout, const mp4::Track& track) {
  PictureTimes times;
  mp4::TrackSamples samples(source, layout, track.id);
  for (mp4::Sample sample; samples.Next(sample);) {
    times.begins.push_back(sample.compositionTime);
    times.end = std::max(times.end, sample.compositionTime + int64_t{sample.duration});
  }
  std::sort(times.begins.begin(), times.begins.end());
  return times;
}

// What a piece shows first: the picture that stands where it begins, or the next one.
std::optional<double> FirstOf(const EditPiece& piece, const PictureTimes& times, double scale) {
  constexpr double kFarthest = 9e18;  // of 63 bits
  if (piece.media * scale >= kFarthest) return {};
  const auto begin = static_cast<int64_t>((piece.media + kSameTime) * scale);
  const auto next = std::upper_bound(times.begins.begin(), times.begins.end(), begin);
  if (next != times.begins.begin() && begin < times.end) return piece.start;
  if (next == times.begins.end()) return {};
  const double into = static_cast<double>(*next) / scale - piece.media;
  return into < piece.seconds ? std::optional(piece.start + into) : std::nullopt;
}

}  // namespace

std::vector<EditPiece> ReadEditList(mp4::Reader& reader, const mp4::Movie& movie, const mp4::Track& track) {
  const std::vector<EditPiece> whole = {{0, kEndless, 0}};
  const std::optional<Box> head = FindBox(reader, movie.box, FourCc("mvhd"));
  const std::optional<Box> edits = FindBox(reader, track.box, FourCc("edts"));
  const std::optional<Box> list = edits ? FindBox(reader, *edits, FourCc("elst")) : std::nullopt;
  if (!head || !list || track.timescale == 0) return whole;
  const double scale = reader.U32(head->body + (reader.U8(head->body) == 1 ? 20 : 12));
  const size_t bytes = reader.U8(list->body) == 1 ? 8 : 4;
  const uint64_t none = bytes == 8 ? UINT64_MAX : UINT32_MAX;
  const uint64_t count = std::min<uint64_t>(reader.U32(list->body + 4), kMostEdits);
  if (scale == 0 || count == 0) return whole;
  std::vector<EditPiece> pieces;
  double start = 0;
  for (uint64_t i = 0; i < count && start < kDay; ++i) {
    const uint64_t at = list->body + 8 + i * (2 * bytes + 4);
    if (at + 2 * bytes + 4 > list->end) break;
    const double seconds = static_cast<double>(reader.Number(at, bytes)) / scale;
    const uint64_t media = reader.Number(at + bytes, bytes);
    // The last one of length 0 goes on to the end, as fragments have it.
    const bool open = seconds == 0 && i + 1 == count;
    if (media != none)
      pieces.push_back({start, open ? kEndless : seconds, static_cast<double>(media) / track.timescale});
    start += seconds;
  }
  return pieces;
}

std::optional<double> FirstPictureOf(const mp4::Source& source, const mp4::Layout& layout,
                                     const mp4::Movie& movie) {
  const auto video = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                  [](const auto& track) { return track.handler == FourCc("vide"); });
  if (video == movie.tracks.end() || video->timescale == 0 || !video->problem.empty()) return {};
  try {
    mp4::Reader reader(source);
    const PictureTimes times = TimesOf(source, layout, *video);
    for (const EditPiece& piece : ReadEditList(reader, movie, *video)) {
      const std::optional<double> first = FirstOf(piece, times, video->timescale);
      if (first) return first;
    }
  } catch (const ReadError&) {
    throw;
  } catch (const Error&) {  // whoever reads its pictures says what is wrong
  }
  return {};
}

}  // namespace qlnmedia
