// What the interlace rewrite changes in parameter sets.

#include "qlnutil/inband/interlace_sets.h"

#include <algorithm>

#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/inband/mastering_display.h"

namespace qln {
namespace {

constexpr uint32_t kExtendedSar = 255;

}  // namespace

bool InterlaceSets::Read(uint32_t type, const uint8_t* data, uint32_t size, Records* records) {
  const uint32_t bytes = std::min<uint32_t>(size, INT32_MAX / 8);  // so that the bits can be counted
  QLNBitState state{const_cast<uint8_t*>(data), static_cast<int32_t>(bytes), bytes * 8, 0};
  HevcRead read{HevcRead::End::kNothingToRead};
  HevcReports reports;
  if (type == kHevcNalVps) read = HevcReadVps(&state, &records->vps, nullptr, 0, reports);
  if (type == kHevcNalSps) read = HevcReadSps(&state, &records->sps, nullptr, 0, reports);
  if (type == kHevcNalPps) read = HevcReadPps(&state, &records->pps, nullptr, 0, reports);
  reports.Give();
  return read.end != HevcRead::End::kNoMemory;
}

uint32_t InterlaceSets::Rewrite(uint32_t type, const uint8_t* data, uint32_t size, const DFrame& source,
                                const HevcSpsRecord& host, uint8_t* output) {
  const bool twoFields = (source.fieldFlags & QLN_TWO_FIELDS) == QLN_TWO_FIELDS;
  if (!Read(type, data, size, &working_)) return 0;
  if (type == kHevcNalVps) {
    ChangeVps(twoFields);
    return qlnutilWrite_HEVC_VPS(&working_.vps, output);
  }
  if (type == kHevcNalSps) {
    ChangeSps(twoFields);
    SupplyColour(source, host);
    return qlnutilWrite_HEVC_SPS(&working_.sps, output, QLN_HEVC_UNIT_SIZE);
  }
  return qlnutilWrite_HEVC_PPS(&working_.pps, output);
}

void InterlaceSets::ReadBack(uint32_t type, const uint8_t* data, uint32_t size) {
  Read(type, data, size, &readBack_);
}

void InterlaceSets::ChangeVps(bool twoFields) {
  HevcProfileTierLevel& profile = working_.vps.profile_tier_level;
  if (!twoFields || profile.general_progressive_source_flag != 1) return;
  profile.general_progressive_source_flag = 0;
  profile.general_interlaced_source_flag = 1;
  profile.general_frame_only_constraint_flag = 0;
}

void InterlaceSets::ChangeSps(bool twoFields) {
  HevcSpsRecord& sps = working_.sps;
  HevcProfileTierLevel& profile = sps.profile_tier_level;
  sps.vui_hrd_parameters_present_flag = 0;
  sps.vcl_hrd_parameters_present_flag = 0;
  if (!twoFields) {
    profile.general_progressive_source_flag = 1;
    profile.general_interlaced_source_flag = 0;
    profile.general_non_packed_constraint_flag = 0;
    profile.general_frame_only_constraint_flag = 1;
    sps.vui_parameters_present_flag = 1;
    sps.field_seq_flag = 0;
    sps.frame_field_info_present_flag = 1;
    return;
  }
  if (profile.general_progressive_source_flag != 1) return;
  profile.general_progressive_source_flag = 0;
  profile.general_interlaced_source_flag = 1;
  profile.general_non_packed_constraint_flag = 0;
  profile.general_frame_only_constraint_flag = 0;
  sps.aspect_ratio_info_present_flag = 1;
  sps.aspect_ratio_idc = kExtendedSar;
  sps.sar_width = 1;
  sps.sar_height = 2;
  sps.vui_parameters_present_flag = 1;
  sps.field_seq_flag = 1;
  sps.frame_field_info_present_flag = 1;
  if (sps.pic_width_in_luma_samples == 1920 && sps.pic_height_in_luma_samples == 544 &&
      sps.conformance_window_flag == 0) {
    // A field of 1080-line video coded as 544 lines shows as 540.
    sps.conformance_window_flag = 1;
    sps.conf_win_left_offset = 0;
    sps.conf_win_right_offset = 0;
    sps.conf_win_top_offset = 0;
    sps.conf_win_bottom_offset = 2;
  }
}

// Codes of ITU-T H.273.
void InterlaceSets::SupplyColour(const DFrame& source, const HevcSpsRecord& host) {
  HevcSpsRecord& sps = working_.sps;
  if (sps.colour_description_present_flag != 0) return;
  const uint32_t width = sps.pic_width_in_luma_samples;
  const uint32_t height = sps.pic_height_in_luma_samples;
  uint32_t code = 9;
  uint32_t transfer = 16;
  if (width < 1920) {
    code = transfer = height >= 576 ? 5 : 6;
  } else if (width < 3840) {
    code = transfer = 1;
  } else if ((source.colorFlags & kHdrFlags) == 0 && host.bit_depth_luma_minus8 == 2) {
    transfer = 14;
  }
  sps.colour_primaries = code;
  sps.transfer_characteristics = transfer;
  sps.matrix_coeffs = code;
  sps.video_signal_type_present_flag = 1;
  sps.colour_description_present_flag = 1;
}

}  // namespace qln
