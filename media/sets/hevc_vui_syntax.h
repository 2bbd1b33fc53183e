// vui_parameters() and hrd_parameters() of ITU-T H.265, clauses E.2.1 to E.2.3.
#ifndef MEDIA_SETS_HEVC_VUI_SYNTAX_H
#define MEDIA_SETS_HEVC_VUI_SYNTAX_H

#include <cstdint>
#include <string_view>

#include "sets/syntax_reader.h"
#include "sets/vui_front_syntax.h"

namespace qlnmedia {

// What hrd_parameters() has in common for all sub-layers.
struct HevcHrd {
  bool nal_hrd_parameters_present_flag = false;
  bool vcl_hrd_parameters_present_flag = false;
  bool sub_pic_hrd_params_present_flag = false;
  uint32_t du_cpb_removal_delay_increment_length_minus1 = 0;
  bool sub_pic_cpb_params_in_pic_timing_sei_flag = false;
  uint32_t dpb_output_delay_du_length_minus1 = 0;
  uint32_t au_cpb_removal_delay_length_minus1 = 0;
  uint32_t dpb_output_delay_length_minus1 = 0;
};

struct HevcVui {
  VuiFront front;
  bool field_seq_flag = false;
  bool frame_field_info_present_flag = false;
  bool vui_timing_info_present_flag = false;
  uint32_t vui_num_units_in_tick = 0;
  uint32_t vui_time_scale = 0;
  bool vui_hrd_parameters_present_flag = false;
  HevcHrd hrd;
};

// sub_layer_hrd_parameters()
template <class Io>
void ReadHevcSubLayerHrd(Io& io, std::string_view structure, uint32_t subLayerId, uint32_t CpbCnt,
                         bool sub_pic_hrd_params_present_flag) {
  const auto scope = io.structure(structure, static_cast<int>(subLayerId));
  for (uint32_t i = 0; i < CpbCnt; ++i) {
    io.ue("bit_rate_value_minus1", i);
    io.ue("cpb_size_value_minus1", i);
    if (sub_pic_hrd_params_present_flag) {
      io.ue("cpb_size_du_value_minus1", i);
      io.ue("bit_rate_du_value_minus1", i);
    }
    io.flag("cbr_flag", i);
  }
}

// Of a set that leaves the number of sub-layers to the VPS.
inline constexpr uint32_t kUnknownSubLayers = 255;

// hrd_parameters(), which ends the walk behind its common part where nobody knows the sub-layers. Where the
// common part is not present, that of the structure before it in the same set holds, which the caller leaves
// in `hrd`. `which` tells it from others of its set.
template <class Io>
void ReadHevcHrd(Io& io, bool commonInfPresentFlag, uint32_t maxNumSubLayersMinus1, HevcHrd& hrd,
                 int which = -1) {
  const auto scope = io.structure("hrd_parameters", which);
  if (commonInfPresentFlag) {
    hrd = {};
    hrd.nal_hrd_parameters_present_flag = io.flag("nal_hrd_parameters_present_flag");
    hrd.vcl_hrd_parameters_present_flag = io.flag("vcl_hrd_parameters_present_flag");
    if (hrd.nal_hrd_parameters_present_flag || hrd.vcl_hrd_parameters_present_flag) {
      hrd.sub_pic_hrd_params_present_flag = io.flag("sub_pic_hrd_params_present_flag");
      if (hrd.sub_pic_hrd_params_present_flag) {
        io.u("tick_divisor_minus2", 8);
        hrd.du_cpb_removal_delay_increment_length_minus1 =
            io.u("du_cpb_removal_delay_increment_length_minus1", 5);
        hrd.sub_pic_cpb_params_in_pic_timing_sei_flag = io.flag("sub_pic_cpb_params_in_pic_timing_sei_flag");
        hrd.dpb_output_delay_du_length_minus1 = io.u("dpb_output_delay_du_length_minus1", 5);
      }
      io.u("bit_rate_scale", 4);
      io.u("cpb_size_scale", 4);
      if (hrd.sub_pic_hrd_params_present_flag) {
        io.u("cpb_size_du_scale", 4);
      }
      io.u("initial_cpb_removal_delay_length_minus1", 5);
      hrd.au_cpb_removal_delay_length_minus1 = io.u("au_cpb_removal_delay_length_minus1", 5);
      hrd.dpb_output_delay_length_minus1 = io.u("dpb_output_delay_length_minus1", 5);
    }
  }
  io.factsEnd();
  if (maxNumSubLayersMinus1 == kUnknownSubLayers) io.refuse("fixed_pic_rate_general_flag");
  for (uint32_t i = 0; i <= maxNumSubLayersMinus1 && io.good(); ++i) {
    const bool fixed_pic_rate_general_flag = io.flag("fixed_pic_rate_general_flag", i);
    bool fixed_pic_rate_within_cvs_flag = fixed_pic_rate_general_flag;
    if (!fixed_pic_rate_general_flag) {
      fixed_pic_rate_within_cvs_flag = io.flag("fixed_pic_rate_within_cvs_flag", i);
    }
    bool low_delay_hrd_flag = false;
    if (fixed_pic_rate_within_cvs_flag) {
      io.ue("elemental_duration_in_tc_minus1", i);
    } else {
      low_delay_hrd_flag = io.flag("low_delay_hrd_flag", i);
    }
    uint32_t cpb_cnt_minus1 = 0;
    if (!low_delay_hrd_flag) {
      cpb_cnt_minus1 = io.ue("cpb_cnt_minus1", Most{31}, i);
    }
    if (hrd.nal_hrd_parameters_present_flag) {
      ReadHevcSubLayerHrd(io, "nal_sub_layer_hrd_parameters", i, cpb_cnt_minus1 + 1,
                          hrd.sub_pic_hrd_params_present_flag);
    }
    if (hrd.vcl_hrd_parameters_present_flag) {
      ReadHevcSubLayerHrd(io, "vcl_sub_layer_hrd_parameters", i, cpb_cnt_minus1 + 1,
                          hrd.sub_pic_hrd_params_present_flag);
    }
  }
}

template <class Io>
void ReadHevcVui(Io& io, uint32_t sps_max_sub_layers_minus1, HevcVui& vui) {
  const auto scope = io.structure("vui_parameters");
  ReadVuiFront(io, "matrix_coeffs", vui.front);
  io.flag("neutral_chroma_indication_flag");
  vui.field_seq_flag = io.flag("field_seq_flag");
  vui.frame_field_info_present_flag = io.flag("frame_field_info_present_flag");
  if (io.flag("default_display_window_flag")) {
    io.ue("def_disp_win_left_offset");
    io.ue("def_disp_win_right_offset");
    io.ue("def_disp_win_top_offset");
    io.ue("def_disp_win_bottom_offset");
  }
  vui.vui_timing_info_present_flag = io.flag("vui_timing_info_present_flag");
  if (vui.vui_timing_info_present_flag) {
    vui.vui_num_units_in_tick = io.u("vui_num_units_in_tick", 32);
    vui.vui_time_scale = io.u("vui_time_scale", 32);
    if (io.flag("vui_poc_proportional_to_timing_flag")) {
      io.ue("vui_num_ticks_poc_diff_one_minus1");
    }
    vui.vui_hrd_parameters_present_flag = io.flag("vui_hrd_parameters_present_flag");
    if (vui.vui_hrd_parameters_present_flag) {
      ReadHevcHrd(io, true, sps_max_sub_layers_minus1, vui.hrd);
    }
  }
  io.factsEnd();
  if (io.flag("bitstream_restriction_flag")) {
    io.flag("tiles_fixed_structure_flag");
    io.flag("motion_vectors_over_pic_boundaries_flag");
    io.flag("restricted_ref_pic_lists_flag");
    io.ue("min_spatial_segmentation_idc");
    io.ue("max_bytes_per_pic_denom");
    io.ue("max_bits_per_min_cu_denom");
    io.ue("log2_max_mv_length_horizontal");
    io.ue("log2_max_mv_length_vertical");
  }
}

}  // namespace qlnmedia

#endif
