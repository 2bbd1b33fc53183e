// Takes a `trak` apart as far as samples and sample descriptions need it.

#include <algorithm>

#include "container/mp4/movie.h"

namespace qlnmedia::mp4 {

namespace {

// More are lies: a description is named by 32 bits, but each takes 16 bytes and more of every file seen.
constexpr size_t kMostDescriptions = 1024;

class TrackReader {
 public:
  explicit TrackReader(Reader& reader) : reader_(reader) {}

  Track Read(const Box& trak) {
    track_.box = trak;
    try {
      RequireBody(reader_, trak, 0);
      ForEach(trak, 0, [this](const Box& box) { TakeOfTrack(box); });
      if (!track_.descriptionList.type || !track_.chunkOffsets.there() || !track_.chunkRuns.there() ||
          track_.sizes.box.type == 0) {
        throw reader_.source().Fault(trak.at, "the track lacks a sample description or a table of samples");
      }
    } catch (const Error& error) {
      track_.problem = error.what();
    }
    return std::move(track_);
  }

 private:
  template <typename Take>
  void ForEach(const Box& parent, uint64_t headBytes, Take take) {
    BoxLevel level = BoxLevel::Inside(reader_, parent, headBytes);
    for (Box box; level.Next(box);) take(box);
  }

  void TakeOfTrack(const Box& box) {
    if (box.type == FourCc("tkhd")) {
      RequireBody(reader_, box, 20);
      const bool wide = reader_.U8(box.body) == 1;
      RequireBody(reader_, box, wide ? 24 : 16);
      track_.id = reader_.U32(box.body + (wide ? 20 : 12));
    } else if (box.type == FourCc("mdia")) {
      RequireBody(reader_, box, 0);
      RequireFirst(track_.media, box);
      track_.media = box;
      // Sample descriptions are read by the kind of the media, wherever it stands.
      if (const auto handler = FindBox(reader_, box, FourCc("hdlr"))) TakeOfMedia(*handler);
      ForEach(box, 0, [this](const Box& inner) { TakeOfMedia(inner); });
    } else if (box.type == FourCc("tref")) {
      TakeTracks(box, FourCc("hint"), track_.hinted);
      TakeTracks(box, FourCc("chap"), track_.chapters);
    } else {
      TakeMetas(reader_, box, track_.metas);
    }
  }

  void TakeTracks(const Box& references, uint32_t type, std::vector<uint32_t>& tracks) {
    constexpr size_t kMost = 64;
    const auto box = FindBox(reader_, references, type);
    for (uint64_t at = box ? box->body : 0; box && box->end - at >= 4 && tracks.size() < kMost; at += 4)
      tracks.push_back(reader_.U32(at));
  }

  void TakeOfMedia(const Box& box) {
    if (box.type == FourCc("mdhd")) {
      RequireBody(reader_, box, 16);
      const bool wide = reader_.U8(box.body) == 1;
      RequireBody(reader_, box, wide ? 24 : 16);
      track_.timescale = reader_.U32(box.body + (wide ? 20 : 12));
    } else if (box.type == FourCc("hdlr")) {
      RequireBody(reader_, box, 12);
      track_.handler = reader_.U32(box.body + 8);
    } else if (box.type == FourCc("minf")) {
      RequireBody(reader_, box, 0);
      RequireFirst(track_.information, box);
      track_.information = box;
      // Data references stand in front of the sample table by custom only.
      if (const auto references = FindBox(reader_, box, FourCc("dinf"))) TakeReferences(*references);
      if (const auto table = FindBox(reader_, box, FourCc("stbl"))) {
        RequireBody(reader_, *table, 0);
        track_.sampleTable = *table;
        ForEach(*table, 0, [this](const Box& inner) { TakeOfTable(inner); });
      }
    }
  }

  // Of two that say the same of a track, one would go on saying it of what has changed.
  void RequireFirst(const Box& seen, const Box& box) const {
    if (seen.type != 0)
      throw reader_.source().Fault(box.at, BoxName(box) + " stands in its track a second time");
  }

  void TakeReferences(const Box& dinf) {
    const auto dref = FindBox(reader_, dinf, FourCc("dref"));
    if (!dref || dref->bodySize() < 8) return;
    BoxLevel level = BoxLevel::Inside(reader_, *dref, 8);
    for (Box box; level.Next(box) && selfContained_.size() < 0xFFFF;) {
      // Flag 1: the data is in the same file. Places of these two count from a box and not from its begin.
      const bool ofBox = box.type == FourCc("imdt") || box.type == FourCc("snim");
      selfContained_.push_back(!ofBox && (box.bodySize() < 4 || (reader_.U32(box.body) & 1) != 0));
    }
  }

  // Entries of `entryBytes` behind the head of a box, as many as the number in it says.
  // The one of its kind in the track, of which `seen` is what was read so far.
  Table ReadTable(const Table& seen, const Box& box, uint64_t entryBytes) {
    constexpr uint64_t kCountAt = 4;
    constexpr uint64_t kHeadBytes = 8;
    RequireFirst(seen.box, box);
    RequireBody(reader_, box, kHeadBytes);
    Table table;
    table.box = box;
    table.version = reader_.U8(box.body);
    table.at = box.body + kHeadBytes;
    table.count = reader_.U32(box.body + kCountAt);
    if (table.count > (box.bodySize() - kHeadBytes) / entryBytes) {
      throw reader_.source().Fault(box.at, BoxName(box) + " says that it has " + std::to_string(table.count) +
                                               " entries and has room for " +
                                               std::to_string((box.bodySize() - kHeadBytes) / entryBytes));
    }
    return table;
  }

