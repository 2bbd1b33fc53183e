// Reads facts of parameter sets off their syntax.

#include "sets/sps_facts.h"

#include <algorithm>

#include "sets/h264_pps_syntax.h"
#include "sets/h264_sps_syntax.h"
#include "sets/hevc_pps_syntax.h"
#include "sets/hevc_sps_syntax.h"

namespace qlnmedia {

namespace {

void TakeVuiFront(const VuiFront& vui, SpsFacts& facts) {
  facts.aspectRatioIdc = vui.aspect_ratio_idc;
  facts.sarWidth = vui.sar_width;
  facts.sarHeight = vui.sar_height;
  facts.signalType = vui.video_signal_type_present_flag;
  facts.videoFormat = vui.video_format;
  facts.fullRange = vui.video_full_range_flag;
  if (vui.colour_description_present_flag) {
    facts.colour = {static_cast<uint8_t>(vui.colour_primaries),
                    static_cast<uint8_t>(vui.transfer_characteristics),
                    static_cast<uint8_t>(vui.matrix_coefficients)};
  }
  if (vui.chroma_loc_info_present_flag) {
    facts.chromaLocation = vui.chroma_sample_loc_type_top_field;
    facts.chromaLocBottom = vui.chroma_sample_loc_type_bottom_field;
  }
}

// The size of the frame and of what cropping leaves of it; offsets count `unitX` and `unitY` samples.
struct Frame {
  uint64_t width, height;
  uint32_t unitX, unitY;
  uint64_t left, right, top, bottom;
};

uint32_t Word(uint64_t value) { return static_cast<uint32_t>(value); }

void TakeFrame(const Frame& frame, SpsFacts& facts) {
  facts.codedWidth = Word(frame.width);
  facts.codedHeight = Word(frame.height);
  facts.cropUnitX = frame.unitX;
  facts.cropUnitY = frame.unitY;
  facts.cropping = {Word(frame.unitX * frame.left), Word(frame.unitX * frame.right),
                    Word(frame.unitY * frame.top), Word(frame.unitY * frame.bottom)};
  facts.width = Word(frame.width - std::min(frame.width, frame.unitX * (frame.left + frame.right)));
  facts.height = Word(frame.height - std::min(frame.height, frame.unitY * (frame.top + frame.bottom)));
}

SpsFacts FactsOf(const H264Sps& sps) {
  SpsFacts facts;
  facts.id = sps.seq_parameter_set_id;
  facts.profile = sps.profile_idc;
  facts.level = sps.level_idc;
  const uint32_t fields = sps.frame_mbs_only_flag ? 1 : 2;
  const uint32_t arrayType = sps.ChromaArrayType();
  TakeFrame({(uint64_t{sps.pic_width_in_mbs_minus1} + 1) * 16,
             (uint64_t{sps.pic_height_in_map_units_minus1} + 1) * 16 * fields,
             arrayType == 1 || arrayType == 2 ? 2u : 1u, (arrayType == 1 ? 2 : 1) * fields,
             sps.frame_crop_left_offset, sps.frame_crop_right_offset, sps.frame_crop_top_offset,
             sps.frame_crop_bottom_offset},
            facts);
  facts.chromaFormat = sps.chroma_format_idc;
  facts.separateColourPlanes = sps.separate_colour_plane_flag;
  facts.bitDepthLuma = sps.bit_depth_luma_minus8 + 8;
  facts.bitDepthChroma = sps.bit_depth_chroma_minus8 + 8;
  facts.log2MaxPocLsb = sps.log2_max_pic_order_cnt_lsb_minus4 + 4;
  facts.vui = sps.vui_parameters_present_flag;
  TakeVuiFront(sps.vui.front, facts);
  facts.timing = sps.vui.timing_info_present_flag;
  facts.numUnitsInTick = sps.vui.num_units_in_tick;
  facts.timeScale = sps.vui.time_scale;
  H264SpsFacts& own = facts.h264;
  own.constraintSet3 = sps.constraint_set3_flag;
  own.picStruct = sps.vui.pic_struct_present_flag;
  own.fixedFrameRate = sps.vui.fixed_frame_rate_flag;
  own.hrd = sps.vui.hrd.present;
  own.cpbRemovalDelayLength = sps.vui.hrd.cpb_removal_delay_length_minus1 + 1;
  own.dpbOutputDelayLength = sps.vui.hrd.dpb_output_delay_length_minus1 + 1;
  own.timeOffsetLength = sps.vui.hrd.time_offset_length;
  own.frameMbsOnly = sps.frame_mbs_only_flag;
  own.log2MaxFrameNum = sps.log2_max_frame_num_minus4 + 4;
  own.pocType = sps.pic_order_cnt_type;
  own.pocCycle = {sps.delta_pic_order_always_zero_flag, sps.offset_for_non_ref_pic,
                  sps.offset_for_top_to_bottom_field, sps.offset_for_ref_frame};
  own.chromaArrayType = arrayType;
  return facts;
}

HevcDelays DelaysOf(const HevcHrd& hrd) {
  HevcDelays delays;
  delays.present = hrd.nal_hrd_parameters_present_flag || hrd.vcl_hrd_parameters_present_flag;
  if (!delays.present) return delays;
  delays.cpbRemoval = hrd.au_cpb_removal_delay_length_minus1 + 1;
  delays.dpbOutput = hrd.dpb_output_delay_length_minus1 + 1;
  delays.subPictures = hrd.sub_pic_hrd_params_present_flag;
  if (delays.subPictures) {
    delays.duIncrement = hrd.du_cpb_removal_delay_increment_length_minus1 + 1;
    delays.unitsInPictureTiming = hrd.sub_pic_cpb_params_in_pic_timing_sei_flag;
    delays.dpbOutputDu = hrd.dpb_output_delay_du_length_minus1 + 1;
  }
  return delays;
}

SpsFacts FactsOf(const HevcSps& sps) {
  SpsFacts facts;
  facts.id = sps.sps_seq_parameter_set_id;
  facts.profile = sps.general.profile_idc;
  facts.level = sps.general.level_idc;
  TakeFrame({sps.pic_width_in_luma_samples, sps.pic_height_in_luma_samples,
             sps.chroma_format_idc == 1 || sps.chroma_format_idc == 2 ? 2u : 1u,
             sps.chroma_format_idc == 1 ? 2u : 1u, sps.conf_win_left_offset, sps.conf_win_right_offset,
             sps.conf_win_top_offset, sps.conf_win_bottom_offset},
            facts);
  facts.chromaFormat = sps.chroma_format_idc;
  facts.separateColourPlanes = sps.separate_colour_plane_flag;
  facts.bitDepthLuma = sps.bit_depth_luma_minus8 + 8;
  facts.bitDepthChroma = sps.bit_depth_chroma_minus8 + 8;
  facts.log2MaxPocLsb = sps.log2_max_pic_order_cnt_lsb_minus4 + 4;
  facts.vui = sps.vui_parameters_present_flag;
  TakeVuiFront(sps.vui.front, facts);
  facts.timing = sps.vui.vui_timing_info_present_flag;
  facts.numUnitsInTick = sps.vui.vui_num_units_in_tick;
  facts.timeScale = sps.vui.vui_time_scale;
  HevcSpsFacts& own = facts.hevc;
  own.interlace = {sps.general.progressive_source_flag, sps.general.interlaced_source_flag,
                   sps.vui.field_seq_flag};
  own.frameOnly = sps.general.frame_only_constraint_flag;
  own.frameFieldInfo = sps.vui.frame_field_info_present_flag;
  own.highTier = sps.general.tier_flag;
  own.delays = DelaysOf(sps.vui.hrd);
  return facts;
}

}  // namespace

std::optional<SpsFacts> ReadSpsFacts(Codec codec, ByteSpan unit) {
  NoSink none;
  SyntaxReader<NoSink> in(unit, none);
  if (codec == Codec::kH264) {
    H264Sps sps;
    ReadH264Sps(in, sps);
    if (!in.factsWhole()) return {};
    return FactsOf(sps);
  }
  HevcSps sps;
  ReadHevcSps(in, sps);
  if (!in.factsWhole() || sps.MultiLayerExtSpsFlag()) return {};
  return FactsOf(sps);
}

std::optional<PpsFacts> ReadPpsFacts(Codec codec, ByteSpan unit) {
  NoSink none;
  SyntaxReader<NoSink> in(unit, none);
  PpsFacts facts;
  if (codec == Codec::kH264) {
    H264Pps pps;
    ReadH264Pps(in, 1, pps);  // the facts stand in front of what depends on the chroma format
    facts.id = pps.pic_parameter_set_id;
    facts.spsId = pps.seq_parameter_set_id;
    facts.fieldOrder = pps.bottom_field_pic_order_in_frame_present_flag;
    facts.references = {pps.num_ref_idx_default_active_minus1[0] + 1,
                        pps.num_ref_idx_default_active_minus1[1] + 1};
    facts.weightedP = pps.weighted_pred_flag;
    facts.weightedB = pps.weighted_bipred_idc;
    facts.redundant = pps.redundant_pic_cnt_present_flag;
  } else {
    HevcPps pps;
    ReadHevcPps(in, pps);
    facts.id = pps.pps_pic_parameter_set_id;
    facts.spsId = pps.pps_seq_parameter_set_id;
    facts.outputFlag = pps.output_flag_present_flag;
    facts.extraBits = pps.num_extra_slice_header_bits;
  }
  if (!in.factsWhole()) return {};
  return facts;
}

SampleAspect SampleAspectOf(const SpsFacts& sps) {
  return SampleAspectRatio(sps.aspectRatioIdc, sps.sarWidth, sps.sarHeight);
}

}  // namespace qlnmedia
