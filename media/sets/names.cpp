// Tables of names from the published standards.

#include "sets/names.h"

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <numeric>

namespace qlnmedia {

namespace {

struct NumberName {
  uint32_t number;
  const char* name;
};

template <size_t kCount>
std::string Find(const NumberName (&names)[kCount], uint32_t number, const char* what) {
  for (const NumberName& entry : names) {
    if (entry.number == number) return entry.name;
  }
  return fmt::format("{} {}", what, number);
}

constexpr NumberName kH264Profiles[] = {
    {44, "CAVLC 4:4:4 Intra"},
    {66, "Baseline"},
    {77, "Main"},
    {83, "Scalable Baseline"},
    {86, "Scalable High"},
    {88, "Extended"},
    {100, "High"},
    {110, "High 10"},
    {118, "Multiview High"},
    {122, "High 4:2:2"},
    {128, "Stereo High"},
    {134, "MFC High"},
    {135, "MFC Depth High"},
    {138, "Multiview Depth High"},
    {139, "Enhanced Multiview Depth High"},
    {244, "High 4:4:4 Predictive"},
};

constexpr NumberName kHevcProfiles[] = {
    {1, "Main"},
    {2, "Main 10"},
    {3, "Main Still Picture"},
    {4, "Format Range Extensions"},
    {5, "High Throughput"},
    {6, "Multiview Main"},
    {7, "Scalable Main"},
    {8, "3D Main"},
    {9, "Screen-Extended Main"},
    {10, "Scalable Format Range Extensions"},
    {11, "High Throughput Screen-Extended"},
};

constexpr NumberName kPrimaries[] = {
    {1, "BT.709"},
    {2, "unspecified"},
    {4, "BT.470 System M"},
    {5, "BT.601 625 lines"},
    {6, "BT.601 525 lines"},
    {7, "SMPTE ST 240"},
    {8, "generic film"},
    {9, "BT.2020"},
    {10, "SMPTE ST 428-1 (XYZ)"},
    {11, "SMPTE RP 431-2 (DCI P3)"},
    {12, "SMPTE EG 432-1 (P3 D65)"},
    {22, "EBU Tech 3213"},
};

constexpr NumberName kTransfers[] = {
    {1, "BT.709"},
    {2, "unspecified"},
    {4, "gamma 2.2"},
    {5, "gamma 2.8"},
    {6, "BT.601"},
    {7, "SMPTE ST 240"},
    {8, "linear"},
    {9, "logarithmic 100:1"},
    {10, "logarithmic 316:1"},
    {11, "IEC 61966-2-4"},
    {12, "BT.1361"},
    {13, "sRGB"},
    {14, "BT.2020 10 bit"},
    {15, "BT.2020 12 bit"},
    {16, "PQ (SMPTE ST 2084)"},
    {17, "SMPTE ST 428-1"},
    {18, "HLG (ARIB STD-B67)"},
};

constexpr NumberName kMatrices[] = {
    {0, "identity (RGB)"},
    {1, "BT.709"},
    {2, "unspecified"},
    {4, "FCC"},
    {5, "BT.601 625 lines"},
    {6, "BT.601 525 lines"},
    {7, "SMPTE ST 240"},
    {8, "YCgCo"},
    {9, "BT.2020 non-constant luminance"},
    {10, "BT.2020 constant luminance"},
    {11, "SMPTE ST 2085"},
    {12, "chroma-derived non-constant luminance"},
    {13, "chroma-derived constant luminance"},
    {14, "ICtCp"},
};

}  // namespace

std::string H264ProfileName(uint32_t profile_idc, uint32_t constraintSets) {
  const bool set1 = (constraintSets >> 1 & 1) != 0;
  const bool set3 = (constraintSets >> 3 & 1) != 0;
  const bool set4 = (constraintSets >> 4 & 1) != 0;
  const bool set5 = (constraintSets >> 5 & 1) != 0;
  if (profile_idc == 66 && set1) return "Constrained Baseline";
  if (profile_idc == 100 && set4) return set5 ? "Constrained High" : "Progressive High";
  const std::string name = Find(kH264Profiles, profile_idc, "profile");
  const bool intraKind = profile_idc == 110 || profile_idc == 122 || profile_idc == 244;
  return intraKind && set3 ? (profile_idc == 244 ? "High 4:4:4 Intra" : name + " Intra") : name;
}

std::string H264LevelName(uint32_t level_idc, uint32_t profile_idc, bool constraint_set3_flag) {
  const bool early = profile_idc == 66 || profile_idc == 77 || profile_idc == 88;
  if (level_idc == 9 || (level_idc == 11 && early && constraint_set3_flag)) return "1b";
  if (level_idc % 10 == 0) return fmt::format("{}", level_idc / 10);
  return fmt::format("{}.{}", level_idc / 10, level_idc % 10);
}

std::string H264SliceTypeName(uint32_t slice_type) {
  static constexpr std::array<const char*, 5> kNames = {"P", "B", "I", "SP", "SI"};
  return slice_type < 10 ? kNames[slice_type % 5] : fmt::format("type {}", slice_type);
}

std::string HevcProfileName(uint32_t profile_idc, uint32_t compatibility, uint64_t constraints) {
  const auto flag = [constraints](int bit) { return (constraints >> bit & 1) != 0; };
  // A profile_idc of 0 leaves it to the compatibility flags, the lowest that is set.
  if (profile_idc == 0) {
    for (uint32_t i = 1; i < 32; ++i) {
      if ((compatibility >> (31 - i) & 1) != 0) return HevcProfileName(i, 0, constraints);
    }
  }
  if (profile_idc != 4) return Find(kHevcProfiles, profile_idc, "profile");
  // The range extensions tell their profile by the nine flags behind the four source flags.
  const bool max12 = flag(43);
  const bool max10 = flag(42);
  const bool max8 = flag(41);
  std::string name = flag(38) ? "Monochrome" : flag(39) ? "Main" : flag(40) ? "Main 4:2:2" : "Main 4:4:4";
  if (!max8) name += max10 ? " 10" : max12 ? " 12" : " 16";
  if (flag(36)) return name + " Still Picture";
  return flag(37) ? name + " Intra" : name;
}

std::string HevcTierName(uint32_t tier_flag) { return tier_flag == 0 ? "Main" : "High"; }

std::string HevcLevelName(uint32_t level_idc) {
  if (level_idc % 3 != 0) return fmt::format("level_idc {}", level_idc);
  if (level_idc % 30 == 0) return fmt::format("{}", level_idc / 30);
  return fmt::format("{}.{}", level_idc / 30, level_idc % 30 / 3);
}

std::string ColourPrimariesName(uint32_t code) { return Find(kPrimaries, code, "reserved"); }
std::string TransferName(uint32_t code) { return Find(kTransfers, code, "reserved"); }
std::string MatrixName(uint32_t code) { return Find(kMatrices, code, "reserved"); }

std::string ChromaFormatName(uint32_t chroma_format_idc) {
  static constexpr std::array<const char*, 4> kNames = {"monochrome", "4:2:0", "4:2:2", "4:4:4"};
  return chroma_format_idc < kNames.size() ? kNames[chroma_format_idc]
                                           : fmt::format("chroma format {}", chroma_format_idc);
}

std::string VideoFormatName(uint32_t video_format) {
  static constexpr std::array<const char*, 6> kNames = {"component", "PAL", "NTSC",
                                                        "SECAM",     "MAC", "unspecified"};
  return video_format < kNames.size() ? kNames[video_format] : "reserved";
}

SampleAspect SampleAspectRatio(uint32_t aspect_ratio_idc, uint32_t sar_width, uint32_t sar_height) {
  static constexpr SampleAspect kTable[] = {{0, 0},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                            {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                            {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
  if (aspect_ratio_idc == 255) return {sar_width, sar_height};
  return aspect_ratio_idc < std::size(kTable) ? kTable[aspect_ratio_idc] : SampleAspect{};
}

std::string RateText(uint64_t numerator, uint64_t denominator) {
  if (denominator == 0) return "-";
  if (numerator % denominator == 0) return fmt::format("{}", numerator / denominator);
  const uint64_t common = std::gcd(numerator, denominator);
  return fmt::format("{:.6g} ({}/{})", static_cast<double>(numerator) / static_cast<double>(denominator),
                     numerator / common, denominator / common);
}

}  // namespace qlnmedia
