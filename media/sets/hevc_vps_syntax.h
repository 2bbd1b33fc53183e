// The video parameter set of ITU-T H.265 by clauses 7.3.2.1 and F.7.3.2.1; the extension for several layers
// stands in hevc_vps_extension_syntax.h.
#ifndef MEDIA_SETS_HEVC_VPS_SYNTAX_H
#define MEDIA_SETS_HEVC_VPS_SYNTAX_H

#include <algorithm>
#include <cstdint>

#include "sets/hevc_layers.h"
#include "sets/hevc_lists_syntax.h"
#include "sets/hevc_profile_syntax.h"
#include "sets/hevc_vps_extension_syntax.h"
#include "sets/hevc_vui_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

struct HevcVps {
  HevcVpsHead head;
  HevcProfile general;
  bool vps_timing_info_present_flag = false;
  uint32_t vps_num_units_in_tick = 0;
  uint32_t vps_time_scale = 0;
};

// The layer sets, which the extension builds on.
template <class Io>
void ReadHevcLayerSets(Io& io, HevcLayers& layers) {
  const uint32_t vps_max_layer_id = io.u("vps_max_layer_id", 6);
  const uint32_t vps_num_layer_sets_minus1 = io.ue("vps_num_layer_sets_minus1", Most{1023});
  layers.layerSets.push_back(LayerBit(0));
  for (uint32_t i = 1; i <= vps_num_layer_sets_minus1 && io.good(); ++i) {
    LayerMask set = 0;
    for (uint32_t j = 0; j <= vps_max_layer_id; ++j) {
      if (io.flag("layer_id_included_flag", i, j)) set |= LayerBit(j);
    }
    layers.layerSets.push_back(set);
  }
}

template <class Io>
void ReadHevcVpsTiming(Io& io, HevcVps& vps) {
  vps.vps_num_units_in_tick = io.u("vps_num_units_in_tick", 32);
  vps.vps_time_scale = io.u("vps_time_scale", 32);
  if (io.flag("vps_poc_proportional_to_timing_flag")) {
    io.ue("vps_num_ticks_poc_diff_one_minus1");
  }
  vps.head.vps_num_hrd_parameters = io.ue("vps_num_hrd_parameters", Most{1024});
  for (uint32_t i = 0; i < vps.head.vps_num_hrd_parameters && io.good(); ++i) {
    io.ue("hrd_layer_set_idx", i);
    bool cprms_present_flag = true;
    if (i > 0) {
      cprms_present_flag = io.flag("cprms_present_flag", i);
    }
    ReadHevcHrd(io, cprms_present_flag, vps.head.vps_max_sub_layers_minus1, vps.head.hrd,
                static_cast<int>(i));
  }
}

// video_parameter_set_rbsp()
template <class Io>
void ReadHevcVps(Io& io, HevcVps& vps) {
  ReadHevcNalHeader(io);
  io.u("vps_video_parameter_set_id", 4);
  vps.head.vps_base_layer_internal_flag = io.flag("vps_base_layer_internal_flag");
  io.flag("vps_base_layer_available_flag");
  vps.head.vps_max_layers_minus1 = io.u("vps_max_layers_minus1", 6);
  vps.head.vps_max_sub_layers_minus1 = io.u("vps_max_sub_layers_minus1", 3);
  io.flag("vps_temporal_id_nesting_flag");
  io.u("vps_reserved_0xffff_16bits", 16);
  ReadHevcProfileTierLevel(io, true, vps.head.vps_max_sub_layers_minus1, vps.general);
  io.factsEnd();
  const bool vps_sub_layer_ordering_info_present_flag = io.flag("vps_sub_layer_ordering_info_present_flag");
  for (uint32_t i = vps_sub_layer_ordering_info_present_flag ? 0 : vps.head.vps_max_sub_layers_minus1;
       i <= vps.head.vps_max_sub_layers_minus1; ++i) {
    io.ue("vps_max_dec_pic_buffering_minus1", i);
    io.ue("vps_max_num_reorder_pics", i);
    io.ue("vps_max_latency_increase_plus1", i);
  }
  HevcLayers layers;
  ReadHevcLayerSets(io, layers);
  vps.vps_timing_info_present_flag = io.flag("vps_timing_info_present_flag");
  if (vps.vps_timing_info_present_flag) {
    ReadHevcVpsTiming(io, vps);
  }
  if (io.flag("vps_extension_flag")) {
    while (io.good() && !io.aligned()) {
      io.flag("vps_extension_alignment_bit_equal_to_one");
    }
    if (io.good()) ReadHevcVpsExtension(io, vps.head, layers);
    if (io.flag("vps_extension2_flag")) {
      io.run("vps_extension_data_flag");
    }
  }
}

}  // namespace qlnmedia

#endif
