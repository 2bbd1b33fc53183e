// The picture parameter set of ITU-T H.264 by clause 7.3.2.2.
#ifndef MEDIA_SETS_H264_PPS_SYNTAX_H
#define MEDIA_SETS_H264_PPS_SYNTAX_H

#include <array>
#include <cstdint>

#include "sets/h264_sps_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

struct H264Pps {
  uint32_t pic_parameter_set_id = 0;
  uint32_t seq_parameter_set_id = 0;
  bool bottom_field_pic_order_in_frame_present_flag = false;
  std::array<uint32_t, 2> num_ref_idx_default_active_minus1{};  // l0, l1
  bool weighted_pred_flag = false;
  uint32_t weighted_bipred_idc = 0;
  bool redundant_pic_cnt_present_flag = false;
};

// The macroblocks of the largest frame of any level (table A-1), for slice group maps.
inline constexpr uint32_t kMostH264MapUnits = 139264;

template <class Io>
void ReadH264SliceGroups(Io& io, uint32_t num_slice_groups_minus1) {
  const uint32_t slice_group_map_type = io.ue("slice_group_map_type");
  if (slice_group_map_type == 0) {
    for (uint32_t iGroup = 0; iGroup <= num_slice_groups_minus1; ++iGroup) {
      io.ue("run_length_minus1", iGroup);
    }
  } else if (slice_group_map_type == 2) {
    for (uint32_t iGroup = 0; iGroup < num_slice_groups_minus1; ++iGroup) {
      io.ue("top_left", iGroup);
      io.ue("bottom_right", iGroup);
    }
  } else if (slice_group_map_type == 3 || slice_group_map_type == 4 || slice_group_map_type == 5) {
    io.flag("slice_group_change_direction_flag");
    io.ue("slice_group_change_rate_minus1");
  } else if (slice_group_map_type == 6) {
    const uint32_t pic_size_in_map_units_minus1 =
        io.ue("pic_size_in_map_units_minus1", Most{kMostH264MapUnits - 1});
    const int bits = BitsUpTo(num_slice_groups_minus1);  // Ceil(Log2(num_slice_groups_minus1 + 1))
    for (uint32_t i = 0; i <= pic_size_in_map_units_minus1 && io.good(); ++i) {
      io.u("slice_group_id", bits, i);
    }
  }
}

// The chroma format of the SPS that the set refers to says how many scaling lists there are.
// `num_slice_groups_minus1` is bounded by 7, as in every profile.
template <class Io>
void ReadH264Pps(Io& io, uint32_t chroma_format_idc, H264Pps& pps) {
  ReadH264NalHeader(io);
  pps.pic_parameter_set_id = io.ue("pic_parameter_set_id");
  pps.seq_parameter_set_id = io.ue("seq_parameter_set_id");
  io.flag("entropy_coding_mode_flag");
  pps.bottom_field_pic_order_in_frame_present_flag = io.flag("bottom_field_pic_order_in_frame_present_flag");
  const uint32_t num_slice_groups_minus1 = io.ue("num_slice_groups_minus1", Most{7});
  if (num_slice_groups_minus1 > 0) {
    ReadH264SliceGroups(io, num_slice_groups_minus1);
  }
  pps.num_ref_idx_default_active_minus1[0] = io.ue("num_ref_idx_l0_default_active_minus1");
  pps.num_ref_idx_default_active_minus1[1] = io.ue("num_ref_idx_l1_default_active_minus1");
  pps.weighted_pred_flag = io.flag("weighted_pred_flag");
  pps.weighted_bipred_idc = io.u("weighted_bipred_idc", 2);
  io.se("pic_init_qp_minus26");
  io.se("pic_init_qs_minus26");
  io.se("chroma_qp_index_offset");
  io.flag("deblocking_filter_control_present_flag");
  io.flag("constrained_intra_pred_flag");
  pps.redundant_pic_cnt_present_flag = io.flag("redundant_pic_cnt_present_flag");
  io.factsEnd();
  if (io.more()) {
    const bool transform_8x8_mode_flag = io.flag("transform_8x8_mode_flag");
    if (io.flag("pic_scaling_matrix_present_flag")) {
      const uint32_t lists = 6 + (chroma_format_idc != 3 ? 2u : 6u) * (transform_8x8_mode_flag ? 1 : 0);
      for (uint32_t i = 0; i < lists; ++i) {
        if (io.flag("pic_scaling_list_present_flag", i)) {
          ReadH264ScalingList(io, i);
        }
      }
    }
    io.se("second_chroma_qp_index_offset");
  }
}

}  // namespace qlnmedia

#endif
