// profile_tier_level(), once for reader and writer, and what the reader folds into a configuration record.

#include "qlnutil/hevc/profile_tier_level.h"

#include <algorithm>

#include "qlnutil/hevc/syntax_coders.h"

namespace qln {
namespace {

// Places of the general source flags in the 48-bit member; the record has them as words too.
constexpr int kProgressiveBit = 47;
constexpr int kInterlacedBit = 46;
constexpr int kNonPackedBit = 45;
constexpr int kFrameOnlyBit = 44;

struct ProfileReader : HevcElementReader<BitReader&> {
  void ConstraintFlags(HevcProfileTierLevel& ptl) {
    const uint64_t flags = bits.ReadBits64(48);
    ptl.general_constraint_indicator_flags = flags;
    ptl.general_progressive_source_flag = flags >> kProgressiveBit & 1u;
    ptl.general_interlaced_source_flag = flags >> kInterlacedBit & 1;
    ptl.general_non_packed_constraint_flag = flags >> kNonPackedBit & 1;
    ptl.general_frame_only_constraint_flag = flags >> kFrameOnlyBit & 1;
  }
  uint32_t& reservedPairs;

  void ReservedPair() {
    if (bits.ReadBits(2) != 0) ++reservedPairs;
  }
};

struct ProfileWriter : HevcSetWriter {
  // The words win over the member, so that a caller changes the stream's flags by the words alone.
  void ConstraintFlags(HevcProfileTierLevel& ptl) {
    uint64_t flags = ptl.general_constraint_indicator_flags;
    const auto fold = [&](int bit, uint32_t word) {
      const uint64_t mask = uint64_t{1} << bit;
      flags = word != 0 ? flags | mask : flags & ~mask;
    };
    fold(kProgressiveBit, ptl.general_progressive_source_flag);
    fold(kInterlacedBit, ptl.general_interlaced_source_flag);
    fold(kNonPackedBit, ptl.general_non_packed_constraint_flag);
    fold(kFrameOnlyBit, ptl.general_frame_only_constraint_flag);
    ptl.general_constraint_indicator_flags = flags;
    bits.WriteBits64(48, flags);
  }
  void ReservedPair() { Pass(2); }
};

template <class Coder>
void ProfileTierLevelSyntax(Coder& coder, uint32_t maxSubLayersMinus1, HevcProfileTierLevel& ptl) {
  coder.U(2, ptl.general_profile_space);
  coder.Flag(ptl.general_tier_flag);
  coder.U(5, ptl.general_profile_idc);
  coder.U(32, ptl.general_profile_compatibility_flags);
  coder.ConstraintFlags(ptl);
  coder.U(8, ptl.general_level_idc);
  const uint64_t n = coder.LastSubLayer(maxSubLayersMinus1);
  for (uint64_t i = 0; i < n && !coder.Full(); ++i) {
    coder.Flag(coder.Entry(ptl.sub_layer_profile_present_flag, i));
    coder.Flag(coder.Entry(ptl.sub_layer_level_present_flag, i));
  }
  if (n > 0) {
    for (uint64_t i = n; i < 8; ++i) coder.ReservedPair();
  }
  for (uint64_t i = 0; i < n && !coder.Full(); ++i) {
    if (coder.Entry(ptl.sub_layer_profile_present_flag, i) != 0) {
      coder.U(2, coder.Entry(ptl.sub_layer_profile_space, i));
      coder.Flag(coder.Entry(ptl.sub_layer_tier_flag, i));
      coder.U(5, coder.Entry(ptl.sub_layer_profile_idc, i));
      coder.U(32, coder.Entry(ptl.sub_layer_profile_compatibility_flags, i));
      coder.Flag(coder.Entry(ptl.sub_layer_progressive_source_flag, i));
      coder.Flag(coder.Entry(ptl.sub_layer_interlaced_source_flag, i));
      coder.Flag(coder.Entry(ptl.sub_layer_non_packed_constraint_flag, i));
      coder.Flag(coder.Entry(ptl.sub_layer_frame_only_constraint_flag, i));
      coder.Pass(44);
    }
    if (coder.Entry(ptl.sub_layer_level_present_flag, i) != 0) {
      coder.U(8, coder.Entry(ptl.sub_layer_level_idc, i));
    }
  }
}

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

}  // namespace

int32_t HevcReadProfileTierLevel(BitReader& in, uint32_t maxSubLayersMinus1, HevcConfigRecord* config,
                                 HevcProfileTierLevel& block, uint32_t& reservedPairs) {
  ProfileReader coder{{{in}}, reservedPairs};
  ProfileTierLevelSyntax(coder, maxSubLayersMinus1, block);
  if (config != nullptr) Fold(block, *config);
  return 0;
}

int32_t HevcWriteProfileTierLevel(BitWriter& out, uint32_t maxSubLayersMinus1, HevcProfileTierLevel& block) {
  ProfileWriter coder{{{out}}};
  ProfileTierLevelSyntax(coder, maxSubLayersMinus1, block);
  out = coder.bits;
  return 0;
}

}  // namespace qln
