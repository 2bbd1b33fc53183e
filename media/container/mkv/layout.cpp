// One walk over segments and what stands in them; clusters are stepped over where they say their size.

#include "container/mkv/layout.h"
#include "base/error.h"
#include "base/read_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace qlnmedia::mkv {

namespace {

// More than any track says of itself; the picture of a private data field included.
constexpr uint64_t kMostText = 256;
constexpr uint64_t kMostPrivateData = uint64_t{16} << 20;
// Live streams tell their tracks again and again, hostile files as often as they can.
constexpr size_t kMostEntries = 200000;
constexpr uint32_t kMostDescriptions = 4096;
// What is left of an element that is cut off: more is damage.
constexpr uint64_t kMostLeft = uint64_t{64} << 20;
// BITMAPINFOHEADER, which stands in front of what the codec says.
constexpr size_t kBitmapHead = 40;

// What stands in a segment, so that it ends a cluster without a size.
bool StandsInSegment(uint64_t id) {
  return id == id::kSeekHead || id == id::kInfo || id == id::kTracks || id == id::kCues ||
         id == id::kCluster || id == id::kTags || id == id::kAttachments || id == id::kChapters;
}

bool StandsAtTop(uint64_t id) { return id == id::kEbml || id == id::kSegment; }

class LayoutReader {
 public:
  explicit LayoutReader(const Source& source) : source_(source), reader_(source) {
    limits_.cutEnd = source.size();
  }

  Layout Run() {
    const uint64_t size = source_.size();
    uint64_t at = 0;
    while (at < size && !layout_.cutAt) {
      const std::optional<Element> element = Top(at, size);
      if (!element) break;
      if (element->id == id::kEbml) ReadHead(*element);
      at = element->id == id::kSegment ? ReadSegment(*element) : element->end;
    }
    if (layout_.segments.empty()) throw source_.Fault(at, "there is no segment");
    return std::move(layout_);
  }

 private:
  struct Said {
    std::string codec;
    Bytes privateData, encodings;
    auto operator<=>(const Said&) const = default;
  };

  // What stands behind the segments need not be elements.
  std::optional<Element> Top(uint64_t at, uint64_t size) {
    const bool behind = !layout_.segments.empty();
    try {
      const std::optional<Element> element = FindElement(reader_, at, size, limits_);
      if (element && (!element->open || element->id == id::kSegment)) return element;
    } catch (const ReadError&) {
      throw;
    } catch (const Error&) {
      if (!behind || (size - at >= 4 && StandsAtTop(reader_.Number(at, 4)))) throw;
      return {};
    }
    if (!behind) throw source_.Fault(at, "there is no EBML element");
    return {};
  }

  void ReadHead(const Element& head) {
    limits_ = {.cutEnd = source_.size()};
    ForEachElement(reader_, head.body, head.end, limits_, [&](const Element& child) {
      const bool length = child.id == id::kEbmlMaxIdLength || child.id == id::kEbmlMaxSizeLength;
      if (!length) return;
      const uint64_t most = ReadUnsigned(reader_, child);
      if (most == 0 || most > 8)
        throw source_.Fault(child.at, fmt::format("identifiers or sizes of {} bytes are not read", most));
      (child.id == id::kEbmlMaxIdLength ? next_.idBytes : next_.sizeBytes) = static_cast<size_t>(most);
    });
    limits_ = std::exchange(next_, {});
    limits_.cutEnd = source_.size();
    // The identifiers of Matroska have up to 4 bytes, whatever a head says.
    limits_.idBytes = std::max<size_t>(limits_.idBytes, 4);
  }

  // Returns where it ends.
  uint64_t ReadSegment(const Element& element) {
    layout_.segments.push_back({.element = element, .limits = limits_});
    uint64_t at = element.body;
    while (at < element.end && !IsCutOff(element, at)) {
      const Element child = ReadElement(reader_, at, element.end, limits_);
      if (element.open && StandsAtTop(child.id)) break;
      if (child.missing != 0 && child.id != id::kCluster)
        throw source_.Fault(child.at,
                            fmt::format("the element {} is longer than what holds it", IdName(child.id)));
      at = child.id == id::kCluster ? ReadCluster(child) : child.end;
      if (child.open && child.id != id::kCluster)
        throw source_.Fault(child.at, fmt::format("the element {} does not say its size", IdName(child.id)));
      Segment& segment = layout_.segments.back();
      if (child.id == id::kSeekHead || child.id == id::kCues) segment.indexes.push_back(child);
      if (child.id == id::kInfo) ReadInfo(child, segment);
      if (child.id == id::kTracks) ReadTracks(child);
      if (layout_.cutAt) break;
    }
    Segment& segment = layout_.segments.back();
    if (!element.open && (element.missing != 0 || layout_.cutAt)) segment.element.missing += element.end - at;
    segment.element.end = at;
    segment.limits.cutEnd = element.missing != 0 || clusterCut_ || layout_.cutAt ? at : 0;
    return at;
  }

  // Whether the file ends within the element at a place, of which then only the place is noted.
  bool IsCutOff(const Element& parent, uint64_t at) {
    const uint64_t end = parent.end;
    if (end != source_.size() || (parent.missing == 0 && !parent.open) || end - at > kMostLeft) return false;
    const auto breaksOff = [&](uint64_t from) { return from >= end || reader_.U8(from) != 0; };
    const std::optional<Number> head = ReadNumber(reader_, at, end);
    if (!head || head->bytes > limits_.idBytes) {
      if (head || !breaksOff(at)) return false;
      layout_.cutAt = at;
      return true;
    }
    const std::optional<Number> size = ReadNumber(reader_, at + head->bytes, end);
    const bool cut = size ? !size->allOnes && size->value > end - at - head->bytes - size->bytes &&
                                reader_.Number(at, head->bytes) != id::kCluster
                          : breaksOff(at + head->bytes);
    if (cut) layout_.cutAt = at;
    return cut;
  }

