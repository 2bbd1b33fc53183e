// Sizes inside clusters first, which hang on blocks alone; then fields that name places, whose widths hang on
// each other; then the bytes of both; checksums last, the innermost first.

#include "container/mkv/shape.h"

#include <fmt/format.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>

namespace qlnmedia::mkv {

namespace {

// Behind so many rounds all places get fields that hold whatever comes, so that an end is sure.
constexpr int kRounds = 8;
// Fields of a cluster that say places.
constexpr size_t kMostFields = 16;

// Where depths of the document matter, innermost last.
enum Depth : int { kOfSegment, kOfLevelOne, kOfLevelTwo, kOfLevelThree, kOfLevelFour, kDepths };

class ChecksumSink final : public mp4::Sink {
 public:
  void Write(ByteSpan bytes) override {
    value_ = static_cast<uint32_t>(crc32_z(value_, bytes.data(), bytes.size()));
  }
  void Copy(const Source& source, uint64_t at, uint64_t bytes) override {
    std::array<uint8_t, 1 << 16> buffer;  // NOLINT: filled before it is read
    while (bytes > 0) {
      const auto part =
          std::span(buffer).first(static_cast<size_t>(std::min<uint64_t>(bytes, buffer.size())));
      source.Read(at, part);
      Write(part);
      at += part.size();
      bytes -= part.size();
    }
  }
  uint32_t value() const { return value_; }

 private:
  uint32_t value_ = 0;
};

Bytes LittleEndian(uint32_t value) {
  Bytes bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<uint8_t>(value >> shift));
  return bytes;
}

class Shaper {
 public:
  Shaper(const Source& source, const Layout& layout, mp4::Splices& contents, mp4::Spool& spool)
      : source_(source),
        reader_(source),
        heads_(source, kHeadWindow),
        layout_(layout),
        contents_(contents),
        spool_(spool),
        fields_(spool) {}

  void Run() {
    if (contents_.empty()) return;
    SizeBlocks();
    SetShape();
    for (int round = 0; grew_ || round == 0; ++round) {
      grew_ = false;
      widest_ = round >= kRounds;
      WalkAll();
      SetShape();
    }
    const int64_t expected = contents_.growth() + shape_->growth();
    writing_ = true;
    WalkAll();
    contents_.Take(fields_);
    contents_.Seal(source_);
    if (contents_.growth() != expected)
      throw Error(source_.name(), "the elements grew by other than was planned; nothing was written");
    PutChecksums();
  }

 private:
  // Where a cluster says its place and the size of the one in front, as bytes from its begin. It should say
  // each once.
  using ClusterFields = std::vector<uint64_t>;
  struct Checksum {
    uint64_t at = 0;  // of its 4 bytes, behind which begins what it is of
    uint64_t end = 0;
    Depth depth = kOfSegment;
  };

  bool ChangesIn(uint64_t begin, uint64_t end) const {
    const size_t first = contents_.FirstFrom(begin);
    return first < contents_.size() && contents_.At(first).at < end;
  }

  // Blocks and their groups, whose sizes hang on nothing else.
  void SizeBlocks() {
    mp4::Splices sizes(spool_);
    moves_ = contents_.anyGrowth();
    for (const Segment& segment : layout_.segments) {
      limits_ = segment.limits;
      std::vector<ClusterFields>& fields = clusterFields_.emplace_back(segment.clusters.size());
      for (size_t i = 0; i < segment.clusters.size(); ++i) {
        const Cluster& cluster = segment.clusters[i];
        const bool changes = ChangesIn(cluster.at, cluster.end);
        if (!moves_ && !changes) continue;
        const Element head = ReadElement(heads_, cluster.at, cluster.end, limits_);
        ForEachElement(heads_, head.body, cluster.end, limits_, [&](const Element& child) {
          if (child.id == id::kPosition || child.id == id::kPrevSize) NoteField(cluster, child, fields[i]);
          if (child.at == head.body) LookForChecksum(child, cluster.end, kOfLevelOne);
          if (changes && child.id == id::kSimpleBlock) SizeBlock(sizes, child, 0);
          if (changes && child.id == id::kBlockGroup) SizeGroup(sizes, child);
        });
      }
    }
    contents_.Take(sizes);
    contents_.Seal(source_);
  }

