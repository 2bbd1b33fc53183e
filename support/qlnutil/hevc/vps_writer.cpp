// The VPS writer: a reduced VPS without HRD parameters and extension.

#include "qlnutil/hevc/parameter_set_writer.h"
#include "qlnutil/hevc/profile_tier_level.h"

namespace qln {
namespace {

// Every layer is declared included, whatever the source had.
void WriteLayerSets(BitWriter& out, const HevcVpsRecord& vps) {
  for (uint64_t i = 1; i <= vps.vps_num_layer_sets_minus1; ++i) {
    for (uint64_t j = 0; j <= vps.vps_max_layer_id; ++j) {
      out.WriteBit(1);  // layer_id_included_flag
      if (out.Overflowed()) return;
    }
  }
}

void WriteVps(BitWriter& out, HevcVpsRecord& vps) {
  out.WriteBits(4, vps.vps_video_parameter_set_id);
  out.WriteBit(1);  // vps_base_layer_internal_flag
  out.WriteBit(1);  // vps_base_layer_available_flag
  out.WriteBits(6, vps.vps_max_layers_minus1);
  out.WriteBits(3, vps.vps_max_sub_layers_minus1);
  out.WriteBit(vps.vps_temporal_id_nesting_flag);
  out.WriteBits(16, vps.vps_reserved_0xffff_16bits);
  HevcWriteProfileTierLevel(out, vps.vps_max_sub_layers_minus1, vps.profile_tier_level);
  out.WriteBit(vps.vps_sub_layer_ordering_info_present_flag);
  for (uint64_t i = vps.vps_sub_layer_ordering_info_present_flag != 0 ? 0 : vps.vps_max_sub_layers_minus1;
       i <= vps.vps_max_sub_layers_minus1 && !out.Overflowed(); ++i) {
    out.WriteUe(vps.vps_max_dec_pic_buffering_minus1);
    out.WriteUe(vps.vps_max_num_reorder_pics);
    out.WriteUe(vps.vps_max_latency_increase_plus1);
  }
  out.WriteBits(6, vps.vps_max_layer_id);
  out.WriteUe(vps.vps_num_layer_sets_minus1);
  WriteLayerSets(out, vps);
  out.WriteBit(vps.vps_timing_info_present_flag);
  if (vps.vps_timing_info_present_flag == 1) {  // a flag that was read past the end brings no block
    out.WriteBits(32, vps.vps_num_units_in_tick);
    out.WriteBits(32, vps.vps_time_scale);
    out.WriteBit(vps.vps_poc_proportional_to_timing_flag);
    if (vps.vps_poc_proportional_to_timing_flag != 0) out.WriteUe(vps.vps_num_ticks_poc_diff_one - 1u);
    vps.vps_num_hrd_parameters = 0;
    out.WriteUe(vps.vps_num_hrd_parameters);
  }
  vps.vps_extension_flag = 0;
  out.WriteBit(vps.vps_extension_flag);
}

}  // namespace
}  // namespace qln

uint32_t qlnutilWrite_HEVC_VPS(HevcVpsRecord* vps, uint8_t* output) {
  using namespace qln;
  if (vps == nullptr || output == nullptr) return 0;
  HevcUnitWriter unit(kHevcNalVps);
  WriteVps(unit.bits(), *vps);
  return unit.Finish(output);
}
