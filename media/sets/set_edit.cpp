// Replaces single elements of parameter sets.

#include "sets/set_edit.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "sets/set_walk.h"

namespace qlnmedia {

namespace {

bool WalkSps(Codec codec, SetReader& in, Walk& walk) {
  return codec == Codec::kH264 ? WalkH264Sps(in, walk) : WalkHevcSps(in, walk);
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

// The flags of the profile that shall be others than they are: progressive and interlaced source, non-packed,
// frame-only. They are among those that an HEVC walk alone finds.
std::vector<Splice> ProfileSplices(const SetReader& in, const Places& places, const SpsEdit& edit) {
  std::vector<Splice> splices;
  for (const uint32_t place : places.sourceFlags) {
    const bool was[4] = {in.bitAt(place), in.bitAt(place + 1), in.bitAt(place + 2), in.bitAt(place + 3)};
    bool is[4] = {was[0], was[1], was[2], edit.frameOnly.value_or(was[3])};
    if (edit.interlace) {
      is[0] = (*edit.interlace)[0];
      is[1] = (*edit.interlace)[1];
    }
    if (!std::equal(std::begin(is), std::end(is), std::begin(was)))
      splices.push_back({place, 4, {{1, is[0]}, {1, is[1]}, {1, is[2]}, {1, is[3]}}});
    if (!edit.subLayers) break;
  }
  return splices;
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
  const bool fieldSeq = codec == Codec::kHevc && edit.interlace && (*edit.interlace)[2] != is.interlace[2];
  const bool fieldInfo =
      codec == Codec::kHevc && edit.frameFieldInfo && *edit.frameFieldInfo != is.frameFieldInfo;
  std::vector<Splice> splices = ProfileSplices(in, walk.places, edit);
  if (!is.vui && (signal || picStruct || fieldSeq || fieldInfo)) {
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
      fields.emplace_back(1, fieldInfo ? 1 : 0);
      fields.emplace_back(3, 0);  // display window, timing, bitstream restriction
    }
    splices.push_back({walk.places.vuiFlag, 1, std::move(fields)});
  } else {
    if (signal)
      splices.push_back({walk.places.signalStart, walk.places.signalEnd - walk.places.signalStart,
                         SignalFields(walk, edit)});
    if (picStruct) splices.push_back({walk.places.picStruct, 1, {{1, *edit.picStruct}}});
    if (fieldSeq) splices.push_back({walk.places.fieldSeq, 1, {{1, (*edit.interlace)[2]}}});
    if (fieldInfo) splices.push_back({walk.places.fieldSeq + 1, 1, {{1, *edit.frameFieldInfo}}});
  }
  if (splices.empty()) return Bytes(sps.begin(), sps.end());
  return in.With(splices);
}

std::optional<Bytes> EditVps(ByteSpan vps, const SpsEdit& edit) {
  SetReader in(vps);
  Walk walk;
  if (!WalkHevcVps(in, walk)) return {};
  const std::vector<Splice> splices = ProfileSplices(in, walk.places, edit);
  if (splices.empty()) return Bytes(vps.begin(), vps.end());
  return in.With(splices);
}

}  // namespace qlnmedia
