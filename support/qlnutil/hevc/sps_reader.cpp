// The SPS reader, in the order of clause 7.3.2.2, with what it folds into a configuration record.

#include <algorithm>

#include "qlnutil/hevc/loop_reader.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/hevc/profile_tier_level.h"
#include "qlnutil/hevc/sps_syntax.h"
#include "qlnutil/qlnvidutil.h"

namespace qln {
namespace {

constexpr HevcReaderPolicy kSpsReader{
    kRemovalHevcSpsPps, true,
    "\nqlnutilRead_HEVC_SPS failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X "
    "0x%08X",
    "\nqlnutilRead_HEVC_SPS failed allignment bit = %d padding = %d current bit %d bit length %d"};

// scaling_list_data(): walked, the last values stay.
void ReadScalingLists(BitReader& in, HevcSpsRecord& sps) {
  for (int sizeId = 0; sizeId < 4; ++sizeId) {
    for (int matrix = 0; matrix < ScalingMatrices(sizeId); ++matrix) {
      sps.scaling_list_pred_mode_flag = in.ReadBit();
      if (sps.scaling_list_pred_mode_flag == 0) {
        sps.scaling_list_pred_matrix_id_delta = in.ReadUe();
        continue;
      }
      if (sizeId > 1) sps.scaling_list_dc_coef_minus8 = in.ReadSe();
      for (int i = 0; i < ScalingCoefficients(sizeId); ++i) sps.scaling_list_delta_coef = in.ReadSe();
    }
  }
}

void ReadLongTermPictures(BitReader& bits, HevcSpsRecord& sps) {
  sps.num_long_term_ref_pics_sps = bits.ReadUe();
  const int32_t width = static_cast<int32_t>(sps.log2_max_pic_order_cnt_lsb_minus4 + 4u);
  const uint32_t stored = std::min<uint32_t>(sps.num_long_term_ref_pics_sps, QLN_HEVC_LONG_TERM_PICTURES);
  LoopReader in(bits);
  for (uint32_t i = 0; i < stored; ++i) {
    sps.long_term_ref_pics[i].lt_ref_pic_poc_lsb_sps = in.ReadBits(width);
    sps.long_term_ref_pics[i].used_by_curr_pic_lt_sps_flag = in.ReadBit();
  }
  // Pictures beyond the record are passed: each takes the same bits, whatever their values.
  const uint32_t pictureBits = static_cast<uint32_t>(std::max(width, 0)) + 1u;
  in.SkipBits((sps.num_long_term_ref_pics_sps - stored) * pictureBits);
}

void ReadExtensions(BitReader& in, HevcSpsRecord& sps) {
  sps.sps_range_extension_flag = in.ReadBit();
  sps.sps_multilayer_extension_flag = in.ReadBit();
  sps.sps_3d_extension_flag = in.ReadBit();
  sps.sps_scc_extension_flag = in.ReadBit();
  in.SkipBits(4);  // sps_extension_4bits
  if (sps.sps_range_extension_flag != 0) {
    sps.transform_skip_rotation_enabled_flag = in.ReadBit();
    sps.transform_skip_context_enabled_flag = in.ReadBit();
    sps.implicit_rdpcm_enabled_flag = in.ReadBit();
    sps.explicit_rdpcm_enabled_flag = in.ReadBit();
    sps.extended_precision_processing_flag = in.ReadBit();
    sps.intra_smoothing_disabled_flag = in.ReadBit();
    sps.high_precision_offsets_enabled_flag = in.ReadBit();
    sps.persistent_rice_adaptation_enabled_flag = in.ReadBit();
    sps.cabac_bypass_alignment_enabled_flag = in.ReadBit();
  }
  if (sps.sps_multilayer_extension_flag != 0) sps.inter_view_mv_vert_constraint_flag = in.ReadBit();
  if (sps.sps_3d_extension_flag != 0) {
    // sps_3d_extension(), clause I.7.3.2.2.5: texture layers, then depth layers.
    in.SkipBits(2);
    in.ReadUe();
    in.SkipBits(4);
    in.SkipBits(3);
    in.ReadUe();
    in.SkipBits(5);
  }
}

// False when the unit is refused.
bool ReadSps(HevcUnit& unit, HevcSpsRecord& sps, HevcConfigRecord* config) {
  BitReader& in = unit.bits();
  if (unit.nalType() != kHevcNalSps) {
    ErrOutLocated("Not a sps NAL %s %d");
    return false;
  }
  in.bitPos = 16;
  sps.sps_video_parameter_set_id = in.ReadBits(4);
  sps.sps_max_sub_layers_minus1 = in.ReadBits(3);
  sps.sps_temporal_id_nesting_flag = in.ReadBit();
  HevcReadProfileTierLevel(in, sps.sps_max_sub_layers_minus1, config, sps.profile_tier_level);
  sps.sps_seq_parameter_set_id = in.ReadUe();
  sps.chroma_format_idc = in.ReadUe();
  // A single bit in the standard; the writer mirrors the code.
  if (sps.chroma_format_idc == 3) sps.separate_colour_plane_flag = in.ReadUe();
  sps.pic_width_in_luma_samples = in.ReadUe();
  sps.pic_height_in_luma_samples = in.ReadUe();
  sps.conformance_window_flag = in.ReadBit();
  if (sps.conformance_window_flag != 0) {
    sps.conf_win_left_offset = in.ReadUe();
    sps.conf_win_right_offset = in.ReadUe();
    sps.conf_win_top_offset = in.ReadUe();
    sps.conf_win_bottom_offset = in.ReadUe();
  }
  sps.bit_depth_luma_minus8 = in.ReadUe();
  sps.bit_depth_chroma_minus8 = in.ReadUe();
  sps.log2_max_pic_order_cnt_lsb_minus4 = in.ReadUe();
  const uint32_t lastSubLayer = SubLayersForLoops(sps.sps_max_sub_layers_minus1);
  sps.sps_sub_layer_ordering_info_present_flag = in.ReadBit();
  for (uint32_t i = sps.sps_sub_layer_ordering_info_present_flag != 0 ? 0 : lastSubLayer; i <= lastSubLayer;
       ++i) {
    sps.sps_max_dec_pic_buffering_minus1[0] = in.ReadUe();
    sps.sps_max_num_reorder_pics[0] = in.ReadUe();
    sps.sps_max_latency_increase_plus1 = in.ReadUe();
  }
  sps.log2_min_luma_coding_block_size_minus3 = in.ReadUe();
  sps.log2_diff_max_min_luma_coding_block_size = in.ReadUe();
  sps.log2_min_luma_transform_block_size_minus2 = in.ReadUe();
  sps.log2_diff_max_min_luma_transform_block_size = in.ReadUe();
  sps.max_transform_hierarchy_depth_inter = in.ReadUe();
  sps.max_transform_hierarchy_depth_intra = in.ReadUe();
  sps.scaling_list_enabled_flag = in.ReadBit();
  if (sps.scaling_list_enabled_flag != 0) {
    // sps_scaling_list_data_present_flag is not stored: a record then writes the default lists.
    if (in.ReadBit() == 1) ReadScalingLists(in, sps);
  }
  sps.amp_enabled_flag = in.ReadBit();
  sps.sample_adaptive_offset_enabled_flag = in.ReadBit();
  sps.pcm_enabled_flag = in.ReadBit();
  if (sps.pcm_enabled_flag != 0) {
    sps.pcm_sample_bit_depth_luma_minus1 = in.ReadBits(4);
    sps.pcm_sample_bit_depth_chroma_minus1 = in.ReadBits(4);
    sps.log2_min_pcm_luma_coding_block_size_minus3 = in.ReadUe();
    sps.log2_diff_max_min_pcm_luma_coding_block_size = in.ReadUe();
    sps.pcm_loop_filter_disabled_flag = in.ReadBit();
  }
  sps.num_short_term_ref_pic_sets = in.ReadUe();
  if (static_cast<int32_t>(sps.num_short_term_ref_pic_sets) > QLN_HEVC_RPS_SETS) {
    sps.num_short_term_ref_pic_sets = 0;
    return false;
  }
  ReadShortTermSets(in, sps);
  sps.long_term_ref_pics_present_flag = in.ReadBit();
  if (sps.long_term_ref_pics_present_flag != 0) ReadLongTermPictures(in, sps);
  sps.sps_temporal_mvp_enabled_flag = in.ReadBit();
  sps.strong_intra_smoothing_enabled_flag = in.ReadBit();
  sps.vui_parameters_present_flag = in.ReadBit();
  if (sps.vui_parameters_present_flag == 1) ReadVui(in, sps);  // past the end it counts as clear
  sps.sps_extension_present_flag = in.ReadBit();
  if (sps.sps_extension_present_flag == 1) ReadExtensions(in, sps);  // likewise
  return true;
}

void Fold(const HevcSpsRecord& sps, HevcConfigRecord& config) {
  const auto asSigned = [](uint32_t word) { return static_cast<int32_t>(word); };
  config.numTemporalLayers = static_cast<uint32_t>(
      std::max(asSigned(config.numTemporalLayers), asSigned(sps.sps_max_sub_layers_minus1 + 1u)));
  config.temporalIdNested = sps.sps_temporal_id_nesting_flag;
  config.chromaFormat = sps.chroma_format_idc;
  config.bitDepthLumaMinus8 = sps.bit_depth_luma_minus8;
  config.bitDepthChromaMinus8 = sps.bit_depth_chroma_minus8;
  if (sps.bitstream_restriction_flag != 0) {
    config.min_spatial_segmentation_idc = static_cast<uint32_t>(
        std::min(asSigned(config.min_spatial_segmentation_idc), asSigned(sps.min_spatial_segmentation_idc)));
  }
}

}  // namespace
}  // namespace qln

uint64_t qlnutilRead_HEVC_SPS(QLNBitState* state, HevcSpsRecord* sps, HevcConfigRecord* config,
                              uint32_t lengthBits) {
  using namespace qln;
  if (NothingToRead(state, sps)) return 0;
  HevcUnit unit(*state, lengthBits, kSpsReader);
  if (!unit.ok()) return QLN_HEVC_REFUSED;
  if (!ReadSps(unit, *sps, config)) return unit.Refuse(state);
  unit.CheckTrailingBits();
  if (config != nullptr) Fold(*sps, *config);
  return unit.Done(state);
}
