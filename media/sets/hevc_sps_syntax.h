// The sequence parameter set of ITU-T H.265 by clause 7.3.2.2, with what the annexes on several layers and on
// 3D add to it.
#ifndef MEDIA_SETS_HEVC_SPS_SYNTAX_H
#define MEDIA_SETS_HEVC_SPS_SYNTAX_H

#include <cstdint>

#include "sets/hevc_lists_syntax.h"
#include "sets/hevc_profile_syntax.h"
#include "sets/hevc_vui_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

struct HevcSps {
  uint32_t nuh_layer_id = 0;
  uint32_t sps_max_sub_layers_minus1 = 0;
  HevcProfile general;
  uint32_t sps_seq_parameter_set_id = 0;
  uint32_t chroma_format_idc = 1;
  bool separate_colour_plane_flag = false;
  uint32_t pic_width_in_luma_samples = 0;
  uint32_t pic_height_in_luma_samples = 0;
  uint32_t conf_win_left_offset = 0;
  uint32_t conf_win_right_offset = 0;
  uint32_t conf_win_top_offset = 0;
  uint32_t conf_win_bottom_offset = 0;
  uint32_t bit_depth_luma_minus8 = 0;
  uint32_t bit_depth_chroma_minus8 = 0;
  uint32_t log2_max_pic_order_cnt_lsb_minus4 = 0;
  bool vui_parameters_present_flag = false;
  HevcVui vui;

  // A set of a higher layer whose format and profile stand in the VPS.
  bool MultiLayerExtSpsFlag() const { return nuh_layer_id != 0 && sps_max_sub_layers_minus1 == 7; }
};

// sps_range_extension()
template <class Io>
void ReadHevcSpsRangeExtension(Io& io) {
  const auto scope = io.structure("sps_range_extension");
  io.flag("transform_skip_rotation_enabled_flag");
  io.flag("transform_skip_context_enabled_flag");
  io.flag("implicit_rdpcm_enabled_flag");
  io.flag("explicit_rdpcm_enabled_flag");
  io.flag("extended_precision_processing_flag");
  io.flag("intra_smoothing_disabled_flag");
  io.flag("high_precision_offsets_enabled_flag");
  io.flag("persistent_rice_adaptation_enabled_flag");
  io.flag("cabac_bypass_alignment_enabled_flag");
}

// sps_3d_extension()
template <class Io>
void ReadHevcSps3dExtension(Io& io) {
  const auto scope = io.structure("sps_3d_extension");
  for (int d = 0; d <= 1; ++d) {
    io.flag("iv_di_mc_enabled_flag", d);
    io.flag("iv_mv_scal_enabled_flag", d);
    if (d == 0) {
      io.ue("log2_ivmc_sub_pb_size_minus3", d);
      io.flag("iv_res_pred_enabled_flag", d);
      io.flag("depth_ref_enabled_flag", d);
      io.flag("vsp_mc_enabled_flag", d);
      io.flag("dbbp_enabled_flag", d);
    } else {
      io.flag("tex_mc_enabled_flag", d);
      io.ue("log2_texmc_sub_pb_size_minus3", d);
      io.flag("intra_contour_enabled_flag", d);
      io.flag("intra_dc_only_wedge_enabled_flag", d);
      io.flag("cqt_cu_part_pred_enabled_flag", d);
      io.flag("inter_dc_only_enabled_flag", d);
      io.flag("skip_intra_enabled_flag", d);
    }
  }
}

// The predictors that a palette may start with (palette_max_size and its predictor's surplus are at most 64
// each in every profile).
inline constexpr uint32_t kMostPalettePredictors = 128;

