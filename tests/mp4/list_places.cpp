#include "mp4/list_places.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace qln::test::mp4 {

namespace {

class PlaceLister {
 public:
  PlaceLister(const Bytes& file, const Listing& listing) : file_(file), listing_(listing) {}

  Places List() {
    const Node* index = nullptr;  // the segment index in front
    for (const Node& node : listing_.boxes) {
      if (node.type == "sidx") TakeSegmentIndex(node);
      if (node.type == "ssix" && index != nullptr) TakeSubsegments(node, *index);
      if (node.type == "tfra") TakeRandomAccess(node);
      if (node.type == "saio") TakeAuxiliary(node);
      if (node.type == "subs") TakeSubSamples(node);
      if (node.type == "tfhd" && (Get(node.at + node.head + 3, 1) & 1) != 0)
        Field(node.at + node.head + 8, 8);
      if (node.type == "mfro") Field(node.at + node.head + 4, 4);
      if (node.type == "meta" || node.type == "udta" || node.type == "meco")
        Items(node.at, node.at + node.size);
      if (node.path == node.type) index = node.type == "sidx" ? &node : nullptr;
    }
    return std::move(out_);
  }

 private:
  uint64_t Get(size_t at, size_t bytes) const {
    if (at > file_.size() || bytes > file_.size() - at) throw std::runtime_error("an entry is cut off");
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) value = value * 256 + file_[at + i];
    return value;
  }
  void Field(size_t at, size_t bytes) { out_.fields.push_back({at, bytes}); }

  struct Index {
    uint64_t dataAt = 0;
    std::vector<uint32_t> entries;  // as they stand
  };
  Index ReadIndex(const Node& node) const {
    Index index;
    const size_t body = node.at + node.head;
    const size_t wide = Get(body, 1) == 0 ? 4 : 8;
    index.dataAt = node.at + node.size + Get(body + 12 + wide, wide);
    const size_t entries = body + 16 + 2 * wide;
    for (size_t i = 0; i < Get(entries - 2, 2); ++i)
      index.entries.push_back(static_cast<uint32_t>(Get(entries + 12 * i, 4)));
    return index;
  }

  void TakeSegmentIndex(const Node& node) {
    const Index index = ReadIndex(node);
    const size_t wide = Get(node.at + node.head, 1) == 0 ? 4 : 8;
    Field(node.at + node.head + 12 + wide, wide);
    uint64_t at = index.dataAt;
    for (size_t i = 0; i < index.entries.size(); ++i) {
      const uint64_t size = index.entries[i] & 0x7FFFFFFF;
      out_.places.push_back({"sidx entry " + std::to_string(i), at, at + size, {index.entries[i] >> 31}});
      Field(node.at + node.head + 16 + 2 * wide + 12 * i, 4);
      at += size;
    }
  }

  void TakeSubsegments(const Node& node, const Node& before) {
    const Index index = ReadIndex(before);
    size_t at = node.at + node.head + 8;
    uint64_t begin = index.dataAt;
    uint64_t left = Get(node.at + node.head + 4, 4);
    for (const uint32_t entry : index.entries) {
      uint64_t place = begin;
      begin += entry & 0x7FFFFFFF;
      if (entry >> 31 != 0 || left-- == 0) continue;
      const uint64_t ranges = Get(at, 4);
      at += 4;
      for (uint64_t i = 0; i < ranges; ++i, at += 4) {
        const uint64_t size = Get(at + 1, 3);
        out_.places.push_back({"ssix range", place, place + size, {Get(at, 1)}});
        Field(at + 1, 3);
        place += size;
      }
    }
  }

  void TakeRandomAccess(const Node& node) {
    const size_t body = node.at + node.head;
    const size_t wide = Get(body, 1) == 0 ? 4 : 8;
    const uint64_t lengths = Get(body + 8, 4);
    const size_t numbers = 3 + (lengths & 3) + (lengths / 4 & 3) + (lengths / 16 & 3);
    size_t at = body + 16;
    for (uint64_t i = 0; i < Get(body + 12, 4); ++i) {
      const uint64_t place = Get(at + wide, wide);
      out_.places.push_back({"tfra entry " + std::to_string(i),
                             place,
                             place,
                             {Get(at, wide), Get(at + 2 * wide, std::min<size_t>(numbers, 8))}});
      Field(at + wide, wide);
      at += 2 * wide + numbers;
    }
  }

