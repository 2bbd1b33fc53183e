// Walks HEVC sequence and video parameter sets.

#include <algorithm>
#include <utility>
#include <vector>

#include "sets/set_walk.h"

namespace qlnmedia {

namespace {

void SkipHevcScalingListData(SetReader& in) {
  for (int size = 0; size < 4; ++size) {
    for (int matrix = 0; matrix < 6 && in.good(); matrix += size == 3 ? 3 : 1) {
      if (!in.flag()) {
        in.ue();
        continue;
      }
      if (size > 1) in.se();
      const int count = std::min(64, 1 << (4 + (size << 1)));
      for (int i = 0; i < count && in.good(); ++i) in.se();
    }
  }
}

// st_ref_pic_set() of H.265 clause 7.3.7, with the picture order differences that later sets are predicted
// from. The two lists stand one behind the other, as equations 7-61 and 7-62 walk them.
struct ReferenceSet {
  std::vector<int64_t> before;
  std::vector<int64_t> after;
};

bool ReadReferenceSet(SetReader& in, std::vector<ReferenceSet>& sets) {
  constexpr size_t kMost = 16;
  ReferenceSet set;
  if (!sets.empty() && in.flag()) {
    const ReferenceSet& from = sets.back();
    const bool negative = in.flag();
    const int64_t delta = (negative ? -1 : 1) * (int64_t{in.ue()} + 1);
    std::vector<int64_t> differences = from.before;
    differences.insert(differences.end(), from.after.begin(), from.after.end());
    std::vector<bool> kept;
    for (size_t j = 0; j <= differences.size(); ++j) kept.push_back(in.flag() || in.flag());
    const auto take = [&](std::vector<int64_t>& list, size_t index, int64_t difference, bool before) {
      if (kept[index] && (before ? difference < 0 : difference > 0)) list.push_back(difference);
    };
    for (size_t j = from.after.size(); j-- > 0;)
      take(set.before, from.before.size() + j, from.after[j] + delta, true);
    take(set.before, differences.size(), delta, true);
    for (size_t j = 0; j < from.before.size(); ++j) take(set.before, j, from.before[j] + delta, true);
    for (size_t j = from.before.size(); j-- > 0;) take(set.after, j, from.before[j] + delta, false);
    take(set.after, differences.size(), delta, false);
    for (size_t j = 0; j < from.after.size(); ++j)
      take(set.after, from.before.size() + j, from.after[j] + delta, false);
  } else {
    const uint32_t negative = in.ue();
    const uint32_t positive = in.ue();
    if (negative > kMost || positive > kMost) return false;
    int64_t difference = 0;
    for (uint32_t i = 0; i < negative; ++i) {
      difference -= int64_t{in.ue()} + 1;
      set.before.push_back(difference);
      in.skip(1);
    }
    difference = 0;
    for (uint32_t i = 0; i < positive; ++i) {
      difference += int64_t{in.ue()} + 1;
      set.after.push_back(difference);
      in.skip(1);
    }
  }
  if (!in.good() || set.before.size() > kMost || set.after.size() > kMost) return false;
  sets.push_back(std::move(set));
  return true;
}

// profile_tier_level() of clause 7.3.3.
void ReadProfileTierLevel(SetReader& in, uint32_t subLayers, Walk& walk) {
  in.skip(40);
  walk.places.sourceFlags.push_back(in.position());
  walk.summary.interlace[0] = in.flag();
  walk.summary.interlace[1] = in.flag();
  in.skip(1);
  walk.summary.frameOnly = in.flag();
  in.skip(44 + 8);
  if (subLayers == 0) return;
  std::vector<std::pair<bool, bool>> present;
  for (uint32_t i = 0; i < subLayers; ++i) {
    const bool profile = in.flag();
    present.emplace_back(profile, in.flag());
  }
  in.skip((8 - subLayers) * 2);
  for (const auto& [profile, level] : present) {
    if (profile) walk.places.sourceFlags.push_back(in.position() + 40);
    in.skip((profile ? 88u : 0u) + (level ? 8u : 0u));
  }
}

// hrd_parameters() of clause E.2.2 up to the lengths of the delays.
void ReadHrdHead(SetReader& in, HevcDelays& delays) {
  const bool nal = in.flag();
  const bool vcl = in.flag();
  delays.present = nal || vcl;
  if (!delays.present) return;
  delays.subPictures = in.flag();
  if (delays.subPictures) {
    in.skip(8);
    delays.duIncrement = in.u(5) + 1;
    delays.unitsInPictureTiming = in.flag();
    delays.dpbOutputDu = in.u(5) + 1;
  }
  in.skip(8 + (delays.subPictures ? 4u : 0u) + 5);  // scales, initial_cpb_removal_delay_length_minus1
  delays.cpbRemoval = in.u(5) + 1;
  delays.dpbOutput = in.u(5) + 1;
}

}  // namespace

bool WalkHevcSps(SetReader& in, Walk& walk) {
  SpsSummary& summary = walk.summary;
  in.skip(16 + 4);
  const uint32_t subLayers = in.u(3);
  in.skip(1);
  ReadProfileTierLevel(in, subLayers, walk);
  summary.id = in.ue();
  const uint32_t chroma = in.ue();
  if (chroma == 3) summary.separateColourPlanes = in.flag();
  const uint64_t width = in.ue();
  const uint64_t height = in.ue();
  uint64_t cut[4] = {};
  if (in.flag()) {
    for (uint64_t& side : cut) side = in.ue();
  }
  const uint32_t unitX = chroma == 1 || chroma == 2 ? 2 : 1;
  const uint32_t unitY = chroma == 1 ? 2 : 1;
  summary.width = static_cast<uint32_t>(width - std::min(width, unitX * (cut[0] + cut[1])));
  summary.height = static_cast<uint32_t>(height - std::min(height, unitY * (cut[2] + cut[3])));
  in.ue();
  in.ue();
  summary.log2MaxPocLsb = in.ue() + 4;
  if (summary.log2MaxPocLsb > 16) return false;
  const uint32_t ordering = in.flag() ? subLayers + 1 : 1;
  for (uint32_t i = 0; i < ordering * 3; ++i) in.ue();
  for (int i = 0; i < 6; ++i) in.ue();
  if (in.flag() && in.flag()) SkipHevcScalingListData(in);
  in.skip(2);
  if (in.flag()) {  // pcm
    in.skip(8);
    in.ue();
    in.ue();
    in.skip(1);
  }
  const uint32_t setCount = in.ue();
  if (setCount > 64) return false;
  std::vector<ReferenceSet> sets;
  for (uint32_t i = 0; i < setCount; ++i) {
    if (!ReadReferenceSet(in, sets)) return false;
  }
  if (in.flag()) {  // long-term pictures
    const uint32_t count = in.ue();
    if (count > 32) return false;
    in.skip(count * (summary.log2MaxPocLsb + 1));
  }
  in.skip(2);
  walk.places.vuiFlag = in.position();
  summary.vui = in.flag();
  if (!summary.vui) return in.good();
  ReadVuiFront(in, walk);
  in.skip(1);
  walk.places.fieldSeq = in.position();
  summary.interlace[2] = in.flag();
  summary.frameFieldInfo = in.flag();
  if (in.flag()) {  // default display window
    for (int i = 0; i < 4; ++i) in.ue();
  }
  if (in.flag()) {
    summary.numUnitsInTick = in.u(32);
    summary.timeScale = in.u(32);
    if (in.flag()) in.ue();  // vui_num_ticks_poc_diff_one_minus1
    if (in.flag()) ReadHrdHead(in, summary.delays);
  }
  return in.good();
}

bool WalkHevcVps(SetReader& in, Walk& walk) {
  in.skip(16 + 4 + 2 + 6);
  const uint32_t subLayers = in.u(3);
  in.skip(1 + 16);
  ReadProfileTierLevel(in, subLayers, walk);
  return in.good();
}

}  // namespace qlnmedia
