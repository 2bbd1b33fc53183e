// The sequence parameter set of ITU-T H.264 by clauses 7.3.2.1.1, 7.3.2.1.1.1 and 7.3.2.1.2.
#ifndef MEDIA_SETS_H264_SPS_SYNTAX_H
#define MEDIA_SETS_H264_SPS_SYNTAX_H

#include <cstdint>
#include <string_view>
#include <vector>

#include "sets/h264_vui_syntax.h"
#include "sets/syntax_reader.h"

namespace qlnmedia {

struct H264Sps {
  uint32_t profile_idc = 0;
  bool constraint_set3_flag = false;
  uint32_t level_idc = 0;
  uint32_t seq_parameter_set_id = 0;
  uint32_t chroma_format_idc = 1;
  bool separate_colour_plane_flag = false;
  uint32_t bit_depth_luma_minus8 = 0;
  uint32_t bit_depth_chroma_minus8 = 0;
  uint32_t log2_max_frame_num_minus4 = 0;
  uint32_t pic_order_cnt_type = 0;
  uint32_t log2_max_pic_order_cnt_lsb_minus4 = 0;
  bool delta_pic_order_always_zero_flag = false;
  int32_t offset_for_non_ref_pic = 0;
  int32_t offset_for_top_to_bottom_field = 0;
  std::vector<int32_t> offset_for_ref_frame;  // nothing is allocated for the order count types 0 and 2
  uint32_t pic_width_in_mbs_minus1 = 0;
  uint32_t pic_height_in_map_units_minus1 = 0;
  bool frame_mbs_only_flag = true;
  uint32_t frame_crop_left_offset = 0;
  uint32_t frame_crop_right_offset = 0;
  uint32_t frame_crop_top_offset = 0;
  uint32_t frame_crop_bottom_offset = 0;
  bool vui_parameters_present_flag = false;
  H264Vui vui;

