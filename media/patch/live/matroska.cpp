// Goes from element to element, and holds back none but behind a picture whose place is not known yet.

#include "patch/live/matroska.h"

#include <fmt/format.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <utility>

#include "base/error.h"
#include "base/rational.h"
#include "container/mkv/live_block.h"
#include "container/mkv/live_head.h"
#include "patch/container_facts.h"
#include "patch/sample_units.h"
#include "qlnmedia/progress.h"

namespace qlnmedia {

namespace {

namespace id = mkv::id;

constexpr uint64_t kVideoTrack = 1;
constexpr uint64_t kNanoseconds = 1000000000;

VideoCodec CodecOfTrack(const mkv::Entry& entry) {
  if (entry.type != kVideoTrack) return VideoCodec::kOther;
  if (entry.codec == "V_MPEG4/ISO/AVC") return VideoCodec::kH264;
  return entry.codec == "V_MPEGH/ISO/HEVC" ? VideoCodec::kHevc : VideoCodec::kOther;
}

class LiveMatroska {
 public:
  explicit LiveMatroska(const LiveWork& work)
      : work_(work),
        head_(mkv::ReadLiveHead(work.source)),
        memory_(head_, work.options.in),
        layout_(mkv::ReadLayout(memory_)) {
    const mkv::Segment& segment = layout_.segments.front();
    limits_ = segment.limits;
    limits_.cutEnd = 0;
    mp4::Change change;
    for (size_t i = 0; i < layout_.firstTracks.size(); ++i) {
      const mkv::Entry& entry = layout_.tracks.at(layout_.firstTracks[i]).front();
      if (CodecOfTrack(entry) != VideoCodec::kOther) AddTrack(static_cast<unsigned>(i), entry, change);
    }
    if (tracks_.empty()) throw Error(work.options.in, "has no H.264 or HEVC stream");
    const Bytes made = mkv::MakeLiveHead(head_, change, work.options.in);
    for (const auto& [number, track] : tracks_) {
      if (const std::string note = track.live->OrderNote(); !note.empty()) work.report(note);
    }
    work.sink.Write(made);
  }

  std::vector<std::string> Run() {
    uint64_t at = head_.size();
    try {
      while (const std::optional<uint64_t> next = TakeNext(at)) at = *next;
    } catch (const Cancelled&) {
      throw;
    } catch (const Error& error) {
      // What has gone out ends with a whole element.
      broken_ = error.what();
    }
    Settle();
    if (!broken_.empty()) throw Error({}, broken_);
    const uint64_t left = passed_ ? 0 : work_.source.Available(at, 0);
    if (left != 0)
      work_.report(fmt::format("{}: breaks off within an element at byte {}: {} bytes of it are left out",
                               work_.options.in, at, left));
    return Summary();
  }

 private:
  struct Track {
    std::unique_ptr<LiveStream> live;
    mkv::Encodings encodings;
  };
  // An element on its way.
  struct Item {
    Bytes bytes;
    std::unique_ptr<mkv::LiveBlock> block;  // null for what has no pictures that are edited
    Track* track = nullptr;
    std::vector<Bytes> frames;
    size_t back = 0;  // of the frames
    bool changed = false;
  };

