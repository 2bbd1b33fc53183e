// The subset sequence parameter set of ITU-T H.264 by clause 7.3.2.1.3, with the extensions of the annexes on
// scalable video, on several views, and on several views with depth. The extension for depth-enhanced coding,
// which stands behind the last of them, is kept as one run of bits.
#ifndef MEDIA_SETS_H264_SUBSET_SPS_SYNTAX_H
#define MEDIA_SETS_H264_SUBSET_SPS_SYNTAX_H

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "sets/h264_sps_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

inline constexpr Most kMostH264Views{1023};
inline constexpr Most kMostH264InterViewReferences{15};
inline constexpr Most kMostH264LevelValues{63};
inline constexpr Most kMostH264OperationPoints{1023};

// Timing, HRD and pic_struct of one operation point, whose elements differ in their prefix alone.
struct H264PointNames {
  std::string_view timing_info_present_flag;
  std::string_view num_units_in_tick;
  std::string_view time_scale;
  std::string_view fixed_frame_rate_flag;
  std::string_view nal_hrd_parameters_present_flag;
  std::string_view vcl_hrd_parameters_present_flag;
  std::string_view low_delay_hrd_flag;
  std::string_view pic_struct_present_flag;
};
inline constexpr H264PointNames kSvcPointNames = {"vui_ext_timing_info_present_flag",
                                                  "vui_ext_num_units_in_tick",
                                                  "vui_ext_time_scale",
                                                  "vui_ext_fixed_frame_rate_flag",
                                                  "vui_ext_nal_hrd_parameters_present_flag",
                                                  "vui_ext_vcl_hrd_parameters_present_flag",
                                                  "vui_ext_low_delay_hrd_flag",
                                                  "vui_ext_pic_struct_present_flag"};
inline constexpr H264PointNames kMvcPointNames = {"vui_mvc_timing_info_present_flag",
                                                  "vui_mvc_num_units_in_tick",
                                                  "vui_mvc_time_scale",
                                                  "vui_mvc_fixed_frame_rate_flag",
                                                  "vui_mvc_nal_hrd_parameters_present_flag",
                                                  "vui_mvc_vcl_hrd_parameters_present_flag",
                                                  "vui_mvc_low_delay_hrd_flag",
                                                  "vui_mvc_pic_struct_present_flag"};
inline constexpr H264PointNames kMvcdPointNames = {"vui_mvcd_timing_info_present_flag",
                                                   "vui_mvcd_num_units_in_tick",
                                                   "vui_mvcd_time_scale",
                                                   "vui_mvcd_fixed_frame_rate_flag",
                                                   "vui_mvcd_nal_hrd_parameters_present_flag",
                                                   "vui_mvcd_vcl_hrd_parameters_present_flag",
                                                   "vui_mvcd_low_delay_hrd_flag",
                                                   "vui_mvcd_pic_struct_present_flag"};

template <class Io>
void ReadH264PointTiming(Io& io, const H264PointNames& names, uint32_t i) {
  H264Hrd hrd;
  if (io.flag(names.timing_info_present_flag, i)) {
    io.u(names.num_units_in_tick, 32, i);
    io.u(names.time_scale, 32, i);
    io.flag(names.fixed_frame_rate_flag, i);
  }
  const bool nal_hrd_parameters_present_flag = io.flag(names.nal_hrd_parameters_present_flag, i);
  if (nal_hrd_parameters_present_flag) {
    ReadH264Hrd(io, "nal_hrd_parameters", hrd, static_cast<int>(i));
  }
  const bool vcl_hrd_parameters_present_flag = io.flag(names.vcl_hrd_parameters_present_flag, i);
  if (vcl_hrd_parameters_present_flag) {
    ReadH264Hrd(io, "vcl_hrd_parameters", hrd, static_cast<int>(i));
  }
  if (nal_hrd_parameters_present_flag || vcl_hrd_parameters_present_flag) {
    io.flag(names.low_delay_hrd_flag, i);
  }
  io.flag(names.pic_struct_present_flag, i);
}

// seq_parameter_set_svc_extension()
template <class Io>
void ReadH264SvcExtension(Io& io, uint32_t ChromaArrayType) {
  const auto scope = io.structure("seq_parameter_set_svc_extension");
  io.flag("inter_layer_deblocking_filter_control_present_flag");
  const uint32_t extended_spatial_scalability_idc = io.u("extended_spatial_scalability_idc", 2);
  if (ChromaArrayType == 1 || ChromaArrayType == 2) {
    io.flag("chroma_phase_x_plus1_flag");
  }
  if (ChromaArrayType == 1) {
    io.u("chroma_phase_y_plus1", 2);
  }
  if (extended_spatial_scalability_idc == 1) {
    if (ChromaArrayType > 0) {
      io.flag("seq_ref_layer_chroma_phase_x_plus1_flag");
      io.u("seq_ref_layer_chroma_phase_y_plus1", 2);
    }
    io.se("seq_scaled_ref_layer_left_offset");
    io.se("seq_scaled_ref_layer_top_offset");
    io.se("seq_scaled_ref_layer_right_offset");
    io.se("seq_scaled_ref_layer_bottom_offset");
  }
  if (io.flag("seq_tcoeff_level_prediction_flag")) {
    io.flag("adaptive_tcoeff_level_prediction_flag");
  }
  io.flag("slice_header_restriction_flag");
}

