// Finds room for a track, and lays the file out around it.

#include "container/mp4/track_addition.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "container/mp4/companion_boxes.h"
#include "container/mp4/joined_source.h"
#include "container/mp4/sample_table.h"

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

}  // namespace

TrackAddition::TrackAddition(const Source& file, uint32_t videoTrack, std::string what)
    : file_(file), what_(std::move(what)), reader_(file), layout_(ReadLayout(file)) {
  if (layout_.movies.size() != 1 || !layout_.fragments.empty() ||
      !layout_.movies.front().fragmentDefaults.empty())
    Refuse("is in fragments, which take no " + what_);
  movie_ = &layout_.movies.front();
  video_ = movie_->Find(videoTrack);
  if (video_ == nullptr) Refuse("has no track " + std::to_string(videoTrack));
  video_->Require();
  RequireBody(reader_, movie_->box, 0);
  if (movie_->box.size() > kMostMovieBytes) Refuse("has an index (moov) above 1 GB");
}

void TrackAddition::Refuse(const std::string& what) const { throw Error(file_.name(), what); }

uint32_t TrackAddition::FreshId() {
  const auto head = FindBox(reader_, movie_->box, FourCc("mvhd"));
  if (!head || head->bodySize() < 100) Refuse("has no movie header ('mvhd')");
  uint32_t id = reader_.U32(head->end - 4);
  for (const Track& track : movie_->tracks) id = std::max(id, track.id + 1);
  Overwrite(head->end - 4, NumberBytes(uint64_t{id} + 1, 4));
  return id;
}

void TrackAddition::Overwrite(uint64_t at, Bytes fresh) {
  const uint64_t size = fresh.size();
  pieces_[at] = {size, std::move(fresh)};
}

void TrackAddition::Add(const char* reference, uint32_t id, const MakeTrack& make, const Bytes& samples,
                        const Track* replaced) {
  const bool open = RequireLastBox();
  int64_t growth = Refer(reference, id);
  if (replaced != nullptr) growth -= static_cast<int64_t>(replaced->box.size());
  const auto placeOf = [&](bool wide) {
    // The size of a track does not hang on where its samples stand, but for the width of that place.
    const auto bytes = static_cast<int64_t>(make(0, wide).size());
    return std::pair(bytes, file_.size() + static_cast<uint64_t>(growth + bytes) + (open ? 0 : 8));
  };
  auto [trackBytes, place] = placeOf(false);
  const bool wide = place + samples.size() > UINT32_MAX;
  if (wide) std::tie(trackBytes, place) = placeOf(true);
  growth += trackBytes;
  if (replaced != nullptr) {
    Insert(replaced->box.at, make(place, wide), replaced->box.size());
  } else {
    Insert(movie_->tracks.back().box.end, make(place, wide));
  }
  Grow(movie_->box, growth);
  MoveData(growth, replaced);
  Insert(file_.size(), open ? samples : BoxBytes("mdat", samples));
}

// Gives the bytes by which the video track grows.
int64_t TrackAddition::Refer(const char* type, uint32_t id) {
  const Bytes number = NumberBytes(id, 4);
  const auto references = FindBox(reader_, video_->box, FourCc("tref"));
  std::optional<Box> there;
  if (references) {
    BoxLevel level = BoxLevel::Inside(reader_, *references);
    for (Box box; level.Next(box);) {
      if (TypeBytes(box.type) == type) there = box;
    }
  }
  for (uint64_t at = there ? there->body : 0; there && at + 4 <= there->end; at += 4) {
    if (reader_.U32(at) == id) return 0;
  }
  const Bytes reference = there ? number : BoxBytes(type, number);
  const Bytes added = references ? reference : BoxBytes("tref", reference);
  const auto growth = static_cast<int64_t>(added.size());
  Insert(there ? there->end : references ? references->end : video_->box.end, added);
  if (there) Grow(*there, growth);
  if (references) Grow(*references, growth);
  Grow(video_->box, growth);
  return growth;
}

// Behind whatever goes in at the same place.
void TrackAddition::Insert(uint64_t at, const Bytes& bytes, uint64_t removed) {
  Piece& there = pieces_[at];
  there.first += removed;
  there.second.insert(there.second.end(), bytes.begin(), bytes.end());
}

void TrackAddition::Grow(const Box& box, int64_t bytes) {
  if (box.toEnd) Refuse("has an index (moov) up to the end of the file, which cannot grow");
  const uint64_t size = box.declared + static_cast<uint64_t>(bytes);
  if (!box.wideHead() && size > UINT32_MAX) Refuse("has an index (moov) that cannot grow");
  Overwrite(box.wideHead() ? box.at + 8 : box.at, NumberBytes(size, box.wideHead() ? 8 : 4));
}

// True where the last box is open, so that what comes behind it is part of it.
bool TrackAddition::RequireLastBox() {
  BoxLevel level = BoxLevel::Top(reader_);
  Box last;
  for (Box box; level.Next(box);) {
    const bool places = box.type == FourCc("sidx") || box.type == FourCc("mfra") ||
                        (box.type == FourCc("meta") && HasPlaces(box));
    if (places) Refuse(BoxName(box) + " names places, and takes no " + what_ + " beside it");
    last = box;
  }
  if (level.hasRest() || last.overruns || last.end != file_.size())
    Refuse("does not end with a box, and takes no " + what_ + " behind it");
  if (last.toEnd && last.type != FourCc("mdat")) Refuse("ends with an open " + BoxName(last));
  return last.toEnd;
}

bool TrackAddition::HasPlaces(const Box& meta) {
  return FindBox(reader_, meta, FourCc("iloc"), MetaHeadBytes(reader_, meta)).has_value();
}

// What stands behind the index moves by its growth, and with it all places that tracks name.
void TrackAddition::MoveData(int64_t growth, const Track* gone) {
  std::vector<Box> metas = movie_->metas;
  for (const Track& track : movie_->tracks) {
    if (&track == gone) continue;
    track.Require();
    metas.insert(metas.end(), track.metas.begin(), track.metas.end());
    if (!track.auxiliaryOffsets.empty()) Refuse("has encrypted or auxiliary data, and takes no " + what_);
    MoveChunks(track, growth);
  }
  for (const Box& meta : metas) {
    if (HasPlaces(meta)) Refuse("has items by place, and takes no " + what_);
  }
}

void TrackAddition::MoveChunks(const Track& track, int64_t growth) {
  const Table& table = track.chunkOffsets;
  const size_t width = track.wideOffsets() ? 8 : 4;
  Bytes fresh;
  bool moved = false;
  ChunkCursor chunks(file_, track);
  for (Chunk chunk; chunks.Next(chunk);) {
    const bool behind = track.IsSelfContained(chunk.description) && chunk.offset >= movie_->box.end;
    const uint64_t place = chunk.offset + static_cast<uint64_t>(behind ? growth : 0);
    if (width == 4 && place > UINT32_MAX) Refuse("has places of 32 bits, which the " + what_ + " would pass");
    moved = moved || behind;
    PutNumber(fresh, place, width);
  }
  if (!moved) return;
  if (fresh.size() != table.count * width) Refuse("names chunks that 'stsc' does not");
  Overwrite(table.at, std::move(fresh));
}

std::unique_ptr<Source> TrackAddition::Joined() {
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

}  // namespace qlnmedia::mp4
