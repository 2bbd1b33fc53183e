// Follows the strong references from packages to tracks and descriptors, by the tags that SMPTE ST 377-1
// fixes.

#include "container/mxf/metadata.h"

#include <algorithm>

namespace qlnmedia::mxf {

namespace {

// The fifteenth byte of a set's key.
enum SetName : uint8_t {
  kSequence = 0x0F,
  kSourceClip = 0x11,
  kEssenceContainerData = 0x23,
  kPictureDescriptor = 0x27,
  kCdciDescriptor = 0x28,
  kRgbaDescriptor = 0x29,
  kMaterialPackage = 0x36,
  kSourcePackage = 0x37,
  kTrack = 0x3B,
  kMultipleDescriptor = 0x44,
  kMpegVideoDescriptor = 0x51,
  kAvcSubDescriptor = 0x6E,
};
constexpr uint8_t kLooked[] = {kSequence,           kSourceClip,          kEssenceContainerData,
                               kPictureDescriptor,  kCdciDescriptor,      kRgbaDescriptor,
                               kMaterialPackage,    kSourcePackage,       kTrack,
                               kMultipleDescriptor, kMpegVideoDescriptor, kAvcSubDescriptor};

constexpr uint16_t kSourcePackageId = 0x1101, kSourceTrackId = 0x1102, kComponents = 0x1001;
constexpr uint16_t kLength = 0x0202, kLinkedPackage = 0x2701, kEssenceContainer = 0x3004;
constexpr uint16_t kLinkedTrack = 0x3006, kPictureCoding = 0x3201, kInstance = 0x3C0A;
constexpr uint16_t kSubDescriptorsOfMultiple = 0x3F01;
constexpr uint16_t kPackageId = 0x4401, kTracks = 0x4403, kDescriptor = 0x4701;
constexpr uint16_t kTrackId = 0x4801, kTrackSequence = 0x4803, kTrackNumber = 0x4804, kEditRate = 0x4B01;
constexpr Key kSubDescriptors = {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x09,
                                 0x06, 0x01, 0x01, 0x04, 0x06, 0x10, 0x00, 0x00};
constexpr size_t kMostSets = 20000;
constexpr uint64_t kMostFollowed = 2000000;

bool IsPicture(uint8_t name) {
  return name == kPictureDescriptor || name == kCdciDescriptor || name == kRgbaDescriptor ||
         name == kMpegVideoDescriptor;
}

}  // namespace

MetadataReader::MetadataReader(Reader& reader, const Klv& primer) : reader_(reader) {
  copy_.primer = primer;
  if (const auto entries = ReadPrimer(Value(primer))) primer_ = *entries;
}

Bytes MetadataReader::Value(const Klv& klv) const {
  if (klv.size > kMostSetBytes) return {};
  return reader_.Run(klv.valueAt(), klv.size);
}

void MetadataReader::Add(const Klv& klv) {
  const uint8_t name = klv.key[14];
  if (klv.kind() != Kind::kSet || klv.key[13] != 1 || sets_.size() >= kMostSets) return;
  if (std::find(std::begin(kLooked), std::end(kLooked), name) == std::end(kLooked)) return;
  auto properties = ReadProperties(Value(klv));
  if (!properties) return;
  const Property* const instance = FindProperty(*properties, kInstance);
  if (instance == nullptr || instance->value.size() != kKeyBytes) return;
  byInstance_.emplace(instance->value, sets_.size());
  sets_.push_back({klv, std::move(*properties)});
}

const MetadataReader::Set* MetadataReader::Find(ByteSpan instance) const {
  if (++followed_ > kMostFollowed) return nullptr;
  const auto found = byInstance_.find(Bytes(instance.begin(), instance.end()));
  return found == byInstance_.end() ? nullptr : &sets_[found->second];
}

// The sets that a property refers to, alone or in a batch.
std::vector<const MetadataReader::Set*> MetadataReader::Referred(const Set& from, uint16_t tag) const {
  std::vector<const Set*> sets;
  const Property* const property = FindProperty(from.properties, tag);
  if (property == nullptr) return sets;
  const auto add = [&](ByteSpan instance) {
    if (const Set* const set = Find(instance)) sets.push_back(set);
  };
  if (property->value.size() == kKeyBytes) {
    add(property->value);
  } else {
    for (const ByteSpan instance : EntriesOf(property->value, kKeyBytes)) add(instance);
  }
  return sets;
}

// The descriptor that stands for a track: the package's own, or that of several which names it.
const MetadataReader::Set* MetadataReader::DescriptorOf(const Set& package, uint64_t trackId) const {
  const std::vector<const Set*> own = Referred(package, kDescriptor);
  if (own.empty()) return nullptr;
  if (own[0]->klv.key[14] != kMultipleDescriptor) return own[0];
  for (const Set* const descriptor : Referred(*own[0], kSubDescriptorsOfMultiple)) {
    if (NumberOf(descriptor->properties, kLinkedTrack, 4) == trackId) return descriptor;
  }
  return nullptr;
}

uint32_t MetadataReader::MaterialTrackOf(ByteSpan package, uint64_t trackId) const {
  for (const Set& material : sets_) {
    if (material.klv.key[14] != kMaterialPackage || ++followed_ > kMostFollowed) continue;
    for (const Set* const track : Referred(material, kTracks)) {
      for (const Set* const sequence : Referred(*track, kTrackSequence)) {
        std::vector<const Set*> clips = {sequence};
        if (sequence->klv.key[14] == kSequence) clips = Referred(*sequence, kComponents);
        for (const Set* const clip : clips) {
          const Property* const of = FindProperty(clip->properties, kSourcePackageId);
          if (clip->klv.key[14] != kSourceClip || of == nullptr ||
              !std::equal(of->value.begin(), of->value.end(), package.begin(), package.end()))
            continue;
          if (NumberOf(clip->properties, kSourceTrackId, 4) == trackId)
            return static_cast<uint32_t>(NumberOf(track->properties, kTrackId, 4).value_or(0));
        }
      }
    }
  }
  return 0;
}

std::optional<PictureTrack> MetadataReader::TrackOf(const Set& package, const Set& track) const {
  const auto id = NumberOf(track.properties, kTrackId, 4);
  const Set* const descriptor = id ? DescriptorOf(package, *id) : nullptr;
  if (descriptor == nullptr || !IsPicture(descriptor->klv.key[14])) return {};
  PictureTrack picture;
  // The descriptor of a package without any other stands for all its tracks, timecode among them.
  picture.number = static_cast<uint32_t>(NumberOf(track.properties, kTrackNumber, 4).value_or(0));
  if (picture.number == 0) return {};
  picture.materialTrack = MaterialTrackOf(FindProperty(package.properties, kPackageId)->value, *id);
  const auto rate = NumberOf(track.properties, kEditRate, 8);
  const uint64_t numerator = rate.value_or(0) >> 32, denominator = rate.value_or(0) & 0xFFFFFFFF;
  if (numerator != 0 && denominator != 0 && numerator <= INT32_MAX && denominator <= INT32_MAX)
    picture.editRate = {static_cast<int32_t>(numerator), static_cast<int32_t>(denominator)};
  for (const Set* const sequence : Referred(track, kTrackSequence)) {
    if (const auto length = NumberOf(sequence->properties, kLength, 8))
      picture.duration = static_cast<int64_t>(*length);
  }
  picture.container = LabelOf(descriptor->properties, kEssenceContainer);
  picture.coding = LabelOf(descriptor->properties, kPictureCoding);
  picture.descriptor = descriptor->klv;
  if (const auto tag = TagOf(primer_, kSubDescriptors)) {
    for (const Set* const sub : Referred(*descriptor, *tag)) {
      if (sub->klv.key[14] == kAvcSubDescriptor) picture.avc = sub->klv;
    }
    const Property* const all = FindProperty(descriptor->properties, *tag);
    picture.hasDetails = all != nullptr && !EntriesOf(all->value, kKeyBytes).empty();
  }
  return picture;
}

void MetadataReader::AddTracks(const Set& package, MetadataCopy& copy) const {
  const Property* const id = FindProperty(package.properties, kPackageId);
  if (id == nullptr) return;
  const Set* data = nullptr;
  for (const Set& set : sets_) {
    if (set.klv.key[14] != kEssenceContainerData) continue;
    const Property* const linked = FindProperty(set.properties, kLinkedPackage);
    if (linked != nullptr && linked->value == id->value) data = &set;
  }
  if (data == nullptr) return;
  for (const Set* const track : Referred(package, kTracks)) {
    std::optional<PictureTrack> picture = TrackOf(package, *track);
    if (!picture) continue;
    picture->bodySid = static_cast<uint32_t>(NumberOf(data->properties, kBodySid, 4).value_or(0));
    picture->indexSid = static_cast<uint32_t>(NumberOf(data->properties, kIndexSid, 4).value_or(0));
    copy.tracks.push_back(std::move(*picture));
  }
}

MetadataCopy MetadataReader::Finish(bool closed) const {
  MetadataCopy copy = copy_;
  copy.closed = closed;
  for (const Set& set : sets_) {
    if (set.klv.key[14] == kSourcePackage) AddTracks(set, copy);
  }
  return copy;
}

}  // namespace qlnmedia::mxf