// svc_vui_parameters_extension()
template <class Io>
void ReadH264SvcVui(Io& io) {
  const auto scope = io.structure("svc_vui_parameters_extension");
  const uint32_t vui_ext_num_entries_minus1 = io.ue("vui_ext_num_entries_minus1", kMostH264OperationPoints);
  for (uint32_t i = 0; i <= vui_ext_num_entries_minus1 && io.good(); ++i) {
    io.u("vui_ext_dependency_id", 3, i);
    io.u("vui_ext_quality_id", 4, i);
    io.u("vui_ext_temporal_id", 3, i);
    ReadH264PointTiming(io, kSvcPointNames, i);
  }
}

// References between views, of anchor pictures or of others, for one list.
template <class Io>
void ReadH264ViewReferences(Io& io, std::string_view countName, std::string_view name, uint32_t i) {
  const uint32_t count = io.ue(countName, kMostH264InterViewReferences, i);
  for (uint32_t j = 0; j < count; ++j) {
    io.ue(name, i, j);
  }
}

template <class Io>
void ReadH264ViewDependencies(Io& io, uint32_t num_views_minus1, const std::array<bool, 1024>& has) {
  for (uint32_t i = 1; i <= num_views_minus1 && io.good(); ++i) {
    if (!has[i]) continue;
    ReadH264ViewReferences(io, "num_anchor_refs_l0", "anchor_ref_l0", i);
    ReadH264ViewReferences(io, "num_anchor_refs_l1", "anchor_ref_l1", i);
  }
  for (uint32_t i = 1; i <= num_views_minus1 && io.good(); ++i) {
    if (!has[i]) continue;
    ReadH264ViewReferences(io, "num_non_anchor_refs_l0", "non_anchor_ref_l0", i);
    ReadH264ViewReferences(io, "num_non_anchor_refs_l1", "non_anchor_ref_l1", i);
  }
}

// The level values at the end of both extensions for several views.
template <class Io>
void ReadH264ViewLevels(Io& io, bool depth) {
  const uint32_t num_level_values_signalled_minus1 =
      io.ue("num_level_values_signalled_minus1", kMostH264LevelValues);
  for (uint32_t i = 0; i <= num_level_values_signalled_minus1 && io.good(); ++i) {
    io.u("level_idc", 8, i);
    const uint32_t num_applicable_ops_minus1 =
        io.ue("num_applicable_ops_minus1", kMostH264OperationPoints, i);
    for (uint32_t j = 0; j <= num_applicable_ops_minus1 && io.good(); ++j) {
      io.u("applicable_op_temporal_id", 3, i, j);
      const uint32_t applicable_op_num_target_views_minus1 =
          io.ue("applicable_op_num_target_views_minus1", kMostH264Views, i, j);
      for (uint32_t k = 0; k <= applicable_op_num_target_views_minus1 && io.good(); ++k) {
        io.ue("applicable_op_target_view_id", i, j, k);
        if (depth) {
          io.flag("applicable_op_depth_flag", i, j, k);
          io.flag("applicable_op_texture_flag", i, j, k);
        }
      }
      if (depth) {
        io.ue("applicable_op_num_texture_views_minus1", i, j);
        io.ue("applicable_op_num_depth_views", i, j);
      } else {
        io.ue("applicable_op_num_views_minus1", i, j);
      }
    }
  }
}

// seq_parameter_set_mvc_extension()
template <class Io>
void ReadH264MvcExtension(Io& io, const H264Sps& sps) {
  const auto scope = io.structure("seq_parameter_set_mvc_extension");
  const uint32_t num_views_minus1 = io.ue("num_views_minus1", kMostH264Views);
  for (uint32_t i = 0; i <= num_views_minus1; ++i) {
    io.ue("view_id", i);
  }
  std::array<bool, 1024> all;
  all.fill(true);
  ReadH264ViewDependencies(io, num_views_minus1, all);
  ReadH264ViewLevels(io, false);
  if (sps.profile_idc == 134) {
    const uint32_t mfc_format_idc = io.u("mfc_format_idc", 6);
    if (mfc_format_idc == 0 || mfc_format_idc == 1) {
      if (!io.flag("default_grid_position_flag")) {
        io.u("view0_grid_position_x", 4);
        io.u("view0_grid_position_y", 4);
        io.u("view1_grid_position_x", 4);
        io.u("view1_grid_position_y", 4);
      }
    }
    io.flag("rpu_filter_enabled_flag");
    if (!sps.frame_mbs_only_flag) {
      io.flag("rpu_field_processing_flag");
    }
  }
}

