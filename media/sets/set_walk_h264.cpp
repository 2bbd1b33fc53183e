// Walks H.264 sequence parameter sets, and the part of the VUI that both codecs share.

#include <algorithm>

#include "sets/set_walk.h"

namespace qlnmedia {

void ReadVuiFront(SetReader& in, Walk& walk) {
  if (in.flag() && in.u(8) == 255) {  // aspect ratio
    walk.summary.sarWidth = in.u(16);
    walk.summary.sarHeight = in.u(16);
  }
  if (in.flag()) in.skip(1);  // overscan
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

namespace {

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

}  // namespace

bool WalkH264Sps(SetReader& in, Walk& walk) {
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

}  // namespace qlnmedia
