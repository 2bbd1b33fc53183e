// Files whose samples stand in the tables of a `moov`.

#include "mp4/hand_made.h"

#include <functional>
#include <utility>

#include "mp4/list_file.h"

namespace qln::test::mp4 {

namespace {

using Change = std::function<void(MovieSpec&)>;

Bytes Edits(const std::vector<std::vector<int64_t>>& parts, uint8_t version = 0) {
  const size_t wide = version == 0 ? 4 : 8;
  std::vector<Bytes> entries = {Number(parts.size(), 4)};
  for (const auto& part : parts)
    entries.push_back(
        Joined({Number(static_cast<uint64_t>(part[0]), wide), Number(static_cast<uint64_t>(part[1]), wide),
                Number(static_cast<uint64_t>(part[2]), 4)}));
  return Box("edts", {Full("elst", version, 0, entries)});
}

Change InTrack(const Bytes& box) {
  return [box](MovieSpec& movie) { movie.tracks[0].trackBoxes.push_back(box); };
}
Change InTable(const Bytes& box) {
  return [box](MovieSpec& movie) { movie.tracks[0].tableBoxes.push_back(box); };
}
Change InEntry(const Bytes& box) {
  return [box](MovieSpec& movie) {
    Bytes& boxes = movie.tracks[0].entryBoxes;
    boxes.insert(boxes.end(), box.begin(), box.end());
  };
}
Change InMovie(const Bytes& box) {
  return [box](MovieSpec& movie) { movie.moovBoxes.push_back(box); };
}
Change Beside(const TrackSpec& track, const Bytes& reference) {
  return [track, reference](MovieSpec& movie) {
    movie.tracks[1] = track;
    if (!reference.empty()) movie.tracks[0].trackBoxes.push_back(Box("tref", {reference}));
  };
}

Bytes Groups(const std::string& kind, const std::vector<Bytes>& descriptions, const std::vector<Bytes>& of) {
  return Joined({Full("sgpd", descriptions.size() > 3 ? 2 : 1, 0, descriptions),
                 Full("sbgp", 0, 0, {Text(kind), Number(of.size(), 4), Joined(of)})});
}

// A timecode whose count does not go on: a sample for each stretch, each with a number of its own.
TrackSpec ChangingTimecode() {
  TrackSpec track = DataTrack(2, "tmcd", "tmcd");
  track.samples = {Number(90000, 4), Number(1234, 4), Number(0, 4), Number(7777, 4)};
  track.durations = {200, 200, 200, 200};
  track.chunks = {1, 2};
  return track;
}

TrackSpec Texts(const std::string& handler, const std::string& format) {
  TrackSpec track = DataTrack(2, handler, format);
  track.samples = {Joined({Number(3, 2), Text("one")}), Joined({Number(0, 2)}),
                   Joined({Number(5, 2), Text("three")})};
  track.durations = {200, 300, 300};
  return track;
}

Bytes Configuration(uint8_t profile, uint8_t compatible) {
  // Level 3, RPU and base layer present; the enhancement layer only of profile 7.
  const uint64_t flags = uint64_t{profile} << 9 | 3U << 3 | 4U | (profile == 7 ? 2U : 0U) | 1U;
  return Box(profile > 7 ? "dvvC" : "dvcC",
             {Number(1, 1), Number(0, 1), Number(flags, 2), Number(uint64_t{compatible} << 4, 1), Bytes(19)});
}

Bytes Tags() {
  const auto key = [](const std::string& name) {
    return Joined({Number(8 + name.size(), 4), Text("mdta"), Text(name)});
  };
  const auto value = [](uint32_t number, const Bytes& data) {
    return Joined(
        {Number(data.size() + 24, 4), Number(number, 4), Box("data", {Number(23, 4), Number(0, 4), data})});
  };
  return Box("meta", {Full("hdlr", 0, 0, {Bytes(4), Text("mdta"), Bytes(13)}),
                      Full("keys", 0, 0,
                           {Number(2, 4), key("com.example.capture.fps"),
                            key("com.example.full-frame-rate-playback-intent")}),
                      Box("ilst", {value(1, {0x43, 0x70, 0, 0}), value(2, {0})})});
}

using Kinds = std::vector<std::pair<std::string, Change>>;

Kinds TableKinds() {
  const auto first = [](MovieSpec& movie) -> TrackSpec& { return movie.tracks[0]; };
  return {
      {"sizes_of_16_bits", [=](MovieSpec& m) { first(m).sizeBits = 16; }},
      {"places_of_64_bits", [=](MovieSpec& m) { first(m).wideOffsets = true; }},
      {"heads_of_64_bits", [=](MovieSpec& m) { first(m).wideHeads = true; }},
      {"wide_data", [](MovieSpec& m) { m.mdatWide = true; }},
      {"two_data_boxes", [](MovieSpec& m) { m.twoMdats = true; }},
      {"gaps", [](MovieSpec& m) { m.gap = Noise(13, 1); }},
      {"free_space", [](MovieSpec& m) { m.behindMoov = Box("free", Bytes(100)); }},
      {"boxes_behind",
       [](MovieSpec& m) {
         m.behindAll = Joined({Box("uuid", Noise(30, 2)), Box("free", Bytes{})});
       }},
      {"quicktime", [](MovieSpec& m) { m.brand = "qt  "; }},
      {"other_sizes_of_8_bits", [](MovieSpec& m) { m.tracks[1].sizeBits = 8; }},
      {"other_places_of_64_bits", [](MovieSpec& m) { m.tracks[1].wideOffsets = true; }},
      {"other_of_one_size",
       [](MovieSpec& m) {
         m.tracks[1].samples.assign(30, Noise(7, 1));
         m.tracks[1].uniform = true;
       }},
      {"time_offsets", [=](MovieSpec& m) { first(m).timeOffsets.assign(first(m).samples.size(), 40); }},
      {"second_track", [](MovieSpec& m) { std::swap(m.tracks[0], m.tracks[1]); }},
      {"open_end",
       [](MovieSpec& m) {
         m.mdatToEnd = true;
         m.moovFirst = true;
       }},
      {"no_brand", [](MovieSpec& m) { m.brand.clear(); }},
      {"two_descriptions",
       [=](MovieSpec& m) {
         first(m).descriptions = 2;
         first(m).descriptionOfChunk = {1, 2, 2, 1, 2};
       }},
      {"three_descriptions",
       [=](MovieSpec& m) {
         first(m).descriptions = 3;
         first(m).descriptionOfChunk = {3, 1, 2, 3};
       }},
      {"other_elsewhere",
       [](MovieSpec& m) {
         m.tracks[1].otherFile = true;
         m.tracks[1].descriptions = 2;
         m.tracks[1].descriptionOfChunk = {2, 1, 2};
       }},
      {"alias_reference",
       [=](MovieSpec& m) {
         first(m).reference = "alis";
         m.brand = "qt  ";
       }},
      {"alone", [](MovieSpec& m) { m.tracks.resize(1); }},
      {"three_tracks", [](MovieSpec& m) { m.tracks.push_back(DataTrack(9, "soun", "sowt")); }},
      {"sub_samples",
       [=](MovieSpec& m) {
         // Each unit is a part; and of another picture five bytes, and the rest.
         std::vector<Bytes> units;
         const Bytes& sample = first(m).samples.at(0);
         for (size_t at = 0; at < sample.size();) {
           const size_t size = 4 + (size_t{sample[at + 2]} << 8 | sample[at + 3]);
           units.push_back(Joined({Number(size, 4), Number(7, 1), Bytes(5)}));
           at += size;
         }
         const size_t other = first(m).samples.at(3).size();
         first(m).tableBoxes.push_back(
             Full("subs", 1, 0,
                  {Number(2, 4), Number(1, 4), Number(units.size(), 2), Joined(units), Number(3, 4),
                   Number(2, 2), Number(5, 4), Bytes(6), Number(other - 5, 4), Bytes(6)}));
       }},
      {"sub_samples_of_others",
       [](MovieSpec& m) {
         m.tracks[1].tableBoxes.push_back(
             Full("subs", 0, 0, {Number(1, 4), Number(2, 4), Number(1, 2), Number(21, 2), Bytes(6)}));
       }},
      {"auxiliary",
       [](MovieSpec& m) {
         m.tracks[1].tableBoxes.push_back(Full("saiz", 0, 0, {Number(4, 1), Number(1, 4)}));
         m.tracks[1].placeBox = [](uint64_t at) { return Full("saio", 0, 0, {Number(1, 4), Number(at, 4)}); };
       }},
      {"auxiliary_of_pictures",
       [=](MovieSpec& m) {
         m.gap = Noise(8, 4);
         first(m).tableBoxes.push_back(
             Full("saiz", 0, 1, {Text("abcd"), Bytes(4), Number(4, 1), Number(1, 4)}));
         first(m).placeBox = [](uint64_t at) {
           return Full("saio", 1, 1,
                       {Text("abcd"), Bytes(4), Number(2, 4), Number(at - 8, 8), Number(at - 4, 8)});
         };
       }},
  };
}

Kinds BoxKinds(const CodedPictures& pictures) {
  const Bytes padding = Bytes(4);
  Kinds kinds = {
      {"edit_late", InTrack(Edits({{300, -1, 65536}, {700, 0, 65536}}))},
      {"edit_between_key_frames", InTrack(Edits({{500, 120, 65536}}))},
      {"edit_of_parts", InTrack(Edits({{200, 400, 65536}, {100, -1, 65536}, {300, 0, 65536}}))},
      {"edit_wide", InTrack(Edits({{300, -1, 65536}, {400, 200, 65536}}, 1))},
      {"edit_slow", InTrack(Edits({{400, 0, 65536}, {800, 400, 32768}}))},
      {"edit_still", InTrack(Edits({{400, 0, 65536}, {300, 400, 0}}))},
      {"edit_empty", InTrack(Box("edts", {Full("elst", 0, 0, {Number(0, 4)})}))},
      {"groups_0",
       InTable(Joined({Full("sgpd", 0, 0, {Text("roll"), Number(1, 4), Number(0xFFFF, 2)}),
                       Full("sbgp", 0, 0, {Text("roll"), Number(1, 4), Number(20, 4), Number(1, 4)})}))},
      {"groups_1",
       InTable(Joined({Full("sgpd", 1, 0, {Text("rap "), Number(1, 4), Number(1, 4), Number(0x80, 1)}),
                       Full("sbgp", 1, 0,
                            {Text("rap "), Number(0, 4), Number(2, 4), Number(1, 4), Number(1, 4),
                             Number(19, 4), padding})}))},
      {"groups_2", InTable(Full("sgpd", 2, 0, {Text("sync"), Number(1, 4), Number(1, 4), Number(21, 1)}))},
      {"groups_of_many_lengths", InTable(Full("sgpd", 1, 0,
                                              {Text("abcd"), Number(0, 4), Number(2, 4), Number(1, 4),
                                               Number(9, 1), Number(3, 4), Bytes(3)}))},
      {"groups_compact",
       InTable(Joined({Full("sgpd", 1, 0, {Text("tele"), Number(1, 4), Number(1, 4), Number(0x80, 1)}),
                       Full("csgp", 0, 0x2A,
                            {Text("tele"), Number(1, 4), Number(1, 2), Number(20, 2), Number(1, 2)})}))},
      {"groups_of_two_kinds",
       InTable(Joined({Groups("roll", {Text("roll"), Number(2, 4), Number(1, 4), Number(1, 2)},
                              {Number(5, 4), Number(1, 4)}),
                       Groups("prol", {Text("prol"), Number(2, 4), Number(1, 4), Number(1, 2)},
                              {Number(5, 4), Number(1, 4)})}))},
      {"dependencies", InTable(Joined({Full("sdtp", 0, 0, {Noise(20, 9)}), Full("stdp", 0, 0, {Noise(40, 3)}),
                                       Full("padb", 0, 0, {Number(20, 4), Bytes(10)})}))},
      {"shadow_and_shift",
       InTable(Joined({Full("stsh", 0, 0, {Number(1, 4), Number(2, 4), Number(1, 4)}),
                       Full("cslg", 0, 0, {Bytes(20)}), Full("stps", 0, 0, {Number(1, 4), Number(7, 4)})}))},
      {"free_in_table",
       InTable(Joined({Box("free", Noise(9, 1)), Box("wide", Bytes{}), Box("abcd", Noise(5, 3))}))},
      {"shape", InEntry(Box("pasp", {Number(11, 4), Number(10, 4)}))},
      {"aperture", InEntry(Box("clap", {Number(60, 4), Number(1, 4), Number(60, 4), Number(1, 4), Bytes(3),
                                        Number(0, 5), Number(1, 4), Bytes(4)}))},
      {"profile", InEntry(Box("colr", {Text("prof"), Noise(128, 4)}))},
      {"two_colours",
       InEntry(Joined({Box("colr", {Text("nclx"), Number(1, 2), Number(1, 2), Number(1, 2), Number(0, 1)}),
                       Box("colr", {Text("nclc"), Number(1, 2), Number(1, 2), Number(1, 2)})}))},
      {"rates", InEntry(Box("btrt", {Number(100000, 4), Number(9000000, 4), Number(10000, 4)}))},
      {"ambient", InEntry(Joined({Full("amve", 0, 0, {Noise(8, 1)}), Box("cclv", Noise(9, 2))}))},
      {"sphere", InEntry(Joined({Full("st3d", 0, 0, {Number(1, 1)}),
                                 Box("sv3d", {Full("svhd", 0, 0, {Bytes(1)}), Box("proj", Noise(20, 1))})}))},
      {"stereo", InEntry(Joined({Box("vexu", {Box("eyes", Noise(12, 1))}), Box("hfov", Number(63500, 4))}))},
      {"unknown_in_entry", InEntry(Joined({Box("qrst", Noise(7, 5)), Box("uuid", Noise(33, 5))}))},
      {"zeros_behind_entry", InEntry(Joined({Box("fiel", {Number(1, 1), Number(0, 1)}), Bytes(4)}))},
      {"timecode_that_changes", Beside(ChangingTimecode(), Box("tmcd", Number(2, 4)))},
      {"chapters", Beside(Texts("text", "text"), Box("chap", Number(2, 4)))},
      {"chapters_of_tags",
       InMovie(Box("udta",
                   {Full("chpl", 1, 0, {Bytes(4), Number(1, 1), Number(0, 8), Number(3, 1), Text("one")})}))},
      {"subtitles", Beside(Texts("sbtl", "tx3g"), Box("subt", Number(2, 4)))},
      {"metadata_track", Beside(DataTrack(2, "meta", "mebx"), Box("cdsc", Number(1, 4)))},
      {"closed_captions", Beside(DataTrack(2, "clcp", "c608"), Box("folw", Number(2, 4)))},
      {"cover", InMovie(Box("udta", {Full("meta", 0, 0,
                                          {Full("hdlr", 0, 0, {Bytes(4), Text("mdir"), Bytes(13)}),
                                           Box("ilst", {Box("covr", {Box("data", {Number(14, 4), Bytes(4),
                                                                                  Noise(300, 6)})})})})}))},
      {"tags_of_capture", InMovie(Tags())},
      {"tags_of_capture_in_track", InTrack(Tags())},
      {"tags_of_vendors",
       InMovie(Box("udta", {Full("smta", 0, 0, {Full("saut", 0, 0, {Number(0x50, 4)})}),
                            Box("\xA9xyz", {Number(4, 2), Number(0x15C7, 2), Text("+1+2")}),
                            Box("AMBA", Noise(40, 1)), Box("GPMF", Noise(60, 2)), Bytes(4)}))},
      {"language", InTrack(Full("elng", 0, 0, {Text("de-CH"), Bytes(1)}))},
      {"unknown_boxes",
       InMovie(Joined({Box("uuid", Noise(40, 2)), Box("abcd", Noise(33, 1)), Box("iods", Noise(12, 1))}))},
      {"references", InTrack(Box("tref", {Box("vdep", Number(2, 4)), Box("abcd", Number(2, 4))}))},
      {"group_of_tracks", InTrack(Box("trgr", {Full("msrc", 0, 0, {Number(7, 4)})}))},
      {"profile_boxes", InMovie(Full("pdin", 0, 0, {Number(1000, 4), Number(2, 4)}))},
  };
  if (pictures.hevc) {
    for (const auto& [profile, compatible] : {std::pair{5, 0}, {7, 6}, {8, 1}, {8, 2}, {8, 4}}) {
      kinds.emplace_back(
          "dolby_vision_" + std::to_string(profile) + "_" + std::to_string(compatible),
          InEntry(Configuration(static_cast<uint8_t>(profile), static_cast<uint8_t>(compatible))));
    }
    // The enhancement layer in a track of its own.
    kinds.emplace_back("dolby_vision_7_two_tracks", [&pictures](MovieSpec& movie) {
      movie.tracks[1] = PictureTrack(pictures, {2});
      movie.tracks[1].id = 2;
      movie.tracks[1].format = "dvh1";
      movie.tracks[1].entryBoxes = Joined({pictures.record, Configuration(7, 6)});
      movie.tracks[1].trackBoxes = {Box("tref", {Box("vdep", Number(1, 4))})};
    });
  }
  return kinds;
}

// Base layers without a meaning of their own, in SDR and in HLG, are not to be called PQ.
std::string Untrue(const std::string& kind) {
  for (const char* untrue : {"dolby_vision_5_0", "dolby_vision_8_2", "dolby_vision_8_4"}) {
    if (kind == untrue) return "is a Dolby Vision track of profile";
  }
  return {};
}

// Items at places of the media data: where the first picture stands is known when the file was built once.
Bytes WithItems(const MovieSpec& spec, int where, uint8_t version) {
  const auto build = [&](uint64_t at) {
    MovieSpec movie = spec;
    movie.gap = Noise(20, 5);
    const Bytes items = ItemsAt(at, 20, version);
    if (where == 0) movie.moovBoxes.push_back(items);
    if (where == 1) movie.tracks[0].trackBoxes.push_back(items);
    if (where == 2) movie.behindAll = items;
    if (where == 3) movie.moovBoxes.push_back(Box("udta", {items}));
    if (where == 4) movie.behindAll = Box("meco", {items});
    return BuildMovie(movie);
  };
  const Bytes first = build(0);
  return build(ListFile(first).samples.at(1).at(0).at - 20);
}

}  // namespace

std::vector<HandMade> PlainByHand(const CodedPictures& pictures) {
  std::vector<HandMade> out;
  const std::string codec = pictures.hevc ? "265" : "264";
  Kinds tables = TableKinds();
  const auto add = [&](const Kinds& kinds, const std::vector<std::vector<size_t>>& chunkings, bool both) {
    for (const auto& [name, change] : kinds) {
      for (const auto& chunks : chunkings) {
        for (const bool front : {true, false}) {
          if (!front && !both) continue;
          MovieSpec movie;
          movie.tracks = {PictureTrack(pictures, chunks), DataTrack(2)};
          movie.moovFirst = front;
          change(movie);
          if (movie.moovFirst != front) continue;
          out.push_back(
              {codec + "_" + name + "_" + std::to_string(chunks[0]) + (front ? "_front" : "_behind"),
               BuildMovie(movie),
               {},
               Untrue(name)});
        }
      }
    }
  };
  if (pictures.hevc) {
    add(tables, {{3, 2}}, false);
  } else {
    add(tables, {{1}, {3, 2}, {20}}, true);
  }
  add(BoxKinds(pictures), {{4, 1}}, !pictures.hevc);
  for (int where = 0; where < 5; ++where) {
    for (const uint8_t version : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
      const MovieSpec movie{.tracks = {PictureTrack(pictures, {4}), DataTrack(2)},
                            .moovFirst = where % 2 == 0};
      out.push_back({codec + "_items_" + std::to_string(where) + "_" + std::to_string(version),
                     WithItems(movie, where, version)});
    }
  }
  return out;
}

}  // namespace qln::test::mp4
