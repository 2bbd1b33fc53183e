// profile_tier_level() of ITU-T H.265, clause 7.3.3.
#ifndef MEDIA_SETS_HEVC_PROFILE_SYNTAX_H
#define MEDIA_SETS_HEVC_PROFILE_SYNTAX_H

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "sets/syntax_reader.h"

namespace qlnmedia {

// One profile, the general one or that of a sub-layer.
struct HevcProfile {
  uint32_t profile_space = 0;
  bool tier_flag = false;
  uint32_t profile_idc = 0;
  uint32_t compatibility = 0;  // profile_compatibility_flag[j] is bit 31 - j
  bool progressive_source_flag = false;
  bool interlaced_source_flag = false;
  bool non_packed_constraint_flag = false;
  bool frame_only_constraint_flag = false;
  uint32_t level_idc = 0;

  // True where the profile, or one that the stream also conforms to, is among those.
  bool IsAnyOf(std::initializer_list<uint32_t> profiles) const {
    for (const uint32_t profile : profiles) {
      if (profile_idc == profile || (compatibility >> (31 - profile) & 1) != 0) return true;
    }
    return false;
  }
};

// The general profile and those of the sub-layers have the same 88 bits under two sets of names.
struct HevcProfileNames {
  std::string_view profile_space, tier_flag, profile_idc, profile_compatibility_flag;
  std::string_view progressive_source_flag, interlaced_source_flag;
  std::string_view non_packed_constraint_flag, frame_only_constraint_flag;
  std::string_view max_12bit_constraint_flag, max_10bit_constraint_flag, max_8bit_constraint_flag;
  std::string_view max_422chroma_constraint_flag, max_420chroma_constraint_flag;
  std::string_view max_monochrome_constraint_flag, intra_constraint_flag;
  std::string_view one_picture_only_constraint_flag, lower_bit_rate_constraint_flag;
  std::string_view max_14bit_constraint_flag;
  std::string_view reserved_zero_33bits, reserved_zero_34bits, reserved_zero_7bits, reserved_zero_35bits;
  std::string_view reserved_zero_43bits, inbld_flag, reserved_zero_bit;
};
inline constexpr HevcProfileNames kGeneralProfileNames = {
    "general_profile_space",
    "general_tier_flag",
    "general_profile_idc",
    "general_profile_compatibility_flag",
    "general_progressive_source_flag",
    "general_interlaced_source_flag",
    "general_non_packed_constraint_flag",
    "general_frame_only_constraint_flag",
    "general_max_12bit_constraint_flag",
    "general_max_10bit_constraint_flag",
    "general_max_8bit_constraint_flag",
    "general_max_422chroma_constraint_flag",
    "general_max_420chroma_constraint_flag",
    "general_max_monochrome_constraint_flag",
    "general_intra_constraint_flag",
    "general_one_picture_only_constraint_flag",
    "general_lower_bit_rate_constraint_flag",
    "general_max_14bit_constraint_flag",
    "general_reserved_zero_33bits",
    "general_reserved_zero_34bits",
    "general_reserved_zero_7bits",
    "general_reserved_zero_35bits",
    "general_reserved_zero_43bits",
    "general_inbld_flag",
    "general_reserved_zero_bit",
};
inline constexpr HevcProfileNames kSubLayerProfileNames = {
    "sub_layer_profile_space",
    "sub_layer_tier_flag",
    "sub_layer_profile_idc",
    "sub_layer_profile_compatibility_flag",
    "sub_layer_progressive_source_flag",
    "sub_layer_interlaced_source_flag",
    "sub_layer_non_packed_constraint_flag",
    "sub_layer_frame_only_constraint_flag",
    "sub_layer_max_12bit_constraint_flag",
    "sub_layer_max_10bit_constraint_flag",
    "sub_layer_max_8bit_constraint_flag",
    "sub_layer_max_422chroma_constraint_flag",
    "sub_layer_max_420chroma_constraint_flag",
    "sub_layer_max_monochrome_constraint_flag",
    "sub_layer_intra_constraint_flag",
    "sub_layer_one_picture_only_constraint_flag",
    "sub_layer_lower_bit_rate_constraint_flag",
    "sub_layer_max_14bit_constraint_flag",
    "sub_layer_reserved_zero_33bits",
    "sub_layer_reserved_zero_34bits",
    "sub_layer_reserved_zero_7bits",
    "sub_layer_reserved_zero_35bits",
    "sub_layer_reserved_zero_43bits",
    "sub_layer_inbld_flag",
    "sub_layer_reserved_zero_bit",
};

// The 88 bits of one profile; `index` is the sub-layer, or nothing.
template <class Io, class... Index>
void ReadHevcProfile(Io& io, const HevcProfileNames& name, HevcProfile& profile, Index... index) {
  profile.profile_space = io.u(name.profile_space, 2, index...);
  profile.tier_flag = io.flag(name.tier_flag, index...);
  profile.profile_idc = io.u(name.profile_idc, 5, index...);
  for (int j = 0; j < 32; ++j) {
    const uint32_t flag = io.flag(name.profile_compatibility_flag, index..., j) ? 1 : 0;
    profile.compatibility = profile.compatibility << 1 | flag;
  }
  profile.progressive_source_flag = io.flag(name.progressive_source_flag, index...);
  profile.interlaced_source_flag = io.flag(name.interlaced_source_flag, index...);
  profile.non_packed_constraint_flag = io.flag(name.non_packed_constraint_flag, index...);
  profile.frame_only_constraint_flag = io.flag(name.frame_only_constraint_flag, index...);
  if (profile.IsAnyOf({4, 5, 6, 7, 8, 9, 10, 11})) {
    io.flag(name.max_12bit_constraint_flag, index...);
    io.flag(name.max_10bit_constraint_flag, index...);
    io.flag(name.max_8bit_constraint_flag, index...);
    io.flag(name.max_422chroma_constraint_flag, index...);
    io.flag(name.max_420chroma_constraint_flag, index...);
    io.flag(name.max_monochrome_constraint_flag, index...);
    io.flag(name.intra_constraint_flag, index...);
    io.flag(name.one_picture_only_constraint_flag, index...);
    io.flag(name.lower_bit_rate_constraint_flag, index...);
    if (profile.IsAnyOf({5, 9, 10, 11})) {
      io.flag(name.max_14bit_constraint_flag, index...);
      io.u(name.reserved_zero_33bits, 33, index...);
    } else {
      io.u(name.reserved_zero_34bits, 34, index...);
    }
  } else if (profile.IsAnyOf({2})) {
    io.u(name.reserved_zero_7bits, 7, index...);
    io.flag(name.one_picture_only_constraint_flag, index...);
    io.u(name.reserved_zero_35bits, 35, index...);
  } else {
    io.u(name.reserved_zero_43bits, 43, index...);
  }
  if (profile.IsAnyOf({1, 2, 3, 4, 5, 9, 11})) {
    io.flag(name.inbld_flag, index...);
  } else {
    io.flag(name.reserved_zero_bit, index...);
  }
}

// The whole structure; the general profile goes into the record. `which` tells it from others of its set.
template <class Io>
void ReadHevcProfileTierLevel(Io& io, bool profilePresentFlag, uint32_t maxNumSubLayersMinus1,
                              HevcProfile& general, int which = -1) {
  const auto scope = io.structure("profile_tier_level", which);
  if (profilePresentFlag) {
    ReadHevcProfile(io, kGeneralProfileNames, general);
  }
  general.level_idc = io.u("general_level_idc", 8);
  std::array<bool, 8> sub_layer_profile_present_flag{};
  std::array<bool, 8> sub_layer_level_present_flag{};
  for (uint32_t i = 0; i < maxNumSubLayersMinus1; ++i) {
    sub_layer_profile_present_flag[i] = io.flag("sub_layer_profile_present_flag", i);
    sub_layer_level_present_flag[i] = io.flag("sub_layer_level_present_flag", i);
  }
  if (maxNumSubLayersMinus1 > 0) {
    for (uint32_t i = maxNumSubLayersMinus1; i < 8; ++i) {
      io.u("reserved_zero_2bits", 2, i);
    }
  }
  for (uint32_t i = 0; i < maxNumSubLayersMinus1; ++i) {
    if (sub_layer_profile_present_flag[i]) {
      HevcProfile subLayer;
      ReadHevcProfile(io, kSubLayerProfileNames, subLayer, i);
    }
    if (sub_layer_level_present_flag[i]) {
      io.u("sub_layer_level_idc", 8, i);
    }
  }
}

}  // namespace qlnmedia

#endif