  uint64_t ReadCluster(const Element& cluster) {
    uint64_t end = cluster.end;
    clusterCut_ = cluster.missing != 0;
    if (cluster.open || cluster.missing != 0) {
      end = cluster.body;
      while (end < cluster.end && !IsCutOff(cluster, end)) {
        const Element child = ReadElement(reader_, end, cluster.end, limits_);
        const bool ends = StandsInSegment(child.id) || StandsAtTop(child.id);
        if (ends && !cluster.open)
          throw source_.Fault(cluster.at,
                              fmt::format("the element {} is longer than what holds it", IdName(cluster.id)));
        if (ends) break;
        end = ReadSizedElement(reader_, end, cluster.end, limits_).end;
      }
    }
    layout_.segments.back().clusters.push_back({cluster.at, end});
    return end;
  }

  void ReadInfo(const Element& info, Segment& segment) {
    ForEachElement(reader_, info.body, info.end, limits_, [&](const Element& child) {
      if (child.id == id::kTimestampScale) segment.timestampScale = ReadUnsigned(reader_, child);
    });
  }

  void ReadTracks(const Element& tracks) {
    layout_.segments.back().tracks.push_back(tracks);
    ForEachElement(reader_, tracks.body, tracks.end, limits_, [&](const Element& child) {
      if (child.id == id::kTrackEntry) ReadEntry(child);
    });
  }

  void ReadEntry(const Element& element) {
    if (++entries_ > kMostEntries)
      throw source_.Fault(element.at, "has more descriptions of tracks than can be carried");
    Entry entry;
    Element encodings;
    entry.element = element;
    entry.segment = layout_.segments.size() - 1;
    ForEachElement(reader_, element.body, element.end, limits_, [&](const Element& child) {
      if (child.id == id::kTrackNumber) entry.number = ReadUnsigned(reader_, child);
      if (child.id == id::kTrackType) entry.type = ReadUnsigned(reader_, child);
      if (child.id == id::kCodecId) entry.codec = Text(child);
      if (child.id == id::kDefaultDuration) entry.defaultDuration = ReadUnsigned(reader_, child);
      if (child.id == id::kCodecPrivate) entry.privateData = child;
      if (child.id == id::kContentEncodings) {
        entry.encodings = ReadEncodings(reader_, child, limits_);
        encodings = child;
      }
    });
    std::vector<Entry>& entries = layout_.tracks[entry.number];
    entry.description = DescriptionOf(entry, encodings);
    if (entry.segment == 0 && entries.empty()) layout_.firstTracks.push_back(entry.number);
    entries.push_back(std::move(entry));
  }

  // Descriptions are told apart by what they say of the coded data.
  uint32_t DescriptionOf(const Entry& entry, const Element& encodings) {
    std::map<Said, uint32_t>& known = descriptions_[entry.number];
    Said said{entry.codec, {}, {}};
    if (entry.privateData.size() <= kMostPrivateData)
      said.privateData = reader_.Run(entry.privateData.body, entry.privateData.size());
    if (encodings.size() <= kMostPrivateData) said.encodings = reader_.Run(encodings.body, encodings.size());
    const auto [at, fresh] = known.emplace(std::move(said), static_cast<uint32_t>(known.size() + 1));
    if (fresh && known.size() > kMostDescriptions)
      throw source_.Fault(entry.element.at, "a track has more descriptions than can be carried");
    return at->second;
  }

  std::string Text(const Element& element) const {
    std::string text;
    for (const uint8_t byte : reader_.Run(element.body, std::min(element.size(), kMostText))) {
      if (byte == 0) break;
      text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    }
    return text;
  }

  const Source& source_;
  Reader reader_;
  Limits limits_;
  Limits next_;
  bool clusterCut_ = false;  // the last one goes on by what it says
  size_t entries_ = 0;       // of all tracks
  std::map<uint64_t, std::map<Said, uint32_t>> descriptions_;
  Layout layout_;
};

}  // namespace

size_t Entry::privateHead() const { return codec == "V_MS/VFW/FOURCC" ? kBitmapHead : 0; }

const Entry* Layout::EntryOf(uint64_t number, size_t segment, uint64_t clusterAt) const {
  const auto found = tracks.find(number);
  if (found == tracks.end()) return nullptr;
  // They stand in the order of the file, and of hostile ones there are as many as blocks.
  const std::vector<Entry>& entries = found->second;
  const auto begin =
      std::lower_bound(entries.begin(), entries.end(), segment,
                       [](const Entry& entry, size_t wanted) { return entry.segment < wanted; });
  const auto behind = std::partition_point(begin, entries.end(), [&](const Entry& entry) {
    return entry.segment == segment && entry.element.at < clusterAt;
  });
  if (behind != begin) return &*std::prev(behind);
  return begin != entries.end() && begin->segment == segment ? &*begin : nullptr;
}

Layout ReadLayout(const Source& source) { return LayoutReader(source).Run(); }

Bytes ReadPrivateData(const Source& source, const Entry& entry) {
  const Element& element = entry.privateData;
  if (element.end == 0) return {};
  if (element.size() > kMostPrivateData)
    throw source.Fault(element.at, "a track's private data is longer than makes sense");
  Bytes bytes = Reader(source).Run(element.body, element.size());
  if (entry.encodings.touchesPrivateData()) bytes = entry.encodings.Undo(source, element.body, bytes, true);
  const size_t head = std::min(entry.privateHead(), bytes.size());
  bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(head));
  return bytes;
}

}  // namespace qlnmedia::mkv
