// Files whose samples stand in fragments: with an initialization segment, without, and with samples in the
// `moov` as well.

#include <algorithm>
#include <functional>
#include <utility>

#include "mp4/hand_made.h"

namespace qln::test::mp4 {

namespace {

struct FragmentedSpec {
  TrafSpec pictures;  // what each has beside its samples
  TrafSpec data;
  size_t perRun = 5;
  bool dataFirst = false;
  bool alone = false;
  Bytes gap = {};
  std::function<Bytes(size_t number)> infront = {};  // boxes in front of each
  Bytes behind = {};
  enum class Index { kNone, kOne, kOfIndexes, kChained, kEach } index = Index::kNone;
  uint8_t indexVersion = 0;
  bool levels = false;     // ssix behind the index
  Bytes behindIndex = {};  // so that the first offset is not 0
  bool access = false;     // mfra
  uint8_t accessVersion = 0;
  uint32_t accessLengths = 0;  // of its numbers
  size_t inMovie = 0;          // samples that the moov has
  bool itemsInMoof = false;    // the gap in front of the data is an item of a `meta`
};

Bytes SegmentIndex(uint8_t version, uint64_t first, const std::vector<std::pair<uint64_t, bool>>& entries) {
  const size_t wide = version == 0 ? 4 : 8;
  std::vector<Bytes> parts = {Number(1, 4),        Number(1000, 4), Number(0, wide),
                              Number(first, wide), Bytes(2),        Number(entries.size(), 2)};
  for (const auto& [size, ofIndex] : entries)
    parts.push_back(
        Joined({Number(size | (ofIndex ? 0x80000000U : 0U), 4), Number(200, 4), Number(0x90000000, 4)}));
  return Full("sidx", version, 0, parts);
}

// Two levels: what is in front of the last 40 bytes, and these.
Bytes Levels(const std::vector<uint64_t>& sizes) {
  std::vector<Bytes> parts = {Number(sizes.size(), 4)};
  for (const uint64_t size : sizes)
    parts.push_back(Joined({Number(2, 4), Number(0, 1), Number(size - 40, 3), Number(1, 1), Number(40, 3)}));
  return Full("ssix", 0, 0, parts);
}

class Builder {
 public:
  Builder(const CodedPictures& pictures, const FragmentedSpec& spec) : pictures_(pictures), spec_(spec) {}

  Bytes Init() const {
    MovieSpec movie{.tracks = {PictureTrack(pictures_, {1})}};
    if (!spec_.alone) movie.tracks.push_back(DataTrack(2));
    return BuildInit(movie);
  }

  // The whole file.
  Bytes File() {
    Bytes file = spec_.inMovie == 0 ? Init() : Hybrid();
    const Bytes segments = Segments(file.size());
    return Joined({file, segments});
  }
  // Media segments that begin a file.
  Bytes Segments(uint64_t at) {
    std::vector<uint64_t> sizes;
    for (size_t n = 0; n < 4; ++n) sizes.push_back(Segment(n, 0).size());
    const Bytes index = Index(sizes);
    Bytes out = index;
    std::vector<uint64_t> begins;
    for (size_t n = 0; n < 4; ++n) {
      const Bytes segment = Segment(n, at + out.size());
      begins.push_back(at + out.size() + Front(n).size() + Own(n).size());
      out = Joined({out, segment});
    }
    out = Joined({out, spec_.behind});
    if (!spec_.access) return out;
    const size_t wide = spec_.accessVersion == 0 ? 4 : 8;
    std::vector<Bytes> entries = {Number(1, 4), Number(spec_.accessLengths, 4), Number(begins.size(), 4)};
    for (const uint64_t begin : begins)
      entries.push_back(
          Joined({Number(0, wide), Number(begin, wide), Number(1, (spec_.accessLengths >> 4 & 3) + 1),
                  Number(1, (spec_.accessLengths >> 2 & 3) + 1), Number(1, (spec_.accessLengths & 3) + 1)}));
    const Bytes tfra = Full("tfra", spec_.accessVersion, 0, entries);
    return Joined({out, Box("mfra", {tfra, Full("mfro", 0, 0, {Number(8 + tfra.size() + 16, 4)})})});
  }

