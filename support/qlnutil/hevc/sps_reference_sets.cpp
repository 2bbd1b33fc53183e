// The short-term reference picture sets of an SPS in the library's form of st_ref_pic_set() (clause 7.3.7).
//
// Nothing is derived: a predicted set's flags are counted by the two picture counts that stand in the record
// of the set it is predicted from, so a chain of predicted sets loses its place, which shows when the unit's
// end is checked. Hosts that edit sets rely on getting the coded flags back as they stand.

#include <algorithm>

#include "qlnutil/hevc/loop_reader.h"
#include "qlnutil/hevc/sps_syntax.h"

namespace qln {
namespace {

void ReadPredictedSet(LoopReader& in, HevcSpsRecord& sps, uint32_t index) {
  HevcShortTermRps& set = sps.st_ref_pic_set[index];
  uint32_t reference = index - 1;
  // The standard has delta_idx_minus1 in slice headers only; here the last set has it.
  if (index == sps.num_short_term_ref_pic_sets - 1) reference = index - in.ReadUe() - 1;
  set.delta_rps_sign = in.ReadBit();
  set.abs_delta_rps_minus1 = in.ReadUe();
  if (reference >= QLN_HEVC_RPS_SETS) return;
  const HevcShortTermRps& from = sps.st_ref_pic_set[reference];
  const uint32_t pictures =
      std::min<uint32_t>(from.num_negative_pics + from.num_positive_pics, QLN_HEVC_RPS_PICTURES);
  for (uint32_t j = 0; j < pictures; ++j) {  // one pair less than the standard has
    set.used_by_curr_pic_flag[j] = in.ReadBit();
    if (set.used_by_curr_pic_flag[j] == 0) set.use_delta_flag[j] = in.ReadBit();
  }
}

void ReadExplicitSet(LoopReader& in, HevcShortTermRps& set) {
  set.num_negative_pics = in.ReadUe();
  set.num_positive_pics = in.ReadUe();
  for (uint32_t i = 0; i < std::min<uint32_t>(set.num_negative_pics, QLN_HEVC_RPS_PICTURES); ++i) {
    set.delta_poc_s0_minus1[i] = in.ReadUe();
    set.used_by_curr_pic_s0_flag[i] = in.ReadBit();
  }
  for (uint32_t i = 0; i < std::min<uint32_t>(set.num_positive_pics, QLN_HEVC_RPS_PICTURES); ++i) {
    set.delta_poc_s1_minus1[i] = in.ReadUe();
    set.used_by_curr_pic_s1_flag[i] = in.ReadBit();
  }
}

// As many flag pairs as abs_delta_rps_minus1 says, which is this writer's own rule, and no delta_idx_minus1.
void WritePredictedSet(BitWriter& out, const HevcShortTermRps& set) {
  out.WriteBit(set.delta_rps_sign);
  out.WriteUe(set.abs_delta_rps_minus1);
  for (uint32_t j = 0; j < set.abs_delta_rps_minus1 + 1u && !out.Overflowed(); ++j) {
    const bool stored = j < QLN_HEVC_RPS_PICTURES;  // words beyond the arrays count as 0
    out.WriteBit(stored ? set.used_by_curr_pic_flag[j] : 0);
    out.WriteBit(stored ? set.use_delta_flag[j] : 0);
  }
}

void WriteExplicitSet(BitWriter& out, const HevcShortTermRps& set) {
  out.WriteUe(set.num_negative_pics);
  out.WriteUe(set.num_positive_pics);
  for (uint32_t i = 0; i < set.num_negative_pics && !out.Overflowed(); ++i) {
    const bool stored = i < QLN_HEVC_RPS_PICTURES;
    out.WriteUe(stored ? set.delta_poc_s0_minus1[i] : 0);
    out.WriteBit(stored ? set.used_by_curr_pic_s0_flag[i] : 0);
  }
  for (uint32_t i = 0; i < set.num_positive_pics && !out.Overflowed(); ++i) {
    const bool stored = i < QLN_HEVC_RPS_PICTURES;
    out.WriteUe(stored ? set.delta_poc_s1_minus1[i] : 0);
    out.WriteBit(stored ? set.used_by_curr_pic_s1_flag[i] : 0);
  }
}

}  // namespace

void ReadShortTermSets(BitReader& bits, HevcSpsRecord& sps) {
  LoopReader in(bits);
  // A count with its top bit set gives no set.
  const int32_t count = static_cast<int32_t>(sps.num_short_term_ref_pic_sets);
  for (int32_t i = 0; i < count; ++i) {
    const uint32_t index = static_cast<uint32_t>(i);
    HevcShortTermRps& set = sps.st_ref_pic_set[index];
    if (index > 0) set.inter_ref_pic_set_prediction_flag = in.ReadBit();
    if (index > 0 && set.inter_ref_pic_set_prediction_flag != 0) {
      ReadPredictedSet(in, sps, index);
    } else {
      ReadExplicitSet(in, set);
    }
  }
}

void WriteShortTermSets(BitWriter& out, const HevcSpsRecord& sps) {
  static constexpr HevcShortTermRps kNoSet{};
  for (uint32_t i = 0; i < sps.num_short_term_ref_pic_sets && !out.Overflowed(); ++i) {
    const HevcShortTermRps& set = i < QLN_HEVC_RPS_SETS ? sps.st_ref_pic_set[i] : kNoSet;
    if (i > 0) out.WriteBit(set.inter_ref_pic_set_prediction_flag);
    if (i > 0 && set.inter_ref_pic_set_prediction_flag != 0) {
      WritePredictedSet(out, set);
    } else {
      WriteExplicitSet(out, set);
    }
  }
}

}  // namespace qln
