// Derives the facts of an SPS from its elements.

#include "inspect/sps_section.h"

#include <fmt/format.h>

#include <numeric>

#include "inspect/published_elements.h"
#include "sets/names.h"
#include "sets/sps_facts.h"

namespace qlnmedia {

namespace {

// Width and height.
struct PictureSize {
  uint64_t width = 0;
  uint64_t height = 0;
};

void AddPictureSize(Section& section, const char* key, const char* label, PictureSize size) {
  section.Add(key, label, Json{{"width", size.width}, {"height", size.height}},
              fmt::format("{} x {}", size.width, size.height));
}

void AddSampleAspect(Section& section, uint32_t aspect_ratio_idc, uint32_t sar_width, uint32_t sar_height) {
  const SampleAspect aspect = SampleAspectRatio(aspect_ratio_idc, sar_width, sar_height);
  if (aspect.width == 0 || aspect.height == 0) {
    section.Add("sample_aspect_ratio", "Sample aspect", nullptr, "unspecified");
    return;
  }
  section.Add("sample_aspect_ratio", "Sample aspect",
              Json{{"width", aspect.width}, {"height", aspect.height}},
              fmt::format("{}:{}", aspect.width, aspect.height));
}

void AddFrameRate(Section& section, uint64_t numerator, uint64_t denominator, const char* note) {
  if (numerator == 0 || denominator == 0) return;
  const uint64_t common = std::gcd(numerator, denominator);
  section.Add("frame_rate", "Frame rate",
              Json{{"numerator", numerator / common}, {"denominator", denominator / common}},
              RateText(numerator, denominator), note);
}

void AddColour(Section& section, uint32_t primaries, uint32_t transfer, uint32_t matrix) {
  section.Add("colour_primaries_name", "Primaries", ColourPrimariesName(primaries));
  section.Add("transfer_characteristics_name", "Transfer", TransferName(transfer));
  section.Add("matrix_coefficients_name", "Matrix", MatrixName(matrix));
}

void AddRange(Section& section, bool full) { section.Add("range", "Range", full ? "full" : "limited"); }

uint32_t Word(const SetElements& set, std::string_view name) {
  const SetElement* const element = set.Find(name);
  return element == nullptr ? 0 : static_cast<uint32_t>(element->value);
}

SetProfile H264Profile(const PublishedSet& published) {
  const SetElement* const profile = published.set.Find("profile_idc");
  const SetElement* const level = published.set.Find("level_idc");
  if (profile == nullptr || level == nullptr) return {};
  uint32_t constraintSets = 0;
  for (uint32_t i = 0; i < 6; ++i)
    constraintSets |= Word(published.set, fmt::format("constraint_set{}_flag", i)) << i;
  const auto profile_idc = static_cast<uint32_t>(profile->value);
  return {H264ProfileName(profile_idc, constraintSets),
          H264LevelName(static_cast<uint32_t>(level->value), profile_idc, (constraintSets >> 3 & 1) != 0),
          ""};
}

SetProfile HevcProfile(const PublishedSet& published) {
  const SetElements& set = published.set;
  const SetElement* const compatibility = set.Find("general_profile_compatibility_flag");
  const SetElement* const level = set.Find("general_level_idc");
  if (compatibility == nullptr || level == nullptr) return {};
  const uint64_t constraints = BitsAt(published.payload, compatibility->position + 32, 48);
  return {HevcProfileName(Word(set, "general_profile_idc"),
                          static_cast<uint32_t>(BitsAt(published.payload, compatibility->position, 32)),
                          constraints),
          HevcLevelName(static_cast<uint32_t>(level->value)), HevcTierName(Word(set, "general_tier_flag"))};
}

void AddProfile(Section& section, const PublishedSet& published) {
  const SetProfile profile = ProfileOf(published);
  if (profile.profile.empty()) return;
  section.Add("profile", "Profile", profile.profile);
  if (!profile.tier.empty()) section.Add("tier", "Tier", profile.tier);
  section.Add("level", "Level", profile.level);
}

void AddSizes(Section& section, const SpsFacts& sps) {
  AddPictureSize(section, "coded_size", "Coded size", {sps.codedWidth, sps.codedHeight});
  AddPictureSize(section, "picture_size", "Picture size", {sps.width, sps.height});
  section.Add("chroma_format", "Chroma", ChromaFormatName(sps.chromaFormat));
}

void AddBitDepth(Section& section, const SpsFacts& sps) {
  section.Add("bit_depth", "Bit depth", Json{{"luma", sps.bitDepthLuma}, {"chroma", sps.bitDepthChroma}},
              BitDepthText(sps.bitDepthLuma, sps.bitDepthChroma));
}

void AddVui(Section& section, const SpsFacts& sps, uint64_t ticksPerPicture, const char* rateNote) {
  if (!sps.vui) return;
  if (sps.aspectRatioIdc != 0 || sps.sarWidth != 0)
    AddSampleAspect(section, sps.aspectRatioIdc, sps.sarWidth, sps.sarHeight);
  if (sps.timing) AddFrameRate(section, sps.timeScale, sps.numUnitsInTick * ticksPerPicture, rateNote);
  if (!sps.signalType) return;
  AddRange(section, sps.fullRange);
  if (sps.colour) AddColour(section, sps.colour->primaries, sps.colour->transfer, sps.colour->matrix);
}

void AddH264Facts(Section& section, const PublishedSet& published, const SpsFacts& sps) {
  AddSizes(section, sps);
  AddBitDepth(section, sps);
  section.Add("scan", "Scan",
              sps.h264.frameMbsOnly ? "frames"
              : Word(published.set, "mb_adaptive_frame_field_flag") != 0
                  ? "fields, frames or macroblock-adaptive"
                  : "fields or frames");
  AddVui(section, sps, 2, sps.h264.fixedFrameRate ? "" : "not fixed");
}

void AddHevcFacts(Section& section, const SpsFacts& sps, bool stepLost) {
  const auto [progressive, interlaced, fields] = sps.hevc.interlace;
  AddSizes(section, sps);
  section.Add("in_step", "In step", !stepLost);
  section.MarkLast(ReportPart::kLibrary);
  AddBitDepth(section, sps);
  section.Add("scan", "Scan", fields ? "fields" : "frames");
  section.Add("source_scan", "Source",
              !interlaced    ? progressive ? "progressive" : "unknown"
              : !progressive ? "interlaced"
                             : "by picture");
  AddVui(section, sps, 1, fields ? "fields" : "");
}

}  // namespace

std::string BitDepthText(uint32_t luma, uint32_t chroma) {
  return fmt::format("{} luma, {} chroma", luma, chroma);
}

SetProfile ProfileOf(const PublishedSet& published) {
  return published.codec == Codec::kH264 ? H264Profile(published) : HevcProfile(published);
}

SetProfile ProfileOf(Codec codec, const Bytes& unit) {
  return ProfileOf(PublishedSet(codec, unit, ChromaFormats()));
}

void AddSetFacts(Section& section, const PublishedSet& published, bool stepLost) {
  const int type = UnitType(published.codec, published.unit);
  if (published.codec == Codec::kH264) {
    if (type != h264::kSps && type != h264::kSubsetSps) return;
    AddProfile(section, published);
  } else {
    if (type != hevc::kVps && type != hevc::kSps) return;
    AddProfile(section, published);
    if (type == hevc::kVps) return;
  }
  const std::optional<SpsFacts> sps = ReadSpsFacts(published.codec, published.unit);
  if (!sps) return;
  if (published.codec == Codec::kH264) {
    AddH264Facts(section, published, *sps);
  } else {
    AddHevcFacts(section, *sps, stepLost);
  }
}

}  // namespace qlnmedia
