// Tells coded pictures apart by their first slices.

#include "pictures/picture_units.h"

#include <algorithm>

#include "sets/rbsp_reader.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kPps = 34;
constexpr size_t kHeadBytes = 64;  // of a slice: more than the elements that are read here can fill

bool IsHevcIrap(int type) { return type >= 16 && type <= 23; }

ByteSpan Head(const Unit& unit) {
  return ByteSpan(unit.bytes).first(std::min(unit.bytes.size(), kHeadBytes));
}

// nuh_layer_id
bool IsBaseLayer(const Unit& unit) {
  return unit.bytes.size() >= 2 && (unit.bytes[0] & 1) == 0 && unit.bytes[1] >> 3 == 0;
}

}  // namespace

void PictureReader::TakeSet(ByteSpan unit) {
  const int type = UnitType(codec_, unit);
  if (codec_ == Codec::kH264) {
    if (IsSps(codec_, type) && unit.size() > 1) anyOrder_ = unit[1] == 66 || unit[1] == 88;
    return;
  }
  if (type != kPps) return;
  RbspReader in(unit);
  in.skip(16);
  const uint32_t id = in.ue();
  in.ue();
  in.skip(2);
  const uint32_t extraBits = in.u(3);
  if (in.good() && id < 64) extraBits_[id] = extraBits;
}

bool PictureReader::BeginsPicture(const Unit& unit) const {
  const int type = UnitType(codec_, unit.bytes);
  if (codec_ == Codec::kHevc)  // first_slice_segment_in_pic_flag
    return IsSlice(codec_, type) && IsBaseLayer(unit) && unit.bytes.size() > 2 && unit.bytes[2] >> 7 != 0;
  // first_mb_in_slice 0: a single 1 bit.
  return (type == 1 || type == 2 || type == 5) && unit.bytes.size() > 1 && unit.bytes[1] >> 7 != 0;
}

std::vector<CodedPicture> PictureReader::Pictures(const std::vector<Unit>& units) const {
  std::vector<CodedPicture> pictures;
  constexpr size_t kNone = SIZE_MAX;
  size_t begin = kNone;  // of the access unit whose slice has not come yet
  for (size_t i = 0; i < units.size(); ++i) {
    const int type = UnitType(codec_, units[i].bytes);
    if (!IsSlice(codec_, type)) {
      if (begin == kNone && BeginsAccessUnit(codec_, type)) begin = i;
      continue;
    }
    if (pictures.empty() || (BeginsPicture(units[i]) && !anyOrder_)) {
      if (begin == kNone) begin = i;
      if (!pictures.empty()) pictures.back().end = begin;
      pictures.push_back({begin, i, units.size()});
    }
    begin = kNone;  // units between the slices of a picture begin nothing
  }
  return pictures;
}

unsigned PictureReader::KindOf(const Unit& slice) const {
  const int type = UnitType(codec_, slice.bytes);
  RbspReader in(Head(slice));
  if (codec_ == Codec::kH264) {
    in.skip(8);
    in.ue();
    const uint32_t sliceType = in.ue();
    if (!in.good() || sliceType > 9) return 0;
    static constexpr unsigned kKinds[] = {kSliceP, kSliceB, kSliceI, kSliceSwitching, kSliceSwitching};
    return kKinds[sliceType % 5];
  }
  in.skip(16 + 1 + (IsHevcIrap(type) ? 1 : 0));
  const auto extraBits = extraBits_.find(in.ue());
  if (!in.good() || extraBits == extraBits_.end()) return 0;
  in.skip(extraBits->second);
  const uint32_t sliceType = in.ue();
  if (!in.good() || sliceType > 2) return 0;
  static constexpr unsigned kKinds[] = {kSliceB, kSliceP, kSliceI};
  return kKinds[sliceType];
}

unsigned PictureReader::SlicesOf(const std::vector<Unit>& units, const CodedPicture& picture) const {
  if (codec_ == Codec::kHevc) {
    const int first = UnitType(codec_, units[picture.slice].bytes);
    if (IsHevcIrap(first)) return kSliceI;
    // The types of later segments stand behind an address of a length that takes more sets to know.
    const auto segments = std::count_if(
        units.begin() + static_cast<std::ptrdiff_t>(picture.slice),
        units.begin() + static_cast<std::ptrdiff_t>(picture.end),
        [&](const Unit& unit) { return IsSlice(codec_, UnitType(codec_, unit.bytes)) && IsBaseLayer(unit); });
    return segments == 1 ? KindOf(units[picture.slice]) : kSliceI | kSliceP | kSliceB;
  }
  unsigned kinds = 0;
  for (size_t i = picture.slice; i < picture.end; ++i) {
    const int type = UnitType(codec_, units[i].bytes);
    if (type != 1 && type != 2 && type != 5) continue;
    const unsigned kind = KindOf(units[i]);
    if (kind == 0) return 0;
    kinds |= kind;
  }
  return kinds;
}

uint8_t PictureReader::TemporalPlus1(const Unit& slice) {
  const uint8_t value = slice.bytes.size() > 1 ? slice.bytes[1] & 7 : 1;
  return value == 0 ? 1 : value;
}

}  // namespace qlnmedia
