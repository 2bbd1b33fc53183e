// Kinds of changes in place, each with a file that it fits.
#ifndef TESTS_MP4_IN_PLACE_KINDS_H
#define TESTS_MP4_IN_PLACE_KINDS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "container/mp4/in_place.h"
#include "mp4/carry.h"
#include "mp4/list_file.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test::mp4 {

inline const Bytes kRecord = Box("avcC", Noise(30, 7));

inline TrackSpec SomeTrack(const Bytes& entryBoxes = kRecord) {
  TrackSpec track;
  for (uint32_t i = 0; i < 40; ++i) track.samples.push_back(Noise(100 + i, i));
  track.entryBoxes = entryBoxes;
  return track;
}

// Kinds of changes, each to the file that it fits.
struct Kind {
  std::string name;
  Bytes file;
  bool samples = false;  // of equal size
  Bytes record;          // another one, where it is not empty
  qlnmedia::mp4::InPlaceResult::Movie movie = qlnmedia::mp4::InPlaceResult::Movie::kStays;
};

// The movie at the end of a file says no size.
inline Bytes WithOpenMovie(Bytes file) {
  for (const Node& node : ListFile(file).boxes) {
    if (node.type == "moov") std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(node.at), 4, uint8_t{0});
  }
  return file;
}

inline std::vector<Kind> Kinds() {
  const auto free = [](size_t bytes) { return Box("free", Noise(bytes, 1)); };
  return {
      {"equal samples",
       BuildMovie({.tracks = {SomeTrack()}}),
       true,
       {},
       qlnmedia::mp4::InPlaceResult::Movie::kStays},
      {"equal record and samples", BuildMovie({.tracks = {SomeTrack()}}), true, Noise(30, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kStays},
      {"into all of the free space", BuildMovie({.tracks = {SomeTrack()}, .behindMoov = free(12)}), false,
       Noise(50, 8), qlnmedia::mp4::InPlaceResult::Movie::kGrowsIntoFreeSpace},
      {"into some of two free boxes",
       BuildMovie({.tracks = {SomeTrack()}, .behindMoov = Joined({free(2), free(100)})}), true, Noise(50, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kGrowsIntoFreeSpace},
      {"shrinks, and leaves a free box", BuildMovie({.tracks = {SomeTrack()}}), true, Noise(10, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kGrowsIntoFreeSpace},
      {"grows at the end", BuildMovie({.tracks = {SomeTrack()}, .moovFirst = false}), true, Noise(77, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kGrowsAtTheEnd},
      {"shrinks at the end", BuildMovie({.tracks = {SomeTrack()}, .moovFirst = false}), true, Noise(3, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kGrowsAtTheEnd},
      {"grows at the end, which is open",
       WithOpenMovie(BuildMovie({.tracks = {SomeTrack()}, .moovFirst = false})), true, Noise(77, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kGrowsAtTheEnd},
      {"moves to the end", BuildMovie({.tracks = {SomeTrack()}}), true, Noise(31, 8),
       qlnmedia::mp4::InPlaceResult::Movie::kMovesToTheEnd},
  };
}

class Wish {
 public:
  explicit Wish(const Kind& kind)
      : editor([](const qlnmedia::mp4::Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
          if (sample.number % 5 != 2) return std::nullopt;
          return Noise(bytes.size(), 999);
        }) {
    change.tracks.push_back(
        {.trackId = 1, .samples = kind.samples ? &editor : nullptr, .privateData = {}, .facts = {}});
    if (!kind.record.empty())
      change.tracks[0].privateData.push_back({1, qlnmedia::mp4::FourCc("avcC"), kind.record});
  }
  FunctionEditor editor;
  qlnmedia::mp4::Change change;
};

inline std::string PathOf(const std::string& name) {
  return MediaPath("mp4-in-place-" + std::to_string(getpid()) + "-" + name);
}

inline bool JournalIsThere(const std::string& path) {
  return std::filesystem::exists(qlnmedia::mp4::JournalPath(path));
}
// The samples are those wished for, and the movie holds the record.
inline void ExpectChanged(const Kind& kind, const Bytes& output) {
  const Listing listing = ListFile(output);
  const Listing in = ListFile(kind.file);
  size_t i = 0;
  for (const ListedSample& sample : in.samples.at(1)) {
    const bool changes = kind.samples && i % 5 == 2;
    EXPECT_EQ(listing.samples.at(1).at(i).data, changes ? Noise(sample.data.size(), 999) : sample.data);
    EXPECT_EQ(listing.samples.at(1).at(i).at, sample.at);
    ++i;
  }
  const Bytes record = Box("avcC", kind.record);
  if (!kind.record.empty()) {
    EXPECT_NE(std::search(output.begin(), output.end(), record.begin(), record.end()), output.end());
  }
}

}  // namespace qln::test::mp4

#endif
