// Reader and writer of profile_tier_level(), one line an element.

#include "qlnutil/hevc/profile_tier_level.h"

#include <algorithm>

#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {
namespace {

// Places of the general source flags in the 48-bit member.
constexpr int kProgressiveBit = 47;
constexpr int kInterlacedBit = 46;
constexpr int kNonPackedBit = 45;
constexpr int kFrameOnlyBit = 44;

uint32_t GreaterSigned(uint32_t a, uint32_t b) {
  return static_cast<uint32_t>(std::max(static_cast<int32_t>(a), static_cast<int32_t>(b)));
}

void Fold(const HevcProfileTierLevel& block, HevcConfigRecord& config) {
  config.general_profile_space = block.general_profile_space;
  config.general_tier_flag = GreaterSigned(config.general_tier_flag, block.general_tier_flag);
  config.general_profile_idc = GreaterSigned(config.general_profile_idc, block.general_profile_idc);
  config.general_level_idc = GreaterSigned(config.general_level_idc, block.general_level_idc);
  // Sign-extended from 32 bits: hosts compare the 64-bit member with what older files gave them.
  config.general_profile_compatibility_flags = static_cast<uint64_t>(
      static_cast<int64_t>(static_cast<int32_t>(block.general_profile_compatibility_flags)));
  config.general_constraint_indicator_flags = block.general_constraint_indicator_flags;
}

// A sub-layer's word, 0 beyond the array.
uint32_t At(const uint32_t (&words)[QLN_HEVC_SUB_LAYERS], uint32_t i) {
  return i < QLN_HEVC_SUB_LAYERS ? words[i] : 0u;
}

}  // namespace

int32_t HevcReadProfileTierLevel(BitReader& in, uint32_t maxSubLayersMinus1, HevcConfigRecord* config,
                                 HevcProfileTierLevel& ptl) {
  const uint32_t n = std::min<uint32_t>(SubLayersForLoops(maxSubLayersMinus1), QLN_HEVC_SUB_LAYERS);

  ptl.general_profile_space = in.ReadBits(2);
  ptl.general_tier_flag = in.ReadBit();
  ptl.general_profile_idc = in.ReadBits(5);
  ptl.general_profile_compatibility_flags = in.ReadBits(32);
  // The four source flags are the first of these 48 bits and are kept twice.
  ptl.general_constraint_indicator_flags = in.ReadBits64(48);
  const auto flag = [&](int bit) {
    return static_cast<uint32_t>(ptl.general_constraint_indicator_flags >> bit & 1);
  };
  ptl.general_progressive_source_flag = flag(kProgressiveBit);
  ptl.general_interlaced_source_flag = flag(kInterlacedBit);
  ptl.general_non_packed_constraint_flag = flag(kNonPackedBit);
  ptl.general_frame_only_constraint_flag = flag(kFrameOnlyBit);
  ptl.general_level_idc = in.ReadBits(8);

  for (uint32_t i = 0; i < n; ++i) {
    ptl.sub_layer_profile_present_flag[i] = in.ReadBit();
    ptl.sub_layer_level_present_flag[i] = in.ReadBit();
  }
  if (n > 0) {
    for (uint32_t i = n; i < 8; ++i) {
      if (in.ReadBits(2) != 0) ErrOutLocated("Hevc Reserved bits incorrect %s %d");
    }
  }
  for (uint32_t i = 0; i < n; ++i) {
    if (ptl.sub_layer_profile_present_flag[i] != 0) {
      ptl.sub_layer_profile_space[i] = in.ReadBits(2);
      ptl.sub_layer_tier_flag[i] = in.ReadBit();
      ptl.sub_layer_profile_idc[i] = in.ReadBits(5);
      ptl.sub_layer_profile_compatibility_flags[i] = in.ReadBits(32);
      ptl.sub_layer_progressive_source_flag[i] = in.ReadBit();
      ptl.sub_layer_interlaced_source_flag[i] = in.ReadBit();
      ptl.sub_layer_non_packed_constraint_flag[i] = in.ReadBit();
      ptl.sub_layer_frame_only_constraint_flag[i] = in.ReadBit();
      in.SkipBits(44);
    }
    if (ptl.sub_layer_level_present_flag[i] != 0) ptl.sub_layer_level_idc[i] = in.ReadBits(8);
  }
  if (config != nullptr) Fold(ptl, *config);
  return 0;
}

int32_t HevcWriteProfileTierLevel(BitWriter& out, uint32_t maxSubLayersMinus1, HevcProfileTierLevel& ptl) {
  const uint32_t n = maxSubLayersMinus1;

  out.WriteBits(2, ptl.general_profile_space);
  out.WriteBit(ptl.general_tier_flag);
  out.WriteBits(5, ptl.general_profile_idc);
  uint64_t constraints = ptl.general_constraint_indicator_flags;
  const auto fold = [&](int bit, uint32_t word) {
    const uint64_t mask = uint64_t{1} << bit;
    constraints = word != 0 ? constraints | mask : constraints & ~mask;
  };
  fold(kProgressiveBit, ptl.general_progressive_source_flag);
  fold(kInterlacedBit, ptl.general_interlaced_source_flag);
  fold(kNonPackedBit, ptl.general_non_packed_constraint_flag);
  fold(kFrameOnlyBit, ptl.general_frame_only_constraint_flag);
  ptl.general_constraint_indicator_flags = constraints;
  out.WriteBits(32, ptl.general_profile_compatibility_flags);
  out.WriteBits64(48, constraints);
  out.WriteBits(8, ptl.general_level_idc);

  for (uint32_t i = 0; i < n && !out.Overflowed(); ++i) {
    out.WriteBit(At(ptl.sub_layer_profile_present_flag, i));
    out.WriteBit(At(ptl.sub_layer_level_present_flag, i));
  }
  if (n > 0 && n < 8) out.WriteBits(static_cast<int32_t>(2 * (8 - n)), 0);
  for (uint32_t i = 0; i < n && !out.Overflowed(); ++i) {
    if (At(ptl.sub_layer_profile_present_flag, i) != 0) {
      out.WriteBits(2, ptl.sub_layer_profile_space[i]);
      out.WriteBit(ptl.sub_layer_tier_flag[i]);
      out.WriteBits(5, ptl.sub_layer_profile_idc[i]);
      out.WriteBits(32, ptl.sub_layer_profile_compatibility_flags[i]);
      out.WriteBit(ptl.sub_layer_progressive_source_flag[i]);
      out.WriteBit(ptl.sub_layer_interlaced_source_flag[i]);
      out.WriteBit(ptl.sub_layer_non_packed_constraint_flag[i]);
      out.WriteBit(ptl.sub_layer_frame_only_constraint_flag[i]);
      out.WriteBits64(44, 0);
    }
    if (At(ptl.sub_layer_level_present_flag, i) != 0) out.WriteBits(8, ptl.sub_layer_level_idc[i]);
  }
  return 0;
}

}  // namespace qln