// sps_scc_extension()
template <class Io>
void ReadHevcSpsSccExtension(Io& io, const HevcSps& sps) {
  const auto scope = io.structure("sps_scc_extension");
  io.flag("sps_curr_pic_ref_enabled_flag");
  if (io.flag("palette_mode_enabled_flag")) {
    io.ue("palette_max_size");
    io.ue("delta_palette_max_predictor_size");
    if (io.flag("sps_palette_predictor_initializers_present_flag")) {
      const uint32_t sps_num_palette_predictor_initializers_minus1 =
          io.ue("sps_num_palette_predictor_initializers_minus1", Most{kMostPalettePredictors - 1});
      const int numComps = sps.chroma_format_idc == 0 ? 1 : 3;
      for (int comp = 0; comp < numComps; ++comp) {
        const uint32_t depth = comp == 0 ? sps.bit_depth_luma_minus8 : sps.bit_depth_chroma_minus8;
        for (uint32_t i = 0; i <= sps_num_palette_predictor_initializers_minus1; ++i) {
          io.u("sps_palette_predictor_initializer", static_cast<int>(depth) + 8, comp, i);
        }
      }
    }
  }
  io.u("motion_vector_resolution_control_idc", 2);
  io.flag("intra_boundary_filtering_disabled_flag");
}

// Format, window and bit depths, which a set of a higher layer may leave to the VPS.
template <class Io>
void ReadHevcSpsFormat(Io& io, HevcSps& sps) {
  sps.chroma_format_idc = io.ue("chroma_format_idc");
  if (sps.chroma_format_idc == 3) {
    sps.separate_colour_plane_flag = io.flag("separate_colour_plane_flag");
  }
  sps.pic_width_in_luma_samples = io.ue("pic_width_in_luma_samples");
  sps.pic_height_in_luma_samples = io.ue("pic_height_in_luma_samples");
  if (io.flag("conformance_window_flag")) {
    sps.conf_win_left_offset = io.ue("conf_win_left_offset");
    sps.conf_win_right_offset = io.ue("conf_win_right_offset");
    sps.conf_win_top_offset = io.ue("conf_win_top_offset");
    sps.conf_win_bottom_offset = io.ue("conf_win_bottom_offset");
  }
  sps.bit_depth_luma_minus8 = io.ue("bit_depth_luma_minus8");
  sps.bit_depth_chroma_minus8 = io.ue("bit_depth_chroma_minus8");
}

// Coding tools, from scaling lists to intra smoothing.
template <class Io>
void ReadHevcSpsTools(Io& io, const HevcSps& sps) {
  if (io.flag("scaling_list_enabled_flag")) {
    bool sps_infer_scaling_list_flag = false;
    if (sps.MultiLayerExtSpsFlag()) {
      sps_infer_scaling_list_flag = io.flag("sps_infer_scaling_list_flag");
    }
    if (sps_infer_scaling_list_flag) {
      io.u("sps_scaling_list_ref_layer_id", 6);
    } else if (io.flag("sps_scaling_list_data_present_flag")) {
      ReadHevcScalingListData(io);
    }
  }
  io.flag("amp_enabled_flag");
  io.flag("sample_adaptive_offset_enabled_flag");
  if (io.flag("pcm_enabled_flag")) {
    io.u("pcm_sample_bit_depth_luma_minus1", 4);
    io.u("pcm_sample_bit_depth_chroma_minus1", 4);
    io.ue("log2_min_pcm_luma_coding_block_size_minus3");
    io.ue("log2_diff_max_min_pcm_luma_coding_block_size");
    io.flag("pcm_loop_filter_disabled_flag");
  }
  const uint32_t num_short_term_ref_pic_sets = io.ue("num_short_term_ref_pic_sets", Most{64});
  HevcReferenceSet set;
  for (uint32_t i = 0; i < num_short_term_ref_pic_sets; ++i) {
    set = ReadHevcReferenceSet(io, i, set);
  }
  if (io.flag("long_term_ref_pics_present_flag")) {
    const uint32_t num_long_term_ref_pics_sps = io.ue("num_long_term_ref_pics_sps", Most{32});
    for (uint32_t i = 0; i < num_long_term_ref_pics_sps; ++i) {
      io.u("lt_ref_pic_poc_lsb_sps", static_cast<int>(sps.log2_max_pic_order_cnt_lsb_minus4) + 4, i);
      io.flag("used_by_curr_pic_lt_sps_flag", i);
    }
  }
  io.flag("sps_temporal_mvp_enabled_flag");
  io.flag("strong_intra_smoothing_enabled_flag");
}