  uint32_t ChromaArrayType() const { return separate_colour_plane_flag ? 0 : chroma_format_idc; }
};

template <class Io>
void ReadH264NalHeader(Io& io) {
  io.flag("forbidden_zero_bit");
  io.u("nal_ref_idc", 2);
  io.u("nal_unit_type", 5);
}

// scaling_list(): the differences come out; where the next scale is 0 the rest of the list follows from it.
template <class Io>
void ReadH264ScalingList(Io& io, uint32_t list) {
  const auto scope = io.structure("scaling_list", static_cast<int>(list));
  int lastScale = 8;
  int nextScale = 8;
  for (int j = 0; j < (list < 6 ? 16 : 64); ++j) {
    if (nextScale != 0) {
      const int delta_scale = io.se("delta_scale", j);
      nextScale = (lastScale + delta_scale % 256 + 512) % 256;
    }
    lastScale = nextScale == 0 ? lastScale : nextScale;
  }
}

// The profiles whose sets tell their chroma format and bit depths.
constexpr bool H264ProfileHasChromaFormat(uint32_t profile_idc) {
  for (const uint32_t profile : {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u}) {
    if (profile == profile_idc) return true;
  }
  return false;
}

// seq_parameter_set_data()
template <class Io>
void ReadH264SpsData(Io& io, H264Sps& sps) {
  sps.profile_idc = io.u("profile_idc", 8);
  io.flag("constraint_set0_flag");
  io.flag("constraint_set1_flag");
  io.flag("constraint_set2_flag");
  sps.constraint_set3_flag = io.flag("constraint_set3_flag");
  io.flag("constraint_set4_flag");
  io.flag("constraint_set5_flag");
  io.u("reserved_zero_2bits", 2);
  sps.level_idc = io.u("level_idc", 8);
  sps.seq_parameter_set_id = io.ue("seq_parameter_set_id");
  if (H264ProfileHasChromaFormat(sps.profile_idc)) {
    sps.chroma_format_idc = io.ue("chroma_format_idc");
    if (sps.chroma_format_idc == 3) {
      sps.separate_colour_plane_flag = io.flag("separate_colour_plane_flag");
    }
    sps.bit_depth_luma_minus8 = io.ue("bit_depth_luma_minus8");
    sps.bit_depth_chroma_minus8 = io.ue("bit_depth_chroma_minus8");
    io.flag("qpprime_y_zero_transform_bypass_flag");
    if (io.flag("seq_scaling_matrix_present_flag")) {
      for (uint32_t i = 0; i < (sps.chroma_format_idc != 3 ? 8u : 12u); ++i) {
        if (io.flag("seq_scaling_list_present_flag", i)) {
          ReadH264ScalingList(io, i);
        }
      }
    }
  }
  sps.log2_max_frame_num_minus4 = io.ue("log2_max_frame_num_minus4");
  sps.pic_order_cnt_type = io.ue("pic_order_cnt_type");
  if (sps.pic_order_cnt_type == 0) {
    sps.log2_max_pic_order_cnt_lsb_minus4 = io.ue("log2_max_pic_order_cnt_lsb_minus4");
  } else if (sps.pic_order_cnt_type == 1) {
    sps.delta_pic_order_always_zero_flag = io.flag("delta_pic_order_always_zero_flag");
    sps.offset_for_non_ref_pic = io.se("offset_for_non_ref_pic");
    sps.offset_for_top_to_bottom_field = io.se("offset_for_top_to_bottom_field");
    const uint32_t num_ref_frames_in_pic_order_cnt_cycle =
        io.ue("num_ref_frames_in_pic_order_cnt_cycle", Most{255});
    for (uint32_t i = 0; i < num_ref_frames_in_pic_order_cnt_cycle; ++i) {
      sps.offset_for_ref_frame.push_back(io.se("offset_for_ref_frame", i));
    }
  }
  io.ue("max_num_ref_frames");
  io.flag("gaps_in_frame_num_value_allowed_flag");
  sps.pic_width_in_mbs_minus1 = io.ue("pic_width_in_mbs_minus1");
  sps.pic_height_in_map_units_minus1 = io.ue("pic_height_in_map_units_minus1");
  sps.frame_mbs_only_flag = io.flag("frame_mbs_only_flag");
  if (!sps.frame_mbs_only_flag) {
    io.flag("mb_adaptive_frame_field_flag");
  }
  io.flag("direct_8x8_inference_flag");
  if (io.flag("frame_cropping_flag")) {
    sps.frame_crop_left_offset = io.ue("frame_crop_left_offset");
    sps.frame_crop_right_offset = io.ue("frame_crop_right_offset");
    sps.frame_crop_top_offset = io.ue("frame_crop_top_offset");
    sps.frame_crop_bottom_offset = io.ue("frame_crop_bottom_offset");
  }
  sps.vui_parameters_present_flag = io.flag("vui_parameters_present_flag");
  if (sps.vui_parameters_present_flag) {
    ReadH264Vui(io, sps.vui);
  }
  io.factsEnd();
}

// seq_parameter_set_rbsp()
template <class Io>
void ReadH264Sps(Io& io, H264Sps& sps) {
  ReadH264NalHeader(io);
  ReadH264SpsData(io, sps);
}

// seq_parameter_set_extension_rbsp()
template <class Io>
void ReadH264SpsExtension(Io& io) {
  ReadH264NalHeader(io);
  io.ue("seq_parameter_set_id");
  if (io.ue("aux_format_idc") != 0) {
    const int bit_depth_aux_minus8 = static_cast<int>(io.ue("bit_depth_aux_minus8", Most{4}));
    io.flag("alpha_incr_flag");
    io.u("alpha_opaque_value", bit_depth_aux_minus8 + 9);
    io.u("alpha_transparent_value", bit_depth_aux_minus8 + 9);
  }
  io.flag("additional_extension_flag");
}

}  // namespace qlnmedia

#endif
