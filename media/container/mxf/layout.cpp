// Goes over the triplets of a file once, by their heads.

#include "container/mxf/layout.h"

#include <algorithm>
#include <memory>

namespace qlnmedia::mxf {

namespace {

constexpr uint64_t kPackBytes = 88;  // of a pack without essence containers
constexpr size_t kMostPartitions = 1000000;
constexpr uint64_t kMostStream = uint64_t{1} << 48;

Partition ReadPack(Reader& reader, const Klv& klv) {
  if (klv.size < kPackBytes)
    throw reader.source().Fault(klv.at, "a partition pack is shorter than its fields");
  Partition partition;
  partition.pack = klv;
  const uint64_t at = klv.valueAt();
  partition.alignment = std::max<uint32_t>(1, reader.U32(at + 4));
  partition.thisPartition = reader.U64(at + kThisPartitionAt);
  partition.previous = reader.U64(at + kPreviousPartitionAt);
  partition.footer = reader.U64(at + kFooterPartitionAt);
  partition.headerBytes = reader.U64(at + kHeaderBytesAt);
  partition.indexBytes = reader.U64(at + kIndexBytesAt);
  partition.indexSid = reader.U32(at + 48);
  partition.bodyOffset = reader.U64(at + kBodyOffsetAt);
  partition.bodySid = reader.U32(at + kBodySidAt);
  return partition;
}

// Fills a layout triplet by triplet.
class Scan {
 public:
  explicit Scan(const Source& source) : triplets_(source), numbers_(source) {}

  Layout Run() {
    layout_.runIn = triplets_.at();
    for (Klv klv; triplets_.Next(klv);) Take(klv);
    layout_.cutAt = triplets_.cutAt();
    EndPartition(triplets_.reader().size());
    PlaceStreams();
    return std::move(layout_);
  }

 private:
  void Take(const Klv& klv) {
    const Kind kind = klv.kind();
    Count(klv);
    switch (kind) {
      case Kind::kPartition:
        EndPartition(klv.at);
        if (layout_.partitions.size() >= kMostPartitions)
          throw numbers_.source().Fault(klv.at, "has more partitions than can be carried");
        layout_.partitions.push_back(ReadPack(numbers_, klv));
        break;
      case Kind::kRandomIndex:
        EndPartition(klv.at);
        layout_.randomIndex = klv;
        break;
      case Kind::kPrimer:
        EndMetadata();
        partition().headerAt = partition().headerAt.value_or(klv.at);
        metadata_ = std::make_unique<MetadataReader>(numbers_, klv);
        break;
      case Kind::kSet:
        if (metadata_ != nullptr) metadata_->Add(klv);
        break;
      case Kind::kIndex:
        EndMetadata();
        partition().indexAt = partition().indexAt.value_or(klv.at);
        TakeIndex(klv);
        break;
      case Kind::kFill:
        break;
      default:
        TakeEssence(klv, kind);
    }
  }

  Partition& partition() { return layout_.partitions.back(); }

  void Count(const Klv& klv) {
    if (layout_.partitions.empty()) return;
    const Partition& in = partition();
    constexpr size_t kMostKeys = 100000;
    if (layout_.keys.size() >= kMostKeys && layout_.keys.count(klv.key) == 0) return;
    AlignedCount& count = layout_.keys[klv.key];
    ++count.all;
    count.aligned += (klv.at - in.pack.at) % in.alignment == 0 ? 1U : 0U;
  }

  void TakeIndex(const Klv& klv) {
    if (auto segment = ReadIndexSegment(numbers_, klv)) {
      layout_.index.push_back(std::move(*segment));
    } else if (!layout_.damagedIndexAt) {
      layout_.damagedIndexAt = klv.at;
    }
  }

  void TakeEssence(const Klv& klv, Kind kind) {
    Partition& in = partition();
    if (in.bodySid != 0 && !in.essenceAt && kind != Kind::kOther) EndMetadata();
    const bool behindHeader = !in.headerAt || klv.at >= *in.headerAt + in.headerBytes;
    if (in.bodySid != 0 && !in.essenceAt && (kind != Kind::kOther || behindHeader)) in.essenceAt = klv.at;
    if (kind == Kind::kEncrypted && !layout_.encryptedAt) layout_.encryptedAt = klv.at;
    if (kind != Kind::kEssence) return;
    ElementCount& count = layout_.elements[{in.bodySid, klv.number()}];
    if (count.elements++ == 0) count.size = klv.size;
    count.constant = count.constant && count.size == klv.size;
    count.largest = std::max(count.largest, klv.size);
  }

  void EndMetadata() {
    if (metadata_ == nullptr) return;
    layout_.metadata.push_back(metadata_->Finish(partition().closed()));
    metadata_.reset();
  }

  void EndPartition(uint64_t at) {
    EndMetadata();
    if (!layout_.partitions.empty() && partition().end == 0) partition().end = at;
  }

  void PlaceStreams() {
    std::map<uint32_t, uint64_t> behind;
    for (size_t i = 0; i < layout_.partitions.size(); ++i) {
      Partition& partition = layout_.partitions[i];
      if (!partition.essenceAt) continue;
      uint64_t& stream = behind[partition.bodySid];
      // A pack that names a place in front of what there is already names none.
      const bool sane = partition.bodyOffset <= kMostStream;
      partition.streamAt = std::max(stream, sane ? partition.bodyOffset : 0);
      stream = partition.streamAt + (partition.end - *partition.essenceAt);
      layout_.bodies[partition.bodySid].push_back(i);
    }
  }

  KlvReader triplets_;
  Reader numbers_;
  Layout layout_;
  std::unique_ptr<MetadataReader> metadata_;
};

}  // namespace

const std::vector<PictureTrack>& Layout::tracks() const {
  static const std::vector<PictureTrack> kNone;
  const std::vector<PictureTrack>* best = &kNone;
  bool closed = false;
  for (const MetadataCopy& copy : metadata) {
    if (copy.tracks.empty() || (closed && !copy.closed)) continue;
    best = &copy.tracks;
    closed = copy.closed;
  }
  return *best;
}

const Partition* Layout::PartitionAt(uint64_t at) const {
  const auto behind =
      std::upper_bound(partitions.begin(), partitions.end(), at,
                       [](uint64_t place, const Partition& partition) { return place < partition.pack.at; });
  return behind == partitions.begin() ? nullptr : &*std::prev(behind);
}

std::optional<uint64_t> Layout::PlaceOf(uint32_t bodySid, uint64_t streamOffset) const {
  const auto found = bodies.find(bodySid);
  if (found == bodies.end()) return {};
  const std::vector<size_t>& list = found->second;
  const auto behind = std::upper_bound(
      list.begin(), list.end(), streamOffset,
      [this](uint64_t offset, size_t number) { return offset < partitions[number].streamAt; });
  if (behind == list.begin()) return {};
  const Partition& partition = partitions[*std::prev(behind)];
  const uint64_t within = streamOffset - partition.streamAt;
  if (within > partition.end - *partition.essenceAt) return {};
  return *partition.essenceAt + within;
}

uint32_t Layout::BodySidOf(const IndexSegment& segment) const {
  if (segment.bodySid != 0) return segment.bodySid;
  for (const PictureTrack& track : tracks()) {
    if (track.indexSid == segment.indexSid) return track.bodySid;
  }
  return bodies.size() == 1 ? bodies.begin()->first : 0;
}

Layout ReadLayout(const Source& source) { return Scan(source).Run(); }

}  // namespace qlnmedia::mxf
