// Reads `moof`, with every count held against the bytes that are there.

#include "container/mp4/fragment.h"

namespace qlnmedia::mp4 {

namespace {

// The extended type of the sample encryption box that 'senc' was made after.
constexpr uint64_t kOldSampleEncryption = 0xA2394F525A9B4F14;

// No file reaches that far, and sums of two such places still fit.
constexpr int64_t kFarthest = int64_t{1} << 61;

class FragmentReader {
 public:
  FragmentReader(Reader& reader, const Movie* movie) : reader_(reader), movie_(movie) {}

  Fragment Read(uint64_t at) {
    BoxLevel top(reader_, at, reader_.size(), true);
    if (!top.Next(out_.box)) throw reader_.source().Fault(at, "no box where a fragment was");
    RequireBody(reader_, out_.box, 0);
    dataEnd_ = static_cast<int64_t>(at);
    BoxLevel level = BoxLevel::Inside(reader_, out_.box);
    for (Box box; level.Next(box);) {
      if (box.type == FourCc("traf")) TakeTrack(box);
      TakeMetas(reader_, box, out_.metas);
    }
    return std::move(out_);
  }

 private:
  void TakeTrack(const Box& traf) {
    RequireBody(reader_, traf, 0);
    TrackFragment track;
    track.box = traf;
    // The header comes first, but nothing makes sure that it does.
    const auto header = FindBox(reader_, traf, FourCc("tfhd"));
    if (!header) throw reader_.source().Fault(traf.at, "box 'traf' has no 'tfhd'");
    TakeHeader(*header, track);
    int64_t runAt = track.base;
    BoxLevel level = BoxLevel::Inside(reader_, traf);
    for (Box box; level.Next(box);) {
      switch (box.type) {
        case FourCc("trun"): {
          Run run = ReadRun(box, track);
          run.dataAt = run.dataOffsetAt != 0 ? track.base + run.dataOffset : runAt;
          if (run.dataAt > kFarthest || run.dataBytes > static_cast<uint64_t>(kFarthest)) {
            throw reader_.source().Fault(box.at, "box 'trun' names samples beyond every file");
          }
          runAt = dataEnd_ = run.dataAt + static_cast<int64_t>(run.dataBytes);
          track.runs.push_back(run);
          break;
        }
        case FourCc("tfdt"):
          RequireBody(reader_, box, 8);
          if (reader_.U8(box.body) == 1) RequireBody(reader_, box, 12);
          track.decodeTime = reader_.Number(box.body + 4, reader_.U8(box.body) == 1 ? 8 : 4);
          break;
        case FourCc("saio"):
          track.auxiliaryOffsets.push_back(box);
          break;
        case FourCc("subs"):
          track.subSamples.push_back(box);
          break;
        case FourCc("senc"):
          track.encrypted = true;
          break;
        case FourCc("uuid"):
          track.encrypted =
              track.encrypted || (box.bodySize() >= 16 && reader_.U64(box.body) == kOldSampleEncryption);
          break;
        default:
          TakeMetas(reader_, box, track.metas);
          break;
      }
    }
    out_.tracks.push_back(std::move(track));
  }

