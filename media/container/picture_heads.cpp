// Reads a window of a few kilobytes where each unit begins.

#include "container/picture_heads.h"

#include <algorithm>
#include <utility>

#include "base/error.h"
#include "container/mkv/block.h"
#include "container/mp4/sample_table.h"

namespace qlnmedia {

namespace {

// What one read takes: the messages in front of most pictures, and the head of their first slice.
constexpr size_t kWindowBytes = 4096;

[[noreturn]] void FailTables(const MediaFile& file) {
  throw Error(file.path(), "its tables do not place its packets as they are read");
}

// Samples of a track, each held against the demuxer's own index: an edit list makes that leave out samples.
class TrackPlaces {
 public:
  TrackPlaces(const MediaFile& file, unsigned stream)
      : file_(file),
        stream_(stream),
        source_(file.path()),
        layout_(mp4::ReadLayout(source_)),
        samples_(source_, layout_, static_cast<uint32_t>(file.streams()[stream].id)) {}

  std::optional<PacketPlace> Next() {
    const std::optional<IndexedPacket> indexed = file_.PacketOfIndex(stream_, number_);
    mp4::Sample sample;
    if (!samples_.Next(sample)) {
      if (indexed) FailTables(file_);
      return {};
    }
    if (!indexed || indexed->position != static_cast<int64_t>(sample.offset) ||
        indexed->size != static_cast<int64_t>(sample.size) || !sample.inFile || sample.encrypted ||
        sample.description != 1)
      FailTables(file_);
    if (number_++ == 0) shift_ = indexed->time - sample.decodeTime;
    if (indexed->time - sample.decodeTime != shift_) FailTables(file_);
    return PacketPlace{sample.offset, sample.size, sample.compositionTime, sample.decodeTime};
  }

 private:
  const MediaFile& file_;
  unsigned stream_;
  mp4::FileSource source_;
  mp4::Layout layout_;
  mp4::TrackSamples samples_;
  int number_ = 0;
  int64_t shift_ = 0;
};

// The beginning of a file, as if it ended there.
class FrontSource final : public mp4::Source {
 public:
  FrontSource(const std::string& path, uint64_t size) : file_(path), size_(std::min(size, file_.size())) {}
  const std::string& name() const override { return file_.name(); }
  uint64_t size() const override { return size_; }
  void Read(uint64_t at, std::span<uint8_t> to) const override { file_.Read(at, to); }
  bool whole() const { return size_ == file_.size(); }

 private:
  mp4::FileSource file_;
  uint64_t size_;
};

// Frames of a track in blocks. Clusters have no table that is always there: as much of the file is gone over
// as is asked for, in steps of twice as much.
class BlockPlaces {
 public:
  // `bytes` is where to begin with.
  BlockPlaces(const MediaFile& file, unsigned stream, uint64_t bytes)
      : path_(file.path()), video_(VideosInFrontOf(file, stream)) {
    Open(bytes);
  }

  std::optional<PacketPlace> Next() {
    mkv::BlockView view;
    while (!cursor_->Next(view)) {
      if (source_->whole()) return {};
      Open(2 * source_->size());
      for (uint64_t i = 0; i < number_; ++i) {
        if (!cursor_->Next(view)) FailFrame();
      }
    }
    if (view.block.laced() || view.block.frames.size() != 1 || view.entry->encodings.touchesFrames() ||
        view.entry->description != 1 || view.segment != 0)
      FailFrame();
    ++number_;
    // Clusters without a size, and what lies in a piece of the file, may end within a block.
    const mkv::FramePlace& frame = view.block.frames.front();
    return PacketPlace{frame.at, frame.size, view.time, kNoTime};
  }

 private:
  // A stream does not say its track's number; of pictures there are as many tracks as streams.
  static size_t VideosInFrontOf(const MediaFile& file, unsigned stream) {
    const auto begin = file.streams().begin();
    return static_cast<size_t>(std::count_if(begin, begin + stream, [](const MediaStream& other) {
      return other.kind == StreamKind::kVideo && other.movingPictures;
    }));
  }