  void AddTrack(unsigned index, const mkv::Entry& entry, mp4::Change& change) {
    const std::string where = fmt::format("{}: stream {}", work_.options.in, index);
    if (entry.encodings.encryptsFrames())
      throw Error(where, "is encrypted, and what is asked for changes its pictures", "decrypt it first");
    StreamDescription stream;
    stream.codec = CodecOfTrack(entry);
    stream.privateData = mkv::ReadPrivateData(memory_, entry);
    const uint64_t scale = layout_.segments.front().timestampScale;
    stream.timeBase = Reduced(scale, kNanoseconds);
    if (entry.defaultDuration != 0) stream.averageRate = RateOf(entry.defaultDuration);
    LiveCaptions* const captions = tracks_.empty() ? work_.captions : nullptr;
    Track& track = tracks_[entry.number];
    track.encodings = entry.encodings;
    track.live = std::make_unique<LiveStream>(index, stream, work_.options, captions, work_.report);
    if (!work_.options.beyondCaptions()) return;
    mp4::TrackChange changes{.trackId = static_cast<uint32_t>(entry.number)};
    changes.facts = FactsOf(work_.options, stream);
    if (entry.privateData.end != 0)
      changes.privateData.push_back(
          {1, static_cast<uint32_t>(entry.privateData.id), track.live->privateData()});
    if (work_.options.cropping) {
      const Codec codec = track.live->codec();
      std::optional<mp4::PictureSize> size =
          PictureSizeOf(codec, ReadConfigRecord(codec, stream.privateData).units(),
                        ReadConfigRecord(codec, track.live->privateData()).units());
      if (size) changes.pictures.push_back(*size);
    }
    change.tracks.push_back(std::move(changes));
  }

  // Whole nanoseconds stand for a rate that timecodes and captions know.
  static Rational RateOf(uint64_t duration) {
    for (const Rational rate :
         {Rational{24000, 1001}, {24, 1}, {25, 1}, {30000, 1001}, {30, 1}, {50, 1}, {60000, 1001}, {60, 1}}) {
      const double exact = static_cast<double>(kNanoseconds) / rate.value();
      if (exact - static_cast<double>(duration) < 2 && static_cast<double>(duration) - exact < 2) return rate;
    }
    return Reduced(kNanoseconds, duration);
  }

  // Returns the place behind the element; nothing where the stream ends.
  std::optional<uint64_t> TakeNext(uint64_t at) {
    work_.progress(at);
    work_.source.LetGo(at);
    std::optional<mkv::Element> element;
    try {
      element = mkv::AwaitElement(work_.source, at, limits_);
    } catch (const Error& error) {
      return SkipTo(at, error);
    }
    if (!element) return {};
    if (element->id == id::kCluster) {
      TakeCluster(*element);
      return element->body;
    }
    if (element->id == id::kEbml || element->id == id::kSegment) {
      work_.report(
          fmt::format("{}: another segment begins at byte {}: passed on as it came", work_.options.in, at));
      return PassRest(at);
    }
    Bytes bytes(static_cast<size_t>(element->end - at));
    work_.source.Read(at, bytes);
    TakeElement(*element, std::move(bytes));
    Send();
    return element->end;
  }

  // It says no size: what is in it may grow.
  void TakeCluster(const mkv::Element& cluster) {
    Bytes bytes(static_cast<size_t>(cluster.sizeAt() - cluster.at));
    work_.source.Read(cluster.at, bytes);
    const Bytes size = mkv::UnknownSize(cluster.sizeBytes);
    bytes.insert(bytes.end(), size.begin(), size.end());
    time_ = 0;
    Put(std::move(bytes));
    Send();
  }

  void TakeElement(const mkv::Element& element, Bytes bytes) {
    const auto body = static_cast<size_t>(element.body - element.at);
    switch (element.id) {
      case id::kTimestamp:
        time_ = 0;
        for (size_t i = body; i < bytes.size(); ++i) time_ = time_ << 8 | bytes[i];
        break;
      case id::kPosition:
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(body), bytes.end(), uint8_t{0});
        break;
      case id::kCrc:
        bytes[0] = static_cast<uint8_t>(id::kVoid);
        break;
      case id::kPrevSize:
      case id::kCues:
      case id::kSeekHead:
        bytes = mkv::VoidOf(bytes.size());
        break;
      case id::kSimpleBlock:
      case id::kBlockGroup:
        return TakeBlock(element.at, std::move(bytes));
      case id::kTracks:
        work_.report(
            fmt::format("{}: at byte {}: another list of tracks: passed on as it came; pictures are "
                        "taken for what the first one says",
                        work_.options.in, element.at));
        break;
      default:
        break;
    }
    Put(std::move(bytes));
  }

