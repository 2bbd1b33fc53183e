// Walks parameter sets by the published syntax and replaces single elements.

#include "qlnmedia/set_edit.h"

#include <algorithm>
#include <vector>

#include "qlnmedia/set_reader.h"

namespace qlnmedia {

namespace {

// Where the editable elements stand.
struct Places {
  uint32_t vuiFlag = 0;
  uint32_t signalStart = 0;  // video_signal_type_present_flag
  uint32_t signalEnd = 0;    // behind colour_description
  uint32_t videoFormat = 5;
  uint32_t picStruct = 0;
  uint32_t sourceFlags = 0;  // HEVC general_progressive_source_flag
  uint32_t fieldSeq = 0;
};

struct Walk {
  SpsSummary summary;
  Places places;
};

// The front of vui_parameters() up to colour_description, which both codecs share.
void ReadVuiFront(SetReader& in, Walk& walk) {
  if (in.flag() && in.u(8) == 255) in.skip(32);  // aspect ratio
  if (in.flag()) in.skip(1);                     // overscan
  walk.places.signalStart = in.position();
  walk.summary.signalType = in.flag();
  if (walk.summary.signalType) {
    walk.places.videoFormat = in.u(3);
    walk.summary.fullRange = in.flag();
    if (in.flag()) {
      ColourCodes codes;
      codes.primaries = static_cast<uint8_t>(in.u(8));
      codes.transfer = static_cast<uint8_t>(in.u(8));
      codes.matrix = static_cast<uint8_t>(in.u(8));
      walk.summary.colour = codes;
    }
  }
  walk.places.signalEnd = in.position();
  if (in.flag()) {  // chroma location
    in.ue();
    in.ue();
  }
}

void SkipH264ScalingLists(SetReader& in, int lists) {
  for (int i = 0; i < lists && in.good(); ++i) {
    if (!in.flag()) continue;
    int last = 8;
    int next = 8;
    for (int n = 0; n < (i < 6 ? 16 : 64) && in.good(); ++n) {
      if (next != 0) next = (last + in.se() % 256 + 512) % 256;
      if (next != 0) last = next;
    }
  }
}

void ReadH264Hrd(SetReader& in, SpsSummary& summary) {
  const uint32_t count = in.ue();
  in.skip(8);
  for (uint32_t i = 0; i <= count && i < 32 && in.good(); ++i) {
    in.ue();
    in.ue();
    in.skip(1);
  }
  in.skip(5);
  summary.cpbRemovalDelayLength = in.u(5) + 1;
  summary.dpbOutputDelayLength = in.u(5) + 1;
  summary.timeOffsetLength = in.u(5);
  summary.hrd = true;
}

bool HasChromaFormat(uint32_t profile_idc) {
  for (const uint32_t profile : {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u}) {
    if (profile == profile_idc) return true;
  }
  return false;
}

bool WalkH264(SetReader& in, Walk& walk) {
  SpsSummary& summary = walk.summary;
  in.skip(8);
  const uint32_t profile = in.u(8);
  in.skip(16);
  summary.id = in.ue();
  uint32_t chroma = 1;
  if (HasChromaFormat(profile)) {
    chroma = in.ue();
    if (chroma == 3) summary.separateColourPlanes = in.flag();
    in.ue();
    in.ue();
    in.skip(1);
    if (in.flag()) SkipH264ScalingLists(in, chroma == 3 ? 12 : 8);
  }
  summary.log2MaxFrameNum = in.ue() + 4;
  summary.pocType = in.ue();
  if (summary.pocType == 0) {
    summary.log2MaxPocLsb = in.ue() + 4;
  } else if (summary.pocType == 1) {
    PocCycle& cycle = summary.pocCycle;
    cycle.alwaysZero = in.flag();
    cycle.nonReference = in.se();
    cycle.topToBottom = in.se();
    const uint32_t count = in.ue();
    for (uint32_t i = 0; i < count && in.good(); ++i) cycle.offsets.push_back(in.se());
  }
  in.ue();
  in.skip(1);
  const uint64_t width = (uint64_t{in.ue()} + 1) * 16;
  uint64_t height = (uint64_t{in.ue()} + 1) * 16;
  summary.frameMbsOnly = in.flag();
  if (!summary.frameMbsOnly) {
    in.skip(1);
    height *= 2;
  }
  in.skip(1);
  uint64_t cut[4] = {};
  if (in.flag()) {
    for (uint64_t& side : cut) side = in.ue();
  }
  const uint32_t arrayType = summary.separateColourPlanes ? 0 : chroma;
  summary.chromaArrayType = arrayType;
  const uint64_t unitX = arrayType == 1 || arrayType == 2 ? 2 : 1;
  const uint64_t unitY = uint64_t{arrayType == 1 ? 2u : 1u} * (summary.frameMbsOnly ? 1 : 2);
  summary.width = static_cast<uint32_t>(width - std::min(width, unitX * (cut[0] + cut[1])));
  summary.height = static_cast<uint32_t>(height - std::min(height, unitY * (cut[2] + cut[3])));
  walk.places.vuiFlag = in.position();
  summary.vui = in.flag();
  if (!summary.vui) return in.good();
  ReadVuiFront(in, walk);
  if (in.flag()) {
    summary.numUnitsInTick = in.u(32);
    summary.timeScale = in.u(32);
    in.skip(1);
  }
  const bool nal = in.flag();
  if (nal) ReadH264Hrd(in, summary);
  const bool vcl = in.flag();
  if (vcl) ReadH264Hrd(in, summary);
  if (nal || vcl) in.skip(1);
  walk.places.picStruct = in.position();
  summary.picStruct = in.flag();
  return in.good();
}

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

void ReadHevcProfileTierLevel(SetReader& in, uint32_t subLayers, Walk& walk) {
  in.skip(40);
  walk.places.sourceFlags = in.position();
  walk.summary.interlace[0] = in.flag();
  walk.summary.interlace[1] = in.flag();
  in.skip(46 + 8);
  if (subLayers == 0) return;
  std::vector<std::pair<bool, bool>> present;
  for (uint32_t i = 0; i < subLayers; ++i) {
    const bool profile = in.flag();
    present.emplace_back(profile, in.flag());
  }
  in.skip((8 - subLayers) * 2);
  for (const auto& [profile, level] : present) in.skip((profile ? 88u : 0u) + (level ? 8u : 0u));
}

bool WalkHevc(SetReader& in, Walk& walk) {
  SpsSummary& summary = walk.summary;
  in.skip(16 + 4);
  const uint32_t subLayers = in.u(3);
  in.skip(1);
  ReadHevcProfileTierLevel(in, subLayers, walk);
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
  }
  return in.good();
}

bool WalkSps(Codec codec, SetReader& in, Walk& walk) {
  return codec == Codec::kH264 ? WalkH264(in, walk) : WalkHevc(in, walk);
}

// video_signal_type_present_flag and what depends on it, as they shall be.
std::vector<std::pair<int, uint32_t>> SignalFields(const Walk& walk, const SpsEdit& edit) {
  const std::optional<ColourCodes> codes = edit.colour ? edit.colour : walk.summary.colour;
  std::vector<std::pair<int, uint32_t>> fields = {
      {1, 1},
      {3, walk.places.videoFormat},
      {1, edit.fullRange.value_or(walk.summary.fullRange) ? 1 : 0},
      {1, codes ? 1 : 0}};
  if (codes) {
    fields.emplace_back(8, codes->primaries);
    fields.emplace_back(8, codes->transfer);
    fields.emplace_back(8, codes->matrix);
  }
  return fields;
}

}  // namespace