  uint64_t Track() const {
    constexpr uint64_t kVideoTrack = 1;
    size_t videos = 0;
    for (const uint64_t number : layout_.firstTracks) {
      if (layout_.tracks.at(number).front().type == kVideoTrack && videos++ == video_) return number;
    }
    FailFrame();
  }

  [[noreturn]] void FailFrame() const {
    throw Error(path_, "its blocks do not hold its packets as they are read");
  }

  void Open(uint64_t bytes) {
    cursor_.reset();
    source_.emplace(path_, bytes);
    layout_ = mkv::ReadLayout(*source_);
    const uint64_t track = Track();
    cursor_.emplace(*source_, layout_, [track](uint64_t number) { return number == track; });
  }

  std::string path_;
  size_t video_;  // how many tracks of pictures stand in front
  std::optional<FrontSource> source_;
  mkv::Layout layout_;
  std::optional<mkv::BlockCursor> cursor_;
  uint64_t number_ = 0;
};

}  // namespace

ByteSpan HeadReader::Window(uint64_t from, size_t bytes) {
  if (from < windowFrom_ || from - windowFrom_ > window_.size() ||
      window_.size() - (from - windowFrom_) < bytes) {
    window_.resize(static_cast<size_t>(std::min<uint64_t>(std::max(bytes, kWindowBytes), size_ - from)));
    windowFrom_ = from;
    source_.Read(at_ + from, window_);
  }
  return ByteSpan(window_).subspan(static_cast<size_t>(from - windowFrom_), bytes);
}

void HeadReader::Append(uint64_t from, size_t bytes) {
  const ByteSpan taken = Window(from, bytes);
  packet_.insert(packet_.end(), taken.begin(), taken.end());
}

uint64_t HeadReader::TakeUnit(uint64_t from, size_t length) {
  const uint64_t unit = from + lengthBytes_;
  if (length <= kSliceHeadBytes) {
    Append(from, lengthBytes_ + length);
    return unit + length;
  }
  const ByteSpan head = Window(unit, kSliceHeadBytes);
  // Units without a length of their own follow a start code.
  const bool cut = IsSlice(codec_, UnitType(codec_, head)) && !HoldsStartCode(head);
  const size_t taken = cut ? kSliceHeadBytes : length;
  for (size_t i = lengthBytes_; i-- > 0;) packet_.push_back(static_cast<uint8_t>(taken >> 8 * i));
  Append(unit, taken);
  return unit + length;
}

ByteSpan HeadReader::Read(uint64_t at, uint64_t size) {
  // No number of a file decides alone how much memory is taken.
  if (at > source_.size() || size > source_.size() - at)
    throw source_.Fault(at, "the file ends within a packet");
  at_ = at;
  size_ = size;
  window_.clear();
  windowFrom_ = 0;
  packet_.clear();
  uint64_t from = 0;
  while (size - from >= lengthBytes_) {
    size_t length = 0;
    for (const uint8_t byte : Window(from, lengthBytes_)) length = length << 8 | byte;
    if (length > size - from - lengthBytes_) break;
    from = TakeUnit(from, length);
  }
  // What no length covers says by its beginning that it is there.
  Append(from, static_cast<size_t>(std::min<uint64_t>(size - from, kSliceHeadBytes)));
  return packet_;
}

PacketPlaces PlacesOfStream(const MediaFile& file, unsigned stream, uint64_t bytes) {
  if (file.isPipe()) return {};
  if (file.isIso() && !file.isFragmented()) {
    const auto places = std::make_shared<TrackPlaces>(file, stream);
    return [places] { return places->Next(); };
  }
  if (file.isMatroska()) {
    const auto places = std::make_shared<BlockPlaces>(file, stream, bytes);
    return [places] { return places->Next(); };
  }
  return {};
}

}  // namespace qlnmedia