  // The track fragment around a box, or null.
  const FragmentBase* FragmentOf(const Node& node) const {
    for (const Node& around : listing_.boxes) {
      if (around.type == "traf" && around.at < node.at && node.at < around.at + around.size)
        return &listing_.fragments.at(around.at);
    }
    return nullptr;
  }

  void TakeAuxiliary(const Node& node) {
    const size_t body = node.at + node.head;
    const size_t wide = Get(body, 1) == 0 ? 4 : 8;
    const size_t head = body + ((Get(body + 3, 1) & 1) != 0 ? 12 : 4);
    const FragmentBase* const fragment = FragmentOf(node);
    for (uint64_t i = 0; i < Get(head, 4); ++i) {
      const size_t at = head + 4 + i * wide;
      const uint64_t place =
          Get(at, wide) + (fragment == nullptr ? 0 : static_cast<uint64_t>(fragment->base));
      out_.places.push_back({"saio entry " + std::to_string(i), place, place});
      Field(at, wide);
    }
  }

  uint32_t TrackOf(const Node& node) const {
    uint32_t id = 0;
    for (const Node& box : listing_.boxes) {
      if (box.at > node.at) break;
      if (box.type == "tkhd") {
        const size_t body = box.at + box.head;
        id = static_cast<uint32_t>(Get(body + (Get(body, 1) == 1 ? 20 : 12), 4));
      }
    }
    return id;
  }

  void TakeSubSamples(const Node& node) {
    const FragmentBase* const fragment = FragmentOf(node);
    const auto& samples = listing_.samples.at(fragment == nullptr ? TrackOf(node) : fragment->track);
    size_t sample = fragment == nullptr ? 0 : fragment->firstSample;
    const size_t body = node.at + node.head;
    const size_t wide = Get(body, 1) == 1 ? 4 : 2;
    size_t at = body + 8;
    for (uint64_t entry = 0; entry < Get(body + 4, 4); ++entry) {
      sample += Get(at, 4);
      const uint64_t parts = Get(at + 4, 2);
      at += 6;
      uint64_t place = parts == 0 ? 0 : samples.at(sample - 1).at;
      for (uint64_t i = 0; i < parts; ++i, at += wide + 6) {
        const uint64_t size = Get(at, wide);
        out_.places.push_back({"subs part " + std::to_string(i) + " of sample " + std::to_string(sample),
                               place,
                               place + size,
                               {Get(at + wide, 6)}});
        Field(at, wide);
        place += size;
      }
    }
  }

  // Every `iloc` at any depth of the boxes that hold items.
  void Items(size_t at, size_t end) {
    while (end - at >= 8) {
      const uint64_t size = Get(at, 4);
      const std::string type(file_.begin() + static_cast<std::ptrdiff_t>(at + 4),
                             file_.begin() + static_cast<std::ptrdiff_t>(at + 8));
      if (size < 8 || size > end - at) return;
      if (type == "udta" || type == "meco") Items(at + 8, at + size);
      if (type == "meta" && size >= 20) {
        // QuickTime gives it no version.
        const bool plain = Get(at + 12, 4) == 0x68646C72;
        Items(at + (plain ? 8 : 12), at + size);
      }
      if (type == "iloc") TakeItems(at + 8);
      at += size;
    }
  }