 private:
  Bytes Hybrid() const {
    MovieSpec movie{.tracks = {PictureTrack(pictures_, {3, 2})}};
    movie.tracks[0].samples.resize(spec_.inMovie);
    movie.tracks[0].durations.resize(spec_.inMovie);
    std::erase_if(movie.tracks[0].sync, [this](uint32_t number) { return number > spec_.inMovie; });
    if (!spec_.alone) movie.tracks.push_back(DataTrack(2));
    std::vector<Bytes> defaults;
    for (const TrackSpec& track : movie.tracks)
      defaults.push_back(Full("trex", 0, 0, {Number(track.id, 4), Number(1, 4), Number(40, 4), Bytes(8)}));
    movie.moovBoxes = {Box("mvex", {Full("mehd", 0, 0, {Number(800, 4)}), Joined(defaults)})};
    return BuildMovie(movie);
  }

  Bytes Front(size_t number) const { return spec_.infront ? spec_.infront(number) : Bytes{}; }
  Bytes Own(size_t number) const {
    if (spec_.index != FragmentedSpec::Index::kEach) return {};
    return SegmentIndex(spec_.indexVersion, 0, {{Fragment(number, 0).size(), false}});
  }
  Bytes Segment(size_t number, uint64_t at) const {
    const Bytes front = Joined({Front(number), Own(number)});
    return Joined({front, Fragment(number, at + front.size())});
  }

  Bytes Fragment(size_t number, uint64_t at) const {
    const size_t begin = spec_.inMovie + number * (pictures_.samples.size() - spec_.inMovie) / 4;
    const size_t end = spec_.inMovie + (number + 1) * (pictures_.samples.size() - spec_.inMovie) / 4;
    TrafSpec traf = spec_.pictures;
    for (size_t i = begin; i < end; i += spec_.perRun) {
      traf.runs.emplace_back(
          pictures_.samples.begin() + static_cast<std::ptrdiff_t>(i),
          pictures_.samples.begin() + static_cast<std::ptrdiff_t>(std::min(i + spec_.perRun, end)));
    }
    if (traf.decodeTime >= 0) traf.decodeTime = static_cast<int64_t>(40 * begin);
    TrafSpec data = spec_.data;
    data.trackId = 2;
    data.runs = {{Noise(30, 1), Noise(31, 2)}};
    data.decodeTime = static_cast<int64_t>(200 * number);
    std::vector<TrafSpec> trafs = {traf};
    if (!spec_.alone) trafs.insert(spec_.dataFirst ? trafs.begin() : trafs.end(), data);
    if (!spec_.itemsInMoof) return BuildFragment(trafs, at, spec_.gap);
    const auto build = [&](uint64_t place) {
      std::vector<TrafSpec> with = trafs;
      with[0].boxes.push_back(ItemsAt(place, spec_.gap.size(), 1));
      with[0].boxes.push_back(Box("meco", {ItemsAt(place, spec_.gap.size(), 0)}));
      return BuildFragment(with, at, spec_.gap);
    };
    const Bytes first = build(0);
    const std::string type = "mdat";
    const auto body = std::search(first.begin(), first.end(), type.begin(), type.end()) + 4;
    return build(at + static_cast<uint64_t>(body - first.begin()));
  }

  Bytes Index(const std::vector<uint64_t>& sizes) const {
    const uint8_t version = spec_.indexVersion;
    const Bytes levels = spec_.levels ? Levels(sizes) : Bytes{};
    const Bytes behind = Joined({levels, spec_.behindIndex});
    std::vector<std::pair<uint64_t, bool>> all;
    for (const uint64_t size : sizes) all.emplace_back(size, false);
    switch (spec_.index) {
      case FragmentedSpec::Index::kOne:
        return Joined({SegmentIndex(version, behind.size(), all), behind});
      case FragmentedSpec::Index::kOfIndexes: {
        // One index of two others, which stand behind it, the second of them first.
        const uint64_t half = SegmentIndex(version, 0, {all[0], all[1]}).size();
        return Joined({SegmentIndex(version, 0, {{half, true}, {half, true}}),
                       SegmentIndex(version, half + behind.size(), {all[0], all[1]}),
                       SegmentIndex(version, behind.size() + sizes[0] + sizes[1], {all[2], all[3]}), behind});
      }
      case FragmentedSpec::Index::kChained: {
        const uint64_t rest = SegmentIndex(version, 0, {all[1], all[2], all[3]}).size();
        return Joined({SegmentIndex(version, 0, {{rest, true}, all[0]}),
                       SegmentIndex(version, behind.size() + sizes[0], {all[1], all[2], all[3]}), behind});
      }
      default:
        return behind;
    }
  }

