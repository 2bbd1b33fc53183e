// Walks the units of an access unit.

#include "access_unit.h"

#include <algorithm>

#include "qlnutil/helpers.h"

namespace qlngst {

namespace {

// nal_unit_type of ITU-T H.264 table 7-1 and H.265 table 7-1.
constexpr int kH264Slice = 1;
constexpr int kH264Idr = 5;
constexpr int kH264Sps = 7;
constexpr int kH264Pps = 8;
constexpr int kHevcIdr = 19;
constexpr int kHevcIdrWithoutLeading = 20;
constexpr int kHevcFirstOther = 32;  // types below are slices
constexpr int kHevcVps = 32;
constexpr int kHevcPps = 34;

// A stream that invents sets shall not fill memory.
constexpr size_t kMostSets = 64;
constexpr size_t kMostSetBytes = 64 * 1024;

// As much as mostly holds all that stands in front of the first slice.
constexpr size_t kHeadBytes = 4096;

class UnitWalk {
 public:
  UnitWalk(qlnmedia::VideoCodec codec, KeptSets* kept)
      : h264_(codec == qlnmedia::VideoCodec::kH264), kept_(kept) {}

  // True at the first slice.
  bool Take(const uint8_t* unit, size_t size) {
    const int type = h264_ ? unit[0] & 0x1F : unit[0] >> 1 & 0x3F;
    const bool set = h264_ ? type == kH264Sps || type == kH264Pps : type >= kHevcVps && type <= kHevcPps;
    if (set && kept_ != nullptr) kept_->Take(unit, size);
    if (h264_ ? type < kH264Slice || type > kH264Idr : type >= kHevcFirstOther) return false;
    idr = h264_ ? type == kH264Idr : type == kHevcIdr || type == kHevcIdrWithoutLeading;
    return true;
  }

  bool idr = false;

 private:
  bool h264_;
  KeptSets* kept_;
};

AccessUnitFacts LookAtStartCodes(qlnmedia::VideoCodec codec, const uint8_t* data, size_t size,
                                 KeptSets& kept) {
  AccessUnitFacts facts;
  bool any = false;
  for (const size_t length : {std::min(size, kHeadBytes), size}) {
    UnitWalk head(codec, nullptr);
    bool slice = false;
    for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(data, length)) {
      any = true;
      slice = head.Take(unit.data, unit.size);
      if (slice) break;
    }
    // What the cut goes through is a slice, or is looked at again.
    if (!slice && length != size) continue;
    UnitWalk walk(codec, &kept);
    for (const qlnutil::NalUnit& unit : qlnutil::StartCodeUnits(data, length)) {
      if (walk.Take(unit.data, unit.size)) break;
    }
    facts.idr = walk.idr;
    break;
  }
  if (!any) facts.damage = "an access unit holds no start code";
  return facts;
}

AccessUnitFacts LookAtLengths(qlnmedia::VideoCodec codec, size_t lengthBytes, const uint8_t* data,
                              size_t size, KeptSets* kept) {
  AccessUnitFacts facts;
  UnitWalk walk(codec, kept);
  bool slice = false;
  for (size_t at = 0; at < size;) {
    size_t length = 0;
    if (size - at >= lengthBytes) {
      for (size_t i = 0; i < lengthBytes; ++i) length = length << 8 | data[at + i];
    }
    if (length == 0 || length > size - at - lengthBytes) {
      facts.damage = length == 0 ? "a unit has no length" : "a length leads past the end of its access unit";
      return facts;
    }
    if (!slice) slice = walk.Take(data + at + lengthBytes, length);
    at += lengthBytes + length;
  }
  facts.idr = walk.idr;
  return facts;
}

}  // namespace

void KeptSets::Take(const uint8_t* unit, size_t size) {
  if (size > kMostSetBytes) return;
  const std::vector<uint8_t> set(unit, unit + size);
  std::erase(sets_, set);
  sets_.push_back(set);
  if (sets_.size() > kMostSets) sets_.erase(sets_.begin());
}

std::vector<uint8_t> KeptSets::Bytes() const {
  std::vector<uint8_t> bytes;
  for (const std::vector<uint8_t>& set : sets_) {
    bytes.insert(bytes.end(), {0, 0, 0, 1});
    bytes.insert(bytes.end(), set.begin(), set.end());
  }
  return bytes;
}

AccessUnitFacts LookAt(qlnmedia::VideoCodec codec, int lengthBytes, const uint8_t* data, size_t size,
                       KeptSets& kept) {
  if (lengthBytes == 0) return LookAtStartCodes(codec, data, size, kept);
  return LookAtLengths(codec, static_cast<size_t>(lengthBytes), data, size, nullptr);
}

}  // namespace qlngst