  void NoteField(const Cluster& cluster, const Element& field, ClusterFields& fields) const {
    if (fields.size() == kMostFields)
      throw source_.Fault(field.at, "a cluster says its place more often than can be carried");
    fields.push_back(field.at - cluster.at);
  }

  // Returns by how much the size's own field grows.
  int64_t SizeBlock(mp4::Splices& sizes, const Element& element, int64_t inside) {
    const int64_t growth = contents_.GrowthIn(element.body, element.end) + inside;
    if (growth == 0) return 0;
    const uint64_t size = element.size() + static_cast<uint64_t>(growth);
    const size_t bytes = std::max<size_t>(element.sizeBytes, SizeBytesFor(size));
    RequireWidth(element, bytes);
    sizes.AddDifference(element.sizeAt(), reader_.Run(element.sizeAt(), element.sizeBytes),
                        NumberOf(size, bytes));
    return static_cast<int64_t>(bytes) - element.sizeBytes;
  }

  void SizeGroup(mp4::Splices& sizes, const Element& group) {
    if (!ChangesIn(group.at, group.end)) return;
    int64_t growth = 0;
    ForEachElement(heads_, group.body, group.end, limits_, [&](const Element& child) {
      if (child.at == group.body) LookForChecksum(child, group.end, kOfLevelTwo);
      if (child.id == id::kBlock) growth += SizeBlock(sizes, child, 0);
    });
    SizeBlock(sizes, group, growth);
  }

  void RequireWidth(const Element& element, size_t bytes) const {
    if (bytes > limits_.sizeBytes)
      throw source_.Fault(element.at, fmt::format("the size of the element {} would need {} bytes, and this "
                                                  "document allows {}",
                                                  IdName(element.id), bytes, limits_.sizeBytes));
  }

  void LookForChecksum(const Element& first, uint64_t end, Depth depth) {
    if (first.id == id::kCrc && first.size() == kCrcBytes) checksums_.push_back({first.body, end, depth});
  }

  // Where a place of the file is to be found afterwards.
  uint64_t Map(uint64_t at) const {
    return at + static_cast<uint64_t>(contents_.ShiftAt(at) + shape_->ShiftAt(at));
  }
  // The same of places that count from another; those beyond the file stay.
  uint64_t MapFrom(uint64_t origin, uint64_t place) const {
    return place > source_.size() - origin ? place : Map(origin + place) - Map(origin);
  }

  void SetShape() {
    shape_ = std::make_unique<mp4::Splices>(spool_);
    for (const auto& [at, growth] : widened_) shape_->AddGrowth(at, growth);
    shape_->Seal(source_);
  }

  // Returns what a field that stands at a place grows by, never less than in a round before.
  int64_t Widen(uint64_t at, int64_t growth) {
    if (growth == 0 && widened_.empty()) return 0;
    const auto found = widened_.find(at);
    const int64_t was = found == widened_.end() ? 0 : found->second;
    if (growth <= was) return was;
    widened_[at] = growth;
    grew_ = true;
    return growth;
  }

  void WalkAll() {
    for (size_t i = 0; i < layout_.segments.size(); ++i) WalkSegment(i);
  }

  void WalkSegment(size_t index) {
    segment_ = &layout_.segments[index];
    limits_ = segment_->limits;
    if (!ChangesIn(segment_->element.body, segment_->element.end)) return;
    int64_t growth = 0;
    if (moves_) {
      for (const Element& element : segment_->indexes) growth += WalkIndex(element, kOfLevelOne);
    }
    for (size_t i = 0; i < segment_->clusters.size(); ++i) growth += WalkCluster(i, clusterFields_[index][i]);
    for (const Element& tracks : segment_->tracks) {
      LookInto(tracks, kOfLevelOne);
      growth += PutSize(tracks, 0);
    }
    LookInto(segment_->element, kOfSegment);
    PutSize(segment_->element, growth);
  }