std::optional<SpsSummary> ReadSpsSummary(Codec codec, ByteSpan sps) {
  SetReader in(sps);
  Walk walk;
  if (!WalkSps(codec, in, walk)) return {};
  return walk.summary;
}

std::optional<Bytes> EditSps(Codec codec, ByteSpan sps, const SpsEdit& edit) {
  SetReader in(sps);
  Walk walk;
  if (!WalkSps(codec, in, walk)) return {};
  const SpsSummary& is = walk.summary;
  const bool signal =
      (edit.colour && edit.colour != is.colour) || (edit.fullRange && *edit.fullRange != is.fullRange);
  const bool picStruct = codec == Codec::kH264 && edit.picStruct && *edit.picStruct != is.picStruct;
  const bool source = codec == Codec::kHevc && edit.interlace &&
                      ((*edit.interlace)[0] != is.interlace[0] || (*edit.interlace)[1] != is.interlace[1]);
  const bool fieldSeq = codec == Codec::kHevc && edit.interlace && (*edit.interlace)[2] != is.interlace[2];
  std::vector<Splice> splices;
  if (source)
    splices.push_back({walk.places.sourceFlags, 2, {{1, (*edit.interlace)[0]}, {1, (*edit.interlace)[1]}}});
  if (!is.vui && (signal || picStruct || fieldSeq)) {
    // A VUI of which only the wanted elements say anything.
    std::vector<std::pair<int, uint32_t>> fields = {{1, 1}, {2, 0}};  // present; no aspect ratio, no overscan
    if (signal) {
      const auto front = SignalFields(walk, edit);
      fields.insert(fields.end(), front.begin(), front.end());
    } else {
      fields.emplace_back(1, 0);
    }
    fields.emplace_back(1, 0);  // chroma location
    if (codec == Codec::kH264) {
      fields.emplace_back(3, 0);  // timing, both HRDs
      fields.emplace_back(1, picStruct ? 1 : 0);
      fields.emplace_back(1, 0);  // bitstream restriction
    } else {
      fields.emplace_back(1, 0);  // neutral chroma
      fields.emplace_back(1, fieldSeq ? 1 : 0);
      fields.emplace_back(4, 0);  // frame and field info, display window, timing, bitstream restriction
    }
    splices.push_back({walk.places.vuiFlag, 1, std::move(fields)});
  } else {
    if (signal)
      splices.push_back({walk.places.signalStart, walk.places.signalEnd - walk.places.signalStart,
                         SignalFields(walk, edit)});
    if (picStruct) splices.push_back({walk.places.picStruct, 1, {{1, *edit.picStruct}}});
    if (fieldSeq) splices.push_back({walk.places.fieldSeq, 1, {{1, (*edit.interlace)[2]}}});
  }
  if (splices.empty()) return Bytes(sps.begin(), sps.end());
  return in.With(splices);
}

}  // namespace qlnmedia