  void TakeOfTable(const Box& box) {
    switch (box.type) {
      case FourCc("stsd"):
        return TakeDescriptions(box);
      case FourCc("stsz"):
      case FourCc("stz2"):
        return TakeSizes(box);
      case FourCc("stsc"):
        track_.chunkRuns = ReadTable(track_.chunkRuns, box, 12);
        return;
      case FourCc("stco"):
        track_.chunkOffsets = ReadTable(track_.chunkOffsets, box, 4);
        return;
      case FourCc("co64"):
        track_.chunkOffsets = ReadTable(track_.chunkOffsets, box, 8);
        return;
      case FourCc("stts"):
        track_.durations = ReadTable(track_.durations, box, 8);
        return;
      case FourCc("ctts"):
        track_.timeOffsets = ReadTable(track_.timeOffsets, box, 8);
        return;
      case FourCc("stss"):
        track_.syncSamples = ReadTable(track_.syncSamples, box, 4);
        return;
      case FourCc("saio"):
        track_.auxiliaryOffsets.push_back(box);
        return;
      case FourCc("subs"):
        track_.subSamples.push_back(box);
        return;
      default:
        return;
    }
  }

  void TakeSizes(const Box& box) {
    RequireBody(reader_, box, 12);
    SizeTable& sizes = track_.sizes;
    RequireFirst(sizes.box, box);
    static_cast<Table&>(sizes) = {box, box.body + 12, 0, reader_.U8(box.body)};
    sizes.samples = reader_.U32(box.body + 8);
    if (box.type == FourCc("stsz")) {
      sizes.uniform = reader_.U32(box.body + 4);
      sizes.bits = 32;
    } else {
      sizes.bits = reader_.U8(box.body + 7);
      if (sizes.bits != 4 && sizes.bits != 8 && sizes.bits != 16) {
        throw reader_.source().Fault(box.at,
                                     "box 'stz2' has sizes of " + std::to_string(sizes.bits) + " bits");
      }
    }
    if (sizes.uniform != 0) return;
    sizes.count = sizes.samples;
    if ((sizes.count * sizes.bits + 7) / 8 > box.bodySize() - 12) {
      throw reader_.source().Fault(box.at, BoxName(box) + " says that it has " + std::to_string(sizes.count) +
                                               " entries and has room for " +
                                               std::to_string((box.bodySize() - 12) * 8 / sizes.bits));
    }
  }

  void TakeDescriptions(const Box& box) {
    RequireBody(reader_, box, 8);
    RequireFirst(track_.descriptionList, box);
    track_.descriptionList = box;
    BoxLevel level = BoxLevel::Inside(reader_, box, 8);
    for (Box entry; level.Next(entry);) {
      if (track_.descriptions.size() == kMostDescriptions) {
        throw reader_.source().Fault(box.at, "box 'stsd' has more than 1024 entries");
      }
      track_.descriptions.push_back(ReadDescription(entry));
    }
  }

  Description ReadDescription(const Box& entry) {
    RequireBody(reader_, entry, 8);
    Description out;
    out.entry = entry;
    out.format = entry.type;
    const size_t reference = reader_.U16(entry.body + 6);
    out.selfContained = reference == 0 || reference > selfContained_.size() || selfContained_[reference - 1];
    out.boxesAt = out.boxesEnd = entry.end;
    if (!track_.video() || entry.bodySize() < kVisualSampleEntryBytes) return out;
    out.boxesAt = out.boxesEnd = entry.body + kVisualSampleEntryBytes;
    BoxLevel level(reader_, out.boxesAt, entry.end);
    for (Box box; level.Next(box); out.boxesEnd = box.end) {
      RequireBody(reader_, box, 0);
      if (box.type != FourCc("sinf")) continue;
      out.encrypted = true;
      const auto original = FindBox(reader_, box, FourCc("frma"));
      if (original && original->bodySize() >= 4) out.format = reader_.U32(original->body);
    }
    out.encrypted = out.encrypted || entry.type == FourCc("encv") || entry.type == FourCc("drmi");
    return out;
  }

  Reader& reader_;
  Track track_;
  std::vector<bool> selfContained_;
};

}  // namespace

void Track::Require() const {
  if (!problem.empty()) throw Error("", problem);
}

bool Track::IsSelfContained(uint32_t description) const {
  return description == 0 || description > descriptions.size() || descriptions[description - 1].selfContained;
}

bool Track::IsEncrypted(uint32_t description) const {
  return description != 0 && description <= descriptions.size() && descriptions[description - 1].encrypted;
}

Track ReadTrack(Reader& reader, const Box& trak) { return TrackReader(reader).Read(trak); }

std::vector<DescriptionBox> ReadDescriptionBoxes(const Source& source, const Description& description) {
  Reader reader(source);
  std::vector<DescriptionBox> boxes;
  BoxLevel level(reader, description.boxesAt, description.boxesEnd);
  for (Box box; level.Next(box);) boxes.push_back({box.type, reader.Run(box.body, box.bodySize())});
  return boxes;
}

}  // namespace qlnmedia::mp4