  // Notes the checksum that a master begins with.
  void LookInto(const Element& master, Depth depth) {
    if (!writing_ || master.body >= master.end) return;
    LookForChecksum(ReadElement(heads_, master.body, master.end, limits_), master.end, depth);
  }

  // `inside`: by how much fields in it grow. Returns by how much its own size's field does.
  int64_t PutSize(const Element& master, int64_t inside) {
    if (master.open) return 0;
    const uint64_t said = master.size() + master.missing;
    const uint64_t size = said + static_cast<uint64_t>(contents_.GrowthIn(master.body, master.end) + inside);
    const int64_t needed =
        static_cast<int64_t>(std::max<size_t>(master.sizeBytes, SizeBytesFor(size))) - master.sizeBytes;
    const int64_t growth = Widen(master.sizeAt(), needed);
    const size_t bytes = master.sizeBytes + static_cast<size_t>(growth);
    RequireWidth(master, bytes);
    if (writing_ && size != said)
      fields_.AddDifference(master.sizeAt(), reader_.Run(master.sizeAt(), master.sizeBytes),
                            NumberOf(size, bytes));
    return growth;
  }

  // Sets the number that an element holds. Returns by how much the element grows.
  int64_t PutPlace(const Element& element, uint64_t value) {
    const uint64_t was = ReadUnsigned(reader_, element);
    const uint64_t bytes = element.size();
    uint64_t needed = value == was ? bytes : std::max<uint64_t>(bytes, UnsignedBytesFor(value));
    if (widest_) needed = 8;
    const int64_t growth = Widen(element.sizeAt(), static_cast<int64_t>(needed - bytes));
    if (!writing_ || (growth == 0 && value == was)) return growth;
    const size_t width = static_cast<size_t>(bytes) + static_cast<size_t>(growth);
    Bytes fresh = NumberOf(width, element.sizeBytes);
    mp4::PutNumber(fresh, value, width);
    fields_.AddDifference(element.sizeAt(), reader_.Run(element.sizeAt(), element.end - element.sizeAt()),
                          fresh);
    return growth;
  }

  int64_t WalkIndex(const Element& master, Depth depth) {
    int64_t growth = 0;
    std::optional<Element> relative;
    const Cluster* cluster = nullptr;
    LookInto(master, depth);
    ForEachElement(reader_, master.body, master.end, limits_, [&](const Element& child) {
      const Role role = RoleOf(master.id, child.id);
      if (role == Role::kMaster) growth += WalkIndex(child, static_cast<Depth>(depth + 1));
      if (role == Role::kRelativePlace) relative = child;
      if (role != Role::kPlace) return;
      const uint64_t place = ReadUnsigned(reader_, child);
      if (child.id == id::kCueClusterPosition) cluster = ClusterAt(place);
      growth += PutPlace(child, MapFrom(segment_->element.body, place));
    });
    if (relative && cluster != nullptr) {
      const Element head = ReadElement(heads_, cluster->at, cluster->end, limits_);
      growth += PutPlace(*relative, MapFrom(head.body, ReadUnsigned(reader_, *relative)));
    }
    return growth + PutSize(master, growth);
  }

  const Cluster* ClusterAt(uint64_t place) const {
    const std::vector<Cluster>& clusters = segment_->clusters;
    const uint64_t origin = segment_->element.body;
    if (place > source_.size() - origin) return nullptr;
    const auto found = std::lower_bound(clusters.begin(), clusters.end(), origin + place,
                                        [](const Cluster& cluster, uint64_t at) { return cluster.at < at; });
    return found != clusters.end() && found->at == origin + place ? &*found : nullptr;
  }

