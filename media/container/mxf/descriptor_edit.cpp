// Sets properties by tag; those that have no tag of their own get a free one.

#include "container/mxf/descriptor_edit.h"

#include <algorithm>
#include <numeric>
#include <set>

namespace qlnmedia::mxf {

namespace {

struct Named {
  uint16_t tag = 0;  // 0 for one that the primer pack gives its tag
  Key label{};
};

constexpr Key Label(uint8_t version, uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f = 0,
                    uint8_t g = 0) {
  return {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, version, a, b, c, d, e, f, g, 0};
}
constexpr Key Value(uint8_t version, uint8_t kind, uint8_t code) {
  return {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, version, 0x04, 0x01, 0x01, 0x01, kind, code, 0, 0};
}

constexpr Named kTransfer{0x3210, Label(0x02, 0x04, 0x01, 0x02, 0x01, 0x01, 0x01, 0x02)};
constexpr Named kPrimaries{0x3219, Label(0x09, 0x04, 0x01, 0x02, 0x01, 0x01, 0x06, 0x01)};
constexpr Named kEquations{0x321A, Label(0x02, 0x04, 0x01, 0x02, 0x01, 0x01, 0x03, 0x01)};
constexpr Named kAspect{0x320E, Label(0x01, 0x04, 0x01, 0x01, 0x01, 0x01, 0x00, 0x00)};
constexpr Named kFrameLayout{0x320C, Label(0x01, 0x04, 0x01, 0x03, 0x01, 0x04, 0x00, 0x00)};
constexpr Named kBlack{0x3304, Label(0x01, 0x04, 0x01, 0x05, 0x03, 0x03, 0x00, 0x00)};
constexpr Named kWhite{0x3305, Label(0x01, 0x04, 0x01, 0x05, 0x03, 0x04, 0x00, 0x00)};
constexpr Named kColourRange{0x3306, Label(0x02, 0x04, 0x01, 0x05, 0x03, 0x05, 0x00, 0x00)};
constexpr Named kMasteringPrimaries{0, Label(0x0E, 0x04, 0x20, 0x04, 0x01, 0x01, 0x01, 0x00)};
constexpr Named kMasteringWhite{0, Label(0x0E, 0x04, 0x20, 0x04, 0x01, 0x01, 0x02, 0x00)};
constexpr Named kMasteringMost{0, Label(0x0E, 0x04, 0x20, 0x04, 0x01, 0x01, 0x03, 0x00)};
constexpr Named kMasteringLeast{0, Label(0x0E, 0x04, 0x20, 0x04, 0x01, 0x01, 0x04, 0x00)};
constexpr Named kAvcConstraints{0, Label(0x0E, 0x04, 0x01, 0x06, 0x06, 0x01, 0x0C, 0x00)};
constexpr Named kAvcLevel{0, Label(0x0E, 0x04, 0x01, 0x06, 0x06, 0x01, 0x0D, 0x00)};
constexpr uint8_t kConstraintSet3 = 0x10;
constexpr uint16_t kDepth = 0x3301, kLayout = 0x320C;
constexpr uint16_t kStoredWidth = 0x3203, kStoredHeight = 0x3202;
constexpr uint16_t kSampledWidth = 0x3205, kSampledHeight = 0x3204;
constexpr uint16_t kShownWidth = 0x3209, kShownHeight = 0x3208;
constexpr uint64_t kMostSide = 0xFFFF;  // so that products of four fit
constexpr uint8_t kSeparateFields = 1, kSegmentedFrame = 4;

// Labels of H.273 codes.
struct CodeLabel {
  uint8_t code, version, label;
};
constexpr CodeLabel kPrimariesLabels[] = {{1, 0x06, 0x03},  {5, 0x06, 0x02}, {6, 0x06, 0x01},
                                          {7, 0x06, 0x01},  {9, 0x0D, 0x04}, {10, 0x0D, 0x05},
                                          {11, 0x0D, 0x0A}, {12, 0x0D, 0x06}};
constexpr CodeLabel kTransferLabels[] = {
    {1, 0x01, 0x02},  {4, 0x01, 0x01},  {5, 0x01, 0x01},  {6, 0x01, 0x02},  {7, 0x01, 0x03},
    {8, 0x06, 0x06},  {11, 0x0D, 0x08}, {12, 0x06, 0x05}, {14, 0x0E, 0x09}, {15, 0x0E, 0x09},
    {16, 0x0D, 0x0A}, {17, 0x08, 0x07}, {18, 0x0D, 0x0B}};
constexpr CodeLabel kEquationLabels[] = {{0, 0x0D, 0x05}, {1, 0x01, 0x02}, {5, 0x01, 0x01}, {6, 0x01, 0x01},
                                         {7, 0x06, 0x03}, {8, 0x0D, 0x04}, {9, 0x0D, 0x06}};

// The properties of one set while they change.
class SetEdit {
 public:
  SetEdit(const Source& source, const Klv& klv, std::vector<PrimerEntry>& primer)
      : source_(source), klv_(klv), primer_(primer) {
    std::optional<std::vector<Property>> properties;
    if (klv.size <= kMostSetBytes) properties = ReadProperties(Reader(source).Run(klv.valueAt(), klv.size));
    if (!properties) throw source.Fault(klv.at, "the descriptor of the pictures is damaged");
    properties_ = std::move(*properties);
  }

