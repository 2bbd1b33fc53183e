// Takes blocks apart, and laces frames again.

#include "container/mkv/block.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace qlnmedia::mkv {

namespace {

// What a hostile file says of times is cut to what can be reckoned with.
constexpr uint64_t kLongest = uint64_t{1} << 48;

// Where the bias of a signed number of so many bytes lies.
int64_t BiasOf(size_t bytes) { return (int64_t{1} << (7 * bytes - 1)) - 1; }

class LaceReader {
 public:
  LaceReader(Reader& reader, Block& block)
      : reader_(reader), block_(block), at_(block.flagsAt + 1), end_(block.element.end) {}

  void Run() {
    if (at_ == end_) Fail();
    const size_t frames = size_t{reader_.U8(at_++)} + 1;
    std::vector<uint64_t> sizes;
    const uint8_t kind = block_.flags & kLacing;
    if (kind == kXiphLacing) ReadXiph(frames, sizes);
    if (kind == kEbmlLacing) ReadEbml(frames, sizes);
    if (kind == kFixedLacing && (end_ - at_) % frames == 0) sizes.assign(frames, (end_ - at_) / frames);
    uint64_t left = end_ - at_;
    if (kind != kFixedLacing && sizes.size() + 1 == frames) {
      uint64_t all = 0;
      for (const uint64_t size : sizes) {
        if (size > left - all) Fail();
        all += size;
      }
      sizes.push_back(left - all);
    }
    if (sizes.size() != frames) Fail();
    for (const uint64_t size : sizes) {
      block_.frames.push_back({at_, size});
      at_ += size;
    }
  }

 private:
  [[noreturn]] void Fail() const {
    throw reader_.source().Fault(block_.element.at, "the frames of a block are not as its lacing says");
  }

  void ReadXiph(size_t frames, std::vector<uint64_t>& sizes) {
    while (sizes.size() + 1 < frames) {
      uint64_t size = 0;
      for (uint8_t byte = 0xFF; byte == 0xFF; size += byte) {
        if (at_ == end_) Fail();
        byte = reader_.U8(at_++);
      }
      sizes.push_back(size);
    }
  }

  void ReadEbml(size_t frames, std::vector<uint64_t>& sizes) {
    while (sizes.size() + 1 < frames) {
      const std::optional<Number> number = ReadNumber(reader_, at_, end_);
      if (!number) Fail();
      at_ += number->bytes;
      block_.sizeWidths.push_back(static_cast<uint8_t>(number->bytes));
      auto size = static_cast<int64_t>(number->value);
      if (!sizes.empty()) size += static_cast<int64_t>(sizes.back()) - BiasOf(number->bytes);
      if (size < 0 || static_cast<uint64_t>(size) > end_ - at_) Fail();
      sizes.push_back(static_cast<uint64_t>(size));
    }
  }

  Reader& reader_;
  Block& block_;
  uint64_t at_;
  uint64_t end_;
};

void PutXiph(Bytes& out, const std::vector<Bytes>& frames) {
  for (size_t i = 0; i + 1 < frames.size(); ++i) {
    size_t size = frames[i].size();
    for (; size >= 0xFF; size -= 0xFF) out.push_back(0xFF);
    out.push_back(static_cast<uint8_t>(size));
  }
}

void PutEbml(Bytes& out, const Block& block, const std::vector<Bytes>& frames) {
  for (size_t i = 0; i + 1 < frames.size(); ++i) {
    size_t bytes = i < block.sizeWidths.size() ? block.sizeWidths[i] : 1;
    uint64_t value = frames[i].size();
    if (i == 0) {
      bytes = std::max(bytes, SizeBytesFor(value));
    } else {
      const auto step = static_cast<int64_t>(value) - static_cast<int64_t>(frames[i - 1].size());
      while (bytes < 8 && (step > BiasOf(bytes) || step < -BiasOf(bytes))) ++bytes;
      value = static_cast<uint64_t>(step + BiasOf(bytes));
    }
    const Bytes number = NumberOf(value, bytes);
    out.insert(out.end(), number.begin(), number.end());
  }
}

}  // namespace

Block ReadBlockHead(Reader& reader, const Element& element) {
  constexpr uint64_t kBehindTrack = 3;  // time and flags
  const std::optional<Number> track = ReadNumber(reader, element.body, element.end);
  if (!track || element.size() < track->bytes + kBehindTrack)
    throw reader.source().Fault(element.at, "a block is too short for its head");
  Block block;
  block.element = element;
  block.track = track->value;
  block.time = static_cast<int16_t>(reader.U16(element.body + track->bytes));
  block.flagsAt = element.body + track->bytes + 2;
  block.flags = reader.U8(block.flagsAt);
  return block;
}