  const CodedPictures& pictures_;
  const FragmentedSpec& spec_;
};

using Change = std::function<void(FragmentedSpec&)>;

Bytes Message(uint8_t version) {
  const Bytes texts = Joined({Text("urn:abc"), Bytes(1), Text("1"), Bytes(1)});
  const Bytes numbers =
      Joined({Number(1000, 4), Number(40, version == 0 ? 4 : 8), Number(100, 4), Number(7, 4)});
  return Full("emsg", version, 0,
              {version == 0 ? texts : numbers, version == 0 ? numbers : texts, Noise(9, 1)});
}

std::vector<std::pair<std::string, Change>> Kinds() {
  using Index = FragmentedSpec::Index;
  const auto boxes = [](const Bytes& box) {
    return [box](FragmentedSpec& spec) { spec.pictures.boxes = {box}; };
  };
  return {
      {"plain", [](FragmentedSpec&) {}},
      {"base_named",
       [](FragmentedSpec& s) {
         s.pictures.explicitBase = true;
         s.pictures.baseIsMoof = false;
       }},
      {"base_of_data_named",
       [](FragmentedSpec& s) {
         s.data.explicitBase = true;
         s.data.baseIsMoof = false;
       }},
      {"base_implied", [](FragmentedSpec& s) { s.pictures.baseIsMoof = s.data.baseIsMoof = false; }},
      {"base_implied_data_first",
       [](FragmentedSpec& s) {
         s.pictures.baseIsMoof = s.data.baseIsMoof = false;
         s.dataFirst = true;
       }},
      {"runs_follow_other_data",
       [](FragmentedSpec& s) {
         s.data.baseIsMoof = false;
         s.data.offsets = false;
       }},
      {"first_flags", [](FragmentedSpec& s) { s.pictures.firstFlags = true; }},
      {"time_offsets", [](FragmentedSpec& s) { s.pictures.timeOffsets = true; }},
      {"gaps_between_runs",
       [](FragmentedSpec& s) {
         s.pictures.offsetsInAll = true;
         s.gap = Noise(5, 1);
       }},
      // These two are for the tests' own reader: others take such a run for one at the fragment's begin.
      {"runs_follow", [](FragmentedSpec& s) { s.pictures.offsetsInAll = false; }},
      {"no_times", [](FragmentedSpec& s) { s.pictures.decodeTime = -1; }},
      {"no_durations", [](FragmentedSpec& s) { s.pictures.durations = false; }},
      {"description_named",
       [](FragmentedSpec& s) {
         s.pictures.description = 1;
         s.data.description = 1;
       }},
      {"unknown_boxes", boxes(Joined({Box("uuid", Noise(20, 3)), Box("abcd", Bytes{})}))},
      {"data_first", [](FragmentedSpec& s) { s.dataFirst = true; }},
      {"gaps", [](FragmentedSpec& s) { s.gap = Noise(11, 5); }},
      {"alone", [](FragmentedSpec& s) { s.alone = true; }},
      {"styp_emsg_0",
       [](FragmentedSpec& s) {
         s.infront = [](size_t) { return Joined({Box("styp", Text("msdh")), Message(0)}); };
       }},
      {"styp_emsg_1",
       [](FragmentedSpec& s) {
         s.infront = [](size_t) {
           return Joined({Box("styp", Text("cmfs")), Message(1),
                          Full("prft", 1, 24, {Number(1, 4), Number(1, 8), Number(1, 8)})});
         };
       }},
      {"free_between",
       [](FragmentedSpec& s) { s.infront = [](size_t n) { return Box("free", Bytes(3 * n)); }; }},
      {"index_0", [](FragmentedSpec& s) { s.index = Index::kOne; }},
      {"index_1",
       [](FragmentedSpec& s) {
         s.index = Index::kOne;
         s.indexVersion = 1;
       }},
      {"index_apart",
       [](FragmentedSpec& s) {
         s.index = Index::kOne;
         s.behindIndex = Box("free", Bytes(12));
         s.infront = [](size_t) { return Box("styp", Text("msdh")); };
       }},
      {"index_levels",
       [](FragmentedSpec& s) {
         s.index = Index::kOne;
         s.levels = true;
         s.alone = true;
       }},
      {"index_of_indexes", [](FragmentedSpec& s) { s.index = Index::kOfIndexes; }},
      {"index_of_indexes_1",
       [](FragmentedSpec& s) {
         s.index = Index::kOfIndexes;
         s.indexVersion = 1;
         s.behindIndex = Box("uuid", Noise(20, 4));
       }},
      {"index_chained", [](FragmentedSpec& s) { s.index = Index::kChained; }},
      {"index_each",
       [](FragmentedSpec& s) {
         s.index = Index::kEach;
         s.infront = [](size_t) { return Joined({Box("styp", Text("msdh")), Message(1)}); };
       }},
      {"access_0", [](FragmentedSpec& s) { s.access = true; }},
      {"access_1",
       [](FragmentedSpec& s) {
         s.access = true;
         s.accessVersion = 1;
         s.accessLengths = 0x3F;
       }},
      {"access_mixed",
       [](FragmentedSpec& s) {
         s.access = true;
         s.accessLengths = 0x1B;
         s.index = Index::kOne;
         s.behind = Box("free", Bytes(5));
       }},
      {"groups_0", boxes(Full("sbgp", 0, 0, {Text("rap "), Number(1, 4), Number(1, 4), Number(0x10001, 4)}))},
      {"groups_1",
       boxes(Joined({Full("sgpd", 1, 0, {Text("rap "), Number(1, 4), Number(1, 4), Number(0x80, 1)}),
                     Full("sbgp", 1, 0,
                          {Text("rap "), Number(0, 4), Number(1, 4), Number(1, 4), Number(0x10001, 4)})}))},
      {"groups_2", boxes(Full("sgpd", 2, 0, {Text("roll"), Number(2, 4), Number(1, 4), Number(1, 2)}))},
      {"dependencies", boxes(Full("sdtp", 0, 0, {Noise(5, 9)}))},
      {"sub_samples", boxes(Full("subs", 0, 0,
                                 {Number(1, 4), Number(2, 4), Number(2, 2), Number(5, 2), Bytes(6),
                                  Number(6, 2), Bytes(6)}))},
      {"auxiliary",
       [](FragmentedSpec& s) {
         s.gap = Noise(9, 2);
         s.data.boxes = {Full("saiz", 0, 0, {Number(4, 1), Number(2, 4)})};
         s.data.placeBox = [](uint64_t at) { return Full("saio", 0, 0, {Number(1, 4), Number(at - 9, 4)}); };
       }},
      {"auxiliary_wide",
       [](FragmentedSpec& s) {
         s.data.explicitBase = true;
         s.data.baseIsMoof = false;
         s.data.placeBox = [](uint64_t at) {
           return Full("saio", 1, 1, {Text("abcd"), Bytes(4), Number(1, 4), Number(at + 2, 8)});
         };
       }},
      {"auxiliary_of_pictures",
       [](FragmentedSpec& s) {
         s.gap = Noise(9, 2);
         s.pictures.placeBox = [](uint64_t at) {
           return Full("saio", 0, 0, {Number(2, 4), Number(at - 9, 4), Number(at - 2, 4)});
         };
       }},
      {"smooth", boxes(Box("uuid", {Bytes{0x6D, 0x1D, 0x9B, 0x05, 0x42, 0xD5, 0x44, 0xE6, 0x80, 0xE2, 0x14,
                                          0x1D, 0xAF, 0xF7, 0x57, 0xB2},
                                    Number(0x01000000, 4), Bytes(16)}))},
      {"items",
       [](FragmentedSpec& s) {
         s.gap = Noise(20, 5);
         s.itemsInMoof = true;
       }},
      {"movie_and_fragments", [](FragmentedSpec& s) { s.inMovie = 8; }},
      {"movie_and_fragments_indexed",
       [](FragmentedSpec& s) {
         s.inMovie = 8;
         s.index = Index::kOne;
         s.access = true;
         s.infront = [](size_t) { return Message(0); };
       }},
      {"movie_and_fragments_based",
       [](FragmentedSpec& s) {
         s.inMovie = 12;
         s.pictures.explicitBase = true;
         s.pictures.baseIsMoof = false;
         s.dataFirst = true;
       }},
  };
}

}  // namespace

std::vector<HandMade> FragmentsByHand(const CodedPictures& pictures) {
  std::vector<HandMade> out;
  const std::string codec = pictures.hevc ? "265" : "264";
  for (const auto& [name, change] : Kinds()) {
    for (const size_t perRun : {size_t{1}, size_t{3}, size_t{5}}) {
      if (pictures.hevc && perRun != 3) continue;
      FragmentedSpec spec;
      spec.perRun = perRun;
      spec.pictures.durations = spec.data.durations = true;
      spec.pictures.offsetsInAll = true;
      spec.pictures.decodeTime = 0;
      change(spec);
      Builder builder(pictures, spec);
      const std::string full = codec + "_fragments_" + name + "_" + std::to_string(perRun);
      out.push_back({full, builder.File()});
      // Segments alone, where no place is counted from the begin of the file.
      if (perRun == 3 && spec.inMovie == 0)
        out.push_back({full + "_alone", builder.Segments(0), builder.Init()});
    }
  }
  return out;
}

}  // namespace qln::test::mp4