  uint64_t Number(uint16_t tag, size_t bytes) const { return NumberOf(properties_, tag, bytes).value_or(0); }

  void Put(const Named& named, Bytes value) {
    const uint16_t tag = TagFor(named);
    const auto found = Find(tag);
    if (found != properties_.end()) {
      found->value = std::move(value);
    } else {
      properties_.push_back({tag, std::move(value)});
    }
  }
  // Of one that is there.
  void Renew(uint16_t tag, Bytes value) {
    if (const auto found = Find(tag); found != properties_.end()) found->value = std::move(value);
  }
  void TakeOut(const Named& named) {
    if (const auto found = Find(named.tag); found != properties_.end()) properties_.erase(found);
  }
  ValueChange change() const { return {klv_, WriteProperties(properties_)}; }

 private:
  std::vector<Property>::iterator Find(uint16_t tag) {
    return std::find_if(properties_.begin(), properties_.end(),
                        [tag](const Property& property) { return property.tag == tag; });
  }

  bool Uses(uint16_t tag) const {
    return std::any_of(primer_.begin(), primer_.end(),
                       [tag](const PrimerEntry& entry) { return entry.tag == tag; });
  }

  uint16_t TagFor(const Named& named) {
    if (named.tag != 0) {
      if (!Uses(named.tag)) primer_.push_back({named.tag, named.label});
      return named.tag;
    }
    if (const auto tag = TagOf(primer_, named.label)) return *tag;
    for (uint32_t tag = 0xFFFF; tag >= 0x8000; --tag) {
      const auto free = static_cast<uint16_t>(tag);
      if (Uses(free) || Find(free) != properties_.end()) continue;
      primer_.push_back({free, named.label});
      return free;
    }
    throw source_.Fault(klv_.at, "the primer pack has no tag left");
  }

