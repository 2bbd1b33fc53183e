// The front of vui_parameters(), which ITU-T H.264 clause E.1.1 and H.265 clause E.2.1 have in common: aspect
// ratio, overscan, video signal, chroma location.
#ifndef MEDIA_SETS_VUI_FRONT_SYNTAX_H
#define MEDIA_SETS_VUI_FRONT_SYNTAX_H

#include <cstdint>
#include <string_view>

#include "sets/syntax_reader.h"

namespace qlnmedia {

struct VuiFront {
  uint32_t aspect_ratio_idc = 0;
  uint32_t sar_width = 0;
  uint32_t sar_height = 0;
  bool video_signal_type_present_flag = false;
  uint32_t video_format = 5;
  bool video_full_range_flag = false;
  bool colour_description_present_flag = false;
  uint32_t colour_primaries = 2;
  uint32_t transfer_characteristics = 2;
  uint32_t matrix_coefficients = 2;
  bool chroma_loc_info_present_flag = false;
  uint32_t chroma_sample_loc_type_top_field = 0;
  uint32_t chroma_sample_loc_type_bottom_field = 0;
};

inline constexpr uint32_t kExtendedSar = 255;

// The two standards call the last colour element by different names.
template <class Io>
void ReadVuiFront(Io& io, std::string_view matrixName, VuiFront& vui) {
  if (io.flag("aspect_ratio_info_present_flag")) {
    vui.aspect_ratio_idc = io.u("aspect_ratio_idc", 8);
    if (vui.aspect_ratio_idc == kExtendedSar) {
      vui.sar_width = io.u("sar_width", 16);
      vui.sar_height = io.u("sar_height", 16);
    }
  }
  if (io.flag("overscan_info_present_flag")) {
    io.flag("overscan_appropriate_flag");
  }
  vui.video_signal_type_present_flag = io.flag("video_signal_type_present_flag");
  if (vui.video_signal_type_present_flag) {
    vui.video_format = io.u("video_format", 3);
    vui.video_full_range_flag = io.flag("video_full_range_flag");
    vui.colour_description_present_flag = io.flag("colour_description_present_flag");
    if (vui.colour_description_present_flag) {
      vui.colour_primaries = io.u("colour_primaries", 8);
      vui.transfer_characteristics = io.u("transfer_characteristics", 8);
      vui.matrix_coefficients = io.u(matrixName, 8);
    }
  }
  vui.chroma_loc_info_present_flag = io.flag("chroma_loc_info_present_flag");
  if (vui.chroma_loc_info_present_flag) {
    vui.chroma_sample_loc_type_top_field = io.ue("chroma_sample_loc_type_top_field");
    vui.chroma_sample_loc_type_bottom_field = io.ue("chroma_sample_loc_type_bottom_field");
  }
}

}  // namespace qlnmedia

#endif