  void TakeBlock(uint64_t at, Bytes bytes) {
    Item item;
    try {
      item.block = std::make_unique<mkv::LiveBlock>(bytes, limits_, work_.options.in);
      const auto track = tracks_.find(item.block->track());
      if (track == tracks_.end()) return Put(std::move(bytes));
      item.track = &track->second;
      item.frames = item.block->Frames(item.track->encodings);
    } catch (const Error& error) {
      work_.report(
          fmt::format("{}: at byte {}: {}: passed on as it came", work_.options.in, at, error.problem()));
      return Put(std::move(bytes));
    }
    LiveStream& live = *item.track->live;
    for (size_t i = 0; i < item.frames.size(); ++i) {
      const int64_t pts = i == 0 ? static_cast<int64_t>(time_) + item.block->time() : kNoTime;
      live.Push(item.frames[i], pts, kNoTime, item.block->key(), at);
    }
    items_.push_back(std::move(item));
  }

  void Put(Bytes bytes) {
    if (items_.empty()) return work_.sink.Write(bytes);
    items_.emplace_back();
    items_.back().bytes = std::move(bytes);
  }

  void Send() {
    for (; !items_.empty(); items_.pop_front()) {
      Item& item = items_.front();
      if (item.block == nullptr) {
        work_.sink.Write(item.bytes);
        continue;
      }
      for (; item.back < item.frames.size(); ++item.back) {
        std::optional<LiveStream::Picture> picture = item.track->live->Pull();
        if (!picture) return;
        if (picture->changed) item.frames[item.back] = std::move(picture->data);
        item.changed = item.changed || picture->changed;
      }
      work_.sink.Write(item.changed ? item.block->With(item.frames, item.track->encodings)
                                    : item.block->bytes());
    }
  }

  // Nothing waits behind it.
  void Settle() {
    for (auto& [number, track] : tracks_) track.live->Break();
    Send();
  }

  // What is no element passes on, up to the next cluster behind it.
  std::optional<uint64_t> SkipTo(uint64_t at, const Error& error) {
    work_.report(fmt::format("{}: at byte {}: {}: passed on as it came up to the next cluster",
                             work_.options.in, at, error.problem()));
    Settle();
    static constexpr uint8_t kCluster[] = {0x1F, 0x43, 0xB6, 0x75};
    const uint64_t begin = at;
    for (Bytes four(sizeof kCluster);; ++at) {
      const uint64_t there = work_.source.Available(at, sizeof kCluster);
      if (there < sizeof kCluster) return PassRest(at);
      work_.source.Read(at, four);
      if (at != begin && std::equal(four.begin(), four.end(), kCluster)) return at;
      work_.source.LetGo(at);
      Put({four.front()});
    }
  }

  std::optional<uint64_t> PassRest(uint64_t at) {
    constexpr uint64_t kPart = 64 << 10;
    Settle();
    while (const uint64_t there = work_.source.Available(at, 1)) {
      Bytes bytes(static_cast<size_t>(std::min(there, kPart)));
      work_.source.Read(at, bytes);
      at += bytes.size();
      work_.source.LetGo(at);
      Put(std::move(bytes));
    }
    passed_ = true;
    return {};
  }

  std::vector<std::string> Summary() const {
    std::vector<std::string> lines;
    for (const auto& [number, track] : tracks_) {
      for (std::string& line : track.live->Summary()) lines.push_back(std::move(line));
    }
    return lines;
  }

  const LiveWork& work_;
  Bytes head_;
  mp4::MemorySource memory_;
  mkv::Layout layout_;
  mkv::Limits limits_;
  std::map<uint64_t, Track> tracks_;  // by number
  std::deque<Item> items_;            // from the first that is not settled on
  uint64_t time_ = 0;                 // of the cluster
  std::string broken_;
  bool passed_ = false;
};

}  // namespace

std::vector<std::string> PatchLiveMatroska(const LiveWork& work) { return LiveMatroska(work).Run(); }

}  // namespace qlnmedia
