// The extensions of the picture parameter set of ITU-T H.265: range (clause 7.3.2.3.2) and screen content
// (7.3.2.3.3), and those of the annexes on several layers, with its colour mapping table, and on 3D.
#ifndef MEDIA_SETS_HEVC_PPS_EXTENSIONS_SYNTAX_H
#define MEDIA_SETS_HEVC_PPS_EXTENSIONS_SYNTAX_H

#include <algorithm>
#include <cstdint>

#include "sets/hevc_sps_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

// The highest nuh_layer_id of a layer, and so the number of layers above the base.
inline constexpr uint32_t kMostHevcLayerId = 62;

// pps_range_extension()
template <class Io>
void ReadHevcPpsRangeExtension(Io& io, bool transform_skip_enabled_flag) {
  const auto scope = io.structure("pps_range_extension");
  if (transform_skip_enabled_flag) {
    io.ue("log2_max_transform_skip_block_size_minus2");
  }
  io.flag("cross_component_prediction_enabled_flag");
  if (io.flag("chroma_qp_offset_list_enabled_flag")) {
    io.ue("diff_cu_chroma_qp_offset_depth");
    const uint32_t chroma_qp_offset_list_len_minus1 = io.ue("chroma_qp_offset_list_len_minus1", Most{5});
    for (uint32_t i = 0; i <= chroma_qp_offset_list_len_minus1; ++i) {
      io.se("cb_qp_offset_list", i);
      io.se("cr_qp_offset_list", i);
    }
  }
  io.ue("log2_sao_offset_scale_luma");
  io.ue("log2_sao_offset_scale_chroma");
}

// pps_scc_extension()
template <class Io>
void ReadHevcPpsSccExtension(Io& io) {
  const auto scope = io.structure("pps_scc_extension");
  io.flag("pps_curr_pic_ref_enabled_flag");
  if (io.flag("residual_adaptive_colour_transform_enabled_flag")) {
    io.flag("pps_slice_act_qp_offsets_present_flag");
    io.se("pps_act_y_qp_offset_plus5");
    io.se("pps_act_cb_qp_offset_plus5");
    io.se("pps_act_cr_qp_offset_plus3");
  }
  if (io.flag("pps_palette_predictor_initializers_present_flag")) {
    const uint32_t pps_num_palette_predictor_initializers =
        io.ue("pps_num_palette_predictor_initializers", Most{kMostPalettePredictors});
    if (pps_num_palette_predictor_initializers > 0) {
      const bool monochrome_palette_flag = io.flag("monochrome_palette_flag");
      const uint32_t luma_bit_depth_entry_minus8 = io.ue("luma_bit_depth_entry_minus8", Most{8});
      uint32_t chroma_bit_depth_entry_minus8 = 0;
      if (!monochrome_palette_flag) {
        chroma_bit_depth_entry_minus8 = io.ue("chroma_bit_depth_entry_minus8", Most{8});
      }
      const int numComps = monochrome_palette_flag ? 1 : 3;
      for (int comp = 0; comp < numComps; ++comp) {
        const uint32_t depth = comp == 0 ? luma_bit_depth_entry_minus8 : chroma_bit_depth_entry_minus8;
        for (uint32_t i = 0; i < pps_num_palette_predictor_initializers; ++i) {
          io.u("pps_palette_predictor_initializer", static_cast<int>(depth) + 8, comp, i);
        }
      }
    }
  }
}

// What colour_mapping_octants() needs of the table in front of it.
struct HevcColourMapping {
  uint32_t cm_octant_depth = 0;
  uint32_t PartNumY = 1;
  int CMResLSBits = 0;
};

// colour_mapping_octants()
template <class Io>
void ReadHevcColourMappingOctants(Io& io, const HevcColourMapping& map, uint32_t inpDepth, uint32_t idxY,
                                  uint32_t idxCb, uint32_t idxCr, uint32_t inpLength) {
  bool split_octant_flag = false;
  if (inpDepth < map.cm_octant_depth) {
    split_octant_flag = io.flag("split_octant_flag");
  }
  if (split_octant_flag) {
    for (uint32_t k = 0; k < 2; ++k) {
      for (uint32_t m = 0; m < 2; ++m) {
        for (uint32_t n = 0; n < 2; ++n) {
          ReadHevcColourMappingOctants(io, map, inpDepth + 1, idxY + map.PartNumY * k * inpLength / 2,
                                       idxCb + m * inpLength / 2, idxCr + n * inpLength / 2, inpLength / 2);
        }
      }
    }
  } else {
    for (uint32_t i = 0; i < map.PartNumY; ++i) {
      const uint32_t idxShiftY = idxY + (i << (map.cm_octant_depth - inpDepth));
      for (uint32_t j = 0; j < 4; ++j) {
        if (!io.flag("coded_res_flag", idxShiftY, idxCb, idxCr, j)) continue;
        for (uint32_t c = 0; c < 3; ++c) {
          const uint32_t res_coeff_q = io.ue("res_coeff_q", idxShiftY, idxCb, idxCr, j, c);
          uint32_t res_coeff_r = 0;
          if (map.CMResLSBits > 0) {
            res_coeff_r = io.u("res_coeff_r", map.CMResLSBits, idxShiftY, idxCb, idxCr, j, c);
          }
          if (res_coeff_q != 0 || res_coeff_r != 0) {
            io.flag("res_coeff_s", idxShiftY, idxCb, idxCr, j, c);
          }
        }
      }
    }
  }
}

