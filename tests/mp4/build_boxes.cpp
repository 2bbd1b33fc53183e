#include "mp4/build_boxes.h"

#include <algorithm>

namespace qln::test::mp4 {

Bytes Number(uint64_t value, size_t bytes) {
  Bytes out;
  for (size_t i = bytes; i-- > 0;) out.push_back(static_cast<uint8_t>(value >> 8 * i));
  return out;
}

Bytes Joined(const std::vector<Bytes>& parts) {
  Bytes out;
  for (const Bytes& part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

Bytes Noise(size_t count, uint32_t seed) {
  Bytes out;
  uint32_t state = seed * 2654435761U + 12345;
  for (size_t i = 0; i < count; ++i) {
    state = state * 1664525U + 1013904223U;
    out.push_back(static_cast<uint8_t>(0x80 | state >> 24));
  }
  return out;
}

Bytes Box(const std::string& type, const Bytes& body, bool wide) {
  if (wide) return Joined({Number(1, 4), Text(type), Number(body.size() + 16, 8), body});
  return Joined({Number(body.size() + 8, 4), Text(type), body});
}

Bytes Box(const std::string& type, const std::vector<Bytes>& parts) { return Box(type, Joined(parts)); }

Bytes Full(const std::string& type, uint8_t version, uint32_t flags, const std::vector<Bytes>& parts) {
  return Box(type, Joined({Number(version, 1), Number(flags, 3), Joined(parts)}));
}

namespace {

// Places of chunks, by track.
using Places = std::vector<std::vector<uint64_t>>;

size_t SamplesInChunk(const TrackSpec& track, size_t chunk) {
  if (track.chunks.empty()) return 1;
  return track.chunks[std::min(chunk, track.chunks.size() - 1)];
}

uint32_t DescriptionOf(const TrackSpec& track, size_t chunk) {
  return chunk < track.descriptionOfChunk.size() ? track.descriptionOfChunk[chunk] : 1;
}

std::vector<std::vector<Bytes>> ChunksOf(const TrackSpec& track) {
  std::vector<std::vector<Bytes>> chunks;
  for (size_t at = 0; at < track.samples.size();) {
    const size_t count = std::min(SamplesInChunk(track, chunks.size()), track.samples.size() - at);
    chunks.emplace_back(track.samples.begin() + static_cast<std::ptrdiff_t>(at),
                        track.samples.begin() + static_cast<std::ptrdiff_t>(at + count));
    at += count;
  }
  return chunks;
}

Bytes SampleSizes(const TrackSpec& track) {
  const auto count = static_cast<uint32_t>(track.samples.size());
  if (track.uniform) return Full("stsz", 0, 0, {Number(track.samples.at(0).size(), 4), Number(count, 4)});
  std::vector<Bytes> parts;
  if (track.sizeBits == 32) {
    parts = {Number(0, 4), Number(count, 4)};
    for (const Bytes& sample : track.samples) parts.push_back(Number(sample.size(), 4));
    const Bytes body = Joined({Number(0, 4), Joined(parts)});
    return Box("stsz", body, track.wideHeads);
  }
  parts = {Number(static_cast<uint64_t>(track.sizeBits), 4), Number(count, 4)};
  if (track.sizeBits == 4) {
    for (size_t i = 0; i < track.samples.size(); i += 2) {
      const size_t second = i + 1 < track.samples.size() ? track.samples[i + 1].size() : 0;
      parts.push_back(Number(track.samples[i].size() << 4 | second, 1));
    }
  } else {
    for (const Bytes& sample : track.samples)
      parts.push_back(Number(sample.size(), static_cast<size_t>(track.sizeBits) / 8));
  }
  return Full("stz2", 0, 0, parts);
}

Bytes SampleDescriptions(const TrackSpec& track) {
  std::vector<Bytes> parts = {Number(track.descriptions, 4)};
  for (uint32_t i = 0; i < track.descriptions; ++i) {
    const uint16_t reference = track.otherFile && i + 1 == track.descriptions ? 2 : 1;
    Bytes fields = Joined({Bytes(6), Number(reference, 2)});
    if (track.handler == "vide") {
      fields = Joined(
          {fields, Bytes(16), Number(64, 2), Number(64, 2), Bytes(46), Number(24, 2), Number(0xFFFF, 2)});
    } else {
      fields = Joined({fields, Bytes(20)});
    }
    const Bytes own = i < track.entryBoxesOf.size() ? track.entryBoxesOf[i] : Bytes{};
    parts.push_back(Box(track.format, {fields, track.entryBoxes, own}));
  }
  return Full("stsd", 0, 0, parts);
}

Bytes Runs(const std::string& type, uint8_t version, const std::vector<uint32_t>& values) {
  std::vector<Bytes> parts = {Number(values.size(), 4)};
  for (const uint32_t value : values) parts.push_back(Joined({Number(1, 4), Number(value, 4)}));
  return Full(type, version, 0, parts);
}

Bytes BuildTrack(const TrackSpec& track, const std::vector<uint64_t>& places) {
  std::vector<uint32_t> durations = track.durations;
  durations.resize(track.samples.size(), 100);
  std::vector<Bytes> table = {SampleDescriptions(track), Runs("stts", 0, durations)};
  if (!track.timeOffsets.empty()) {
    table.push_back(Runs("ctts", 1, {track.timeOffsets.begin(), track.timeOffsets.end()}));
  }
  if (!track.sync.empty()) {
    std::vector<Bytes> parts = {Number(track.sync.size(), 4)};
    for (const uint32_t number : track.sync) parts.push_back(Number(number, 4));
    table.push_back(Full("stss", 0, 0, parts));
  }
  const auto chunks = ChunksOf(track);
  std::vector<Bytes> runs;
  std::vector<Bytes> offsets;
  for (size_t i = 0; i < chunks.size(); ++i) {
    const bool same = i > 0 && chunks[i].size() == chunks[i - 1].size() &&
                      DescriptionOf(track, i) == DescriptionOf(track, i - 1);
    if (!same)
      runs.push_back(
          Joined({Number(i + 1, 4), Number(chunks[i].size(), 4), Number(DescriptionOf(track, i), 4)}));
    offsets.push_back(Number(places.at(i), track.wideOffsets ? 8 : 4));
  }
  table.push_back(Full("stsc", 0, 0, {Number(runs.size(), 4), Joined(runs)}));
  table.push_back(SampleSizes(track));
  table.push_back(
      Full(track.wideOffsets ? "co64" : "stco", 0, 0, {Number(offsets.size(), 4), Joined(offsets)}));
  for (const Bytes& box : track.tableBoxes) table.push_back(box);
  if (track.placeBox) table.push_back(track.placeBox(places.empty() ? 0 : places[0]));
  Bytes references = Full(track.reference, 0, 1, {});
  if (track.otherFile)
    references = Joined({references, Full("url ", 0, 0, {Text("file:///other.mp4"), Bytes(1)})});
  const Bytes dref = Full("dref", 0, 0, {Number(track.otherFile ? 2 : 1, 4), references});
  const Bytes information = Box("minf", {Full("vmhd", 0, 1, {Bytes(8)}), Box("dinf", {dref}),
                                         Box("stbl", Joined(table), track.wideHeads)});
  const Bytes media =
      Box("mdia", {Full("mdhd", 0, 0, {Bytes(8), Number(1000, 4), Number(1000, 4), Bytes(4)}),
                   Full("hdlr", 0, 0, {Bytes(4), Text(track.handler), Bytes(13)}), information});
  return Box("trak", {Full("tkhd", 0, 3, {Bytes(8), Number(track.id, 4), Bytes(68)}),
                      Joined(track.trackBoxes), media});
}

Bytes BuildMoov(const MovieSpec& spec, const Places& places, const Bytes& more = {}) {
  std::vector<Bytes> parts = {Full("mvhd", 0, 0, {Bytes(8), Number(1000, 4), Number(1000, 4), Bytes(80)})};
  for (size_t i = 0; i < spec.tracks.size(); ++i) parts.push_back(BuildTrack(spec.tracks[i], places[i]));
  for (const Bytes& box : spec.moovBoxes) parts.push_back(box);
  parts.push_back(more);
  return Box("moov", parts);
}

// The media data boxes as they stand from `at` on, with the places of their chunks.
Bytes BuildData(const MovieSpec& spec, uint64_t at, Places& places) {
  const size_t head = spec.mdatWide ? 16 : 8;
  Bytes out;
  Bytes body;
  places.assign(spec.tracks.size(), {});
  size_t written = 0;
  const auto close = [&] {
    if (spec.mdatToEnd) {
      out = Joined({out, Number(0, 4), Text("mdat"), body});
    } else {
      out = Joined({out, Box("mdat", body, spec.mdatWide)});
    }
    body.clear();
  };
  bool more = true;
  for (size_t chunk = 0; more; ++chunk) {
    more = false;
    for (size_t i = 0; i < spec.tracks.size(); ++i) {
      const auto chunks = ChunksOf(spec.tracks[i]);
      if (chunk >= chunks.size()) continue;
      more = true;
      if (spec.twoMdats && written++ % 2 == 0 && !body.empty()) close();
      body = Joined({body, spec.gap});
      places[i].push_back(at + out.size() + head + body.size());
      body = Joined({body, Joined(chunks[chunk])});
    }
  }
  body = Joined({body, spec.gap});
  close();
  return out;
}

}  // namespace

Bytes BuildMovie(const MovieSpec& spec) {
  const Bytes brand =
      spec.brand.empty() ? Bytes{} : Box("ftyp", {Text(spec.brand), Number(512, 4), Text(spec.brand)});
  Places places;
  BuildData(spec, 0, places);
  const size_t moovBytes = BuildMoov(spec, places).size() + spec.behindMoov.size();
  const Bytes data = BuildData(spec, brand.size() + (spec.moovFirst ? moovBytes : 0), places);
  const Bytes moov = Joined({BuildMoov(spec, places), spec.behindMoov});
  if (spec.moovFirst) return Joined({brand, moov, data, spec.behindAll});
  return Joined({brand, data, moov, spec.behindAll});
}

Bytes BuildInit(const MovieSpec& spec, uint32_t defaultSize) {
  MovieSpec empty = spec;
  std::vector<Bytes> defaults;
  for (TrackSpec& track : empty.tracks) {
    track.samples.clear();
    track.uniform = false;
    track.durations.clear();
    defaults.push_back(
        Full("trex", 0, 0,
             {Number(track.id, 4), Number(1, 4), Number(100, 4), Number(defaultSize, 4), Number(0, 4)}));
  }
  const Bytes brand =
      spec.brand.empty() ? Bytes{} : Box("ftyp", {Text(spec.brand), Number(512, 4), Text(spec.brand)});
  return Joined({brand, BuildMoov(empty, Places(spec.tracks.size()), Box("mvex", defaults))});
}

Bytes BuildFragment(const std::vector<TrafSpec>& tracks, uint64_t at, const Bytes& gap) {
  Bytes data;
  std::vector<std::vector<uint64_t>> places;  // in the data, by track and run
  for (const TrafSpec& track : tracks) {
    places.emplace_back();
    // Without a place of its own a track fragment follows the one before, and so does a run.
    if (track.offsets) data = Joined({data, gap});
    for (const auto& run : track.runs) {
      if (track.offsetsInAll) data = Joined({data, gap});
      places.back().push_back(data.size());
      for (const Bytes& sample : run) data = Joined({data, sample});
    }
  }
  const auto build = [&](uint64_t moofBytes) {
    std::vector<Bytes> trafs = {Full("mfhd", 0, 0, {Number(1, 4)})};
    uint64_t dataEnd = at;
    for (size_t t = 0; t < tracks.size(); ++t) {
      const TrafSpec& track = tracks[t];
      const uint64_t dataAt = at + moofBytes + 8;
      const bool isMoof = track.baseIsMoof || t == 0;
      const uint64_t base = track.explicitBase ? dataAt : isMoof ? at : dataEnd;
      const uint32_t flags = (track.explicitBase ? 0x1U
                              : track.baseIsMoof ? 0x20000U
                                                 : 0U) |
                             (track.description != 0 ? 0x2U : 0U) | (track.defaultSize != 0 ? 0x10U : 0U);
      std::vector<Bytes> header = {Number(track.trackId, 4)};
      if (track.explicitBase) header.push_back(Number(base, 8));
      if (track.description != 0) header.push_back(Number(track.description, 4));
      if (track.defaultSize != 0) header.push_back(Number(track.defaultSize, 4));
      std::vector<Bytes> traf = {Full("tfhd", 0, flags, header)};
      if (track.decodeTime >= 0)
        traf.push_back(Full("tfdt", 1, 0, {Number(static_cast<uint64_t>(track.decodeTime), 8)}));
      for (size_t r = 0; r < track.runs.size(); ++r) {
        const bool offset = r == 0 ? track.offsets : track.offsetsInAll;
        const uint32_t runFlags = (offset ? 1U : 0U) | (track.firstFlags ? 4U : 0U) |
                                  (track.durations ? 0x100U : 0U) | (track.sizes ? 0x200U : 0U) |
                                  (track.timeOffsets ? 0x800U : 0U);
        std::vector<Bytes> fields = {Number(track.runs[r].size(), 4)};
        if (offset) fields.push_back(Number(dataAt + places[t][r] - base, 4));
        if (track.firstFlags) fields.push_back(Number(0x02000000, 4));
        uint32_t n = 0;
        for (const Bytes& sample : track.runs[r]) {
          if (track.durations) fields.push_back(Number(90 + n, 4));
          if (track.sizes) fields.push_back(Number(sample.size(), 4));
          if (track.timeOffsets)
            fields.push_back(Number(static_cast<uint32_t>(10 - 20 * static_cast<int>(n % 2)), 4));
          ++n;
        }
        traf.push_back(Full("trun", 1, runFlags, fields));
      }
      for (const Bytes& box : track.boxes) traf.push_back(box);
      if (track.placeBox) traf.push_back(track.placeBox(dataAt + places[t].at(0) - base));
      trafs.push_back(Box("traf", traf));
      uint64_t bytes = 0;
      if (!track.runs.empty()) {
        for (const Bytes& sample : track.runs.back()) bytes += sample.size();
        dataEnd = dataAt + places[t].back() + bytes;
      }
    }
    return Box("moof", trafs);
  };
  const Bytes moof = build(build(0).size());
  return Joined({moof, Box("mdat", data)});
}

}  // namespace qln::test::mp4
