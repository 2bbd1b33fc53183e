// Edits sets, each only once.

#include "edit/set_changes.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "base/error.h"
#include "sets/names.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostKept = 1024;  // a stream that changes its sets all the time shall not fill memory

// Ten times each level's number: ITU-T H.264 table A-1 with 9 for 1b, H.265 table A.8.
constexpr uint32_t kH264Levels[] = {9,  10, 11, 12, 13, 20, 21, 22, 30, 31,
                                    32, 40, 41, 42, 50, 51, 52, 60, 61, 62};
constexpr uint32_t kHevcLevels[] = {10, 20, 21, 30, 31, 40, 41, 50, 51, 52, 60, 61, 62, 63, 70, 71, 72, 85};
constexpr uint32_t kFirstHighTierLevel = 40;

bool IsLevel(Codec codec, uint32_t level) {
  const auto has = [level](const auto& levels) {
    return std::find(std::begin(levels), std::end(levels), level) != std::end(levels);
  };
  return codec == Codec::kH264 ? has(kH264Levels) : has(kHevcLevels);
}

std::string LevelText(uint32_t level) {
  return level == 9 ? "1b" : fmt::format("{}.{}", level / 10, level % 10);
}

}  // namespace

SetChanges::SetChanges(Codec codec, const StreamChanges& changes, const std::vector<Bytes>& sets,
                       std::string where)
    : codec_(codec), where_(std::move(where)) {
  const bool h264 = codec_ == Codec::kH264;
  if (changes.highTier && h264) Fail("is H.264, which has no tiers");
  if (changes.timing && changes.timing->fixed && !h264)
    Fail("is HEVC, whose timing has no flag for a fixed frame rate", "leave :fixed out");
  if (changes.level && !IsLevel(codec_, *changes.level))
    Fail(fmt::format("is {}, which has no level {}", h264 ? "H.264" : "HEVC", LevelText(*changes.level)));
  for (const Bytes& unit : sets) {
    const std::optional<SpsFacts> sps =
        !h264 && IsSps(codec_, UnitType(codec_, unit)) ? ReadSpsFacts(codec_, unit) : std::nullopt;
    fields_ = fields_ || (sps && sps->hevc.interlace[2]);
  }
  fields_ = !h264 && changes.interlaced.value_or(fields_);
  edit.colour = changes.colour;
  edit.fullRange = changes.fullRange;
  edit.aspect = changes.sampleAspect;
  edit.level = vpsEdit_.level = changes.level;
  edit.highTier = vpsEdit_.highTier = changes.highTier;
  edit.chromaLocation = changes.chromaLocation;
  edit.cropping = changes.cropping;
  edit.timing = changes.timing;
  if (edit.timing && (h264 || fields_) && edit.timing->numerator > 0x7FFFFFFF)
    Fail("counts fields, for which the rate's numerator has no room");
  if (edit.timing && fields_) edit.timing->numerator *= 2;
  vpsEdit_.timing = edit.timing;
}

void SetChanges::Fail(const std::string& what, const std::string& advice) const {
  throw Error(where_, what, advice);
}

void SetChanges::RequireFit(const SpsFacts& sps) const {
  if (edit.chromaLocation && sps.chromaFormat != 1)
    Fail(fmt::format("has {} pictures, and chroma locations are told of 4:2:0",
                     ChromaFormatName(sps.chromaFormat)));
  if (edit.timing && codec_ == Codec::kHevc && sps.hevc.interlace[2] != fields_ && !edit.interlace)
    Fail("codes fields, which nothing in front of its packets says", "leave --vui-timing out");
  const uint32_t level = edit.level.value_or(sps.level / 3);
  if (codec_ == Codec::kHevc && edit.highTier.value_or(sps.hevc.highTier) && (edit.level || edit.highTier) &&
      level < kFirstHighTierLevel)
    Fail(fmt::format("is of level {}, and there is a high tier from level 4 on", LevelText(level)));
  if (!edit.cropping) return;
  const Cropping& wanted = *edit.cropping;
  const auto whole = [](uint32_t a, uint32_t b, uint32_t step) { return a % step == 0 && b % step == 0; };
  if (!whole(wanted.left, wanted.right, sps.cropUnitX) || !whole(wanted.top, wanted.bottom, sps.cropUnitY))
    Fail(fmt::format("is cropped by steps of {} columns and {} lines", sps.cropUnitX, sps.cropUnitY));
  if (uint64_t{wanted.left} + wanted.right >= sps.codedWidth ||
      uint64_t{wanted.top} + wanted.bottom >= sps.codedHeight)
    Fail(fmt::format("has {} x {} coded samples, and cropping would leave none", sps.codedWidth,
                     sps.codedHeight));
}

