// vps_extension() of ITU-T H.265, clause F.7.3.2.1.1, and what it consists of: dimensions and dependencies of
// layers, output layer sets, formats, buffer sizes. Its VUI stands in hevc_vps_vui_syntax.h.
#ifndef MEDIA_SETS_HEVC_VPS_EXTENSION_SYNTAX_H
#define MEDIA_SETS_HEVC_VPS_EXTENSION_SYNTAX_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "sets/hevc_layers.h"
#include "sets/hevc_profile_syntax.h"
#include "sets/hevc_vps_vui_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

// rep_format()
template <class Io>
void ReadHevcRepFormat(Io& io, uint32_t i) {
  const auto scope = io.structure("rep_format", static_cast<int>(i));
  io.u("pic_width_vps_in_luma_samples", 16);
  io.u("pic_height_vps_in_luma_samples", 16);
  if (io.flag("chroma_and_bit_depth_vps_present_flag")) {
    if (io.u("chroma_format_vps_idc", 2) == 3) {
      io.flag("separate_colour_plane_vps_flag");
    }
    io.u("bit_depth_vps_luma_minus8", 4);
    io.u("bit_depth_vps_chroma_minus8", 4);
  }
  if (io.flag("conformance_window_vps_flag")) {
    io.ue("conf_win_vps_left_offset");
    io.ue("conf_win_vps_right_offset");
    io.ue("conf_win_vps_top_offset");
    io.ue("conf_win_vps_bottom_offset");
  }
}

// The views among the layers: those whose ViewOrderIdx no layer before them has.
inline uint32_t CountHevcViews(uint32_t MaxLayersMinus1, const std::array<uint32_t, 64>& ViewOrderIdx) {
  uint32_t NumViews = 0;
  for (uint32_t i = 0; i <= MaxLayersMinus1; ++i) {
    const auto end = ViewOrderIdx.begin() + i;
    if (std::find(ViewOrderIdx.begin(), end, ViewOrderIdx[i]) == end) ++NumViews;
  }
  return NumViews;
}

// From splitting_flag to view_id_val: what the layers are.
template <class Io>
void ReadHevcLayerDimensions(Io& io, HevcLayers& layers) {
  const bool splitting_flag = io.flag("splitting_flag");
  std::array<uint32_t, 16> dimensions{};  // the scalability mask bit of each dimension
  uint32_t NumScalabilityTypes = 0;
  for (uint32_t i = 0; i < 16; ++i) {
    if (io.flag("scalability_mask_flag", i)) dimensions[NumScalabilityTypes++] = i;
  }
  std::array<int, 16> dimension_id_len{};
  const uint32_t told = NumScalabilityTypes - (splitting_flag && NumScalabilityTypes > 0 ? 1 : 0);
  int used = 0;
  for (uint32_t j = 0; j < told; ++j) {
    dimension_id_len[j] = static_cast<int>(io.u("dimension_id_len_minus1", 3, j)) + 1;
    used += dimension_id_len[j];
  }
  if (told < NumScalabilityTypes) dimension_id_len[told] = std::max(0, 6 - used);
  const bool vps_nuh_layer_id_present_flag = io.flag("vps_nuh_layer_id_present_flag");
  std::array<uint32_t, 64> ViewOrderIdx{};
  for (uint32_t i = 1; i <= layers.MaxLayersMinus1; ++i) {
    layers.layer_id_in_nuh[i] = static_cast<uint8_t>(i);
    if (vps_nuh_layer_id_present_flag) {
      layers.layer_id_in_nuh[i] = static_cast<uint8_t>(io.u("layer_id_in_nuh", 6, i));
    }
    uint32_t split = layers.layer_id_in_nuh[i];
    for (uint32_t j = 0; j < NumScalabilityTypes; ++j) {
      uint32_t dimension_id = split & ((1u << dimension_id_len[j]) - 1);
      split >>= dimension_id_len[j];
      if (!splitting_flag) {
        dimension_id = io.u("dimension_id", dimension_id_len[j], i, j);
      }
      if (dimensions[j] == 1) ViewOrderIdx[i] = dimension_id;
    }
  }
  const int view_id_len = static_cast<int>(io.u("view_id_len", 4));
  if (view_id_len > 0) {
    const uint32_t NumViews = CountHevcViews(layers.MaxLayersMinus1, ViewOrderIdx);
    for (uint32_t i = 0; i < NumViews; ++i) {
      io.u("view_id_val", view_id_len, i);
    }
  }
}