// seq_parameter_set_rbsp()
template <class Io>
void ReadHevcSps(Io& io, HevcSps& sps) {
  sps.nuh_layer_id = ReadHevcNalHeader(io);
  io.u("sps_video_parameter_set_id", 4);
  sps.sps_max_sub_layers_minus1 =
      io.u(sps.nuh_layer_id == 0 ? "sps_max_sub_layers_minus1" : "sps_ext_or_max_sub_layers_minus1", 3);
  const bool MultiLayerExtSpsFlag = sps.MultiLayerExtSpsFlag();
  if (!MultiLayerExtSpsFlag) {
    io.flag("sps_temporal_id_nesting_flag");
    ReadHevcProfileTierLevel(io, true, sps.sps_max_sub_layers_minus1, sps.general);
  }
  sps.sps_seq_parameter_set_id = io.ue("sps_seq_parameter_set_id");
  if (MultiLayerExtSpsFlag) {
    if (io.flag("update_rep_format_flag")) {
      io.u("sps_rep_format_idx", 8);
    }
  } else {
    ReadHevcSpsFormat(io, sps);
  }
  sps.log2_max_pic_order_cnt_lsb_minus4 = io.ue("log2_max_pic_order_cnt_lsb_minus4", Most{12});
  if (!MultiLayerExtSpsFlag) {
    const bool sps_sub_layer_ordering_info_present_flag = io.flag("sps_sub_layer_ordering_info_present_flag");
    for (uint32_t i = sps_sub_layer_ordering_info_present_flag ? 0 : sps.sps_max_sub_layers_minus1;
         i <= sps.sps_max_sub_layers_minus1; ++i) {
      io.ue("sps_max_dec_pic_buffering_minus1", i);
      io.ue("sps_max_num_reorder_pics", i);
      io.ue("sps_max_latency_increase_plus1", i);
    }
  }
  io.ue("log2_min_luma_coding_block_size_minus3");
  io.ue("log2_diff_max_min_luma_coding_block_size");
  io.ue("log2_min_luma_transform_block_size_minus2");
  io.ue("log2_diff_max_min_luma_transform_block_size");
  io.ue("max_transform_hierarchy_depth_inter");
  io.ue("max_transform_hierarchy_depth_intra");
  ReadHevcSpsTools(io, sps);
  sps.vui_parameters_present_flag = io.flag("vui_parameters_present_flag");
  if (sps.vui_parameters_present_flag) {
    ReadHevcVui(io, MultiLayerExtSpsFlag ? kUnknownSubLayers : sps.sps_max_sub_layers_minus1, sps.vui);
  }
  io.factsEnd();
  if (io.flag("sps_extension_present_flag")) {
    const bool sps_range_extension_flag = io.flag("sps_range_extension_flag");
    const bool sps_multilayer_extension_flag = io.flag("sps_multilayer_extension_flag");
    const bool sps_3d_extension_flag = io.flag("sps_3d_extension_flag");
    const bool sps_scc_extension_flag = io.flag("sps_scc_extension_flag");
    const uint32_t sps_extension_4bits = io.u("sps_extension_4bits", 4);
    if (sps_range_extension_flag) ReadHevcSpsRangeExtension(io);
    if (sps_multilayer_extension_flag) io.flag("inter_view_mv_vert_constraint_flag");
    if (sps_3d_extension_flag) ReadHevcSps3dExtension(io);
    if (sps_scc_extension_flag) {
      if (sps.bit_depth_luma_minus8 > 8 || sps.bit_depth_chroma_minus8 > 8) io.refuse("sps_scc_extension");
      ReadHevcSpsSccExtension(io, sps);
    }
    if (sps_extension_4bits != 0) io.run("sps_extension_data_flag");
  }
}

}  // namespace qlnmedia

#endif
