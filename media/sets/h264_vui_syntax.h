// vui_parameters() and hrd_parameters() of ITU-T H.264, clauses E.1.1 and E.1.2.
#ifndef MEDIA_SETS_H264_VUI_SYNTAX_H
#define MEDIA_SETS_H264_VUI_SYNTAX_H

#include <cstdint>
#include <string_view>

#include "sets/syntax_reader.h"
#include "sets/vui_front_syntax.h"

namespace qlnmedia {

// Of the HRD parameters read last; the lengths are those that hold where there are none.
struct H264Hrd {
  bool present = false;
  uint32_t cpb_removal_delay_length_minus1 = 23;
  uint32_t dpb_output_delay_length_minus1 = 23;
  uint32_t time_offset_length = 24;
};

struct H264Vui {
  VuiFront front;
  bool timing_info_present_flag = false;
  uint32_t num_units_in_tick = 0;
  uint32_t time_scale = 0;
  bool fixed_frame_rate_flag = false;
  H264Hrd hrd;
  bool pic_struct_present_flag = false;
};

// hrd_parameters(); `which` tells it from others of its set.
template <class Io>
void ReadH264Hrd(Io& io, std::string_view structure, H264Hrd& hrd, int which = -1) {
  const auto scope = io.structure(structure, which);
  hrd.present = true;
  const uint32_t cpb_cnt_minus1 = io.ue("cpb_cnt_minus1", Most{31});
  io.u("bit_rate_scale", 4);
  io.u("cpb_size_scale", 4);
  for (uint32_t i = 0; i <= cpb_cnt_minus1; ++i) {
    io.ue("bit_rate_value_minus1", i);
    io.ue("cpb_size_value_minus1", i);
    io.flag("cbr_flag", i);
  }
  io.u("initial_cpb_removal_delay_length_minus1", 5);
  hrd.cpb_removal_delay_length_minus1 = io.u("cpb_removal_delay_length_minus1", 5);
  hrd.dpb_output_delay_length_minus1 = io.u("dpb_output_delay_length_minus1", 5);
  hrd.time_offset_length = io.u("time_offset_length", 5);
}

template <class Io>
void ReadH264Vui(Io& io, H264Vui& vui) {
  const auto scope = io.structure("vui_parameters");
  ReadVuiFront(io, "matrix_coefficients", vui.front);
  vui.timing_info_present_flag = io.flag("timing_info_present_flag");
  if (vui.timing_info_present_flag) {
    vui.num_units_in_tick = io.u("num_units_in_tick", 32);
    vui.time_scale = io.u("time_scale", 32);
    vui.fixed_frame_rate_flag = io.flag("fixed_frame_rate_flag");
  }
  const bool nal_hrd_parameters_present_flag = io.flag("nal_hrd_parameters_present_flag");
  if (nal_hrd_parameters_present_flag) {
    ReadH264Hrd(io, "nal_hrd_parameters", vui.hrd);
  }
  const bool vcl_hrd_parameters_present_flag = io.flag("vcl_hrd_parameters_present_flag");
  if (vcl_hrd_parameters_present_flag) {
    ReadH264Hrd(io, "vcl_hrd_parameters", vui.hrd);
  }
  if (nal_hrd_parameters_present_flag || vcl_hrd_parameters_present_flag) {
    io.flag("low_delay_hrd_flag");
  }
  vui.pic_struct_present_flag = io.flag("pic_struct_present_flag");
  io.factsEnd();
  if (io.flag("bitstream_restriction_flag")) {
    io.flag("motion_vectors_over_pic_boundaries_flag");
    io.ue("max_bytes_per_pic_denom");
    io.ue("max_bits_per_mb_denom");
    io.ue("log2_max_mv_length_horizontal");
    io.ue("log2_max_mv_length_vertical");
    io.ue("max_num_reorder_frames");
    io.ue("max_dec_frame_buffering");
  }
}

}  // namespace qlnmedia

#endif