// From direct_dependency_flag to default_ref_layers_active_flag: which layers refer to which.
template <class Io>
void ReadHevcLayerDependencies(Io& io, const HevcVpsHead& head, HevcLayers& layers) {
  for (uint32_t i = 1; i <= layers.MaxLayersMinus1; ++i) {
    for (uint32_t j = 0; j < i; ++j) {
      if (io.flag("direct_dependency_flag", i, j)) layers.direct_dependency_flag[i] |= LayerBit(j);
    }
  }
  layers.SetDependencies();
  uint32_t num_add_layer_sets = 0;
  if (layers.NumIndependentLayers > 1) {
    num_add_layer_sets = io.ue("num_add_layer_sets", Most{1023});
  }
  std::vector<uint32_t> highest_layer_idx_plus1(layers.NumIndependentLayers);
  for (uint32_t i = 0; i < num_add_layer_sets && io.good(); ++i) {
    for (uint32_t j = 1; j < layers.NumIndependentLayers; ++j) {
      // Ceil(Log2(NumLayersInTreePartition[j] + 1))
      const int bits = BitsUpTo(CountLayers(layers.treePartition[j]));
      highest_layer_idx_plus1[j] = io.u("highest_layer_idx_plus1", bits, i, j);
    }
    layers.AddLayerSet(highest_layer_idx_plus1);
  }
  layers.subLayersMaxMinus1.fill(static_cast<uint8_t>(head.vps_max_sub_layers_minus1));
  if (io.flag("vps_sub_layers_max_minus1_present_flag")) {
    for (uint32_t i = 0; i <= layers.MaxLayersMinus1; ++i) {
      layers.subLayersMaxMinus1[i] = static_cast<uint8_t>(io.u("sub_layers_vps_max_minus1", 3, i));
    }
  }
  if (io.flag("max_tid_ref_present_flag")) {
    for (uint32_t i = 0; i < layers.MaxLayersMinus1; ++i) {
      for (uint32_t j = i + 1; j <= layers.MaxLayersMinus1; ++j) {
        if ((layers.direct_dependency_flag[j] & LayerBit(i)) != 0) {
          io.u("max_tid_il_ref_pics_plus1", 3, i, j);
        }
      }
    }
  }
  io.flag("default_ref_layers_active_flag");
}

// The elements of one output layer set.
template <class Io>
void ReadHevcOutputLayerSet(Io& io, HevcLayers& layers, uint32_t i, bool flagsTold, bool allLayers,
                            uint32_t vps_num_profile_tier_level_minus1) {
  const uint32_t NumLayerSets = static_cast<uint32_t>(layers.layerSets.size());
  HevcOutputLayerSet ols;
  ols.layerSet = i < NumLayerSets ? i : 1;
  if (NumLayerSets > 2 && i >= NumLayerSets) {
    // Ceil(Log2(NumLayerSets - 1)) bits
    ols.layerSet =
        1 + io.u("layer_set_idx_for_ols_minus1", BitsUpTo(NumLayerSets - 2), Most{NumLayerSets - 2}, i);
  }
  const uint32_t NumLayersInIdList = layers.NumLayersInSet(ols.layerSet);
  for (uint32_t j = 0; j < NumLayersInIdList; ++j) {
    const bool inferred = allLayers || j + 1 == NumLayersInIdList;
    if (flagsTold ? io.flag("output_layer_flag", i, j) : inferred) ols.outputLayerFlag |= LayerBit(j);
  }
  layers.SetNecessaryLayers(ols);
  for (uint32_t j = 0; j < NumLayersInIdList; ++j) {
    if ((ols.necessaryLayers & LayerBit(j)) != 0 && vps_num_profile_tier_level_minus1 > 0) {
      io.u("profile_tier_level_idx", BitsUpTo(vps_num_profile_tier_level_minus1), i, j);
    }
  }
  if (CountLayers(ols.outputLayerFlag) == 1 && layers.NumDirectRefLayers(ols.highestOutputLayer) > 0) {
    io.flag("alt_output_layer_flag", i);
  }
  layers.outputSets.push_back(ols);
}

// From vps_num_profile_tier_level_minus1 to the end of the output layer sets.
template <class Io>
void ReadHevcOutputLayerSets(Io& io, const HevcVpsHead& head, HevcLayers& layers) {
  const uint32_t vps_num_layer_sets_minus1 = head.vps_num_layer_sets_minus1;
  const uint32_t NumLayerSets = static_cast<uint32_t>(layers.layerSets.size());
  const uint32_t vps_num_profile_tier_level_minus1 = io.ue("vps_num_profile_tier_level_minus1", Most{63});
  for (uint32_t i = head.vps_base_layer_internal_flag ? 2 : 1; i <= vps_num_profile_tier_level_minus1; ++i) {
    const bool vps_profile_present_flag = io.flag("vps_profile_present_flag", i);
    HevcProfile profile;
    ReadHevcProfileTierLevel(io, vps_profile_present_flag, head.vps_max_sub_layers_minus1, profile,
                             static_cast<int>(i));
  }
  uint32_t num_add_olss = 0;
  uint32_t default_output_layer_idc = 0;
  if (NumLayerSets > 1) {
    num_add_olss = io.ue("num_add_olss", Most{1023});
    default_output_layer_idc = io.u("default_output_layer_idc", 2);
  }
  HevcOutputLayerSet first;
  first.outputLayerFlag = LayerBit(0);
  layers.SetNecessaryLayers(first);
  layers.outputSets.push_back(first);
  for (uint32_t i = 1; i < num_add_olss + NumLayerSets && io.good(); ++i) {
    ReadHevcOutputLayerSet(io, layers, i, i > vps_num_layer_sets_minus1 || default_output_layer_idc >= 2,
                           default_output_layer_idc == 0, vps_num_profile_tier_level_minus1);
  }
}

