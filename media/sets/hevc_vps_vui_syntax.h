// vps_vui() of ITU-T H.265, clause F.7.3.2.1.4 and those behind it: picture types, rates, signal, tiles,
// offsets between layers and the HRD of bitstream partitions.
#ifndef MEDIA_SETS_HEVC_VPS_VUI_SYNTAX_H
#define MEDIA_SETS_HEVC_VPS_VUI_SYNTAX_H

#include <algorithm>
#include <array>
#include <cstdint>

#include "sets/hevc_layers.h"
#include "sets/hevc_vui_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

// What the extension needs of the VPS in front of it.
struct HevcVpsHead {
  bool vps_base_layer_internal_flag = true;
  uint32_t vps_max_layers_minus1 = 0;
  uint32_t vps_max_sub_layers_minus1 = 0;
  uint32_t vps_num_layer_sets_minus1 = 0;
  uint32_t vps_num_hrd_parameters = 0;
  HevcHrd hrd;  // of the last hrd_parameters()

  // The first index of loops over the layers that this standard codes.
  uint32_t FirstLayer() const { return vps_base_layer_internal_flag ? 0 : 1; }
};

template <class Io>
void ReadHevcVpsRates(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  const bool bit_rate_present_vps_flag = io.flag("bit_rate_present_vps_flag");
  const bool pic_rate_present_vps_flag = io.flag("pic_rate_present_vps_flag");
  if (!bit_rate_present_vps_flag && !pic_rate_present_vps_flag) return;
  for (uint32_t i = head.FirstLayer(); i < layers.layerSets.size() && io.good(); ++i) {
    for (uint32_t j = 0; j <= layers.MaxSubLayersInLayerSetMinus1(i); ++j) {
      bool bit_rate_present_flag = false;
      bool pic_rate_present_flag = false;
      if (bit_rate_present_vps_flag) {
        bit_rate_present_flag = io.flag("bit_rate_present_flag", i, j);
      }
      if (pic_rate_present_vps_flag) {
        pic_rate_present_flag = io.flag("pic_rate_present_flag", i, j);
      }
      if (bit_rate_present_flag) {
        io.u("avg_bit_rate", 16, i, j);
        io.u("max_bit_rate", 16, i, j);
      }
      if (pic_rate_present_flag) {
        io.u("constant_pic_rate_idc", 2, i, j);
        io.u("avg_pic_rate", 16, i, j);
      }
    }
  }
}

template <class Io>
void ReadHevcVpsSignals(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  const bool video_signal_info_idx_present_flag = io.flag("video_signal_info_idx_present_flag");
  // Without an index, each layer has a signal of its own.
  uint32_t count = layers.MaxLayersMinus1 + 1 - head.FirstLayer();
  if (video_signal_info_idx_present_flag) {
    count = io.u("vps_num_video_signal_info_minus1", 4) + 1;
  }
  for (uint32_t i = 0; i < count; ++i) {
    const auto scope = io.structure("video_signal_info", static_cast<int>(i));
    io.u("video_vps_format", 3);
    io.flag("video_full_range_vps_flag");
    io.u("colour_primaries_vps", 8);
    io.u("transfer_characteristics_vps", 8);
    io.u("matrix_coeffs_vps", 8);
  }
  if (video_signal_info_idx_present_flag && count > 1) {
    for (uint32_t i = head.FirstLayer(); i <= layers.MaxLayersMinus1; ++i) {
      io.u("vps_video_signal_info_idx", 4, i);
    }
  }
}

template <class Io>
void ReadHevcVpsTiles(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  if (!io.flag("tiles_not_in_use_flag")) {
    std::array<bool, 64> tiles_in_use_flag{};
    for (uint32_t i = head.FirstLayer(); i <= layers.MaxLayersMinus1; ++i) {
      tiles_in_use_flag[i] = io.flag("tiles_in_use_flag", i);
      if (tiles_in_use_flag[i]) {
        io.flag("loop_filter_not_across_tiles_flag", i);
      }
    }
    for (uint32_t i = head.FirstLayer() + 1; i <= layers.MaxLayersMinus1; ++i) {
      const uint32_t layer = layers.layer_id_in_nuh[i];
      for (uint32_t j = 0; j < layers.NumDirectRefLayers(layer); ++j) {
        const uint32_t layerIdx = layers.LayerIdxInVps[layers.IdDirectRefLayer(layer, j)];
        if (tiles_in_use_flag[i] && tiles_in_use_flag[layerIdx]) {
          io.flag("tile_boundaries_aligned_flag", i, j);
        }
      }
    }
  }
  if (!io.flag("wpp_not_in_use_flag")) {
    for (uint32_t i = head.FirstLayer(); i <= layers.MaxLayersMinus1; ++i) {
      io.flag("wpp_in_use_flag", i);
    }
  }
}

