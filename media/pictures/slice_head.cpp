// Walks slice headers by the published syntax, as far as the order of pictures needs them.

#include "pictures/slice_head.h"

#include <algorithm>

#include "sets/rbsp_reader.h"
#include "units/access_unit.h"
#include "units/packet_units.h"

namespace qlnmedia {

namespace {

constexpr size_t kTypeBytes = 64;  // more than the elements in front of the type can fill
constexpr uint32_t kMostReferences = 32;

bool IsPps(Codec codec, int type) { return type == (codec == Codec::kH264 ? 8 : 34); }

// ref_pic_list_modification() for one list.
void SkipListModification(RbspReader& in) {
  if (!in.flag()) return;
  while (in.good() && in.ue() != 3) in.ue();
}

// pred_weight_table() of clause 7.3.3.2.
void SkipWeights(RbspReader& in, const std::array<uint32_t, 2>& references, int lists, bool chroma) {
  in.ue();
  if (chroma) in.ue();
  for (int list = 0; list < lists; ++list) {
    for (uint32_t i = 0; i < references[static_cast<size_t>(list)] && in.good(); ++i) {
      if (in.flag()) {
        in.se();
        in.se();
      }
      if (!chroma || !in.flag()) continue;
      for (int n = 0; n < 4; ++n) in.se();
    }
  }
}

// dec_ref_pic_marking() of clause 7.3.3.3 of a picture that is no IDR picture: whether operation 5 is there.
bool ReadMarking(RbspReader& in) {
  bool resets = false;
  if (!in.flag()) return false;
  for (uint32_t operation = in.ue(); operation != 0 && in.good(); operation = in.ue()) {
    resets = resets || operation == 5;
    if (operation == 1 || operation == 2 || operation == 3 || operation == 4 || operation == 6) in.ue();
    if (operation == 3) in.ue();
  }
  return resets && in.good();
}

}  // namespace

void SliceHeadReader::TakeSet(ByteSpan unit) {
  const int type = UnitType(codec_, unit);
  if (IsSps(codec_, type)) {
    std::optional<SpsFacts> sps = ReadSpsFacts(codec_, unit);
    // Longer counters than the standards allow are nobody's.
    const bool known = sps && sps->id < 32 && sps->h264.log2MaxFrameNum <= 16 && sps->log2MaxPocLsb <= 16;
    if (known) sps_[sps->id] = std::make_shared<const SpsFacts>(std::move(*sps));
    return;
  }
  if (!IsPps(codec_, type)) return;
  const std::optional<PpsFacts> pps = ReadPpsFacts(codec_, unit);
  if (pps && pps->id < 256) pps_[pps->id] = *pps;
}

const PpsFacts* SliceHeadReader::Find(uint32_t id) const {
  const auto pps = pps_.find(id);
  return pps != pps_.end() && sps_.count(pps->second.spsId) != 0 ? &pps->second : nullptr;
}

std::optional<SliceHead> SliceHeadReader::Read(ByteSpan unit) const {
  const int type = UnitType(codec_, unit);
  if (!IsSlice(codec_, type)) return {};
  const ByteSpan front = unit.first(std::min(unit.size(), kSliceHeadBytes));
  return codec_ == Codec::kH264 ? ReadH264(front) : ReadHevc(front);
}

std::optional<uint32_t> SliceHeadReader::ReadType(ByteSpan unit) const {
  const int type = UnitType(codec_, unit);
  RbspReader in(unit.first(std::min(unit.size(), kTypeBytes)));
  if (codec_ == Codec::kH264) {
    in.skip(8);
    in.ue();  // first_mb_in_slice
  } else {
    in.skip(16 + 1 + (type >= 16 && type <= 23 ? 1 : 0));
    const auto pps = pps_.find(in.ue());
    if (!in.good() || pps == pps_.end()) return {};
    in.skip(pps->second.extraBits);
  }
  const uint32_t sliceType = in.ue();
  if (!in.good() || sliceType > (codec_ == Codec::kH264 ? 9u : 2u)) return {};
  return sliceType;
}

std::optional<SliceHead> SliceHeadReader::ReadH264(ByteSpan unit) const {
  SliceHead head;
  head.unitType = UnitType(codec_, unit);
  if (head.unitType == 3 || head.unitType == 4) return {};  // partitions without a header
  head.refIdc = unit[0] >> 5 & 3;
  const bool idr = head.unitType == 5;
  RbspReader in(unit);
  in.skip(8);
  in.ue();  // first_mb_in_slice
  const uint32_t sliceType = in.ue() % 5;
  head.ppsId = in.ue();
  const PpsFacts* const pps = Find(head.ppsId);
  if (pps == nullptr) return {};
  head.sps = sps_.at(pps->spsId);
  const SpsFacts& sps = *head.sps;
  if (sps.separateColourPlanes) in.skip(2);
  head.frameNum = in.u(static_cast<int>(sps.h264.log2MaxFrameNum));
  if (!sps.h264.frameMbsOnly) head.field = in.flag();
  if (head.field) head.bottom = in.flag();
  if (idr) head.idrPicId = in.ue();
  if (sps.h264.pocType == 0) {
    head.pocLsb = in.u(static_cast<int>(sps.log2MaxPocLsb));
    if (pps->fieldOrder && !head.field) head.deltaPocBottom = in.se();
  } else if (sps.h264.pocType == 1 && !sps.h264.pocCycle.alwaysZero) {
    head.deltaPoc[0] = in.se();
    if (pps->fieldOrder && !head.field) head.deltaPoc[1] = in.se();
  }
  if (!in.good()) return {};
  if (idr || head.refIdc == 0) return head;
  // On to the marking; slice types are P, B, I, SP, SI.
  const bool predicted = sliceType == 0 || sliceType == 3;
  const bool bipredicted = sliceType == 1;
  if (pps->redundant) in.ue();
  if (bipredicted) in.skip(1);
  std::array<uint32_t, 2> references = pps->references;
  const int lists = bipredicted ? 2 : predicted ? 1 : 0;
  if (lists != 0 && in.flag()) {
    for (int i = 0; i < lists; ++i) references[static_cast<size_t>(i)] = in.ue() + 1;
  }
  for (uint32_t& count : references) count = std::min(count, kMostReferences);
  for (int i = 0; i < lists; ++i) SkipListModification(in);
  if ((predicted && pps->weightedP) || (bipredicted && pps->weightedB == 1))
    SkipWeights(in, references, lists, sps.h264.chromaArrayType != 0);
  head.resetsOrder = ReadMarking(in);
  return head;
}

std::optional<SliceHead> SliceHeadReader::ReadHevc(ByteSpan unit) const {
  SliceHead head;
  head.unitType = UnitType(codec_, unit);
  const bool baseLayer = (unit[0] & 1) == 0 && unit[1] >> 3 == 0;  // nuh_layer_id
  if (!baseLayer || (unit[1] & 7) == 0) return {};
  head.temporalId = (unit[1] & 7u) - 1;
  RbspReader in(unit);
  in.skip(16);
  head.firstSegment = in.flag();
  if (head.unitType >= 16 && head.unitType <= 23) in.skip(1);  // no_output_of_prior_pics_flag
  head.ppsId = in.ue();
  const PpsFacts* const pps = Find(head.ppsId);
  if (pps == nullptr) return {};
  head.sps = sps_.at(pps->spsId);
  // Behind an address of a length that nobody asks for, later segments repeat what the first one says.
  if (!head.firstSegment) return head;
  in.skip(pps->extraBits);
  in.ue();  // slice_type
  if (pps->outputFlag) in.skip(1);
  if (head.sps->separateColourPlanes) in.skip(2);
  const bool idr = head.unitType == 19 || head.unitType == 20;
  if (!idr) head.pocLsb = in.u(static_cast<int>(head.sps->log2MaxPocLsb));
  if (!in.good()) return {};
  return head;
}

}  // namespace qlnmedia
