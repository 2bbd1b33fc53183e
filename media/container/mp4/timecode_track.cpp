// Makes the boxes of a timecode track, and the file around them as a list of pieces.

#include "container/mp4/timecode_track.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "container/mp4/joined_source.h"
#include "container/mp4/sample_table.h"
#include "container/mp4/timecode_boxes.h"

namespace qlnmedia::mp4 {

namespace {

constexpr uint64_t kMostMovieBytes = uint64_t{1} << 30;

// A stretch of another source, which the caller keeps.
class SliceSource final : public Source {
 public:
  SliceSource(const Source& of, uint64_t at, uint64_t bytes) : of_(of), at_(at), bytes_(bytes) {}
  const std::string& name() const override { return of_.name(); }
  uint64_t size() const override { return bytes_; }
  void Read(uint64_t at, std::span<uint8_t> to) const override { of_.Read(at_ + at, to); }

 private:
  const Source& of_;
  uint64_t at_;
  uint64_t bytes_;
};

// Bytes of its own.
class BytesSource final : public Source {
 public:
  explicit BytesSource(Bytes bytes) : bytes_(std::move(bytes)), source_(bytes_) {}
  const std::string& name() const override { return source_.name(); }
  uint64_t size() const override { return source_.size(); }
  void Read(uint64_t at, std::span<uint8_t> to) const override { source_.Read(at, to); }

 private:
  Bytes bytes_;
  MemorySource source_;
};

class TimecodePutter {
 public:
  TimecodePutter(const Source& file, uint32_t videoTrack, const TimecodeFacts& facts)
      : file_(file), reader_(file), facts_(facts), layout_(ReadLayout(file)) {
    if (layout_.movies.size() != 1 || !layout_.fragments.empty() ||
        !layout_.movies.front().fragmentDefaults.empty())
      Refuse("is in fragments, which take no timecode track");
    movie_ = &layout_.movies.front();
    video_ = movie_->Find(videoTrack);
    if (video_ == nullptr) Refuse("has no track " + std::to_string(videoTrack));
    video_->Require();
    RequireBody(reader_, movie_->box, 0);
    if (movie_->box.size() > kMostMovieBytes) Refuse("has an index (moov) above 1 GB");
  }

  FileWithTimecode Put() {
    FileWithTimecode out;
    const Track* const there = TimecodeTrack();
    out.news = there != nullptr ? Correct(*there) : Add();
    out.source = Joined();
    return out;
  }

 private:
  [[noreturn]] void Refuse(const std::string& what) const { throw Error(file_.name(), what); }

  // The track that the video track's `tref` names; null where there is none.
  const Track* TimecodeTrack() {
    const auto references = FindBox(reader_, video_->box, FourCc("tref"));
    const auto timecode = references ? FindBox(reader_, *references, FourCc("tmcd")) : std::optional<Box>();
    if (!timecode || timecode->bodySize() < 4) return nullptr;
    return movie_->Find(reader_.U32(timecode->body));
  }

  TimecodeTrackNews Correct(const Track& track) {
    track.Require();
    constexpr uint64_t kEntryBytes = 26;
    if (track.descriptions.size() != 1) Refuse("has a timecode track of several kinds");
    const Box& entry = track.descriptions.front().entry;
    if (entry.type != FourCc("tmcd") || entry.bodySize() < kEntryBytes)
      Refuse("has a timecode track of another kind");
    TableSamples samples(file_, track);
    Sample sample;
    if (track.sizes.samples != 1 || !samples.Next(sample) || sample.size != 4 || !sample.inFile ||
        sample.offset > file_.size() - 4)
      Refuse("has a timecode track of several timecodes");
    const Bytes old = reader_.Run(entry.body, kEntryBytes);
    Bytes fresh = old;
    const auto put = [&fresh](size_t at, uint64_t value, size_t bytes) {
      const Bytes number = NumberBytes(value, bytes);
      std::copy(number.begin(), number.end(), fresh.begin() + static_cast<std::ptrdiff_t>(at));
    };
    const uint64_t flags = LoadNumber(old.data() + 12, 4);
    put(12, (flags & ~uint64_t{1}) | (facts_.dropFrame ? 1 : 0), 4);
    const uint64_t scale = LoadNumber(old.data() + 16, 4);
    const uint64_t duration = LoadNumber(old.data() + 20, 4);
    if (scale * facts_.frameDuration != duration * facts_.timescale) {
      put(16, facts_.timescale, 4);
      put(20, facts_.frameDuration, 4);
    }
    put(24, facts_.numbers, 1);
    const Bytes number = NumberBytes(facts_.firstFrame, 4);
    const bool same = fresh == old && reader_.Run(sample.offset, 4) == number;
    pieces_[entry.body] = {kEntryBytes, std::move(fresh)};
    pieces_[sample.offset] = {4, number};
    return same ? TimecodeTrackNews::kSame : TimecodeTrackNews::kCorrected;
  }