void ReadFrames(Reader& reader, Block& block) {
  if (block.laced()) {
    LaceReader(reader, block).Run();
  } else {
    block.frames.push_back({block.flagsAt + 1, block.element.end - block.flagsAt - 1});
  }
  for (const FramePlace& frame : block.frames) {
    if (frame.size > UINT32_MAX) throw reader.source().Fault(frame.at, "a frame is longer than 4 GiB");
  }
}

Bytes MakeLaced(const Block& block, const std::vector<Bytes>& frames) {
  uint8_t kind = block.flags & kLacing;
  const auto other = [&](const Bytes& frame) { return frame.size() != frames.front().size(); };
  if (kind == kFixedLacing && std::any_of(frames.begin(), frames.end(), other)) kind = kEbmlLacing;
  Bytes out{static_cast<uint8_t>((block.flags & ~kLacing) | kind), static_cast<uint8_t>(frames.size() - 1)};
  if (kind == kXiphLacing) PutXiph(out, frames);
  if (kind == kEbmlLacing) PutEbml(out, block, frames);
  for (const Bytes& frame : frames) out.insert(out.end(), frame.begin(), frame.end());
  return out;
}

int64_t BlockView::TimeOf(size_t frame) const {
  if (frame == 0) return time;
  if (duration == 0) return kNoFrameTime;
  return time + static_cast<int64_t>(duration * frame / block.frames.size());
}

bool BlockCursor::OpenCluster() {
  while (segment_ < layout_.segments.size() && cluster_ == layout_.segments[segment_].clusters.size()) {
    ++segment_;
    cluster_ = 0;
  }
  if (segment_ == layout_.segments.size()) return false;
  const Segment& segment = layout_.segments[segment_];
  const Cluster& cluster = segment.clusters[cluster_++];
  at_ = ReadElement(reader_, cluster.at, cluster.end, segment.limits).body;
  end_ = cluster.end;
  clusterTime_ = 0;
  return true;
}

bool BlockCursor::Next(BlockView& view) {
  for (;;) {
    while (at_ >= end_) {
      if (!OpenCluster()) return false;
    }
    const Element element = ReadSizedElement(reader_, at_, end_, layout_.segments[segment_].limits);
    at_ = element.end;
    if (element.id == id::kTimestamp) clusterTime_ = ReadUnsigned(reader_, element);
    if (element.id == id::kSimpleBlock && TakeBlock(element, view)) {
      view.key = (view.block.flags & kKeyframe) != 0;
      return true;
    }
    if (element.id == id::kBlockGroup && TakeGroup(element, view)) return true;
  }
}

bool BlockCursor::TakeGroup(const Element& group, BlockView& view) {
  std::optional<Element> block;
  uint64_t duration = 0;
  bool references = false;
  ForEachElement(reader_, group.body, group.end, layout_.segments[segment_].limits,
                 [&](const Element& child) {
                   if (child.id == id::kBlock && !block) block = child;
                   if (child.id == id::kBlockDuration) duration = ReadUnsigned(reader_, child);
                   if (child.id == id::kReferenceBlock) references = true;
                 });
  if (!block || !TakeBlock(*block, view)) return false;
  view.key = !references;
  if (duration != 0) view.duration = std::min(duration, kLongest);
  return true;
}

bool BlockCursor::TakeBlock(const Element& element, BlockView& view) {
  Block block = ReadBlockHead(reader_, element);
  if (std::find(tracks_.begin(), tracks_.end(), block.track) == tracks_.end()) return false;
  const Entry* const entry =
      layout_.EntryOf(block.track, segment_, layout_.segments[segment_].clusters[cluster_ - 1].at);
  if (entry == nullptr) return false;
  ReadFrames(reader_, block);
  const uint64_t scale = layout_.segments[segment_].timestampScale;

  const uint64_t all = std::min(entry->defaultDuration, kLongest) * block.frames.size();
  view.duration = scale == 0 ? 0 : all / scale;
  view.time = static_cast<int64_t>(std::min(clusterTime_, kLongest)) + block.time;
  view.entry = entry;
  view.segment = segment_;
  view.block = std::move(block);
  return true;
}

}  // namespace qlnmedia::mkv