  const Source& source_;
  Klv klv_;
  std::vector<PrimerEntry>& primer_;
  std::vector<Property> properties_;
};

template <size_t kCount>
void PutCode(SetEdit& set, const Named& named, uint8_t kind, const CodeLabel (&labels)[kCount],
             uint8_t code) {
  for (const CodeLabel& label : labels) {
    if (label.code != code) continue;
    const Key value = Value(label.version, kind, label.label);
    set.Put(named, Bytes(value.begin(), value.end()));
    return;
  }
  set.TakeOut(named);
}

void PutRange(SetEdit& set, bool full) {
  const auto told = static_cast<unsigned>(set.Number(kDepth, 4));
  const unsigned depth = told >= 8 && told <= 16 ? told : 8;
  const uint64_t most = uint64_t{1} << depth;
  const uint64_t step = most >> 8;
  set.Put(kBlack, mp4::NumberBytes(full ? 0 : 16 * step, 4));
  set.Put(kWhite, mp4::NumberBytes(full ? most - 1 : 235 * step, 4));
  set.Put(kColourRange, mp4::NumberBytes(full ? most : 224 * step + 1, 4));
}

uint64_t LinesFactor(const SetEdit& set) {
  const uint64_t layout = set.Number(kLayout, 1);
  return layout == kSeparateFields || layout == kSegmentedFrame ? 2 : 1;
}

void PutRatio(SetEdit& set, uint64_t numerator, uint64_t denominator) {
  const uint64_t shared = std::gcd(numerator, denominator);
  if (shared == 0 || numerator / shared > INT32_MAX || denominator / shared > INT32_MAX) return;
  set.Put(kAspect, mp4::NumberBytes((numerator / shared) << 32 | denominator / shared, 8));
}

void PutAspect(SetEdit& set, const SampleAspect& sample) {
  uint64_t width = set.Number(kShownWidth, 4), height = set.Number(kShownHeight, 4);
  if (width == 0 || height == 0) {
    width = set.Number(kStoredWidth, 4);
    height = set.Number(kStoredHeight, 4);
  }
  if (width > kMostSide || height > kMostSide || sample.width > kMostSide || sample.height > kMostSide)
    return;
  if (width * height * sample.width * sample.height == 0) return;
  PutRatio(set, width * sample.width, height * LinesFactor(set) * sample.height);
}

// Samples keep their shape, so that what is left of the picture gets another one.
void FollowAspect(SetEdit& set, const SizeChange& size) {
  const uint64_t ratio = set.Number(kAspect.tag, 8);
  const uint64_t numerator = ratio >> 32, denominator = ratio & 0xFFFFFFFF;
  for (const uint64_t side : {uint64_t{size.width}, uint64_t{size.height}, uint64_t{size.wasWidth},
                              uint64_t{size.wasHeight}, numerator, denominator}) {
    if (side == 0 || side > kMostSide) return;
  }
  PutRatio(set, numerator * size.width * size.wasHeight, denominator * size.wasWidth * size.height);
}

// Fields of a size that the pictures had follow; what is stored beyond them stays.
void PutSize(SetEdit& set, const SizeChange& size) {
  const uint64_t factor = LinesFactor(set);
  FollowAspect(set, size);
  for (const uint16_t tag : {kSampledWidth, kShownWidth}) {
    if (set.Number(tag, 4) == size.wasWidth) set.Renew(tag, mp4::NumberBytes(size.width, 4));
  }
  for (const uint16_t tag : {kSampledHeight, kShownHeight}) {
    if (set.Number(tag, 4) * factor == size.wasHeight)
      set.Renew(tag, mp4::NumberBytes(size.height / factor, 4));
  }
}

void PutMastering(SetEdit& set, const MasteringDisplay& display) {
  const auto point = [](Bytes& to, const MasteringDisplay::Point& from) {
    mp4::PutNumber(to, from.x, 2);
    mp4::PutNumber(to, from.y, 2);
  };
  Bytes primaries, white;
  for (const auto& primary : {display.red, display.green, display.blue}) point(primaries, primary);
  point(white, display.white);
  set.Put(kMasteringPrimaries, primaries);
  set.Put(kMasteringWhite, white);
  set.Put(kMasteringMost, mp4::NumberBytes(display.maxLuminance, 4));
  set.Put(kMasteringLeast, mp4::NumberBytes(display.minLuminance, 4));
}

void PutFacts(SetEdit& set, const DescriptorFacts& facts) {
  if (facts.colour) {
    PutCode(set, kPrimaries, 0x03, kPrimariesLabels, facts.colour->primaries);
    PutCode(set, kTransfer, 0x01, kTransferLabels, facts.colour->transfer);
    PutCode(set, kEquations, 0x02, kEquationLabels, facts.colour->matrix);
  }
  if (facts.fields) set.Put(kFrameLayout, {static_cast<uint8_t>(*facts.fields ? kSeparateFields : 0)});
  if (facts.fullRange) PutRange(set, *facts.fullRange);
  if (facts.size) PutSize(set, *facts.size);
  if (facts.sampleAspect) PutAspect(set, *facts.sampleAspect);
  if (facts.mastering) PutMastering(set, *facts.mastering);
}

// Properties that are there follow; profile and bit rates stay with the level.
void PutAvcLevel(SetEdit& set, const std::vector<PrimerEntry>& primer, const DescriptorFacts& facts) {
  if (const auto tag = TagOf(primer, kAvcLevel.label)) set.Renew(*tag, {*facts.avcLevel});
  const auto tag = TagOf(primer, kAvcConstraints.label);
  if (!facts.avcSet3 || !tag) return;
  const auto flags = static_cast<uint8_t>(set.Number(*tag, 1));
  set.Renew(*tag,
            {static_cast<uint8_t>(*facts.avcSet3 ? flags | kConstraintSet3 : flags & ~kConstraintSet3)});
}

}  // namespace

std::vector<ValueChange> ChangeDescriptors(const Source& source, const MetadataCopy& copy,
                                           const FactsByTrack& facts) {
  std::vector<ValueChange> changes;
  std::optional<std::vector<PrimerEntry>> primer;
  if (copy.primer.size <= kMostSetBytes)
    primer = ReadPrimer(Reader(source).Run(copy.primer.valueAt(), copy.primer.size));
  std::set<uint64_t> done;
  const size_t had = primer ? primer->size() : 0;
  for (const PictureTrack& track : copy.tracks) {
    const auto wanted = facts.find({track.bodySid, track.number});
    if (wanted == facts.end() || !wanted->second.any() || !done.insert(track.descriptor.at).second) continue;
    if (!primer) throw source.Fault(copy.primer.at, "the primer pack is damaged");
    SetEdit set(source, track.descriptor, *primer);
    PutFacts(set, wanted->second);
    changes.push_back(set.change());
    if (!wanted->second.avcLevel || !track.avc || !done.insert(track.avc->at).second) continue;
    SetEdit avc(source, *track.avc, *primer);
    PutAvcLevel(avc, *primer, wanted->second);
    changes.push_back(avc.change());
  }
  if (primer && primer->size() != had) changes.push_back({copy.primer, WritePrimer(*primer)});
  return changes;
}

}  // namespace qlnmedia::mxf
