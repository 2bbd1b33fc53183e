// pic_parameter_set_rbsp() of ITU-T H.264 clause 7.3.2.2, once for reader and writer. It is read and written
// without the SPS that it refers to.
#ifndef QLNUTIL_H264_PPS_SYNTAX_H
#define QLNUTIL_H264_PPS_SYNTAX_H

#include <algorithm>
#include <cstdint>

#include "qlnutil/h264/syntax_coders.h"

namespace qln {

// What slice_group_map_type calls for; reader and writer differ in types 2 and 6.
void SliceGroupsSyntax(H264SetReader& coder, H264PpsRecord& pps);
void SliceGroupsSyntax(H264SetWriter& coder, const H264PpsRecord& pps);

// Decides whether data follows the elements that every PPS has; the writer goes by the record.
void LookAheadForData(const H264SetReader& coder, H264PpsRecord& pps);
inline void LookAheadForData(const H264SetWriter& /*coder*/, const H264PpsRecord& /*pps*/) {}

// 6 or 8, whatever the chroma format. A host's record may hold other words in the flag; they count with their
// sign, and a record has 12 lists.
constexpr int32_t PpsScalingListCount(uint32_t transform_8x8_mode_flag) {
  const int64_t flag = static_cast<int32_t>(transform_8x8_mode_flag);
  return static_cast<int32_t>(std::clamp<int64_t>(6 + 2 * flag, 0, 12));
}

template <class Coder, class Pps>
void PpsSyntax(Coder& coder, Pps& pps) {
  NalHeaderSyntax(coder, pps);
  coder.Ue(pps.pic_parameter_set_id);
  coder.Ue(pps.seq_parameter_set_id);
  coder.Flag(pps.entropy_coding_mode_flag);
  coder.Flag(pps.bottom_field_pic_order_in_frame_present_flag);
  coder.Ue(pps.num_slice_groups_minus1);
  if (pps.num_slice_groups_minus1 > 0) {
    coder.Ue(pps.slice_group_map_type);
    SliceGroupsSyntax(coder, pps);
  }
  coder.Ue(pps.num_ref_idx_l0_default_active_minus1);
  coder.Ue(pps.num_ref_idx_l1_default_active_minus1);
  coder.Flag(pps.weighted_pred_flag);
  coder.U(2, pps.weighted_bipred_idc);
  coder.Se(pps.pic_init_qp_minus26);
  coder.Se(pps.pic_init_qs_minus26);
  coder.Se(pps.chroma_qp_index_offset);
  coder.Flag(pps.deblocking_filter_control_present_flag);
  coder.Flag(pps.constrained_intra_pred_flag);
  coder.Flag(pps.redundant_pic_cnt_present_flag);
  LookAheadForData(coder, pps);
  if (pps.more_rbsp_data_present != 0) {
    coder.Flag(pps.transform_8x8_mode_flag);
    coder.Flag(pps.pic_scaling_matrix_present_flag);
    // The reader takes lists only for a flag that was there: beyond the end it holds -1, which elsewhere
    // counts as set.
    const uint32_t matrix = pps.pic_scaling_matrix_present_flag;
    if (Coder::kReads ? matrix == 1 : matrix != 0) {
      ScalingListsSyntax(coder, pps, pps.pic_scaling_list_present_flag,
                         PpsScalingListCount(pps.transform_8x8_mode_flag));
    }
    coder.Se(pps.second_chroma_qp_index_offset);
  }
  coder.Flag(pps.rbsp_stop_one_bit);
}

}  // namespace qln

#endif