  TimecodeTrackNews Add() {
    const auto head = FindBox(reader_, movie_->box, FourCc("mvhd"));
    if (!head || head->bodySize() < 100) Refuse("has no movie header ('mvhd')");
    uint32_t id = reader_.U32(head->end - 4);
    for (const Track& track : movie_->tracks) id = std::max(id, track.id + 1);
    // Its size does not hang on where the sample stands, but for the width of that place.
    const Bytes reference = BoxBytes("tmcd", NumberBytes(id, 4));
    const auto references = FindBox(reader_, video_->box, FourCc("tref"));
    const Bytes added = references ? reference : BoxBytes("tref", reference);
    const bool open = RequireLastBox();
    const uint64_t trackBytes = TimecodeTrackBox(reader_, *video_, facts_, id, 0, layout_.quickTime).size();
    const uint64_t growth = added.size() + trackBytes;
    const uint64_t place = file_.size() + growth + (open ? 0 : 8);
    if (place > UINT32_MAX - 4) Refuse("is too long for a timecode track behind its end");
    pieces_[head->end - 4] = {4, NumberBytes(uint64_t{id} + 1, 4)};
    const Box& parent = references ? *references : video_->box;
    Insert(parent.end, added);
    Insert(movie_->tracks.back().box.end,
           TimecodeTrackBox(reader_, *video_, facts_, id, place, layout_.quickTime));
    if (references) Grow(*references, added.size());
    Grow(video_->box, added.size());
    Grow(movie_->box, growth);
    MoveData(growth);
    const Bytes sample = NumberBytes(facts_.firstFrame, 4);
    Insert(file_.size(), open ? sample : BoxBytes("mdat", sample));
    return TimecodeTrackNews::kAdded;
  }

  // Behind whatever goes in at the same place.
  void Insert(uint64_t at, const Bytes& bytes) {
    Bytes& there = pieces_[at].second;
    there.insert(there.end(), bytes.begin(), bytes.end());
  }

  void Grow(const Box& box, uint64_t bytes) {
    if (box.toEnd) Refuse("has an index (moov) up to the end of the file, which cannot grow");
    const uint64_t size = box.declared + bytes;
    if (!box.wideHead() && size > UINT32_MAX) Refuse("has an index (moov) that cannot grow");
    pieces_[box.wideHead() ? box.at + 8 : box.at] =
        box.wideHead() ? Piece{8, NumberBytes(size, 8)} : Piece{4, NumberBytes(size, 4)};
  }

  // True where the last box is open, so that what comes behind it is part of it.
  bool RequireLastBox() {
    BoxLevel level = BoxLevel::Top(reader_);
    Box last;
    for (Box box; level.Next(box);) {
      const bool places = box.type == FourCc("sidx") || box.type == FourCc("mfra") ||
                          (box.type == FourCc("meta") && HasPlaces(box));
      if (places) Refuse(BoxName(box) + " names places, and takes no timecode track beside it");
      last = box;
    }
    if (level.hasRest() || last.overruns || last.end != file_.size())
      Refuse("does not end with a box, and takes no timecode track behind it");
    if (last.toEnd && last.type != FourCc("mdat")) Refuse("ends with an open " + BoxName(last));
    return last.toEnd;
  }

  bool HasPlaces(const Box& meta) {
    return FindBox(reader_, meta, FourCc("iloc"), MetaHeadBytes(reader_, meta)).has_value();
  }

  // What stands behind the index moves by its growth, and with it all places that tracks name.
  void MoveData(uint64_t growth) {
    std::vector<Box> metas = movie_->metas;
    for (const Track& track : movie_->tracks) {
      track.Require();
      metas.insert(metas.end(), track.metas.begin(), track.metas.end());
      if (!track.auxiliaryOffsets.empty())
        Refuse("has encrypted or auxiliary data, and takes no timecode track");
      MoveChunks(track, growth);
    }
    for (const Box& meta : metas) {
      if (HasPlaces(meta)) Refuse("has items by place, and takes no timecode track");
    }
  }

  void MoveChunks(const Track& track, uint64_t growth) {
    const Table& table = track.chunkOffsets;
    const size_t width = track.wideOffsets() ? 8 : 4;
    Bytes fresh;
    bool moved = false;
    ChunkCursor chunks(file_, track);
    for (Chunk chunk; chunks.Next(chunk);) {
      const bool behind = track.IsSelfContained(chunk.description) && chunk.offset >= movie_->box.end;
      const uint64_t place = chunk.offset + (behind ? growth : 0);
      if (width == 4 && place > UINT32_MAX)
        Refuse("has places of 32 bits, which the timecode track would pass");
      moved = moved || behind;
      PutNumber(fresh, place, width);
    }
    if (!moved) return;
    if (fresh.size() != table.count * width) Refuse("names chunks that 'stsc' does not");
    pieces_[table.at] = {fresh.size(), std::move(fresh)};
  }

  std::unique_ptr<Source> Joined() {
    std::vector<std::unique_ptr<Source>> parts;
    uint64_t at = 0;
    for (auto& [place, piece] : pieces_) {
      if (place > at) parts.push_back(std::make_unique<SliceSource>(file_, at, place - at));
      parts.push_back(std::make_unique<BytesSource>(std::move(piece.second)));
      at = place + piece.first;
    }
    if (at < file_.size()) parts.push_back(std::make_unique<SliceSource>(file_, at, file_.size() - at));
    return std::make_unique<JoinedSource>(file_.name(), std::move(parts));
  }

  // How many bytes go, and which come.
  using Piece = std::pair<uint64_t, Bytes>;

  const Source& file_;
  Reader reader_;
  TimecodeFacts facts_;
  Layout layout_;
  const Movie* movie_ = nullptr;
  const Track* video_ = nullptr;
  std::map<uint64_t, Piece> pieces_;  // by place
};

}  // namespace

FileWithTimecode PutTimecodeTrack(const Source& file, uint32_t videoTrack, const TimecodeFacts& facts) {
  return TimecodePutter(file, videoTrack, facts).Put();
}

}  // namespace qlnmedia::mp4