// dpb_size()
template <class Io>
void ReadHevcDpbSize(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  const auto scope = io.structure("dpb_size");
  for (uint32_t i = 1; i < layers.outputSets.size() && io.good(); ++i) {
    const HevcOutputLayerSet& ols = layers.outputSets[i];
    const uint32_t currLsIdx = ols.layerSet;
    const bool sub_layer_flag_info_present_flag = io.flag("sub_layer_flag_info_present_flag", i);
    for (uint32_t j = 0; j <= layers.MaxSubLayersInLayerSetMinus1(currLsIdx); ++j) {
      bool sub_layer_dpb_info_present_flag = j == 0;
      if (j > 0 && sub_layer_flag_info_present_flag) {
        sub_layer_dpb_info_present_flag = io.flag("sub_layer_dpb_info_present_flag", i, j);
      }
      if (!sub_layer_dpb_info_present_flag) continue;
      for (uint32_t k = 0; k < layers.NumLayersInSet(currLsIdx); ++k) {
        const uint32_t layer = HevcLayers::NthLayer(layers.layerSets[currLsIdx], k);
        if ((ols.necessaryLayers & LayerBit(k)) != 0 && (head.vps_base_layer_internal_flag || layer != 0)) {
          io.ue("max_vps_dec_pic_buffering_minus1", i, k, j);
        }
      }
      io.ue("max_vps_num_reorder_pics", i, j);
      io.ue("max_vps_latency_increase_plus1", i, j);
    }
  }
}

// The formats and which layer has which.
template <class Io>
void ReadHevcRepFormats(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  const uint32_t vps_num_rep_formats_minus1 = io.ue("vps_num_rep_formats_minus1", Most{255});
  for (uint32_t i = 0; i <= vps_num_rep_formats_minus1 && io.good(); ++i) {
    ReadHevcRepFormat(io, i);
  }
  bool rep_format_idx_present_flag = false;
  if (vps_num_rep_formats_minus1 > 0) {
    rep_format_idx_present_flag = io.flag("rep_format_idx_present_flag");
  }
  if (rep_format_idx_present_flag) {
    for (uint32_t i = head.vps_base_layer_internal_flag ? 1 : 0; i <= layers.MaxLayersMinus1; ++i) {
      io.u("vps_rep_format_idx", BitsUpTo(vps_num_rep_formats_minus1), i);
    }
  }
}

template <class Io>
void ReadHevcDependencyTypes(Io& io, const HevcVpsHead& head, const HevcLayers& layers) {
  const int bits = static_cast<int>(io.ue("direct_dep_type_len_minus2", Most{30})) + 2;
  const uint32_t base = head.vps_base_layer_internal_flag ? 0 : 1;
  if (io.flag("direct_dependency_all_layers_flag")) {
    io.u("direct_dependency_all_layers_type", bits);
  } else {
    for (uint32_t i = base + 1; i <= layers.MaxLayersMinus1; ++i) {
      for (uint32_t j = base; j < i; ++j) {
        if ((layers.direct_dependency_flag[i] & LayerBit(j)) != 0) {
          io.u("direct_dependency_type", bits, i, j);
        }
      }
    }
  }
}

// vps_extension()
template <class Io>
void ReadHevcVpsExtension(Io& io, HevcVpsHead& head, HevcLayers& layers) {
  const auto scope = io.structure("vps_extension");
  layers.MaxLayersMinus1 = std::min<uint32_t>(62, head.vps_max_layers_minus1);
  head.vps_num_layer_sets_minus1 = static_cast<uint32_t>(layers.layerSets.size()) - 1;
  if (head.vps_max_layers_minus1 > 0 && head.vps_base_layer_internal_flag) {
    HevcProfile profile;
    ReadHevcProfileTierLevel(io, false, head.vps_max_sub_layers_minus1, profile, 1);
  }
  ReadHevcLayerDimensions(io, layers);
  ReadHevcLayerDependencies(io, head, layers);
  ReadHevcOutputLayerSets(io, head, layers);
  ReadHevcRepFormats(io, head, layers);
  io.flag("max_one_active_ref_layer_flag");
  io.flag("vps_poc_lsb_aligned_flag");
  for (uint32_t i = 1; i <= layers.MaxLayersMinus1; ++i) {
    if (layers.NumDirectRefLayers(layers.layer_id_in_nuh[i]) == 0) {
      io.flag("poc_lsb_not_present_flag", i);
    }
  }
  ReadHevcDpbSize(io, head, layers);
  ReadHevcDependencyTypes(io, head, layers);
  const uint32_t vps_non_vui_extension_length = io.ue("vps_non_vui_extension_length", Most{4096});
  for (uint32_t i = 1; i <= vps_non_vui_extension_length && io.good(); ++i) {
    io.u("vps_non_vui_extension_data_byte", 8);
  }
  if (io.flag("vps_vui_present_flag")) {
    while (io.good() && !io.aligned()) {
      io.flag("vps_vui_alignment_bit_equal_to_one");
    }
    ReadHevcVpsVui(io, head, layers);
  }
}

}  // namespace qlnmedia

#endif
