// The picture parameter set of ITU-T H.265 by clause 7.3.2.3.1; its extensions stand in
// hevc_pps_extensions_syntax.h.
#ifndef MEDIA_SETS_HEVC_PPS_SYNTAX_H
#define MEDIA_SETS_HEVC_PPS_SYNTAX_H

#include <cstdint>

#include "sets/hevc_lists_syntax.h"
#include "sets/hevc_pps_extensions_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

struct HevcPps {
  uint32_t pps_pic_parameter_set_id = 0;
  uint32_t pps_seq_parameter_set_id = 0;
  bool output_flag_present_flag = false;
  uint32_t num_extra_slice_header_bits = 0;
};

// Tiles of the smallest coding tree blocks (16 samples) side by side in the widest picture of any level.
inline constexpr uint32_t kMostHevcTiles = 16888 / 16;

template <class Io>
void ReadHevcTiles(Io& io) {
  const uint32_t num_tile_columns_minus1 = io.ue("num_tile_columns_minus1", Most{kMostHevcTiles - 1});
  const uint32_t num_tile_rows_minus1 = io.ue("num_tile_rows_minus1", Most{kMostHevcTiles - 1});
  if (!io.flag("uniform_spacing_flag")) {
    for (uint32_t i = 0; i < num_tile_columns_minus1; ++i) {
      io.ue("column_width_minus1", i);
    }
    for (uint32_t i = 0; i < num_tile_rows_minus1; ++i) {
      io.ue("row_height_minus1", i);
    }
  }
  io.flag("loop_filter_across_tiles_enabled_flag");
}

// pic_parameter_set_rbsp()
template <class Io>
void ReadHevcPps(Io& io, HevcPps& pps) {
  ReadHevcNalHeader(io);
  pps.pps_pic_parameter_set_id = io.ue("pps_pic_parameter_set_id");
  pps.pps_seq_parameter_set_id = io.ue("pps_seq_parameter_set_id");
  io.flag("dependent_slice_segments_enabled_flag");
  pps.output_flag_present_flag = io.flag("output_flag_present_flag");
  pps.num_extra_slice_header_bits = io.u("num_extra_slice_header_bits", 3);
  io.factsEnd();
  io.flag("sign_data_hiding_enabled_flag");
  io.flag("cabac_init_present_flag");
  io.ue("num_ref_idx_l0_default_active_minus1");
  io.ue("num_ref_idx_l1_default_active_minus1");
  io.se("init_qp_minus26");
  io.flag("constrained_intra_pred_flag");
  const bool transform_skip_enabled_flag = io.flag("transform_skip_enabled_flag");
  if (io.flag("cu_qp_delta_enabled_flag")) {
    io.ue("diff_cu_qp_delta_depth");
  }
  io.se("pps_cb_qp_offset");
  io.se("pps_cr_qp_offset");
  io.flag("pps_slice_chroma_qp_offsets_present_flag");
  io.flag("weighted_pred_flag");
  io.flag("weighted_bipred_flag");
  io.flag("transquant_bypass_enabled_flag");
  const bool tiles_enabled_flag = io.flag("tiles_enabled_flag");
  io.flag("entropy_coding_sync_enabled_flag");
  if (tiles_enabled_flag) {
    ReadHevcTiles(io);
  }
  io.flag("pps_loop_filter_across_slices_enabled_flag");
  if (io.flag("deblocking_filter_control_present_flag")) {
    io.flag("deblocking_filter_override_enabled_flag");
    if (!io.flag("pps_deblocking_filter_disabled_flag")) {
      io.se("pps_beta_offset_div2");
      io.se("pps_tc_offset_div2");
    }
  }
  if (io.flag("pps_scaling_list_data_present_flag")) {
    ReadHevcScalingListData(io);
  }
  io.flag("lists_modification_present_flag");
  io.ue("log2_parallel_merge_level_minus2");
  io.flag("slice_segment_header_extension_present_flag");
  if (io.flag("pps_extension_present_flag")) {
    const bool pps_range_extension_flag = io.flag("pps_range_extension_flag");
    const bool pps_multilayer_extension_flag = io.flag("pps_multilayer_extension_flag");
    const bool pps_3d_extension_flag = io.flag("pps_3d_extension_flag");
    const bool pps_scc_extension_flag = io.flag("pps_scc_extension_flag");
    const uint32_t pps_extension_4bits = io.u("pps_extension_4bits", 4);
    if (pps_range_extension_flag) ReadHevcPpsRangeExtension(io, transform_skip_enabled_flag);
    if (pps_multilayer_extension_flag) ReadHevcPpsMultilayerExtension(io);
    if (pps_3d_extension_flag) ReadHevcPps3dExtension(io);
    if (pps_scc_extension_flag) ReadHevcPpsSccExtension(io);
    if (pps_extension_4bits != 0) io.run("pps_extension_data_flag");
  }
}

}  // namespace qlnmedia

#endif
