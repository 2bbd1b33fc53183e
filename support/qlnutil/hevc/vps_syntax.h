// video_parameter_set_rbsp() of ITU-T H.265 clause 7.3.2.1, once for reader and writer: strict about its
// fixed head, tolerant of the rest.
#ifndef QLNUTIL_HEVC_VPS_SYNTAX_H
#define QLNUTIL_HEVC_VPS_SYNTAX_H

#include <cstdint>

#include "qlnutil/hevc/syntax_coders.h"

namespace qln {

// From behind the NAL header to vps_extension_flag and what is made of the extension. False when the coder
// refuses the unit.
template <class Coder>
bool VpsSyntax(Coder& coder, HevcVpsRecord& vps, HevcConfigRecord* config) {
  coder.U(4, vps.vps_video_parameter_set_id);
  if (!coder.BaseLayerFlags()) return false;
  coder.U(6, vps.vps_max_layers_minus1);
  coder.U(3, vps.vps_max_sub_layers_minus1);
  coder.Flag(vps.vps_temporal_id_nesting_flag);
  coder.U(16, vps.vps_reserved_0xffff_16bits);
  if (!coder.AcceptsReserved(vps.vps_reserved_0xffff_16bits)) return false;
  coder.ProfileTierLevel(vps.vps_max_sub_layers_minus1, vps.profile_tier_level, config);
  coder.Flag(vps.vps_sub_layer_ordering_info_present_flag);
  SubLayerOrderingSyntax(coder, vps.vps_sub_layer_ordering_info_present_flag, vps.vps_max_sub_layers_minus1,
                         vps.vps_max_dec_pic_buffering_minus1, vps.vps_max_num_reorder_pics,
                         vps.vps_max_latency_increase_plus1);
  coder.U(6, vps.vps_max_layer_id);
  coder.Ue(vps.vps_num_layer_sets_minus1);
  coder.LayerIdIncludedFlags(vps);
  coder.Flag(vps.vps_timing_info_present_flag);
  if (vps.vps_timing_info_present_flag == 1) {  // a flag that was read past the end brings no block
    coder.U(32, vps.vps_num_units_in_tick);
    coder.U(32, vps.vps_time_scale);
    coder.Flag(vps.vps_poc_proportional_to_timing_flag);
    if (vps.vps_poc_proportional_to_timing_flag != 0) coder.UePlus1(vps.vps_num_ticks_poc_diff_one);
    coder.HrdStructures(vps);
  }
  coder.Extension(vps);
  return true;
}

}  // namespace qln

#endif