  int64_t WalkCluster(size_t index, const ClusterFields& fields) {
    const Cluster& cluster = segment_->clusters[index];
    int64_t growth = 0;
    for (const uint64_t at : fields) {
      const Element field = ReadElement(heads_, cluster.at + at, cluster.end, limits_);
      const uint64_t value = ReadUnsigned(heads_, field);
      if (field.id == id::kPosition) {
        growth += PutPlace(field, MapFrom(segment_->element.body, value));
      } else if (index > 0) {
        const Cluster& before = segment_->clusters[index - 1];
        if (value == before.end - before.at) growth += PutPlace(field, Map(before.end) - Map(before.at));
      }
    }
    if (growth == 0 && !ChangesIn(cluster.at, cluster.end)) return 0;
    return growth + PutSize(ReadElement(heads_, cluster.at, cluster.end, limits_), growth);
  }

  void PutChecksums() {
    for (int depth = kDepths; depth-- > 0;) {
      mp4::Splices fresh(spool_);
      for (const Checksum& checksum : checksums_) {
        const uint64_t begin = checksum.at + kCrcBytes;
        if (checksum.depth != depth || !ChangesIn(begin, checksum.end)) continue;
        const Bytes old = reader_.Run(checksum.at, kCrcBytes);
        if (LittleEndian(ChecksumOf(source_, begin, checksum.end)) != old) continue;
        ChecksumSink sink;
        contents_.Apply(source_, begin, checksum.end, sink, [](uint64_t) {});
        fresh.AddDifference(checksum.at, old, LittleEndian(sink.value()));
      }
      contents_.Take(fresh);
      contents_.Seal(source_);
    }
  }

  const Source& source_;
  Reader reader_;
  Reader heads_;
  const Layout& layout_;
  mp4::Splices& contents_;
  mp4::Spool& spool_;
  mp4::Splices fields_;
  std::unique_ptr<mp4::Splices> shape_;
  std::map<uint64_t, int64_t> widened_;  // place of a field -> bytes that it grows by
  std::vector<std::vector<ClusterFields>> clusterFields_;
  std::vector<Checksum> checksums_;
  const Segment* segment_ = nullptr;
  Limits limits_;
  bool moves_ = false;
  bool grew_ = false;
  bool widest_ = false;
  bool writing_ = false;
};

}  // namespace

void PutShape(const Source& source, const Layout& layout, mp4::Splices& contents, mp4::Spool& spool) {
  Shaper(source, layout, contents, spool).Run();
}

uint32_t ChecksumOf(const Source& source, uint64_t begin, uint64_t end) {
  ChecksumSink sink;
  sink.Copy(source, begin, end - begin);
  return sink.value();
}

Role RoleOf(uint64_t parent, uint64_t id) {
  struct Known {
    uint64_t parent, id;
    Role role;
  };
  constexpr Known kKnown[] = {
      {id::kSeekHead, id::kSeek, Role::kMaster},
      {id::kSeek, id::kSeekPosition, Role::kPlace},
      {id::kCues, id::kCuePoint, Role::kMaster},
      {id::kCuePoint, id::kCueTrackPositions, Role::kMaster},
      {id::kCueTrackPositions, id::kCueClusterPosition, Role::kPlace},
      {id::kCueTrackPositions, id::kCueRelativePosition, Role::kRelativePlace},
      {id::kCueTrackPositions, id::kCueCodecState, Role::kPlace},
      {id::kCueTrackPositions, id::kCueReference, Role::kMaster},
      {id::kCueReference, id::kCueRefCluster, Role::kPlace},
      {id::kCueReference, id::kCueRefCodecState, Role::kPlace},
  };
  const auto* const found = std::find_if(std::begin(kKnown), std::end(kKnown), [&](const Known& known) {
    return known.parent == parent && known.id == id;
  });
  return found == std::end(kKnown) ? Role::kOther : found->role;
}

}  // namespace qlnmedia::mkv