template <class Io>
void ReadHevcVpsRefOffsets(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  for (uint32_t i = 1; i <= layers.MaxLayersMinus1; ++i) {
    const uint32_t layer = layers.layer_id_in_nuh[i];
    for (uint32_t j = 0; j < layers.NumDirectRefLayers(layer); ++j) {
      if (!head.vps_base_layer_internal_flag && layers.IdDirectRefLayer(layer, j) == 0) continue;
      if (io.ue("min_spatial_segment_offset_plus1", i, j) > 0) {
        if (io.flag("ctu_based_offset_enabled_flag", i, j)) {
          io.ue("min_horizontal_ctu_offset_plus1", i, j);
        }
      }
    }
  }
}

// The delivery schedules of one output layer set h.
template <class Io>
void ReadHevcBspSchedules(Io& io, const HevcLayers& layers, uint32_t h, uint32_t hrdCount) {
  const uint32_t set = layers.outputSets[h].layerSet;
  const uint32_t num_signalled_partitioning_schemes =
      io.ue("num_signalled_partitioning_schemes", Most{16}, h);
  std::array<uint32_t, 17> num_partitions_in_scheme_minus1{};
  num_partitions_in_scheme_minus1[0] = layers.NumLayersInSet(set) > 0 ? layers.NumLayersInSet(set) - 1 : 0;
  for (uint32_t j = 1; j < num_signalled_partitioning_schemes + 1; ++j) {
    num_partitions_in_scheme_minus1[j] = io.ue("num_partitions_in_scheme_minus1", Most{62}, h, j);
    for (uint32_t k = 0; k <= num_partitions_in_scheme_minus1[j]; ++k) {
      for (uint32_t r = 0; r < layers.NumLayersInSet(set); ++r) {
        io.flag("layer_included_in_partition_flag", h, j, k, r);
      }
    }
  }
  for (uint32_t i = 0; i < num_signalled_partitioning_schemes + 1; ++i) {
    for (uint32_t t = 0; t <= layers.MaxSubLayersInLayerSetMinus1(set) && io.good(); ++t) {
      const uint32_t num_bsp_schedules_minus1 = io.ue("num_bsp_schedules_minus1", Most{31}, h, i, t);
      for (uint32_t j = 0; j <= num_bsp_schedules_minus1; ++j) {
        for (uint32_t k = 0; k <= num_partitions_in_scheme_minus1[i]; ++k) {
          if (hrdCount > 1) {
            io.u("bsp_hrd_idx", BitsUpTo(hrdCount - 1), h, i, t, j, k);
          }
          io.ue("bsp_sched_idx", h, i, t, j, k);
        }
      }
    }
  }
}

// vps_vui_bsp_hrd_params()
template <class Io>
void ReadHevcBspHrd(Io& io, HevcVpsHead& head, const HevcLayers& layers) {
  const auto scope = io.structure("vps_vui_bsp_hrd_params");
  const uint32_t vps_num_add_hrd_params =
      io.ue("vps_num_add_hrd_params", Most{1024 - std::min<uint32_t>(1024, head.vps_num_hrd_parameters)});
  const uint32_t hrdCount = head.vps_num_hrd_parameters + vps_num_add_hrd_params;
  for (uint32_t i = head.vps_num_hrd_parameters; i < hrdCount && io.good(); ++i) {
    bool cprms_add_present_flag = true;
    if (i > 0) {
      cprms_add_present_flag = io.flag("cprms_add_present_flag", i);
    }
    const uint32_t num_sub_layer_hrd_minus1 = io.ue("num_sub_layer_hrd_minus1", Most{6}, i);
    ReadHevcHrd(io, cprms_add_present_flag, num_sub_layer_hrd_minus1, head.hrd, static_cast<int>(i));
  }
  if (hrdCount == 0) return;
  for (uint32_t h = 1; h < layers.outputSets.size() && io.good(); ++h) {
    ReadHevcBspSchedules(io, layers, h, hrdCount);
  }
}

template <class Io>
void ReadHevcVpsVui(Io& io, HevcVpsHead& head, const HevcLayers& layers) {
  const auto scope = io.structure("vps_vui");
  const bool cross_layer_pic_type_aligned_flag = io.flag("cross_layer_pic_type_aligned_flag");
  bool cross_layer_irap_aligned_flag = cross_layer_pic_type_aligned_flag;
  if (!cross_layer_pic_type_aligned_flag) {
    cross_layer_irap_aligned_flag = io.flag("cross_layer_irap_aligned_flag");
  }
  if (cross_layer_irap_aligned_flag) {
    io.flag("all_layers_idr_aligned_flag");
  }
  ReadHevcVpsRates(io, head, layers);
  ReadHevcVpsSignals(io, head, layers);
  ReadHevcVpsTiles(io, head, layers);
  io.flag("single_layer_for_non_irap_flag");
  io.flag("higher_layer_irap_skip_flag");
  if (io.flag("ilp_restricted_ref_layers_flag")) {
    ReadHevcVpsRefOffsets(io, head, layers);
  }
  if (io.flag("vps_vui_bsp_hrd_present_flag")) {
    ReadHevcBspHrd(io, head, layers);
  }
  for (uint32_t i = 1; i <= layers.MaxLayersMinus1; ++i) {
    if (layers.NumDirectRefLayers(layers.layer_id_in_nuh[i]) == 0) {
      io.flag("base_layer_parameter_set_compatibility_flag", i);
    }
  }
}

}  // namespace qlnmedia

#endif