  void TakeItems(size_t at) {
    const uint64_t version = Get(at, 1);
    const uint64_t widths = Get(at + 4, 2);
    at += 6;
    const auto next = [&](size_t bytes) {
      at += bytes;
      return Get(at - bytes, bytes);
    };
    const size_t offsetBytes = widths >> 12;
    const size_t lengthBytes = widths >> 8 & 15;
    const size_t baseBytes = widths >> 4 & 15;
    const uint64_t items = next(version < 2 ? 2 : 4);
    for (uint64_t i = 0; i < items; ++i) {
      const uint64_t id = next(version < 2 ? 2 : 4);
      const uint64_t method = version == 0 ? 0 : next(2);
      const uint64_t reference = next(2);
      const bool here = method == 0 && reference == 0;
      if (here) Field(at, baseBytes);
      const uint64_t base = next(baseBytes);
      const uint64_t extents = next(2);
      for (uint64_t extent = 0; extent < extents; ++extent) {
        if (version != 0) next(widths & 15);
        if (here) Field(at, offsetBytes);
        const uint64_t begin = base + next(offsetBytes);
        if (here) Field(at, lengthBytes);
        const uint64_t length = next(lengthBytes);
        const std::string name = "item " + std::to_string(id);
        // A length of 0 is all of the file.
        if (here && length != 0) out_.places.push_back({name, begin, begin + length});
        if (!here) out_.places.push_back({name, 0, 0, {begin, length}});
      }
    }
  }

  const Bytes& file_;
  const Listing& listing_;
  Places out_;
};

}  // namespace

Places ListPlaces(const Bytes& file, const Listing& listing) { return PlaceLister(file, listing).List(); }

PlaceMap::PlaceMap(const Bytes& input, const Listing& in, const Bytes& output, const Listing& out)
    : inSize_(input.size()), outSize_(output.size()) {
  for (size_t i = 0; i < std::min(in.boxes.size(), out.boxes.size()); ++i) {
    const Node& a = in.boxes[i];
    const Node& b = out.boxes[i];
    anchors_.emplace_back(a.at, b.at);
    anchors_.emplace_back(a.at + a.head, b.at + b.head);
    anchors_.emplace_back(a.at + a.size, b.at + b.size);
  }
  for (const auto& [track, samples] : in.samples) {
    const auto& others = out.samples.at(track);
    for (size_t i = 0; i < samples.size(); ++i) {
      const Bytes& was = samples[i].data;
      const Bytes& is = others.at(i).data;
      const auto front = std::mismatch(was.begin(), was.end(), is.begin(), is.end()).first - was.begin();
      const auto back = std::mismatch(was.rbegin(), was.rend(), is.rbegin(), is.rend()).first - was.rbegin();
      samples_.push_back({samples[i].at, samples[i].at + was.size(), others[i].at, others[i].at + is.size(),
                          static_cast<uint64_t>(front), static_cast<uint64_t>(back)});
      anchors_.emplace_back(samples[i].at, others[i].at);
      anchors_.emplace_back(samples[i].at + was.size(), others[i].at + is.size());
    }
  }
  std::sort(anchors_.begin(), anchors_.end());
  std::sort(samples_.begin(), samples_.end(),
            [](const Piece& a, const Piece& b) { return a.begin < b.begin; });
}

bool PlaceMap::Is(uint64_t before, uint64_t after) const {
  if (before >= inSize_) return after == outSize_ + (before - inSize_);
  auto found = std::upper_bound(samples_.begin(), samples_.end(), before,
                                [](uint64_t at, const Piece& piece) { return at < piece.begin; });
  if (found != samples_.begin() && before > (--found)->begin && before < found->end) {
    const uint64_t at = before - found->begin;
    const uint64_t left = found->end - before;
    if (at <= found->front && after == found->outBegin + at) return true;
    if (left <= found->back && after == found->outEnd - left) return true;
    // In the midst of what changed.
    return at > found->front && left > found->back && after >= found->outBegin + found->front &&
           after <= found->outEnd - found->back;
  }
  const auto behind = std::upper_bound(anchors_.begin(), anchors_.end(), std::pair{before, UINT64_MAX});
  if (behind == anchors_.begin()) return before == after;
  const uint64_t from = std::prev(behind)->first;
  const auto first = std::lower_bound(anchors_.begin(), anchors_.end(), std::pair{from, uint64_t{0}});
  return std::any_of(first, behind,
                     [&](const auto& anchor) { return after == anchor.second + (before - from); });
}

}  // namespace qln::test::mp4
