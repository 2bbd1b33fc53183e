// The VPS reader: strict about the fixed head, tolerant of the rest, in the order of clause 7.3.2.1.

#include "qlnutil/hevc/hrd_parameters.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/hevc/profile_tier_level.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {
namespace {

constexpr HevcReaderPolicy kVpsReader{
    kRemovalHevcVps, false,
    "\nqlnutilRead_HEVC_VPS failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X "
    "0x%08X",
    "\nqlnutilRead_HEVC_VPS failed allignment bit = %d padding = %d current bit %d bit length %d"};

void ReadTiming(BitReader& in, HevcVpsRecord& vps) {
  vps.vps_num_units_in_tick = in.ReadBits(32);
  vps.vps_time_scale = in.ReadBits(32);
  vps.vps_poc_proportional_to_timing_flag = in.ReadBit();
  if (vps.vps_poc_proportional_to_timing_flag != 0) vps.vps_num_ticks_poc_diff_one = in.ReadUe() + 1;
  vps.vps_num_hrd_parameters = in.ReadUe();
  const uint32_t subLayers = SubLayersForLoops(vps.vps_max_sub_layers_minus1) + 1;
  LoopReader loop(in);
  RunRounds(loop, vps.vps_num_hrd_parameters, 1, [&](uint32_t i) {
    vps.cprms_present_flag = 1;
    vps.hrd_layer_set_idx = loop.ReadUe();
    if (i > 0) vps.cprms_present_flag = loop.ReadBit();
    HevcReadHrdParameters(loop, vps.cprms_present_flag, subLayers);
  });
}

// Extension data is passed by whole bytes up to the length before unescaping; the stop bit is then looked
// for behind it, so that every VPS with an extension is reported.
void SkipExtension(BitReader& in, uint32_t lengthBits) {
  in.bitPos = (in.bitPos + 7) & ~7u;
  if (in.bitPos <= lengthBits) in.SkipBits((lengthBits - in.bitPos) / 8 * 8);
}

// False when the unit is refused.
bool ReadVps(HevcUnit& unit, HevcVpsRecord& vps, HevcConfigRecord* config) {
  BitReader& in = unit.bits();
  if (unit.nalType() != kHevcNalVps) {
    ErrOutLocated("Not a vps NAL %s %d");
    return false;
  }
  in.bitPos = 16;
  vps.vps_video_parameter_set_id = in.ReadBits(4);
  // vps_base_layer_internal_flag, vps_base_layer_available_flag: a base layer from outside is not supported.
  if (in.ReadBits(2) != 3) {
    ErrOutLocated("Vps Reserved bits incorrect %s %d");
    return false;
  }
  vps.vps_max_layers_minus1 = in.ReadBits(6);
  vps.vps_max_sub_layers_minus1 = in.ReadBits(3);
  vps.vps_temporal_id_nesting_flag = in.ReadBit();
  vps.vps_reserved_0xffff_16bits = in.ReadBits(16);
  if (vps.vps_reserved_0xffff_16bits != 65535) {
    ErrOutLocated("Vps Reserved bits incorrect %s %d");
    return false;
  }
  HevcReadProfileTierLevel(in, vps.vps_max_sub_layers_minus1, config, vps.profile_tier_level);
  const uint32_t lastSubLayer = SubLayersForLoops(vps.vps_max_sub_layers_minus1);
  vps.vps_sub_layer_ordering_info_present_flag = in.ReadBit();
  for (uint32_t i = vps.vps_sub_layer_ordering_info_present_flag != 0 ? 0 : lastSubLayer; i <= lastSubLayer;
       ++i) {
    vps.vps_max_dec_pic_buffering_minus1 = in.ReadUe();
    vps.vps_max_num_reorder_pics = in.ReadUe();
    vps.vps_max_latency_increase_plus1 = in.ReadUe();
  }
  vps.vps_max_layer_id = in.ReadBits(6);
  vps.vps_num_layer_sets_minus1 = in.ReadUe();
  in.SkipBits(vps.vps_num_layer_sets_minus1 * (vps.vps_max_layer_id + 1));  // layer_id_included_flag
  vps.vps_timing_info_present_flag = in.ReadBit();
  if (vps.vps_timing_info_present_flag == 1) ReadTiming(in, vps);  // past the end it counts as clear
  vps.vps_extension_flag = in.ReadBit();
  if (vps.vps_extension_flag == 1) SkipExtension(in, unit.lengthBits());
  return true;
}

}  // namespace
}  // namespace qln

uint64_t qlnutilRead_HEVC_VPS(QLNBitState* state, HevcVpsRecord* vps, HevcConfigRecord* config,
                              uint32_t lengthBits) {
  using namespace qln;
  if (NothingToRead(state, vps)) return 0;
  HevcUnit unit(*state, lengthBits, kVpsReader);
  if (!unit.ok()) return QLN_HEVC_REFUSED;
  if (!ReadVps(unit, *vps, config)) return unit.Refuse(state);
  unit.CheckTrailingBits();
  return unit.Done(state);
}