  void TakeHeader(const Box& box, TrackFragment& track) {
    RequireBody(reader_, box, 8);
    track.header = box;
    track.flags = reader_.U32(box.body) & 0xFFFFFF;
    track.trackId = reader_.U32(box.body + 4);
    if (movie_ != nullptr) {
      const auto found = movie_->fragmentDefaults.find(track.trackId);
      if (found != movie_->fragmentDefaults.end()) track.defaults = found->second;
    }
    uint64_t at = box.body + 8;
    const auto field = [&](uint32_t flag, uint64_t bytes) -> uint64_t {
      if ((track.flags & flag) == 0) return 0;
      const uint64_t here = at;
      at += bytes;
      RequireBody(reader_, box, at - box.body);
      return here;
    };
    track.baseAt = field(0x1, 8);
    if (const uint64_t here = field(0x2, 4)) track.defaults.description = reader_.U32(here);
    if (const uint64_t here = field(0x8, 4)) track.defaults.duration = reader_.U32(here);
    track.sizeAt = field(0x10, 4);
    if (track.sizeAt != 0) track.defaults.size = reader_.U32(track.sizeAt);
    if (const uint64_t here = field(0x20, 4)) track.defaults.flags = reader_.U32(here);
    track.baseIsMoof = track.baseAt == 0 && ((track.flags & 0x20000) != 0 || out_.tracks.empty());
    if (track.baseAt != 0) {
      const uint64_t base = reader_.U64(track.baseAt);
      if (base > static_cast<uint64_t>(kFarthest)) {
        throw reader_.source().Fault(track.baseAt, "box 'tfhd' has a base beyond every file");
      }
      track.base = static_cast<int64_t>(base + reader_.source().OriginOf(out_.box.at));
    } else {
      track.base = track.baseIsMoof ? static_cast<int64_t>(out_.box.at) : dataEnd_;
    }
  }

  Run ReadRun(const Box& box, const TrackFragment& track) {
    RequireBody(reader_, box, 8);
    Run run;
    run.box = box;
    run.version = reader_.U8(box.body);
    run.flags = reader_.U32(box.body) & 0xFFFFFF;
    run.samples = reader_.U32(box.body + 4);
    uint64_t at = box.body + 8;
    if ((run.flags & 0x1) != 0) {
      RequireBody(reader_, box, at + 4 - box.body);
      run.dataOffsetAt = at;
      run.dataOffset = static_cast<int32_t>(reader_.U32(at));
      at += 4;
    }
    if ((run.flags & 0x4) != 0) {
      RequireBody(reader_, box, at + 4 - box.body);
      run.firstFlagsAt = at;
      at += 4;
    }
    run.entriesAt = at;
    for (const uint32_t flag : {0x100U, 0x200U, 0x400U, 0x800U}) {
      if ((run.flags & flag) != 0) run.entryBytes = static_cast<uint8_t>(run.entryBytes + 4);
    }
    // Where samples have no fields of their own nothing but the file's size bounds their number.
    const uint64_t room = run.entryBytes != 0 ? (box.end - at) / run.entryBytes : reader_.size();
    if (run.samples > room) {
      throw reader_.source().Fault(box.at, "box 'trun' says that it has " + std::to_string(run.samples) +
                                               " samples and there is room for " + std::to_string(room));
    }
    if (!run.hasSizes()) {
      run.dataBytes = uint64_t{run.samples} * track.defaults.size;
    } else {
      for (uint32_t i = 0; i < run.samples; ++i) {
        run.dataBytes += reader_.U32(at + uint64_t{i} * run.entryBytes + run.sizeColumn());
      }
    }
    return run;
  }

  Reader& reader_;
  const Movie* movie_;
  Fragment out_;
  int64_t dataEnd_ = 0;
};

}  // namespace

Fragment ReadFragment(Reader& reader, uint64_t at, const Movie* movie) {
  return FragmentReader(reader, movie).Read(at);
}

bool RunSamples::Next(RunSample& sample) {
  if (next_ == run_.samples) return false;
  uint64_t at = run_.entriesAt + uint64_t{next_} * run_.entryBytes;
  const auto field = [&](uint32_t flag, uint32_t otherwise) {
    if ((run_.flags & flag) == 0) return otherwise;
    at += 4;
    return reader_.U32(at - 4);
  };
  sample.duration = field(0x100, track_.defaults.duration);
  sample.size = field(0x200, track_.defaults.size);
  const bool first = next_ == 0 && run_.firstFlagsAt != 0;
  sample.flags = field(0x400, first ? reader_.U32(run_.firstFlagsAt) : track_.defaults.flags);
  const uint32_t offset = field(0x800, 0);
  sample.timeOffset = run_.version == 0 ? int64_t{offset} : int64_t{static_cast<int32_t>(offset)};
  ++next_;
  return true;
}

}  // namespace qlnmedia::mp4