Bytes SetChanges::Edited(ByteSpan unit, int type) const {
  if (!IsSps(codec_, type)) {
    std::optional<Bytes> edited = EditVps(unit, vpsEdit_);
    if (!edited) Fail("a video parameter set breaks off and cannot be changed");
    return std::move(*edited);
  }
  const std::optional<SpsFacts> sps = ReadSpsFacts(codec_, unit);
  if (sps) RequireFit(*sps);
  std::optional<Bytes> edited = EditSps(codec_, unit, edit);
  if (!edited) Fail("a sequence parameter set breaks off and cannot be changed");
  return std::move(*edited);
}

bool SetChanges::Change(Bytes& unit) {
  const int type = UnitType(codec_, unit);
  const bool sps = edit.any() && IsSps(codec_, type);
  if (!sps && !(vpsEdit_.any() && codec_ == Codec::kHevc && type == hevc::kVps)) return false;
  auto known = rewritten_.find(unit);
  if (known == rewritten_.end()) {
    Bytes edited = Edited(unit, type);
    if (rewritten_.size() >= kMostKept) rewritten_.clear();
    known = rewritten_.emplace(unit, std::move(edited)).first;
  }
  const bool changed = known->second != unit;
  unit = known->second;
  return changed;
}

void SetChanges::ChangeHead(ConfigRecord& record) const {
  if (!record.box || !(edit.level || edit.highTier || edit.timing)) return;
  if (codec_ == Codec::kHevc && record.head.size() >= HvccHead::kBytes) {
    constexpr size_t kProfile = 1;  // general_profile_space, general_tier_flag, general_profile_idc
    constexpr uint8_t kTier = 0x20;
    constexpr size_t kLevel = 12;
    uint8_t& profile = record.head[kProfile];
    if (edit.highTier) profile = static_cast<uint8_t>(*edit.highTier ? profile | kTier : profile & ~kTier);
    if (edit.level) record.head[kLevel] = static_cast<uint8_t>(*edit.level * 3);
    // avgFrameRate, pictures in 256 seconds; 0 is unspecified, and stays.
    constexpr size_t kAverageRate = 19;
    uint8_t* const average = &record.head[kAverageRate];
    if (!edit.timing || (average[0] | average[1]) == 0) return;
    const uint64_t rate = std::min<uint64_t>(
        (uint64_t{edit.timing->numerator} * 256 + edit.timing->denominator / 2) / edit.timing->denominator,
        0xFFFF);
    average[0] = static_cast<uint8_t>(rate >> 8);
    average[1] = static_cast<uint8_t>(rate);
    return;
  }
  if (codec_ != Codec::kH264 || !edit.level || record.head.size() < AvccHead::kBytes) return;
  // AVCLevelIndication is a byte of the sequence parameter set; level 1b takes a flag of
  // profile_compatibility.
  for (const Bytes& unit : record.units()) {
    if (!IsSps(codec_, UnitType(codec_, unit)) || unit.size() < 4) continue;
    constexpr uint8_t kConstraintSet3 = 0x10;
    record.head[2] = static_cast<uint8_t>((record.head[2] & ~kConstraintSet3) | (unit[2] & kConstraintSet3));
    record.head[3] = unit[3];
    return;
  }
}

}  // namespace qlnmedia