// colour_mapping_table()
template <class Io>
void ReadHevcColourMappingTable(Io& io) {
  const auto scope = io.structure("colour_mapping_table");
  const uint32_t num_cm_ref_layers_minus1 = io.ue("num_cm_ref_layers_minus1", Most{kMostHevcLayerId - 1});
  for (uint32_t i = 0; i <= num_cm_ref_layers_minus1; ++i) {
    io.u("cm_ref_layer_id", 6, i);
  }
  HevcColourMapping map;
  map.cm_octant_depth = io.u("cm_octant_depth", 2);
  const uint32_t cm_y_part_num_log2 = io.u("cm_y_part_num_log2", 2);
  map.PartNumY = 1u << cm_y_part_num_log2;
  const int luma_bit_depth_cm_input_minus8 =
      static_cast<int>(io.ue("luma_bit_depth_cm_input_minus8", Most{8}));
  io.ue("chroma_bit_depth_cm_input_minus8", Most{8});
  const int luma_bit_depth_cm_output_minus8 =
      static_cast<int>(io.ue("luma_bit_depth_cm_output_minus8", Most{8}));
  io.ue("chroma_bit_depth_cm_output_minus8", Most{8});
  const int cm_res_quant_bits = static_cast<int>(io.u("cm_res_quant_bits", 2));
  const int cm_delta_flc_bits_minus1 = static_cast<int>(io.u("cm_delta_flc_bits_minus1", 2));
  map.CMResLSBits = std::max(0, 10 + luma_bit_depth_cm_input_minus8 - luma_bit_depth_cm_output_minus8 -
                                    cm_res_quant_bits - (cm_delta_flc_bits_minus1 + 1));
  if (map.cm_octant_depth == 1) {
    io.se("cm_adapt_threshold_u_delta");
    io.se("cm_adapt_threshold_v_delta");
  }
  ReadHevcColourMappingOctants(io, map, 0, 0, 0, 0, 1u << map.cm_octant_depth);
}

// pps_multilayer_extension(); offsets and phases carry the layer that they are for as their index.
template <class Io>
void ReadHevcPpsMultilayerExtension(Io& io) {
  const auto scope = io.structure("pps_multilayer_extension");
  io.flag("poc_reset_info_present_flag");
  if (io.flag("pps_infer_scaling_list_flag")) {
    io.u("pps_scaling_list_ref_layer_id", 6);
  }
  const uint32_t num_ref_loc_offsets = io.ue("num_ref_loc_offsets", Most{kMostHevcLayerId});
  for (uint32_t i = 0; i < num_ref_loc_offsets; ++i) {
    const uint32_t layer = io.u("ref_loc_offset_layer_id", 6, i);
    if (io.flag("scaled_ref_layer_offset_present_flag", i)) {
      io.se("scaled_ref_layer_left_offset", layer);
      io.se("scaled_ref_layer_top_offset", layer);
      io.se("scaled_ref_layer_right_offset", layer);
      io.se("scaled_ref_layer_bottom_offset", layer);
    }
    if (io.flag("ref_region_offset_present_flag", i)) {
      io.se("ref_region_left_offset", layer);
      io.se("ref_region_top_offset", layer);
      io.se("ref_region_right_offset", layer);
      io.se("ref_region_bottom_offset", layer);
    }
    if (io.flag("resample_phase_set_present_flag", i)) {
      io.ue("phase_hor_luma", layer);
      io.ue("phase_ver_luma", layer);
      io.ue("phase_hor_chroma_plus8", layer);
      io.ue("phase_ver_chroma_plus8", layer);
    }
  }
  if (io.flag("colour_mapping_enabled_flag")) {
    ReadHevcColourMappingTable(io);
  }
}

// delta_dlt() for the depth layer i, whose values have `bits` bits.
template <class Io>
void ReadHevcDeltaDlt(Io& io, uint32_t i, int bits) {
  const auto scope = io.structure("delta_dlt", static_cast<int>(i));
  const uint32_t num_val_delta_dlt = io.u("num_val_delta_dlt", bits);
  if (num_val_delta_dlt == 0) return;
  uint32_t max_diff = 0;
  if (num_val_delta_dlt > 1) {
    max_diff = io.u("max_diff", bits);
  }
  int64_t min_diff_minus1 = int64_t{max_diff} - 1;
  if (num_val_delta_dlt > 2 && max_diff > 0) {
    min_diff_minus1 = io.u("min_diff_minus1", BitsUpTo(max_diff));  // Ceil(Log2(max_diff + 1))
  }
  io.u("delta_dlt_val0", bits);
  if (max_diff > min_diff_minus1 + 1) {
    const uint64_t span = static_cast<uint64_t>(max_diff - (min_diff_minus1 + 1));
    for (uint32_t k = 1; k < num_val_delta_dlt && io.good(); ++k) {
      io.u("delta_val_diff_minus_min", BitsUpTo(span), k);
    }
  }
}

// pps_3d_extension()
template <class Io>
void ReadHevcPps3dExtension(Io& io) {
  const auto scope = io.structure("pps_3d_extension");
  if (!io.flag("dlts_present_flag")) return;
  const uint32_t pps_depth_layers_minus1 = io.u("pps_depth_layers_minus1", 6);
  const int bits = static_cast<int>(io.u("pps_bit_depth_for_depth_layers_minus8", 4)) + 8;
  for (uint32_t i = 0; i <= pps_depth_layers_minus1 && io.good(); ++i) {
    if (!io.flag("dlt_flag", i)) continue;
    bool dlt_val_flags_present_flag = false;
    if (!io.flag("dlt_pred_flag", i)) {
      dlt_val_flags_present_flag = io.flag("dlt_val_flags_present_flag", i);
    }
    if (dlt_val_flags_present_flag) {
      for (uint32_t j = 0; j < 1u << bits && io.good(); ++j) {
        io.flag("dlt_value_flag", i, j);
      }
    } else {
      ReadHevcDeltaDlt(io, i, bits);
    }
  }
}

}  // namespace qlnmedia

#endif