// mvc_vui_parameters_extension()
template <class Io>
void ReadH264MvcVui(Io& io) {
  const auto scope = io.structure("mvc_vui_parameters_extension");
  const uint32_t vui_mvc_num_ops_minus1 = io.ue("vui_mvc_num_ops_minus1", kMostH264OperationPoints);
  for (uint32_t i = 0; i <= vui_mvc_num_ops_minus1 && io.good(); ++i) {
    io.u("vui_mvc_temporal_id", 3, i);
    const uint32_t vui_mvc_num_target_output_views_minus1 =
        io.ue("vui_mvc_num_target_output_views_minus1", kMostH264Views, i);
    for (uint32_t j = 0; j <= vui_mvc_num_target_output_views_minus1; ++j) {
      io.ue("vui_mvc_view_id", i, j);
    }
    ReadH264PointTiming(io, kMvcPointNames, i);
  }
}

// mvcd_vui_parameters_extension()
template <class Io>
void ReadH264MvcdVui(Io& io) {
  const auto scope = io.structure("mvcd_vui_parameters_extension");
  const uint32_t vui_mvcd_num_ops_minus1 = io.ue("vui_mvcd_num_ops_minus1", kMostH264OperationPoints);
  for (uint32_t i = 0; i <= vui_mvcd_num_ops_minus1 && io.good(); ++i) {
    io.u("vui_mvcd_temporal_id", 3, i);
    const uint32_t vui_mvcd_num_target_output_views_minus1 =
        io.ue("vui_mvcd_num_target_output_views_minus1", kMostH264Views, i);
    for (uint32_t j = 0; j <= vui_mvcd_num_target_output_views_minus1; ++j) {
      io.ue("vui_mvcd_view_id", i, j);
      io.flag("vui_mvcd_depth_flag", i, j);
      io.flag("vui_mvcd_texture_flag", i, j);
    }
    ReadH264PointTiming(io, kMvcdPointNames, i);
  }
}

// seq_parameter_set_mvcd_extension()
template <class Io>
void ReadH264MvcdExtension(Io& io) {
  const auto scope = io.structure("seq_parameter_set_mvcd_extension");
  const uint32_t num_views_minus1 = io.ue("num_views_minus1", kMostH264Views);
  std::array<bool, 1024> depth_view_present_flag{};
  for (uint32_t i = 0; i <= num_views_minus1; ++i) {
    io.ue("view_id", i);
    depth_view_present_flag[i] = io.flag("depth_view_present_flag", i);
    io.flag("texture_view_present_flag", i);
  }
  ReadH264ViewDependencies(io, num_views_minus1, depth_view_present_flag);
  ReadH264ViewLevels(io, true);
  if (io.flag("mvcd_vui_parameters_present_flag")) {
    ReadH264MvcdVui(io);
  }
  if (io.flag("texture_vui_parameters_present_flag")) {
    ReadH264MvcVui(io);
  }
}

// subset_seq_parameter_set_rbsp()
template <class Io>
void ReadH264SubsetSps(Io& io, H264Sps& sps) {
  ReadH264NalHeader(io);
  ReadH264SpsData(io, sps);
  if (sps.profile_idc == 83 || sps.profile_idc == 86) {
    ReadH264SvcExtension(io, sps.ChromaArrayType());
    if (io.flag("svc_vui_parameters_present_flag")) {
      ReadH264SvcVui(io);
    }
  } else if (sps.profile_idc == 118 || sps.profile_idc == 128 || sps.profile_idc == 134) {
    io.flag("bit_equal_to_one");
    ReadH264MvcExtension(io, sps);
    if (io.flag("mvc_vui_parameters_present_flag")) {
      ReadH264MvcVui(io);
    }
  } else if (sps.profile_idc == 138 || sps.profile_idc == 135) {
    io.flag("bit_equal_to_one");
    ReadH264MvcdExtension(io);
  } else if (sps.profile_idc == 139) {
    io.flag("bit_equal_to_one");
    ReadH264MvcdExtension(io);
    io.run("seq_parameter_set_3davc_extension");
    return;
  }
  if (io.flag("additional_extension2_flag")) {
    io.run("additional_extension2_data_flag");
  }
}

}  // namespace qlnmedia

#endif
